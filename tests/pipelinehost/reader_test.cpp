// Tests of reading XPS jobs: part names, pieces, the document-order walk, tickets at every
// level, page resources from relationships and markup, and part streams.
#include <gtest/gtest.h>
#include <zip.h>

#include <fstream>
#include <set>
#include <iterator>

#include "platform/com/unicode.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/jobreader.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/sourcepackage.h"
#include "testpackages.h"

namespace {

using namespace pipelinehost;

template <class Part>
std::string TicketUri(Part* part) {
    CComPtr<IPartPrintTicket> ticket;
    HRESULT hr = part->GetPrintTicket(&ticket);
    if (hr == E_ELEMENT_NOT_FOUND) return "(none)";
    return SUCCEEDED(hr) ? PartNameOf(ticket) : "(error)";
}

std::string ReadAll(IPartBase* part) {
    CComPtr<IPrintReadStream> stream;
    if (FAILED(part->GetStream(&stream))) return "(error)";
    std::string bytes;
    char buffer[7];  // small on purpose: reads cross piece boundaries
    for (;;) {
        ULONG read = 0;
        BOOL eof = FALSE;
        if (FAILED(stream->ReadBytes(buffer, sizeof buffer, &read, &eof))) return "(error)";
        bytes.append(buffer, read);
        if (eof || read == 0) break;
    }
    return bytes;
}

std::vector<CComPtr<IUnknown>> Walk(const std::string& path, const ReaderLimits& limits = {}) {
    auto package = SourcePackage::Open(path, limits);
    CComPtr<JobReader> reader;
    reader.Attach(new JobReader(package, std::make_shared<JobStatus>()));
    std::vector<CComPtr<IUnknown>> parts;
    for (int i = 0; i < 10000; ++i) {
        CComPtr<IUnknown> part;
        EXPECT_EQ(reader->GetXpsPart(&part), S_OK);
        if (!part) break;
        parts.push_back(part);
    }
    return parts;
}

TEST(PartNames, KeysReferencesItemsAndPieces) {
    const std::pair<std::string, std::string> keys[] = {
        {PartKey("/Documents/1/Pages/%41.FPAGE"), "/documents/1/pages/a.fpage"},
        // An escape at the very end is decoded too; a cut-off one stays as written.
        {PartKey("/Resources/Font%41"), "/resources/fonta"},
        {PartKey("/Resources/Font%4"), "/resources/font%4"},
        {*ResolvePartReference("/Documents/1/FixedDocument.fdoc", "Pages/1.fpage"),
         "/Documents/1/Pages/1.fpage"},
        {*ResolvePartReference("/Documents/1/Pages/1.fpage", "../../../Resources/f.odttf#x"),
         "/Resources/f.odttf"},
        {*ResolvePartReference("/", "./FixedDocumentSequence.fdseq"),
         "/FixedDocumentSequence.fdseq"},
        {RelationshipsPartName("/Documents/1/FixedDocument.fdoc"),
         "/Documents/1/_rels/FixedDocument.fdoc.rels"},
        {RelationshipsPartName("/"), "/_rels/.rels"},
        {PartNameFromItem("_rels/.rels"), "/_rels/.rels"}};
    for (const auto& [actual, expected] : keys) EXPECT_EQ(actual, expected);
    EXPECT_FALSE(ResolvePartReference("/a.fpage", "http://example.com/x.png").has_value());
    EXPECT_THROW(ResolvePartReference("/Documents/1.fdoc", "../../x.xml"), JobError);
    for (const char* bad : {"", "/etc/passwd", "a/../../b", "a/./b", "a//b", "a\\b", "dir./x"}) {
        EXPECT_THROW(PartNameFromItem(bad), JobError) << bad;
    }
    auto piece = ParsePieceName("/Pages/1.fpage/[12].LAST.Piece");
    ASSERT_TRUE(piece.has_value());
    EXPECT_EQ(piece->partName, "/Pages/1.fpage");
    EXPECT_EQ(piece->number, 12u);
    EXPECT_TRUE(piece->last);
    for (const char* notAPiece :
         {"/Pages/1.fpage/[01].piece", "/Pages/1.fpage/[x].piece", "/Pages/1.fpage"}) {
        EXPECT_FALSE(ParsePieceName(notAPiece).has_value()) << notAPiece;
    }
}

TEST(JobReaderWalk, YieldsPartsInDocumentOrderWithTicketsAtEveryLevel) {
    auto parts = Walk(testpackages::CorpusFile("wpftest_word.xps"));
    ASSERT_EQ(parts.size(), 4u);
    EXPECT_TRUE(CComQIPtr<IXpsDocument>(parts[0]));
    CComQIPtr<IFixedDocumentSequence> sequence(parts[1]);
    CComQIPtr<IFixedDocument> document(parts[2]);
    CComQIPtr<IFixedPage> page(parts[3]);
    ASSERT_TRUE(sequence && document && page);
    EXPECT_EQ(TicketUri(sequence.p), "/Metadata/Job_PT.xml");
    EXPECT_EQ(TicketUri(document.p), "/Metadata/MXDC_Empty_PT.xml");
    EXPECT_EQ(TicketUri(page.p), "/Documents/1/Metadata/Page1_PT.xml");
    EXPECT_EQ(PartNameOf(page), "/Documents/1/Pages/1.fpage");

    std::vector<std::string> resources;
    CComPtr<IXpsPartIterator> iterator;
    ASSERT_EQ(page->GetXpsPartIterator(&iterator), S_OK);
    for (iterator->Reset(); !iterator->IsDone(); iterator->Next()) {
        CComBSTR uri;
        CComPtr<IUnknown> part;
        ASSERT_EQ(iterator->Current(&uri, &part), S_OK);
        resources.push_back(platform::WideToUtf8(uri.m_str));
        if (resources.back().find(".odttf") != std::string::npos) {
            CComQIPtr<IPartFont> font(part);
            ASSERT_TRUE(font);
            CComBSTR type;
            EXpsFontOptions options = Font_Normal;
            ASSERT_EQ(font->GetFontProperties(&type, &options), S_OK);
            EXPECT_EQ(options, Font_Obfusticate);
        }
    }
    EXPECT_EQ(resources.size(), 1u);  // the font; the thumbnail belongs to the package
    CComQIPtr<IXpsDocument> xps(parts[0]);
    CComPtr<IPartThumbnail> thumbnail;
    ASSERT_EQ(xps->GetThumbnail(&thumbnail), S_OK);
    EXPECT_EQ(PartNameOf(thumbnail), "/Documents/1/Metadata/Page1_Thumbnail.JPG");
    CComBSTR uri;
    CComPtr<IUnknown> none;
    EXPECT_EQ(iterator->Current(&uri, &none), HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS));
}

