// xpsfilterbase.cpp: the part walker and its default handlers.
#include "filterpipeline/filterutilities/xpsfilterbase.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>

#include "support/utilities/exceptions.h"
#include "support/utilities/executioncontext.h"

namespace {

void ReportCaught(const std::exception* caught, bool continuing, int line) {
    ZorunException::DisplayExceptionMessage(
        false, continuing, caught, CXString(__FILE__), line,
        CXString(L"XpsFilterBase::StartOperation"),
        &UtilitiesDllPerThreadStorage::GetExecutionContextStack(), nullptr, CXString(L""),
        CXString(L""));
}

}  // namespace

XpsFilterBase::XpsFilterBase() = default;

// Members go in reverse order (the resource cache, the consumer, the provider), then FilterBase
// reports completion if nothing did so yet.
XpsFilterBase::~XpsFilterBase() = default;

HRESULT XpsFilterBase::InitialiseXDIO() {
    m_pXpsProvider.Release();
    m_pXpsConsumer.Release();
    if (m_pInterFilterCommunicator == nullptr) return E_PENDING;

    HRESULT hr = m_pInterFilterCommunicator->RequestReader(reinterpret_cast<void**>(&m_pXpsProvider));
    if (SUCCEEDED(hr)) {
        hr = m_pInterFilterCommunicator->RequestWriter(reinterpret_cast<void**>(&m_pXpsConsumer));
    }
    if (FAILED(hr)) {
        m_pXpsProvider.Release();
        m_pXpsConsumer.Release();
        return hr;
    }

    // The reader and writer must be what their names promise; the queried pointers only check.
    CComPtr<IXpsDocumentProvider> provider;
    CComPtr<IXpsDocumentConsumer> consumer;
    hr = m_pXpsProvider->QueryInterface(IID_IXpsDocumentProvider,
                                        reinterpret_cast<void**>(&provider));
    if (SUCCEEDED(hr)) {
        hr = m_pXpsConsumer->QueryInterface(IID_IXpsDocumentConsumer,
                                            reinterpret_cast<void**>(&consumer));
    }
    if (FAILED(hr)) {
        hr = E_FAIL;
        RequestShutdown(E_FAIL);
    }
    return hr;
}

HRESULT XpsFilterBase::StartOperation() {
    try {
        ExecutionContextLifetime context(std::make_unique<BasicExecutionContext>(
            31636, CXString(L"XpsFilterBase::StartOperation"), CXString(__FILE__), __LINE__, false,
            CXString(L"")));

        HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        if (SUCCEEDED(hr)) hr = InitialiseXDIO();
        if (SUCCEEDED(hr)) hr = InitializePrintTicketManager();
        if (SUCCEEDED(hr)) {
            ReadPageThreads();
            hr = Walk();
        }

        if (FAILED(hr)) {
            if (m_filterFinished.load() != 0) {
                hr = S_OK;  // a failure after a shutdown request is not reported
            } else {
                RequestShutdown(hr);
            }
        }
        CoUninitialize();  // paired even when CoInitializeEx failed
        FilterFinished();
        return hr;
    } catch (const std::bad_alloc& e) {
        ReportCaught(&e, false, __LINE__);
    } catch (const std::exception& e) {
        ReportCaught(&e, false, __LINE__);
    } catch (...) {
        ReportCaught(nullptr, false, __LINE__);
    }
    return E_FAIL;
}

HRESULT XpsFilterBase::Walk() {
    HRESULT hr = S_OK;
    while (SUCCEEDED(hr)) {
        CComPtr<IUnknown> part;
        hr = m_pXpsProvider->GetXpsPart(&part);
        if (FAILED(hr)) break;
        if (part == nullptr || m_filterFinished.load() != 0) {
            hr = SendPendingPages();
            if (SUCCEEDED(hr)) hr = OnFinalize();
            break;
        }
        try {
            hr = Dispatch(part);
        } catch (const ZorunException& e) {
            ReportCaught(&e, true, __LINE__);
            hr = E_FAIL;
        }
    }
    DropPendingPages();
    m_pageWorkers.reset();
    m_pXpsConsumer->CloseSender();  // its result does not change the walk's
    return hr;
}

void XpsFilterBase::ReadPageThreads() {
    m_pageThreads = CPageWorkers::DefaultThreads();
    CComVariant value;
    if (m_pPropertyBag != nullptr && SUCCEEDED(m_pPropertyBag->GetProperty(L"PageThreads", &value)) &&
        value.vt == VT_UI4 && value.ulVal > 0) {
        m_pageThreads = std::min<ULONG>(value.ulVal, 64);
    }
}

