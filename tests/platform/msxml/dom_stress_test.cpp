// dom_stress_test.cpp: seeded random edit sequences and corrupted inputs for the MSXML stand-in.
// Nodes are held, moved between two documents, removed, cloned and released in arbitrary order
// (run under AddressSanitizer this checks the wrapper/tree lifetime rules), and after every step
// both documents must still serialise to namespace-well-formed XML. Corrupted corpus bytes must
// be rejected or loaded, by the DOM and the SAX reader alike, never crash.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "msxml_test_support.h"

using namespace msxmltest;

namespace {

class EditStorm {
public:
    explicit EditStorm(unsigned seed) : m_random(seed) {
        m_docs[0] = Parsed(
            L"<a:root xmlns:a=\"urn:a\" xmlns:b=\"urn:b\"><a:x b:k=\"1\">t</a:x>"
            L"<b:y><z/></b:y></a:root>");
        m_docs[1] = Parsed(L"<other xmlns=\"urn:d\"><w/>text<!--c--></other>");
        for (auto& doc : m_docs) {
            CComPtr<IXMLDOMNodeList> all;
            EXPECT_EQ(doc->selectNodes(CComBSTR(L"//node()"), &all), S_OK);
            CComPtr<IXMLDOMNode> node;
            while (all->nextNode(&node) == S_OK) {
                m_pool.push_back(node);
                node.Release();
            }
        }
    }

    void Step() {
        switch (Pick(16)) {
            case 0:
            case 1:
            case 2:
            case 3:
                Append();
                break;
            case 4:
            case 5:
                Remove();
                break;
            case 6:
            case 7:
                CreateElement();
                break;
            case 8:
                Clone();
                break;
            case 9:
                SetAttribute();
                break;
            case 10:
                RemoveDeclaration();
                break;
            case 11:
                AddDeclaration();
                break;
            case 12:
                Release();
                break;
            case 13:
                Select();
                break;
            case 14:
                ReplaceRoot();
                break;
            default:
                Pick(4) == 0 ? PutText() : Read();
                break;
        }
    }

    void Check() {
        for (auto& doc : m_docs) {
            std::wstring xml = Xml(doc.p);
            if (xml.empty()) continue;  // no root element left
            auto copy = NewDocument();
            VARIANT_BOOL ok = VARIANT_FALSE;
            CComBSTR text(xml.c_str());
            ASSERT_EQ(copy->loadXML(text, &ok), S_OK) << std::string(xml.begin(), xml.end());
        }
    }

private:
    std::size_t Pick(std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(m_random);
    }
    CComPtr<IXMLDOMNode> Any() {
        if (m_pool.empty()) return nullptr;
        return m_pool[Pick(m_pool.size())];
    }
    IXMLDOMDocument2* Doc() { return m_docs[Pick(2)]; }

