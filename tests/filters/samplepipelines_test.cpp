// The sample pipeline configurations of samples/pipelines run the sample job through and do
// what their comments say.
#include <gtest/gtest.h>

#include "filtertesting.h"

namespace {

using namespace filtertesting;

class SamplePipelines : public ::testing::TestWithParam<std::string> {};

TEST_P(SamplePipelines, RunTheSampleJob) {
    const fs::path dir = toolrunner::WorkDir("sample_" + GetParam());
    const std::string config = std::string(FU_SOURCE_DIR) + "/samples/pipelines/" + GetParam();
    const std::string input = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";
    const std::string output = (dir / "out.xps").string();
    toolrunner::Outcome run =
        toolrunner::RunTool({"run", "-q", "--pipeline", config, input, output});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    outputpackage::Package package(output);
    const std::vector<std::string> pages = package.Pages();
    ASSERT_EQ(pages.size(), 3u);
    const std::string job = package.TicketXml();
    if (GetParam() == "setticket.xml") {
        for (const std::string& page : pages) {
            const std::string ticket = package.TicketXml(page);
            EXPECT_EQ(FeatureOption(ticket, L"PageMediaSize"), "ISOA4") << page;
            EXPECT_EQ(FeatureOption(ticket, L"PageOrientation"), "Landscape") << page;
        }
        EXPECT_EQ(FeatureOption(package.Part(package.TicketOf(package.Documents().at(0))),
                                L"DocumentCollate"),
                  "Collated");
        EXPECT_EQ(ParameterValue(job, L"JobCopiesAllDocuments"), "2");
    } else if (GetParam() == "setticket-jobscope.xml") {
        EXPECT_EQ(FeatureOption(job, L"PageOrientation"), "Landscape");
    } else if (GetParam() == "stamp.xml") {
        EXPECT_EQ(package.ItemCount("/Resources/Stamp/DejaVuSans.ttf"), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, SamplePipelines,
                         ::testing::Values("setticket.xml", "setticket-jobscope.xml", "stamp.xml"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name;
                             for (char c : info.param) name += std::isalnum(c) ? c : '_';
                             return name;
                         });

}  // namespace
