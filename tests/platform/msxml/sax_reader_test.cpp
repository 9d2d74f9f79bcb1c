// sax_reader_test.cpp: the MSXML 6 SAX reader stand-in: MSXML's callback order over a
// FixedPage-like document, attributes and namespace features, chunked characters, inputs of
// every kind, aborting by a failing handler, malformed input and DTDs; and its conversion of
// names, attributes and text to wide strings: other characters at every offset of the
// sixteen-byte blocks, attributes converted on request whose strings stay valid through the
// callback, buffers reused from element to element, and more element names than the name cache
// holds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/unicode.h"
#include "testsupport/scratch.h"

using namespace msxmltest;

namespace {

std::wstring Names(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                   const wchar_t* qname, INT qnameLength) {
    return L"{" + Piece(uri, uriLength) + L"}" + Piece(local, localLength) + L" " +
           Piece(qname, qnameLength);
}

// Records every callback as one line; characters are merged so that chunking does not matter.
class Recorder final : public platform::ComObject<ISAXContentHandler> {
public:
    std::vector<std::wstring> events;
    std::wstring failOn;  // an event prefix that makes the handler fail
    HRESULT failure = E_ABORT;

    HRESULT putDocumentLocator(ISAXLocator* locator) override {
        return Add(locator != nullptr ? L"locator" : L"locator(null)");
    }
    HRESULT startDocument() override { return Add(L"startDocument"); }
    HRESULT endDocument() override { return Add(L"endDocument"); }
    HRESULT startPrefixMapping(const wchar_t* prefix, INT prefixLength, const wchar_t* uri,
                               INT uriLength) override {
        return Add(L"startPrefix " + Piece(prefix, prefixLength) + L"=" + Piece(uri, uriLength));
    }
    HRESULT endPrefixMapping(const wchar_t* prefix, INT prefixLength) override {
        return Add(L"endPrefix " + Piece(prefix, prefixLength));
    }
    HRESULT startElement(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                         const wchar_t* qname, INT qnameLength,
                         ISAXAttributes* attributes) override {
        std::wstring line =
            L"start " + Names(uri, uriLength, local, localLength, qname, qnameLength);
        INT count = 0;
        attributes->getLength(&count);
        for (INT i = 0; i < count; ++i) {
            const wchar_t *aUri, *aLocal, *aQName, *value;
            INT aUriLength, aLocalLength, aQNameLength, valueLength;
            attributes->getName(i, &aUri, &aUriLength, &aLocal, &aLocalLength, &aQName,
                                &aQNameLength);
            attributes->getValue(i, &value, &valueLength);
            line += L" [{" + Piece(aUri, aUriLength) + L"}" + Piece(aLocal, aLocalLength) + L"|" +
                    Piece(aQName, aQNameLength) + L"=" + Piece(value, valueLength) + L"]";
        }
        return Add(line);
    }
    HRESULT endElement(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                       const wchar_t* qname, INT qnameLength) override {
        return Add(L"end " + Names(uri, uriLength, local, localLength, qname, qnameLength));
    }
    HRESULT characters(const wchar_t* text, INT length) override {
        if (events.empty() || events.back().rfind(L"chars ", 0) != 0) events.push_back(L"chars ");
        events.back() += Piece(text, length);
        return Result();
    }
    HRESULT ignorableWhitespace(const wchar_t* text, INT length) override {
        return Add(L"ignorable " + Piece(text, length));
    }
    HRESULT processingInstruction(const wchar_t* target, INT targetLength, const wchar_t* data,
                                  INT dataLength) override {
        return Add(L"pi " + Piece(target, targetLength) + L" " + Piece(data, dataLength));
    }
    HRESULT skippedEntity(const wchar_t* name, INT length) override {
        return Add(L"skipped " + Piece(name, length));
    }

private:
    HRESULT Add(std::wstring line) {
        events.push_back(std::move(line));
        return Result();
    }
    HRESULT Result() const {
        return failOn.empty() || events.back().rfind(failOn, 0) != 0 ? S_OK : failure;
    }
};

class ErrorRecorder final : public platform::ComObject<ISAXErrorHandler> {
public:
    std::vector<HRESULT> fatal;
    HRESULT error(ISAXLocator*, const wchar_t*, HRESULT) override { return S_OK; }
    HRESULT fatalError(ISAXLocator* locator, const wchar_t* message, HRESULT code) override {
        EXPECT_NE(locator, nullptr);
        EXPECT_NE(message, nullptr);
        fatal.push_back(code);
        return S_OK;
    }
    HRESULT ignorableWarning(ISAXLocator*, const wchar_t*, HRESULT) override { return S_OK; }
};

struct SaxRun {
    CComPtr<ISAXXMLReader> reader = NewReader();
    CComPtr<Recorder> handler;
    SaxRun() {
        handler.Attach(new Recorder());
        EXPECT_EQ(reader->putContentHandler(handler), S_OK);
    }
    HRESULT Parse(const wchar_t* xml) { return reader->parse(CComVariant(xml)); }
};

constexpr wchar_t kFixedPage[] =
    L"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    L"<FixedPage xmlns=\"http://schemas.microsoft.com/xps/2005/06\" "
    L"xmlns:x=\"http://schemas.microsoft.com/xps/2005/06/resourcedictionary-key\" "
    L"Width=\"816\" Height=\"1056\" xml:lang=\"en-US\">"
    L"<Path Data=\"M 0,0 L 10,10\" x:Key=\"p1\"/>"
    L"<Glyphs UnicodeString=\"Tom &amp; Jerry &lt;3\" Name=\"a&#38;b&amp;#38;\">"
    L"<?marker here?>"
    L"</Glyphs>"
    L"</FixedPage>";

constexpr wchar_t kXps[] = L"http://schemas.microsoft.com/xps/2005/06";
constexpr wchar_t kKey[] = L"http://schemas.microsoft.com/xps/2005/06/resourcedictionary-key";

}  // namespace

