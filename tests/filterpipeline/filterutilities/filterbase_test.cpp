// Tests of the filter base (pipeline life cycle) and of the XPS part walker's failure paths that a
// real host does not reach; the walk itself is tested on the host in tests/filters/walker_test.cpp.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/xpsfilterbase.h"
#include "pipelinefakes.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/exceptions.h"

using fakes::Make;

namespace {

// Exposes FilterBase's protected operations; StartOperation does nothing.
class PlainFilter : public FilterBase {
public:
    explicit PlainFilter(bool* destroyed = nullptr) : m_destroyed(destroyed) {}
    ~PlainFilter() override {
        if (m_destroyed != nullptr) *m_destroyed = true;
    }
    HRESULT StartOperation() override { return S_OK; }
    using FilterBase::FilterFinished;
    using FilterBase::InitializePrintTicketManager;
    using FilterBase::m_filterFinished;
    using FilterBase::RequestShutdown;

private:
    bool* m_destroyed;
};

// A walker that records the handlers it runs; its page handler can be replaced.
class RecordingFilter : public XpsFilterBase {
public:
    HRESULT OnXpsDocument(IXpsDocument* d) override {
        log.push_back("xps");
        return XpsFilterBase::OnXpsDocument(d);
    }
    HRESULT OnFixedPage(IFixedPage* p) override {
        log.push_back("page " + std::to_string(m_pageCount));
        return onPage ? onPage() : XpsFilterBase::OnFixedPage(p);
    }
    HRESULT OnFinalize() override {
        log.push_back("finalize");
        return S_OK;
    }
    using XpsFilterBase::StartOperation;

    std::vector<std::string> log;
    std::function<HRESULT()> onPage;
};

// A part that answers both IXpsDocument and IFixedDocument.
class Ambiguous final : public platform::ComObject<IXpsDocument, IFixedDocument> {
public:
    HRESULT GetThumbnail(IPartThumbnail**) override { return E_NOTIMPL; }
    HRESULT SetThumbnail(IPartThumbnail*) override { return E_NOTIMPL; }
    HRESULT GetUri(BSTR*) override { return E_NOTIMPL; }
    HRESULT GetPrintTicket(IPartPrintTicket**) override { return E_NOTIMPL; }
    HRESULT SetPrintTicket(IPartPrintTicket*) override { return E_NOTIMPL; }
};

// The pipeline around one filter: bag, control, communicator, provider and consumer.
struct Pipeline {
    Pipeline() {
        bag->FillJobProperties();
        communicator->reader_ = static_cast<IXpsDocumentProvider*>(provider.p);
        communicator->writer_ = static_cast<IXpsDocumentConsumer*>(consumer.p);
    }
    HRESULT Connect(FilterBase* filter) {
        return filter->InitializeFilter(communicator, bag, control);
    }
    CComPtr<fakes::PropertyBag> bag = Make<fakes::PropertyBag>();
    CComPtr<fakes::ManagerControl> control = Make<fakes::ManagerControl>();
    CComPtr<fakes::Communicator> communicator = Make<fakes::Communicator>();
    CComPtr<fakes::Provider> provider = Make<fakes::Provider>();
    CComPtr<fakes::Consumer> consumer = Make<fakes::Consumer>();
};

template <class T>
CComPtr<IUnknown> AsUnknown(T* part) {
    CComPtr<IUnknown> unknown;
    part->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown));
    return unknown;
}

}  // namespace

