// Tests of the filter chain: threads, bounded queues, shutdown, FilterFinished tracking, the
// property bag, and that a failed job leaves no output behind.
#include <gtest/gtest.h>

#include <filesystem>

#include "pipelinehost/jobrunner.h"
#include "pipelinehost/rawpassthroughfilter.h"
#include "pipelinehost/sourcepackage.h"
#include "testfilters.h"
#include "testpackages.h"

namespace {

using namespace pipelinehost;
using testfilters::Mode;

struct Chain {
    FilterRegistry registry;
    PipelineConfig config;
    std::map<std::string, std::shared_ptr<testfilters::Observed>> observed;

    // Filters named after their mode, in order.
    explicit Chain(std::vector<std::pair<std::string, Mode>> filters) {
        for (auto& [name, mode] : filters) {
            auto seen = std::make_shared<testfilters::Observed>();
            observed[name] = seen;
            registry.AddBuiltin(name, [mode = mode, seen](IPrintPipelineFilter** filter) {
                *filter = new testfilters::TestFilter(mode, seen);
                return S_OK;
            });
            FilterEntry filterEntry;
            filterEntry.name = name;
            filterEntry.builtin = name;
            config.filters.push_back(filterEntry);
        }
    }
};

JobOptions Options(const std::string& input, const std::string& output) {
    JobOptions options;
    options.input = input;
    options.output = output;
    options.queueCapacity = 2;
    return options;
}

TEST(FilterChain, ThreePassThroughFiltersCopyTheJob) {
    std::string input = testpackages::WriteZip("chain_ok.xps", testpackages::SmallJob(12));
    std::string output = testpackages::TempPath("chain_ok_out.xps");
    std::filesystem::remove(output);
    Chain chain({{"a", Mode::PassThrough}, {"b", Mode::Slow}, {"c", Mode::PassThrough}});
    JobResult result = RunJob(chain.config, chain.registry, Options(input, output));
    ASSERT_TRUE(result.succeeded) << (result.error ? result.error->what() : "");
    EXPECT_EQ(result.pages, 12u);
    ASSERT_EQ(result.filters.size(), 3u);
    for (const FilterReport& report : result.filters) {
        EXPECT_EQ(report.filterFinishedCalls, 1u) << report.name;
        EXPECT_EQ(report.shutdownOperationCalls, 0u) << report.name;
        EXPECT_EQ(report.startResult, S_OK) << report.name;
    }
    // XPS document, sequence, document and 12 pages went through every filter.
    for (const char* name : {"a", "b", "c"}) EXPECT_EQ(chain.observed[name]->parts.load(), 15);
    ASSERT_EQ(result.queueHighWater.size(), 2u);
    for (std::size_t mark : result.queueHighWater) {
        EXPECT_GE(mark, 1u);
        EXPECT_LE(mark, 2u);
    }
    ASSERT_TRUE(std::filesystem::exists(output));
    auto package = SourcePackage::Open(output, ReaderLimits{});
    EXPECT_EQ(package->StartPart(), "/FixedDocumentSequence.fdseq");
    EXPECT_NE(package->Find("/Documents/1/Pages/12.fpage"), nullptr);
}

TEST(FilterChain, TheBagCarriesTheJobFactsAndFilterParameters) {
    std::string input = testpackages::WriteZip("chain_bag.xps", testpackages::SmallJob(1));
    std::string output = testpackages::TempPath("chain_bag_out.xps");
    Chain chain({{"a", Mode::PassThrough}, {"b", Mode::PassThrough}});
    chain.config.filters[1].parameters.emplace_back("Greeting", "hello");
    JobOptions options = Options(input, output);
    options.printerName = "Office Printer";
    JobResult result = RunJob(chain.config, chain.registry, options);
    ASSERT_TRUE(result.succeeded);
    auto& a = chain.observed["a"]->properties;
    auto& b = chain.observed["b"]->properties;
    EXPECT_EQ(a[L"PrinterName"], L"Office Printer");
    EXPECT_EQ(a.count(L"Greeting"), 0u);
    EXPECT_EQ(b[L"Greeting"], L"hello");
    EXPECT_EQ(b[L"PrintJobId"], std::to_wstring(VT_UI4));
    EXPECT_EQ(b[L"PrinterHandle"], std::to_wstring(VT_INT_PTR));
    EXPECT_EQ(b[L"UserSecurityToken"], std::to_wstring(VT_INT_PTR));
    EXPECT_EQ(b[L"PerUserPrintTicket"], std::to_wstring(VT_UNKNOWN));
    EXPECT_EQ(b[L"TokenUsable"], L"yes");  // the ticket manager impersonates with it
}

struct FailureCase {
    const char* name;
    Mode mode;
    const char* message;
};

void PrintTo(const FailureCase& row, std::ostream* out) {
    *out << row.name;
}

class FilterFailure : public ::testing::TestWithParam<FailureCase> {};

TEST_P(FilterFailure, StopsEveryFilterAndLeavesNoOutput) {
    std::string input = testpackages::WriteZip("chain_fail.xps", testpackages::SmallJob(30));
    std::string output = testpackages::TempPath("chain_fail_out.xps");
    std::filesystem::remove(output);
    Chain chain({{"first", Mode::PassThrough}, {"culprit", GetParam().mode}, {"last", Mode::Slow}});
    JobResult result = RunJob(chain.config, chain.registry, Options(input, output));
    EXPECT_FALSE(result.succeeded);
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->Kind(), ErrorKind::Filter);
    std::string message = result.error->what();
    EXPECT_NE(message.find("\"culprit\""), std::string::npos) << message;
    EXPECT_NE(message.find(GetParam().message), std::string::npos) << message;
    for (const FilterReport& report : result.filters) {
        EXPECT_EQ(report.shutdownOperationCalls, 1u) << report.name;
    }
    for (const char* name : {"first", "culprit", "last"}) {
        EXPECT_EQ(chain.observed[name]->shutdownOperations.load(), 1) << name;
    }
    EXPECT_TRUE(testpackages::NothingLeftOf(output));
}

