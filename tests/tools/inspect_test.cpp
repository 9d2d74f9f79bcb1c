// Tests of `xpsfilter inspect` and `xpsfilter ticket effective`, through the command: a package
// made with known faults, the sample job's three levels of tickets, and every corpus job.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

const std::string kSample = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";

// A job with what inspect must find: pages 1 and 2 share a ticket, page 3's ticket is a copy of
// it in a part of its own, page 2 names a second ticket, page 1 carries an image, one part
// nothing refers to and one without a content type.
std::string FaultyJob() {
    using namespace testpackages;
    std::vector<Entry> job = SmallJob(3);
    for (Entry& entry : job) {
        if (entry.name == "Documents/1/Pages/_rels/1.fpage.rels") {
            entry.content = Rels({{kTicketRel, "../Metadata/Page_PT.xml"},
                                  {kResourceRel, "/Resources/picture.png"}});
        } else if (entry.name == "Documents/1/Pages/_rels/3.fpage.rels") {
            entry.content = Rels({{kTicketRel, "../Metadata/Copy_PT.xml"}});
        } else if (entry.name == "Documents/1/Pages/_rels/2.fpage.rels") {
            entry.content = Rels({{kTicketRel, "../Metadata/Page_PT.xml"},
                                  {kTicketRel, "../Metadata/Second_PT.xml"}});
        }
    }
    job.push_back({"Documents/1/Metadata/Copy_PT.xml", Ticket("page")});
    job.push_back({"Documents/1/Metadata/Second_PT.xml", Ticket("second")});
    job.push_back({"Resources/picture.png", std::string("\x89PNG\r\n\x1a\n", 8)});
    job.push_back({"Resources/orphan.png", std::string("\x89PNG\r\n\x1a\n", 8)});
    job.push_back({"Resources/data.bin", "bytes"});
    return WriteZip("inspect-faulty.xps", job);
}

TEST(InspectCommand, ShowsWhatFiltersGetAndWarnsAboutThePackage) {
    const Outcome inspected = RunTool({"inspect", FaultyJob()});
    ASSERT_EQ(inspected.exitCode, 0) << inspected.output;
    const std::string ticketBytes = std::to_string(testpackages::Ticket("page").size());
    ExpectContains(inspected.output,
                   {"Microsoft XPS, 1 document, 3 pages", "job ticket /Metadata/Job_PT.xml",
                    "document ticket /Metadata/Doc_PT.xml",
                    "Page 1 /Documents/1/Pages/1.fpage  100 x 100 (26.5 x 26.5 mm)",
                    "page ticket /Documents/1/Metadata/Page_PT.xml, " + ticketBytes +
                        " bytes, shared by pages 1, 2",
                    "image /Resources/picture.png  image/png, 8 bytes",
                    "/Documents/1/Metadata/Page_PT.xml: duplicate page ticket, the same bytes as "
                    "/Documents/1/Metadata/Copy_PT.xml",
                    "/Resources/orphan.png: not referenced",
                    "/Documents/1/Pages/2.fpage has more than one PrintTicket",
                    "/Resources/data.bin: no content type"});
    // Parts that are referenced are not reported.
    EXPECT_EQ(inspected.output.find("/Resources/picture.png: "), std::string::npos);
}

// The sample job: the job ticket sets duplex, the document portrait, pages 1 and 3 colour and
// page 2 monochrome landscape; the rest comes from the default ticket. Each line of the merged
// ticket names the level its setting came from.
TEST(EffectiveTicketCommand, NamesTheLevelEachSettingCameFrom) {
    const std::pair<int, const char*> rows[] = {
        {2, "psk:PageOrientation = psk:Landscape  (page)"},
        {1, "psk:PageOrientation = psk:Portrait  (document)"},  // the page has none
        {3, "psk:PageOutputColor = psk:Color  (page)"},         // a shared page ticket
        {3, "psk:JobDuplexAllDocumentsContiguously = psk:OneSided  (job)"},
        {2, "psk:PageMediaSize = psk:ISOA4  (default)"},
        {2, "page      /Documents/1/Metadata/Page2_PT.xml"},  // the sources
    };
    for (const auto& [page, line] : rows) {
        const Outcome effective =
            RunTool({"ticket", "effective", kSample, "--page", std::to_string(page)});
        ASSERT_EQ(effective.exitCode, 0) << effective.output;
        ExpectContains(effective.output, {line});
    }
}

TEST(EffectiveTicketCommand, APageBeyondTheJobIsABadCommandLine) {
    const Outcome beyond = RunTool({"ticket", "effective", kSample, "--page", "4"});
    EXPECT_EQ(beyond.exitCode, 2);
    ExpectContains(beyond.output, {"has 3 pages, no page 4"});
    const Outcome zero = RunTool({"ticket", "effective", kSample, "--page", "0"});
    EXPECT_EQ(zero.exitCode, 2) << zero.output;
}

class CorpusInspection : public ::testing::TestWithParam<std::string> {};

// Every corpus job: both commands print JSON that parses, inspect gives every page its size
// (UTF-8 and UTF-16 markup) and counts the pages `run` sends through a pipeline.
TEST_P(CorpusInspection, JsonParsesAndPagesMatchARun) {
    const std::string input = testpackages::CorpusFile(GetParam());
    const fs::path dir = WorkDir("inspect_" + GetParam());
    const std::string count =
        "python3 -c " + Quote(
                            "import json, sys\nd = json.load(sys.stdin)\n"
                            "pages = [p for doc in d['documents'] for p in doc['pages']]\n"
                            "assert all(p['width'] and p['height'] for p in pages), 'no size'\n"
                            "print(len(pages))");
    const Outcome pages = Shell(Quote(Tool()) + " inspect --json " + Quote(input) + " | " + count);
    ASSERT_EQ(pages.exitCode, 0) << pages.output;
    const Outcome run = RunTool({"run", input, (dir / "out.xps").string()});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    std::string summary = ": " + pages.output.substr(0, pages.output.find('\n')) + " page";
    EXPECT_NE(run.output.find(summary), std::string::npos) << run.output << " vs " << pages.output;

    const Outcome effective =
        Shell(Quote(Tool()) + " ticket effective --json --page 1 " + Quote(input) +
              " | python3 -c " + Quote("import json, sys\nprint(json.load(sys.stdin)['page'])"));
    EXPECT_EQ(effective.exitCode, 0) << effective.output;
    EXPECT_EQ(effective.output, "1\n");
    fs::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusInspection, ::testing::ValuesIn(testpackages::CorpusNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             return testpackages::TestNameOf(info.param);
                         });

}  // namespace
