// jobparts.cpp: a job's parts in the order the host's reader gives them to the first filter.
#include "jobparts.h"

#include "platform/com/unicode.h"

namespace xpsfilter {

using pipelinehost::ErrorKind;
using pipelinehost::JobError;

JobParts::JobParts(const std::string& path)
    : m_package(pipelinehost::SourcePackage::Open(path, pipelinehost::ReaderLimits{})),
      m_status(std::make_shared<pipelinehost::JobStatus>()) {
    m_package->SetStatus(m_status);
    m_reader.Attach(new pipelinehost::JobReader(m_package, m_status));
}

CComPtr<IUnknown> JobParts::Next() {
    CComPtr<IUnknown> part;
    const HRESULT hr = m_reader->GetXpsPart(&part);
    if (std::optional<JobError> error = m_status->Error()) throw *error;
    if (FAILED(hr)) {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
        throw JobError(ErrorKind::BadPackage,
                       std::string("the job's parts cannot be read (") + text + ")");
    }
    return part;
}

template <class Part>
std::string PartUri(Part* part) {
    CComBSTR uri;
    if (part == nullptr || FAILED(part->GetUri(&uri)) || uri.m_str == nullptr) return "";
    return platform::WideToUtf8(std::wstring_view(uri.m_str, uri.Length()));
}

template <class Part>
CComPtr<IPartPrintTicket> PartTicket(Part* part) {
    CComPtr<IPartPrintTicket> ticket;
    if (part == nullptr || FAILED(part->GetPrintTicket(&ticket))) return nullptr;
    return ticket;
}

template std::string PartUri(IFixedDocumentSequence*);
template std::string PartUri(IFixedDocument*);
template std::string PartUri(IFixedPage*);
template std::string PartUri(IPartPrintTicket*);
template std::string PartUri(IPartBase*);
template CComPtr<IPartPrintTicket> PartTicket(IFixedDocumentSequence*);
template CComPtr<IPartPrintTicket> PartTicket(IFixedDocument*);
template CComPtr<IPartPrintTicket> PartTicket(IFixedPage*);

}  // namespace xpsfilter
