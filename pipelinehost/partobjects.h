// partobjects.h: the COM objects that stand for XPS parts while they travel through the filter
// chain: the XPS document, the fixed document sequence, fixed documents, fixed pages and the
// resource parts (print tickets, fonts, images, colour profiles, resource dictionaries,
// thumbnails). A part read from the job refers to its source package and reads its content
// lazily; a part a filter created, or whose content it replaced, holds that content in a
// SpoolBuffer. The writer reaches the host-side state through the private IHostPart interface.
#pragma once

#include <memory>
#include <set>
#include <utility>
#include <string>
#include <vector>

#include "platform/com/atl.h"
#include "platform/printpipeline/filterpipeline.h"
#include "pipelinehost/sourcepackage.h"
#include "pipelinehost/spoolbuffer.h"
#include "pipelinehost/xpsmarkup.h"

namespace pipelinehost {

enum class PartKind {
    XpsDocument,
    Sequence,
    Document,
    Page,
    PrintTicket,
    Font,
    Image,
    ColorProfile,
    ResourceDictionary,
    Thumbnail,
};

// What every part object keeps about its content.
struct PartState {
    PartState(PartKind k, std::string n, std::string type)
        : kind(k), name(std::move(n)), contentType(std::move(type)) {}

    PartKind kind;
    std::string name;  // part name, "/..." (empty for the XPS document)
    std::string contentType;
    EXpsCompressionOptions compression = Compression_Normal;
    bool compressionChanged = false;
    EXpsFontOptions fontOptions = Font_Normal;
    std::shared_ptr<const SourcePackage> package;  // null for parts a filter created
    const SourcePart* source = nullptr;            // original content, if any
    std::shared_ptr<SpoolBuffer> spool;            // new content (replaces source)

    bool ContentChanged() const { return spool != nullptr; }
    // Opens the current content; throws JobError (E_PENDING-style) when new content is still
    // being written.
    std::unique_ptr<PartStream> OpenContent() const;
};

struct ResourceRef {
    std::string name;
    CComPtr<IUnknown> part;
};

// State of pages, documents, sequences and the XPS document beyond PartState.
struct ContainerState {
    CComPtr<IPartPrintTicket> ticket;
    bool ticketChanged = false;
    std::vector<Relationship> sourceRels;  // the part's relationships as read
    bool hadRelsPart = false;
    std::string listingXml;     // the element that listed this part in its parent, as written
    std::string listingParent;  // the part name of that parent
    // Pages: resources attached through relationships or SetPagePart.
    std::vector<ResourceRef> resources;
    std::set<std::string> deletedKeys;
    bool resourcesChanged = false;
    // Pages: the markup references found by the last scan, and the content it scanned.
    bool scanned = false;
    std::shared_ptr<SpoolBuffer> scannedSpool;
    std::vector<MarkupReference> markupRefs;
    // Documents and sequences: the listing as read (entries, root tags).
    std::shared_ptr<const Listing> listing;
    // XPS document: its thumbnail.
    CComPtr<IPartThumbnail> thumbnail;
    bool thumbnailChanged = false;
};

}  // namespace pipelinehost

// Private to the host: how the writer reaches the state behind a part object it made.
struct IHostPart : IUnknown {
    virtual pipelinehost::PartState& State() = 0;
    virtual pipelinehost::ContainerState* Container() = 0;  // null for resource parts

protected:
    ~IHostPart() = default;
};
FU_DECLARE_IID(IHostPart, 0x6b1f3c2a, 0x52d4, 0x4e8e, 0x9a, 0x61, 0x3f, 0x0e, 0x77, 0x21, 0xc4,
               0x5d);

namespace pipelinehost {

// The host state of a part object, or null for objects the host did not make.
IHostPart* AsHostPart(IUnknown* part);

// A resource or ticket part over a part of the source package. `hint` chooses the kind when
// the content type does not tell (markup references).
CComPtr<IUnknown> CreateSourceResource(const std::shared_ptr<const SourcePackage>& package,
                                       const SourcePart& part, ResourceKind hint);
CComPtr<IPartPrintTicket> CreateSourceTicket(const std::shared_ptr<const SourcePackage>& package,
                                             const SourcePart& part);

CComPtr<IXpsDocument> CreateXpsDocumentPart(std::shared_ptr<const SourcePackage> package,
                                            ContainerState state);
CComPtr<IFixedDocumentSequence> CreateSequencePart(std::shared_ptr<const SourcePackage> package,
                                                   const SourcePart& part, ContainerState state);
CComPtr<IFixedDocument> CreateDocumentPart(std::shared_ptr<const SourcePackage> package,
                                           const SourcePart& part, ContainerState state);
CComPtr<IFixedPage> CreatePagePart(std::shared_ptr<const SourcePackage> package,
                                   const SourcePart& part, ContainerState state);

// IXpsDocumentConsumer::GetNewEmptyPart for every part kind.
HRESULT CreateNewPart(const wchar_t* uri, REFIID riid, void** part, IPrintWriteStream** stream);

// Reads the references of the page's current markup into `container` (markupRefs, scanned).
// Throws JobError.
void ScanPageMarkup(const PartState& state, ContainerState& container);

// The page's resources: the attached ones, then those its current markup refers to (resolved
// in its package) that are not attached or deleted. Throws JobError.
std::vector<ResourceRef> CollectPageResources(IHostPart& page);

// Kind of a resource by its content type; Other when it is not a page resource.
ResourceKind ResourceKindOf(std::string_view contentType);

// The wide URI of a part object (IPartBase::GetUri), or empty.
std::string PartNameOf(IUnknown* part);

}  // namespace pipelinehost
