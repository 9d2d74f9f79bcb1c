// partobjects.cpp: part objects, their read and write streams, the page resource iterator and
// GetNewEmptyPart.
#include "pipelinehost/partobjects.h"

#include <new>
#include <utility>

#include "platform/com/comobject.h"
#include "platform/com/unicode.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/xpsnames.h"

namespace pipelinehost {
namespace {

// Runs a COM method body: JobErrors become their HRESULT (and are recorded against the
// package the part comes from, if any), allocation failures E_OUTOFMEMORY, anything else E_FAIL.
template <class Body>
HRESULT GuardedFor(const SourcePackage* package, Body&& body) {
    try {
        return body();
    } catch (const JobError& error) {
        if (package != nullptr) package->Report(error);
        return HResultFor(error.Kind());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

template <class Body>
HRESULT Guarded(const PartState& state, Body&& body) {
    return GuardedFor(state.package.get(), std::forward<Body>(body));
}

HRESULT CopyName(const std::string& name, BSTR* out) {
    if (out == nullptr) return E_POINTER;
    *out = SysAllocString(platform::Utf8ToWide(name).c_str());
    return *out == nullptr ? E_OUTOFMEMORY : S_OK;
}

// Reader over a SpoolBuffer.
class SpoolStream final : public PartStream {
public:
    explicit SpoolStream(std::shared_ptr<SpoolBuffer> spool) : m_spool(std::move(spool)) {}
    std::size_t Read(void* buffer, std::size_t size) override {
        std::size_t got = m_spool->ReadAt(m_position, buffer, size);
        m_position += got;
        return got;
    }
    std::uint64_t Position() const override { return m_position; }
    std::uint64_t Size() const override { return m_spool->Size(); }
    void SeekTo(std::uint64_t position) override { m_position = position; }

private:
    std::shared_ptr<SpoolBuffer> m_spool;
    std::uint64_t m_position = 0;
};

class PartReadStream final : public platform::ComObject<IPrintReadStream> {
public:
    PartReadStream(std::unique_ptr<PartStream> stream, std::shared_ptr<const SourcePackage> package)
        : m_stream(std::move(stream)), m_package(std::move(package)) {}

    HRESULT Seek(LONGLONG move, DWORD origin, ULONGLONG* newPosition) override {
        return GuardedFor(m_package.get(), [&] {
            LONGLONG base = 0;
            switch (origin) {
                case STREAM_SEEK_SET:
                    base = 0;
                    break;
                case STREAM_SEEK_CUR:
                    base = static_cast<LONGLONG>(m_stream->Position());
                    break;
                case STREAM_SEEK_END:
                    base = static_cast<LONGLONG>(m_stream->Size());
                    break;
                default:
                    return STG_E_INVALIDFUNCTION;
            }
            if (move < 0 && base + move < 0) return E_INVALIDARG;
            std::uint64_t target = static_cast<std::uint64_t>(base + move);
            m_stream->SeekTo(std::min(target, m_stream->Size()));
            m_logical = target;
            if (newPosition != nullptr) *newPosition = target;
            return S_OK;
        });
    }

    HRESULT ReadBytes(void* buffer, ULONG requested, ULONG* read, BOOL* endOfFile) override {
        if (read == nullptr || endOfFile == nullptr || (buffer == nullptr && requested != 0)) {
            return E_POINTER;
        }
        *read = 0;
        *endOfFile = FALSE;
        return GuardedFor(m_package.get(), [&] {
            std::size_t done = 0;
            if (m_logical <= m_stream->Size()) {
                while (done < requested) {
                    std::size_t got =
                        m_stream->Read(static_cast<char*>(buffer) + done, requested - done);
                    if (got == 0) break;
                    done += got;
                }
            }
            m_logical += done;
            *read = static_cast<ULONG>(done);
            *endOfFile = (m_logical >= m_stream->Size()) ? TRUE : FALSE;
            return S_OK;
        });
    }

private:
    std::unique_ptr<PartStream> m_stream;
    std::shared_ptr<const SourcePackage> m_package;
    std::uint64_t m_logical = 0;
};

class SpoolWriteStream final : public platform::ComObject<IPrintWriteStream> {
public:
    // `closed`: called once when the content is complete (a page scans its new markup then).
    explicit SpoolWriteStream(std::shared_ptr<SpoolBuffer> spool,
                              std::function<void()> closed = nullptr)
        : m_spool(std::move(spool)), m_closed(std::move(closed)) {}

    HRESULT WriteBytes(const void* buffer, ULONG count, ULONG* written) override {
        if (written == nullptr || (buffer == nullptr && count != 0)) return E_POINTER;
        *written = 0;
        if (m_spool->Closed()) return E_UNEXPECTED;
        try {
            m_spool->Append(buffer, count);
        } catch (const JobError& error) {
            return HResultFor(error.Kind());
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        *written = count;
        return S_OK;
    }
    void Close() override {
        if (m_spool->Closed()) return;
        m_spool->Close();
        if (m_closed) m_closed();
    }

private:
    std::shared_ptr<SpoolBuffer> m_spool;
    std::function<void()> m_closed;
};

HRESULT OpenReadStream(const PartState& state, IPrintReadStream** stream) {
    if (stream == nullptr) return E_POINTER;
    *stream = nullptr;
    return Guarded(state, [&] {
        *stream = new PartReadStream(state.OpenContent(), state.package);
        return S_OK;
    });
}

// The host state behind every part object, reached by the writer through IHostPart.
template <class I>
class HostPart : public platform::ComObject<I, IHostPart> {
public:
    explicit HostPart(PartState state) : m_state(std::move(state)) {}
    PartState& State() override { return m_state; }
    ContainerState* Container() override { return nullptr; }

protected:
    PartState m_state;
};

// IPartBase over the state: every kind of part with content, fixed pages included.
template <class I>
class ContentPart : public HostPart<I> {
public:
    using HostPart<I>::HostPart;

    HRESULT GetUri(BSTR* uri) override { return CopyName(this->m_state.name, uri); }
    HRESULT GetStream(IPrintReadStream** stream) override {
        return OpenReadStream(this->m_state, stream);
    }
    HRESULT GetPartCompression(EXpsCompressionOptions* compression) override {
        if (compression == nullptr) return E_POINTER;
        *compression = this->m_state.compression;
        return S_OK;
    }
    HRESULT SetPartCompression(EXpsCompressionOptions compression) override {
        if (compression < Compression_NotCompressed || compression > Compression_Fast) {
            return E_INVALIDARG;
        }
        if (compression != this->m_state.compression) this->m_state.compressionChanged = true;
        this->m_state.compression = compression;
        return S_OK;
    }

protected:
    HRESULT QueryBase(REFIID iid, void** object) override {
        if (iid == IID_IPartBase) return this->template Answer<IPartBase>(object);
        return E_NOINTERFACE;
    }
};

// Adds the ContainerState of sequences, documents, pages and the XPS document.
template <class Base>
class ContainerPart : public Base {
public:
    ContainerPart(PartState state, ContainerState container)
        : Base(std::move(state)), m_container(std::move(container)) {}
    ContainerState* Container() override { return &m_container; }

protected:
    ContainerState m_container;
};

// Adds the ticket of sequences, documents and pages.
template <class Base>
class TicketPart : public ContainerPart<Base> {
public:
    using ContainerPart<Base>::ContainerPart;
    HRESULT GetPrintTicket(IPartPrintTicket** ticket) override {
        if (ticket == nullptr) return E_POINTER;
        *ticket = nullptr;
        if (!this->m_container.ticket) return E_ELEMENT_NOT_FOUND;
        return this->m_container.ticket.CopyTo(ticket);
    }
    HRESULT SetPrintTicket(IPartPrintTicket* ticket) override {
        if (ticket != nullptr && PartNameOf(ticket).empty()) return E_INVALIDARG;
        this->m_container.ticket = ticket;
        this->m_container.ticketChanged = true;
        return S_OK;
    }
};

// SetFontContent, SetImageContent, SetThumbnailContent.
HRESULT SetContentType(PartState& state, const wchar_t* contentType) {
    if (contentType == nullptr) return E_POINTER;
    state.contentType = platform::WideToUtf8(contentType);
    return S_OK;
}

class PrintTicketPart final : public ContentPart<IPartPrintTicket> {
    using ContentPart::ContentPart;
};
class ColorProfilePart final : public ContentPart<IPartColorProfile> {
    using ContentPart::ContentPart;
};
class ResourceDictionaryPart final : public ContentPart<IPartResourceDictionary> {
    using ContentPart::ContentPart;
};

class FontPart final : public ContentPart<IPartFont> {
public:
    using ContentPart::ContentPart;
    HRESULT GetFontProperties(BSTR* contentType, EXpsFontOptions* options) override {
        if (contentType == nullptr || options == nullptr) return E_POINTER;
        *options = m_state.fontOptions;
        return CopyName(m_state.contentType, contentType);
    }
    HRESULT SetFontContent(const wchar_t* contentType) override {
        return SetContentType(m_state, contentType);
    }
    HRESULT SetFontOptions(EXpsFontOptions options) override {
        if (options != Font_Normal && options != Font_Obfusticate) return E_INVALIDARG;
        m_state.fontOptions = options;
        return S_OK;
    }
};

class ImagePart final : public ContentPart<IPartImage> {
public:
    using ContentPart::ContentPart;
    HRESULT GetImageProperties(BSTR* contentType) override {
        return CopyName(m_state.contentType, contentType);
    }
    HRESULT SetImageContent(const wchar_t* contentType) override {
        return SetContentType(m_state, contentType);
    }
};

class ThumbnailPart final : public ContentPart<IPartThumbnail> {
public:
    using ContentPart::ContentPart;
    HRESULT GetThumbnailProperties(BSTR* contentType) override {
        return CopyName(m_state.contentType, contentType);
    }
    HRESULT SetThumbnailContent(const wchar_t* contentType) override {
        return SetContentType(m_state, contentType);
    }
};

// Fixed document sequences and fixed documents.
template <class I>
class ListingPart final : public TicketPart<HostPart<I>> {
public:
    using TicketPart<HostPart<I>>::TicketPart;
    HRESULT GetUri(BSTR* uri) override { return CopyName(this->m_state.name, uri); }
};

class XpsDocumentPart final : public ContainerPart<HostPart<IXpsDocument>> {
public:
    using ContainerPart::ContainerPart;
    HRESULT GetThumbnail(IPartThumbnail** thumbnail) override {
        if (thumbnail == nullptr) return E_POINTER;
        *thumbnail = nullptr;
        if (!m_container.thumbnail) return E_ELEMENT_NOT_FOUND;
        return m_container.thumbnail.CopyTo(thumbnail);
    }
    HRESULT SetThumbnail(IPartThumbnail* thumbnail) override {
        if (thumbnail != nullptr && PartNameOf(thumbnail).empty()) return E_INVALIDARG;
        m_container.thumbnail = thumbnail;
        m_container.thumbnailChanged = true;
        return S_OK;
    }
};

class PartIterator final : public platform::ComObject<IXpsPartIterator> {
public:
    explicit PartIterator(std::vector<ResourceRef> parts) : m_parts(std::move(parts)) {}
    void Reset() override { m_index = 0; }
    HRESULT Current(BSTR* uri, IUnknown** part) override {
        if (uri == nullptr || part == nullptr) return E_POINTER;
        *uri = nullptr;
        *part = nullptr;
        if (m_index >= m_parts.size()) return HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS);
        HRESULT hr = CopyName(m_parts[m_index].name, uri);
        if (FAILED(hr)) return hr;
        return m_parts[m_index].part.CopyTo(part);
    }
    BOOL IsDone() override { return m_index >= m_parts.size() ? TRUE : FALSE; }
    void Next() override {
        if (m_index < m_parts.size()) ++m_index;
    }

private:
    std::vector<ResourceRef> m_parts;
    std::size_t m_index = 0;
};

bool IsResourcePart(IUnknown* part) {
    const IID* kinds[] = {&IID_IPartFont, &IID_IPartImage, &IID_IPartColorProfile,
                          &IID_IPartResourceDictionary, &IID_IPartThumbnail};
    for (const IID* iid : kinds) {
        CComPtr<IUnknown> found;
        if (SUCCEEDED(part->QueryInterface(*iid, reinterpret_cast<void**>(&found)))) return true;
    }
    return false;
}

class FixedPagePart final : public TicketPart<ContentPart<IFixedPage>> {
public:
    using TicketPart::TicketPart;

    HRESULT GetPagePart(const wchar_t* uri, IUnknown** part) override {
        if (uri == nullptr || part == nullptr) return E_POINTER;
        *part = nullptr;
        return Guarded(m_state, [&] {
            std::optional<std::string> name =
                ResolvePartReference(m_state.name, platform::WideToUtf8(uri));
            if (!name) return E_INVALIDARG;
            std::string key = PartKey(*name);
            for (const ResourceRef& ref : CollectPageResources(*this)) {
                if (PartKey(ref.name) == key) return ref.part.CopyTo(part);
            }
            return E_ELEMENT_NOT_FOUND;
        });
    }

    HRESULT GetWriteStream(IPrintWriteStream** stream) override {
        if (stream == nullptr) return E_POINTER;
        *stream = nullptr;
        return Guarded(m_state, [&] {
            auto spool = std::make_shared<SpoolBuffer>();
            // The new markup's references are read as soon as it is complete, on the thread
            // that wrote it (a page thread of a filter working in parallel), rather than later
            // on the thread that sends pages to the writer.
            CComPtr<IFixedPage> self(this);
            const SpoolBuffer* written = spool.get();
            *stream = new SpoolWriteStream(spool, [self, this, written] {
                if (m_state.spool.get() == written) ScanNewMarkup();
            });
            m_state.spool = std::move(spool);
            return S_OK;
        });
    }

    // Reads the references of the markup just written. A failure is left for the writer, which
    // scans again and reports it.
    void ScanNewMarkup() noexcept {
        try {
            ScanPageMarkup(m_state, m_container);
        } catch (...) {
            m_container.scanned = false;
        }
    }

    HRESULT SetPagePart(IUnknown* part) override {
        if (part == nullptr) return E_POINTER;
        return Guarded(m_state, [&] {
            if (!IsResourcePart(part)) return E_INVALIDARG;
            std::string name = PartNameOf(part);
            if (name.empty()) return E_INVALIDARG;
            std::string key = PartKey(name);
            m_container.deletedKeys.erase(key);
            m_container.resourcesChanged = true;
            for (ResourceRef& ref : m_container.resources) {
                if (PartKey(ref.name) == key) {
                    ref.part = part;
                    ref.name = name;
                    return S_OK;
                }
            }
            m_container.resources.push_back({name, CComPtr<IUnknown>(part)});
            return S_OK;
        });
    }

    HRESULT DeleteResource(const wchar_t* uri) override {
        if (uri == nullptr) return E_POINTER;
        return Guarded(m_state, [&] {
            std::optional<std::string> name =
                ResolvePartReference(m_state.name, platform::WideToUtf8(uri));
            if (!name) return E_INVALIDARG;
            std::string key = PartKey(*name);
            auto& resources = m_container.resources;
            std::erase_if(resources,
                          [&](const ResourceRef& ref) { return PartKey(ref.name) == key; });
            m_container.deletedKeys.insert(key);
            m_container.resourcesChanged = true;
            return S_OK;
        });
    }

    HRESULT GetXpsPartIterator(IXpsPartIterator** iterator) override {
        if (iterator == nullptr) return E_POINTER;
        *iterator = nullptr;
        return Guarded(m_state, [&] {
            *iterator = new PartIterator(CollectPageResources(*this));
            return S_OK;
        });
    }
};

std::string DefaultContentType(PartKind kind, std::string_view name) {
    std::string ext = PartExtension(name);
    switch (kind) {
        case PartKind::PrintTicket:
            return std::string(xps::kPrintTicketContentType);
        case PartKind::Font:
            return std::string(ext == "odttf" ? xps::kObfuscatedFontContentType
                                              : xps::kFontContentType);
        case PartKind::ColorProfile:
            return std::string(xps::kColorProfileContentType);
        case PartKind::ResourceDictionary:
            return std::string(xps::kResourceDictionaryContentType);
        case PartKind::Page:
            return std::string(xps::kFixedPageContentType);
        case PartKind::Image:
        case PartKind::Thumbnail:
            if (ext == "png") return "image/png";
            if (ext == "jpg" || ext == "jpeg") return "image/jpeg";
            if (ext == "tif" || ext == "tiff") return "image/tiff";
            if (ext == "wdp" || ext == "jxr") return "image/vnd.ms-photo";
            return "image/png";
        default:
            return "application/octet-stream";
    }
}

PartState SourceState(PartKind kind, const std::shared_ptr<const SourcePackage>& package,
                      const SourcePart& part) {
    PartState state{kind, part.name, part.contentType};
    state.package = package;
    state.source = &part;
    bool stored = !part.items.empty() && part.items.front().method == 0;
    state.compression = stored ? Compression_NotCompressed : Compression_Normal;
    if (state.contentType.empty()) state.contentType = DefaultContentType(kind, part.name);
    if (state.contentType == xps::kObfuscatedFontContentType) state.fontOptions = Font_Obfusticate;
    return state;
}

// A sequence, document or page object over a part of the source package.
template <class Object, class I>
CComPtr<I> MakeContainerPart(PartKind kind, const std::shared_ptr<const SourcePackage>& package,
                             const SourcePart& source, ContainerState state) {
    CComPtr<I> part;
    part.Attach(new Object(SourceState(kind, package, source), std::move(state)));
    return part;
}

// A new object of class Object answering I, as IUnknown.
template <class Object, class I>
CComPtr<IUnknown> MakeObject(PartState state) {
    CComPtr<IUnknown> object;
    object.Attach(static_cast<I*>(new Object(std::move(state))));
    return object;
}

// A new object of the kind's class over the state (a page without container state).
CComPtr<IUnknown> MakePartObject(PartKind kind, PartState state) {
    switch (kind) {
        case PartKind::PrintTicket:
            return MakeObject<PrintTicketPart, IPartPrintTicket>(std::move(state));
        case PartKind::Font:
            return MakeObject<FontPart, IPartFont>(std::move(state));
        case PartKind::Image:
            return MakeObject<ImagePart, IPartImage>(std::move(state));
        case PartKind::ColorProfile:
            return MakeObject<ColorProfilePart, IPartColorProfile>(std::move(state));
        case PartKind::ResourceDictionary:
            return MakeObject<ResourceDictionaryPart, IPartResourceDictionary>(std::move(state));
        case PartKind::Thumbnail:
            return MakeObject<ThumbnailPart, IPartThumbnail>(std::move(state));
        case PartKind::Page: {
            CComPtr<IUnknown> page;
            page.Attach(
                static_cast<IFixedPage*>(new FixedPagePart(std::move(state), ContainerState{})));
            return page;
        }
        default:
            return {};
    }
}

}  // namespace

std::unique_ptr<PartStream> PartState::OpenContent() const {
    if (spool) {
        if (!spool->Closed()) {
            throw JobError(ErrorKind::Filter,
                           "part " + name + " is used before its write stream was closed");
        }
        return std::make_unique<SpoolStream>(spool);
    }
    if (source != nullptr && package) return package->OpenPart(*source);
    throw JobError(ErrorKind::Filter,
                   "part " + (name.empty() ? std::string("?") : name) + " has no content");
}

IHostPart* AsHostPart(IUnknown* part) {
    if (part == nullptr) return nullptr;
    IHostPart* host = nullptr;
    if (FAILED(part->QueryInterface(IID_IHostPart, reinterpret_cast<void**>(&host)))) {
        return nullptr;
    }
    host->Release();  // the caller holds `part`, which keeps the object alive
    return host;
}

ResourceKind ResourceKindOf(std::string_view type) {
    if (type.rfind("image/", 0) == 0) return ResourceKind::Image;
    if (type == xps::kColorProfileContentType) return ResourceKind::ColorProfile;
    if (type.find("resourcedictionary") != std::string_view::npos) {
        return ResourceKind::ResourceDictionary;
    }
    if (type.find("opentype") != std::string_view::npos ||
        type.find("font") != std::string_view::npos) {
        return ResourceKind::Font;
    }
    return ResourceKind::Other;
}

CComPtr<IUnknown> CreateSourceResource(const std::shared_ptr<const SourcePackage>& package,
                                       const SourcePart& part, ResourceKind hint) {
    ResourceKind kind = ResourceKindOf(part.contentType);
    if (kind == ResourceKind::Other || hint == ResourceKind::Thumbnail) kind = hint;
    PartKind partKind;
    switch (kind) {
        case ResourceKind::Font:
            partKind = PartKind::Font;
            break;
        case ResourceKind::Image:
            partKind = PartKind::Image;
            break;
        case ResourceKind::ColorProfile:
            partKind = PartKind::ColorProfile;
            break;
        case ResourceKind::ResourceDictionary:
            partKind = PartKind::ResourceDictionary;
            break;
        case ResourceKind::Thumbnail:
            partKind = PartKind::Thumbnail;
            break;
        default:
            return {};
    }
    return MakePartObject(partKind, SourceState(partKind, package, part));
}

CComPtr<IPartPrintTicket> CreateSourceTicket(const std::shared_ptr<const SourcePackage>& package,
                                             const SourcePart& part) {
    CComPtr<IPartPrintTicket> ticket;
    ticket.Attach(new PrintTicketPart(SourceState(PartKind::PrintTicket, package, part)));
    return ticket;
}

CComPtr<IXpsDocument> CreateXpsDocumentPart(std::shared_ptr<const SourcePackage> package,
                                            ContainerState state) {
    PartState part{PartKind::XpsDocument, "", ""};
    part.package = std::move(package);
    CComPtr<IXpsDocument> document;
    document.Attach(new XpsDocumentPart(std::move(part), std::move(state)));
    return document;
}

CComPtr<IFixedDocumentSequence> CreateSequencePart(std::shared_ptr<const SourcePackage> package,
                                                   const SourcePart& source, ContainerState state) {
    return MakeContainerPart<ListingPart<IFixedDocumentSequence>, IFixedDocumentSequence>(
        PartKind::Sequence, package, source, std::move(state));
}

CComPtr<IFixedDocument> CreateDocumentPart(std::shared_ptr<const SourcePackage> package,
                                           const SourcePart& source, ContainerState state) {
    return MakeContainerPart<ListingPart<IFixedDocument>, IFixedDocument>(
        PartKind::Document, package, source, std::move(state));
}

CComPtr<IFixedPage> CreatePagePart(std::shared_ptr<const SourcePackage> package,
                                   const SourcePart& source, ContainerState state) {
    return MakeContainerPart<FixedPagePart, IFixedPage>(PartKind::Page, package, source,
                                                        std::move(state));
}

HRESULT CreateNewPart(const wchar_t* uri, REFIID riid, void** part, IPrintWriteStream** stream) {
    if (part == nullptr || stream == nullptr) return E_POINTER;
    *part = nullptr;
    *stream = nullptr;
    if (uri == nullptr || *uri == L'\0') return E_INVALIDARG;
    std::string name = platform::WideToUtf8(uri);
    if (name.front() != '/') return E_INVALIDARG;
    try {
        name = PartNameFromItem(std::string_view(name).substr(1));
    } catch (const JobError&) {
        return E_INVALIDARG;
    }
    PartKind kind;
    if (riid == IID_IPartPrintTicket) {
        kind = PartKind::PrintTicket;
    } else if (riid == IID_IPartFont) {
        kind = PartKind::Font;
    } else if (riid == IID_IPartImage) {
        kind = PartKind::Image;
    } else if (riid == IID_IPartColorProfile) {
        kind = PartKind::ColorProfile;
    } else if (riid == IID_IPartResourceDictionary) {
        kind = PartKind::ResourceDictionary;
    } else if (riid == IID_IPartThumbnail) {
        kind = PartKind::Thumbnail;
    } else if (riid == IID_IFixedPage) {
        kind = PartKind::Page;
    } else {
        return E_NOINTERFACE;
    }
    try {
        PartState state{kind, name, DefaultContentType(kind, name)};
        if (state.contentType == xps::kObfuscatedFontContentType) {
            state.fontOptions = Font_Obfusticate;
        }
        state.spool = std::make_shared<SpoolBuffer>();
        CComPtr<IPrintWriteStream> writer;
        writer.Attach(new SpoolWriteStream(state.spool));
        CComPtr<IUnknown> object = MakePartObject(kind, std::move(state));
        HRESULT hr = object->QueryInterface(riid, part);
        if (FAILED(hr)) return hr;
        *stream = writer.Detach();
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void ScanPageMarkup(const PartState& state, ContainerState& container) {
    std::vector<MarkupReference> refs;
    std::unique_ptr<PartStream> content = state.OpenContent();
    ScanMarkupReferences(
        [&](char* buffer, std::size_t size) { return content->Read(buffer, size); }, state.name,
        refs);
    container.markupRefs = std::move(refs);
    container.scanned = true;
    container.scannedSpool = state.spool;
}

std::vector<ResourceRef> CollectPageResources(IHostPart& page) {
    PartState& state = page.State();
    ContainerState& container = *page.Container();
    std::vector<ResourceRef> result = container.resources;
    std::set<std::string> keys = container.deletedKeys;
    for (const ResourceRef& ref : result) keys.insert(PartKey(ref.name));
    if (!state.package || (state.source == nullptr && !state.spool)) return result;
    if (!container.scanned || container.scannedSpool != state.spool) {
        ScanPageMarkup(state, container);
    }
    for (const MarkupReference& ref : container.markupRefs) {
        std::string key = PartKey(ref.part);
        if (keys.count(key) != 0) continue;
        const SourcePart* part = state.package->Find(ref.part);
        if (part == nullptr) continue;
        CComPtr<IUnknown> object = CreateSourceResource(state.package, *part, ref.kind);
        if (!object) continue;
        keys.insert(key);
        result.push_back({part->name, object});
    }
    return result;
}

std::string PartNameOf(IUnknown* part) {
    if (part == nullptr) return {};
    CComPtr<IPartBase> base;
    if (FAILED(part->QueryInterface(IID_IPartBase, reinterpret_cast<void**>(&base)))) return {};
    BSTR uri = nullptr;
    if (FAILED(base->GetUri(&uri)) || uri == nullptr) return {};
    std::string name = platform::WideToUtf8(std::wstring_view(uri, SysStringLen(uri)));
    SysFreeString(uri);
    return name;
}

}  // namespace pipelinehost
