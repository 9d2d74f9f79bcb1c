// jobwriter.h: the last filter's IXpsDocumentConsumer. It writes the parts it is sent into the
// output package as they come: each page with its resources and ticket, each document when the
// next one starts, the sequence, the package relationships and the content types when the
// sender closes. A part (a resource shared by many pages, a ticket shared by many parts) is
// written once. Parts that no filter changed are copied as their compressed bytes; listings and
// relationships are copied too when nothing in them changed, and rewritten otherwise. Parts the
// job reaches only through relationships (document structure, story fragments, core
// properties) are copied at the end, and so are the source's resource parts (fonts, images,
// colour profiles, resource dictionaries) that no written part listed: unchanged markup may
// refer to them without a relationship, and the writer does not read unchanged markup.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/packagewriter.h"
#include "pipelinehost/partobjects.h"

namespace pipelinehost {

class JobWriter final : public platform::ComObject<IXpsDocumentConsumer> {
public:
    // `threads`: the package writer's compression workers.
    JobWriter(std::string target, std::shared_ptr<JobStatus> status,
              unsigned threads = DeflatePool::DefaultThreads());
    // Writes the package to an open stream as it is made (PackageWriter's streaming form).
    JobWriter(int streamFd, std::string name, std::shared_ptr<JobStatus> status,
              unsigned threads = DeflatePool::DefaultThreads());

    HRESULT SendXpsUnknown(IUnknown* unknown) override;
    HRESULT SendXpsDocument(IXpsDocument* document) override;
    HRESULT SendFixedDocumentSequence(IFixedDocumentSequence* sequence) override;
    HRESULT SendFixedDocument(IFixedDocument* document) override;
    HRESULT SendFixedPage(IFixedPage* page) override;
    HRESULT CloseSender() override;
    HRESULT GetNewEmptyPart(const wchar_t* uri, REFIID riid, void** part,
                            IPrintWriteStream** stream) override;

    // True once CloseSender finished the package without error.
    bool Complete() const { return m_complete; }
    // Renames the finished package over the target (only after Complete()).
    void Commit();
    std::uint64_t PagesWritten() const { return m_pages.load(); }

private:
    struct Listed {
        std::string name;
        std::string xml;     // the element that listed it, as read
        std::string parent;  // where that element came from
    };

    template <class Body>
    HRESULT Run(Body&& body);
    void NotePackage(IUnknown* part);
    void WriteContent(IUnknown* part, PartKind kind);
    void WriteResource(IUnknown* part, unsigned depth);
    void CopySourcePart(const std::shared_ptr<const SourcePackage>& package,
                        const SourcePart& part);
    void WriteRelationships(const std::string& source, const std::vector<Relationship>& rels);
    void KeepReachable(const std::vector<Relationship>& rels);
    std::vector<Relationship> KeptRelationships(const ContainerState& container) const;
    void WritePage(IFixedPage* page);
    void FinishDocument();
    void FinishSequence();
    // Writes a fixed document or the sequence: its ticket, its listing of children (the source's
    // compressed bytes when unchanged) and its relationships. Returns the source's container state.
    const ContainerState* WriteContainer(IHostPart* host, const std::string& name,
                                         const CComPtr<IPartPrintTicket>& ticket,
                                         const std::vector<Listed>& children, bool isSequence);
    void WritePackageRelationships();
    void CopyReachable();
    void CopyUnlistedResources();
    void WriteContentTypes();
    std::string ListingXml(const Listing* original, const std::vector<Listed>& children,
                           const std::string& container, bool sequence) const;
    bool Written(const std::string& name) const;
    bool OpenXps() const { return m_package && m_package->OpenXps(); }
    void MarkWritten(const std::string& name, const std::string& contentType);

    PackageWriter m_out;
    std::shared_ptr<JobStatus> m_status;
    std::shared_ptr<const SourcePackage> m_package;
    CComPtr<IXpsDocument> m_xpsDocument;
    CComPtr<IFixedDocumentSequence> m_sequence;
    CComPtr<IFixedDocument> m_document;
    std::vector<Listed> m_documentPages;
    std::vector<Listed> m_documents;
    // Parts written: key -> name, content type (hashed: looked up several times for every part).
    std::unordered_map<std::string, std::pair<std::string, std::string>> m_types;
    std::deque<std::string> m_reachable;
    bool m_closed = false;
    bool m_failed = false;
    bool m_complete = false;
    HRESULT m_failure = S_OK;
    std::atomic<std::uint64_t> m_pages{0};
};

}  // namespace pipelinehost
