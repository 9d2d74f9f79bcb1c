// Tests of the output helpers: the UTF-8 writer, the SAX handler base (entity escaping, writing,
// COM identity) and the GDI+ guard.
#include <gtest/gtest.h>

#include <random>

#include "documenttesting.h"
#include "filterpipeline/filterutilities/gdiplussession.h"
#include "filterpipeline/filterutilities/saxhandler.h"
#include "filterpipeline/filterutilities/widetoutf8.h"
#include "pipelinefakes.h"

using documenttesting::ThrownHresult;

namespace {

// Exposes the protected helpers of the handler base.
class Handler : public CSaxHandler {
public:
    using CSaxHandler::EscapeEntity;
    using CSaxHandler::WriteToPrintStream;
};

CComPtr<fakes::WriteStream> NewWriteStream() {
    CComPtr<fakes::WriteStream> stream;
    stream.Attach(new fakes::WriteStream());
    return stream;
}

// The escaping as whole-text replacements one after another, ampersands first.
std::wstring Sequential(std::wstring text) {
    for (const auto& [from, to] : {std::pair<std::wstring, std::wstring>{L"&", L"&amp;"},
                                   {L"<", L"&lt;"},
                                   {L">", L"&gt;"},
                                   {L"\"", L"&quot;"},
                                   {L"'", L"&apos;"}}) {
        for (auto at = text.find(from); at != std::wstring::npos;
             at = text.find(from, at + to.size())) {
            text.replace(at, from.size(), to);
        }
    }
    return text;
}

}  // namespace

TEST(WideToUtf8, ConvertsWithoutBomOrTerminatorAndRefusesEmptyText) {
    const struct {
        const char* name;
        std::wstring text;
        HRESULT hr;
        std::string bytes;
    } rows[] = {{"two-byte", L"\u00E9", S_OK, "\xC3\xA9"},
                {"outside the BMP", std::wstring(1, wchar_t(0x1F600)), S_OK, "\xF0\x9F\x98\x80"},
                {"markup", L"<Glyphs/>", S_OK, "<Glyphs/>"},
                {"empty", L"", E_FAIL, ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CXString text(row.text);
        CWideToUTF8 converter(&text);
        BYTE* data = nullptr;
        DWORD size = 0;
        ASSERT_EQ(converter.GetBuffer(&data, &size), row.hr);
        EXPECT_EQ(data ? std::string(reinterpret_cast<char*>(data), size) : "", row.bytes);
        EXPECT_EQ(converter.GetBuffer(nullptr, &size), E_POINTER);
        auto stream = NewWriteStream();
        EXPECT_EQ(converter.WriteToPrintStream(stream), row.hr);
        EXPECT_EQ(CWideToUTF8::WriteToPrintStream(&text, stream), row.hr);
        EXPECT_EQ(stream->bytes, row.bytes + row.bytes);
        EXPECT_EQ(stream->writeCalls, row.hr == S_OK ? 2 : 0);  // one write each
        stream->failWrites = true;
        EXPECT_EQ(CWideToUTF8::WriteToPrintStream(&text, stream),
                  row.hr == S_OK ? E_ACCESSDENIED : E_FAIL);
        EXPECT_EQ(converter.WriteToPrintStream(nullptr), E_POINTER);
    }
    auto stream = NewWriteStream();
    EXPECT_EQ(ThrownHresult([] { CWideToUTF8 converter(nullptr); }), E_POINTER);
    EXPECT_THROWS_HR(CWideToUTF8::WriteToPrintStream(nullptr, stream), E_POINTER);
}

TEST(SaxHandler, EscapesTheFiveEntityCharactersInOnePass) {
    CComPtr<Handler> handler;
    handler.Attach(new Handler());
    const std::pair<const wchar_t*, const wchar_t*> fixed[] = {
        {L"<&\"'>", L"&lt;&amp;&quot;&apos;&gt;"}, {L"&lt;", L"&amp;lt;"}, {L"plain", L"plain"}};
    for (const auto& [in, out] : fixed) {
        CComBSTR text(in);
        ASSERT_EQ(handler->EscapeEntity(&text.m_str), S_OK);
        EXPECT_STREQ(text.m_str, out);
    }
    CComBSTR empty(L"");
    BSTR before = empty.m_str;
    ASSERT_EQ(handler->EscapeEntity(&empty.m_str), S_OK);
    EXPECT_EQ(empty.m_str, before);  // the same string, untouched
    EXPECT_EQ(handler->EscapeEntity(nullptr), E_POINTER);

    // Random text with embedded NULs and characters of every width agrees with the replacements;
    // the escaped text ends at the first NUL (it is allocated as a plain string).
    std::mt19937 random(5);
    const wchar_t pool[] = {L'&', L'<',  L'>', L'"',   L'\'',   L';', L'a',
                            L'#', L'\0', 0xE9, 0x20AC, 0x1F600, L'l', L't'};
    for (int round = 0; round < 500; ++round) {
        std::wstring text;
        const int length = 1 + static_cast<int>(random() % 50);
        for (int i = 0; i < length; ++i) text += pool[random() % std::size(pool)];
        BSTR value = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        ASSERT_EQ(S_OK, handler->EscapeEntity(&value));
        EXPECT_EQ(Sequential(text.substr(0, text.find(L'\0'))),
                  std::wstring(value, SysStringLen(value)))
            << "round " << round;
        SysFreeString(value);
    }
}

TEST(SaxHandler, WritesUtf8ToBothStreamKinds) {
    Handler handler;
    CXString text(L"caf\u00E9");
    auto printStream = NewWriteStream();
    EXPECT_EQ(handler.WriteToPrintStream(&text, printStream.p), S_OK);
    EXPECT_EQ(printStream->bytes, "caf\xC3\xA9");

    CComPtr<IStream> memory;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &memory), S_OK);
    EXPECT_EQ(handler.WriteToPrintStream(&text, static_cast<ISequentialStream*>(memory.p)), S_OK);
    STATSTG stat{};
    memory->Stat(&stat, STATFLAG_NONAME);
    EXPECT_EQ(stat.cbSize.QuadPart, 5u);

    EXPECT_EQ(handler.WriteToPrintStream(nullptr, printStream.p), E_POINTER);
    EXPECT_EQ(handler.WriteToPrintStream(&text, static_cast<IPrintWriteStream*>(nullptr)),
              E_POINTER);
    CXString empty;
    EXPECT_EQ(handler.WriteToPrintStream(&empty, printStream.p), E_FAIL);
}

