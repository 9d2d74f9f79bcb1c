// Tests of the xpsfilter command: bad input gives a clear message, its own exit code and no
// output file. (Real jobs through every sample pipeline: realjobs_test.cpp.)
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

#include "../filters/outputpackage.h"
#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

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
    } else if (name == "ticketprefix") {
        // A name under a prefix the ticket never declares: namespace-aware readers reject it.
        job[6].content =
            "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/"
            "08/printing/printschemaframework\"><q:Feature/></psf:PrintTicket>";
        write(job);
    } else if (name == "emptysource") {
        job.back().content = Document({"Pages/1.fpage", ""});
        write(job);
    } else if (name == "foldersource") {
        job.back().content = Document({"Pages/"});
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
    ExpectContains(run.output, {GetParam().message});
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
                      BadInput{"missingpage", 5, "missing from the package"},
                      BadInput{"ticketprefix", 5,
                               "/Metadata/Doc_PT.xml: the PrintTicket is not well-formed"},
                      BadInput{"emptysource", 5, "has an empty reference \"\""},
                      BadInput{"foldersource", 5, "has a folder reference \"Pages/\""}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return info.param.name; });

// Jobs XPS readers print though they are unusual: the job goes through with exit 0, says on
// stderr what it noticed, and writes a package whose content types cover every part.
struct OddJob {
    const char* name;
    const char* warning;  // "" when none is expected
    int pages;
};

void PrintTo(const OddJob& job, std::ostream* out) {
    *out << job.name;
}

std::vector<testpackages::Entry> MakeOddJob(const std::string& name) {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(2);
    auto find = [&](const std::string& part) -> Entry& {
        for (Entry& entry : job) {
            if (entry.name == part) return entry;
        }
        job.push_back({part, {}});
        return job.back();
    };
    if (name == "twotickets") {
        find("Documents/1/Pages/_rels/1.fpage.rels").content = Rels(
            {{kTicketRel, "../Metadata/Page_PT.xml"}, {kTicketRel, "../Metadata/Other_PT.xml"}});
        find("Documents/1/Metadata/Other_PT.xml").content = Ticket("other");
    } else if (name == "emptydocument") {
        find("FixedDocumentSequence.fdseq").content =
            Sequence({"Documents/1/FixedDocument.fdoc", "Documents/2/FixedDocument.fdoc"});
        find("Documents/2/FixedDocument.fdoc").content = Document({});
    } else if (name == "emptysequence") {
        find("FixedDocumentSequence.fdseq").content = Sequence({});
    } else if (name == "untyped") {
        // An image whose extension [Content_Types].xml does not cover.
        find("Documents/1/Pages/1.fpage").content = Page(
            "<Path Data=\"M 0,0 L 10,0 10,10 Z\"><Path.Fill><ImageBrush "
            "ImageSource=\"../Resources/photo.wdp\" Viewbox=\"0,0,1,1\" "
            "Viewport=\"0,0,10,10\" ViewboxUnits=\"Absolute\" ViewportUnits=\"Absolute\"/>"
            "</Path.Fill></Path>");
        find("Documents/1/Pages/_rels/1.fpage.rels").content = Rels(
            {{kTicketRel, "../Metadata/Page_PT.xml"}, {kResourceRel, "../Resources/photo.wdp"}});
        find("Documents/1/Resources/photo.wdp").content = "not really an image";
    } else if (name == "defaultnamespace") {
        // The framework namespace as the default namespace of a page ticket.
        find("Documents/1/Metadata/Page_PT.xml").content =
            "<PrintTicket xmlns=\"http://schemas.microsoft.com/windows/2003/08/printing/"
            "printschemaframework\" xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/"
            "printing/printschemakeywords\" version=\"1\"><Feature name=\"psk:PageMediaSize\">"
            "<Option name=\"psk:ISOA5\"/></Feature></PrintTicket>";
    }
    return job;
}

// The parts of a package that its [Content_Types].xml gives no type.
std::vector<std::string> UntypedParts(const std::vector<testpackages::Item>& items) {
    std::string types;
    for (const auto& item : items) {
        if (item.name == "[Content_Types].xml") types = item.content;
    }
    std::vector<std::string> untyped;
    for (const auto& item : items) {
        if (item.name == "[Content_Types].xml") continue;
        const std::string extension = item.name.substr(item.name.rfind('.') + 1);
        if (types.find("Extension=\"" + extension + "\"") == std::string::npos &&
            types.find("PartName=\"/" + item.name + "\"") == std::string::npos) {
            untyped.push_back(item.name);
        }
    }
    return untyped;
}

class OddJobs : public ::testing::TestWithParam<OddJob> {};

