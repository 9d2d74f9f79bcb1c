// xpsfilterprintticketbase.cpp: the ticket slots of a typed view, the feature lookups that walk
// them from a feature's scope upwards, the per-Initialize attribute list, and the getters'
// status convention.
#include "filterpipeline/filterutilities/xpsfilterprintticketbase.h"

#include "support/errorframe/errorframe.h"
#include "support/utilities/persistentattributes.h"

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

}  // namespace

XpsFilterPrintTicketBase::XpsFilterPrintTicketBase()
    : m_scope(kPTJobScope),
      m_filterScope(EFilterPtScopeJob),
      m_attributeListStamp(-1),
      m_userToken(INVALID_HANDLE_VALUE) {}

XpsFilterPrintTicketBase::~XpsFilterPrintTicketBase() = default;

void XpsFilterPrintTicketBase::Initialize(EPrintTicketScope scope, IXMLDOMDocument2* defaultTicket,
                                          IXMLDOMDocument2* job, IXMLDOMDocument2* document,
                                          IXMLDOMDocument2* page, IXMLDOMDocument2* merged,
                                          CXString& printerName, HANDLE userToken) {
    m_changeCounter.Increment();
    SetScope(scope);
    m_printerName = printerName;
    m_userToken = userToken;
    Rewrap(m_mergedTicket, m_mergedStamp, merged);
    Rewrap(m_tickets[EFilterPtScopeUserDefault], m_ticketStamps[EFilterPtScopeUserDefault],
           defaultTicket);
    Rewrap(m_tickets[EFilterPtScopeJob], m_ticketStamps[EFilterPtScopeJob], job);
    Rewrap(m_tickets[EFilterPtScopeDocument], m_ticketStamps[EFilterPtScopeDocument], document);
    Rewrap(m_tickets[EFilterPtScopePage], m_ticketStamps[EFilterPtScopePage], page);
}

void XpsFilterPrintTicketBase::Rewrap(std::unique_ptr<PrintTicketXmlDocument>& slot,
                                      WrappedStamp& wrapped, IXMLDOMDocument2* dom) {
    if (dom == nullptr) {
        slot.reset();
        wrapped.stamp = 0;
        return;
    }
    // The wrapper holds a reference on its DOM, so the same pointer is the same document; the
    // stamp tells whether it is still as it was wrapped.
    if (slot && slot->GetDomDocPtr() == dom && wrapped.stamp != 0 &&
        platform::DomDocumentChangeStamp(dom) == wrapped.stamp) {
        return;
    }
    wrapped.stamp = 0;
    slot = std::make_unique<PrintTicketXmlDocument>(dom);
    // Taken after the wrapper's own changes (selection properties, the private prefix).
    wrapped.stamp = platform::DomDocumentChangeStamp(dom);
}

void XpsFilterPrintTicketBase::SetScope(EPrintTicketScope scope) {
    m_scope = scope;
    m_filterScope = MsEPrintTicketScopeToEFilterPtScope(scope);
}

XpsFilterPrintTicketBase::EFilterPtScope
XpsFilterPrintTicketBase::MsEPrintTicketScopeToEFilterPtScope(EPrintTicketScope scope) {
    switch (scope) {
        case kPTPageScope:
            return EFilterPtScopePage;
        case kPTDocumentScope:
            return EFilterPtScopeDocument;
        case kPTJobScope:
            return EFilterPtScopeJob;
    }
    return EFilterPtScopeUserDefault;
}

XpsFilterPrintTicketBase::EFilterPtScope XpsFilterPrintTicketBase::GetFeatureScopeFromName(
    const CXString& featureName) {
    if (featureName.Find(L"Page") == 0) return EFilterPtScopePage;
    if (featureName.Find(L"Document") == 0) return EFilterPtScopeDocument;
    return EFilterPtScopeJob;
}

