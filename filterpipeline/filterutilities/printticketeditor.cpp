// printticketeditor.cpp: per-part ticket rewriting: scope-suffixed ticket names, new ticket
// parts through the consumer, the shared map of rewritten tickets and the block-wise commit.
#include "filterpipeline/filterutilities/printticketeditor.h"

#include <new>
#include <string>
#include <string_view>

#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printschema.h"
#include "filterpipeline/filterutilities/rootnamespaces.h"
#include "platform/win32/kernel.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/exceptions.h"

namespace {

constexpr ULONG kCommitBlockSize = 8192;

// The private-keywords prefix without its colon: "zk".
std::wstring PrivateKeywordsPrefixName() {
    const std::wstring_view prefix(PrintSchema::PrivateKeywordsPrefix);
    return std::wstring(prefix.substr(0, prefix.find(L':')));
}

// An exception always stands for a failure, even when the document layer carries a success
// code in it (a document whose root is not a PrintTicket is rejected with S_FALSE).
HRESULT FailureOf(const ZorunComException& e) {
    return FAILED(e.GetHresult()) ? e.GetHresult() : E_FAIL;
}

}  // namespace

PrintTicketEditor::PrintTicketEditor(IXpsDocumentConsumer* consumer,
                                     IFixedDocumentSequence* sequence, PrintTicketManager& manager)
    : PrintTicketEditor(consumer, kPTJobScope, sequence, nullptr, nullptr, 0, 0, manager) {}

PrintTicketEditor::PrintTicketEditor(IXpsDocumentConsumer* consumer, IFixedDocument* document,
                                     ULONG index, PrintTicketManager& manager)
    : PrintTicketEditor(consumer, kPTDocumentScope, nullptr, document, nullptr, index, 0, manager) {
}

PrintTicketEditor::PrintTicketEditor(IXpsDocumentConsumer* consumer, IFixedPage* page, ULONG index,
                                     PrintTicketManager& manager)
    : PrintTicketEditor(consumer, kPTPageScope, nullptr, nullptr, page, 0, index, manager) {}

PrintTicketEditor::PrintTicketEditor(IXpsDocumentConsumer* consumer, EPrintTicketScope scope,
                                     IFixedDocumentSequence* sequence, IFixedDocument* document,
                                     IFixedPage* page, ULONG documentIndex, ULONG pageIndex,
                                     PrintTicketManager& manager)
    : m_scope(scope),
      m_pSequence(sequence),
      m_pDocument(document),
      m_pPage(page),
      m_manager(manager),
      m_documentIndex(documentIndex),
      m_pageIndex(pageIndex),
      m_pConsumer(consumer) {
    CComPtr<IPartPrintTicket> ticket;
    HRESULT hr = E_POINTER;
    if (m_pSequence) {
        hr = m_pSequence->GetPrintTicket(&ticket);
    } else if (m_pDocument) {
        hr = m_pDocument->GetPrintTicket(&ticket);
    } else if (m_pPage) {
        hr = m_pPage->GetPrintTicket(&ticket);
    }
    // A part without a ticket (or one that cannot say) is not an error: it gets a new one.
    if (hr == S_OK && ticket) {
        m_existingTicket = ticket;
        m_hasExistingTicket = true;
        GetUriWithScopeSuffixAdded(ticket, m_ticketUri, false);
        RenameTicketAlreadySuffixed(ticket);
    }
}

void PrintTicketEditor::RenameTicketAlreadySuffixed(IPartPrintTicket* ticket) {
    // The suffix rule leaves only the extension of a name that already ends in the scope's
    // suffix: the ticket was rewritten by a filter before this one (or named so by its
    // producer). Such a ticket is named again with the suffix repeated ("Page1_PT_p.xml" becomes
    // "Page1_PT_p_p.xml"): a name no part of the input has, and the same for every part that
    // shares the ticket, so the map of rewritten tickets still finds it.
    CComBSTR original;
    if (FAILED(ticket->GetUri(&original)) || original.Length() == 0) return;
    const CXString full(original.m_str);
    const int dot = full.ReverseFind(L'.');
    const CXString base = dot >= 0 ? full.Left(dot) : full;
    const CXString extension = dot >= 0 ? full.Mid(dot) : CXString();
    if (base.IsEmpty() || m_ticketUri != extension) return;
    const wchar_t* suffix = m_scope == kPTPageScope ? L"_p" : m_scope == kPTDocumentScope ? L"_d"
                                                                                          : L"_j";
    m_ticketUri = base + suffix + extension;
}

PrintTicketEditor::~PrintTicketEditor() = default;

bool PrintTicketEditor::DoesPartHaveExistingPrintTicket() {
    return m_hasExistingTicket;
}

bool PrintTicketEditor::HasPrintTicketAlreadyBeenUpdatedForThisUri() {
    if (!m_hasExistingTicket) return false;
    IPartPrintTicket* updated = nullptr;
    return m_manager.GetUpdatedPrintTicketFromMap(m_ticketUri, &updated) == S_OK;
}