TEST(FilterBase, ComIdentityAndReferenceCounting) {
    bool destroyed = false;
    auto* filter = new PlainFilter(&destroyed);
    IUnknown* unknown = nullptr;
    IPrintPipelineFilter* asFilter = nullptr;
    ASSERT_EQ(filter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    ASSERT_EQ(filter->QueryInterface(IID_IPrintPipelineFilter, reinterpret_cast<void**>(&asFilter)),
              S_OK);
    EXPECT_EQ(static_cast<void*>(unknown), static_cast<void*>(asFilter));
    void* other = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(filter->QueryInterface(IID_IXpsDocumentProvider, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(filter->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(unknown->Release(), 2u);
    EXPECT_EQ(asFilter->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(filter->Release(), 0u);  // the count started at 1
    EXPECT_TRUE(destroyed);
}

TEST(FilterBase, InitializeFilterStoresAllOrNothingAndJobFactsAreCached) {
    Pipeline pipeline;
    auto filter = Make<PlainFilter>();
    EXPECT_EQ(filter->InitializePrintTicketManager(), E_PENDING);
    EXPECT_EQ(filter->InitializeFilter(pipeline.communicator, nullptr, pipeline.control),
              E_POINTER);
    // Nothing was stored: no manager control to ask for a shutdown, no bag to read.
    EXPECT_TRUE(pipeline.control->shutdownReasons.empty());
    DWORD job = 0;
    EXPECT_EQ(filter->GetJobIdFromPropertyBag(&job), E_POINTER);
    EXPECT_EQ(job, 0xFFFFFFFFu);

    ASSERT_EQ(pipeline.Connect(filter), S_OK);
    EXPECT_EQ(filter->InitializePrintTicketManager(), S_OK);
    // Job facts are read once and cached.
    ASSERT_EQ(filter->GetJobIdFromPropertyBag(&job), S_OK);
    EXPECT_EQ(job, 42u);
    CComVariant changed(7u);
    pipeline.bag->AddProperty(L"PrintJobId", &changed);
    ASSERT_EQ(filter->GetJobIdFromPropertyBag(&job), S_OK);
    EXPECT_EQ(job, 42u);
    HANDLE printer = nullptr;
    ASSERT_EQ(filter->GetPrinterHandleFromPropertyBag(&printer), S_OK);
    EXPECT_EQ(printer, reinterpret_cast<HANDLE>(0x1234));

    // Now a bad call asks the held manager control for a shutdown.
    EXPECT_EQ(filter->InitializeFilter(nullptr, pipeline.bag, pipeline.control), E_POINTER);
    EXPECT_EQ(pipeline.control->shutdownReasons, std::vector<HRESULT>{E_POINTER});
    // A second set replaces (and releases) the first.
    Pipeline other;
    const ULONG before = pipeline.bag->RefCount();
    ASSERT_EQ(other.Connect(filter), S_OK);
    EXPECT_EQ(pipeline.bag->RefCount(), before - 1);
}

TEST(FilterBase, CompletionIsReportedOnceAndOnlyWithAManagerControl) {
    auto* filter = new PlainFilter();
    filter->FilterFinished();  // no manager control: nothing, flag stays 0
    EXPECT_EQ(filter->m_filterFinished.load(), 0);
    Pipeline pipeline;
    ASSERT_EQ(pipeline.Connect(filter), S_OK);
    filter->FilterFinished();
    filter->FilterFinished();
    EXPECT_EQ(pipeline.control->finishedCalls, 1);
    EXPECT_EQ(filter->ShutdownOperation(), S_OK);
    EXPECT_EQ(pipeline.control->finishedCalls, 1);
    filter->Release();
    EXPECT_EQ(pipeline.control->finishedCalls, 1);

    auto* unfinished = new PlainFilter();
    Pipeline second;
    ASSERT_EQ(second.Connect(unfinished), S_OK);
    unfinished->Release();  // destroying a filter that never finished reports it
    EXPECT_EQ(second.control->finishedCalls, 1);
}

TEST(XpsFilterBase, WalkOutcomes) {
    using Strings = std::vector<std::string>;
    using Hrs = std::vector<HRESULT>;
    const struct Row {
        const char* name;
        std::function<void(Pipeline&, RecordingFilter&)> setUp;
        bool connect;
        HRESULT started;
        Strings log;
        Strings sent;
        Hrs shutdowns;
        int closes;
        int fetches;
        unsigned reports;  // exceptions displayed
    } rows[] = {
        // clang-format off
        {"unknown parts are forwarded and the first kind wins",
         [](Pipeline& p, RecordingFilter&) {
             auto ticket = fakes::MakeTicket(L"/x", "");  // a part of no walked kind
             p.provider->parts.push_back(AsUnknown(ticket.p));
             auto both = Make<Ambiguous>();
             p.provider->parts.push_back(AsUnknown(static_cast<IXpsDocument*>(both.p)));
         },
         true, S_OK, {"xps", "finalize"}, {"unknown", "document"}, {}, 1, 3, 0},
        {"a throwing handler becomes E_FAIL",
         [](Pipeline& p, RecordingFilter& filter) {
             p.provider->parts.push_back(AsUnknown(Make<fakes::Page>().p));
             filter.onPage = []() -> HRESULT {
                 THROW_COM(E_INVALIDARG, L"RecordingFilter::OnFixedPage", "");
             };
         },
         true, E_FAIL, {"page 1"}, {}, {E_FAIL}, 1, 1, 1},
        {"a reader that is no provider stops the job twice",
         [](Pipeline& p, RecordingFilter&) {
             p.communicator->reader_ = static_cast<IXpsDocumentConsumer*>(p.consumer.p);
         },
         true, E_FAIL, {}, {}, {E_FAIL, E_FAIL}, 0, 0, 0},
        {"a failing fetch skips finalize but closes the sender",
         [](Pipeline& p, RecordingFilter&) { p.provider->fetchResult = E_OUTOFMEMORY; },
         true, E_OUTOFMEMORY, {}, {}, {E_OUTOFMEMORY}, 1, 1, 0},
        {"starting uninitialised is pending", [](Pipeline&, RecordingFilter&) {},
         false, E_PENDING, {}, {}, {}, 0, 0, 0},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pipeline pipeline;
        auto filter = Make<RecordingFilter>();
        row.setUp(pipeline, *filter);
        ASSERT_EQ(row.connect ? pipeline.Connect(filter) : S_OK, S_OK);
        const auto reportsBefore = ZorunException::GetDisplayedExceptionCount();
        EXPECT_EQ(filter->StartOperation(), row.started);
        EXPECT_EQ(ZorunException::GetDisplayedExceptionCount() - reportsBefore, row.reports);
        EXPECT_EQ(filter->log, row.log);
        EXPECT_EQ(pipeline.consumer->sent, row.sent);
        EXPECT_EQ(pipeline.control->shutdownReasons, row.shutdowns);
        EXPECT_EQ(pipeline.consumer->closeCalls, row.closes);
        EXPECT_EQ(pipeline.provider->fetches, row.fetches);
    }
}
