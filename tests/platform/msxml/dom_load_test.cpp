// dom_load_test.cpp: loading documents into the MSXML stand-in: the real-world corpus through
// every source kind, encodings, MSXML 6's white-space rules, and hostile input (DTDs, external
// entities, malformed, huge and deeply nested documents), which must fail cleanly.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/unicode.h"
#include "platform/com/comobject.h"

using namespace msxmltest;
namespace fs = std::filesystem;

namespace {

constexpr wchar_t kFramework[] =
    L"http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";

std::vector<fs::path> CorpusDocuments() {
    std::vector<fs::path> files;
    for (const char* folder : {"tickets", "caps"}) {
        for (const auto& entry : fs::directory_iterator(fs::path(FU_CORPUS_DIR) / folder)) {
            if (entry.path().extension() == ".xml") files.push_back(entry.path());
        }
    }
    return files;
}

// load(): S_OK and VARIANT_TRUE, or S_FALSE and VARIANT_FALSE.
bool LoadVariant(IXMLDOMDocument2* doc, const VARIANT& source) {
    VARIANT_BOOL ok = VARIANT_FALSE;
    HRESULT hr = doc->load(source, &ok);
    EXPECT_EQ(hr, ok == VARIANT_TRUE ? S_OK : S_FALSE);
    return ok == VARIANT_TRUE;
}

bool LoadBytes(IXMLDOMDocument2* doc, const std::string& bytes) {
    return LoadVariant(doc, CComVariant(StreamOf(bytes).p));
}

LONG ErrorCode(IXMLDOMDocument2* doc) {
    CComPtr<IXMLDOMParseError> error;
    EXPECT_EQ(doc->get_parseError(&error), S_OK);
    LONG code = 0;
    EXPECT_EQ(error->get_errorCode(&code), S_OK);
    return code;
}

std::wstring RootLocalName(IXMLDOMDocument2* doc) {
    CComPtr<IXMLDOMElement> root;
    if (doc->get_documentElement(&root) != S_OK) return {};
    CComBSTR name;
    EXPECT_EQ(root->get_baseName(&name), S_OK);
    return Str(name);
}

void ExpectEmptyAfterFailure(IXMLDOMDocument2* doc) {
    CComPtr<IXMLDOMElement> root;
    EXPECT_EQ(doc->get_documentElement(&root), S_FALSE);
    EXPECT_EQ(root, nullptr);
    EXPECT_TRUE(FAILED(ErrorCode(doc)));
}

std::wstring Widen(const std::string& utf8) {
    return Str(CComBSTR(utf8.c_str()));
}

// A stream that yields a few bytes and then fails, as a broken network share would.
class FailingStream final : public platform::ComObject<ISequentialStream> {
public:
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        if (m_calls++ > 0) return STG_E_READFAULT;
        static const char kStart[] = "<root><child>";
        ULONG n = count < sizeof(kStart) - 1 ? count : static_cast<ULONG>(sizeof(kStart) - 1);
        std::memcpy(buffer, kStart, n);
        *read = n;
        return S_OK;
    }
    HRESULT Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

private:
    int m_calls = 0;
};

}  // namespace

TEST(DomLoad, EveryCorpusDocumentLoadsFromPathStreamAndText) {
    auto files = CorpusDocuments();
    ASSERT_GE(files.size(), 18u);
    for (const auto& file : files) {
        SCOPED_TRACE(file.string());
        bool ticket = file.parent_path().filename() == "tickets";
        const wchar_t* expectedRoot = ticket ? L"PrintTicket" : L"PrintCapabilities";

        auto byPath = NewDocument();
        EXPECT_TRUE(LoadVariant(byPath, CComVariant(Widen(file.string()).c_str())));
        EXPECT_EQ(RootLocalName(byPath), expectedRoot);
        EXPECT_EQ(NamespaceUri(Select(byPath, L"/*").p), kFramework);

        std::string bytes = ReadFile(file.string());
        auto byStream = NewDocument();
        EXPECT_TRUE(LoadBytes(byStream, bytes));
        EXPECT_EQ(Xml(byStream.p), Xml(byPath.p));

        auto byText = NewDocument();
        EXPECT_TRUE(Load(byText, Widen(bytes).c_str()));
        EXPECT_EQ(Xml(byText.p), Xml(byPath.p));
        EXPECT_EQ(ErrorCode(byText), 0);

        const std::wstring url = Widen("file://" + file.string());
        auto byUrl = NewDocument();
        EXPECT_TRUE(LoadVariant(byUrl, CComVariant(url.c_str())));
        EXPECT_EQ(Xml(byUrl.p), Xml(byPath.p));
        EXPECT_EQ(Get(byUrl.p, &IXMLDOMDocument2::get_url), url);
    }
}