TEST(SaxReader, CallbacksComeInMsxmlOrder) {
    SaxRun run;
    ASSERT_EQ(run.Parse(kFixedPage), S_OK);
    std::vector<std::wstring> expected = {
        L"locator",
        L"startDocument",
        std::wstring(L"startPrefix =") + kXps,
        std::wstring(L"startPrefix x=") + kKey,
        std::wstring(L"start {") + kXps +
            L"}FixedPage FixedPage [{}Width|Width=816] [{}Height|Height=1056] "
            L"[{http://www.w3.org/XML/1998/namespace}lang|xml:lang=en-US]",
        std::wstring(L"start {") + kXps + L"}Path Path [{}Data|Data=M 0,0 L 10,10] [{" + kKey +
            L"}Key|x:Key=p1]",
        std::wstring(L"end {") + kXps + L"}Path Path",
        std::wstring(L"start {") + kXps +
            L"}Glyphs Glyphs [{}UnicodeString|UnicodeString=Tom & Jerry <3] "
            L"[{}Name|Name=a&b&#38;]",
        L"pi marker here",
        std::wstring(L"end {") + kXps + L"}Glyphs Glyphs",
        std::wstring(L"end {") + kXps + L"}FixedPage FixedPage",
        L"endPrefix ",
        L"endPrefix x",
        L"endDocument",
    };
    EXPECT_EQ(run.handler->events, expected);
}

TEST(SaxReader, NamespacePrefixesFeatureReportsDeclarations) {
    SaxRun run;
    VARIANT_BOOL value = VARIANT_TRUE;
    EXPECT_EQ(run.reader->getFeature(L"http://xml.org/sax/features/namespace-prefixes", &value),
              S_OK);
    EXPECT_EQ(value, VARIANT_FALSE);
    EXPECT_EQ(
        run.reader->putFeature(L"http://xml.org/sax/features/namespace-prefixes", VARIANT_TRUE),
        S_OK);
    ASSERT_EQ(run.Parse(L"<p:a xmlns:p=\"urn:p\" b=\"1\"/>"), S_OK);
    EXPECT_EQ(run.handler->events[3], L"start {urn:p}a p:a [{}p|xmlns:p=urn:p] [{}b|b=1]");

    SaxRun plain;
    EXPECT_EQ(plain.reader->putFeature(L"http://xml.org/sax/features/namespaces", VARIANT_FALSE),
              S_OK);
    ASSERT_EQ(plain.Parse(L"<p:a xmlns:p=\"urn:p\" p:b=\"1\"/>"), S_OK);
    // Without namespace processing: no prefix mappings, names as written, declarations as
    // attributes.
    EXPECT_EQ(plain.handler->events[2], L"start {} p:a [{}|xmlns:p=urn:p] [{}|p:b=1]");
    EXPECT_EQ(plain.handler->events[3], L"end {} p:a");
}