// Corpus jobs: OpenXPS relative targets, UTF-16 markup, pages sharing one ticket part.
TEST(JobReaderWalk, CountsPagesAndFindsTheirTickets) {
    const struct {
        const char* file;
        int pages;
        std::string sequenceTicket, documentTicket;
        bool pagesShareATicket;
    } rows[] = {{"tika_testXPSWithDataDescriptor2.xps", 1, "/Metadata/Job_PT.xml",
                 "/Metadata/MXDC_Empty_PT.xml", true},
                {"tika_testPPT.xps", 3, "(none)", "(none)", false},
                {"winprintrs_test_document.xps", 2, "/Metadata/Job_PT.xml", "(none)", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        auto parts = Walk(testpackages::CorpusFile(row.file));
        ASSERT_GE(parts.size(), 4u);
        EXPECT_EQ(TicketUri(CComQIPtr<IFixedDocumentSequence>(parts[1]).p), row.sequenceTicket);
        if (row.documentTicket != "(none)") {
            EXPECT_EQ(TicketUri(CComQIPtr<IFixedDocument>(parts[2]).p), row.documentTicket);
        }
        std::set<std::string> tickets;
        int pages = 0;
        for (auto& part : parts) {
            if (CComQIPtr<IFixedPage> page = part) {
                ++pages;
                tickets.insert(TicketUri(page.p));
            }
        }
        EXPECT_EQ(pages, row.pages);
        EXPECT_TRUE(!row.pagesShareATicket || tickets.size() == 1u) << tickets.size();
    }
    EXPECT_TRUE(
        SourcePackage::Open(testpackages::CorpusFile(rows[0].file), ReaderLimits{})->OpenXps());
}

TEST(PageResources, ComeFromRelationshipsThenMarkup) {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(1);
    for (Entry& entry : job) {
        if (entry.name == "Documents/1/Pages/1.fpage") {
            entry.content = Page(
                "<Canvas><Canvas.Resources><ResourceDictionary Source=\"../Dict.dict\"/>"
                "</Canvas.Resources><Glyphs FontUri=\"/Resources/Font.ttf\" OriginX=\"1\" "
                "OriginY=\"1\" FontRenderingEmSize=\"9\" UnicodeString=\"x\"/>"
                "<Path Data=\"M 0,0 L 9,9\" Fill=\"ContextColor /Resources/p.icc 1,0.5,0.5,0.5\"/>"
                "<Path Data=\"M 0,0 L 9,9\"><Path.Fill><ImageBrush "
                "ImageSource=\"../../../Resources/"
                "Pic.png\" Viewbox=\"0,0,1,1\" Viewport=\"0,0,1,1\" ViewboxUnits=\"Absolute\" "
                "ViewportUnits=\"Absolute\"/></Path.Fill></Path></Canvas>");
        }
        if (entry.name == "Documents/1/Pages/_rels/1.fpage.rels") {
            entry.content = Rels({{kResourceRel, "/Resources/Font.ttf"}});
        }
    }
    job.push_back({"Resources/Font.ttf", "font"});
    job.push_back({"Resources/Pic.png", "png"});
    job.push_back({"Resources/p.icc", "icc"});
    job.push_back({"Documents/1/Dict.dict", "<ResourceDictionary/>"});
    auto parts = Walk(WriteZip("markup_resources.xps", job));
    CComQIPtr<IFixedPage> page(parts.back());
    ASSERT_TRUE(page);
    CComPtr<IXpsPartIterator> iterator;
    ASSERT_EQ(page->GetXpsPartIterator(&iterator), S_OK);
    std::vector<std::string> names;
    for (iterator->Reset(); !iterator->IsDone(); iterator->Next()) {
        CComBSTR uri;
        CComPtr<IUnknown> part;
        ASSERT_EQ(iterator->Current(&uri, &part), S_OK);
        names.push_back(platform::WideToUtf8(uri.m_str));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"/Resources/Font.ttf", "/Documents/1/Dict.dict",
                                               "/Resources/p.icc", "/Resources/Pic.png"}));
    CComPtr<IUnknown> image;
    EXPECT_EQ(page->GetPagePart(L"../../../resources/PIC.PNG", &image), S_OK);
    EXPECT_TRUE(CComQIPtr<IPartImage>(image));
    CComPtr<IUnknown> dictionary;
    EXPECT_EQ(page->GetPagePart(L"/Documents/1/Dict.dict", &dictionary), S_OK);
    EXPECT_TRUE(CComQIPtr<IPartResourceDictionary>(dictionary));
    CComPtr<IUnknown> missing;
    EXPECT_EQ(page->GetPagePart(L"/Resources/none.png", &missing), E_ELEMENT_NOT_FOUND);
    EXPECT_EQ(page->DeleteResource(L"/Resources/Pic.png"), S_OK);
    CComPtr<IUnknown> deleted;
    EXPECT_EQ(page->GetPagePart(L"/Resources/Pic.png", &deleted), E_ELEMENT_NOT_FOUND);
}

