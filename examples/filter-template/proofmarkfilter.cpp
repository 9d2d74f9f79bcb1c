// proofmarkfilter.cpp: the filter template's ProofMarkFilter: a page ticket rewritten through
// PrintTicketEditor, page markup rewritten through the MSXML DOM.
#include "proofmarkfilter.h"

#include <cwctype>

namespace {

// XPS colours: #RRGGBB or #AARRGGBB.
bool IsColor(const std::wstring& text) {
    if ((text.size() != 7 && text.size() != 9) || text[0] != L'#') return false;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (!std::iswxdigit(text[i])) return false;
    }
    return true;
}

}  // namespace

HRESULT ProofMarkFilter::InitializeFilter(IInterFilterCommunicator* communicator,
                                          IPrintPipelinePropertyBag* propertyBag,
                                          IPrintPipelineManagerControl* managerControl) {
    RETURN_IF_FAILED(XpsFilterBase::InitializeFilter(communicator, propertyBag, managerControl));
    // A filter's <Parameter> elements arrive as VT_BSTR properties of its property bag.
    CComVariant color;
    if (SUCCEEDED(m_pPropertyBag->GetProperty(L"Color", &color))) {
        if (color.vt != VT_BSTR || !IsColor(color.bstrVal == nullptr ? L"" : color.bstrVal)) {
            DbgPrint("proofmark: Color must be #RRGGBB or #AARRGGBB\n");
            return E_INVALIDARG;
        }
        m_color = color.bstrVal;
    }
    // Windows format rules: in a narrow format, %S is a wide string.
    DbgPrint("proofmark: marking pages with %S\n", m_color.c_str());
    return S_OK;
}

HRESULT ProofMarkFilter::OnFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    RETURN_IF_FAILED(MarkTicket(page));
    RETURN_IF_FAILED(DrawMark(page));
    return XpsFilterBase::OnFixedPage(page);
}

// Sets psk:PageOutputQuality to psk:Draft in the page's ticket. Pages that shared one ticket in
// the input share one rewritten ticket in the output: the editor remembers what it rewrote.
HRESULT ProofMarkFilter::MarkTicket(IFixedPage* page) {
    PrintTicketEditor editor(m_pXpsConsumer, page, m_pageCount, m_printTicketManager);
    if (editor.HasPrintTicketAlreadyBeenUpdatedForThisUri()) {
        return editor.TryToSynchAndCommitThisPrintTicketWithMatchFromMap();
    }
    PrintTicketXmlDocument* ticket = nullptr;
    RETURN_IF_FAILED(editor.DoesPartHaveExistingPrintTicket()
                         ? editor.TryToGetPointerToPrintTicketXmlDocument(&ticket)
                         : editor.GetPointerToNewEmptyPrintTicketXmlDocument(&ticket));
    if (ticket == nullptr) return E_UNEXPECTED;
    // The library reports failures of document edits as ZorunComException.
    try {
        const CComBSTR keywords = ticket->GetKeywordsNsPrefix();
        if (keywords.Length() == 0) {
            DbgPrint(
                "proofmark: page %u: the ticket does not declare the Print Schema keywords; "
                "left as it is\n",
                static_cast<unsigned>(m_pageCount));
        } else {
            while (ticket->DeleteFeatureNodeIfExists(keywords, L"PageOutputQuality") == S_OK) {
            }
            CComPtr<IXMLDOMElement> feature;
            CComPtr<IXMLDOMElement> option;
            RETURN_IF_FAILED(ticket->CreateFeatureOptionPair(true, L"PageOutputQuality", true,
                                                             L"Draft", &feature, &option));
            ticket->AppendChildToRootNode(feature);
        }
    } catch (const ZorunComException& e) {
        return FAILED(e.GetHresult()) ? e.GetHresult() : E_FAIL;
    }
    return editor.CommitChanges();
}

// Appends a filled square, 48 by 48 units (1/96 inch) at 24,24, as the last element of the page,
// so that it is drawn over the page's content. Markup that does not parse is passed on unchanged.
HRESULT ProofMarkFilter::DrawMark(IFixedPage* page) {
    CComPtr<IPrintReadStream> markup;
    RETURN_IF_FAILED(page->GetStream(&markup));
    CComPtr<IStream> input;
    input.Attach(new CPrintReadStreamToIStream(markup));

    CComPtr<IXMLDOMDocument2> dom;
    RETURN_IF_FAILED(dom.CoCreateInstance(CLSID_DOMDocument60));
    VARIANT_BOOL loaded = VARIANT_FALSE;
    if (FAILED(dom->load(CComVariant(input), &loaded)) || loaded != VARIANT_TRUE) {
        DbgPrint("proofmark: page %u does not parse; passed on unchanged\n",
                 static_cast<unsigned>(m_pageCount));
        return S_FALSE;
    }
    CComPtr<IXMLDOMElement> root;
    RETURN_IF_FAILED(dom->get_documentElement(&root));
    if (!root) return S_FALSE;
    // The square is named in the page's own namespace (XPS or OpenXPS).
    CComBSTR xpsNamespace;
    RETURN_IF_FAILED(root->get_namespaceURI(&xpsNamespace));
    CComPtr<IXMLDOMNode> node;
    RETURN_IF_FAILED(dom->createNode(CComVariant(static_cast<int>(NODE_ELEMENT)), CComBSTR(L"Path"),
                                     xpsNamespace, &node));
    CComQIPtr<IXMLDOMElement> square(node);
    if (!square) return E_UNEXPECTED;
    RETURN_IF_FAILED(
        square->setAttribute(CComBSTR(L"Data"), CComVariant(L"M 24,24 L 72,24 72,72 24,72 Z")));
    RETURN_IF_FAILED(square->setAttribute(CComBSTR(L"Fill"), CComVariant(m_color.c_str())));
    CComPtr<IXMLDOMNode> appended;
    RETURN_IF_FAILED(root->appendChild(square, &appended));

    // The new markup replaces the page's once the write stream is closed.
    CComBSTR xml;
    RETURN_IF_FAILED(dom->get_xml(&xml));
    const std::string utf8 = platform::WideToUtf8(std::wstring_view(xml, xml.Length()));
    CComPtr<IPrintWriteStream> output;
    RETURN_IF_FAILED(page->GetWriteStream(&output));
    ULONG written = 0;
    RETURN_IF_FAILED(output->WriteBytes(utf8.data(), static_cast<ULONG>(utf8.size()), &written));
    output->Close();
    return written == utf8.size() ? S_OK : E_FAIL;
}
