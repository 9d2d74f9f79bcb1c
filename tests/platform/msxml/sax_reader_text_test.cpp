// sax_reader_text_test.cpp: the SAX reader's conversion of names, attributes and text to wide
// strings: ASCII and other characters at every offset of the sixteen-byte blocks, invalid bytes,
// attributes converted on request whose strings stay valid through the callback, buffers reused
// from element to element, and element names of many kinds (more than the name cache holds).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/comobject.h"
#include "platform/com/unicode.h"

namespace {

std::wstring Piece(const wchar_t* text, INT length) {
    return text == nullptr ? std::wstring() : std::wstring(text, static_cast<std::size_t>(length));
}

// Records names, attributes (asked for in an order that interleaves conversions) and text.
class Collector final : public platform::ComObject<ISAXContentHandler> {
public:
    std::vector<std::wstring> elements;    // "{uri}local qname" per start and end
    std::vector<std::wstring> attributes;  // "qname=value|uri|local" per attribute
    std::wstring text;

    HRESULT putDocumentLocator(ISAXLocator*) override { return S_OK; }
    HRESULT startDocument() override { return S_OK; }
    HRESULT endDocument() override { return S_OK; }
    HRESULT startPrefixMapping(const wchar_t*, INT, const wchar_t*, INT) override { return S_OK; }
    HRESULT endPrefixMapping(const wchar_t*, INT) override { return S_OK; }
    HRESULT startElement(const wchar_t* uri, INT uriLength, const wchar_t* local, INT localLength,
                         const wchar_t* qname, INT qnameLength, ISAXAttributes* list) override {
        elements.push_back(L"{" + Piece(uri, uriLength) + L"}" + Piece(local, localLength) + L" " +
                           Piece(qname, qnameLength));
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
            const wchar_t* aUri = nullptr;
            const wchar_t* aLocal = nullptr;
            INT aUriLength = 0;
            INT aLocalLength = 0;
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
        elements.push_back(L"/{" + Piece(uri, uriLength) + L"}" + Piece(local, localLength) + L" " +
                           Piece(qname, qnameLength));
        return S_OK;
    }
    HRESULT characters(const wchar_t* chars, INT length) override {
        EXPECT_EQ(L'\0', chars[length]);
        text += Piece(chars, length);
        return S_OK;
    }
    HRESULT ignorableWhitespace(const wchar_t*, INT) override { return S_OK; }
    HRESULT processingInstruction(const wchar_t*, INT, const wchar_t*, INT) override {
        return S_OK;
    }
    HRESULT skippedEntity(const wchar_t*, INT) override { return S_OK; }
};

HRESULT ParseBytes(const std::string& bytes, Collector* collector) {
    CComPtr<ISAXXMLReader> reader;
    EXPECT_EQ(S_OK, CoCreateInstance(CLSID_SAXXMLReader60, nullptr, CLSCTX_ALL, IID_ISAXXMLReader,
                                     reinterpret_cast<void**>(&reader)));
    EXPECT_EQ(S_OK, reader->putContentHandler(collector));
    CComPtr<IStream> stream;
    EXPECT_EQ(S_OK, platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream));
    return reader->parse(CComVariant(static_cast<IUnknown*>(stream.p)));
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
