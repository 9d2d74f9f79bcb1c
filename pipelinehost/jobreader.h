// jobreader.h: the first filter's IXpsDocumentProvider. It hands out the parts of an XPS job in
// document order: the XPS document, the fixed document sequence, then each fixed document
// followed by its pages; S_OK with a null part ends the job. A document's listing is read when
// the document is reached and a page's relationships when the page is handed out, so the job
// is never held whole. Opening checks the package up to the list of documents.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/partobjects.h"
#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

class JobReader final : public platform::ComObject<IXpsDocumentProvider> {
public:
    // Reads the start part and its relationships; throws JobError for a bad package. Warnings
    // about input the job goes on with are given to `status`.
    JobReader(std::shared_ptr<const SourcePackage> package, std::shared_ptr<JobStatus> status);

    HRESULT GetXpsPart(IUnknown** part) override;

    std::size_t DocumentCount() const { return m_sequenceListing->entries.size(); }

private:
    CComPtr<IUnknown> Next();
    ContainerState ReadContainer(const SourcePart& part, const std::string& listingXml,
                                 const std::string& parent);
    void BeginDocument(std::size_t index);
    CComPtr<IPartPrintTicket> RecentTicket(const std::string& key, const SourcePart& part);

    std::shared_ptr<const SourcePackage> m_package;
    std::shared_ptr<JobStatus> m_status;
    std::set<std::string> m_checkedTickets;  // part keys of the tickets already checked
    // The ticket objects handed out last, by part key: parts that share one ticket part (the
    // pages of a document, typically) get the same object, so that a filter's ticket manager
    // can tell it has read that ticket already.
    std::vector<std::pair<std::string, CComPtr<IPartPrintTicket>>> m_recentTickets;
    const SourcePart* m_sequence = nullptr;
    std::shared_ptr<const Listing> m_sequenceListing;
    std::set<std::string> m_containerKeys;  // sequence and documents, for cycle checks
    enum class Stage { XpsDocument, Sequence, Document, Page, Done } m_stage = Stage::XpsDocument;
    std::size_t m_document = 0;
    std::shared_ptr<const Listing> m_documentListing;
    std::size_t m_page = 0;
};

}  // namespace pipelinehost
