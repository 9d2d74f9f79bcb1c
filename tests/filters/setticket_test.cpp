// Tests of the setticket sample filter: reading its configuration, a walk over fake parts in
// which pages share tickets, and real jobs through xpsfilter whose tickets read back with the
// new values at the right scope and whose shared page tickets stay shared.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "filtertesting.h"
#include "filters/setticket/setticketfilter.h"
#include "platform/win32/debugoutput.h"

namespace {

using namespace filtertesting;
using toolrunner::Outcome;
using toolrunner::RunTool;
using toolrunner::WorkDir;

std::string Narrow(const std::wstring& text) {
    return platform::WideToUtf8(text);
}

// --- Configuration ---

// A setting as "keyword scope kind value", e.g. "PageMediaSize 2 feature ISOA4".
std::string Describe(const SetTicketFilter::Setting& setting) {
    using Kind = SetTicketFilter::SettingKind;
    return Narrow(setting.keyword) + " " + std::to_string(setting.scope) +
           (setting.kind == Kind::Feature            ? " feature "
            : setting.kind == Kind::IntegerParameter ? " integer "
                                                     : " string ") +
           Narrow(setting.value);
}

// The scope comes from the keyword's prefix unless Scope overrides it; bad values are refused
// with a reason.
TEST(SetTicketSettings, ReadFromTheFilterParameters) {
    const std::string page = std::to_string(kPTPageScope);
    const std::string document = std::to_string(kPTDocumentScope);
    const std::string jobScope = std::to_string(kPTJobScope);
    const struct {
        const char* name;
        std::vector<std::pair<const wchar_t*, const wchar_t*>> parameters;
        HRESULT expected;
        std::string result;  // the settings, sorted and joined by "; ", or the reason
    } rows[] = {
        {"prefixes",
         {{L"PageMediaSize", L"ISOA4"}, {L"DocumentCollate", L" Collated "},
          {L"JobCopiesAllDocuments", L"002"}, {L"PageWatermarkTextText", L"Draft & <copy>"},
          {L"Unrelated", L"ignored"}},
         S_OK,
         "DocumentCollate " + document + " feature Collated; JobCopiesAllDocuments " + jobScope +
             " integer 2; PageMediaSize " + page + " feature ISOA4; PageWatermarkTextText " +
             page + " string Draft & <copy>"},
        {"scope_overrides",
         {{L"PageOrientation", L"Landscape"}, {L"JobCopiesAllDocuments", L"3"},
          {L"Scope", L"Document"}},
         S_OK,
         "JobCopiesAllDocuments " + document + " integer 3; PageOrientation " + document +
             " feature Landscape"},
        {"bad_scope", {{L"Scope", L"sideways"}}, E_INVALIDARG,
         "Scope must be page, document or job"},
        {"prefixed_option", {{L"PageOrientation", L"psk:Landscape"}}, E_INVALIDARG,
         "option keyword"},
        {"spaced_option", {{L"PageOrientation", L"Land scape"}}, E_INVALIDARG, "option keyword"},
        {"blank_option", {{L"PageOrientation", L"   "}}, E_INVALIDARG, "needs a value"},
        {"negative", {{L"JobCopiesAllDocuments", L"-1"}}, E_INVALIDARG, "whole number"},
        {"word", {{L"JobCopiesAllDocuments", L"two"}}, E_INVALIDARG, "whole number"},
        {"too_large", {{L"JobCopiesAllDocuments", L"99999999999"}}, E_INVALIDARG, "whole number"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeJob job;
        for (const auto& [name, value] : row.parameters) job.SetParameter(name, value);
        std::vector<SetTicketFilter::Setting> settings;
        std::string error;
        EXPECT_EQ(SetTicketFilter::ReadSettings(job.bag, settings, error), row.expected) << error;
        std::vector<std::string> described;
        for (const auto& setting : settings) described.push_back(Describe(setting));
        std::sort(described.begin(), described.end());
        std::string joined;
        for (const std::string& text : described) joined += (joined.empty() ? "" : "; ") + text;
        if (row.expected == S_OK) {
            EXPECT_EQ(joined, row.result);
        } else {
            EXPECT_NE(error.find(row.result), std::string::npos) << error;
            EXPECT_TRUE(settings.empty());
        }
    }
    FakeJob job;
    CComVariant number(7);
    job.bag->AddProperty(L"PageOrientation", &number);
    std::vector<SetTicketFilter::Setting> settings;
    std::string error;
    EXPECT_EQ(SetTicketFilter::ReadSettings(job.bag, settings, error), E_INVALIDARG);
    EXPECT_EQ(SetTicketFilter::ReadSettings(nullptr, settings, error), E_POINTER);
}

// --- A walk over fake parts ---

std::string FakeTicket(const std::string& orientation) {
    return "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
           "printing/printschemakeywords' version='1'><psf:Feature name='psk:PageOrientation'>"
           "<psf:Option name='psk:" +
           orientation + "'/></psf:Feature></psf:PrintTicket>";
}

std::string TicketText(IPartPrintTicket* ticket) {
    CComPtr<IPrintReadStream> stream;
    EXPECT_EQ(ticket->GetStream(&stream), S_OK);
    std::string bytes;
    char buffer[4096];
    ULONG read = 0;
    BOOL eof = FALSE;
    while (SUCCEEDED(stream->ReadBytes(buffer, sizeof buffer, &read, &eof)) && read > 0) {
        bytes.append(buffer, read);
    }
    return bytes;
}

std::wstring UriOf(IPartPrintTicket* ticket) {
    CComBSTR uri;
    ticket->GetUri(&uri);
    return uri.m_str == nullptr ? L"" : uri.m_str;
}

TEST(SetTicketFilterObject, RewritesEachScopeAndKeepsSharedPageTicketsShared) {
    FakeJob job;
    job.SetParameter(L"PageOrientation", L"Landscape");
    job.SetParameter(L"DocumentCollate", L"Collated");
    job.SetParameter(L"JobCopiesAllDocuments", L"2");

    auto sequence = Make<fakes::Sequence>();
    sequence->ticket = fakes::MakeTicket(L"/Metadata/Job_PT.xml", FakeTicket("Portrait"));
    auto document = Make<fakes::Document>();
    auto shared = fakes::MakeTicket(L"/Documents/1/Metadata/Page1_PT.xml", FakeTicket("Portrait"));
    auto first = Make<fakes::Page>();
    first->ticket = shared;
    auto second = Make<fakes::Page>();
    second->ticket = shared;
    auto bare = Make<fakes::Page>();
    job.provider->parts = {static_cast<IFixedDocumentSequence*>(sequence.p),
                           static_cast<IFixedDocument*>(document.p),
                           static_cast<IFixedPage*>(first.p), static_cast<IFixedPage*>(second.p),
                           static_cast<IFixedPage*>(bare.p)};

    CComPtr<IPrintPipelineFilter> filter;
    ASSERT_EQ(CreateSetTicketFilter(&filter), S_OK);
    ASSERT_EQ(job.Run(filter), S_OK);
    EXPECT_EQ(job.consumer->sent,
              (std::vector<std::string>{"sequence", "fixeddocument", "page", "page", "page"}));
    EXPECT_TRUE(job.control->shutdownReasons.empty());

    // The job ticket keeps its name and gains the copy count; its orientation is untouched.
    EXPECT_EQ(UriOf(sequence->ticket), L"/Metadata/Job_PT.xml");
    EXPECT_EQ(ParameterValue(TicketText(sequence->ticket), L"JobCopiesAllDocuments"), "2");
    EXPECT_EQ(FeatureOption(TicketText(sequence->ticket), L"PageOrientation"), "Portrait");

    // The document had no ticket: it gets a new one with only its setting.
    ASSERT_TRUE(document->ticket);
    EXPECT_TRUE(std::regex_match(Narrow(UriOf(document->ticket)),
                                 std::regex(R"(/METADATA/Doc_1_PT_[0-9]+\.xml)")));
    EXPECT_EQ(FeatureOption(TicketText(document->ticket), L"DocumentCollate"), "Collated");
    EXPECT_EQ(FeatureOption(TicketText(document->ticket), L"PageOrientation"), "");

    // The two pages that shared a ticket share the one rewritten part.
    EXPECT_EQ(first->ticket.p, second->ticket.p);
    EXPECT_EQ(UriOf(first->ticket), L"/Documents/1/Metadata/Page1_PT_p.xml");
    EXPECT_EQ(FeatureOption(TicketText(first->ticket), L"PageOrientation"), "Landscape");
    EXPECT_TRUE(std::regex_match(Narrow(UriOf(bare->ticket)),
                                 std::regex(R"(/METADATA/Page_3_PT_[0-9]+\.xml)")));
    EXPECT_EQ(FeatureOption(TicketText(bare->ticket), L"PageOrientation"), "Landscape");

    // Four new ticket parts: job, document, the shared page ticket, the bare page's.
    EXPECT_EQ(job.consumer->newPartCalls, 4);
}

// One page with a ticket through the filter: a bad configuration fails initialisation, no
// settings leave the ticket as it is, a ticket that does not parse stops the job.
TEST(SetTicketFilterObject, BadConfigurationsNoSettingsAndBadTickets) {
    const struct {
        const char* name;
        std::vector<std::pair<const wchar_t*, const wchar_t*>> parameters;
        std::string ticket;
        HRESULT expected;
        const char* said;  // in the debug output
        std::vector<std::string> sent;
    } rows[] = {
        {"bad_configuration", {{L"PageMediaSize", L"ISO A4"}}, FakeTicket("Portrait"),
         E_INVALIDARG, "setticket: PageMediaSize needs an option keyword", {}},
        {"no_settings", {}, FakeTicket("Portrait"), S_OK, "no Print Schema keyword", {"page"}},
        {"unparsable_ticket", {{L"PageOrientation", L"Landscape"}}, "<psf:PrintTicket", E_FAIL, "",
         {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeJob job;
        for (const auto& [name, value] : row.parameters) job.SetParameter(name, value);
        auto page = Make<fakes::Page>();
        auto ticket = fakes::MakeTicket(L"/Metadata/Page_PT.xml", row.ticket);
        page->ticket = ticket;
        job.provider->parts = {static_cast<IFixedPage*>(page.p)};
        CComPtr<IPrintPipelineFilter> filter;
        ASSERT_EQ(CreateSetTicketFilter(&filter), S_OK);
        platform::DebugOutputCapture capture;
        EXPECT_EQ(job.Run(filter), row.expected);
        EXPECT_NE(capture.Text().find(row.said), std::string::npos) << capture.Text();
        EXPECT_EQ(job.consumer->sent, row.sent);
        if (row.expected != E_FAIL) {
            EXPECT_EQ(page->ticket.p, static_cast<IPartPrintTicket*>(ticket.p));
            EXPECT_EQ(job.consumer->newPartCalls, 0);
            continue;
        }
        // The new ticket's stream was closed, not left half written.
        EXPECT_EQ(job.control->shutdownReasons, std::vector<HRESULT>{E_FAIL});
        ASSERT_EQ(job.consumer->newStreams.size(), 1u);
        EXPECT_TRUE(job.consumer->newStreams[0]->closed);
        EXPECT_EQ(job.consumer->closeCalls, 1);
    }
    EXPECT_EQ(CreateSetTicketFilter(nullptr), E_POINTER);
}

// --- Whole jobs through xpsfilter ---

JobRun RunSetTicket(const std::string& name, const std::string& input,
                    const std::vector<std::pair<std::string, std::string>>& parameters,
                    const std::string& attributes = "name=\"st\" builtin=\"setticket\"") {
    return RunFilters("setticket_" + name, input, {{attributes, parameters}});
}

const std::vector<std::pair<std::string, std::string>> kAllScopes = {
    {"PageMediaSize", "ISOA4"}, {"PageOrientation", "Landscape"},
    {"DocumentCollate", "Collated"}, {"JobCopiesAllDocuments", "2"}};

TEST(SetTicketJobs, PagesThatSharedATicketShareTheRewrittenOne) {
    const std::string input = testpackages::CorpusFile("winprintrs_test_document.xps");
    JobRun run = RunSetTicket("shared", input, kAllScopes);
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    ASSERT_TRUE(package.Valid());
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 2u);
    const std::string ticket = package.TicketOf(pages[0]);
    EXPECT_EQ(ticket, "/Documents/1/Metadata/Page1_PT_p.xml");
    EXPECT_EQ(package.TicketOf(pages[1]), ticket);
    EXPECT_EQ(package.ItemCount(ticket), 1);
    EXPECT_EQ(package.ItemCount("/Documents/1/Metadata/Page1_PT.xml"), 0);  // replaced

    const std::string xml = package.Part(ticket);
    EXPECT_EQ(FeatureOption(xml, L"PageMediaSize"), "ISOA4");
    EXPECT_EQ(ScoredValue(xml, L"PageMediaSize", L"MediaSizeWidth"), 210000);
    EXPECT_EQ(ScoredValue(xml, L"PageMediaSize", L"MediaSizeHeight"), 297000);
    EXPECT_EQ(FeatureOption(xml, L"PageOrientation"), "Landscape");
    // What the ticket had besides stays.
    EXPECT_EQ(FeatureOption(xml, L"PageOutputColor"), "Color");
    EXPECT_EQ(FeatureOption(xml, L"DocumentCollate"), "");

    const std::string jobTicket = package.TicketOf(package.SequenceName());
    EXPECT_EQ(jobTicket, "/Metadata/Job_PT.xml");
    EXPECT_EQ(ParameterValue(package.Part(jobTicket), L"JobCopiesAllDocuments"), "2");
    const std::string documentTicket = package.TicketOf(package.Documents().at(0));
    EXPECT_EQ(documentTicket, "/Metadata/MXDC_Empty_PT_d.xml");
    EXPECT_EQ(FeatureOption(package.Part(documentTicket), L"DocumentCollate"), "Collated");
}

TEST(SetTicketJobs, EachScopeReadsBackItsNewValues) {
    const std::string input = testpackages::CorpusFile("wpftest_word.xps");
    JobRun run = RunSetTicket("scopes", input, kAllScopes);
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    const std::string document = package.Documents().at(0);
    const std::string page = package.Pages().at(0);
    const std::string jobXml = package.TicketXml();
    const std::string documentXml = package.TicketXml(document);
    const std::string pageXml = package.TicketXml(page);

    // Page settings in the page ticket only; the job ticket keeps its own orientation.
    EXPECT_EQ(FeatureOption(pageXml, L"PageOrientation"), "Landscape");
    EXPECT_EQ(FeatureOption(pageXml, L"PageMediaSize"), "ISOA4");
    EXPECT_EQ(FeatureOption(jobXml, L"PageOrientation"), "Portrait");
    EXPECT_EQ(FeatureOption(documentXml, L"PageOrientation"), "");
    EXPECT_EQ(FeatureOption(documentXml, L"DocumentCollate"), "Collated");
    EXPECT_EQ(ParameterValue(jobXml, L"JobCopiesAllDocuments"), "2");
    EXPECT_EQ(ParameterValue(pageXml, L"JobCopiesAllDocuments"), "");

    // The library's typed view sees the same at each scope.
    bool found = false;
    EXPECT_EQ(ViewedOrientation(package, document, page, kPTPageScope, &found),
              PrintSchema::PageOrientation::Landscape);
    EXPECT_TRUE(found);
    EXPECT_EQ(ViewedOrientation(package, document, page, kPTJobScope, &found),
              PrintSchema::PageOrientation::Portrait);

    // So does `xpsfilter ticket show`.
    const std::string pageFile = (run.dir / "page_ticket.xml").string();
    std::ofstream(pageFile) << pageXml;
    Outcome shown = RunTool({"ticket", "show", "--json", pageFile});
    ASSERT_EQ(shown.exitCode, 0) << shown.output;
    EXPECT_NE(shown.output.find("\"orientation\": {\"value\": \"Landscape\", \"found\": true}"),
              std::string::npos)
        << shown.output;
    EXPECT_NE(shown.output.find("{\"name\": \"psk:PageMediaSize\", \"value\": \"psk:ISOA4\""),
              std::string::npos)
        << shown.output;
}

TEST(SetTicketJobs, ScopeJobPutsPageSettingsIntoTheJobTicket) {
    const std::string input = testpackages::CorpusFile("wpftest_word.xps");
    JobRun run =
        RunSetTicket("scopejob", input, {{"PageOrientation", "Landscape"}, {"Scope", "job"}});
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    outputpackage::Package original(input);
    const std::string document = package.Documents().at(0);
    const std::string page = package.Pages().at(0);
    EXPECT_EQ(FeatureOption(package.TicketXml(), L"PageOrientation"), "Landscape");
    // The page ticket is the original, unchanged part.
    EXPECT_EQ(package.TicketOf(page), "/Documents/1/Metadata/Page1_PT.xml");
    EXPECT_EQ(package.TicketXml(page), original.TicketXml(page));
    bool found = false;
    EXPECT_EQ(ViewedOrientation(package, document, page, kPTJobScope, &found),
              PrintSchema::PageOrientation::Landscape);
    EXPECT_EQ(ViewedOrientation(package, document, page, kPTPageScope, &found),
              PrintSchema::PageOrientation::Portrait);
}

TEST(SetTicketJobs, PagesSharingATicketApartStayShared) {
    // Pages 1 and 3 share one ticket, page 2 has its own.
    const std::string input = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";
    JobRun run = RunSetTicket("apart", input, {{"PageOrientation", "Landscape"}},
                              "name=\"st\" dll=\"" + ModulePath("setticket") + "\"");
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(package.TicketOf(pages[0]), package.TicketOf(pages[2]));
    EXPECT_NE(package.TicketOf(pages[0]), package.TicketOf(pages[1]));
    for (const std::string& page : pages) {
        EXPECT_EQ(FeatureOption(package.TicketXml(page), L"PageOrientation"), "Landscape") << page;
    }
}

TEST(SetTicketJobs, TicketsWithoutTheKeywordsNamespaceGetItDeclared) {
    // The small job's tickets declare only the framework namespace; its four pages share one.
    const std::string input = testpackages::WriteZip("bare_tickets.xps", testpackages::SmallJob(4));
    JobRun run = RunSetTicket("bare", input, kAllScopes);
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;
    outputpackage::Package package(run.output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 4u);
    const std::string ticket = package.TicketOf(pages[0]);
    for (const std::string& page : pages) EXPECT_EQ(package.TicketOf(page), ticket);
    const std::string xml = package.Part(ticket);
    EXPECT_NE(xml.find("xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
                       "printschemakeywords\""),
              std::string::npos)
        << xml;
    EXPECT_EQ(FeatureOption(xml, L"PageOrientation"), "Landscape");
    EXPECT_EQ(ScoredValue(xml, L"PageMediaSize", L"MediaSizeWidth"), 210000);
    EXPECT_NE(xml.find("<!--page-->"), std::string::npos) << xml;  // the rest is kept
    EXPECT_EQ(ParameterValue(package.TicketXml(), L"JobCopiesAllDocuments"), "2");
}

// A ticket that is not namespace-well-formed and a bad configuration stop the job with a
// message, their exit code and no output, not even a temporary file.
TEST(SetTicketJobs, BadTicketsAndConfigurationsStopTheJobWithoutOutput) {
    std::vector<testpackages::Entry> broken = testpackages::SmallJob(2);
    for (auto& entry : broken) {
        if (entry.name == "Documents/1/Metadata/Page_PT.xml") entry.content = "<psf:PrintTicket";
    }
    const struct {
        const char* name;
        std::string input;
        std::vector<std::pair<std::string, std::string>> parameters;
        int exitCode;
        const char* message;
    } rows[] = {
        {"broken_ticket", testpackages::WriteZip("broken_ticket.xps", broken),
         {{"PageOrientation", "Landscape"}}, 5,
         "Documents/1/Metadata/Page_PT.xml: the PrintTicket is not well-formed"},
        {"bad_configuration", testpackages::CorpusFile("wpftest_word.xps"),
         {{"JobCopiesAllDocuments", "many"}}, 9, "failed to initialise (0x80070057)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        JobRun run = RunSetTicket(row.name, row.input, row.parameters);
        EXPECT_EQ(run.outcome.exitCode, row.exitCode) << run.outcome.output;
        EXPECT_NE(run.outcome.output.find(row.message), std::string::npos) << run.outcome.output;
        EXPECT_TRUE(testpackages::NothingLeftOf(run.output));
    }
}

// Every corpus job through setticket and stamp: every page ends up with a Landscape ticket and
// the stamp's part is written once. (That the pages render as before through the sample
// setticket and stamp pipelines is checked on every corpus job by realjobs_test.cpp.)
class CorpusThroughSampleFilters : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusThroughSampleFilters, TicketsChangeAndTheStampIsWrittenOnce) {
    const std::string name = GetParam();
    const std::string input = testpackages::CorpusFile(name);
    const JobRun run =
        RunFilters("corpus_" + name, input,
                   {{"name=\"st\" dll=\"" + ModulePath("setticket") + "\"", kAllScopes},
                    {"name=\"stamp\" builtin=\"stamp\"", {}}});
    ASSERT_EQ(run.outcome.exitCode, 0) << run.outcome.output;

    outputpackage::Package package(run.output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_FALSE(pages.empty());
    std::set<std::string> pageTickets;
    for (const std::string& page : pages) {
        const std::string ticket = package.TicketOf(page);
        ASSERT_FALSE(ticket.empty()) << page;
        pageTickets.insert(ticket);
        EXPECT_EQ(FeatureOption(package.Part(ticket), L"PageOrientation"), "Landscape") << page;
        EXPECT_EQ(package.ResourceLinks(page, "/Resources/Stamp/stamp.png"), 1) << page;
    }
    for (const std::string& ticket : pageTickets) EXPECT_EQ(package.ItemCount(ticket), 1);
    EXPECT_EQ(package.ItemCount("/Resources/Stamp/stamp.png"), 1);
    EXPECT_EQ(ParameterValue(package.TicketXml(), L"JobCopiesAllDocuments"), "2");
    fs::remove_all(run.dir);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusThroughSampleFilters,
                         ::testing::ValuesIn(testpackages::CorpusNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             return testpackages::TestNameOf(info.param);
                         });

}  // namespace
