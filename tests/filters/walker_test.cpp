// walker_test.cpp: the part walker of XpsFilterBase inside the real pipeline host. Filters
// derived from it run on the host's threads over the host's part objects and links; what their
// handlers saw, the host's report of the job and the output package are checked.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../pipelinehost/testfilters.h"
#include "filterpipeline/filterutilities/xpsfilterbase.h"
#include "hostjob.h"
#include "outputpackage.h"
#include "platform/com/comobject.h"
#include "platform/com/unicode.h"

namespace {

using namespace pipelinehost;

struct Log {
    std::mutex mutex;
    std::vector<std::string> events;

    void Add(std::string event) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(std::move(event));
    }
    std::vector<std::string> Events() {
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }
};

// A filter of the library: its handlers record the job-wide counters and the page view's
// orientation, then defer to the default handlers. `onPage` may fail a page or stop the job.
class ProbeFilter final : public XpsFilterBase {
public:
    using PageHook = std::function<HRESULT(ProbeFilter&)>;

    ProbeFilter(std::shared_ptr<Log> log, PageHook onPage)
        : m_log(std::move(log)), m_onPage(std::move(onPage)) {}

    // Asks the pipeline to stop the job and waits (bounded) for its ShutdownOperation.
    bool StopJobAndWait(HRESULT reason) {
        m_pManagerControl->RequestShutdown(reason, nullptr);
        for (int i = 0; i < 1000 && m_filterFinished.load() == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return m_filterFinished.load() != 0;
    }

    ULONG PageCount() const { return m_pageCount; }

protected:
    HRESULT OnFixedDocument(IFixedDocument* document) override {
        m_log->Add("document " + std::to_string(m_documentCount));
        return XpsFilterBase::OnFixedDocument(document);
    }

    HRESULT OnFixedPage(IFixedPage* page) override {
        HRESULT hr = m_printTicketManager.InitializeWithPrintTicket(page);
        if (FAILED(hr)) return hr;
        XpsFilterPrintTicket* view = nullptr;
        hr = m_printTicketManager.GetTicket(kPTPageScope, &view);
        if (FAILED(hr)) return hr;
        const bool landscape = view->GetOrientation() == PrintSchema::PageOrientation::Landscape;
        m_log->Add("page " + std::to_string(m_documentCount) + "." + std::to_string(m_pageCount) +
                   (landscape ? " landscape" : " portrait"));
        if (m_onPage) {
            hr = m_onPage(*this);
            if (hr != S_OK) return hr;
        }
        return XpsFilterBase::OnFixedPage(page);
    }

    HRESULT OnFinalize() override {
        m_log->Add("finalize");
        return S_OK;
    }

private:
    std::shared_ptr<Log> m_log;
    PageHook m_onPage;
};

// A host job of probes (and feeds: filters written against the bare interfaces, placed before a
// probe to shape its input) over the two-document job of two and three pages.
struct WalkJob : hostjob::HostJob {
    WalkJob() { options.queueCapacity = 1; }
    void AddProbe(std::shared_ptr<Log> log, ProbeFilter::PageHook onPage = {}) {
        AddNew<ProbeFilter>(log, onPage);
    }
    void AddFeed(testfilters::Mode mode) {
        AddNew<testfilters::TestFilter>(mode, std::make_shared<testfilters::Observed>());
    }
    void Go() { HostJob::Go(hostjob::TwoDocumentJob(2, 3)); }
};

// Every filter was told to shut down once and reported completion. A filter's report from its
// walk and the one from ShutdownOperation can race (the flag's test and set are not one step),
// so two reports are possible.
void ExpectEveryFilterShutDown(const JobResult& result) {
    for (const FilterReport& report : result.filters) {
        EXPECT_GE(report.filterFinishedCalls, 1u) << report.name;
        EXPECT_LE(report.filterFinishedCalls, 2u) << report.name;
        EXPECT_EQ(report.shutdownOperationCalls, 1u) << report.name;
    }
}

const std::vector<std::string> kWalkOfTheTwoDocumentJob = {
    "document 1",        "page 1.1 portrait",  "page 1.2 landscape", "document 2",
    "page 2.3 portrait", "page 2.4 landscape", "page 2.5 landscape", "finalize"};

TEST(WalkerOnTheHost, HandlersSeeJobWideCountersAndInheritedTicketsInEveryFilter) {
    auto first = std::make_shared<Log>();
    auto second = std::make_shared<Log>();
    WalkJob run;
    run.AddProbe(first);
    run.AddProbe(second);
    run.Go();
    ASSERT_TRUE(run.result.succeeded) << run.Error();
    EXPECT_EQ(run.result.pages, 5u);
    EXPECT_EQ(first->Events(), kWalkOfTheTwoDocumentJob);
    EXPECT_EQ(second->Events(), kWalkOfTheTwoDocumentJob);
    for (const FilterReport& report : run.result.filters) {
        EXPECT_EQ(report.startResult, S_OK) << report.name;
        EXPECT_EQ(report.filterFinishedCalls, 1u) << report.name;
        EXPECT_EQ(report.shutdownOperationCalls, 0u) << report.name;
    }
    // The walker forwarded every part: the output has the pages and their tickets.
    outputpackage::Package out(run.output);
    ASSERT_TRUE(out.Valid());
    EXPECT_EQ(out.Pages().size(), 5u);
    EXPECT_EQ(out.TicketOf("/Documents/2/Pages/1.fpage"), "/Documents/2/Metadata/Page1_PT.xml");
}

TEST(WalkerOnTheHost, AnEmptyInputFinalisesOnceAndTheJobFailsWithoutOutput) {
    auto log = std::make_shared<Log>();
    WalkJob run;
    run.AddFeed(testfilters::Mode::EmptyOutput);
    run.AddProbe(log);
    run.Go();
    EXPECT_EQ(log->Events(), std::vector<std::string>{"finalize"});
    ASSERT_EQ(run.result.filters.size(), 2u);
    EXPECT_EQ(run.result.filters[1].startResult, S_OK);
    EXPECT_EQ(run.result.filters[1].filterFinishedCalls, 1u);
    // A job that brought no fixed document sequence to the writer is not a job.
    EXPECT_FALSE(run.result.succeeded);
    EXPECT_FALSE(run.OutputExists());
}

TEST(WalkerOnTheHost, APartOfNoWalkedKindIsForwardedWithoutAHandler) {
    auto log = std::make_shared<Log>();
    WalkJob run;
    run.AddFeed(testfilters::Mode::ExtraPart);
    run.AddProbe(log);
    run.Go();
    ASSERT_TRUE(run.result.succeeded) << run.Error();
    EXPECT_EQ(log->Events(), kWalkOfTheTwoDocumentJob);
    outputpackage::Package out(run.output);
    EXPECT_EQ(out.Part(platform::WideToUtf8(testfilters::kExtraPartName)),
              testfilters::kExtraPartBytes);
}

TEST(WalkerOnTheHost, AHandlerFailureStopsTheJobAndNamesTheFilter) {
    auto log = std::make_shared<Log>();
    auto after = std::make_shared<Log>();
    WalkJob run;
    run.AddProbe(log,
                 [](ProbeFilter& self) { return self.PageCount() == 2 ? E_ACCESSDENIED : S_OK; });
    run.AddProbe(after);
    run.Go();
    EXPECT_FALSE(run.result.succeeded);
    EXPECT_FALSE(run.OutputExists());
    EXPECT_NE(run.Error().find("\"f0\""), std::string::npos) << run.Error();
    EXPECT_NE(run.Error().find("80070005"), std::string::npos) << run.Error();
    // The walk ended at the failing page, without finalising.
    EXPECT_EQ(log->Events(),
              (std::vector<std::string>{"document 1", "page 1.1 portrait", "page 1.2 landscape"}));
    ASSERT_EQ(run.result.filters.size(), 2u);
    EXPECT_EQ(run.result.filters[0].startResult, E_ACCESSDENIED);
    EXPECT_EQ(run.result.filters[0].shutdownRequest, E_ACCESSDENIED);
    ExpectEveryFilterShutDown(run.result);
    // The next filter never got past what the failing one had sent.
    for (const std::string& event : after->Events()) EXPECT_NE(event, "page 1.2 landscape");
}

TEST(WalkerOnTheHost, AShutdownDuringAHandlerEndsTheWalkQuietly) {
    auto log = std::make_shared<Log>();
    bool delivered = false;
    WalkJob run;
    run.AddProbe(log, [&delivered](ProbeFilter& self) {
        if (self.PageCount() == 3) delivered = self.StopJobAndWait(E_ABORT);
        return S_OK;
    });
    run.AddProbe(std::make_shared<Log>());
    run.Go();
    EXPECT_TRUE(delivered);
    EXPECT_FALSE(run.result.succeeded);
    EXPECT_FALSE(run.OutputExists());
    EXPECT_NE(run.Error().find("stopped the job"), std::string::npos) << run.Error();
    // No page after the one whose handler stopped the job was walked; the failures that follow
    // a shutdown are not reported as the filter's result.
    const std::vector<std::string> events = log->Events();
    ASSERT_GE(events.size(), 5u);
    EXPECT_EQ(events[4], "page 2.3 portrait");
    for (std::size_t i = 5; i < events.size(); ++i) EXPECT_EQ(events[i], "finalize");
    ASSERT_EQ(run.result.filters.size(), 2u);
    EXPECT_EQ(run.result.filters[0].startResult, S_OK);
    EXPECT_EQ(run.result.filters[0].shutdownRequest, E_ABORT);
    ExpectEveryFilterShutDown(run.result);
}

}  // namespace