TEST(PageResources, ColorConvertedBitmapsNameTheImageAndTheProfile) {
    auto parts = Walk(testpackages::CorpusFile("winprintrs_data.xps"));
    CComQIPtr<IFixedPage> page(parts.back());
    ASSERT_TRUE(page);
    CComPtr<IUnknown> profile;
    ASSERT_EQ(page->GetPagePart(L"/Documents/1/Resources/Profiles/Profile_0.icc", &profile), S_OK);
    EXPECT_TRUE(CComQIPtr<IPartColorProfile>(profile));
}

TEST(Pieces, AreJoinedInOrderAndReadAcrossBoundaries) {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(1);
    std::string page = Page("<Path Data=\"M 0,0 L 10,10\" Stroke=\"#FF000000\"/>");
    std::erase_if(job, [](const Entry& e) { return e.name == "Documents/1/Pages/1.fpage"; });
    std::size_t third = page.size() / 3;
    job.push_back({"Documents/1/Pages/1.fpage/[0].piece", page.substr(0, third)});
    job.push_back({"Documents/1/Pages/1.fpage/[1].piece", page.substr(third, third), true});
    job.push_back({"Documents/1/Pages/1.fpage/[2].LAST.piece", page.substr(2 * third)});
    auto parts = Walk(WriteZip("pieces.xps", job));
    CComQIPtr<IFixedPage> fixedPage(parts.back());
    ASSERT_TRUE(fixedPage);
    EXPECT_EQ(ReadAll(fixedPage), page);

    CComPtr<IPrintReadStream> stream;
    ASSERT_EQ(fixedPage->GetStream(&stream), S_OK);
    ULONGLONG position = 0;
    ASSERT_EQ(stream->Seek(-5, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position, page.size() - 5);
    char tail[16];
    ULONG read = 0;
    BOOL eof = FALSE;
    ASSERT_EQ(stream->ReadBytes(tail, sizeof tail, &read, &eof), S_OK);
    EXPECT_EQ(std::string(tail, read), page.substr(page.size() - 5));
    EXPECT_TRUE(eof);
    ASSERT_EQ(stream->Seek(2, STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(stream->ReadBytes(tail, 3, &read, &eof), S_OK);
    EXPECT_EQ(std::string(tail, read), page.substr(2, 3));
}

namespace {

// A small job whose last item is stored with another compression method or encrypted.
std::string JobWithOddItem(const std::string& fileName, zip_int32_t method, bool encrypted) {
    std::string path = testpackages::WriteZip(fileName, testpackages::SmallJob(1));
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), 0, &error);
    static const char kData[] = "odd item";
    zip_source_t* source = zip_source_buffer(archive, kData, sizeof kData - 1, 0);
    zip_int64_t index = zip_file_add(archive, "Resources/odd.bin", source, ZIP_FL_ENC_UTF_8);
    zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), method, 0);
    if (encrypted) {
        zip_file_set_encryption(archive, static_cast<zip_uint64_t>(index), ZIP_EM_AES_256,
                                "secret");
    }
    zip_close(archive);
    return path;
}

}  // namespace