HRESULT PrintTicketEditor::GetUriWithScopeSuffixAdded(IPartPrintTicket* ticket, CXString& uri,
                                                      bool addUniquePart) {
    uri.Empty();
    if (ticket == nullptr) return E_POINTER;
    CComBSTR original;
    RETURN_IF_FAILED(ticket->GetUri(&original));
    const CXString full(original.m_str == nullptr ? L"" : original.m_str);

    // A job ticket is suffixed only when it was first named for a lower scope.
    const wchar_t* suffix = L"";
    switch (m_scope) {
        case kPTPageScope:
            suffix = L"_p";
            break;
        case kPTDocumentScope:
            suffix = L"_d";
            break;
        case kPTJobScope:
            if (full.Find(L"_d.") >= 0 || full.Find(L"_p.") >= 0) suffix = L"_j";
            break;
    }

    const int dot = full.ReverseFind(L'.');
    const CXString base = dot >= 0 ? full.Left(dot) : full;
    const CXString extension = dot >= 0 ? full.Mid(dot) : CXString();

    // A name that already ends in the suffix is deliberately not carried over: only the unique
    // part and the extension remain.
    if (base.Right(2) != suffix) uri = base + suffix;

    if (addUniquePart) {
        const DWORD ticks = GetTickCount();
        switch (m_scope) {
            case kPTJobScope:
                uri.AppendFormat(L"_%u", ticks);
                break;
            case kPTDocumentScope:
                uri.AppendFormat(L"_%u_%x", m_documentIndex, ticks);
                break;
            case kPTPageScope:
                uri.AppendFormat(L"_%u_%x", m_pageIndex, ticks);
                break;
        }
    }
    uri += extension;
    return S_OK;
}

HRESULT PrintTicketEditor::TryToSynchAndCommitThisPrintTicketWithMatchFromMap() {
    IPartPrintTicket* updated = nullptr;
    const HRESULT hr = m_manager.GetUpdatedPrintTicketFromMap(m_ticketUri, &updated);
    if (hr != S_OK) return hr;
    // The job ticket belongs to the one sequence: there is nothing to synchronise it with.
    if (m_pDocument) return m_pDocument->SetPrintTicket(updated);
    if (m_pPage) return m_pPage->SetPrintTicket(updated);
    return E_INVALIDARG;
}

