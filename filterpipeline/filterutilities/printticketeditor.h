// printticketeditor.h: PrintTicketEditor rewrites the PrintTicket of one XPS part (the fixed
// document sequence, a fixed document or a fixed page) on its way to the next filter: it hands
// the filter an editable PrintTicketXmlDocument, writes it into a new ticket part through the
// pipeline's consumer, attaches that part to the XPS part and records it in the ticket manager's
// map of updated tickets, so that later parts which shared the same original ticket receive the
// same rewritten part instead of a copy of their own. docs/editor.md describes the behaviour.
//
// Calling order for a filter: construct; if HasPrintTicketAlreadyBeenUpdatedForThisUri(), call
// TryToSynchAndCommitThisPrintTicketWithMatchFromMap() and stop; otherwise get a document
// (TryToGetPointerToPrintTicketXmlDocument when the part has a ticket,
// GetPointerToNewEmptyPrintTicketXmlDocument when it has none), edit it, CommitChanges().
#pragma once

#include <memory>

#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/com.h"
#include "platform/msxml/msxml6.h"
#include "platform/printpipeline/filterpipeline.h"
#include "platform/prntvpt/prntvpt.h"
#include "support/utilities/cxstring.h"

class PrintTicketEditor {
public:
    // Editors of the job ticket (the sequence's), of the ticket of the document or page with the
    // given index (used in the names of new ticket parts). Each takes a reference to the
    // consumer and to the part, and reads the part's current ticket.
    PrintTicketEditor(IXpsDocumentConsumer* consumer, IFixedDocumentSequence* sequence,
                      PrintTicketManager& manager);
    PrintTicketEditor(IXpsDocumentConsumer* consumer, IFixedDocument* document, ULONG index,
                      PrintTicketManager& manager);
    PrintTicketEditor(IXpsDocumentConsumer* consumer, IFixedPage* page, ULONG index,
                      PrintTicketManager& manager);
    // Releases everything held; an uncommitted edit is dropped, never committed.
    virtual ~PrintTicketEditor();
    PrintTicketEditor(const PrintTicketEditor&) = delete;
    PrintTicketEditor& operator=(const PrintTicketEditor&) = delete;

    // The part carried a ticket when the editor was made.
    bool DoesPartHaveExistingPrintTicket();
    // The part's ticket, under its scope-suffixed name, is already in the manager's map of
    // rewritten tickets (another part that shared it was edited first).
    bool HasPrintTicketAlreadyBeenUpdatedForThisUri();

    // Gives the part the rewritten ticket the map holds for its ticket's name. S_FALSE when the
    // map has none; E_INVALIDARG for the sequence's editor (the job ticket is never
    // synchronised); otherwise SetPrintTicket's result.
    HRESULT TryToSynchAndCommitThisPrintTicketWithMatchFromMap();

    // For a part with a ticket: creates the new ticket part and returns an editable copy of the
    // existing ticket (borrowed; the editor owns it). S_FALSE and nothing created when the part
    // has no ticket or its ticket was already rewritten; E_PENDING without a consumer; E_FAIL
    // when the existing ticket does not parse or is not a PrintTicket.
    HRESULT TryToGetPointerToPrintTicketXmlDocument(PrintTicketXmlDocument** document);
    // For a part without a ticket: creates a new ticket part and returns an empty PrintTicket
    // carrying the default ticket's namespace declarations (borrowed). E_FAIL when the part has
    // a ticket.
    HRESULT GetPointerToNewEmptyPrintTicketXmlDocument(PrintTicketXmlDocument** document);

    // Writes the document into the new ticket part (once), sets that part as the XPS part's
    // ticket and adds it to the manager's map. E_FAIL when no new part was created.
    HRESULT CommitChanges();

    // The ticket's URI with this editor's scope suffix ("_p", "_d"; "_j" only for a job ticket
    // first named for a lower scope) before the extension and, when addUniquePart is set, a
    // part made unique by the index and the tick count.
    HRESULT GetUriWithScopeSuffixAdded(IPartPrintTicket* ticket, CXString& uri, bool addUniquePart);

private:
    PrintTicketEditor(IXpsDocumentConsumer* consumer, EPrintTicketScope scope,
                      IFixedDocumentSequence* sequence, IFixedDocument* document, IFixedPage* page,
                      ULONG documentIndex, ULONG pageIndex, PrintTicketManager& manager);

    // Loads a DOM from the content of a ticket part.
    static HRESULT LoadTicketPart(IPartPrintTicket* ticket, IXMLDOMDocument2** document);
    // Wraps m_ticketDom in the document handed to the filter.
    // Gives m_ticketUri a name of its own when the suffix rule left only the extension.
    void RenameTicketAlreadySuffixed(IPartPrintTicket* ticket);
    void WrapTicketDom();
    // Closes and drops the new part and its stream after a failed edit, so that nothing
    // half-made can be committed.
    void AbandonNewPart();
    // Sets a ticket part on the part this editor holds; E_INVALIDARG when there is none.
    HRESULT SetTicketOnPart(IPartPrintTicket* ticket);

    EPrintTicketScope m_scope;
    CComPtr<IFixedDocumentSequence> m_pSequence;
    CComPtr<IFixedDocument> m_pDocument;
    CComPtr<IFixedPage> m_pPage;
    bool m_hasExistingTicket = false;
    PrintTicketManager& m_manager;
    ULONG m_documentIndex = 0;
    ULONG m_pageIndex = 0;
    CComPtr<IXpsDocumentConsumer> m_pConsumer;
    CXString m_ticketUri;
    CComPtr<IPartPrintTicket> m_existingTicket;
    CComPtr<IPartPrintTicket> m_newTicketPart;
    CComPtr<IPrintWriteStream> m_writeStream;
    CComPtr<IXMLDOMDocument2> m_ticketDom;
    std::unique_ptr<PrintTicketXmlDocument> m_ticketDocument;
};