INSTANTIATE_TEST_SUITE_P(
    Modes, FilterFailure,
    ::testing::Values(FailureCase{"Fails", Mode::FailAfterFirstPart, "failed (0x80070005)"},
                      FailureCase{"FailsHalfWay", Mode::FailAtTenthPage, "failed (0x80070005)"},
                      FailureCase{"Throws", Mode::Throw, "threw: test filter exploded"},
                      FailureCase{"RequestsShutdown", Mode::RequestShutdown,
                                  "stopped the job (0x80004004)"}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return info.param.name; });

TEST(FilterChain, AFilterThatNeverReportsFinishedFailsTheJob) {
    std::string input = testpackages::WriteZip("chain_forget.xps", testpackages::SmallJob(2));
    std::string output = testpackages::TempPath("chain_forget_out.xps");
    std::filesystem::remove(output);
    Chain chain({{"pass", Mode::PassThrough}, {"forgetful", Mode::Forgetful}});
    JobResult result = RunJob(chain.config, chain.registry, Options(input, output));
    EXPECT_FALSE(result.succeeded);
    ASSERT_TRUE(result.error.has_value());
    EXPECT_NE(std::string(result.error->what()).find("\"forgetful\" did not report FilterFinished"),
              std::string::npos);
    EXPECT_EQ(result.filters[0].filterFinishedCalls, 1u);
    EXPECT_EQ(result.filters[1].filterFinishedCalls, 0u);
    EXPECT_TRUE(testpackages::NothingLeftOf(output));
}

TEST(FilterChain, UnknownBuiltinAndMissingModuleAreConfigurationErrors) {
    std::string input = testpackages::WriteZip("chain_cfg.xps", testpackages::SmallJob(1));
    for (const auto& [builtin, dll] :
         {std::pair<std::string, std::string>{"nonesuch", ""}, {"", "/nonexistent/libfilter.so"}}) {
        SCOPED_TRACE(builtin + dll);
        Chain chain({});
        chain.config.filters.push_back(FilterEntry{});
        chain.config.filters[0].name = "x";
        chain.config.filters[0].builtin = builtin;
        chain.config.filters[0].dll = dll;
        JobResult result =
            RunJob(chain.config, chain.registry, Options(input, testpackages::TempPath("c.xps")));
        ASSERT_TRUE(result.error.has_value());
        EXPECT_EQ(result.error->Kind(), ErrorKind::Config);
        EXPECT_NE(std::string(result.error->what()).find(dll.empty() ? "nonesuch" : "cannot load"),
                  std::string::npos)
            << result.error->what();
    }
}

TEST(PipelineConfiguration, ReadsFiltersInOrderWithParameters) {
    PipelineConfig config = ParsePipelineConfig(
        "<Filter_Pipeline_Config><Filters>"
        "<Filter name=\"one\" builtin=\"passthrough\"><Parameter name=\"A\" value=\"1\"/></Filter>"
        "<Filter name=\"two\" dll=\"libtwo.so\" class=\"Two\" clsid=\"{0}\"><Input/></Filter>"
        "</Filters></Filter_Pipeline_Config>",
        "/etc/filters");
    ASSERT_EQ(config.filters.size(), 2u);
    EXPECT_EQ(config.filters[0].builtin, "passthrough");
    ASSERT_EQ(config.filters[0].parameters.size(), 1u);
    EXPECT_EQ(config.filters[0].parameters[0].second, "1");
    EXPECT_EQ(config.filters[1].dll, "/etc/filters/libtwo.so");
    EXPECT_EQ(config.filters[1].className, "Two");
    for (const char* bad : {"<Filters/>", "<Filters><Filter builtin=\"a\"/></Filters>",
                            "<Filters><Filter name=\"a\"/></Filters>",
                            "<Filters><Filter name=\"a\" builtin=\"x\" dll=\"y\"/></Filters>",
                            "<Filters><Filter name=\"a\" builtin=\"x\"/><Filter name=\"a\" "
                            "builtin=\"x\"/></Filters>",
                            "<Pipeline/>", "not xml"}) {
        EXPECT_THROW(ParsePipelineConfig(bad, "."), JobError) << bad;
    }
}

}  // namespace