TEST_P(OddJobs, GoThroughEveryPipelineSayingWhatWasOdd) {
    const OddJob& row = GetParam();
    const fs::path dir = WorkDir(std::string("odd_") + row.name);
    const std::string input =
        testpackages::WriteZip(std::string(row.name) + ".xps", MakeOddJob(row.name));
    // Two page-rewriting filters in a row, as when a driver chains its filter after a vendor's.
    const std::string pipeline = (dir / "pipeline.xml").string();
    std::ofstream(pipeline) << "<Filters>"
                               "<Filter name=\"first\" builtin=\"setticket\">"
                               "<Parameter name=\"PageOrientation\" value=\"Landscape\"/></Filter>"
                               "<Filter name=\"second\" builtin=\"setticket\">"
                               "<Parameter name=\"PageMediaSize\" value=\"ISOA4\"/></Filter>"
                               "</Filters>";
    for (const std::string& chosen : {std::string(), pipeline}) {
        SCOPED_TRACE(chosen.empty() ? "pass-through" : "two setticket filters");
        const std::string output = (dir / "out.xps").string();
        std::vector<std::string> args = {"run", "-q"};
        if (!chosen.empty()) args.insert(args.end(), {"--pipeline", chosen});
        args.insert(args.end(), {input, output});
        const Outcome run = RunTool(args);
        ASSERT_EQ(run.exitCode, 0) << run.output;
        if (*row.warning != '\0') {
            ExpectContains(run.output, {row.warning});
        } else {
            EXPECT_EQ(run.output.find("warning"), std::string::npos) << run.output;
        }
        const std::vector<testpackages::Item> items = testpackages::ReadZip(output);
        EXPECT_TRUE(UntypedParts(items).empty()) << UntypedParts(items).front();
        int pages = 0;
        for (const auto& item : items) pages += item.name.ends_with(".fpage") ? 1 : 0;
        EXPECT_EQ(pages, row.pages);
        if (!chosen.empty() && row.pages > 0) {
            // The second page's ticket, rewritten twice, says what both filters set.
            const outputpackage::Package package(output);
            const std::string ticket =
                package.Part(package.TicketOf("/Documents/1/Pages/2.fpage"));
            ASSERT_FALSE(ticket.empty());
            std::ofstream(dir / "page2.xml", std::ios::binary) << ticket;
            const Outcome show = RunTool({"ticket", "show", (dir / "page2.xml").string()});
            EXPECT_EQ(show.exitCode, 0) << show.output;
            ExpectContains(show.output, {"PageOrientation", "ISOA4"});
        }
        fs::remove(output);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Jobs, OddJobs,
    ::testing::Values(OddJob{"twotickets", "has more than one PrintTicket", 2},
                      OddJob{"emptydocument", "Documents/2/FixedDocument.fdoc lists no pages", 2},
                      OddJob{"emptysequence", "lists no documents", 0}, OddJob{"untyped", "", 2},
                      OddJob{"defaultnamespace", "", 2}),
    [](const ::testing::TestParamInfo<OddJob>& info) { return info.param.name; });

// The command line, bad pipeline and ticket files, and the summary of a successful run.
TEST(XpsFilterCommand, CommandLineFilesAndSummary) {
    const fs::path dir = WorkDir("command");
    const std::string input = testpackages::WriteZip("command_job.xps", testpackages::SmallJob(3));
    const std::string output = (dir / "out.xps").string();
    const std::string unknown = (dir / "unknown.xml").string();
    std::ofstream(unknown) << "<Filters><Filter name=\"x\" builtin=\"nope\"/></Filters>";
    const std::string broken = (dir / "ticket.xml").string();
    std::ofstream(broken) << "<psf:PrintTicket";
    const std::string two = (dir / "two.xml").string();
    std::ofstream(two) << "<Filters><Filter name=\"one\" builtin=\"passthrough\"/>"
                          "<Filter name=\"two\" builtin=\"passthrough\"/></Filters>";
    const struct {
        const char* name;
        std::vector<std::string> args;
        int exitCode;
        std::string contains;
        bool writes = false;  // whether the output is written
    } rows[] = {
        {"version", {"--version"}, 0, "xpsfilter "},
        {"help", {"run", "--help"}, 0, "--pipeline"},
        {"no_command", {}, 2, ""},
        {"one_file", {"run", "only-one-argument.xps"}, 2, ""},
        {"unknown_command", {"frobnicate"}, 2, ""},
        {"unknown_filter", {"run", "--pipeline", unknown, input, output}, 8,
         "no built-in filter \"nope\""},
        {"broken_ticket", {"run", "--ticket", broken, input, output}, 7, ""},
        {"summary",
         {"run", "--pipeline", two, "--ticket",
          std::string(FU_SOURCE_DIR) + "/samples/default_ticket.xml", input, output},
         0, "3 pages through 2 filters", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(output);
        const Outcome run = RunTool(row.args);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.output;
        ExpectContains(run.output, {row.contains});
        EXPECT_EQ(fs::exists(output), row.writes);
    }

    // --json: the same run as one object, each filter with what the host recorded for it.
    const Outcome json = Shell(Quote(Tool()) + " run -q --json --pipeline " + Quote(two) + " " +
                               Quote(input) + " " + Quote(output) + " | python3 -c " +
                               Quote("import json, sys\nd = json.load(sys.stdin)\n"
                                     "print(d['pages'], [(f['name'], f['startResult'], "
                                     "f['filterFinishedCalls']) for f in d['filters']], "
                                     "len(d['queueHighWater']))"));
    EXPECT_EQ(json.exitCode, 0) << json.output;
    EXPECT_EQ(json.output, "3 [('one', '0x00000000', 1), ('two', '0x00000000', 1)] 1\n");
}

}  // namespace