    void Append() {
        CComPtr<IXMLDOMNode> parent;
        for (int tries = 0; tries < 4 && !CComQIPtr<IXMLDOMElement>(parent); ++tries)
            parent = Any();
        auto child = Any();
        if (parent && child && parent->appendChild(child, nullptr) == S_OK) ++m_moves;
    }
    void Remove() {
        auto child = Any();
        if (!child) return;
        CComPtr<IXMLDOMNode> parent;
        if (child->get_parentNode(&parent) == S_OK && parent->removeChild(child, nullptr) == S_OK) {
            ++m_moves;
        }
    }
    void CreateElement() {
        static const wchar_t* names[] = {L"a:new", L"b:new", L"c:new", L"plain", L"d"};
        static const wchar_t* uris[] = {L"urn:a", L"urn:b", L"urn:c", L"", L"urn:d"};
        std::size_t i = Pick(5);
        CComPtr<IXMLDOMNode> node;
        if (Doc()->createNode(CComVariant(1), CComBSTR(names[i]), CComBSTR(uris[i]), &node) ==
            S_OK) {
            m_pool.push_back(node);
        }
    }
    void Clone() {
        auto node = Any();
        CComPtr<IXMLDOMNode> copy;
        if (node && node->cloneNode(Pick(2) ? VARIANT_TRUE : VARIANT_FALSE, &copy) == S_OK) {
            m_pool.push_back(copy);
        }
    }
    void SetAttribute() {
        CComQIPtr<IXMLDOMElement> element(Any());
        if (!element) return;
        static const wchar_t* names[] = {L"k", L"b:k", L"a:q", L"xml:lang", L"xmlns:e"};
        element->setAttribute(CComBSTR(names[Pick(5)]), CComVariant(L"urn:v"));
    }
    void RemoveDeclaration() {
        auto node = Any();
        CComPtr<IXMLDOMNamedNodeMap> map;
        if (!node || node->get_attributes(&map) != S_OK) return;
        CComPtr<IXMLDOMNode> item;
        if (map->get_item(0, &item) != S_OK) return;
        CComBSTR name;
        item->get_nodeName(&name);
        CComPtr<IXMLDOMNode> removed;
        if (map->removeNamedItem(name, &removed) == S_OK && removed) m_pool.push_back(removed);
    }
    void AddDeclaration() {
        CComQIPtr<IXMLDOMElement> element(Any());
        if (!element) return;
        CComPtr<IXMLDOMNode> node;
        if (Doc()->createNode(CComVariant(2), CComBSTR(Pick(2) ? L"xmlns:a" : L"xmlns:f"),
                              CComBSTR(L""), &node) != S_OK) {
            return;
        }
        node->put_text(CComBSTR(Pick(2) ? L"urn:a" : L"urn:f"));
        CComQIPtr<IXMLDOMAttribute> attribute(node);
        element->setAttributeNode(attribute, nullptr);
        m_pool.push_back(node);
    }
    void Release() {
        if (!m_pool.empty()) m_pool.erase(m_pool.begin() + static_cast<long>(Pick(m_pool.size())));
    }
    void PutText() {
        auto node = Any();
        if (node) node->put_text(CComBSTR(L"replaced <&> text"));
    }
    void Select() {
        CComPtr<IXMLDOMNodeList> list;
        if (Doc()->selectNodes(CComBSTR(L"//*"), &list) != S_OK) return;
        CComPtr<IXMLDOMNode> node;
        if (list->get_item(static_cast<LONG>(Pick(8)), &node) == S_OK) m_pool.push_back(node);
    }
    void ReplaceRoot() {
        CComQIPtr<IXMLDOMElement> element(Any());
        if (element) Doc()->putref_documentElement(element);
    }
    void Read() {
        auto node = Any();
        if (!node) return;
        CComBSTR text;
        node->get_text(&text);
        CComBSTR xml;
        node->get_xml(&xml);
        CComPtr<IXMLDOMDocument> owner;
        node->get_ownerDocument(&owner);
    }

public:
    int m_moves = 0;  // structural edits that succeeded

private:
    std::mt19937 m_random;
    CComPtr<IXMLDOMDocument2> m_docs[2];
    std::vector<CComPtr<IXMLDOMNode>> m_pool;
};

}  // namespace

TEST(DomStress, RandomEditsKeepDocumentsValidAndNodesAlive) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        EditStorm storm(seed);
        for (int step = 0; step < 150; ++step) {
            storm.Step();
            if (step % 10 == 9) {
                storm.Check();
                if (testing::Test::HasFatalFailure()) return;
            }
        }
        storm.Check();
        EXPECT_GT(storm.m_moves, 20);
    }
}

TEST(DomStress, CorruptedCorpusBytesNeverCrash) {
    std::string original =
        ReadFile(std::string(FU_CORPUS_DIR) +
                 "/tickets/libarchive_test_compat_zip_7.xps__Metadata_Job_PT.xml");
    ASSERT_FALSE(original.empty());
    std::mt19937 random(7);
    CComPtr<ISAXXMLReader> reader;
    ASSERT_EQ(CoCreateInstance(CLSID_SAXXMLReader60, nullptr, CLSCTX_ALL, IID_ISAXXMLReader,
                               reinterpret_cast<void**>(&reader)),
              S_OK);
    int loaded = 0;
    for (int round = 0; round < 400; ++round) {
        std::string bytes = original;
        int edits = 1 + static_cast<int>(random() % 4);
        for (int e = 0; e < edits; ++e) {
            std::size_t at = random() % bytes.size();
            switch (random() % 4) {
                case 0:
                    bytes[at] = static_cast<char>(random());
                    break;
                case 1:
                    bytes.erase(at, random() % 16);
                    break;
                case 2:
                    bytes.insert(at, "<!DOCTYPE x [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>");
                    break;
                default:
                    bytes.resize(at);
                    break;
            }
            if (bytes.empty()) bytes = "<";
        }
        CComPtr<IStream> stream;
        ASSERT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
        auto doc = NewDocument();
        VARIANT_BOOL ok = VARIANT_FALSE;
        HRESULT hr = doc->load(CComVariant(static_cast<IUnknown*>(stream.p)), &ok);
        EXPECT_EQ(hr, ok == VARIANT_TRUE ? S_OK : S_FALSE);
        if (ok == VARIANT_TRUE) {
            ++loaded;
            EXPECT_EQ(Xml(doc.p).find(L"root:"), std::wstring::npos);
        }
        CComPtr<IStream> again;
        ASSERT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &again), S_OK);
        HRESULT parsed = reader->parse(CComVariant(static_cast<IUnknown*>(again.p)));
        EXPECT_EQ(SUCCEEDED(parsed), ok == VARIANT_TRUE);
    }
    EXPECT_GT(loaded, 0);  // some corruptions (in text) leave a well-formed document
}
