// printticketmanager.h: PrintTicketManager, the per-job holder of the PrintTickets a filter sees
// while it walks a job: the user's default ticket, each scope's own ticket (job, document,
// page; a scope without a ticket inherits a copy of the one above), optionally each scope's
// ticket merged through the PrintTicket provider, one typed view per scope, and the map of
// ticket parts rewritten during the job. Every method returns an HRESULT; one manager belongs
// to one filter thread.
#pragma once

#include <map>

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "platform/com/com.h"
#include "platform/msxml/msxml6.h"
#include "platform/printpipeline/filterpipeline.h"
#include "platform/prntvpt/prntvpt.h"
#include "support/utilities/bytebuffer.h"
#include "support/utilities/cxstring.h"

class PrintTicketManager {
public:
    PrintTicketManager();
    virtual ~PrintTicketManager();
    PrintTicketManager(const PrintTicketManager&) = delete;
    PrintTicketManager& operator=(const PrintTicketManager&) = delete;

    // Once per job: impersonates the user, opens the provider when merging, loads the default
    // ticket from the stream, and reverts the impersonation.
    HRESULT Initialise(IPrintReadStream* perUserTicket, wchar_t* printerName, HANDLE userToken);

    // At the start of each part of that kind: the part's own ticket becomes its scope's ticket;
    // a part without one (0x80070490) inherits from the scope above.
    HRESULT InitializeWithPrintTicket(const IFixedDocumentSequence* sequence);
    HRESULT InitializeWithPrintTicket(const IFixedDocument* document);
    HRESULT InitializeWithPrintTicket(const IFixedPage* page);
    // The same with a ticket in hand; a null ticket means none of its own.
    HRESULT InitializeWithPrintTicket(EPrintTicketScope scope, const IXMLDOMDocument2* ticket);

    // The typed view of a scope, owned by the manager (borrowed). E_PENDING before Initialise.
    HRESULT GetTicket(EPrintTicketScope scope, XpsFilterPrintTicket** view);

    IXMLDOMDocument2* GetPtrToDefaultPrintTicket() { return m_defaultTicket; }
    HANDLE GetUserToken() { return m_userToken; }
    CXString GetPrinterName() { return m_printerName; }

    // Tickets rewritten in this job, by part URI; the first ticket stored for a URI stays.
    HRESULT AddUpdatedPrintTicketToMap(IPartPrintTicket* ticket);
    // S_OK and the stored ticket (borrowed, no reference added), or S_FALSE and null.
    HRESULT GetUpdatedPrintTicketFromMap(CXString& uri, IPartPrintTicket** ticket);

    // Loads a new DOM from the whole stream (rewound first). E_FAIL when it does not parse.
    static HRESULT SetPTFromStream(IStream* stream, IXMLDOMDocument2** result);
    // The devmode a ticket's text carries (see PrintTicketXmlDocument::GetDevmodeFromPrintTicket).
    static HRESULT GetDevmodeFromPrintTicketString(wchar_t* ticketXml, ByteBuffer& devmode);

    // Set by a filter before Initialise to have merged tickets computed and required.
    bool m_mergeEnabled;

private:
    HRESULT InitialisePrintTickets(IStream* stream);
    HRESULT InitializeWithPartTicket(EPrintTicketScope scope, HRESULT getResult,
                                     IPartPrintTicket* ticket);
    static HRESULT SetPTFromDOMDoc(IXMLDOMDocument2* source, IXMLDOMDocument2** result);
    HRESULT MergeTicket(EPrintTicketScope scope, const IPartPrintTicket* ticket);
    HRESULT MergeTicket(EPrintTicketScope scope, const IXMLDOMDocument2* delta);
    // The scope's own slot (page, document, job); null for any other scope.
    IXMLDOMDocument2** OwnTicketSlot(EPrintTicketScope scope);
    // With merging enabled: the scope's merged ticket from the delta and the merged ticket
    // above.
    HRESULT MergeIntoMergedSlot(EPrintTicketScope scope, const IXMLDOMDocument2* delta);
    HRESULT GetMergedTicket(EPrintTicketScope scope, const IXMLDOMDocument2* delta,
                            IXMLDOMDocument2* base, IXMLDOMDocument2** result);
    HRESULT UpdateDefaultPTs(EPrintTicketScope scope);
    HRESULT FreePrintTickets(EPrintTicketScope scope);
    HRESULT CloseProvider();
    // A scope's own slot still holds the ticket `ticket` loaded, unchanged since.
    bool SlotStillHolds(EPrintTicketScope scope, const IPartPrintTicket* ticket);
    void RememberSlotSource(EPrintTicketScope scope, IPartPrintTicket* ticket);

    // Each DOM slot holds one reference to a private copy; a slot is never shared.
    IXMLDOMDocument2* m_defaultTicket;
    IXMLDOMDocument2* m_jobTicket;
    XpsFilterPrintTicket m_jobView;
    IXMLDOMDocument2* m_mergedJobTicket;
    IXMLDOMDocument2* m_documentTicket;
    XpsFilterPrintTicket m_documentView;
    IXMLDOMDocument2* m_mergedDocumentTicket;
    IXMLDOMDocument2* m_pageTicket;
    XpsFilterPrintTicket m_pageView;
    IXMLDOMDocument2* m_mergedPageTicket;
    HPTPROVIDER m_provider;
    HANDLE m_userToken;
    // Per own slot (page, document, job): the ticket part it was loaded from and the DOM's
    // change stamp then (or after the view wrapped it). Pages that share one ticket part get the
    // same part object, whose content never changes, so the next page's ticket need not be
    // parsed again while nobody edited the DOM.
    struct SlotSource {
        CComPtr<IPartPrintTicket> part;
        unsigned long long stamp = 0;
    };
    SlotSource m_slotSources[3];
    CXString m_printerName;

    struct UriLess {
        bool operator()(const CXString& a, const CXString& b) const { return a.Compare(b) < 0; }
    };
    std::map<CXString, CComPtr<IPartPrintTicket>, UriLess> m_updatedTickets;
};