PrintTicketXmlDocument* XpsFilterPrintTicketBase::GetTicketOfScope(EFilterPtScope scope) const {
    if (scope < EFilterPtScopeUserDefault || scope > EFilterPtScopePage) return nullptr;
    return m_tickets[scope].get();
}

HRESULT XpsFilterPrintTicketBase::XpsFilterGetFeatureOption(const wchar_t* featureName,
                                                            BSTR* optionName, BSTR* optionPrefix) {
    if (featureName == nullptr || optionName == nullptr) return E_POINTER;
    HRESULT hr = kNotFound;
    for (int scope = GetFeatureScopeFromName(featureName); scope >= 0; --scope) {
        PrintTicketXmlDocument* ticket = m_tickets[scope].get();
        if (ticket == nullptr) continue;
        try {
            hr = ticket->GetFeatureOption(featureName, optionName, optionPrefix);
        } catch (const ZorunComException& error) {
            hr = error.GetHresult();
        }
        if (SUCCEEDED(hr)) return hr;
    }
    return hr;
}

HRESULT XpsFilterPrintTicketBase::XpsFilterGetScoredPropertyValue(const wchar_t* featureName,
                                                                  const wchar_t* propertyName,
                                                                  int* value) {
    if (featureName == nullptr || propertyName == nullptr || value == nullptr) return E_POINTER;
    HRESULT hr = kNotFound;
    for (int scope = GetFeatureScopeFromName(featureName); scope >= 0; --scope) {
        PrintTicketXmlDocument* ticket = m_tickets[scope].get();
        if (ticket == nullptr) continue;
        try {
            hr = ticket->GetScoredPropertyValue(featureName, propertyName, value);
        } catch (const ZorunComException& error) {
            hr = error.GetHresult();
        }
        if (SUCCEEDED(hr)) return hr;
    }
    return hr;
}

AttributeBytesIndexedList& XpsFilterPrintTicketBase::GetAttributeBytesIndexedListRef() {
    if (m_attributeListStamp != m_changeCounter.Get()) {
        // A new Initialize: the device mode comes from the tickets again, from the view's scope
        // upwards. A view whose tickets carry none has none (not the previous tickets' one).
        ByteBuffer devmode;
        for (int scope = m_filterScope; scope >= 0; --scope) {
            if (m_tickets[scope] == nullptr) continue;
            const DevmodeCache& candidate = DevmodeOfSlot(scope);
            if (candidate.result == S_OK) {
                devmode = candidate.bytes;
                break;
            }
        }
        SetDevmode(devmode);
        m_attributeListStamp = m_changeCounter.Get();
    }
    return PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef(
        PersistentAttributes::GetDataModelDocPropNameSpaceId());
}

const XpsFilterPrintTicketBase::DevmodeCache& XpsFilterPrintTicketBase::DevmodeOfSlot(int scope) {
    DevmodeCache& cache = m_devmodes[scope];
    PrintTicketXmlDocument* ticket = m_tickets[scope].get();
    // Stamps are unique across documents and states: an equal stamp is this DOM, unchanged
    // (and so are the prefixes its wrapper read from it). Reading does not change the stamp.
    const unsigned long long stamp = platform::DomDocumentChangeStamp(ticket->GetDomDocPtr());
    if (stamp == 0 || stamp != cache.stamp) {
        cache.stamp = 0;
        cache.result = ticket->GetDevmodeFromPrintTicket(cache.bytes);
        cache.stamp = stamp;
    }
    return cache;
}

HRESULT XpsFilterPrintTicketBase::DoStandardStatusReturnProcessing(HRESULT hr, bool* found,
                                                                   HRESULT* status) {
    if (hr == kNotFound) {
        // An absent setting is never an error: the getter gives its default.
        if (found != nullptr) *found = false;
        if (status != nullptr) *status = S_FALSE;
        return S_OK;
    }
    if (found != nullptr) *found = SUCCEEDED(hr);
    if (status != nullptr) {
        *status = hr;
        return S_OK;
    }
    return hr;
}