// Packages a user can be handed that the reader refuses, each with the reason it gives.
TEST(SourcePackages, DamagedPackagesAreRefusedWithTheirReason) {
    using namespace testpackages;
    // A one-page job with the given items added, written under the given name.
    auto with = [](const std::string& name, std::vector<Entry> extra) {
        std::vector<Entry> job = SmallJob(1);
        job.insert(job.end(), extra.begin(), extra.end());
        return WriteZip(name, job);
    };
    const std::string job = WriteZip("whole.xps", SmallJob(1));
    std::ifstream in(job, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    const std::string text = TempPath("text.xps"), truncated = TempPath("truncated.xps");
    std::ofstream(text) << "not a package";
    std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() - 30);
    ReaderLimits tiny;
    tiny.maxPartSize = 8;
    const std::string a = "Resources/a.png";
    // clang-format off
    const struct { const char* name; std::string path; ReaderLimits limits; const char* reason; } rows[] = {
        {"missing file", TempPath("none.xps"), {}, "cannot open"},
        {"a folder", ProcessTempDir().string(), {}, "is not a regular file"},
        {"not a ZIP", text, {}, "is not a ZIP archive"}, {"truncated ZIP", truncated, {}, "truncated or damaged"},
        {"encrypted item", JobWithOddItem("aes.xps", ZIP_CM_STORE, true), {}, "is encrypted"},
        {"bzip2 item", JobWithOddItem("bzip2.xps", ZIP_CM_BZIP2, false), {}, "unsupported compression method"},
        {"part above the size limit", job, tiny, "above the limit"},
        {"pieced part above the size limit",
         with("bigpieces.xps", {{a + "/[0].piece", "12345"}, {a + "/[1].last.piece", "6789"}}), tiny,
         "above the limit"},
        {"last piece missing", with("incomplete.xps", {{a + "/[0].piece", "x"}}), {}, "is incomplete"},
        {"piece twice", with("twice.xps", {{a + "/[0].piece", "x"}, {a + "/[0].last.piece", "y"}}), {},
         "out of order or duplicated"},
        {"pieces after the last", with("after.xps", {{a + "/[0].last.piece", "x"}, {a + "/[1].piece", "y"}}),
         {}, "has pieces after its last piece"},
        {"whole and in pieces", with("both.xps", {{a, "x"}, {a + "/[0].last.piece", "y"}}), {},
         "stored both whole and as pieces"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            SourcePackage::Open(row.path, row.limits);
            ADD_FAILURE() << "accepted";
        } catch (const JobError& error) {
            EXPECT_NE(std::string(error.what()).find(row.reason), std::string::npos)
                << error.what();
        }
    }
}

