// Tests of writing the output package: raw copies of unchanged parts, parts written once,
// new tickets, replaced page markup and new resources, pieces kept, and protocol errors.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/com/unicode.h"
#include "pipelinehost/jobreader.h"
#include "pipelinehost/jobrunner.h"
#include "pipelinehost/jobwriter.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/rawpassthroughfilter.h"
#include "pipelinehost/sourcepackage.h"
#include "testfilters.h"
#include "testpackages.h"

namespace {

using namespace pipelinehost;

HRESULT WriteText(IPrintWriteStream* stream, const std::string& text) {
    ULONG written = 0;
    HRESULT hr = stream->WriteBytes(text.data(), static_cast<ULONG>(text.size()), &written);
    stream->Close();
    return hr;
}

// Gives every page one new shared ticket; replaces page 2's markup with markup that uses a new
// image.
class EditingFilter final : public testfilters::PageEditingFilter {
    HRESULT EditPage(IXpsDocumentConsumer* consumer, IFixedPage* page, int number) override {
        HRESULT hr = S_OK;
        if (!m_ticket) {
            CComPtr<IPrintWriteStream> stream;
            hr = consumer->GetNewEmptyPart(L"/Metadata/Edited_PT.xml", IID_IPartPrintTicket,
                                           reinterpret_cast<void**>(&m_ticket), &stream);
            if (FAILED(hr)) return hr;
            WriteText(stream, testpackages::Ticket("edited"));
        }
        if (FAILED(hr = page->SetPrintTicket(m_ticket))) return hr;
        if (number == 2) {
            CComPtr<IPartImage> image;
            CComPtr<IPrintWriteStream> stream;
            hr = consumer->GetNewEmptyPart(L"/Resources/New.png", IID_IPartImage,
                                           reinterpret_cast<void**>(&image), &stream);
            if (FAILED(hr)) return hr;
            WriteText(stream, "not really a png");
            CComPtr<IPrintWriteStream> markup;
            if (FAILED(hr = page->GetWriteStream(&markup))) return hr;
            WriteText(markup, kNewMarkup);
            if (FAILED(hr = page->SetPagePart(image))) return hr;
        }
        return consumer->SendFixedPage(page);
    }

public:
    static inline const std::string kNewMarkup = testpackages::Page(
        "<Path Data=\"M 0,0 L 9,9 0,9 Z\"><Path.Fill><ImageBrush "
        "ImageSource=\"/Resources/New.png\" "
        "Viewbox=\"0,0,1,1\" Viewport=\"0,0,9,9\" ViewboxUnits=\"Absolute\" "
        "ViewportUnits=\"Absolute\"/></Path.Fill></Path>");

private:
    CComPtr<IPartPrintTicket> m_ticket;
};

JobResult RunWith(FilterFactory factory, const std::string& input, const std::string& output) {
    return testfilters::RunWithFilter(std::move(factory), input, output);
}

std::string ReadPart(const SourcePackage& package, const std::string& name) {
    const SourcePart* part = package.Find(name);
    return part == nullptr ? "(missing)" : package.ReadMarkup(*part);
}

std::string TicketTarget(const SourcePackage& package, const std::string& source) {
    for (const Relationship& rel : package.ReadRelationships(source)) {
        if (rel.type.find("printticket") != std::string::npos && rel.part) return *rel.part;
    }
    return "(none)";
}

TEST(JobWriterOutput, UnchangedPartsAreCopiedAsTheirCompressedBytes) {
    std::string input = testpackages::CorpusFile("tika_testXPS_various.xps");
    std::string output = testpackages::TempPath("raw_copy_out.xps");
    JobResult result = RunWith(&CreateRawPassThroughFilter, input, output);
    ASSERT_TRUE(result.succeeded) << result.error->what();
    auto in = SourcePackage::Open(input, ReaderLimits{});
    auto out = SourcePackage::Open(output, ReaderLimits{});
    std::size_t compared = 0;
    for (const SourcePart& part : out->Parts()) {
        if (part.name == "/[Content_Types].xml" || part.name == "/_rels/.rels") continue;
        const SourcePart* original = in->Find(part.name);
        ASSERT_NE(original, nullptr) << part.name;
        ASSERT_EQ(part.items.size(), original->items.size());
        EXPECT_EQ(part.items[0].crc, original->items[0].crc) << part.name;
        EXPECT_EQ(part.items[0].compressedSize, original->items[0].compressedSize) << part.name;
        EXPECT_EQ(part.items[0].method, original->items[0].method) << part.name;
        EXPECT_EQ(part.contentType, original->contentType) << part.name;
        ++compared;
    }
    // Every part of the input reaches the output, the fonts, images and document structure too.
    EXPECT_EQ(compared + 2, in->Parts().size());
}

TEST(JobWriterOutput, NewTicketsMarkupAndResourcesAreWrittenOnce) {
    std::string input = testpackages::WriteZip("edit_in.xps", testpackages::SmallJob(3));
    std::string output = testpackages::TempPath("edit_out.xps");
    JobResult result = RunWith(
        [](IPrintPipelineFilter** filter) {
            *filter = new EditingFilter();
            return S_OK;
        },
        input, output);
    ASSERT_TRUE(result.succeeded) << result.error->what();
    auto out = SourcePackage::Open(output, ReaderLimits{});  // refuses duplicate part names
    for (const char* page : {"/Documents/1/Pages/1.fpage", "/Documents/1/Pages/2.fpage",
                             "/Documents/1/Pages/3.fpage"}) {
        EXPECT_EQ(TicketTarget(*out, page), "/Metadata/Edited_PT.xml") << page;
    }
    EXPECT_NE(ReadPart(*out, "/Metadata/Edited_PT.xml").find("edited"), std::string::npos);
    EXPECT_EQ(out->Find("/Documents/1/Metadata/Page_PT.xml"), nullptr);  // no longer used
    EXPECT_EQ(ReadPart(*out, "/Documents/1/Pages/2.fpage"), EditingFilter::kNewMarkup);
    EXPECT_EQ(ReadPart(*out, "/Resources/New.png"), "not really a png");
    EXPECT_EQ(out->ContentTypeOf("/Resources/New.png"), "image/png");
    EXPECT_EQ(out->ContentTypeOf("/Metadata/Edited_PT.xml"),
              "application/vnd.ms-printing.printticket+xml");
    bool imageLinked = false;
    for (const Relationship& rel : out->ReadRelationships("/Documents/1/Pages/2.fpage")) {
        imageLinked |= rel.part == std::optional<std::string>("/Resources/New.png");
    }
    EXPECT_TRUE(imageLinked);
    // The job and document tickets were not touched: copied byte for byte.
    auto in = SourcePackage::Open(input, ReaderLimits{});
    EXPECT_EQ(out->Find("/Metadata/Job_PT.xml")->items[0].crc,
              in->Find("/Metadata/Job_PT.xml")->items[0].crc);
    EXPECT_EQ(TicketTarget(*out, "/Documents/1/FixedDocument.fdoc"), "/Metadata/Doc_PT.xml");
}

TEST(JobWriterOutput, PiecedPartsKeepTheirPieces) {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(1);
    std::string page = Page();
    std::erase_if(job, [](const Entry& e) { return e.name == "Documents/1/Pages/1.fpage"; });
    job.push_back({"Documents/1/Pages/1.fpage/[0].piece", page.substr(0, 20)});
    job.push_back({"Documents/1/Pages/1.fpage/[1].last.piece", page.substr(20)});
    std::string output = TempPath("pieces_out.xps");
    JobResult result = RunWith(&CreateRawPassThroughFilter, WriteZip("pieces_in.xps", job), output);
    ASSERT_TRUE(result.succeeded) << result.error->what();
    auto out = SourcePackage::Open(output, ReaderLimits{});
    const SourcePart* part = out->Find("/Documents/1/Pages/1.fpage");
    ASSERT_NE(part, nullptr);
    EXPECT_TRUE(part->pieced);
    EXPECT_EQ(out->ReadMarkup(*part), page);
}

TEST(JobWriterOutput, APageBeforeAnyDocumentFailsAndLeavesNothing) {
    std::string input = testpackages::WriteZip("protocol_in.xps", testpackages::SmallJob(1));
    std::string output = testpackages::TempPath("protocol_out.xps");
    std::filesystem::remove(output);
    auto status = std::make_shared<JobStatus>();
    {
        auto package = SourcePackage::Open(input, ReaderLimits{});
        CComPtr<JobReader> reader;
        reader.Attach(new JobReader(package, std::make_shared<JobStatus>()));
        CComPtr<JobWriter> writer;
        writer.Attach(new JobWriter(output, status));
        CComPtr<IFixedPage> page;
        for (;;) {
            CComPtr<IUnknown> part;
            ASSERT_EQ(reader->GetXpsPart(&part), S_OK);
            ASSERT_TRUE(part);
            if (SUCCEEDED(part->QueryInterface(&page))) break;
        }
        EXPECT_EQ(writer->SendFixedPage(page), HResultFor(ErrorKind::Filter));
        EXPECT_EQ(writer->CloseSender(), HResultFor(ErrorKind::Filter));
        EXPECT_FALSE(writer->Complete());
    }
    ASSERT_TRUE(status->Failed());
    EXPECT_NE(std::string(status->Error()->what()).find("before any fixed document"),
              std::string::npos);
    EXPECT_TRUE(testpackages::NothingLeftOf(output));
}

TEST(NewParts, AreMadeForEveryKindAndCheckTheirArguments) {
    const IID* kinds[] = {
        &IID_IPartPrintTicket,        &IID_IPartFont,      &IID_IPartImage, &IID_IPartColorProfile,
        &IID_IPartResourceDictionary, &IID_IPartThumbnail, &IID_IFixedPage};
    for (const IID* kind : kinds) {
        CComPtr<IUnknown> part;
        CComPtr<IPrintWriteStream> stream;
        ASSERT_EQ(CreateNewPart(L"/New/part.bin", *kind, reinterpret_cast<void**>(&part), &stream),
                  S_OK);
        CComPtr<IUnknown> same;
        EXPECT_EQ(part->QueryInterface(*kind, reinterpret_cast<void**>(&same)), S_OK);
        EXPECT_EQ(PartNameOf(part), "/New/part.bin");
        CComQIPtr<IPartBase> base(part);
        CComPtr<IPrintReadStream> early;
        EXPECT_TRUE(FAILED(base->GetStream(&early)));  // content still being written
        WriteText(stream, "abc");
        CComPtr<IPrintReadStream> read;
        ASSERT_EQ(base->GetStream(&read), S_OK);
        char buffer[8];
        ULONG got = 0;
        BOOL eof = FALSE;
        ASSERT_EQ(read->ReadBytes(buffer, sizeof buffer, &got, &eof), S_OK);
        EXPECT_EQ(std::string(buffer, got), "abc");
    }
    void* part = nullptr;
    CComPtr<IPrintWriteStream> stream;
    EXPECT_EQ(CreateNewPart(L"relative/name.xml", IID_IPartPrintTicket, &part, &stream),
              E_INVALIDARG);
    EXPECT_EQ(CreateNewPart(L"/a/../b.xml", IID_IPartPrintTicket, &part, &stream), E_INVALIDARG);
    EXPECT_EQ(CreateNewPart(L"/a.xml", IID_IFixedDocument, &part, &stream), E_NOINTERFACE);
    EXPECT_EQ(CreateNewPart(L"/a.xml", IID_IPartPrintTicket, nullptr, &stream), E_POINTER);
    EXPECT_EQ(CreateNewPart(nullptr, IID_IPartPrintTicket, &part, &stream), E_INVALIDARG);
}

}  // namespace
