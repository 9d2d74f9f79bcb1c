// printticketmanager.cpp: ticket slots per scope, top-down inheritance, provider merges and the
// map of rewritten tickets.
#include "filterpipeline/filterutilities/printticketmanager.h"

#include <new>

#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/rootnamespaces.h"
#include "platform/win32/security.h"
#include "support/errorframe/errorframe.h"

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

void ReleaseSlot(IXMLDOMDocument2*& slot) {
    if (slot != nullptr) {
        slot->Release();
        slot = nullptr;
    }
}

// Impersonates a token on the calling thread; the Win32 error as an HRESULT on failure.
HRESULT Impersonate(HANDLE token) {
    if (SetThreadToken(nullptr, token)) return S_OK;
    return GetLastErrorAsHResult();
}

void RevertImpersonation() {
    SetThreadToken(nullptr, nullptr);
}

HRESULT CreateDom(IXMLDOMDocument2** document) {
    return CoCreateInstance(CLSID_DOMDocument60, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument2,
                            reinterpret_cast<void**>(document));
}

// Loads a DOM from a stream object through a VT_UNKNOWN variant. A ticket that binds the
// framework namespace as its default namespace (legal, and written by some producers) gets it
// under a prefix, which the document classes require.
HRESULT LoadFrom(IXMLDOMDocument2* document, IUnknown* source) {
    CComVariant input(source);
    VARIANT_BOOL loaded = VARIANT_FALSE;
    HRESULT hr = document->load(input, &loaded);
    if (FAILED(hr)) return hr;
    if (loaded == VARIANT_FALSE) return E_FAIL;
    hr = RootNamespaces::PrefixDefaultFrameworkNamespace(document);
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace

PrintTicketManager::PrintTicketManager()
    : m_mergeEnabled(false),
      m_defaultTicket(nullptr),
      m_jobTicket(nullptr),
      m_mergedJobTicket(nullptr),
      m_documentTicket(nullptr),
      m_mergedDocumentTicket(nullptr),
      m_pageTicket(nullptr),
      m_mergedPageTicket(nullptr),
      m_provider(nullptr),
      m_userToken(INVALID_HANDLE_VALUE) {}

PrintTicketManager::~PrintTicketManager() {
    CloseProvider();
    m_updatedTickets.clear();
    ReleaseSlot(m_defaultTicket);
    ReleaseSlot(m_jobTicket);
    ReleaseSlot(m_mergedJobTicket);
    ReleaseSlot(m_documentTicket);
    ReleaseSlot(m_mergedDocumentTicket);
    ReleaseSlot(m_pageTicket);
    ReleaseSlot(m_mergedPageTicket);
}

HRESULT PrintTicketManager::Initialise(IPrintReadStream* perUserTicket, wchar_t* printerName,
                                       HANDLE userToken) {
    m_userToken = userToken;
    m_printerName = printerName;
    CloseProvider();

    if (perUserTicket == nullptr) return E_POINTER;
    if (SysStringLen(printerName) == 0) return E_INVALIDARG;

    HRESULT hr = Impersonate(userToken);
    if (FAILED(hr)) return hr;

    if (m_mergeEnabled) {
        hr = PTOpenProvider(printerName, 1, &m_provider);
        if (FAILED(hr)) {
            m_provider = nullptr;
            RevertImpersonation();
            return hr;
        }
    }

    CPrintReadStreamToIStream* wrapper = nullptr;
    try {
        wrapper = new CPrintReadStreamToIStream(perUserTicket);
    } catch (const std::bad_alloc&) {
        RevertImpersonation();
        return E_OUTOFMEMORY;
    } catch (const ZorunComException& e) {
        RevertImpersonation();
        return e.GetHresult();
    }
    hr = InitialisePrintTickets(wrapper);
    wrapper->Release();
    RevertImpersonation();
    return hr;
}

HRESULT PrintTicketManager::InitialisePrintTickets(IStream* stream) {
    ReleaseSlot(m_defaultTicket);
    ReleaseSlot(m_jobTicket);
    ReleaseSlot(m_mergedJobTicket);
    ReleaseSlot(m_documentTicket);
    ReleaseSlot(m_pageTicket);
    ReleaseSlot(m_mergedDocumentTicket);
    ReleaseSlot(m_mergedPageTicket);
    if (stream == nullptr) return E_POINTER;
    return SetPTFromStream(stream, &m_defaultTicket);
}

HRESULT PrintTicketManager::SetPTFromStream(IStream* stream, IXMLDOMDocument2** result) {
    if (stream == nullptr || result == nullptr) return E_POINTER;
    *result = nullptr;
    CComPtr<IXMLDOMDocument2> document;
    HRESULT hr = CreateDom(&document);
    if (FAILED(hr)) return hr;
    LARGE_INTEGER start{};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    hr = LoadFrom(document, stream);
    if (FAILED(hr)) return hr;
    *result = document.Detach();
    return S_OK;
}

HRESULT PrintTicketManager::SetPTFromDOMDoc(IXMLDOMDocument2* source, IXMLDOMDocument2** result) {
    if (source == nullptr) return E_POINTER;
    CComPtr<IStream> serialised;
    HRESULT hr = source->QueryInterface(IID_IStream, reinterpret_cast<void**>(&serialised));
    if (FAILED(hr)) return hr;
    // The slot receives a fresh copy; what it held before is released, so that a job in which
    // every page brings its own ticket does not accumulate documents.
    IXMLDOMDocument2* copy = nullptr;
    hr = SetPTFromStream(serialised, &copy);
    if (FAILED(hr)) return hr;
    ReleaseSlot(*result);
    *result = copy;
    return S_OK;
}

HRESULT PrintTicketManager::InitializeWithPrintTicket(const IFixedDocumentSequence* sequence) {
    if (sequence == nullptr) return E_POINTER;
    CComPtr<IPartPrintTicket> ticket;
    HRESULT hr = const_cast<IFixedDocumentSequence*>(sequence)->GetPrintTicket(&ticket);
    return InitializeWithPartTicket(kPTJobScope, hr, ticket);
}

HRESULT PrintTicketManager::InitializeWithPrintTicket(const IFixedDocument* document) {
    if (document == nullptr) return E_POINTER;
    CComPtr<IPartPrintTicket> ticket;
    HRESULT hr = const_cast<IFixedDocument*>(document)->GetPrintTicket(&ticket);
    return InitializeWithPartTicket(kPTDocumentScope, hr, ticket);
}

HRESULT PrintTicketManager::InitializeWithPrintTicket(const IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    CComPtr<IPartPrintTicket> ticket;
    HRESULT hr = const_cast<IFixedPage*>(page)->GetPrintTicket(&ticket);
    return InitializeWithPartTicket(kPTPageScope, hr, ticket);
}

HRESULT PrintTicketManager::InitializeWithPartTicket(EPrintTicketScope scope, HRESULT getResult,
                                                     IPartPrintTicket* ticket) {
    if (SUCCEEDED(getResult)) return MergeTicket(scope, ticket);
    if (getResult == kNotFound) {
        FreePrintTickets(scope);
        return UpdateDefaultPTs(scope);
    }
    return getResult;
}

HRESULT PrintTicketManager::InitializeWithPrintTicket(EPrintTicketScope scope,
                                                      const IXMLDOMDocument2* ticket) {
    FreePrintTickets(scope);
    HRESULT hr = UpdateDefaultPTs(scope);
    if (SUCCEEDED(hr) && ticket != nullptr) hr = MergeTicket(scope, ticket);
    return hr;
}

bool PrintTicketManager::SlotStillHolds(EPrintTicketScope scope, const IPartPrintTicket* ticket) {
    IXMLDOMDocument2** slot = OwnTicketSlot(scope);
    if (slot == nullptr || *slot == nullptr) return false;
    const SlotSource& source = m_slotSources[static_cast<int>(scope)];
    return source.part != nullptr && source.part == ticket && source.stamp != 0 &&
           platform::DomDocumentChangeStamp(*slot) == source.stamp;
}

void PrintTicketManager::RememberSlotSource(EPrintTicketScope scope, IPartPrintTicket* ticket) {
    IXMLDOMDocument2** slot = OwnTicketSlot(scope);
    if (slot == nullptr) return;
    SlotSource& source = m_slotSources[static_cast<int>(scope)];
    source.part = ticket;
    source.stamp =
        ticket != nullptr && *slot != nullptr ? platform::DomDocumentChangeStamp(*slot) : 0;
}

HRESULT PrintTicketManager::MergeTicket(EPrintTicketScope scope, const IPartPrintTicket* ticket) {
    if (ticket == nullptr) return E_POINTER;
    // The part the slot was loaded from, unedited: its DOM is what a new load would give.
    if (SlotStillHolds(scope, ticket)) {
        IXMLDOMDocument2** slot = OwnTicketSlot(scope);
        return m_mergeEnabled ? MergeIntoMergedSlot(scope, *slot) : S_OK;
    }
    CComPtr<IXMLDOMDocument2> document;
    HRESULT hr = CreateDom(&document);
    if (FAILED(hr)) return hr;
    CComPtr<IPrintReadStream> readStream;
    hr = const_cast<IPartPrintTicket*>(ticket)->GetStream(&readStream);
    if (FAILED(hr)) return hr;
    CComPtr<ISequentialStream> sequential;
    sequential.Attach(CreatePrintReadSequentialStream(readStream));
    if (sequential == nullptr) return E_OUTOFMEMORY;
    hr = LoadFrom(document, sequential);
    if (FAILED(hr)) return hr;
    // The document just loaded from the part is referenced by nothing else: it becomes the
    // scope's own ticket as it stands, where a copy (serialised and parsed again) would only
    // double the cost of every part that brings a ticket.
    if (IXMLDOMDocument2** slot = OwnTicketSlot(scope)) {
        ReleaseSlot(*slot);
        *slot = document;
        (*slot)->AddRef();
    }
    RememberSlotSource(scope, const_cast<IPartPrintTicket*>(ticket));
    if (!m_mergeEnabled) return S_OK;
    return MergeIntoMergedSlot(scope, document.p);
}

IXMLDOMDocument2** PrintTicketManager::OwnTicketSlot(EPrintTicketScope scope) {
    switch (scope) {
        case kPTPageScope:
            return &m_pageTicket;
        case kPTDocumentScope:
            return &m_documentTicket;
        case kPTJobScope:
            return &m_jobTicket;
        default:
            return nullptr;
    }
}

HRESULT PrintTicketManager::MergeTicket(EPrintTicketScope scope, const IXMLDOMDocument2* delta) {
    auto* source = const_cast<IXMLDOMDocument2*>(delta);
    HRESULT hr = S_OK;
    if (IXMLDOMDocument2** slot = OwnTicketSlot(scope)) hr = SetPTFromDOMDoc(source, slot);
    RememberSlotSource(scope, nullptr);
    if (!m_mergeEnabled) return hr;
    return MergeIntoMergedSlot(scope, delta);
}

HRESULT PrintTicketManager::MergeIntoMergedSlot(EPrintTicketScope scope,
                                                const IXMLDOMDocument2* delta) {
    if (delta == nullptr) return E_POINTER;
    IXMLDOMDocument2* base = nullptr;
    IXMLDOMDocument2** mergedSlot = nullptr;
    switch (scope) {
        case kPTPageScope:
            base = m_mergedDocumentTicket, mergedSlot = &m_mergedPageTicket;
            break;
        case kPTDocumentScope:
            base = m_mergedJobTicket, mergedSlot = &m_mergedDocumentTicket;
            break;
        case kPTJobScope:
            base = m_defaultTicket, mergedSlot = &m_mergedJobTicket;
            break;
        default:
            return E_INVALIDARG;
    }
    if (base == nullptr) return E_PENDING;

    IXMLDOMDocument2* merged = nullptr;
    HRESULT hr = GetMergedTicket(scope, delta, base, &merged);
    if (SUCCEEDED(hr) && merged != *mergedSlot) {
        ReleaseSlot(*mergedSlot);
        *mergedSlot = merged;
    }
    return hr;
}

HRESULT PrintTicketManager::GetMergedTicket(EPrintTicketScope scope, const IXMLDOMDocument2* delta,
                                            IXMLDOMDocument2* base, IXMLDOMDocument2** result) {
    if (m_provider == nullptr) return E_PENDING;
    if (result == nullptr || delta == nullptr || base == nullptr) return E_POINTER;
    *result = nullptr;
    try {
        CComPtr<IStream> resultStream;
        HRESULT hr = CreateStreamOnHGlobal(nullptr, TRUE, &resultStream);
        if (FAILED(hr)) return hr;
        CComPtr<IStream> baseStream;
        hr = base->QueryInterface(IID_IStream, reinterpret_cast<void**>(&baseStream));
        if (FAILED(hr)) return hr;
        CComPtr<IStream> deltaStream;
        hr = const_cast<IXMLDOMDocument2*>(delta)->QueryInterface(
            IID_IStream, reinterpret_cast<void**>(&deltaStream));
        if (FAILED(hr)) return hr;

        hr = Impersonate(m_userToken);
        if (FAILED(hr)) return hr;
        BSTR errorText = nullptr;
        hr = PTMergeAndValidatePrintTicket(m_provider, baseStream, deltaStream, scope, resultStream,
                                           &errorText);
        if (SUCCEEDED(hr)) hr = SetPTFromStream(resultStream, result);
        RevertImpersonation();
        SysFreeString(errorText);  // the provider's explanation is not reported
        return hr;
    } catch (const ZorunComException& e) {
        RevertImpersonation();
        return e.GetHresult();
    }
}

HRESULT PrintTicketManager::UpdateDefaultPTs(EPrintTicketScope scopeValue) {
    const int scope = static_cast<int>(scopeValue);
    if (m_defaultTicket == nullptr) return E_PENDING;
    HRESULT hr = S_OK;
    if (scope < 3 && m_jobTicket == nullptr) hr = SetPTFromDOMDoc(m_defaultTicket, &m_jobTicket);
    if (SUCCEEDED(hr) && scope < 2 && m_documentTicket == nullptr) {
        hr = SetPTFromDOMDoc(m_jobTicket, &m_documentTicket);
    }
    if (SUCCEEDED(hr) && scope == 0 && m_pageTicket == nullptr) {
        hr = SetPTFromDOMDoc(m_documentTicket, &m_pageTicket);
    }
    if (FAILED(hr) || !m_mergeEnabled) return hr;

    // Merged slots inherit from the default ticket itself, not from the job's own ticket.
    if (scope < 3 && m_mergedJobTicket == nullptr) {
        hr = SetPTFromDOMDoc(m_defaultTicket, &m_mergedJobTicket);
    }
    if (SUCCEEDED(hr) && scope < 2 && m_mergedDocumentTicket == nullptr) {
        hr = SetPTFromDOMDoc(m_mergedJobTicket, &m_mergedDocumentTicket);
    }
    if (SUCCEEDED(hr) && scope == 0 && m_mergedPageTicket == nullptr) {
        hr = SetPTFromDOMDoc(m_mergedDocumentTicket, &m_mergedPageTicket);
    }
    return hr;
}

HRESULT PrintTicketManager::FreePrintTickets(EPrintTicketScope scopeValue) {
    const int scope = static_cast<int>(scopeValue);
    for (int freed = 0; freed <= scope && freed < 3; ++freed) m_slotSources[freed] = {};
    if (scope >= 0) {
        ReleaseSlot(m_mergedPageTicket);
        ReleaseSlot(m_pageTicket);
    }
    if (scope >= 1) {
        ReleaseSlot(m_mergedDocumentTicket);
        ReleaseSlot(m_documentTicket);
    }
    if (scope >= 2) {
        ReleaseSlot(m_mergedJobTicket);
        ReleaseSlot(m_jobTicket);
    }
    return S_OK;
}

HRESULT PrintTicketManager::GetTicket(EPrintTicketScope scope, XpsFilterPrintTicket** view) {
    if (view == nullptr) return E_POINTER;
    HRESULT hr = UpdateDefaultPTs(scope);
    if (FAILED(hr)) return hr;
    *view = nullptr;

    XpsFilterPrintTicket* chosen = nullptr;
    IXMLDOMDocument2* merged = nullptr;
    switch (scope) {
        case kPTJobScope:
            chosen = &m_jobView, merged = m_mergedJobTicket;
            break;
        case kPTDocumentScope:
            chosen = &m_documentView, merged = m_mergedDocumentTicket;
            break;
        case kPTPageScope:
            chosen = &m_pageView, merged = m_mergedPageTicket;
            break;
        default:
            return E_FAIL;
    }
    if (m_mergeEnabled && merged == nullptr) return E_FAIL;

    // The view's wrapper sets its selection properties on a DOM it wraps anew, which changes the
    // DOM's stamp: a slot unedited until now is remembered with its stamp after the wrap.
    bool unedited[3] = {};
    for (int own = 0; own < 3; ++own) {
        const auto ownScope = static_cast<EPrintTicketScope>(own);
        unedited[own] = SlotStillHolds(ownScope, m_slotSources[own].part);
        if (!unedited[own]) m_slotSources[own] = {};
    }
    // A ticket the views cannot read (not a PrintTicket, say) is reported, never thrown at the
    // filter.
    try {
        chosen->Initialize(scope, m_defaultTicket, m_jobTicket, m_documentTicket, m_pageTicket,
                           merged, m_printerName, m_userToken);
        for (int own = 0; own < 3; ++own) {
            if (unedited[own]) {
                RememberSlotSource(static_cast<EPrintTicketScope>(own), m_slotSources[own].part);
            }
        }
    } catch (const ZorunComException& error) {
        return FAILED(error.GetHresult()) ? error.GetHresult() : E_FAIL;
    } catch (const CAtlException& error) {
        return FAILED(error.m_hr) ? error.m_hr : E_FAIL;
    }
    *view = chosen;
    return *view == nullptr ? E_FAIL : S_OK;
}

HRESULT PrintTicketManager::CloseProvider() {
    if (m_provider == nullptr) return S_OK;
    HRESULT hr = PTCloseProvider(m_provider);
    m_provider = nullptr;
    return hr;
}

HRESULT PrintTicketManager::AddUpdatedPrintTicketToMap(IPartPrintTicket* ticket) {
    if (ticket == nullptr) return E_POINTER;
    CComBSTR uri;
    HRESULT hr = ticket->GetUri(&uri);
    // Stored even when GetUri failed (under an empty key); the first ticket per key stays.
    m_updatedTickets.try_emplace(CXString(static_cast<const wchar_t*>(uri)), ticket);
    return hr;
}

HRESULT PrintTicketManager::GetUpdatedPrintTicketFromMap(CXString& uri, IPartPrintTicket** ticket) {
    if (ticket == nullptr) return E_POINTER;
    auto found = m_updatedTickets.find(uri);
    if (found == m_updatedTickets.end()) {
        *ticket = nullptr;
        return S_FALSE;
    }
    *ticket = found->second;
    return S_OK;
}

HRESULT PrintTicketManager::GetDevmodeFromPrintTicketString(wchar_t* ticketXml,
                                                            ByteBuffer& devmode) {
    devmode.clear();
    if (ticketXml == nullptr) return E_POINTER;
    HRESULT hr = S_OK;
    try {
        CComPtr<IXMLDOMDocument2> document;
        RETURN_IF_FAILED(CreateDom(&document));
        CComBSTR text(ticketXml);
        VARIANT_BOOL loaded = VARIANT_FALSE;
        RETURN_IF_FAILED(document->loadXML(text, &loaded));
        if (loaded == VARIANT_FALSE) return E_FAIL;
        RETURN_IF_FAILED(RootNamespaces::PrefixDefaultFrameworkNamespace(document));
        PrintTicketXmlDocument ticket(document);
        hr = ticket.GetDevmodeFromPrintTicket(devmode);
    } catch (const ZorunComException& error) {
        hr = error.GetHresult();
    } catch (const CAtlException& error) {
        hr = error.m_hr;
    }
    // Only S_OK carries a device mode: S_FALSE (none, or not a PrintTicket) and failures leave
    // the buffer empty.
    if (hr != S_OK) devmode.clear();
    return hr;
}
