// filterbase.cpp: pipeline initialisation, completion reporting and the job facts of the
// property bag. Nothing escapes the COM boundary: exceptions become E_FAIL after a report.
#include "filterpipeline/filterutilities/filterbase.h"

#include <exception>
#include <new>

#include "support/utilities/exceptions.h"
#include "support/utilities/executioncontext.h"

namespace {

// Reports an exception caught at the COM boundary through the utility library.
void ReportCaught(const std::exception* caught, int line, const wchar_t* function) {
    ZorunException::DisplayExceptionMessage(
        false, false, caught, CXString(__FILE__), line, CXString(function),
        &UtilitiesDllPerThreadStorage::GetExecutionContextStack(), nullptr, CXString(L""),
        CXString(L""));
}

}  // namespace

FilterBase::FilterBase()
    : CUnknown<IPrintPipelineFilter>(IID_IPrintPipelineFilter),
      m_printerHandle(INVALID_HANDLE_VALUE),
      m_jobId(0xFFFFFFFFu) {}

FilterBase::~FilterBase() { FilterFinished(); }

HRESULT FilterBase::InitializeFilter(IInterFilterCommunicator* communicator,
                                     IPrintPipelinePropertyBag* propertyBag,
                                     IPrintPipelineManagerControl* managerControl) {
    try {
        if (communicator == nullptr || propertyBag == nullptr || managerControl == nullptr) {
            RequestShutdown(E_POINTER);
            return E_POINTER;
        }
        m_pManagerControl = managerControl;
        m_pInterFilterCommunicator = communicator;
        m_pPropertyBag = propertyBag;
        return S_OK;
    } catch (const std::bad_alloc& e) {
        ReportCaught(&e, __LINE__, L"FilterBase::InitializeFilter");
    } catch (const std::exception& e) {
        ReportCaught(&e, __LINE__, L"FilterBase::InitializeFilter");
    } catch (...) {
        ReportCaught(nullptr, __LINE__, L"FilterBase::InitializeFilter");
    }
    return E_FAIL;
}

HRESULT FilterBase::ShutdownOperation() {
    try {
        FilterFinished();
        return S_OK;
    } catch (const std::bad_alloc& e) {
        ReportCaught(&e, __LINE__, L"FilterBase::ShutdownOperation");
    } catch (const std::exception& e) {
        ReportCaught(&e, __LINE__, L"FilterBase::ShutdownOperation");
    } catch (...) {
        ReportCaught(nullptr, __LINE__, L"FilterBase::ShutdownOperation");
    }
    return E_FAIL;
}

void FilterBase::FilterFinished() {
    // Test and set are not atomic together, as on the pipeline's own base: the pipeline calls
    // ShutdownOperation once, and the walker reports only after its loop.
    if (m_filterFinished.load() == 0 && m_pManagerControl != nullptr) {
        m_pManagerControl->FilterFinished();
        m_filterFinished.store(1);
    }
}

void FilterBase::RequestShutdown(HRESULT reason) {
    if (m_pManagerControl != nullptr) m_pManagerControl->RequestShutdown(reason, nullptr);
}

HRESULT FilterBase::GetPrinterHandleFromPropertyBag(HANDLE* handle) {
    HRESULT hr = S_OK;
    if (m_printerHandle == INVALID_HANDLE_VALUE) {
        if (m_pPropertyBag == nullptr) {
            hr = E_POINTER;
        } else {
            CComVariant value;
            hr = m_pPropertyBag->GetProperty(L"PrinterHandle", &value);
            if (SUCCEEDED(hr)) m_printerHandle = value.byref;  // the tag is not examined
        }
    }
    if (handle != nullptr) *handle = m_printerHandle;
    return hr;
}

HRESULT FilterBase::GetJobIdFromPropertyBag(DWORD* jobId) {
    HRESULT hr = S_OK;
    if (m_jobId == 0xFFFFFFFFu) {
        if (m_pPropertyBag == nullptr) {
            hr = E_POINTER;
        } else {
            CComVariant value;
            hr = m_pPropertyBag->GetProperty(L"PrintJobId", &value);
            if (SUCCEEDED(hr)) m_jobId = value.ulVal;
        }
    }
    if (jobId != nullptr) *jobId = m_jobId;
    return hr;
}

HRESULT FilterBase::InitializePrintTicketManager() {
    if (m_pPropertyBag == nullptr) return E_PENDING;

    CComVariant perUserTicket;
    CComVariant printerName;
    CComVariant userToken;
    HRESULT hr = m_pPropertyBag->GetProperty(L"PerUserPrintTicket", &perUserTicket);
    if (SUCCEEDED(hr)) hr = m_pPropertyBag->GetProperty(L"PrinterName", &printerName);
    if (SUCCEEDED(hr)) hr = m_pPropertyBag->GetProperty(L"UserSecurityToken", &userToken);
    if (FAILED(hr)) return hr;

    m_printerName = printerName.bstrVal;

    CComPtr<IUnknown> ticketSource = perUserTicket.punkVal;
    CComPtr<IPrintReadStreamFactory> factory;
    hr = ticketSource->QueryInterface(IID_IPrintReadStreamFactory,
                                      reinterpret_cast<void**>(&factory));
    if (FAILED(hr)) return hr;
    CComPtr<IPrintReadStream> stream;
    hr = factory->GetStream(&stream);
    if (FAILED(hr)) return hr;
    return m_printTicketManager.Initialise(stream, printerName.bstrVal, userToken.byref);
}
