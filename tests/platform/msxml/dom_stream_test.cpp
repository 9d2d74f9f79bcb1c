// dom_stream_test.cpp: the document's output forms in the MSXML stand-in: the `xml` property, the
// IStream view (UTF-8 with a declaration), and save() to files, streams and other documents.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "msxml_test_support.h"
#include "testsupport/scratch.h"

using namespace msxmltest;
namespace fs = std::filesystem;

namespace {

std::string ReadAll(IStream* stream) {
    std::string bytes;
    char buffer[7];  // small on purpose: reads span many calls
    ULONG got = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got > 0)
        bytes.append(buffer, got);
    return bytes;
}

std::string StreamBytes(IStream* stream) {
    LARGE_INTEGER zero{};
    EXPECT_EQ(stream->Seek(zero, STREAM_SEEK_SET, nullptr), S_OK);
    return ReadAll(stream);
}

}  // namespace

TEST(DomOutput, XmlPropertyKeepsTheDeclarationWithoutItsEncoding) {
    EXPECT_EQ(Xml(Parsed(L"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><a/>").p),
              L"<?xml version=\"1.0\" standalone=\"yes\"?>\r\n<a/>\r\n");
    EXPECT_EQ(Xml(Parsed(L"<a>x</a>").p), L"<a>x</a>\r\n");
    EXPECT_EQ(Xml(NewDocument().p), L"");
    EXPECT_EQ(Xml(Parsed(L"<a v=\"&quot;&lt;&amp;&#9;&#10;\">&lt;&gt;&amp;'\"</a>").p),
              L"<a v=\"&quot;&lt;&amp;&#x9;&#xA;\">&lt;&gt;&amp;'\"</a>\r\n");
}

TEST(DomOutput, DocumentAnswersIStreamWithItsUtf8Serialisation) {
    auto doc = Parsed(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\u00E9\u4E2D\U0001F600</a>");
    CComQIPtr<IStream> stream(doc);
    ASSERT_NE(stream, nullptr);
    EXPECT_NE(CComQIPtr<ISequentialStream>(doc), nullptr);
    std::string expected =
        "<?xml version=\"1.0\" "
        "encoding=\"UTF-8\"?>\r\n<a>\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80</a>\r\n";
    EXPECT_EQ(ReadAll(stream), expected);
    STATSTG stat{};
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, expected.size());
    EXPECT_EQ(stat.type, static_cast<DWORD>(STGTY_STREAM));
    // Seek and read a slice.
    LARGE_INTEGER at{};
    at.QuadPart = -10;
    ULARGE_INTEGER position{};
    EXPECT_EQ(stream->Seek(at, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position.QuadPart, expected.size() - 10);
    EXPECT_EQ(ReadAll(stream), expected.substr(expected.size() - 10));
    at.QuadPart = -1;
    EXPECT_EQ(stream->Seek(at, STREAM_SEEK_SET, nullptr), STG_E_INVALIDFUNCTION);
    // Writing is not offered.
    ULONG written = 5;
    EXPECT_EQ(stream->Write("x", 1, &written), E_NOTIMPL);
    EXPECT_EQ(written, 0u);
    // A clone reads the same bytes.
    CComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(&clone), S_OK);
    EXPECT_EQ(StreamBytes(clone), expected);
    // The text follows edits once the stream is back at the start.
    ASSERT_EQ(Select(doc, L"/a")->put_text(CComBSTR(L"new")), S_OK);
    EXPECT_EQ(StreamBytes(stream), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<a>new</a>\r\n");
    // An xml declaration node is rewritten for the UTF-8 stream, kept in the xml property.
    auto plain = Parsed(L"<a/>");
    CComPtr<IXMLDOMProcessingInstruction> declaration;
    ASSERT_EQ(plain->createProcessingInstruction(
                  CComBSTR(L"xml"), CComBSTR(L"version=\"1.0\" encoding=\"UTF-16\""), &declaration),
              S_OK);
    ASSERT_EQ(plain->insertBefore(declaration, CComVariant(Select(plain, L"/a").p), nullptr), S_OK);
    EXPECT_EQ(Xml(plain.p), L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a/>\r\n");
    EXPECT_EQ(ReadAll(CComQIPtr<IStream>(plain)),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<a/>\r\n");
}

TEST(DomOutput, AnotherDocumentLoadsFromTheStream) {
    std::string path = std::string(FU_CORPUS_DIR) + "/caps/winprintrs_print_capabilities.xml";
    auto source = NewDocument();
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(source->load(CComVariant(CComBSTR(path.c_str())), &ok), S_OK);
    // From its IStream, and from the document object itself.
    for (IUnknown* from :
         {static_cast<IUnknown*>(CComQIPtr<IStream>(source)), static_cast<IUnknown*>(source.p)}) {
        auto copy = NewDocument();
        ASSERT_EQ(copy->load(CComVariant(from), &ok), S_OK);
        EXPECT_EQ(Xml(copy.p), Xml(source.p));
    }
}

TEST(DomOutput, SaveWritesUtf8ToFilesStreamsAndDocuments) {
    auto doc = Parsed(L"<?xml version=\"1.0\"?><a>\u00E9</a>");
    std::string expected = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<a>\xC3\xA9</a>\r\n";
    fs::path file = testsupport::ScratchDirectory("dom-save") / "saved.xml";
    ASSERT_EQ(doc->save(CComVariant(CComBSTR(file.c_str()))), S_OK);
    EXPECT_EQ(ReadFile(file.string()), expected);
    fs::remove(file);

    CComPtr<IStream> stream;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &stream), S_OK);
    ASSERT_EQ(doc->save(CComVariant(static_cast<IUnknown*>(stream.p))), S_OK);
    EXPECT_EQ(StreamBytes(stream), expected);

    auto target = NewDocument();
    ASSERT_EQ(doc->save(CComVariant(static_cast<IUnknown*>(target.p))), S_OK);
    EXPECT_EQ(Text(target.p), L"\u00E9");

    EXPECT_EQ(doc->save(CComVariant(3)), E_INVALIDARG);
    EXPECT_EQ(doc->save(CComVariant(L"/nonexistent-dir/x/y.xml")),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(doc->save(CComVariant(L"http://example.invalid/upload")), E_ACCESSDENIED);
}
