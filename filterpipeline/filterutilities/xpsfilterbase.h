// xpsfilterbase.h: XpsFilterBase, the base of every filter whose input and output are XPS parts.
// StartOperation connects to the pipeline's reader and writer, initialises the job's ticket
// manager, then pulls the parts one at a time and hands each to an overridable handler by kind
// (XPS document, fixed document sequence, fixed document, fixed page); any other part is passed
// on unchanged. The default handlers install the sequence's and each document's ticket in the
// ticket manager and forward the part, so a filter that overrides nothing is a pass-through.
// A filter that needs page tickets calls m_printTicketManager.InitializeWithPrintTicket(page)
// from its own OnFixedPage.
//
// Pages in parallel (opt-in): a filter whose page work is heavy (parsing and rewriting the
// markup) hands it to SendPageWhenDone from OnFixedPage. The work runs on the filter's page
// threads while the walk goes on; the pages still leave in the order they came, each after its
// `finish` step, which runs on the filter thread. docs/framework.md has the rules.
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "filterpipeline/filterutilities/filterbase.h"
#include "filterpipeline/filterutilities/pageworkers.h"
#include "filterpipeline/filterutilities/resourcecache.h"

class XpsFilterBase : public FilterBase {
public:
    XpsFilterBase();
    ~XpsFilterBase() override;

protected:
    // The walk: one pass over the job, on the pipeline's filter thread.
    HRESULT StartOperation() override;

    virtual HRESULT OnXpsDocument(IXpsDocument* document);
    virtual HRESULT OnFixedDocumentSequence(IFixedDocumentSequence* sequence);
    virtual HRESULT OnFixedDocument(IFixedDocument* document);
    virtual HRESULT OnFixedPage(IFixedPage* page);
    // After the last part (or a shutdown); S_OK by default.
    virtual HRESULT OnFinalize();
    // Obtains the reader and writer from the communicator. E_PENDING before InitializeFilter.
    virtual HRESULT InitialiseXDIO();

    // Runs `work` on a page thread, then, on the filter thread and after every page handed over
    // before it has gone, `finish` with work's result (null `work`: S_OK at once; null `finish`:
    // the result itself), and sends the page on when `finish` succeeded. Pages that are done
    // leave from here and from later calls; at most twice the page threads wait. Returns the
    // first failure of a page that left (the walk then stops) or S_OK. `work` may touch only
    // the page and what it owns; `finish` may do anything the filter thread does.
    using PageWork = std::function<HRESULT()>;
    using PageFinish = std::function<HRESULT(HRESULT)>;
    HRESULT SendPageWhenDone(IFixedPage* page, PageWork work, PageFinish finish);
    // Waits for the pages handed to SendPageWhenDone and sends them in order. The walk calls it
    // before any other part is handled and before OnFinalize; a filter calls it before sending
    // anything itself while pages may be pending.
    HRESULT SendPendingPages();
    // The page threads SendPageWhenDone uses: the pipeline's "PageThreads" property (VT_UI4),
    // else one per core (at most 8). With 1, work runs on the filter thread as it is handed over.
    unsigned PageThreads() const { return m_pageThreads; }

    CComPtr<IXpsDocumentProvider> m_pXpsProvider;
    CComPtr<IXpsDocumentConsumer> m_pXpsConsumer;
    CFileResourceCache m_resourceCache;
    // 1-based number of the current fixed document inside OnFixedDocument.
    ULONG m_documentCount = 0;
    // Fixed pages met so far in the whole job, the current one included inside OnFixedPage.
    ULONG m_pageCount = 0;

private:
    HRESULT Walk();
    HRESULT Dispatch(IUnknown* part);
    // Reads "PageThreads" from the property bag.
    void ReadPageThreads();
    // Finishes and sends the first pending page (waiting for its work when `wait`); S_FALSE
    // when it is not done yet.
    HRESULT SendFirstPendingPage(bool wait);
    // After a failure: waits for the work still running and drops the pending pages unsent.
    void DropPendingPages();

    struct PendingPage {
        CComPtr<IFixedPage> page;
        std::shared_ptr<CPageWorkers::PageWork> work;
        PageFinish finish;
    };
    unsigned m_pageThreads = 1;
    std::unique_ptr<CPageWorkers> m_pageWorkers;
    std::deque<PendingPage> m_pendingPages;
};
