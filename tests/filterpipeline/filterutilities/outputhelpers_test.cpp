// Tests of the output helpers: the UTF-8 writer, the SAX handler base and the GDI+ guard.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/gdiplussession.h"
#include "filterpipeline/filterutilities/saxhandler.h"
#include "filterpipeline/filterutilities/widetoutf8.h"
#include "pipelinefakes.h"
#include "support/utilities/exceptions.h"

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

}  // namespace

TEST(WideToUtf8, ConvertsWithoutBomOrTerminator) {
    CXString text(L"\u00E9");
    CWideToUTF8 converter(&text);
    BYTE* data = nullptr;
    DWORD size = 0;
    ASSERT_EQ(converter.GetBuffer(&data, &size), S_OK);
    ASSERT_EQ(size, 2u);
    EXPECT_EQ(data[0], 0xC3);
    EXPECT_EQ(data[1], 0xA9);

    CXString astral(std::wstring(1, wchar_t(0x1F600)));  // a character outside the BMP
    CWideToUTF8 wide(&astral);
    ASSERT_EQ(wide.GetBuffer(&data, &size), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data), size), "\xF0\x9F\x98\x80");
    EXPECT_EQ(wide.GetBuffer(nullptr, &size), E_POINTER);
}

TEST(WideToUtf8, EmptyTextFailsAndWritesNothing) {
    CXString empty;
    CWideToUTF8 converter(&empty);
    BYTE* data = nullptr;
    DWORD size = 0;
    EXPECT_EQ(converter.GetBuffer(&data, &size), E_FAIL);
    auto stream = NewWriteStream();
    EXPECT_EQ(converter.WriteToPrintStream(stream), E_FAIL);
    EXPECT_EQ(CWideToUTF8::WriteToPrintStream(&empty, stream), E_FAIL);
    EXPECT_EQ(stream->writeCalls, 0);
    EXPECT_EQ(converter.WriteToPrintStream(nullptr), E_POINTER);
}

TEST(WideToUtf8, WritesOnceAndReportsStreamErrors) {
    CXString text(L"<Glyphs/>");
    auto stream = NewWriteStream();
    EXPECT_EQ(CWideToUTF8::WriteToPrintStream(&text, stream), S_OK);
    EXPECT_EQ(stream->bytes, "<Glyphs/>");
    EXPECT_EQ(stream->writeCalls, 1);
    stream->failWrites = true;
    EXPECT_EQ(CWideToUTF8::WriteToPrintStream(&text, stream), E_ACCESSDENIED);
}

TEST(WideToUtf8, NullSourceThrows) {
    try {
        CWideToUTF8 converter(nullptr);
        FAIL() << "no exception";
    } catch (const ZorunComException& e) {
        EXPECT_EQ(e.GetHresult(), E_POINTER);
    }
    auto stream = NewWriteStream();
    EXPECT_THROW(CWideToUTF8::WriteToPrintStream(nullptr, stream), ZorunComException);
}

TEST(SaxHandler, EscapesTheFiveEntityCharactersOnceEach) {
    Handler handler;
    CComBSTR text(L"<&\"'>");
    ASSERT_EQ(handler.EscapeEntity(&text.m_str), S_OK);
    EXPECT_TRUE(text == L"&lt;&amp;&quot;&apos;&gt;");

    CComBSTR entity(L"&lt;");  // an existing entity is escaped again
    ASSERT_EQ(handler.EscapeEntity(&entity.m_str), S_OK);
    EXPECT_TRUE(entity == L"&amp;lt;");

    CComBSTR empty(L"");
    BSTR before = empty.m_str;
    ASSERT_EQ(handler.EscapeEntity(&empty.m_str), S_OK);
    EXPECT_EQ(empty.m_str, before);  // the same string, untouched
    EXPECT_EQ(handler.EscapeEntity(nullptr), E_POINTER);
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
    ASSERT_EQ(handler->QueryInterface(IID_ISAXContentHandler,
                                      reinterpret_cast<void**>(&asHandler)),
              S_OK);
    IUnknown* asUnknown = nullptr;
    ASSERT_EQ(handler->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&asUnknown)), S_OK);
    EXPECT_EQ(static_cast<void*>(asHandler), static_cast<void*>(asUnknown));
    void* other = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(handler->QueryInterface(IID_IStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);

    EXPECT_EQ(asHandler->putDocumentLocator(nullptr), S_OK);
    EXPECT_EQ(asHandler->startDocument(), S_OK);
    EXPECT_EQ(asHandler->startPrefixMapping(L"x", 1, L"urn:x", 5), S_OK);
    EXPECT_EQ(asHandler->startElement(L"", 0, L"a", 1, L"a", 1, nullptr), S_OK);
    EXPECT_EQ(asHandler->characters(L"t", 1), S_OK);
    EXPECT_EQ(asHandler->ignorableWhitespace(L" ", 1), S_OK);
    EXPECT_EQ(asHandler->processingInstruction(L"p", 1, L"d", 1), S_OK);
    EXPECT_EQ(asHandler->skippedEntity(L"e", 1), S_OK);
    EXPECT_EQ(asHandler->endElement(L"", 0, L"a", 1, L"a", 1), S_OK);
    EXPECT_EQ(asHandler->endPrefixMapping(L"x", 1), S_OK);
    EXPECT_EQ(asHandler->endDocument(), S_OK);

    EXPECT_EQ(asUnknown->Release(), 2u);
    EXPECT_EQ(asHandler->Release(), 1u);
    EXPECT_EQ(handler->Release(), 0u);  // the creation reference was the first
}

TEST(GdiplusSession, StartsAndShutsDownOneSession) {
    const int before = platform::GdiplusActiveSessions();
    {
        GDIPlus session;
        EXPECT_EQ(session.GetGDIPlusStartStatus(), Gdiplus::Ok);
        EXPECT_EQ(platform::GdiplusActiveSessions(), before + 1);
    }
    EXPECT_EQ(platform::GdiplusActiveSessions(), before);
}

TEST(GdiplusSession, ACopySharesTheTokenSoTheSecondShutdownIsIgnored) {
    const int ignored = platform::GdiplusIgnoredShutdowns();
    {
        GDIPlus original;
        GDIPlus copy(original);
        EXPECT_EQ(copy.GetGDIPlusStartStatus(), Gdiplus::Ok);
    }
    EXPECT_EQ(platform::GdiplusIgnoredShutdowns(), ignored + 1);
}
