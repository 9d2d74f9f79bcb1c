// Tests of the stamp sample filter: the PNG it draws, its configuration, a walk over fake pages
// in which the resource is written once and attached to every page, and real jobs whose output
// holds the part once. (Pages through the sample stamp pipeline, which stamps a font, render as
// before on every corpus job: realjobs_test.cpp.)
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>

#include "filters/stamp/stampfilter.h"
#include "filtertesting.h"
#include "platform/win32/debugoutput.h"

namespace {

using namespace filtertesting;
using toolrunner::Outcome;
using toolrunner::RunTool;
using toolrunner::WorkDir;

constexpr char kDejaVu[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

std::uint32_t BigEndian(const std::vector<unsigned char>& bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes[at]) << 24 |
           static_cast<std::uint32_t>(bytes[at + 1]) << 16 |
           static_cast<std::uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

TEST(StampImage, IsAValidPngOfAFortyEightPixelSquare) {
    const std::vector<unsigned char> png = StampFilter::MakeStampImage();
    ASSERT_GT(png.size(), 8u);
    EXPECT_EQ(std::vector<unsigned char>(png.begin(), png.begin() + 8),
              (std::vector<unsigned char>{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}));
    // Walk the chunks: each CRC matches, IHDR says 48x48 RGBA, IDAT inflates to the scanlines.
    std::size_t at = 8;
    std::vector<std::string> types;
    std::vector<unsigned char> packed;
    while (at + 12 <= png.size()) {
        const std::uint32_t length = BigEndian(png, at);
        ASSERT_LE(at + 12 + length, png.size());
        const std::string type(png.begin() + at + 4, png.begin() + at + 8);
        types.push_back(type);
        const uLong crc = crc32(0L, png.data() + at + 4, 4 + length);
        EXPECT_EQ(BigEndian(png, at + 8 + length), crc) << type;
        if (type == "IHDR") {
            EXPECT_EQ(BigEndian(png, at + 8), 48u);
            EXPECT_EQ(BigEndian(png, at + 12), 48u);
            EXPECT_EQ(png[at + 16], 8);  // bit depth
            EXPECT_EQ(png[at + 17], 6);  // RGBA
        }
        if (type == "IDAT")
            packed.insert(packed.end(), png.begin() + at + 8, png.begin() + at + 8 + length);
        at += 12 + length;
    }
    EXPECT_EQ(at, png.size());
    EXPECT_EQ(types, (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
    std::vector<unsigned char> raw(48 * (1 + 48 * 4) + 1);
    uLongf rawSize = raw.size();
    ASSERT_EQ(uncompress(raw.data(), &rawSize, packed.data(), packed.size()), Z_OK);
    EXPECT_EQ(rawSize, 48u * (1 + 48 * 4));
}

// --- Configuration ---

TEST(StampConfiguration, FromTheFilterParameters) {
    const fs::path dir = WorkDir("stamp_config");
    std::ofstream(dir / "notes.txt") << "text";
    std::ofstream(dir / "empty.png");
    const std::vector<unsigned char> png = StampFilter::MakeStampImage();
    const HRESULT notFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    const struct {
        const char* name;
        std::string file;
        std::wstring uri;
        HRESULT expected;
        std::string result;  // the resource's bytes, or the reason given for the failure
        std::wstring resourceUri = L"";
        bool font = false;
    } rows[] = {
        {"default", "", L"", S_OK, {png.begin(), png.end()}, L"/Resources/Stamp/stamp.png"},
        {"font", kDejaVu, L"/Resources/Fonts/stamp.ttf", S_OK, toolrunner::ReadFile(kDejaVu),
         L"/Resources/Fonts/stamp.ttf", true},
        {"not_an_image", (dir / "notes.txt").string(), L"", E_INVALIDARG, "neither an image"},
        {"missing", (dir / "missing.png").string(), L"", notFound, "cannot be opened"},
        {"empty", (dir / "empty.png").string(), L"", E_INVALIDARG, "is empty"},
        {"relative", "", L"Resources/relative.png", E_INVALIDARG, "not an absolute part name"},
        {"dot_dot", "", L"/Resources/../up.png", E_INVALIDARG, "not an absolute part name"},
        {"space", "", L"/Resources/sp ace.png", E_INVALIDARG, "not an absolute part name"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeJob job;
        if (!row.file.empty()) job.SetParameter(L"File", platform::Utf8ToWide(row.file).c_str());
        if (!row.uri.empty()) job.SetParameter(L"Uri", row.uri.c_str());
        CComPtr<StampFilter> filter = Make<StampFilter>();
        platform::DebugOutputCapture capture;
        ASSERT_EQ(job.Initialize(filter), row.expected);
        if (FAILED(row.expected)) {
            EXPECT_NE(capture.Text().find(row.result), std::string::npos) << capture.Text();
            continue;
        }
        EXPECT_EQ(filter->ResourceUri(), row.resourceUri);
        EXPECT_EQ(std::string(filter->ResourceBytes().begin(), filter->ResourceBytes().end()),
                  row.result);
        EXPECT_TRUE(filter->GetPartInterfaceId() == (row.font ? IID_IPartFont : IID_IPartImage));
        CComBSTR key;
        ASSERT_EQ(filter->GetKeyName(&key), S_OK);
        EXPECT_EQ(platform::WideToUtf8(key.m_str),
                  "stamp:" + platform::WideToUtf8(row.resourceUri));
        EXPECT_EQ(filter->GetKeyName(nullptr), E_POINTER);
        EXPECT_EQ(filter->GetResourceUri(nullptr), E_POINTER);
    }
}

// --- A walk over fake pages ---

TEST(StampFilterObject, WritesTheResourceOnceAndAttachesItToEveryPage) {
    FakeJob job;
    std::vector<CComPtr<fakes::Page>> pages;
    for (int i = 0; i < 4; ++i) {
        pages.push_back(Make<fakes::Page>());
        job.provider->parts.push_back(static_cast<IFixedPage*>(pages.back().p));
    }
    CComPtr<IPrintPipelineFilter> filter;
    ASSERT_EQ(CreateStampFilter(&filter), S_OK);
    ASSERT_EQ(job.Run(filter), S_OK);
    EXPECT_EQ(job.consumer->sent.size(), 4u);
    ASSERT_EQ(job.consumer->newPartCalls, 1);
    const std::vector<unsigned char> png = StampFilter::MakeStampImage();
    EXPECT_EQ(job.consumer->newStreams[0]->bytes, std::string(png.begin(), png.end()));
    EXPECT_TRUE(job.consumer->newStreams[0]->closed);
    for (const auto& page : pages) {
        ASSERT_EQ(page->resources.size(), 1u);
        EXPECT_TRUE(CComPtr<IUnknown>(page->resources[0]).IsEqualObject(job.consumer->newParts[0]));
    }
}

TEST(StampFilterObject, APageThatRefusesTheResourceStopsTheJob) {
    FakeJob job;
    auto page = Make<fakes::Page>();
    page->failSetPagePart = true;
    job.provider->parts = {static_cast<IFixedPage*>(page.p)};
    CComPtr<IPrintPipelineFilter> filter;
    ASSERT_EQ(CreateStampFilter(&filter), S_OK);
    EXPECT_EQ(job.Run(filter), E_ACCESSDENIED);
    EXPECT_EQ(job.control->shutdownReasons, std::vector<HRESULT>{E_ACCESSDENIED});
    EXPECT_TRUE(job.consumer->sent.empty());
}

// --- Whole jobs through xpsfilter ---

TEST(StampJobs, AFontIsWrittenOnceForEveryPageOfAMultiPageJob) {
    const std::string input = testpackages::CorpusFile("winprintrs_data.xps");
    const JobRun run = RunFilters(
        "stamp_font", input,
        {{"name=\"stamp\" dll=\"" + ModulePath("stamp") + "\"", {{"File", kDejaVu}}}});
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 4u);
    for (const std::string& page : pages) {
        EXPECT_EQ(package.ResourceLinks(page, "/Resources/Stamp/DejaVuSans.ttf"), 1) << page;
    }
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/DejaVuSans.ttf"), 1);
    EXPECT_EQ(package.Part("/Resources/Stamp/DejaVuSans.ttf"), toolrunner::ReadFile(kDejaVu));
}

TEST(StampJobs, TwoStampsOfOneJobAreTwoParts) {
    const JobRun run = RunFilters(
        "stamp_two", testpackages::CorpusFile("tika_testPPT.xps"),
        {{"name=\"one\" builtin=\"stamp\"", {}},
         {"name=\"two\" builtin=\"stamp\"", {{"Uri", "/Resources/Stamp/second.png"}}}});
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/stamp.png"), 1);
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/second.png"), 1);
    EXPECT_EQ(package.Part("/Resources/Stamp/second.png"),
              package.Part("/Resources/Stamp/stamp.png"));
}

}  // namespace
