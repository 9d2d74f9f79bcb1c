// parallelpages_test.cpp: filters that work on pages in parallel (XpsFilterBase::SendPageWhenDone)
// inside the real pipeline host, and the watermark pipeline at different thread counts. Pages
// must leave in the order they came whatever order their work ends in, other parts must stay
// where they were among the pages, a page's failure must stop the job without output, and the
// output must not depend on the number of threads.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "../tools/toolrunner.h"
#include "filterpipeline/filterutilities/xpsfilterbase.h"
#include "hostjob.h"
#include "outputpackage.h"

namespace {

using namespace pipelinehost;
namespace tp = testpackages;
namespace fs = std::filesystem;

// Rewrites every page on the page threads: its markup gets a comment naming the page's number.
// Work on early pages takes longest, so later pages finish first. Page `failAt` (1-based; 0 for
// none) fails in its work.
class NumberingFilter final : public XpsFilterBase {
public:
    struct Seen {
        std::mutex mutex;
        std::vector<std::string> sent;              // in the order finish ran
        std::set<std::thread::id> workThreads;      // where work ran
        std::thread::id filterThread;
        bool finishOffFilterThread = false;
    };

    NumberingFilter(std::shared_ptr<Seen> seen, ULONG failAt)
        : m_seen(std::move(seen)), m_failAt(failAt) {}

protected:
    HRESULT OnFixedDocument(IFixedDocument* document) override {
        Note("document " + std::to_string(m_documentCount));
        return XpsFilterBase::OnFixedDocument(document);
    }

    HRESULT OnFixedPage(IFixedPage* page) override {
        {
            std::lock_guard<std::mutex> lock(m_seen->mutex);
            m_seen->filterThread = std::this_thread::get_id();
        }
        const ULONG number = m_pageCount;
        const bool fail = number == m_failAt;
        return SendPageWhenDone(
            page,
            [this, page, number, fail]() -> HRESULT {
                {
                    std::lock_guard<std::mutex> lock(m_seen->mutex);
                    m_seen->workThreads.insert(std::this_thread::get_id());
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(number % 4 == 1 ? 30 : 1));
                if (fail) return E_ACCESSDENIED;
                CComPtr<IPrintReadStream> in;
                if (FAILED(page->GetStream(&in))) return E_FAIL;
                std::string markup;
                char buffer[4096];
                ULONG got = 0;
                BOOL end = FALSE;
                do {
                    if (FAILED(in->ReadBytes(buffer, sizeof buffer, &got, &end))) return E_FAIL;
                    markup.append(buffer, got);
                } while (got > 0 && !end);
                markup += "<!--page " + std::to_string(number) + "-->";
                CComPtr<IPrintWriteStream> out;
                if (FAILED(page->GetWriteStream(&out))) return E_FAIL;
                ULONG written = 0;
                const HRESULT hr = out->WriteBytes(markup.data(), static_cast<ULONG>(markup.size()),
                                                   &written);
                out->Close();
                return hr;
            },
            [this, number](HRESULT worked) {
                Note("page " + std::to_string(number));
                return worked;
            });
    }

private:
    void Note(std::string event) {
        std::lock_guard<std::mutex> lock(m_seen->mutex);
        if (m_seen->filterThread != std::thread::id() &&
            std::this_thread::get_id() != m_seen->filterThread) {
            m_seen->finishOffFilterThread = true;
        }
        m_seen->sent.push_back(std::move(event));
    }

