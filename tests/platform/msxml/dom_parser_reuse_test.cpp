// dom_parser_reuse_test.cpp: loads that follow one another on a thread (which reuses its parser
// state) stay independent: errors, white-space modes, declarations and very wide elements do not
// carry over, documents outlive the thread that parsed them, a load started from inside a
// stream's Read works, and text of every length comes back whole as wide strings, also when read
// into a reused string (platform::DomNodeText).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/comobject.h"

using namespace msxmltest;

namespace {

LONG ErrorCode(IXMLDOMDocument2* doc, LONG* line = nullptr) {
    CComPtr<IXMLDOMParseError> error;
    EXPECT_EQ(doc->get_parseError(&error), S_OK);
    LONG code = 0;
    EXPECT_EQ(error->get_errorCode(&code), S_OK);
    if (line != nullptr) {
        EXPECT_EQ(error->get_line(line), S_OK);
    }
    return code;
}

LONG ChildCount(IXMLDOMNode* node) {
    CComPtr<IXMLDOMNodeList> children;
    EXPECT_EQ(node->get_childNodes(&children), S_OK);
    LONG count = -1;
    EXPECT_EQ(children->get_length(&count), S_OK);
    return count;
}

bool LoadStream(IXMLDOMDocument2* doc, ISequentialStream* stream) {
    VARIANT_BOOL ok = VARIANT_FALSE;
    doc->load(CComVariant(static_cast<IUnknown*>(stream)), &ok);
    return ok == VARIANT_TRUE;
}

// A stream of fixed bytes that, on its first Read, loads another document on the same thread
// before answering.
class NestingStream final : public platform::ComObject<ISequentialStream> {
public:
    explicit NestingStream(std::string bytes) : m_bytes(std::move(bytes)) {}

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        if (!m_inner) {
            m_inner = NewDocument();
            m_innerLoaded = Load(m_inner, L"<inner><x a='1'/></inner>");
        }
        const std::size_t left = m_bytes.size() - m_at;
        const std::size_t n = count < left ? count : left;
        std::memcpy(buffer, m_bytes.data() + m_at, n);
        m_at += n;
        *read = static_cast<ULONG>(n);
        return S_OK;
    }
    HRESULT Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

    CComPtr<IXMLDOMDocument2> m_inner;
    bool m_innerLoaded = false;

private:
    std::string m_bytes;
    std::size_t m_at = 0;
};

}  // namespace

TEST(DomParserReuse, FailedLoadsLeaveNothingForTheNextOne) {
    auto doc = NewDocument();
    ASSERT_TRUE(Load(doc, L"<a><b/></a>"));
    EXPECT_FALSE(Load(doc, L"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>"));
    EXPECT_EQ(ErrorCode(doc), platform::kXmlDtdProhibited);
    EXPECT_FALSE(Load(doc, L"<a>\n<b>\n</c></a>"));
    LONG line = 0;
    const LONG malformed = ErrorCode(doc, &line);
    EXPECT_NE(malformed, 0);
    EXPECT_NE(malformed, platform::kXmlDtdProhibited);
    EXPECT_EQ(line, 3);

    // The same text on a fresh document fails the same way: the earlier failures added nothing.
    auto fresh = NewDocument();
    EXPECT_FALSE(Load(fresh, L"<a>\n<b>\n</c></a>"));
    LONG freshLine = 0;
    EXPECT_EQ(ErrorCode(fresh, &freshLine), malformed);
    EXPECT_EQ(freshLine, line);

    ASSERT_TRUE(Load(doc, L"<root>\n<item n='1'/>\n<item n='2'/></root>"));
    EXPECT_EQ(ErrorCode(doc), 0);
    EXPECT_EQ(Name(Select(doc, L"/root/item[@n='2']").p), L"item");

    // A document stopped at its DOCTYPE, then one with entities: still only the predefined ones.
    EXPECT_FALSE(Load(doc, L"<!DOCTYPE r SYSTEM 'r.dtd'><r/>"));
    EXPECT_FALSE(Load(doc, L"<r>&undeclared;</r>"));
    ASSERT_TRUE(Load(doc, L"<r>&lt;&amp;&gt;</r>"));
    EXPECT_EQ(Text(Select(doc, L"/r").p), L"<&>");
}

