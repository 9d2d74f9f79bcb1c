// Tests of the filter pipeline interface declarations (IIDs, __uuidof) and the in-memory raw
// streams.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/com/atl.h"
#include "platform/printpipeline/filterpipeline.h"
#include "platform/printpipeline/printstreams.h"

TEST(FilterPipelineInterfaces, CarryTheWindowsIids) {
    using platform::GuidToString;
    EXPECT_EQ(GuidToString(__uuidof(IPrintPipelineFilter)),
              "{CDB62FC0-8BED-434E-86FB-A2CAE55F19EA}");
    EXPECT_EQ(GuidToString(IID_IPrintReadStreamFactory), "{ACB971E3-DF8D-4FC2-BEE6-0609D15F3CF9}");
    EXPECT_EQ(GuidToString(IID_IXpsDocumentProvider), "{B8CF8530-5562-47C4-AB67-B1F69ECF961E}");
    EXPECT_EQ(GuidToString(IID_IXpsDocumentConsumer), "{4368D8A2-4181-4A9F-B295-3D9A38BB9BA0}");
    EXPECT_EQ(GuidToString(IID_IXpsDocument), "{E8D907DB-62A9-4A95-ABE7-E01763DD30F8}");
    EXPECT_EQ(GuidToString(IID_IFixedDocumentSequence), "{8028D181-2C32-4249-8493-1BFB22045574}");
    EXPECT_EQ(GuidToString(IID_IFixedDocument), "{F222CA9F-9968-4DB9-81BD-ABAEBF15F93F}");
    EXPECT_EQ(GuidToString(IID_IFixedPage), "{3D9F6448-7E95-4CB5-94FB-0180C2883A57}");
    EXPECT_EQ(GuidToString(IID_IPartBase), "{36D51E28-369E-43BA-A666-9540C62C3F58}");
    EXPECT_EQ(GuidToString(__uuidof(IPartPrintTicket)), "{4A0F50F6-F9A2-41F0-99E7-5AE955BE8E9E}");
    EXPECT_EQ(GuidToString(IID_IInterFilterCommunicator), "{4DAF1E69-81FD-462D-940F-8CD3DDF56FCA}");
}

TEST(FilterPipelineInterfaces, AllIidsAreDistinct) {
    const IID* ids[] = {&IID_IPrintReadStream,
                        &IID_IPrintWriteStream,
                        &IID_IPrintReadStreamFactory,
                        &IID_IInterFilterCommunicator,
                        &IID_IPrintPipelineManagerControl,
                        &IID_IPrintPipelinePropertyBag,
                        &IID_IPrintPipelineFilter,
                        &IID_IXpsDocumentProvider,
                        &IID_IXpsDocumentConsumer,
                        &IID_IXpsDocument,
                        &IID_IFixedDocumentSequence,
                        &IID_IFixedDocument,
                        &IID_IPartBase,
                        &IID_IFixedPage,
                        &IID_IPartImage,
                        &IID_IPartFont,
                        &IID_IPartFont2,
                        &IID_IPartThumbnail,
                        &IID_IPartPrintTicket,
                        &IID_IPartColorProfile,
                        &IID_IPartResourceDictionary,
                        &IID_IXpsPartIterator,
                        &IID_IPartDiscardControl,
                        &IID_IImgErrorInfo,
                        &IID_IErrorInfo,
                        &IID_IUnknown};
    for (const IID* a : ids) {
        int same = 0;
        for (const IID* b : ids) same += (*a == *b) ? 1 : 0;
        EXPECT_EQ(same, 1) << platform::GuidToString(*a);
    }
}

TEST(PrintReadStreamOnBytes, ReadsSeeksAndReportsEndOfFile) {
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
}

TEST(PrintReadStreamOnBytes, AnswersOnlyItsInterfaces) {
    CComPtr<IPrintReadStream> stream;
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
