// Real jobs through every sample pipeline, checked by what reads them next: each corpus package
// and the sample job, as they are and with every page's markup indented (white space between
// all elements, as many producers write it), goes through `xpsfilter run` with the pass-through,
// setticket, stamp and watermark pipelines, and MuPDF renders input and output. The first three
// must render every page identically; the watermark may only add its mark: no pixel with ink in
// the input turns white, and pixels change only inside the mark's box.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

constexpr int kDpi = 36;
constexpr int kFontPoints = 36;  // the watermark's FontHeight

struct JobCase {
    std::string name;  // a corpus file name, or "samples/sample_job.xps"
    bool indented = false;
};

void PrintTo(const JobCase& job, std::ostream* out) {
    *out << job.name << (job.indented ? ", indented" : "");
}

std::vector<JobCase> Cases() {
    std::vector<std::string> names = testpackages::CorpusNames();
    names.push_back("samples/sample_job.xps");
    std::vector<JobCase> cases;
    for (const std::string& name : names) {
        cases.push_back({name, false});
        cases.push_back({name, true});
    }
    return cases;
}

std::string InputPath(const std::string& name) {
    return name.rfind("samples/", 0) == 0 ? std::string(FU_SOURCE_DIR) + "/" + name
                                          : testpackages::CorpusFile(name);
}

// Page markup parsed and written again with every element on a line of its own, indented. Only
// whole .fpage parts are indented (pieces of interleaved parts are not markup on their own).
std::string Indent(const std::string& markup) {
    xmlDocPtr doc = xmlReadMemory(
        markup.data(), static_cast<int>(markup.size()), "page.fpage", nullptr,
        XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return markup;
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc, &text, &size, "UTF-8", 1);
    std::string indented(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    xmlFree(text);
    xmlFreeDoc(doc);
    return indented;
}

std::string IndentedCopy(const std::string& input, const std::string& fileName) {
    std::vector<testpackages::Entry> entries;
    for (testpackages::Item& item : testpackages::ReadZip(input)) {
        const bool page =
            item.name.size() > 6 && item.name.compare(item.name.size() - 6, 6, ".fpage") == 0;
        entries.push_back({item.name, page ? Indent(item.content) : std::move(item.content)});
    }
    return testpackages::WriteZip(fileName, entries);
}

bool White(const unsigned char* pixel) {
    return pixel[0] >= 250 && pixel[1] >= 250 && pixel[2] >= 250;
}

class RealJob : public ::testing::TestWithParam<JobCase> {};

TEST_P(RealJob, EveryPipelineKeepsThePagesAsTheyRender) {
    const JobCase& job = GetParam();
    const fs::path dir = WorkDir("realjob");
    std::string input = InputPath(job.name);
    if (job.indented) input = IndentedCopy(input, "indented.xps");
    ASSERT_FALSE(input.empty());
    // A container MuPDF misreads is compared through its repacked copy (the indented copy is
    // rewritten by libzip already).
    const std::string reference =
        !job.indented && MuPdfMisreadsContainer(job.name) ? Repack(input, dir) : input;
    const std::vector<Image> before = Render(reference, dir / "in", kDpi);
    ASSERT_FALSE(before.empty()) << "MuPDF cannot render " << reference;

    const std::string pipelines = std::string(FU_SOURCE_DIR) + "/samples/pipelines/";
    for (const std::string pipeline : {"", "setticket.xml", "stamp.xml"}) {
        SCOPED_TRACE(pipeline.empty() ? "pass-through" : pipeline);
        const std::string output = (dir / "out.xps").string();
        std::vector<std::string> args = {"run", "-q"};
        if (!pipeline.empty()) args.insert(args.end(), {"--pipeline", pipelines + pipeline});
        args.insert(args.end(), {input, output});
        const Outcome run = RunTool(args);
        ASSERT_EQ(run.exitCode, 0) << run.output;
        const std::vector<Image> after = Render(output, dir / "out", kDpi);
        ASSERT_EQ(after.size(), before.size());
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_TRUE(after[i] == before[i]) << "page " << i + 1 << " renders differently";
        }
        fs::remove_all(dir / "out");
    }

    SCOPED_TRACE("watermark.xml");
    const WatermarkSetup watermark(dir, TextWatermarkIni("DRAFT", kFontPoints));
    ASSERT_TRUE(watermark.made);
    const std::string output = (dir / "marked.xps").string();
    const Outcome run = watermark.Run(input, output);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const std::vector<Image> after = Render(output, dir / "marked", kDpi);
    ASSERT_EQ(after.size(), before.size());
    const double em = kFontPoints * kDpi / 72.0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const Image& a = before[i];
        const Image& b = after[i];
        ASSERT_EQ(a.width, b.width);
        ASSERT_EQ(a.height, b.height);
        // The mark's box: from just left of the centre to the right edge, an em above the
        // baseline at the centre to half an em below it, with a pixel of anti-aliasing.
        const double left = a.width / 2.0 - 2;
        const double top = a.height / 2.0 - 1.1 * em - 1;
        const double bottom = a.height / 2.0 + 0.5 * em + 1;
        int inkLost = 0;
        int outside = 0;
        int inside = 0;
        for (int y = 0; y < a.height; ++y) {
            for (int x = 0; x < a.width; ++x) {
                const unsigned char* p = a.At(x, y);
                const unsigned char* q = b.At(x, y);
                if (!White(p) && White(q)) ++inkLost;
                if (std::equal(p, p + 3, q)) continue;
                ++(x >= left && y >= top && y <= bottom ? inside : outside);
            }
        }
        EXPECT_EQ(inkLost, 0) << "page " << i + 1 << ": content lost under the watermark";
        EXPECT_EQ(outside, 0) << "page " << i + 1 << ": pixels changed outside the watermark";
        EXPECT_GT(inside, 10) << "page " << i + 1 << ": no watermark";
    }
    fs::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Corpus, RealJob, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<JobCase>& info) {
                             return testpackages::TestNameOf(info.param.name) +
                                    (info.param.indented ? "_indented" : "");
                         });

}  // namespace