HRESULT PrintTicketEditor::LoadTicketPart(IPartPrintTicket* ticket, IXMLDOMDocument2** document) {
    CComPtr<IPrintReadStream> content;
    RETURN_IF_FAILED(ticket->GetStream(&content));
    if (!content) return E_FAIL;
    CComPtr<IStream> stream;
    try {
        stream.Attach(new CPrintReadStreamToIStream(content));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return PrintTicketManager::SetPTFromStream(stream, document);
}

void PrintTicketEditor::WrapTicketDom() {
    m_ticketDocument = std::make_unique<PrintTicketXmlDocument>(m_ticketDom);
}

void PrintTicketEditor::AbandonNewPart() {
    if (m_writeStream) m_writeStream->Close();
    m_writeStream.Release();
    m_newTicketPart.Release();
    m_ticketDocument.reset();
    m_ticketDom.Release();
}

HRESULT PrintTicketEditor::TryToGetPointerToPrintTicketXmlDocument(
    PrintTicketXmlDocument** document) {
    if (!m_hasExistingTicket || HasPrintTicketAlreadyBeenUpdatedForThisUri()) return S_FALSE;
    if (!m_pConsumer) return E_PENDING;
    if (document == nullptr) return E_POINTER;
    if (m_ticketDocument) {
        *document = m_ticketDocument.get();
        return S_OK;
    }

    RETURN_IF_FAILED(m_pConsumer->GetNewEmptyPart(m_ticketUri, IID_IPartPrintTicket,
                                                  reinterpret_cast<void**>(&m_newTicketPart),
                                                  &m_writeStream));
    HRESULT hr = S_OK;
    try {
        hr = LoadTicketPart(m_existingTicket, &m_ticketDom);
        if (SUCCEEDED(hr)) {
            WrapTicketDom();
            // The private-keywords namespace is declared on the ticket's root under the fixed
            // prefix when the ticket does not declare it (the document then reports the
            // placeholder prefix for it). The document is wrapped again afterwards, so that what
            // the filter writes in that namespace is written under the declared prefix, not
            // under the placeholder, which is undeclared or, in tickets of some producers, bound
            // to a namespace of their own.
            if (m_ticketDocument->GetUserKeywordsNsPrefix() != PrintSchema::PrivateKeywordsPrefix) {
                CComBSTR declared;
                hr = RootNamespaces::Declare(m_ticketDom, m_ticketDocument->GetRootNode(),
                                             PrintSchema::PrivateKeywordsNamespaceUri,
                                             PrivateKeywordsPrefixName().c_str(), declared);
                if (SUCCEEDED(hr)) WrapTicketDom();
            }
        }
    } catch (const ZorunComException& e) {
        hr = FailureOf(e);
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        AbandonNewPart();
        return hr;
    }
    *document = m_ticketDocument.get();
    return S_OK;
}

HRESULT PrintTicketEditor::GetPointerToNewEmptyPrintTicketXmlDocument(
    PrintTicketXmlDocument** document) {
    if (m_hasExistingTicket) return E_FAIL;
    if (document == nullptr) return E_POINTER;
    if (m_ticketDocument) {
        *document = m_ticketDocument.get();
        return S_OK;
    }
    if (!m_pConsumer) return E_PENDING;

    CXString uri;
    const DWORD ticks = GetTickCount();
    switch (m_scope) {
        case kPTJobScope:
            uri.Format(L"/METADATA/Job_PT_%u.xml", ticks);
            break;
        case kPTDocumentScope:
            uri.Format(L"/METADATA/Doc_%d_PT_%u.xml", m_documentIndex, ticks);
            break;
        case kPTPageScope:
            uri.Format(L"/METADATA/Page_%d_PT_%u.xml", m_pageIndex, ticks);
            break;
    }
    RETURN_IF_FAILED(m_pConsumer->GetNewEmptyPart(
        uri, IID_IPartPrintTicket, reinterpret_cast<void**>(&m_newTicketPart), &m_writeStream));

    HRESULT hr = S_OK;
    try {
        // A copy of the default ticket emptied of its content keeps the namespace declarations
        // a filter's new elements are named with.
        IXMLDOMDocument2* defaultTicket = m_manager.GetPtrToDefaultPrintTicket();
        CComPtr<IStream> serialised;
        hr = defaultTicket == nullptr ? E_PENDING
                                      : defaultTicket->QueryInterface(
                                            IID_IStream, reinterpret_cast<void**>(&serialised));
        if (SUCCEEDED(hr)) hr = PrintTicketManager::SetPTFromStream(serialised, &m_ticketDom);
        if (SUCCEEDED(hr)) {
            WrapTicketDom();
            CComPtr<IXMLDOMElement> root;
            hr = m_ticketDom->get_documentElement(&root);
            if (SUCCEEDED(hr) && !root) hr = E_FAIL;
            while (SUCCEEDED(hr)) {
                CComPtr<IXMLDOMNode> last;
                hr = root->get_lastChild(&last);
                if (FAILED(hr) || !last) break;
                CComPtr<IXMLDOMNode> removed;
                hr = root->removeChild(last, &removed);
            }
            if (SUCCEEDED(hr)) hr = S_OK;
        }
    } catch (const ZorunComException& e) {
        hr = FailureOf(e);
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        AbandonNewPart();
        return hr;
    }
    *document = m_ticketDocument.get();
    return S_OK;
}

HRESULT PrintTicketEditor::SetTicketOnPart(IPartPrintTicket* ticket) {
    if (m_pSequence) return m_pSequence->SetPrintTicket(ticket);
    if (m_pDocument) return m_pDocument->SetPrintTicket(ticket);
    if (m_pPage) return m_pPage->SetPrintTicket(ticket);
    return E_INVALIDARG;
}

HRESULT PrintTicketEditor::CommitChanges() {
    if (m_writeStream) {
        // The whole serialisation, from its start, in blocks; the stream is closed whatever
        // happens, and a part whose content could not be written whole is not attached.
        HRESULT hr = S_OK;
        CComPtr<IStream> serialised;
        if (!m_ticketDom) {
            hr = E_FAIL;
        } else {
            hr = m_ticketDom->QueryInterface(IID_IStream, reinterpret_cast<void**>(&serialised));
        }
        if (SUCCEEDED(hr)) {
            LARGE_INTEGER start{};
            hr = serialised->Seek(start, STREAM_SEEK_SET, nullptr);
        }
        if (SUCCEEDED(hr)) {
            auto block = std::make_unique<BYTE[]>(kCommitBlockSize);
            for (;;) {
                ULONG read = 0;
                hr = serialised->Read(block.get(), kCommitBlockSize, &read);
                if (FAILED(hr) || read == 0) break;
                ULONG done = 0;
                while (SUCCEEDED(hr) && done < read) {
                    ULONG written = 0;
                    hr = m_writeStream->WriteBytes(block.get() + done, read - done, &written);
                    // A stream that accepts nothing would never finish the block.
                    if (SUCCEEDED(hr) && written == 0) hr = STG_E_WRITEFAULT;
                    done += written;
                }
                if (FAILED(hr)) break;
            }
        }
        m_writeStream->Close();
        m_writeStream.Release();
        if (FAILED(hr)) {
            AbandonNewPart();
            return hr;
        }
    }

    if (!m_newTicketPart) return E_FAIL;
    const HRESULT hr = SetTicketOnPart(m_newTicketPart);
    // Recorded whatever SetPrintTicket returned: the map is keyed by the new part's URI, which
    // is the suffixed name of the ticket the edited part carried.
    m_manager.AddUpdatedPrintTicketToMap(m_newTicketPart);
    return hr;
}