HRESULT XpsFilterBase::SendPageWhenDone(IFixedPage* page, PageWork work, PageFinish finish) {
    if (page == nullptr) return E_POINTER;
    try {
        if (!m_pageWorkers) {
            // One page thread is the filter thread itself: no workers, work runs on Run.
            m_pageWorkers = std::make_unique<CPageWorkers>(m_pageThreads > 1 ? m_pageThreads : 0);
        }
        PendingPage pending{page, nullptr, std::move(finish)};
        pending.work = m_pageWorkers->Run(work ? std::move(work) : PageWork([] { return S_OK; }));
        m_pendingPages.push_back(std::move(pending));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    // Pages already done leave now; beyond twice the threads the walk waits for the oldest.
    const std::size_t most = 2 * static_cast<std::size_t>(std::max(1u, m_pageThreads));
    while (!m_pendingPages.empty()) {
        const HRESULT hr = SendFirstPendingPage(m_pendingPages.size() > most);
        if (FAILED(hr)) return hr;
        if (hr == S_FALSE) break;
    }
    return S_OK;
}

HRESULT XpsFilterBase::SendPendingPages() {
    while (!m_pendingPages.empty()) {
        const HRESULT hr = SendFirstPendingPage(true);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT XpsFilterBase::SendFirstPendingPage(bool wait) {
    PendingPage& first = m_pendingPages.front();
    if (!wait && !first.work->Done()) return S_FALSE;
    HRESULT hr = first.work->Wait();
    PendingPage pending = std::move(first);
    m_pendingPages.pop_front();
    if (pending.finish) {
        try {
            hr = pending.finish(hr);
        } catch (const std::bad_alloc&) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (FAILED(hr)) return hr;
    return m_pXpsConsumer->SendFixedPage(pending.page);
}

void XpsFilterBase::DropPendingPages() {
    for (PendingPage& pending : m_pendingPages) pending.work->Wait();
    m_pendingPages.clear();
}

HRESULT XpsFilterBase::Dispatch(IUnknown* part) {
    // The kinds are tried in this order; the first one the part answers to wins. Any part but a
    // page leaves after the pages handed to SendPageWhenDone before it.
    HRESULT hr = S_OK;
    CComPtr<IXpsDocument> xpsDocument;
    if (SUCCEEDED(part->QueryInterface(IID_IXpsDocument, reinterpret_cast<void**>(&xpsDocument)))) {
        if (FAILED(hr = SendPendingPages())) return hr;
        return OnXpsDocument(xpsDocument);
    }
    CComPtr<IFixedDocumentSequence> sequence;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedDocumentSequence,
                                       reinterpret_cast<void**>(&sequence)))) {
        if (FAILED(hr = SendPendingPages())) return hr;
        return OnFixedDocumentSequence(sequence);
    }
    CComPtr<IFixedDocument> document;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedDocument, reinterpret_cast<void**>(&document)))) {
        if (FAILED(hr = SendPendingPages())) return hr;
        ++m_documentCount;
        return OnFixedDocument(document);
    }
    CComPtr<IFixedPage> page;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedPage, reinterpret_cast<void**>(&page)))) {
        ++m_pageCount;
        return OnFixedPage(page);
    }
    if (FAILED(hr = SendPendingPages())) return hr;
    return m_pXpsConsumer->SendXpsUnknown(part);
}

HRESULT XpsFilterBase::OnXpsDocument(IXpsDocument* document) {
    if (document == nullptr) return E_POINTER;
    return m_pXpsConsumer->SendXpsDocument(document);
}

HRESULT XpsFilterBase::OnFixedDocumentSequence(IFixedDocumentSequence* sequence) {
    if (sequence == nullptr) return E_POINTER;
    HRESULT hr = m_printTicketManager.InitializeWithPrintTicket(sequence);
    if (FAILED(hr)) return hr;
    return m_pXpsConsumer->SendFixedDocumentSequence(sequence);
}

HRESULT XpsFilterBase::OnFixedDocument(IFixedDocument* document) {
    if (document == nullptr) return E_POINTER;
    HRESULT hr = m_printTicketManager.InitializeWithPrintTicket(document);
    if (FAILED(hr)) return hr;
    return m_pXpsConsumer->SendFixedDocument(document);
}

HRESULT XpsFilterBase::OnFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    // Behind pages still being worked on, the page waits its turn.
    if (!m_pendingPages.empty()) return SendPageWhenDone(page, nullptr, nullptr);
    return m_pXpsConsumer->SendFixedPage(page);
}

HRESULT XpsFilterBase::OnFinalize() { return S_OK; }
