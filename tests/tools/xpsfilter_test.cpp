// Tests of the xpsfilter command: every corpus job goes through the pass-through pipeline and
// renders, with MuPDF, pixel-identically to its input; bad input gives a clear message, its own
// exit code and no output file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

std::vector<std::string> CorpusJobs() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(std::string(FU_CORPUS_DIR) + "/xps")) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    names.push_back("samples/sample_job.xps");
    return names;
}

class CorpusRoundTrip : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusRoundTrip, PassThroughOutputRendersLikeTheInput) {
    std::string name = GetParam();
    std::string input = name.rfind("samples/", 0) == 0 ? std::string(FU_SOURCE_DIR) + "/" + name
                                                       : testpackages::CorpusFile(name);
    fs::path dir = WorkDir(fs::path(name).filename().string());
    std::string output = (dir / "out.xps").string();
    Outcome run = RunTool({"run", "-q", input, output});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    std::string reference = MuPdfMisreadsContainer(name) ? Repack(input, dir) : input;
    std::vector<std::string> expected = Render(reference, dir / "in");
    std::vector<std::string> actual = Render(output, dir / "out");
    ASSERT_FALSE(expected.empty()) << "MuPDF cannot render " << reference;
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_TRUE(actual[i] == expected[i]) << "page " << i + 1 << " differs";
    }
    fs::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTrip, ::testing::ValuesIn(CorpusJobs()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name;
                             for (char c : info.param) name += std::isalnum(c) ? c : '_';
                             return name;
                         });

struct BadInput {
    const char* name;
    int exitCode;
    const char* message;
};

std::string MakeBadInput(const std::string& name, const fs::path& dir) {
    using namespace testpackages;
    std::string path = (dir / (name + ".xps")).string();
    auto write = [&](const std::vector<Entry>& entries) {
        fs::copy_file(WriteZip(name + ".xps", entries), path, fs::copy_options::overwrite_existing);
    };
    std::vector<Entry> job = SmallJob(2);
    if (name == "missing") return (dir / "does-not-exist.xps").string();
    if (name == "notzip") {
        std::ofstream(path) << "%PDF-1.4 this is not a ZIP archive\n";
    } else if (name == "truncated") {
        write(job);
        fs::resize_file(path, fs::file_size(path) / 2);
    } else if (name == "nostart") {
        job[1].content = Rels({});
        write(job);
    } else if (name == "cyclic") {
        job[2].content = Sequence({"/FixedDocumentSequence.fdseq"});
        write(job);
    } else if (name == "dotdot") {
        job.push_back({"Documents/../../escape.xml", "x"});
        write(job);
    } else if (name == "pieces") {
        job.push_back({"Resources/font.ttf/[1].last.piece", "tail"});
        job.push_back({"Resources/font.ttf/[0].piece", "head"});
        write(job);
    } else if (name == "bomb") {
        job.push_back({"Resources/huge.png", std::string(3 << 20, '\0')});
        write(job);
    } else if (name == "missingpage") {
        job.back().content = Document({"Pages/1.fpage", "Pages/99.fpage"});
        write(job);
    }
    return path;
}