TEST(DomParserReuse, WhiteSpaceModeFollowsEachDocument) {
    const wchar_t* xml = L"<a>\n  <b> x </b>\n  <c/>\n</a>";
    for (int round = 0; round < 2; ++round) {
        auto dropping = NewDocument();
        ASSERT_TRUE(Load(dropping, xml));
        EXPECT_EQ(ChildCount(Select(dropping, L"/a")), 2);

        auto keeping = NewDocument();
        ASSERT_EQ(keeping->put_preserveWhiteSpace(VARIANT_TRUE), S_OK);
        ASSERT_TRUE(Load(keeping, xml));
        EXPECT_EQ(ChildCount(Select(keeping, L"/a")), 5);
        EXPECT_EQ(Text(Select(keeping, L"/a/b").p), L" x ");

        // Bytes from a stream parse with the other encoding options; the modes still hold.
        const std::string bytes = "<?xml version='1.0' encoding='UTF-8'?><a>\n <b/>\n</a>";
        CComPtr<IStream> stream;
        ASSERT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
        ASSERT_TRUE(LoadStream(keeping, stream));
        EXPECT_EQ(ChildCount(Select(keeping, L"/a")), 3);
        stream.Release();
        ASSERT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
        ASSERT_TRUE(LoadStream(dropping, stream));
        EXPECT_EQ(ChildCount(Select(dropping, L"/a")), 1);
    }
}

TEST(DomParserReuse, DeclarationsBelongToTheirOwnDocument) {
    auto first = NewDocument();
    ASSERT_TRUE(Load(first, L"<?xml version=\"1.0\" standalone=\"yes\"?><a/>"));
    auto second = NewDocument();
    ASSERT_TRUE(Load(second, L"<b/>"));
    EXPECT_EQ(Xml(second.p), L"<b/>\r\n");
    EXPECT_EQ(Xml(first.p), L"<?xml version=\"1.0\" standalone=\"yes\"?>\r\n<a/>\r\n");

    // A UTF-16 stream after UTF-8 text: the encoding is detected anew.
    const char16_t wide[] = u"\uFEFF<c>\u00E9</c>";
    std::string bytes(reinterpret_cast<const char*>(wide), sizeof(wide) - sizeof(char16_t));
    CComPtr<IStream> stream;
    ASSERT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
    auto third = NewDocument();
    ASSERT_TRUE(LoadStream(third, stream));
    EXPECT_EQ(Text(Select(third, L"/c").p), L"\u00E9");
}

TEST(DomParserReuse, DocumentsAreIndependentAndOutliveTheirThread) {
    std::vector<CComPtr<IXMLDOMDocument2>> docs;
    std::thread worker([&docs] {
        for (int i = 0; i < 4; ++i) {
            auto doc = NewDocument();
            const std::wstring xml =
                L"<t:root xmlns:t='urn:t" + std::to_wstring(i) + L"'><t:item/></t:root>";
            EXPECT_TRUE(Load(doc, xml.c_str()));
            docs.push_back(doc);
        }
    });
    worker.join();
    ASSERT_EQ(docs.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        // Edits put new names into the document; the next loads on this thread go on meanwhile.
        CComPtr<IXMLDOMElement> added;
        ASSERT_EQ(docs[i]->createElement(CComBSTR(L"added"), &added), S_OK);
        ASSERT_EQ(added->setAttribute(CComBSTR(L"k"), CComVariant(L"v")), S_OK);
        CComPtr<IXMLDOMElement> root;
        ASSERT_EQ(docs[i]->get_documentElement(&root), S_OK);
        CComPtr<IXMLDOMNode> appended;
        ASSERT_EQ(root->appendChild(added, &appended), S_OK);
        auto other = NewDocument();
        ASSERT_TRUE(Load(other, L"<added k='other'/>"));
        EXPECT_EQ(NamespaceUri(root.p), L"urn:t" + std::to_wstring(i));
        EXPECT_EQ(Xml(root.p), L"<t:root xmlns:t=\"urn:t" + std::to_wstring(i) +
                                   L"\"><t:item/><added k=\"v\"/></t:root>");
    }
    // The last references go on this thread, after the parsing thread is gone.
    docs.clear();
}

TEST(DomParserReuse, ALoadFromInsideAStreamReadGetsItsOwnParser) {
    CComPtr<NestingStream> stream;
    stream.Attach(new NestingStream("<outer><y b='2'/></outer>"));
    auto doc = NewDocument();
    ASSERT_TRUE(LoadStream(doc, stream));
    ASSERT_TRUE(stream->m_innerLoaded);
    EXPECT_EQ(Name(Select(doc, L"/outer/y[@b='2']").p), L"y");
    EXPECT_EQ(Name(Select(stream->m_inner, L"/inner/x[@a='1']").p), L"x");
    // Parsing goes on normally afterwards.
    ASSERT_TRUE(Load(doc, L"<after/>"));
    EXPECT_EQ(Xml(doc.p), L"<after/>\r\n");
}