TEST(SourcePackages, RefuseDuplicateNamesDtdsAndOversizedMarkup) {
    using namespace testpackages;
    std::vector<Entry> duplicate = SmallJob(1);
    duplicate.push_back({"metadata/job_pt.xml", "x"});
    EXPECT_THROW(SourcePackage::Open(WriteZip("dup.xps", duplicate), ReaderLimits{}), JobError);

    std::vector<Entry> dtd = SmallJob(1);
    dtd[2].content = "<!DOCTYPE x [<!ENTITY a \"aaaa\">]>" + dtd[2].content;
    auto package = SourcePackage::Open(WriteZip("dtd.xps", dtd), ReaderLimits{});
    try {
        CComPtr<JobReader> reader;
        reader.Attach(new JobReader(package, std::make_shared<JobStatus>()));
        ADD_FAILURE() << "a DTD was accepted";
    } catch (const JobError& error) {
        EXPECT_NE(std::string(error.what()).find("DTD"), std::string::npos);
    }

    ReaderLimits tight;
    tight.maxMarkupSize = 16;
    EXPECT_THROW(
        {
            auto small = SourcePackage::Open(WriteZip("markup.xps", SmallJob(1)), tight);
            CComPtr<JobReader> reader;
            reader.Attach(new JobReader(small, std::make_shared<JobStatus>()));
        },
        JobError);
}

TEST(SourcePackages, RecordTheFirstErrorMetWhileFiltersRead) {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(1);
    job[job.size() - 2].content = "<Relationships";  // page 1's relationships are broken
    auto package = SourcePackage::Open(WriteZip("broken_rels.xps", job), ReaderLimits{});
    auto status = std::make_shared<JobStatus>();
    package->SetStatus(status);
    CComPtr<JobReader> reader;
    reader.Attach(new JobReader(package, std::make_shared<JobStatus>()));
    HRESULT hr = S_OK;
    for (int i = 0; i < 5 && SUCCEEDED(hr); ++i) {
        CComPtr<IUnknown> part;
        hr = reader->GetXpsPart(&part);
    }
    EXPECT_EQ(hr, HResultFor(ErrorKind::BadPackage));
    ASSERT_TRUE(status->Failed());
    EXPECT_NE(std::string(status->Error()->what()).find("not well-formed"), std::string::npos);
}

}  // namespace
