// xpsfilterprintticketbase.h: XpsFilterPrintTicketBase, the ticket half of a typed ticket view.
// It holds one scope's view of a job's PrintTickets (the user's default ticket and the job,
// document and page tickets, each wrapped in its own PrintTicketXmlDocument, plus the merged
// ticket of the scope), looks features up from the scope their name implies upwards, and builds
// the driver's attribute list from the first ticket that carries the driver's device mode. A
// change counter, raised by every Initialize, stamps every cached answer of the view.
#pragma once

#include <memory>

#include "filterpipeline/filterutilities/printticketattributebytesreaderwriter.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/wintypes.h"
#include "platform/msxml/msxml6.h"
#include "platform/prntvpt/prntvpt.h"
#include "support/utilities/cxstring.h"

class XpsFilterPrintTicketBase : public PrintTicketAttributeBytesReaderWriter {
public:
    // The slots of the view's ticket array.
    enum EFilterPtScope : int {
        EFilterPtScopeUserDefault = 0,
        EFilterPtScopeJob = 1,
        EFilterPtScopeDocument = 2,
        EFilterPtScopePage = 3,
    };
    static constexpr int kTicketSlots = 4;

    // A signed 32-bit counter; -1 means "never initialised".
    class PtChangeCounter {
    public:
        PtChangeCounter() = default;
        PtChangeCounter(const PtChangeCounter&) = default;
        PtChangeCounter& operator=(const PtChangeCounter&) = default;

        void Reset() { m_value = -1; }
        bool IsInitialized() const { return static_cast<DWORD>(m_value) < 0xFFFFFFFFu; }
        void Increment() { m_value = static_cast<LONG>(static_cast<DWORD>(m_value) + 1u); }
        LONG Get() const { return m_value; }
        void Set(LONG value) { m_value = value; }
        bool operator==(const PtChangeCounter& other) const { return m_value == other.m_value; }
        bool operator!=(const PtChangeCounter& other) const { return m_value != other.m_value; }

    private:
        LONG m_value = -1;
    };

    XpsFilterPrintTicketBase();
    ~XpsFilterPrintTicketBase() override;
    XpsFilterPrintTicketBase(const XpsFilterPrintTicketBase&) = delete;
    XpsFilterPrintTicketBase& operator=(const XpsFilterPrintTicketBase&) = delete;

    // Raises the change counter (every cached answer becomes stale), sets the scope, copies the
    // printer name and token, then wraps each non-null DOM in a PrintTicketXmlDocument of its
    // own (merged, default, job, document, page, in that order); a null DOM empties its slot.
    // A slot that already wraps the same DOM, unchanged since it was wrapped (its
    // platform::DomDocumentChangeStamp is the same), keeps its wrapper: the job and document
    // tickets are wrapped once, not once per page. A DOM that is not a PrintTicket throws the
    // document's ZorunComException; the slots before it are already replaced.
    void Initialize(EPrintTicketScope scope, IXMLDOMDocument2* defaultTicket, IXMLDOMDocument2* job,
                    IXMLDOMDocument2* document, IXMLDOMDocument2* page, IXMLDOMDocument2* merged,
                    CXString& printerName, HANDLE userToken);

    void SetScope(EPrintTicketScope scope);
    // page (0) -> 3, document (1) -> 2, job (2) -> 1, anything else -> 0.
    static EFilterPtScope MsEPrintTicketScopeToEFilterPtScope(EPrintTicketScope scope);
    // "Page..." -> page, "Document..." -> document, every other name -> job.
    static EFilterPtScope GetFeatureScopeFromName(const CXString& featureName);

    // The option of the feature <keywords prefix><featureName>, from the first ticket that has
    // it, asking the tickets from the scope the name implies upwards (page, document, job,
    // default; absent slots skipped). Without a success the last failure is returned, or
    // HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when no ticket was asked. A failure a ticket throws
    // counts as that ticket's failure. The merged ticket is not asked.
    HRESULT XpsFilterGetFeatureOption(const wchar_t* featureName, BSTR* optionName,
                                      BSTR* optionPrefix);
    // The same walk for the integer value of a ScoredProperty of the feature.
    HRESULT XpsFilterGetScoredPropertyValue(const wchar_t* featureName, const wchar_t* propertyName,
                                            int* value);

    // The driver's document-property attributes of this view: built once per Initialize, from
    // the page device mode snapshot of the first ticket, from the view's own scope upwards, that
    // carries a valid one; an empty list when none does.
    using PrintTicketAttributeBytesReaderWriter::GetAttributeBytesIndexedListRef;
    AttributeBytesIndexedList& GetAttributeBytesIndexedListRef() override;

    EPrintTicketScope GetScope() const { return m_scope; }
    EFilterPtScope GetFilterScope() const { return m_filterScope; }
    const PtChangeCounter& GetChangeCounter() const { return m_changeCounter; }
    // The ticket of a slot, or null (borrowed; valid until the next Initialize).
    PrintTicketXmlDocument* GetTicketOfScope(EFilterPtScope scope) const;
    PrintTicketXmlDocument* GetMergedTicket() const { return m_mergedTicket.get(); }
    const CXString& GetPrinterName() const { return m_printerName; }
    HANDLE GetUserToken() const { return m_userToken; }

protected:
    // The status convention of every typed getter:
    // - hr HRESULT_FROM_WIN32(ERROR_NOT_FOUND) (the setting is absent): *found = false,
    //   *status = S_FALSE, returns S_OK (the getter gives its default);
    // - otherwise *found = SUCCEEDED(hr);
    // - with a status pointer *status = hr and S_OK is returned (nothing is thrown);
    // - without one hr is returned, and a getter throws it when it is a failure.
    // Both pointers are optional.
    HRESULT DoStandardStatusReturnProcessing(HRESULT hr, bool* found, HRESULT* status);

    // True when a cache stamped with `stamp` is valid for the current Initialize.
    bool IsCacheCurrent(LONG stamp) const {
        return m_changeCounter.IsInitialized() && stamp == m_changeCounter.Get();
    }

    EPrintTicketScope m_scope;
    EFilterPtScope m_filterScope;
    std::unique_ptr<PrintTicketXmlDocument> m_mergedTicket;
    std::unique_ptr<PrintTicketXmlDocument> m_tickets[kTicketSlots];
    PtChangeCounter m_changeCounter;

private:
    // The change stamp of a wrapped DOM as it stood once wrapped (0: do not reuse).
    struct WrappedStamp {
        unsigned long long stamp = 0;
    };
    // A ticket's page device mode as GetDevmodeFromPrintTicket gave it, for the DOM state of
    // `stamp` (0: nothing cached).
    struct DevmodeCache {
        unsigned long long stamp = 0;
        HRESULT result = S_FALSE;
        ByteBuffer bytes;
    };
    void Rewrap(std::unique_ptr<PrintTicketXmlDocument>& slot, WrappedStamp& wrapped,
                IXMLDOMDocument2* dom);
    // GetDevmodeFromPrintTicket of a slot's ticket, decoded once per DOM state.
    const DevmodeCache& DevmodeOfSlot(int scope);

    WrappedStamp m_mergedStamp;
    WrappedStamp m_ticketStamps[kTicketSlots];
    DevmodeCache m_devmodes[kTicketSlots];

protected:
    LONG m_attributeListStamp;
    CXString m_printerName;
    HANDLE m_userToken;
};
