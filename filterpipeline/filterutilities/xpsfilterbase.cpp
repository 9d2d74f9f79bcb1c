// xpsfilterbase.cpp: the part walker and its default handlers.
#include "filterpipeline/filterutilities/xpsfilterbase.h"

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
        if (SUCCEEDED(hr)) hr = Walk();

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
            hr = OnFinalize();
            break;
        }
        try {
            hr = Dispatch(part);
        } catch (const ZorunException& e) {
            ReportCaught(&e, true, __LINE__);
            hr = E_FAIL;
        }
    }
    m_pXpsConsumer->CloseSender();  // its result does not change the walk's
    return hr;
}

HRESULT XpsFilterBase::Dispatch(IUnknown* part) {
    // The kinds are tried in this order; the first one the part answers to wins.
    CComPtr<IXpsDocument> xpsDocument;
    if (SUCCEEDED(part->QueryInterface(IID_IXpsDocument, reinterpret_cast<void**>(&xpsDocument)))) {
        return OnXpsDocument(xpsDocument);
    }
    CComPtr<IFixedDocumentSequence> sequence;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedDocumentSequence,
                                       reinterpret_cast<void**>(&sequence)))) {
        return OnFixedDocumentSequence(sequence);
    }
    CComPtr<IFixedDocument> document;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedDocument, reinterpret_cast<void**>(&document)))) {
        ++m_documentCount;
        return OnFixedDocument(document);
    }
    CComPtr<IFixedPage> page;
    if (SUCCEEDED(part->QueryInterface(IID_IFixedPage, reinterpret_cast<void**>(&page)))) {
        ++m_pageCount;
        return OnFixedPage(page);
    }
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
    return m_pXpsConsumer->SendFixedPage(page);
}

HRESULT XpsFilterBase::OnFinalize() { return S_OK; }