class BadInputs : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputs, GiveAClearErrorTheirExitCodeAndNoOutput) {
    fs::path dir = WorkDir(std::string("bad_") + GetParam().name);
    std::string input = MakeBadInput(GetParam().name, dir);
    std::string output = (dir / "out.xps").string();
    Outcome run = RunTool({"run", "--max-part-size", "1", input, output});
    EXPECT_EQ(run.exitCode, GetParam().exitCode) << run.output;
    EXPECT_NE(run.output.find(GetParam().message), std::string::npos) << run.output;
    EXPECT_FALSE(fs::exists(output));
    for (const auto& entry : fs::directory_iterator(dir)) {
        EXPECT_EQ(entry.path().filename().string().rfind(".out.xps", 0), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Jobs, BadInputs,
    ::testing::Values(BadInput{"missing", 3, "cannot open"},
                      BadInput{"notzip", 4, "is not a ZIP archive"},
                      BadInput{"truncated", 4, "truncated or damaged ZIP"},
                      BadInput{"nostart", 5, "has no start part"}, BadInput{"cyclic", 5, "cyclic"},
                      BadInput{"dotdot", 5, "\"..\" segment"},
                      BadInput{"pieces", 5, "out of order"}, BadInput{"bomb", 6, "above the limit"},
                      BadInput{"missingpage", 5, "missing from the package"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return info.param.name; });

TEST(XpsFilterCommand, ReportsItsVersionAndUsage) {
    Outcome version = RunTool({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_NE(version.output.find("xpsfilter "), std::string::npos);
    Outcome help = RunTool({"run", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.output.find("--pipeline"), std::string::npos);
    EXPECT_EQ(RunTool({}).exitCode, 2);
    EXPECT_EQ(RunTool({"run", "only-one-argument.xps"}).exitCode, 2);
    EXPECT_EQ(RunTool({"frobnicate"}).exitCode, 2);
}

TEST(XpsFilterCommand, BadPipelineAndTicketFilesHaveTheirOwnExitCodes) {
    fs::path dir = WorkDir("config");
    std::string input = testpackages::WriteZip("config_job.xps", testpackages::SmallJob(1));
    std::ofstream(dir / "pipeline.xml")
        << "<Filters><Filter name=\"x\" builtin=\"nope\"/></Filters>";
    Outcome run = RunTool(
        {"run", "--pipeline", (dir / "pipeline.xml").string(), input, (dir / "out.xps").string()});
    EXPECT_EQ(run.exitCode, 8) << run.output;
    EXPECT_NE(run.output.find("no built-in filter \"nope\""), std::string::npos) << run.output;
    std::ofstream(dir / "ticket.xml") << "<psf:PrintTicket";
    run = RunTool(
        {"run", "--ticket", (dir / "ticket.xml").string(), input, (dir / "out.xps").string()});
    EXPECT_EQ(run.exitCode, 7) << run.output;
    EXPECT_FALSE(fs::exists(dir / "out.xps"));
}

TEST(XpsFilterCommand, SummarisesASuccessfulRun) {
    fs::path dir = WorkDir("summary");
    std::string input = testpackages::WriteZip("summary_job.xps", testpackages::SmallJob(3));
    std::ofstream(dir / "pipeline.xml")
        << "<Filters><Filter name=\"one\" builtin=\"passthrough\"/>"
           "<Filter name=\"two\" builtin=\"passthrough\"/></Filters>";
    Outcome run = RunTool({"run", "--pipeline", (dir / "pipeline.xml").string(), "--ticket",
                           std::string(FU_SOURCE_DIR) + "/samples/default_ticket.xml", input,
                           (dir / "out.xps").string()});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("3 pages through 2 filters"), std::string::npos) << run.output;
    EXPECT_TRUE(fs::exists(dir / "out.xps"));
}

// --json: the same run as one object, each filter with what the host recorded for it.
TEST(XpsFilterCommand, SummarisesARunAsJson) {
    fs::path dir = WorkDir("summary_json");
    std::string input = testpackages::WriteZip("summary_json.xps", testpackages::SmallJob(3));
    std::ofstream(dir / "pipeline.xml")
        << "<Filters><Filter name=\"one\" builtin=\"passthrough\"/>"
           "<Filter name=\"two\" builtin=\"passthrough\"/></Filters>";
    Outcome run = Shell(Quote(Tool()) + " run -q --json --pipeline " +
                        Quote((dir / "pipeline.xml").string()) + " " + Quote(input) + " " +
                        Quote((dir / "out.xps").string()) + " | python3 -c " +
                        Quote("import json, sys\nd = json.load(sys.stdin)\n"
                              "print(d['pages'], [(f['name'], f['startResult'], "
                              "f['filterFinishedCalls']) for f in d['filters']], "
                              "len(d['queueHighWater']))"));
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(run.output, "3 [('one', '0x00000000', 1), ('two', '0x00000000', 1)] 1\n");
}

}  // namespace