    std::shared_ptr<Seen> m_seen;
    ULONG m_failAt;
};

struct NumberingRun : hostjob::HostJob {
    std::shared_ptr<NumberingFilter::Seen> seen = std::make_shared<NumberingFilter::Seen>();
};

// The numbering filter over two documents of five and four pages.
NumberingRun RunNumbering(unsigned threads, ULONG failAt) {
    NumberingRun run;
    run.AddNew<NumberingFilter>(run.seen, failAt);
    run.options.threads = threads;
    run.Go(hostjob::TwoDocumentJob(5, 4));
    return run;
}

TEST(ParallelPages, PagesLeaveInOrderWithTheirDocumentsWhateverTheThreads) {
    const std::vector<std::string> walk = {"document 1", "page 1", "page 2", "page 3",
                                           "page 4",     "page 5", "document 2", "page 6",
                                           "page 7",     "page 8", "page 9"};
    for (unsigned threads : {1u, 2u, 4u, 8u}) {
        SCOPED_TRACE("threads " + std::to_string(threads));
        NumberingRun run = RunNumbering(threads, 0);
        ASSERT_TRUE(run.result.succeeded) << run.Error();
        EXPECT_EQ(run.seen->sent, walk);
        EXPECT_FALSE(run.seen->finishOffFilterThread);
        if (threads == 1) {
            EXPECT_EQ(run.seen->workThreads, std::set<std::thread::id>{run.seen->filterThread});
        } else {
            EXPECT_EQ(run.seen->workThreads.count(run.seen->filterThread), 0u);
            EXPECT_LE(run.seen->workThreads.size(), threads);
        }
        // Each page carries its own number, in the documents and order it came in.
        const outputpackage::Package out(run.output);
        ASSERT_TRUE(out.Valid());
        const std::vector<std::string> pages = out.Pages();
        ASSERT_EQ(pages.size(), 9u);
        EXPECT_EQ(pages[5], "/Documents/2/Pages/1.fpage");
        for (std::size_t i = 0; i < pages.size(); ++i) {
            EXPECT_NE(out.Part(pages[i]).find("<!--page " + std::to_string(i + 1) + "-->"),
                      std::string::npos)
                << pages[i];
        }
    }
}

TEST(ParallelPages, AFailedPageStopsTheJobWithoutOutput) {
    for (unsigned threads : {1u, 4u}) {
        for (ULONG failAt : {1ul, 5ul, 9ul}) {
            SCOPED_TRACE("threads " + std::to_string(threads) + ", page " + std::to_string(failAt));
            NumberingRun run = RunNumbering(threads, failAt);
            EXPECT_FALSE(run.result.succeeded);
            ASSERT_TRUE(run.result.error.has_value());
            EXPECT_EQ(run.result.error->Kind(), ErrorKind::Filter);
            EXPECT_FALSE(fs::exists(run.output));
            // Pages before the failed one were sent; neither it nor any after it.
            ASSERT_FALSE(run.seen->sent.empty());
            EXPECT_EQ(run.seen->sent.back(), "page " + std::to_string(failAt));
            EXPECT_EQ(run.result.filters.at(0).startResult, E_ACCESSDENIED);
        }
    }
}

// The watermark pipeline over every corpus job and the sample job: the output, made
// reproducible, is byte for byte the same with one thread and with four.
TEST(ParallelPages, WatermarkOutputDoesNotDependOnTheThreads) {
    const fs::path dir = toolrunner::WorkDir("parallel_watermark");
    const toolrunner::WatermarkSetup watermark(dir);
    ASSERT_TRUE(watermark.made);
    std::vector<std::string> jobs;
    for (const std::string& name : tp::CorpusNames()) jobs.push_back(tp::CorpusFile(name));
    jobs.push_back(std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps");
    for (const std::string& job : jobs) {
        SCOPED_TRACE(job);
        std::map<std::string, std::string> outputs;
        for (const char* threads : {"1", "4"}) {
            const std::string output = (dir / (std::string("out") + threads + ".xps")).string();
            const toolrunner::Outcome run =
                watermark.Run(job, output, " --reproducible", std::string(" --threads ") + threads);
            ASSERT_EQ(run.exitCode, 0) << run.output;
            outputs[threads] = toolrunner::ReadFile(output);
        }
        EXPECT_FALSE(outputs["1"].empty());
        EXPECT_TRUE(outputs["1"] == outputs["4"]) << "the output differs with four threads";
    }
    fs::remove_all(dir);
}

}  // namespace