TEST(SaxReader, AttributesCanBeLookedUp) {
    // The attributes object is only valid during the callback: query it there.
    class Querying final : public NullContentHandler {
    public:
        std::vector<std::wstring> found;
        HRESULT startElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT,
                             ISAXAttributes* attributes) override {
            INT index = -1;
            EXPECT_EQ(attributes->getIndexFromQName(L"p:x", 3, &index), S_OK);
            EXPECT_EQ(index, 0);
            EXPECT_EQ(attributes->getIndexFromName(L"", 0, L"y", 1, &index), S_OK);
            EXPECT_EQ(index, 1);
            EXPECT_EQ(attributes->getIndexFromName(L"urn:p", 5, L"y", 1, &index), E_INVALIDARG);
            const wchar_t* value = nullptr;
            INT length = 0;
            EXPECT_EQ(attributes->getValueFromName(L"urn:p", 5, L"x", 1, &value, &length), S_OK);
            found.push_back(Piece(value, length));
            EXPECT_EQ(attributes->getValueFromQName(L"y", 1, &value, &length), S_OK);
            found.push_back(Piece(value, length));
            EXPECT_EQ(attributes->getType(0, &value, &length), S_OK);
            found.push_back(Piece(value, length));
            EXPECT_EQ(attributes->getValue(2, &value, &length), E_INVALIDARG);
            EXPECT_EQ(attributes->getValue(0, nullptr, &length), E_POINTER);
            EXPECT_EQ(value[length], L'\0');  // strings are terminated as well
            return S_OK;
        }
    };
    auto reader = NewReader();
    CComPtr<Querying> querying;
    querying.Attach(new Querying());
    ASSERT_EQ(reader->putContentHandler(querying), S_OK);
    ASSERT_EQ(reader->parse(CComVariant(L"<a xmlns:p=\"urn:p\" p:x=\"1\" y=\"2\"/>")), S_OK);
    EXPECT_EQ(querying->found, (std::vector<std::wstring>{L"1", L"2", L"CDATA"}));
}

TEST(SaxReader, CharactersArriveCompleteAcrossChunks) {
    std::wstring big(100000, L'x');
    big[50000] = L'\u4E2D';
    std::wstring xml = L"<a>" + big + L"<![CDATA[<&>]]>  tail \n</a>";
    SaxRun run;
    ASSERT_EQ(run.Parse(xml.c_str()), S_OK);
    ASSERT_EQ(run.handler->events.size(), 6u);
    EXPECT_EQ(run.handler->events[3], L"chars " + big + L"<&>  tail \n");
}

