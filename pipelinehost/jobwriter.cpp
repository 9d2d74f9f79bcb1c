// jobwriter.cpp: writing the parts a filter chain sends into the output XPS package.
#include "pipelinehost/jobwriter.h"

#include <algorithm>
#include <optional>

#include "platform/com/unicode.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/xpsmarkup.h"
#include "pipelinehost/xpsnames.h"

namespace pipelinehost {
namespace {

int LevelFor(EXpsCompressionOptions compression) {
    switch (compression) {
        case Compression_NotCompressed:
            return 0;
        case Compression_Small:
            return 9;
        case Compression_Fast:
            return 1;
        default:
            return 6;
    }
}

std::string ItemName(const std::string& partName) {
    return partName.substr(1);
}

// The URI of a fixed document or sequence the host did not make.
template <class Part>
std::string Uri(Part* part) {
    BSTR uri = nullptr;
    if (FAILED(part->GetUri(&uri)) || uri == nullptr) return {};
    std::string name = platform::WideToUtf8(std::wstring_view(uri, SysStringLen(uri)));
    SysFreeString(uri);
    return name;
}

template <class Part>
CComPtr<IPartPrintTicket> TicketOf(Part* part) {
    CComPtr<IPartPrintTicket> ticket;
    if (FAILED(part->GetPrintTicket(&ticket))) ticket.Release();
    return ticket;
}

bool IsResourceRelationship(const Relationship& rel) {
    return xps::IsPrintTicket(rel.type) || xps::IsRequiredResource(rel.type) ||
           rel.type == xps::kThumbnail;
}

template <class I>
bool Answers(IUnknown* part) {
    CComPtr<IUnknown> found;
    return SUCCEEDED(part->QueryInterface(__uuidof(I), reinterpret_cast<void**>(&found)));
}

// The content type of a part that has none (a filter's new part, or an input part that
// [Content_Types].xml does not cover): from what the part is, else from its extension. Every
// part of a package must have one.
std::string DerivedContentType(std::optional<PartKind> kind, const std::string& name,
                               bool openXps) {
    const std::string ext = PartExtension(name);
    if (!kind) {
        if (ext == "fpage") kind = PartKind::Page;
        if (ext == "fdoc") kind = PartKind::Document;
        if (ext == "fdseq") kind = PartKind::Sequence;
        if (ext == "odttf" || ext == "ttf" || ext == "otf") kind = PartKind::Font;
        if (ext == "icc" || ext == "icm") kind = PartKind::ColorProfile;
        if (ext == "dict") kind = PartKind::ResourceDictionary;
    }
    switch (kind.value_or(PartKind::Image)) {
        case PartKind::PrintTicket:
            return std::string(xps::kPrintTicketContentType);
        case PartKind::Page:
            return std::string(openXps ? xps::kOpenFixedPageContentType
                                       : xps::kFixedPageContentType);
        case PartKind::Document:
            return std::string(openXps ? xps::kOpenFixedDocumentContentType
                                       : xps::kFixedDocumentContentType);
        case PartKind::Sequence:
            return std::string(openXps ? xps::kOpenFixedDocumentSequenceContentType
                                       : xps::kFixedDocumentSequenceContentType);
        case PartKind::ColorProfile:
            return std::string(xps::kColorProfileContentType);
        case PartKind::ResourceDictionary:
            return std::string(openXps ? xps::kOpenResourceDictionaryContentType
                                       : xps::kResourceDictionaryContentType);
        case PartKind::Font:
            return std::string(ext == "odttf" ? xps::kObfuscatedFontContentType
                                              : xps::kFontContentType);
        default:
            break;
    }
    if (ext == "png") return "image/png";
    if (ext == "jpg" || ext == "jpeg") return "image/jpeg";
    if (ext == "tif" || ext == "tiff") return "image/tiff";
    if (ext == "wdp" || ext == "jxr") return "image/vnd.ms-photo";
    if (ext == "xml") return "application/xml";
    return "application/octet-stream";
}

// Content type of a part object the host did not make.
std::string ForeignContentType(IUnknown* part, PartKind kind, const std::string& name) {
    BSTR type = nullptr;
    EXpsFontOptions options = Font_Normal;
    if (CComQIPtr<IPartFont> font = part) {
        font->GetFontProperties(&type, &options);
    } else if (CComQIPtr<IPartImage> image = part) {
        image->GetImageProperties(&type);
    } else if (CComQIPtr<IPartThumbnail> thumbnail = part) {
        thumbnail->GetThumbnailProperties(&type);
    }
    std::string result;
    if (type != nullptr) {
        result = platform::WideToUtf8(std::wstring_view(type, SysStringLen(type)));
        SysFreeString(type);
    }
    if (!result.empty()) return result;
    return DerivedContentType(kind, name, false);
}

PartKind KindOf(IUnknown* part) {
    if (IHostPart* host = AsHostPart(part)) return host->State().kind;
    if (Answers<IPartFont>(part)) return PartKind::Font;
    if (Answers<IPartImage>(part)) return PartKind::Image;
    if (Answers<IPartColorProfile>(part)) return PartKind::ColorProfile;
    if (Answers<IPartResourceDictionary>(part)) return PartKind::ResourceDictionary;
    if (Answers<IPartThumbnail>(part)) return PartKind::Thumbnail;
    if (Answers<IPartPrintTicket>(part)) return PartKind::PrintTicket;
    return PartKind::Image;
}

}  // namespace

JobWriter::JobWriter(std::string target, std::shared_ptr<JobStatus> status, unsigned threads)
    : m_out(std::move(target), threads), m_status(std::move(status)) {}

JobWriter::JobWriter(int streamFd, std::string name, std::shared_ptr<JobStatus> status,
                     unsigned threads)
    : m_out(streamFd, std::move(name), threads), m_status(std::move(status)) {}

template <class Body>
HRESULT JobWriter::Run(Body&& body) {
    if (m_failed) return m_failure;
    if (m_closed) return E_UNEXPECTED;
    try {
        body();
        return S_OK;
    } catch (const JobError& error) {
        m_status->Fail(error);
        m_failure = HResultFor(error.Kind());
    } catch (const std::bad_alloc&) {
        m_status->Fail(ErrorKind::Internal, "out of memory while writing the output");
        m_failure = E_OUTOFMEMORY;
    } catch (const std::exception& error) {
        m_status->Fail(ErrorKind::Internal, error.what());
        m_failure = E_FAIL;
    }
    m_failed = true;
    return m_failure;
}

void JobWriter::NotePackage(IUnknown* part) {
    if (m_package) return;
    if (IHostPart* host = AsHostPart(part)) m_package = host->State().package;
}

bool JobWriter::Written(const std::string& name) const {
    return m_types.count(PartKey(name)) != 0;
}

void JobWriter::MarkWritten(const std::string& name, const std::string& contentType) {
    m_types[PartKey(name)] = {name, contentType};
}

void JobWriter::CopySourcePart(const std::shared_ptr<const SourcePackage>& package,
                               const SourcePart& part) {
    for (const ZipItem& item : part.items) m_out.CopyRaw(item.name, package, item);
    MarkWritten(part.name, part.contentType);
}

void JobWriter::WriteContent(IUnknown* part, PartKind kind) {
    IHostPart* host = AsHostPart(part);
    std::string name = host ? host->State().name : PartNameOf(part);
    if (name.empty()) throw JobError(ErrorKind::Filter, "a filter sent a part without a URI");
    if (Written(name)) return;
    if (host) {
        const PartState& state = host->State();
        if (state.source != nullptr && state.package && !state.ContentChanged() &&
            !state.compressionChanged) {
            CopySourcePart(state.package, *state.source);
            m_types[PartKey(name)].second = state.contentType.empty()
                                                ? DerivedContentType(kind, name, OpenXps())
                                                : state.contentType;
            return;
        }
        std::unique_ptr<PartStream> content = state.OpenContent();
        m_out.Write(
            ItemName(name),
            [&](char* buffer, std::size_t size) { return content->Read(buffer, size); },
            LevelFor(state.compression), content->Size());
        std::string type = state.contentType.empty() ? DerivedContentType(kind, name, OpenXps())
                                                     : state.contentType;
        if (state.source == nullptr && m_package && m_package->OpenXps()) {
            if (type == xps::kFixedPageContentType) type = xps::kOpenFixedPageContentType;
            if (type == xps::kResourceDictionaryContentType) {
                type = xps::kOpenResourceDictionaryContentType;
            }
        }
        MarkWritten(name, type);
        return;
    }
    CComQIPtr<IPartBase> base(part);
    CComPtr<IPrintReadStream> stream;
    if (!base || FAILED(base->GetStream(&stream)) || !stream) {
        throw JobError(ErrorKind::Filter, "the content of part " + name + " cannot be read");
    }
    m_out.Write(
        ItemName(name),
        [&](char* buffer, std::size_t size) -> std::size_t {
            ULONG read = 0;
            BOOL eof = FALSE;
            HRESULT hr = stream->ReadBytes(buffer, static_cast<ULONG>(size), &read, &eof);
            if (FAILED(hr)) {
                throw JobError(ErrorKind::Filter, "reading part " + name + " failed");
            }
            return read;
        },
        6, 0);
    MarkWritten(name, ForeignContentType(part, kind, name));
}

void JobWriter::WriteResource(IUnknown* part, unsigned depth) {
    IHostPart* host = AsHostPart(part);
    std::string name = host ? host->State().name : PartNameOf(part);
    bool fresh = !name.empty() && !Written(name);
    PartKind kind = KindOf(part);
    WriteContent(part, kind);
    if (!fresh || kind != PartKind::ResourceDictionary || host == nullptr) return;
    const PartState& state = host->State();
    std::shared_ptr<const SourcePackage> package = state.package ? state.package : m_package;
    if (!package || depth >= package->Limits().maxDictionaryDepth) return;
    std::vector<MarkupReference> refs;
    std::unique_ptr<PartStream> content = state.OpenContent();
    ScanMarkupReferences([&](char* b, std::size_t n) { return content->Read(b, n); }, state.name,
                         refs);
    for (const MarkupReference& ref : refs) {
        if (Written(ref.part)) continue;
        const SourcePart* source = package->Find(ref.part);
        if (source == nullptr) continue;
        CComPtr<IUnknown> object = CreateSourceResource(package, *source, ref.kind);
        if (object) WriteResource(object, depth + 1);
    }
}

std::vector<Relationship> JobWriter::KeptRelationships(const ContainerState& container) const {
    std::vector<Relationship> kept;
    for (const Relationship& rel : container.sourceRels) {
        if (rel.type == xps::kSignatureOrigin || xps::IsStartPart(rel.type)) continue;
        if (!IsResourceRelationship(rel)) kept.push_back(rel);
    }
    return kept;
}

void JobWriter::KeepReachable(const std::vector<Relationship>& rels) {
    for (const Relationship& rel : rels) {
        if (rel.part && !rel.external) m_reachable.push_back(*rel.part);
    }
}

void JobWriter::WriteRelationships(const std::string& source,
                                   const std::vector<Relationship>& rels) {
    std::string relsName = RelationshipsPartName(source);
    if (Written(relsName)) return;
    if (rels.empty()) return;
    std::set<std::string> ids;
    for (const Relationship& rel : rels) ids.insert(rel.id);
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Relationships xmlns=\"" +
                      std::string(xps::kRelationshipsNamespace) + "\">";
    unsigned counter = 0;
    for (const Relationship& rel : rels) {
        std::string id = rel.id;
        if (id.empty()) {
            do {
                id = "R" + std::to_string(counter++);
            } while (ids.count(id) != 0);
            ids.insert(id);
        }
        xml += "<Relationship Id=\"" + EscapeXml(id) + "\" Type=\"" + EscapeXml(rel.type) +
               "\" Target=\"" + EscapeXml(rel.target) + "\"" +
               (rel.external ? " TargetMode=\"External\"" : "") + "/>";
    }
    xml += "</Relationships>";
    m_out.WriteBytes(ItemName(relsName), xml, 6);
    MarkWritten(relsName, std::string(xps::kRelationshipsContentType));
}

void JobWriter::WritePage(IFixedPage* page) {
    IHostPart* host = AsHostPart(page);
    std::vector<ResourceRef> resources;
    if (host && !host->State().ContentChanged() && !host->Container()->scanned) {
        // Markup nobody changed is not read again: its attached resources are written here,
        // and resources it refers to only from markup are carried over at the end
        // (CopyUnlistedResources), so that a pass-through never inflates a page.
        resources = host->Container()->resources;
    } else if (host) {
        resources = CollectPageResources(*host);
    } else {
        CComPtr<IXpsPartIterator> iterator;
        if (SUCCEEDED(page->GetXpsPartIterator(&iterator)) && iterator) {
            for (iterator->Reset(); !iterator->IsDone(); iterator->Next()) {
                BSTR uri = nullptr;
                CComPtr<IUnknown> part;
                if (FAILED(iterator->Current(&uri, &part))) break;
                SysFreeString(uri);
                resources.push_back({PartNameOf(part), part});
            }
        }
    }
    for (const ResourceRef& ref : resources) WriteResource(ref.part, 0);
    CComPtr<IPartPrintTicket> ticket = TicketOf(page);
    if (ticket) WriteContent(ticket, PartKind::PrintTicket);
    WriteContent(page, PartKind::Page);

    std::string name = host ? host->State().name : PartNameOf(page);
    bool openXps = m_package && m_package->OpenXps();
    if (host) {
        const PartState& state = host->State();
        const ContainerState& container = *host->Container();
        bool unchanged = state.source != nullptr && !state.ContentChanged() &&
                         !container.ticketChanged && !container.resourcesChanged;
        if (unchanged) {
            if (container.hadRelsPart) {
                const SourcePart* rels = state.package->Find(RelationshipsPartName(state.name));
                if (rels != nullptr && !Written(rels->name)) CopySourcePart(state.package, *rels);
                KeepReachable(container.sourceRels);
            }
            m_documentPages.push_back({name, container.listingXml, container.listingParent});
            ++m_pages;
            return;
        }
        std::vector<Relationship> rels = KeptRelationships(container);
        KeepReachable(rels);
        if (ticket) {
            rels.push_back({"", std::string(openXps ? xps::kOpenPrintTicket : xps::kMsPrintTicket),
                            PartNameOf(ticket), false, PartNameOf(ticket)});
        }
        for (const ResourceRef& ref : resources) {
            bool thumbnail = Answers<IPartThumbnail>(ref.part);
            std::string type(
                thumbnail ? xps::kThumbnail
                          : (openXps ? xps::kOpenRequiredResource : xps::kMsRequiredResource));
            rels.push_back({"", type, ref.name, false, ref.name});
        }
        WriteRelationships(name, rels);
        m_documentPages.push_back({name, container.listingXml, container.listingParent});
    } else {
        std::vector<Relationship> rels;
        if (ticket) {
            rels.push_back({"", std::string(openXps ? xps::kOpenPrintTicket : xps::kMsPrintTicket),
                            PartNameOf(ticket), false, PartNameOf(ticket)});
        }
        for (const ResourceRef& ref : resources) {
            rels.push_back(
                {"", std::string(openXps ? xps::kOpenRequiredResource : xps::kMsRequiredResource),
                 ref.name, false, ref.name});
        }
        WriteRelationships(name, rels);
        m_documentPages.push_back({name, {}, {}});
    }
    ++m_pages;
}

std::string JobWriter::ListingXml(const Listing* original, const std::vector<Listed>& children,
                                  const std::string& container, bool sequence) const {
    const char* root = sequence ? "FixedDocumentSequence" : "FixedDocument";
    const char* entry = sequence ? "DocumentReference" : "PageContent";
    std::string ns(m_package && m_package->OpenXps() ? xps::kOpenXpsNamespace
                                                     : xps::kMsXpsNamespace);
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    xml += original ? original->openTag
                    : std::string("<") + root + " xmlns=\"" + EscapeXml(ns) + "\">";
    for (const Listed& child : children) {
        if (!child.xml.empty() && PartKey(child.parent) == PartKey(container)) {
            xml += child.xml;
        } else {
            xml += std::string("<") + entry + " Source=\"" + EscapeXml(child.name) + "\"/>";
        }
    }
    xml += original ? original->closeTag : std::string("</") + root + ">";
    return xml;
}

void JobWriter::FinishDocument() {
    if (!m_document) return;
    IHostPart* host = AsHostPart(m_document);
    std::string name = host ? host->State().name : Uri(m_document.p);
    if (name.empty()) throw JobError(ErrorKind::Filter, "a fixed document without a URI was sent");
    if (Written(name)) {
        throw JobError(ErrorKind::Filter, "fixed document " + name + " was sent twice");
    }
    const ContainerState* container =
        WriteContainer(host, name, TicketOf(m_document.p), m_documentPages, false);
    m_documents.push_back({name, container ? container->listingXml : std::string(),
                           container ? container->listingParent : std::string()});
    m_document.Release();
    m_documentPages.clear();
}

void JobWriter::FinishSequence() {
    if (!m_sequence) {
        throw JobError(ErrorKind::Filter, m_documents.empty()
                                              ? "the filters produced no fixed document sequence"
                                              : "fixed documents were sent without a fixed "
                                                "document sequence");
    }
    IHostPart* host = AsHostPart(m_sequence);
    std::string name = host ? host->State().name : Uri(m_sequence.p);
    if (name.empty()) throw JobError(ErrorKind::Filter, "a sequence without a URI was sent");
    WriteContainer(host, name, TicketOf(m_sequence.p), m_documents, true);
}

const ContainerState* JobWriter::WriteContainer(IHostPart* host, const std::string& name,
                                                const CComPtr<IPartPrintTicket>& ticket,
                                                const std::vector<Listed>& children,
                                                bool isSequence) {
    const ContainerState* container = host ? host->Container() : nullptr;
    const Listing* original = container ? container->listing.get() : nullptr;
    bool sameList = original != nullptr && original->entries.size() == children.size();
    for (std::size_t i = 0; sameList && i < children.size(); ++i) {
        sameList = PartKey(original->entries[i].part) == PartKey(children[i].name);
    }
    if (ticket) WriteContent(ticket, PartKind::PrintTicket);
    const bool openXps = m_package && m_package->OpenXps();
    // The listing is copied as its compressed bytes when it still lists the source's children.
    if (host && host->State().source && sameList && !host->State().compressionChanged) {
        CopySourcePart(host->State().package, *host->State().source);
    } else {
        m_out.WriteBytes(ItemName(name), ListingXml(original, children, name, isSequence), 6);
        std::string type = host ? host->State().contentType : std::string();
        if (type.empty()) {
            if (isSequence) {
                type = openXps ? xps::kOpenFixedDocumentSequenceContentType
                               : xps::kFixedDocumentSequenceContentType;
            } else {
                type =
                    openXps ? xps::kOpenFixedDocumentContentType : xps::kFixedDocumentContentType;
            }
        }
        MarkWritten(name, type);
    }
    if (container && !container->ticketChanged && container->hadRelsPart && host->State().package) {
        const SourcePart* rels = host->State().package->Find(RelationshipsPartName(name));
        if (rels != nullptr && !Written(rels->name)) CopySourcePart(host->State().package, *rels);
        KeepReachable(container->sourceRels);
    } else {
        std::vector<Relationship> rels;
        if (container) rels = KeptRelationships(*container);
        KeepReachable(rels);
        if (ticket) {
            rels.push_back({"", std::string(openXps ? xps::kOpenPrintTicket : xps::kMsPrintTicket),
                            PartNameOf(ticket), false, PartNameOf(ticket)});
        }
        WriteRelationships(name, rels);
    }
    return container;
}

void JobWriter::WritePackageRelationships() {
    std::string sequence =
        AsHostPart(m_sequence) ? AsHostPart(m_sequence)->State().name : Uri(m_sequence.p);
    bool openXps = m_package && m_package->OpenXps();
    std::vector<Relationship> rels;
    std::string startId;
    const std::vector<Relationship>* source =
        m_package ? &m_package->PackageRelationships() : nullptr;
    if (source) {
        for (const Relationship& rel : *source) {
            if (xps::IsStartPart(rel.type)) startId = rel.id;
        }
    }
    rels.push_back({startId, std::string(openXps ? xps::kOpenStartPart : xps::kMsStartPart),
                    sequence, false, sequence});
    bool thumbnailFromDocument = false;
    if (m_xpsDocument) {
        CComPtr<IPartThumbnail> thumbnail;
        if (SUCCEEDED(m_xpsDocument->GetThumbnail(&thumbnail)) && thumbnail) {
            WriteContent(thumbnail, PartKind::Thumbnail);
            std::string name = PartNameOf(thumbnail);
            rels.push_back({"", std::string(xps::kThumbnail), name, false, name});
        }
        thumbnailFromDocument = true;
    }
    if (source) {
        for (const Relationship& rel : *source) {
            if (xps::IsStartPart(rel.type) || rel.type == xps::kSignatureOrigin) continue;
            if (rel.type == xps::kThumbnail && thumbnailFromDocument) continue;
            rels.push_back(rel);
            if (rel.part && !rel.external) m_reachable.push_back(*rel.part);
        }
    }
    WriteRelationships("/", rels);
}

void JobWriter::CopyReachable() {
    if (!m_package) return;
    while (!m_reachable.empty()) {
        std::string name = m_reachable.front();
        m_reachable.pop_front();
        if (Written(name)) continue;
        const SourcePart* part = m_package->Find(name);
        if (part == nullptr) continue;
        CopySourcePart(m_package, *part);
        const SourcePart* rels = m_package->Find(RelationshipsPartName(part->name));
        if (rels != nullptr && !Written(rels->name)) {
            CopySourcePart(m_package, *rels);
            KeepReachable(m_package->ReadRelationships(part->name));
        }
    }
}

void JobWriter::CopyUnlistedResources() {
    if (!m_package) return;
    for (const SourcePart& part : m_package->Parts()) {
        if (Written(part.name) || ResourceKindOf(part.contentType) == ResourceKind::Other) continue;
        CopySourcePart(m_package, part);
    }
}

void JobWriter::WriteContentTypes() {
    // Overrides in the order of the part keys, as a sorted map would give them.
    std::vector<const std::pair<const std::string, std::pair<std::string, std::string>>*> types;
    types.reserve(m_types.size());
    for (const auto& type : m_types) types.push_back(&type);
    std::sort(types.begin(), types.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    std::map<std::string, std::map<std::string, unsigned>> byExtension;
    for (auto& type : m_types) {
        if (type.second.second.empty()) {
            type.second.second = DerivedContentType(std::nullopt, type.second.first, OpenXps());
        }
    }
    for (const auto* type : types) {
        const auto& entry = type->second;
        ++byExtension[PartExtension(entry.first)][entry.second];
    }
    std::map<std::string, std::string> defaults;
    for (const auto& [ext, counts] : byExtension) {
        if (ext.empty()) continue;
        auto best =
            std::max_element(counts.begin(), counts.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; });
        defaults[ext] = best->first;
    }
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Types xmlns=\"" +
                      std::string(xps::kContentTypesNamespace) + "\">";
    for (const auto& [ext, type] : defaults) {
        xml += "<Default Extension=\"" + EscapeXml(ext) + "\" ContentType=\"" + EscapeXml(type) +
               "\"/>";
    }
    for (const auto* type : types) {
        const auto& entry = type->second;
        auto def = defaults.find(PartExtension(entry.first));
        if (def != defaults.end() && def->second == entry.second) continue;
        xml += "<Override PartName=\"" + EscapeXml(entry.first) + "\" ContentType=\"" +
               EscapeXml(entry.second) + "\"/>";
    }
    xml += "</Types>";
    m_out.WriteBytes("[Content_Types].xml", xml, 6);
}

HRESULT JobWriter::SendXpsUnknown(IUnknown* unknown) {
    if (unknown == nullptr) return E_POINTER;
    return Run([&] {
        NotePackage(unknown);
        if (CComQIPtr<IPartBase>(unknown)) WriteResource(unknown, 0);
    });
}

HRESULT JobWriter::SendXpsDocument(IXpsDocument* document) {
    if (document == nullptr) return E_POINTER;
    return Run([&] {
        NotePackage(document);
        m_xpsDocument = document;
    });
}

HRESULT JobWriter::SendFixedDocumentSequence(IFixedDocumentSequence* sequence) {
    if (sequence == nullptr) return E_POINTER;
    return Run([&] {
        if (m_sequence) {
            throw JobError(ErrorKind::Filter, "a second fixed document sequence was sent");
        }
        NotePackage(sequence);
        m_sequence = sequence;
    });
}

HRESULT JobWriter::SendFixedDocument(IFixedDocument* document) {
    if (document == nullptr) return E_POINTER;
    return Run([&] {
        FinishDocument();
        NotePackage(document);
        m_document = document;
    });
}

HRESULT JobWriter::SendFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    return Run([&] {
        if (!m_document) {
            throw JobError(ErrorKind::Filter, "a fixed page was sent before any fixed document");
        }
        NotePackage(page);
        WritePage(page);
    });
}

HRESULT JobWriter::CloseSender() {
    if (m_closed && !m_failed) return S_OK;
    HRESULT hr = Run([&] {
        FinishDocument();
        FinishSequence();
        WritePackageRelationships();
        CopyReachable();
        CopyUnlistedResources();
        WriteContentTypes();
        m_out.Finish();
        m_complete = true;
    });
    m_closed = true;
    m_xpsDocument.Release();
    m_sequence.Release();
    return hr;
}

HRESULT JobWriter::GetNewEmptyPart(const wchar_t* uri, REFIID riid, void** part,
                                   IPrintWriteStream** stream) {
    return CreateNewPart(uri, riid, part, stream);
}

void JobWriter::Commit() {
    if (!m_complete) throw JobError(ErrorKind::Internal, "the output package is not complete");
    m_out.Commit();
}

}  // namespace pipelinehost
