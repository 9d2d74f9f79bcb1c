// documenttesting.h: helpers shared by the Print Schema document tests: DOMs from text, bytes and
// files, the HRESULT a call throws, access to the documents' protected and private members, and
// an independent libxml2 view of what the DOM serialises.
#pragma once

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/printcapabilitiesxmldocument.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/unicode.h"
#include "support/utilities/exceptions.h"

// Reaches the documents' protected and private members (the classes befriend it): each call
// forwards its arguments to the member of the same name (CreateTypedProperty to CreateProperty,
// CreateScoredPropertyWithChild to CreateScoredProperty).
class PrintSchemaTestAccess {
public:
#define FU_FORWARD(Name, Member)                \
    template <class D, class... A>              \
    static HRESULT Name(D& d, A&&... a) {       \
        return d.Member(std::forward<A>(a)...); \
    }
    FU_FORWARD(GetNode, GetNode)
    FU_FORWARD(GetNodes, GetNodes)
    FU_FORWARD(GetNodeValue, GetNodeValue)
    FU_FORWARD(GetAttributeValue, GetAttributeValue)
    FU_FORWARD(GetPrefixFromURI, GetPrefixFromURI)
    FU_FORWARD(CreateXMLElement, CreateXMLElement)
    FU_FORWARD(AppendXMLAttribute, AppendXMLAttribute)
    FU_FORWARD(CreateTypedProperty, CreateProperty)
    FU_FORWARD(CreateStringScoredProperty, CreateStringScoredProperty)
    FU_FORWARD(CreateIntegerScoredProperty, CreateIntegerScoredProperty)
    FU_FORWARD(CreateRealScoredProperty, CreateRealScoredProperty)
    FU_FORWARD(CreateScoredPropertyWithChild, CreateScoredProperty)
    FU_FORWARD(StripKeywordNamespace, StripKeywordNamespace)
    FU_FORWARD(DeleteNodeList, DeleteNodeList)
    FU_FORWARD(DeleteParamInitOrphans, DeleteParamInitOrphans)
#undef FU_FORWARD
};

namespace documenttesting {

inline constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

inline const std::wstring kFramework = PrintSchema::FrameworkNamespaceUri;
inline const std::wstring kKeywords = PrintSchema::KeywordsNamespaceUri;
inline const std::wstring kSchema = PrintSchema::XmlSchemaNamespaceUri;
inline const std::wstring kInstance = PrintSchema::XmlSchemaInstanceNamespaceUri;
inline const std::wstring kPrivate = PrintSchema::PrivateKeywordsNamespaceUri;

// A root element with the usual declarations (psf, psk, xsi, xsd), `extra` and `body`.
inline std::wstring Root(const wchar_t* name, const std::wstring& body, const std::wstring& extra) {
    return L"<psf:" + std::wstring(name) + L" xmlns:psf='" + kFramework + L"' xmlns:psk='" +
           kKeywords + L"' xmlns:xsi='" + kInstance + L"' xmlns:xsd='" + kSchema +
           L"' version='1'" + extra + L">" + body + L"</psf:" + name + L">";
}

inline std::wstring Ticket(const std::wstring& body, const std::wstring& extra = L"") {
    return Root(L"PrintTicket", body, extra);
}

inline std::wstring Capabilities(const std::wstring& body, const std::wstring& extra = L"") {
    return Root(L"PrintCapabilities", body, extra);
}

inline CComPtr<IXMLDOMDocument2> NewDom() {
    CComPtr<IXMLDOMDocument2> dom;
    EXPECT_EQ(dom.CoCreateInstance(CLSID_DOMDocument60), S_OK);
    return dom;
}

// The DOM of the text, or null (with a test failure) when it does not load.
inline CComPtr<IXMLDOMDocument2> LoadXml(const std::wstring& xml) {
    CComPtr<IXMLDOMDocument2> dom = NewDom();
    if (!dom) return nullptr;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    const HRESULT hr = dom->loadXML(CComBSTR(xml.c_str()), &loaded);
    EXPECT_EQ(hr, S_OK) << "loadXML failed";
    EXPECT_EQ(loaded, VARIANT_TRUE) << "text does not parse";
    if (hr != S_OK || loaded != VARIANT_TRUE) return nullptr;
    return dom;
}

// Loads bytes (the encoding declaration applies) from a memory stream; null when they do not
// parse. Nothing is asserted: bad-input tests use it to see the outcome.
inline CComPtr<IXMLDOMDocument2> TryLoadBytes(const std::string& bytes, HRESULT* result = nullptr) {
    CComPtr<IXMLDOMDocument2> dom = NewDom();
    if (!dom) return nullptr;
    CComPtr<IStream> stream;
    EXPECT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
    VARIANT_BOOL loaded = VARIANT_FALSE;
    const HRESULT hr = dom->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded);
    if (result != nullptr) *result = hr;
    if (hr != S_OK || loaded != VARIANT_TRUE) return nullptr;
    return dom;
}

inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// The corpus files of one folder ("tickets", "caps"), sorted.
inline std::vector<std::filesystem::path> CorpusFiles(const char* folder) {
    std::vector<std::filesystem::path> files;
    const std::filesystem::path dir = std::filesystem::path(FU_CORPUS_DIR) / folder;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Runs f; the HRESULT of the ZorunComException it throws, or nullopt when it throws nothing.
template <class F>
std::optional<HRESULT> ThrownHresult(F&& f) {
    try {
        f();
    } catch (const ZorunComException& e) {
        return e.GetHresult();
    }
    return std::nullopt;
}

// Expects `statement` to throw a ZorunComException that carries `hr`.
#define EXPECT_THROWS_HR(statement, hr) \
    EXPECT_EQ(::documenttesting::ThrownHresult([&] { statement; }), hr)

// Runs f; the qualified method name carried by the ZorunComException it throws ("" if none).
template <class F>
std::wstring ThrownFunction(F&& f) {
    try {
        f();
    } catch (const ZorunComException& e) {
        return static_cast<const wchar_t*>(e.GetFunction());
    }
    return L"";
}

inline std::string Utf8(const wchar_t* text) {
    return text == nullptr ? std::string() : platform::WideToUtf8(text);
}

// The name of a common HRESULT, else its value in hexadecimal.
inline std::string HresultName(HRESULT hr) {
    const std::pair<HRESULT, const char*> names[] = {
        {S_OK, "S_OK"},           {S_FALSE, "S_FALSE"},           {E_FAIL, "E_FAIL"},
        {E_POINTER, "E_POINTER"}, {E_INVALIDARG, "E_INVALIDARG"}, {kNotFound, "NOT_FOUND"}};
    for (const auto& [value, name] : names) {
        if (value == hr) return name;
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}

// The outcome of `call` as one comparable text: what `output()` makes of its outputs when it
// returns S_OK; for another HRESULT "returned " and its name, then " with " and the outputs when
// any were set; "threw " and the name when it throws a ZorunComException.
template <class Call, class Output>
std::string Outcome(Call&& call, Output&& output) {
    HRESULT hr = S_OK;
    try {
        hr = call();
    } catch (const ZorunComException& e) {
        return "threw " + HresultName(e.GetHresult());
    }
    const std::string text = output();
    if (hr == S_OK) return text;
    return "returned " + HresultName(hr) + (text.empty() ? "" : " with " + text);
}

inline std::string XmlOf(const PrintSchemaXmlDocument& document) {
    CComBSTR xml;
    EXPECT_EQ(document.get_xml(&xml), S_OK);
    return Utf8(xml);
}

inline std::string XmlOf(IXMLDOMNode* node) {
    CComBSTR xml;
    EXPECT_EQ(node->get_xml(&xml), S_OK);
    return Utf8(xml);
}

// What libxml2 itself makes of serialised XML, with the prefixes psf, psk, xsi, xsd and zk
// bound for queries.
class RawXml {
public:
    explicit RawXml(const std::string& utf8)
        : m_doc(xmlReadMemory(
                    utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
                xmlFreeDoc) {}

    bool Parsed() const { return m_doc != nullptr; }

    // The string value of every node the query selects, in document order.
    std::vector<std::string> Strings(const char* xpath) const {
        std::vector<std::string> values;
        Evaluate(xpath, [&values](xmlNodePtr node) {
            xmlChar* content = xmlNodeGetContent(node);
            values.emplace_back(content == nullptr ? "" : reinterpret_cast<char*>(content));
            xmlFree(content);
        });
        return values;
    }

    std::size_t Count(const char* xpath) const { return Strings(xpath).size(); }

    // "{uri}local" of every element and attribute (namespace declarations are not attributes
    // here), in document order.
    std::vector<std::string> ExpandedNames() const {
        std::vector<std::string> names;
        if (m_doc) Collect(xmlDocGetRootElement(m_doc.get()), names);
        return names;
    }

private:
    template <class Visit>
    void Evaluate(const char* xpath, Visit visit) const {
        if (!m_doc) return;
        std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)> context(
            xmlXPathNewContext(m_doc.get()), xmlXPathFreeContext);
        const std::pair<const char*, std::wstring> bindings[] = {
            {"psf", kFramework}, {"psk", kKeywords}, {"xsi", kInstance},
            {"xsd", kSchema},    {"zk", kPrivate},
        };
        for (const auto& [prefix, uri] : bindings) {
            const std::string narrowUri = platform::WideToUtf8(uri);
            xmlXPathRegisterNs(context.get(), reinterpret_cast<const xmlChar*>(prefix),
                               reinterpret_cast<const xmlChar*>(narrowUri.c_str()));
        }
        std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> result(
            xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(xpath), context.get()),
            xmlXPathFreeObject);
        ASSERT_NE(result, nullptr) << "bad test query " << xpath;
        if (result->nodesetval == nullptr) return;
        for (int i = 0; i < result->nodesetval->nodeNr; ++i) visit(result->nodesetval->nodeTab[i]);
    }

    static std::string Expanded(const xmlNs* ns, const xmlChar* local) {
        std::string name = "{";
        if (ns != nullptr && ns->href != nullptr) name += reinterpret_cast<const char*>(ns->href);
        return name + "}" + reinterpret_cast<const char*>(local);
    }

    static void Collect(xmlNodePtr node, std::vector<std::string>& names) {
        for (; node != nullptr; node = node->next) {
            if (node->type != XML_ELEMENT_NODE) continue;
            names.push_back(Expanded(node->ns, node->name));
            for (xmlAttrPtr a = node->properties; a != nullptr; a = a->next) {
                names.push_back("@" + Expanded(a->ns, a->name));
            }
            Collect(node->children, names);
        }
    }

    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> m_doc;
};

}  // namespace documenttesting