TEST(SaxReader, EveryInputKindIsAccepted) {
    std::string bytes = "\xEF\xBB\xBF<a>\xC3\xA9</a>";
    std::vector<std::wstring> expected = {L"locator",      L"startDocument", L"start {}a a",
                                          L"chars \u00E9", L"end {}a a",     L"endDocument"};
    // UTF-8, and UTF-16 markup as Office writes FixedPages, with their byte-order marks; and a
    // DOM document, a stream of its own serialisation.
    CComPtr<IStream> utf8 = StreamOf(bytes), utf16 = StreamOf(Utf16Le(u"<a>\u00E9</a>"));
    auto doc = Parsed(L"<a>\u00E9</a>");
    for (IUnknown* source : {static_cast<IUnknown*>(utf8), static_cast<IUnknown*>(utf16),
                             static_cast<IUnknown*>(doc)}) {
        SaxRun run;
        ASSERT_EQ(run.reader->parse(CComVariant(source)), S_OK);
        EXPECT_EQ(run.handler->events, expected);
    }
    {
        SaxRun run;
        std::filesystem::path file = testsupport::ScratchDirectory("sax") / "input.xml";
        std::ofstream(file, std::ios::binary) << bytes;
        CComBSTR url(file.c_str());
        ASSERT_EQ(run.reader->parseURL(url), S_OK);
        EXPECT_EQ(run.handler->events, expected);
        std::filesystem::remove(file);
        EXPECT_EQ(run.reader->parseURL(url), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(run.reader->parseURL(L"http://example.invalid/page.fpage"), E_ACCESSDENIED);
    }
    SaxRun run;
    EXPECT_EQ(run.reader->parse(CComVariant(7)), E_INVALIDARG);
    EXPECT_EQ(run.reader->parse(CComVariant(static_cast<IUnknown*>(nullptr))), E_INVALIDARG);
}

TEST(SaxReader, FailingHandlerAbortsTheParse) {
    SaxRun run;
    run.handler->failOn = L"start {" + std::wstring(kXps) + L"}Path";
    run.handler->failure = static_cast<HRESULT>(0x80041234u);
    EXPECT_EQ(run.Parse(kFixedPage), static_cast<HRESULT>(0x80041234u));
    // Nothing after the failing callback reached the handler.
    ASSERT_FALSE(run.handler->events.empty());
    EXPECT_EQ(run.handler->events.back().rfind(run.handler->failOn, 0), 0u);
    EXPECT_EQ(run.handler->events.size(), 6u);

    SaxRun early;
    early.handler->failOn = L"startDocument";
    EXPECT_EQ(early.Parse(L"<a/>"), E_ABORT);
    EXPECT_EQ(early.handler->events.size(), 2u);
}

TEST(SaxReader, MalformedInputFailsWithoutCrashing) {
    for (const wchar_t* xml : {L"", L"<a>", L"<a></b>", L"<a><b/>", L"<p:a/>", L"<a>&nope;</a>",
                               L"<a x='1' x='2'/>", L"<a/>junk"}) {
        SCOPED_TRACE(platform::WideToUtf8(xml));
        SaxRun run;
        CComPtr<ErrorRecorder> errors;
        errors.Attach(new ErrorRecorder());
        ASSERT_EQ(run.reader->putErrorHandler(errors), S_OK);
        HRESULT hr = run.Parse(xml);
        EXPECT_TRUE(FAILED(hr));
        EXPECT_EQ((static_cast<DWORD>(hr) & 0xFFFFF000u),
                  static_cast<DWORD>(platform::kXmlParseErrorBase));
        ASSERT_EQ(errors->fatal.size(), 1u);
        EXPECT_EQ(errors->fatal[0], hr);
        EXPECT_TRUE(run.handler->events.empty() || run.handler->events.back() != L"endDocument");
    }
    SaxRun run;
    EXPECT_TRUE(FAILED(run.Parse(platform::Utf8ToWide(Nested(10000)).c_str())));
}

TEST(SaxReader, DtdsAreRefused) {
    SaxRun run;
    EXPECT_EQ(run.Parse(L"<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>&e;</a>"),
              platform::kXmlDtdProhibited);
    for (const std::wstring& event : run.handler->events) {
        EXPECT_EQ(event.find(L"root:"), std::wstring::npos);
    }
    VARIANT_BOOL value = VARIANT_FALSE;
    EXPECT_EQ(run.reader->getFeature(L"prohibit-dtd", &value), S_OK);
    EXPECT_EQ(value, VARIANT_TRUE);
    EXPECT_EQ(run.reader->putFeature(L"prohibit-dtd", VARIANT_FALSE), E_INVALIDARG);
    EXPECT_EQ(run.reader->putFeature(L"http://xml.org/sax/features/external-general-entities",
                                     VARIANT_TRUE),
              E_INVALIDARG);
    EXPECT_EQ(run.reader->putFeature(L"urn:unknown-feature", VARIANT_TRUE), E_INVALIDARG);
}

TEST(SaxReader, LimitsAndHandlersCanBeSetAndRead) {
    SaxRun run;
    EXPECT_EQ(run.reader->putProperty(L"max-element-depth", CComVariant(3)), S_OK);
    EXPECT_TRUE(FAILED(run.Parse(L"<a><b><c><d/></c></b></a>")));
    EXPECT_EQ(run.Parse(L"<a><b><c/></b></a>"), S_OK);
    EXPECT_EQ(run.reader->putProperty(L"max-xml-size", CComVariant(1)), S_OK);
    std::wstring big = L"<a>" + std::wstring(5000, L'x') + L"</a>";
    EXPECT_TRUE(FAILED(run.Parse(big.c_str())));
    CComVariant size;
    EXPECT_EQ(run.reader->getProperty(L"max-xml-size", &size), S_OK);
    EXPECT_EQ(size.lVal, 1);
    EXPECT_EQ(run.reader->putProperty(L"lexical-handler", CComVariant(1)), E_INVALIDARG);
    CComPtr<ISAXContentHandler> current;
    EXPECT_EQ(run.reader->getContentHandler(&current), S_OK);
    EXPECT_TRUE(current.IsEqualObject(run.handler));
    // Without a handler a parse still checks the document.
    EXPECT_EQ(run.reader->putContentHandler(nullptr), S_OK);
    EXPECT_EQ(run.Parse(L"<ok/>"), S_OK);
    EXPECT_TRUE(FAILED(run.Parse(L"<broken>")));
}

namespace {

// Records names, attributes (asked for in an order that interleaves conversions) and text.
class Collector final : public NullContentHandler {
public:
    std::vector<std::wstring> elements;    // "{uri}local qname" per start and end
    std::vector<std::wstring> attributes;  // "qname=value|uri|local" per attribute
    std::wstring text;

    HRESULT startElement(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                         const wchar_t* qname, INT qnameLength, ISAXAttributes* list) override {
        elements.push_back(Names(uri, uriLength, local, localLength, qname, qnameLength));
        INT count = 0;
        list->getLength(&count);
        // Every qualified name first, then every value, then URIs and local names: strings
        // handed out earlier must survive the conversions that follow.
        std::vector<const wchar_t*> names(static_cast<std::size_t>(count));
        std::vector<INT> nameLengths(static_cast<std::size_t>(count));
        for (INT i = 0; i < count; ++i) {
            EXPECT_EQ(S_OK, list->getQName(i, &names[i], &nameLengths[i]));
        }
        std::vector<const wchar_t*> values(static_cast<std::size_t>(count));
        std::vector<INT> valueLengths(static_cast<std::size_t>(count));
        for (INT i = 0; i < count; ++i) {
            EXPECT_EQ(S_OK, list->getValue(i, &values[i], &valueLengths[i]));
            EXPECT_EQ(L'\0', values[i][valueLengths[i]]);
        }
        for (INT i = 0; i < count; ++i) {
            const wchar_t *aUri, *aLocal;
            INT aUriLength, aLocalLength;
            EXPECT_EQ(S_OK, list->getURI(i, &aUri, &aUriLength));
            EXPECT_EQ(S_OK, list->getLocalName(i, &aLocal, &aLocalLength));
            attributes.push_back(Piece(names[i], nameLengths[i]) + L"=" +
                                 Piece(values[i], valueLengths[i]) + L"|" +
                                 Piece(aUri, aUriLength) + L"|" + Piece(aLocal, aLocalLength));
            // Asking again gives the same string.
            const wchar_t* again = nullptr;
            INT againLength = 0;
            EXPECT_EQ(S_OK, list->getQName(i, &again, &againLength));
            EXPECT_EQ(names[i], again);
        }
        return S_OK;
    }
    HRESULT endElement(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                       const wchar_t* qname, INT qnameLength) override {
        elements.push_back(L"/" + Names(uri, uriLength, local, localLength, qname, qnameLength));
        return S_OK;
    }
    HRESULT characters(const wchar_t* chars, INT length) override {
        EXPECT_EQ(L'\0', chars[length]);
        text += Piece(chars, length);
        return S_OK;
    }
};

HRESULT ParseBytes(const std::string& bytes, Collector* collector) {
    auto reader = NewReader();
    EXPECT_EQ(S_OK, reader->putContentHandler(collector));
    return reader->parse(CComVariant(StreamOf(bytes).p));
}

}  // namespace

TEST(SaxReaderText, OtherCharactersAtEveryOffsetConvertExactly) {
    const std::vector<std::string> others = {"\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80"};
    const std::vector<std::wstring> wide = {L"\u00E9", L"\u4E2D", std::wstring(1, 0x1F600)};
    // Lengths around one, two and three sixteen-byte blocks, the character at every offset.
    for (std::size_t kind = 0; kind < others.size(); ++kind) {
        for (const std::size_t length : {20u, 33u, 48u}) {
            for (std::size_t at = 0; at < length; ++at) {
                std::string value(length, 'v');
                std::wstring expected(length, L'v');
                value.replace(at, 1, others[kind]);
                expected.replace(at, 1, wide[kind]);
                CComPtr<Collector> collector;
                collector.Attach(new Collector());
                ASSERT_EQ(S_OK, ParseBytes("<a n=\"" + value + "\">" + value + "</a>", collector));
                ASSERT_EQ(1u, collector->attributes.size());
                EXPECT_EQ(L"n=" + expected + L"||n", collector->attributes[0]) << kind << " " << at;
                EXPECT_EQ(expected, collector->text) << kind << " " << at;
            }
        }
    }
}

TEST(SaxReaderText, AttributesConvertOnRequestAndBuffersAreReused) {
    std::string xml =
        "<p:root xmlns:p=\"urn:p\" xmlns=\"urn:d\" a=\"1\" p:b=\"x&amp;y&#38;z\" "
        "c=\"\xC3\xA9t\xC3\xA9\" d=\"&lt;&gt;\">"
        "<child only=\"one\"/><child/>"
        "<p:child long=\"" +
        std::string(300, 'L') + "\" short=\"s\"/></p:root>";
    CComPtr<Collector> collector;
    collector.Attach(new Collector());
    ASSERT_EQ(S_OK, ParseBytes(xml, collector));
    EXPECT_EQ(
        (std::vector<std::wstring>{
            L"a=1||a", L"p:b=x&y&z|urn:p|b", L"c=\u00E9t\u00E9||c", L"d=<>||d", L"only=one||only",
            L"long=" + std::wstring(300, L'L') + L"||long", L"short=s||short"}),
        collector->attributes);
    EXPECT_EQ((std::vector<std::wstring>{L"{urn:p}root p:root", L"{urn:d}child child",
                                         L"/{urn:d}child child", L"{urn:d}child child",
                                         L"/{urn:d}child child", L"{urn:p}child p:child",
                                         L"/{urn:p}child p:child", L"/{urn:p}root p:root"}),
              collector->elements);
}

TEST(SaxReaderText, ManyDistinctElementNamesKeepTheirOwnNames) {
    // More distinct names than any small cache holds, each used twice, in two namespaces.
    std::string xml = "<root xmlns:q=\"urn:q\">";
    std::vector<std::wstring> expected = {L"{}root root"};
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 300; ++i) {
            const std::string name = "e" + std::to_string(i);
            const bool prefixed = i % 3 == 0;
            const std::string qname = (prefixed ? "q:" : "") + name;
            xml += "<" + qname + "/>";
            const std::wstring uri = prefixed ? L"urn:q" : L"";
            const std::wstring wideName = platform::Utf8ToWide(name);
            const std::wstring wideQName = platform::Utf8ToWide(qname);
            expected.push_back(L"{" + uri + L"}" + wideName + L" " + wideQName);
            expected.push_back(L"/{" + uri + L"}" + wideName + L" " + wideQName);
        }
    }
    xml += "</root>";
    expected.push_back(L"/{}root root");
    CComPtr<Collector> collector;
    collector.Attach(new Collector());
    ASSERT_EQ(S_OK, ParseBytes(xml, collector));
    EXPECT_EQ(expected, collector->elements);
}
