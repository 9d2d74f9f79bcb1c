// jobreader.cpp: the document-order walk over an XPS package.
#include "pipelinehost/jobreader.h"

#include "pipelinehost/hosterror.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/ticketmarkup.h"
#include "pipelinehost/xpsnames.h"

namespace pipelinehost {

JobReader::JobReader(std::shared_ptr<const SourcePackage> package,
                     std::shared_ptr<JobStatus> status)
    : m_package(std::move(package)), m_status(std::move(status)) {
    m_sequence = &m_package->Require(m_package->StartPart(), "the package relationships");
    m_containerKeys.insert(PartKey(m_sequence->name));
    m_sequenceListing = std::make_shared<Listing>(
        ParseListing(m_package->ReadMarkup(*m_sequence), m_sequence->name, true));
    if (m_sequenceListing->entries.empty()) {
        m_status->Warn(m_sequence->name + " lists no documents: the output has no pages");
    }
    std::set<std::string> seen;
    for (const Listing::Entry& entry : m_sequenceListing->entries) {
        std::string key = PartKey(entry.part);
        if (m_containerKeys.count(key) != 0 || !seen.insert(key).second) {
            throw JobError(ErrorKind::BadPackage,
                           "cyclic or repeated reference: " + m_sequence->name + " refers to " +
                               entry.part + " again");
        }
        m_package->Require(entry.part, m_sequence->name);
    }
    for (const std::string& key : seen) m_containerKeys.insert(key);
}

ContainerState JobReader::ReadContainer(const SourcePart& part, const std::string& listingXml,
                                        const std::string& parent) {
    ContainerState state;
    state.listingXml = listingXml;
    state.listingParent = parent;
    state.hadRelsPart = m_package->Find(RelationshipsPartName(part.name)) != nullptr;
    state.sourceRels = m_package->ReadRelationships(part.name);
    for (const Relationship& rel : state.sourceRels) {
        if (!rel.part) continue;
        std::string key = PartKey(*rel.part);
        // A resource or ticket that is the sequence or a document would send that part twice.
        if (key == PartKey(part.name) ||
            (m_containerKeys.count(key) != 0 &&
             (xps::IsRequiredResource(rel.type) || xps::IsPrintTicket(rel.type)))) {
            throw JobError(ErrorKind::BadPackage,
                           "cyclic relationship: " + part.name + " refers to " + *rel.part);
        }
        if (xps::IsPrintTicket(rel.type)) {
            // XPS readers print a part with several tickets using the first one; so does the job.
            if (state.ticket) {
                m_status->Warn(part.name + " has more than one PrintTicket: " + *rel.part +
                               " is ignored, the first one is used");
                continue;
            }
            const SourcePart& ticket = m_package->Require(*rel.part, part.name + "'s PrintTicket");
            const std::string key = PartKey(ticket.name);
            if (m_checkedTickets.insert(key).second) {
                CheckTicketMarkup(m_package->ReadMarkup(ticket), ticket.name);
            }
            state.ticket = RecentTicket(key, ticket);
        }
    }
    return state;
}

CComPtr<IPartPrintTicket> JobReader::RecentTicket(const std::string& key, const SourcePart& part) {
    constexpr std::size_t kRemembered = 4;  // the sequence's, a document's, a page's and one more
    for (const auto& [recentKey, ticket] : m_recentTickets) {
        if (recentKey == key) return ticket;
    }
    CComPtr<IPartPrintTicket> ticket = CreateSourceTicket(m_package, part);
    if (m_recentTickets.size() == kRemembered) m_recentTickets.erase(m_recentTickets.begin());
    m_recentTickets.emplace_back(key, ticket);
    return ticket;
}

void JobReader::BeginDocument(std::size_t index) {
    const SourcePart& document =
        m_package->Require(m_sequenceListing->entries[index].part, m_sequence->name);
    m_documentListing = std::make_shared<Listing>(
        ParseListing(m_package->ReadMarkup(document), document.name, false));
    if (m_documentListing->entries.empty()) {
        m_status->Warn(document.name + " lists no pages");
    }
    for (const Listing::Entry& entry : m_documentListing->entries) {
        if (m_containerKeys.count(PartKey(entry.part)) != 0) {
            throw JobError(ErrorKind::BadPackage, "cyclic reference: " + document.name + " lists " +
                                                      entry.part + " as a page");
        }
    }
    m_page = 0;
}

CComPtr<IUnknown> JobReader::Next() {
    CComPtr<IUnknown> result;
    switch (m_stage) {
        case Stage::XpsDocument: {
            ContainerState state;
            state.sourceRels = m_package->PackageRelationships();
            state.hadRelsPart = true;
            for (const Relationship& rel : state.sourceRels) {
                if (rel.type != xps::kThumbnail || !rel.part) continue;
                const SourcePart* thumb = m_package->Find(*rel.part);
                if (thumb == nullptr) continue;
                CComPtr<IUnknown> object =
                    CreateSourceResource(m_package, *thumb, ResourceKind::Thumbnail);
                state.thumbnail = CComQIPtr<IPartThumbnail>(static_cast<IUnknown*>(object));
            }
            result = CreateXpsDocumentPart(m_package, std::move(state));
            m_stage = Stage::Sequence;
            return result;
        }
        case Stage::Sequence: {
            ContainerState state = ReadContainer(*m_sequence, {}, {});
            state.listing = m_sequenceListing;
            result = CreateSequencePart(m_package, *m_sequence, std::move(state));
            m_stage = m_sequenceListing->entries.empty() ? Stage::Done : Stage::Document;
            m_document = 0;
            return result;
        }
        case Stage::Document: {
            BeginDocument(m_document);
            const Listing::Entry& entry = m_sequenceListing->entries[m_document];
            const SourcePart& document = m_package->Require(entry.part, m_sequence->name);
            ContainerState state = ReadContainer(document, entry.xml, m_sequence->name);
            state.listing = m_documentListing;
            result = CreateDocumentPart(m_package, document, std::move(state));
            m_stage = Stage::Page;
            return result;
        }
        case Stage::Page: {
            if (m_page >= m_documentListing->entries.size()) {
                ++m_document;
                if (m_document >= m_sequenceListing->entries.size()) {
                    m_stage = Stage::Done;
                    return result;
                }
                m_stage = Stage::Document;
                return Next();
            }
            const Listing::Entry& entry = m_documentListing->entries[m_page++];
            const SourcePart& page =
                m_package->Require(entry.part, m_sequenceListing->entries[m_document].part);
            ContainerState state =
                ReadContainer(page, entry.xml, m_sequenceListing->entries[m_document].part);
            for (const Relationship& rel : state.sourceRels) {
                if (!rel.part) continue;
                bool required = xps::IsRequiredResource(rel.type);
                bool thumbnail = rel.type == xps::kThumbnail;
                if (!required && !thumbnail) continue;
                const SourcePart& target = m_package->Require(*rel.part, page.name);
                CComPtr<IUnknown> object = CreateSourceResource(
                    m_package, target, thumbnail ? ResourceKind::Thumbnail : ResourceKind::Other);
                if (object) state.resources.push_back({target.name, object});
            }
            return CComPtr<IUnknown>(
                static_cast<IUnknown*>(CreatePagePart(m_package, page, std::move(state)).p));
        }
        case Stage::Done:
            return result;
    }
    return result;
}

HRESULT JobReader::GetXpsPart(IUnknown** part) {
    if (part == nullptr) return E_POINTER;
    *part = nullptr;
    try {
        *part = Next().Detach();
        return S_OK;
    } catch (const JobError& error) {
        m_package->Report(error);
        m_stage = Stage::Done;
        return HResultFor(error.Kind());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace pipelinehost
