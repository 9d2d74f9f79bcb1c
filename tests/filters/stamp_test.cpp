// Tests of the stamp sample filter: the PNG it draws, its configuration, a walk over fake pages
// in which the resource is written once and attached to every page, and real jobs whose output
// holds the part once and renders as before.
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

std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
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

HRESULT Configure(FakeJob& job, CComPtr<StampFilter>& filter) {
    filter.Attach(new StampFilter());
    return job.Initialize(filter);
}

TEST(StampConfiguration, DefaultsToTheDrawnPng) {
    FakeJob job;
    CComPtr<StampFilter> filter;
    ASSERT_EQ(Configure(job, filter), S_OK);
    EXPECT_EQ(filter->ResourceUri(), L"/Resources/Stamp/stamp.png");
    EXPECT_EQ(filter->ResourceBytes(), StampFilter::MakeStampImage());
    EXPECT_TRUE(filter->GetPartInterfaceId() == IID_IPartImage);
    CComBSTR key;
    ASSERT_EQ(filter->GetKeyName(&key), S_OK);
    EXPECT_TRUE(key == L"stamp:/Resources/Stamp/stamp.png");
    EXPECT_EQ(filter->GetKeyName(nullptr), E_POINTER);
    EXPECT_EQ(filter->GetResourceUri(nullptr), E_POINTER);
}

TEST(StampConfiguration, AFontFileBecomesAFontPart) {
    FakeJob job;
    job.SetParameter(L"File", platform::Utf8ToWide(kDejaVu).c_str());
    job.SetParameter(L"Uri", L"/Resources/Fonts/stamp.ttf");
    CComPtr<StampFilter> filter;
    ASSERT_EQ(Configure(job, filter), S_OK);
    EXPECT_TRUE(filter->GetPartInterfaceId() == IID_IPartFont);
    EXPECT_EQ(filter->ResourceUri(), L"/Resources/Fonts/stamp.ttf");
    const std::string bytes = FileBytes(kDejaVu);
    EXPECT_EQ(std::string(filter->ResourceBytes().begin(), filter->ResourceBytes().end()), bytes);
}

TEST(StampConfiguration, BadParametersFailInitialisationAndSayWhy) {
    const fs::path dir = WorkDir("stamp_config");
    std::ofstream(dir / "notes.txt") << "text";
    std::ofstream(dir / "empty.png");
    struct Case {
        std::string file;
        std::wstring uri;
        HRESULT expected;
        const char* reason;
    };
    for (const Case& bad :
         {Case{(dir / "notes.txt").string(), L"", E_INVALIDARG, "neither an image"},
          Case{(dir / "missing.png").string(), L"", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
               "cannot be opened"},
          Case{(dir / "empty.png").string(), L"", E_INVALIDARG, "is empty"},
          Case{"", L"Resources/relative.png", E_INVALIDARG, "not an absolute part name"},
          Case{"", L"/Resources/../up.png", E_INVALIDARG, "not an absolute part name"},
          Case{"", L"/Resources/sp ace.png", E_INVALIDARG, "not an absolute part name"}}) {
        FakeJob job;
        if (!bad.file.empty()) job.SetParameter(L"File", platform::Utf8ToWide(bad.file).c_str());
        if (!bad.uri.empty()) job.SetParameter(L"Uri", bad.uri.c_str());
        CComPtr<StampFilter> filter;
        platform::DebugOutputCapture capture;
        EXPECT_EQ(Configure(job, filter), bad.expected) << bad.file;
        EXPECT_NE(capture.Text().find(bad.reason), std::string::npos) << capture.Text();
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
    const fs::path dir = WorkDir("stamp_font");
    const std::string output = (dir / "out.xps").string();
    const std::string config = WriteConfig(
        dir, {{"name=\"stamp\" dll=\"" + ModulePath("stamp") + "\"", {{"File", kDejaVu}}}});
    Outcome run = RunTool({"run", "-q", "--pipeline", config, input, output});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    outputpackage::Package package(output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 4u);
    for (const std::string& page : pages) {
        bool attached = false;
        for (const auto& relationship : package.Relationships(page)) {
            attached = attached || (outputpackage::IsResourceRel(relationship.type) &&
                                    relationship.target == "/Resources/Stamp/DejaVuSans.ttf");
        }
        EXPECT_TRUE(attached) << page;
    }
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/DejaVuSans.ttf"), 1);
    EXPECT_EQ(package.Part("/Resources/Stamp/DejaVuSans.ttf"), FileBytes(kDejaVu));

    const std::vector<std::string> expected = toolrunner::Render(input, dir / "in");
    const std::vector<std::string> actual = toolrunner::Render(output, dir / "out");
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_TRUE(actual[i] == expected[i]) << "page " << i + 1 << " differs";
    }
}

TEST(StampJobs, TwoStampsOfOneJobAreTwoParts) {
    const std::string input = testpackages::CorpusFile("tika_testPPT.xps");
    const fs::path dir = WorkDir("stamp_two");
    const std::string output = (dir / "out.xps").string();
    const std::string config = WriteConfig(
        dir, {{"name=\"one\" builtin=\"stamp\"", {}},
              {"name=\"two\" builtin=\"stamp\"", {{"Uri", "/Resources/Stamp/second.png"}}}});
    Outcome run = RunTool({"run", "-q", "--pipeline", config, input, output});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    outputpackage::Package package(output);
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/stamp.png"), 1);
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/second.png"), 1);
    EXPECT_EQ(package.Part("/Resources/Stamp/second.png"),
              package.Part("/Resources/Stamp/stamp.png"));
}

}  // namespace