TEST(DomLoad, NamespaceUriWithLeadingSpaceIsKeptVerbatim) {
    auto doc = NewDocument();
    std::string path = std::string(FU_CORPUS_DIR) +
                       "/tickets/msdocs-wdd_sample-printticket-file-for-pin-printing.xml";
    ASSERT_TRUE(LoadVariant(doc, CComVariant(Widen(path).c_str())));
    CComVariant value;
    EXPECT_EQ(CComQIPtr<IXMLDOMElement>(Select(doc, L"/*"))
                  ->getAttribute(CComBSTR(L"xmlns:pskv11"), &value),
              S_OK);
    EXPECT_EQ(VarText(value),
              L" http://schemas.microsoft.com/windows/2013/05/printing/printschemakeywordsv11");
    SetNamespaces(doc,
                  L"xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
                  L"printschemaframework' xmlns:v11=' http://schemas.microsoft.com/windows/"
                  L"2013/05/printing/printschemakeywordsv11'");
    CComPtr<IXMLDOMNode> feature;
    // The name attribute values say "pskv11:", the elements are psf: — a plain lookup works.
    EXPECT_EQ(
        doc->selectSingleNode(CComBSTR(L"//psf:Feature[@name='pskv11:JobPasscode']"), &feature),
        S_OK);
}

TEST(DomLoad, CjkTextRoundTripsThroughTheDom) {
    auto doc = NewDocument();
    std::string path = std::string(FU_CORPUS_DIR) + "/caps/winprintrs_print_capabilities.xml";
    ASSERT_TRUE(LoadVariant(doc, CComVariant(Widen(path).c_str())));
    SetNamespaces(doc,
                  L"xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
                  L"printschemaframework'");
    auto value = Select(doc, L"(//psf:Property[@name='psk:DisplayName']/psf:Value)[1]");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(Text(value.p), L"\u5206\u9875\u590D\u5236(T)");
}