TEST(SaxHandler, IsACountedComObjectWhoseCallbacksSucceed) {
    auto* handler = new Handler();
    ISAXContentHandler* asHandler = nullptr;
    IUnknown* asUnknown = nullptr;
    ASSERT_EQ(handler->QueryInterface(IID_ISAXContentHandler, reinterpret_cast<void**>(&asHandler)),
              S_OK);
    ASSERT_EQ(handler->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&asUnknown)), S_OK);
    EXPECT_EQ(static_cast<void*>(asHandler), static_cast<void*>(asUnknown));
    void* other = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(handler->QueryInterface(IID_IStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    for (HRESULT hr :
         {asHandler->putDocumentLocator(nullptr), asHandler->startDocument(),
          asHandler->startPrefixMapping(L"x", 1, L"urn:x", 5),
          asHandler->startElement(L"", 0, L"a", 1, L"a", 1, nullptr),
          asHandler->characters(L"t", 1), asHandler->ignorableWhitespace(L" ", 1),
          asHandler->processingInstruction(L"p", 1, L"d", 1), asHandler->skippedEntity(L"e", 1),
          asHandler->endElement(L"", 0, L"a", 1, L"a", 1), asHandler->endPrefixMapping(L"x", 1),
          asHandler->endDocument()}) {
        EXPECT_EQ(hr, S_OK);
    }
    EXPECT_EQ(asUnknown->Release(), 2u);
    EXPECT_EQ(asHandler->Release(), 1u);
    EXPECT_EQ(handler->Release(), 0u);  // the creation reference was the first
}

TEST(GdiplusSession, OneSessionPerGuardAndACopySharesTheToken) {
    const int before = platform::GdiplusActiveSessions();
    const int ignored = platform::GdiplusIgnoredShutdowns();
    {
        GDIPlus session;
        EXPECT_EQ(session.GetGDIPlusStartStatus(), Gdiplus::Ok);
        EXPECT_EQ(platform::GdiplusActiveSessions(), before + 1);
        GDIPlus copy(session);
        EXPECT_EQ(copy.GetGDIPlusStartStatus(), Gdiplus::Ok);
    }
    EXPECT_EQ(platform::GdiplusActiveSessions(), before);
    EXPECT_EQ(platform::GdiplusIgnoredShutdowns(), ignored + 1);  // the copy's shutdown
}
