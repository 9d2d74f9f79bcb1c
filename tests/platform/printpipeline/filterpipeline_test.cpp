// Tests of the filter pipeline interface declarations (IIDs, __uuidof) and the in-memory raw
// streams.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/com/atl.h"
#include "platform/printpipeline/filterpipeline.h"
#include "platform/printpipeline/printstreams.h"

TEST(PrintReadStreamOnBytes, ReadsSeeksReportsEndOfFileAndAnswersItsInterfaces) {
    CComPtr<IPrintReadStream> stream;
    ASSERT_EQ(platform::CreatePrintReadStreamOnBytes("abcdef", 6, &stream), S_OK);
    char buffer[8] = {};
    ULONG read = 0;
    BOOL eof = TRUE;
    ASSERT_EQ(stream->ReadBytes(buffer, 4, &read, &eof), S_OK);
    EXPECT_EQ(read, 4u);
    EXPECT_FALSE(eof);
    EXPECT_EQ(std::string(buffer, read), "abcd");
    ASSERT_EQ(stream->ReadBytes(buffer, 8, &read, &eof), S_OK);
    EXPECT_EQ(std::string(buffer, read), "ef");
    EXPECT_TRUE(eof);
    ASSERT_EQ(stream->ReadBytes(buffer, 8, &read, &eof), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_TRUE(eof);

    ULONGLONG position = 99;
    ASSERT_EQ(stream->Seek(-2, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position, 4u);
    ASSERT_EQ(stream->Seek(-1, STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position, 3u);
    ASSERT_EQ(stream->ReadBytes(buffer, 1, &read, &eof), S_OK);
    EXPECT_EQ(buffer[0], 'd');
    EXPECT_EQ(stream->Seek(-1, STREAM_SEEK_SET, &position), E_INVALIDARG);
    EXPECT_EQ(stream->Seek(0, 7, nullptr), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(100, STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(stream->ReadBytes(buffer, 8, &read, &eof), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_TRUE(eof);
    EXPECT_EQ(stream->ReadBytes(buffer, 8, nullptr, &eof), E_POINTER);
    EXPECT_EQ(stream->ReadBytes(nullptr, 8, &read, &eof), E_POINTER);
    stream.Release();
    ASSERT_EQ(platform::CreatePrintReadStreamOnBytes(nullptr, 0, &stream), S_OK);
    CComQIPtr<IPrintWriteStream> write(static_cast<IUnknown*>(stream));
    EXPECT_TRUE(write == nullptr);
    CComPtr<IUnknown> unknown;
    EXPECT_EQ(stream->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    EXPECT_TRUE(unknown != nullptr);
    EXPECT_EQ(platform::CreatePrintReadStreamOnBytes(nullptr, 3, &stream.p), E_POINTER);
}

TEST(PrintReadStreamFactoryOnBytes, EachStreamStartsAtTheBeginning) {
    CComPtr<IPrintReadStreamFactory> factory;
    ASSERT_EQ(platform::CreatePrintReadStreamFactoryOnBytes("xyz", 3, &factory), S_OK);
    for (int i = 0; i < 2; ++i) {
        CComPtr<IPrintReadStream> stream;
        ASSERT_EQ(factory->GetStream(&stream), S_OK);
        char buffer[4] = {};
        ULONG read = 0;
        BOOL eof = FALSE;
        ASSERT_EQ(stream->ReadBytes(buffer, 4, &read, &eof), S_OK);
        EXPECT_EQ(std::string(buffer, read), "xyz");
    }
    EXPECT_EQ(factory->GetStream(nullptr), E_POINTER);
}

TEST(PrintWriteStreamOnSink, AppendsUntilClosed) {
    auto sink = std::make_shared<platform::PrintWriteSink>();
    CComPtr<IPrintWriteStream> stream;
    ASSERT_EQ(platform::CreatePrintWriteStreamOnSink(sink, &stream), S_OK);
    ULONG written = 0;
    ASSERT_EQ(stream->WriteBytes("<a/>", 4, &written), S_OK);
    EXPECT_EQ(written, 4u);
    ASSERT_EQ(stream->WriteBytes("<b/>", 4, &written), S_OK);
    stream->Close();
    EXPECT_TRUE(sink->closed);
    EXPECT_EQ(stream->WriteBytes("x", 1, &written), E_UNEXPECTED);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(sink->bytes, "<a/><b/>");
}