TEST(DomLoad, Utf16AndUtf8ByteOrderMarksAreHonoured) {
    const std::string little =
        Utf16Le(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\u00E9\u4E2D</a>");
    std::string big = little;
    for (std::size_t i = 0; i + 1 < big.size(); i += 2) std::swap(big[i], big[i + 1]);
    for (const std::string& bytes :
         {little, big, std::string("\xEF\xBB\xBF<a>\xC3\xA9\xE4\xB8\xAD</a>")}) {
        auto doc = NewDocument();
        ASSERT_TRUE(LoadBytes(doc, bytes));
        EXPECT_EQ(Text(doc.p), L"\u00E9\u4E2D");
    }
}

TEST(DomLoad, TextWithAnEncodingDeclarationLoadsFromAWideString) {
    // The string is already decoded: its declared encoding must not be applied again.
    auto doc = NewDocument();
    EXPECT_TRUE(Load(doc, L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\u4E2D</a>"));
    EXPECT_EQ(Text(doc.p), L"\u4E2D");
    EXPECT_TRUE(Load(doc, L"<?xml version='1.0' encoding='ISO-8859-1'?><a>\u00E9</a>"));
    EXPECT_EQ(Text(doc.p), L"\u00E9");
}

TEST(DomLoad, WhiteSpaceOnlyTextIsDroppedUnlessPreserved) {
    const wchar_t* xml =
        L"<a>\n  <b>  x  y </b>\n  <c>   </c>\n  <d xml:space=\"preserve\"> <e/> </d></a>";
    auto doc = Parsed(xml);
    EXPECT_EQ(ChildCount(Select(doc, L"/a")), 3);  // b, c, d: the indentation is gone
    VARIANT_BOOL has = VARIANT_TRUE;
    EXPECT_EQ(Select(doc, L"/a/c")->hasChildNodes(&has), S_FALSE);
    EXPECT_EQ(has, VARIANT_FALSE);
    auto b = Select(doc, L"/a/b");
    EXPECT_EQ(Text(b.p), L"x  y");  // text is trimmed at both ends, inner spacing kept
    EXPECT_EQ(Xml(b.p), L"<b>  x  y </b>");
    EXPECT_EQ(Count(doc, L"/a/d/text()"), 2);  // inside xml:space="preserve" nothing is dropped

    auto preserving = NewDocument();
    EXPECT_EQ(preserving->put_preserveWhiteSpace(VARIANT_TRUE), S_OK);
    ASSERT_TRUE(Load(preserving, xml));
    EXPECT_EQ(ChildCount(Select(preserving, L"/a")), 6);
    EXPECT_EQ(Text(Select(preserving, L"/a/b").p), L"  x  y ");
}

TEST(DomLoad, DoctypeIsRejected) {
    auto doc = NewDocument();
    EXPECT_FALSE(Load(doc, L"<!DOCTYPE a [<!ENTITY e \"expanded\">]><a>&e;</a>"));
    ExpectEmptyAfterFailure(doc);
    EXPECT_EQ(ErrorCode(doc), platform::kXmlDtdProhibited);
    CComPtr<IXMLDOMParseError> error;
    ASSERT_EQ(doc->get_parseError(&error), S_OK);
    EXPECT_FALSE(Get(error.p, &IXMLDOMParseError::get_reason).empty());
    // Also without an internal subset, and through the stream path.
    EXPECT_FALSE(LoadBytes(doc, "<!DOCTYPE a SYSTEM \"a.dtd\"><a/>"));
    EXPECT_EQ(ErrorCode(doc), platform::kXmlDtdProhibited);
    // Without a DTD an entity reference is simply undeclared: nothing is ever resolved.
    EXPECT_FALSE(Load(doc, L"<a>&x;</a>"));
    ExpectEmptyAfterFailure(doc);
}

TEST(DomLoad, MalformedInputGivesVariantFalseAndAParseError) {
    for (const wchar_t* xml :
         {L"", L"   ", L"<a>", L"<a></b>", L"<a><b></a></b>", L"<a x='1' x='2'/>", L"<p:a/>",
          L"<a/><b/>", L"text only", L"<a>&bogus;</a>", L"<a\u0001/>", L"\uFFFE\uFFFF<<<"}) {
        SCOPED_TRACE(platform::WideToUtf8(xml));
        auto doc = Parsed(L"<ok/>");
        EXPECT_FALSE(Load(doc, xml));
        ExpectEmptyAfterFailure(doc);
    }
    auto doc = NewDocument();
    VARIANT_BOOL ok = VARIANT_TRUE;
    EXPECT_EQ(doc->loadXML(nullptr, &ok), S_FALSE);
    EXPECT_EQ(ok, VARIANT_FALSE);
}

TEST(DomLoad, ParseErrorLocatesTheProblem) {
    auto doc = NewDocument();
    EXPECT_FALSE(Load(doc, L"<a>\n  <b>\n  </c>\n</a>"));
    CComPtr<IXMLDOMParseError> error;
    ASSERT_EQ(doc->get_parseError(&error), S_OK);
    LONG line = 0;
    EXPECT_EQ(error->get_line(&line), S_OK);
    EXPECT_EQ(line, 3);
    LONG position = 0;
    EXPECT_EQ(error->get_linepos(&position), S_OK);
    EXPECT_GT(position, 0);
    EXPECT_EQ(Get(error.p, &IXMLDOMParseError::get_srcText), L"  </c>");
    EXPECT_EQ(ErrorCode(doc) & 0xFFFFF000, platform::kXmlParseErrorBase);

    // After a good load the error is cleared.
    EXPECT_TRUE(Load(doc, L"<a/>"));
    EXPECT_EQ(ErrorCode(doc), 0);
    CComPtr<IXMLDOMParseError> none;
    ASSERT_EQ(doc->get_parseError(&none), S_OK);
    CComBSTR reason;
    EXPECT_EQ(none->get_reason(&reason), S_FALSE);
}

TEST(DomLoad, SizeAndDepthLimitsFailCleanly) {
    auto doc = NewDocument();
    // libxml2's own limit for one text node (10,000,000 bytes) applies: no XML_PARSE_HUGE.
    EXPECT_FALSE(LoadBytes(doc, "<a>" + std::string(11 * 1000 * 1000, 'x') + "</a>"));
    ExpectEmptyAfterFailure(doc);
    EXPECT_FALSE(LoadBytes(doc, Nested(10000)));
    ExpectEmptyAfterFailure(doc);

    EXPECT_TRUE(LoadBytes(doc, Nested(50)));
    EXPECT_EQ(doc->setProperty(CComBSTR(L"MaxElementDepth"), CComVariant(20)), S_OK);
    EXPECT_FALSE(LoadBytes(doc, Nested(50)));
    EXPECT_EQ(doc->setProperty(CComBSTR(L"MaxElementDepth"), CComVariant(50)), S_OK);
    EXPECT_TRUE(LoadBytes(doc, Nested(50)));

    EXPECT_EQ(doc->setProperty(CComBSTR(L"MaxXMLSize"), CComVariant(1)), S_OK);  // 1 KB
    EXPECT_FALSE(LoadBytes(doc, "<a>" + std::string(4096, 'x') + "</a>"));
    EXPECT_TRUE(LoadBytes(doc, "<a>small</a>"));
}

TEST(DomLoad, SourcesThatCannotBeReadFailCleanly) {
    auto doc = NewDocument();
    EXPECT_FALSE(LoadVariant(doc, CComVariant(L"/nonexistent/dir/ticket.xml")));
    EXPECT_EQ(ErrorCode(doc), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(LoadVariant(doc, CComVariant(L"http://example.invalid/ticket.xml")));
    EXPECT_EQ(ErrorCode(doc), E_ACCESSDENIED);

    CComPtr<ISequentialStream> failing;
    failing.Attach(new FailingStream());
    EXPECT_FALSE(LoadVariant(doc, CComVariant(static_cast<IUnknown*>(failing.p))));
    EXPECT_EQ(ErrorCode(doc), STG_E_READFAULT);

    VARIANT_BOOL ok = VARIANT_TRUE;
    EXPECT_EQ(doc->load(CComVariant(42), &ok), E_INVALIDARG);
    EXPECT_EQ(ok, VARIANT_FALSE);
    EXPECT_EQ(doc->load(CComVariant(static_cast<IUnknown*>(nullptr)), &ok), E_INVALIDARG);
}

TEST(DomLoad, SafetyPropertiesCannotBeLoosened) {
    auto doc = NewDocument();
    EXPECT_EQ(doc->setProperty(CComBSTR(L"ProhibitDTD"), CComVariant(false)), E_INVALIDARG);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"ProhibitDTD"), CComVariant(true)), S_OK);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"ResolveExternals"), CComVariant(true)), E_INVALIDARG);
    EXPECT_EQ(doc->put_resolveExternals(VARIANT_TRUE), E_INVALIDARG);
    EXPECT_EQ(doc->put_resolveExternals(VARIANT_FALSE), S_OK);
    CComVariant prohibit;
    EXPECT_EQ(doc->getProperty(CComBSTR(L"ProhibitDTD"), &prohibit), S_OK);
    EXPECT_TRUE(prohibit.vt == VT_BOOL && prohibit.boolVal == VARIANT_TRUE);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"NoSuchProperty"), CComVariant(true)), E_INVALIDARG);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"NewParser"), CComVariant(true)), S_OK);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"AllowDocumentFunction"), CComVariant(false)), S_OK);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"SelectionLanguage"), CComVariant(L"XSLPattern")), E_FAIL);
}