TEST(DomParserReuse, AVeryWideElementDoesNotDisturbLaterLoads) {
    std::wstring wide = L"<w";
    for (int i = 0; i < 3000; ++i)
        wide += L" a" + std::to_wstring(i) + L"='" + std::to_wstring(i) + L"'";
    wide += L"/>";
    auto doc = NewDocument();
    ASSERT_TRUE(Load(doc, wide.c_str()));
    CComPtr<IXMLDOMElement> root;
    ASSERT_EQ(doc->get_documentElement(&root), S_OK);
    CComVariant value;
    ASSERT_EQ(root->getAttribute(CComBSTR(L"a2999"), &value), S_OK);
    EXPECT_EQ(Str(value.bstrVal), L"2999");
    ASSERT_TRUE(Load(doc, L"<small x='1'/>"));
    EXPECT_EQ(Xml(doc.p), L"<small x=\"1\"/>\r\n");
}

TEST(DomParserReuse, TextOfEveryLengthComesBackWhole) {
    // Lengths around the widening loop's steps, with a character beyond ASCII at each place in
    // turn (or none), in element text and attribute values.
    for (std::size_t length = 0; length <= 40; ++length) {
        for (std::size_t special = 0; special <= length; ++special) {
            std::wstring text;
            for (std::size_t k = 0; k < length; ++k) {
                text += k == special ? L'\u00E9' : static_cast<wchar_t>(L'a' + k % 26);
            }
            SCOPED_TRACE(testing::Message() << "length " << length << ", special at " << special);
            auto doc = NewDocument();
            const std::wstring xml = L"<r v='" + text + L"'>" + text + L"</r>";
            ASSERT_TRUE(Load(doc, xml.c_str()));
            CComPtr<IXMLDOMElement> root;
            ASSERT_EQ(doc->get_documentElement(&root), S_OK);
            EXPECT_EQ(Text(root.p), text);
            CComVariant value;
            ASSERT_EQ(root->getAttribute(CComBSTR(L"v"), &value), S_OK);
            ASSERT_EQ(value.vt, VT_BSTR);
            EXPECT_EQ(Str(value.bstrVal), text);
            EXPECT_EQ(value.bstrVal[SysStringLen(value.bstrVal)], L'\0');
        }
    }
}

TEST(DomNodeText, GivesWhatGetTextGivesIntoAReusedString) {
    auto doc = Parsed(
        L"<r xmlns:p='urn:p' a=' spaced '><v>  abc  </v><m>x<b>y</b> z </m>"
        L"<c><![CDATA[ <raw> ]]></c><u>\u00E9t\u00E9 \U0001F600</u><e/>"
        L"<k xml:space='preserve'>  kept  </k></r>");
    std::wstring reused(5000, L'#');  // longer than every text below: must shrink to each
    const wchar_t* queries[] = {L"/r/v", L"/r/m",  L"/r/c",           L"/r/u", L"/r/e",
                                L"/r/k", L"/r/@a", L"/r/m/text()[1]", L"/r",   L"/"};
    for (const wchar_t* query : queries) {
        SCOPED_TRACE(testing::Message() << Str(CComBSTR(query)));
        CComPtr<IXMLDOMNode> node;
        ASSERT_EQ(doc->selectSingleNode(CComBSTR(query), &node), S_OK);
        CComBSTR expected;
        ASSERT_EQ(node->get_text(&expected), S_OK);
        ASSERT_EQ(platform::DomNodeText(node, reused), S_OK);
        EXPECT_EQ(reused, Str(expected));
    }

    // With white space preserved the single-text fast path keeps the spaces too.
    ASSERT_EQ(doc->put_preserveWhiteSpace(VARIANT_TRUE), S_OK);
    CComPtr<IXMLDOMNode> v;
    ASSERT_EQ(doc->selectSingleNode(CComBSTR(L"/r/v"), &v), S_OK);
    ASSERT_EQ(platform::DomNodeText(v, reused), S_OK);
    EXPECT_EQ(reused, L"  abc  ");

    // A namespace declaration and a null node are not read here; the string is left alone.
    CComPtr<IXMLDOMElement> root;
    ASSERT_EQ(doc->get_documentElement(&root), S_OK);
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    ASSERT_EQ(root->get_attributes(&attributes), S_OK);
    CComPtr<IXMLDOMNode> declaration;
    ASSERT_EQ(attributes->getNamedItem(CComBSTR(L"xmlns:p"), &declaration), S_OK);
    reused = L"unchanged";
    EXPECT_EQ(platform::DomNodeText(declaration, reused), E_NOINTERFACE);
    EXPECT_EQ(platform::DomNodeText(nullptr, reused), E_INVALIDARG);
    EXPECT_EQ(reused, L"unchanged");
}
