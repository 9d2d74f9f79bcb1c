// jobticketfilter.cpp: forwards the parts of the job, giving the fixed document sequence a job
// ticket with the options merged in. The merged ticket keeps the job ticket's part name, so the
// output package has the ticket where the input had it.
#include "jobticketfilter.h"

#include <string>

#include "platform/prntvpt/prntvpt.h"

namespace cupsfilter {
namespace {

constexpr HRESULT kJobCancelled = HRESULT_FROM_WIN32(1223);  // ERROR_CANCELLED

// The job ticket given to a job that has none: the options are merged into it.
constexpr char kEmptyTicket[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<psf:PrintTicket "
    "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework\" "
    "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords\" "
    "version=\"1\">\n</psf:PrintTicket>\n";
constexpr wchar_t kNewTicketUri[] = L"/Metadata/CUPS_Job_PT.xml";

HRESULT ReadPart(IPartBase* part, std::string& bytes) {
    CComPtr<IPrintReadStream> stream;
    HRESULT hr = part->GetStream(&stream);
    if (FAILED(hr)) return hr;
    char buffer[16384];
    for (;;) {
        ULONG got = 0;
        BOOL end = FALSE;
        hr = stream->ReadBytes(buffer, sizeof buffer, &got, &end);
        if (FAILED(hr)) return hr;
        bytes.append(buffer, got);
        // The provider refuses longer tickets; one byte more is enough for it to say so.
        if (end || got == 0 || bytes.size() > platform::kMaxPrintTicketBytes) return S_OK;
    }
}

std::string Narrow(const wchar_t* text) {
    std::string narrow;
    for (; text != nullptr && *text != L'\0'; ++text) {
        narrow.push_back(*text < 0x80 ? static_cast<char>(*text) : '?');
    }
    return narrow;
}

HRESULT Forward(IXpsDocumentConsumer* consumer, IUnknown* part) {
    if (CComQIPtr<IXpsDocument> document = part) return consumer->SendXpsDocument(document);
    if (CComQIPtr<IFixedDocumentSequence> sequence = part) {
        return consumer->SendFixedDocumentSequence(sequence);
    }
    if (CComQIPtr<IFixedDocument> document = part) return consumer->SendFixedDocument(document);
    if (CComQIPtr<IFixedPage> page = part) return consumer->SendFixedPage(page);
    return consumer->SendXpsUnknown(part);
}

}  // namespace

HRESULT JobTicketFilter::InitializeFilter(IInterFilterCommunicator* communicator,
                                          IPrintPipelinePropertyBag* bag,
                                          IPrintPipelineManagerControl* control) {
    if (communicator == nullptr || bag == nullptr || control == nullptr) return E_POINTER;
    m_communicator = communicator;
    m_control = control;
    return S_OK;
}

HRESULT JobTicketFilter::ShutdownOperation() {
    m_stop = true;
    return S_OK;
}

HRESULT JobTicketFilter::StartOperation() {
    HRESULT hr = Pump();
    if (FAILED(hr) && !m_stop) m_control->RequestShutdown(hr, nullptr);
    m_control->FilterFinished();
    return m_stop ? S_OK : hr;
}

bool JobTicketFilter::Stop() {
    if (!m_control) return false;
    m_control->RequestShutdown(kJobCancelled, nullptr);
    return true;
}

std::string JobTicketFilter::MergeFailure() const {
    std::lock_guard<std::mutex> lock(m_failureMutex);
    return m_mergeFailure;
}

HRESULT JobTicketFilter::Pump() {
    if (!m_communicator) return E_PENDING;
    CComPtr<IXpsDocumentProvider> provider;
    CComPtr<IXpsDocumentConsumer> consumer;
    HRESULT hr = m_communicator->RequestReader(reinterpret_cast<void**>(&provider));
    if (SUCCEEDED(hr)) hr = m_communicator->RequestWriter(reinterpret_cast<void**>(&consumer));
    if (FAILED(hr)) return hr;
    while (!m_stop) {
        CComPtr<IUnknown> part;
        hr = provider->GetXpsPart(&part);
        if (FAILED(hr)) return hr;
        if (!part) break;
        if (CComQIPtr<IFixedDocumentSequence> sequence = part; sequence && !m_delta.empty()) {
            hr = MergeOptions(consumer, sequence);
            if (FAILED(hr)) return hr;
        }
        hr = Forward(consumer, part);
        if (FAILED(hr)) return hr;
    }
    return consumer->CloseSender();
}

HRESULT JobTicketFilter::MergeOptions(IXpsDocumentConsumer* consumer,
                                      IFixedDocumentSequence* sequence) {
    CComPtr<IPartPrintTicket> existing;
    HRESULT hr = sequence->GetPrintTicket(&existing);
    if (FAILED(hr) && hr != E_ELEMENT_NOT_FOUND) return hr;
    std::string base = kEmptyTicket;
    CComBSTR uri(kNewTicketUri);
    if (existing) {
        base.clear();
        CComBSTR existingUri;
        if (FAILED(hr = existing->GetUri(&existingUri)) || FAILED(hr = ReadPart(existing, base))) {
            return hr;
        }
        uri = existingUri;
    }

    std::string merged;
    std::string error;
    hr = platform::MergePrintTicketXml(base, m_delta, kPTJobScope, merged, error);
    if (FAILED(hr)) {
        std::lock_guard<std::mutex> lock(m_failureMutex);
        m_mergeFailure =
            "the job ticket " + Narrow(uri) + " cannot take the print options: " + error;
        return hr;
    }

    CComPtr<IPartPrintTicket> ticket;
    CComPtr<IPrintWriteStream> stream;
    hr = consumer->GetNewEmptyPart(uri, IID_IPartPrintTicket, reinterpret_cast<void**>(&ticket),
                                   &stream);
    if (FAILED(hr)) return hr;
    ULONG written = 0;
    hr = stream->WriteBytes(merged.data(), static_cast<ULONG>(merged.size()), &written);
    stream->Close();
    if (FAILED(hr)) return hr;
    if (written != merged.size()) return E_FAIL;
    return sequence->SetPrintTicket(ticket);
}

}  // namespace cupsfilter
