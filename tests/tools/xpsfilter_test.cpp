// Tests of the xpsfilter command: bad input gives a clear message, its own exit code and no
// output file. (Real jobs through every sample pipeline: realjobs_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "../filters/outputpackage.h"
#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

// Bad input gives a clear error, its exit code and no output, not even a temporary file. Each
// job is the small job of two pages with one fault.
TEST(BadInputs, GiveAClearErrorTheirExitCodeAndNoOutput) {
    using namespace testpackages;
    using Job = std::vector<Entry>;
    const struct {
        const char* name;
        int exitCode;
        const char* message;
        std::function<void(Job&)> fault;
    } rows[] = {
        {"nostart", 5, "has no start part", [](Job& job) { job[1].content = Rels({}); }},
        {"cyclic", 5, "cyclic",
         [](Job& job) { job[2].content = Sequence({"/FixedDocumentSequence.fdseq"}); }},
        {"dotdot", 5, "\"..\" segment",
         [](Job& job) { job.push_back({"Documents/../../escape.xml", "x"}); }},
        {"pieces", 5, "out of order",
         [](Job& job) {
             job.push_back({"Resources/font.ttf/[1].last.piece", "tail"});
             job.push_back({"Resources/font.ttf/[0].piece", "head"});
         }},
        {"bomb", 6, "above the limit",
         [](Job& job) { job.push_back({"Resources/huge.png", std::string(3 << 20, '\0')}); }},
        {"missingpage", 5, "missing from the package",
         [](Job& job) { job.back().content = Document({"Pages/1.fpage", "Pages/99.fpage"}); }},
        // A name under a prefix the ticket never declares: namespace-aware readers reject it.
        {"ticketprefix", 5, "/Metadata/Doc_PT.xml: the PrintTicket is not well-formed",
         [](Job& job) {
             job[6].content =
                 "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/"
                 "08/printing/printschemaframework\"><q:Feature/></psf:PrintTicket>";
         }},
        {"emptysource", 5, "has an empty reference \"\"",
         [](Job& job) { job.back().content = Document({"Pages/1.fpage", ""}); }},
        {"foldersource", 5, "has a folder reference \"Pages/\"",
         [](Job& job) { job.back().content = Document({"Pages/"}); }},
        // Files that are not packages: missing, not a ZIP, a truncated ZIP.
        {"missing", 3, "cannot open", nullptr},
        {"notzip", 4, "is not a ZIP archive", nullptr},
        {"truncated", 4, "truncated or damaged ZIP", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path dir = WorkDir(std::string("bad_") + row.name);
        const std::string input = (dir / "in.xps").string();
        Job job = SmallJob(2);
        if (row.fault) row.fault(job);
        const std::string name = row.name;
        if (name == "notzip") {
            std::ofstream(input) << "%PDF-1.4 this is not a ZIP archive\n";
        } else if (name != "missing") {
            fs::copy_file(WriteZip(name + ".xps", job), input);
            if (name == "truncated") fs::resize_file(input, fs::file_size(input) / 2);
        }
        const std::string output = (dir / "out.xps").string();
        const Outcome run = RunTool({"run", "--max-part-size", "1", input, output});
        EXPECT_EQ(run.exitCode, row.exitCode) << run.output;
        ExpectContains(run.output, {row.message});
        EXPECT_TRUE(NothingLeftOf(output));
    }
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

// Jobs XPS readers print though they are unusual: the job goes through with exit 0, says on
// stderr what it noticed, and writes a package whose content types cover every part. Each job is
// the small job of two pages with some parts replaced or added.
TEST(OddJobs, GoThroughEveryPipelineSayingWhatWasOdd) {
    using namespace testpackages;
    const struct {
        const char* name;
        const char* warning;  // "" when none is expected
        int pages;
        std::vector<std::pair<std::string, std::string>> parts;
    } rows[] = {
        {"twotickets", "has more than one PrintTicket", 2,
         {{"Documents/1/Pages/_rels/1.fpage.rels",
           Rels({{kTicketRel, "../Metadata/Page_PT.xml"},
                 {kTicketRel, "../Metadata/Other_PT.xml"}})},
          {"Documents/1/Metadata/Other_PT.xml", Ticket("other")}}},
        {"emptydocument", "Documents/2/FixedDocument.fdoc lists no pages", 2,
         {{"FixedDocumentSequence.fdseq",
           Sequence({"Documents/1/FixedDocument.fdoc", "Documents/2/FixedDocument.fdoc"})},
          {"Documents/2/FixedDocument.fdoc", Document({})}}},
        {"emptysequence", "lists no documents", 0,
         {{"FixedDocumentSequence.fdseq", Sequence({})}}},
        // An image whose extension [Content_Types].xml does not cover.
        {"untyped", "", 2,
         {{"Documents/1/Pages/1.fpage",
           Page("<Path Data=\"M 0,0 L 10,0 10,10 Z\"><Path.Fill><ImageBrush "
                "ImageSource=\"../Resources/photo.wdp\" Viewbox=\"0,0,1,1\" "
                "Viewport=\"0,0,10,10\" ViewboxUnits=\"Absolute\" ViewportUnits=\"Absolute\"/>"
                "</Path.Fill></Path>")},
          {"Documents/1/Pages/_rels/1.fpage.rels",
           Rels({{kTicketRel, "../Metadata/Page_PT.xml"},
                 {kResourceRel, "../Resources/photo.wdp"}})},
          {"Documents/1/Resources/photo.wdp", "not really an image"}}},
        // The framework namespace as the default namespace of a page ticket.
        {"defaultnamespace", "", 2,
         {{"Documents/1/Metadata/Page_PT.xml",
           "<PrintTicket xmlns=\"http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemaframework\" xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/"
           "printing/printschemakeywords\" version=\"1\"><Feature name=\"psk:PageMediaSize\">"
           "<Option name=\"psk:ISOA5\"/></Feature></PrintTicket>"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<Entry> job = SmallJob(2);
        for (const auto& [name, content] : row.parts) {
            auto found = std::find_if(job.begin(), job.end(),
                                      [&](const Entry& entry) { return entry.name == name; });
            if (found == job.end()) found = job.insert(job.end(), {name, {}});
            found->content = content;
        }
        const std::string input = WriteZip(std::string(row.name) + ".xps", job);
        const fs::path dir = WorkDir(std::string("odd_") + row.name);
        // Two page-rewriting filters in a row, as a driver chains its filter after a vendor's.
        const std::string pipeline = (dir / "pipeline.xml").string();
        std::ofstream(pipeline)
            << "<Filters><Filter name=\"first\" builtin=\"setticket\"><Parameter "
               "name=\"PageOrientation\" value=\"Landscape\"/></Filter><Filter name=\"second\" "
               "builtin=\"setticket\"><Parameter name=\"PageMediaSize\" value=\"ISOA4\"/>"
               "</Filter></Filters>";
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
                const std::string ticket = package.TicketXml("/Documents/1/Pages/2.fpage");
                ASSERT_FALSE(ticket.empty());
                std::ofstream(dir / "page2.xml", std::ios::binary) << ticket;
                const Outcome show = RunTool({"ticket", "show", (dir / "page2.xml").string()});
                EXPECT_EQ(show.exitCode, 0) << show.output;
                ExpectContains(show.output, {"PageOrientation", "ISOA4"});
            }
            fs::remove(output);
        }
    }
}

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
