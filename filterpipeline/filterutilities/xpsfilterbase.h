// xpsfilterbase.h: XpsFilterBase, the base of every filter whose input and output are XPS parts.
// StartOperation connects to the pipeline's reader and writer, initialises the job's ticket
// manager, then pulls the parts one at a time and hands each to an overridable handler by kind
// (XPS document, fixed document sequence, fixed document, fixed page); any other part is passed
// on unchanged. The default handlers install the sequence's and each document's ticket in the
// ticket manager and forward the part, so a filter that overrides nothing is a pass-through.
// A filter that needs page tickets calls m_printTicketManager.InitializeWithPrintTicket(page)
// from its own OnFixedPage.
#pragma once

#include "filterpipeline/filterutilities/filterbase.h"
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
};
