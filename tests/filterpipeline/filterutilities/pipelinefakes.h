// pipelinefakes.h: small in-memory implementations of the pipeline interfaces for tests of the
// filter library: parts with streams and tickets, pages with resources, a consumer that records
// what it is sent and creates new parts, a provider that yields a scripted part list.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/com/com.h"
#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"

namespace fakes {

// Stores `value` in `*out` and succeeds: the body of the fakes' getters.
template <class T, class V>
HRESULT Give(T* out, V value) {
    *out = value;
    return S_OK;
}
inline HRESULT GiveText(BSTR* out, const wchar_t* text) {
    return Give(out, SysAllocString(text));
}
using Compression = EXpsCompressionOptions;

// A read stream over a byte string: its own copy, or a view of bytes that `owner` keeps alive
// (a part's content, read without copying it at every GetStream, as a package's stream would).
class ReadStream final : public platform::ComObject<IPrintReadStream> {
public:
    explicit ReadStream(std::string bytes) : m_own(std::move(bytes)), m_bytes(m_own) {}
    ReadStream(std::string_view bytes, IUnknown* owner) : m_bytes(bytes), m_owner(owner) {}

    HRESULT Seek(LONGLONG offset, DWORD origin, ULONGLONG* position) override {
        ++seekCalls;
        LONGLONG base = origin == STREAM_SEEK_SET   ? 0
                        : origin == STREAM_SEEK_CUR ? static_cast<LONGLONG>(m_position)
                                                    : static_cast<LONGLONG>(m_bytes.size());
        if (base + offset < 0) return E_INVALIDARG;
        m_position = static_cast<ULONGLONG>(base + offset);
        if (position != nullptr) *position = m_position;
        return S_OK;
    }
    HRESULT ReadBytes(void* buffer, ULONG count, ULONG* read, BOOL* eof) override {
        ULONG available = 0;
        if (m_position < m_bytes.size()) {
            auto left = static_cast<ULONGLONG>(m_bytes.size()) - m_position;
            available = static_cast<ULONG>(left < count ? left : count);
        }
        std::copy_n(m_bytes.data() + m_position, available, static_cast<char*>(buffer));
        m_position += available;
        if (read != nullptr) *read = available;
        if (eof != nullptr) *eof = m_position >= m_bytes.size() ? TRUE : FALSE;
        return S_OK;
    }

    int seekCalls = 0;

private:
    std::string m_own;
    std::string_view m_bytes;
    CComPtr<IUnknown> m_owner;
    ULONGLONG m_position = 0;
};

// A write stream that keeps what was written and whether it was closed.
class WriteStream final : public platform::ComObject<IPrintWriteStream> {
public:
    HRESULT WriteBytes(const void* data, ULONG count, ULONG* written) override {
        ++writeCalls;
        if (closed) return E_FAIL;
        if (failWrites || (failAfterWrites >= 0 && writeCalls > failAfterWrites)) {
            return E_ACCESSDENIED;
        }
        largestWrite = std::max(largestWrite, count);
        bytes.append(static_cast<const char*>(data), count);
        if (written != nullptr) *written = count;
        return S_OK;
    }
    void Close() override { ++closeCalls, closed = true; }

    std::string bytes;
    bool closed = false;
    bool failWrites = false;
    int failAfterWrites = -1;  // >= 0: the writes after that many succeed fail
    int writeCalls = 0;
    ULONG largestWrite = 0;
    int closeCalls = 0;
};

// A part of any kind: a print ticket, font, image, ... All kinds derive from IPartBase.
template <class Kind>
class Part : public platform::ComObject<Kind> {
public:
    Part(std::wstring uri, std::string content)
        : uri(std::move(uri)), content(std::move(content)) {}

    HRESULT GetUri(BSTR* out) override { return failGetUri ? E_FAIL : GiveText(out, uri.c_str()); }
    HRESULT GetStream(IPrintReadStream** stream) override {
        ++streamsOpened;
        *stream = new ReadStream(written != nullptr ? std::string_view(written->bytes) : content,
                                 static_cast<Kind*>(this));
        return S_OK;
    }
    HRESULT GetPartCompression(Compression* c) override { return Give(c, Compression_Normal); }
    HRESULT SetPartCompression(Compression) override { return S_OK; }

    std::wstring uri;
    std::string content;
    int streamsOpened = 0;
    CComPtr<WriteStream> written;  // set when the part was made by a consumer
    bool failGetUri = false;

protected:
    HRESULT QueryBase(REFIID iid, void** object) override {
        if constexpr (!std::is_same_v<Kind, IPartBase>) {
            if (iid == IID_IPartBase) return this->template Answer<IPartBase>(object);
        }
        return E_NOINTERFACE;
    }
};
using TicketPart = Part<IPartPrintTicket>;

class FontPart final : public Part<IPartFont> {
public:
    using Part::Part;
    HRESULT GetFontProperties(BSTR* type, EXpsFontOptions* options) override {
        *options = Font_Normal;
        return GiveText(type, L"application/vnd.ms-opentype");
    }
    HRESULT SetFontContent(const wchar_t*) override { return S_OK; }
    HRESULT SetFontOptions(EXpsFontOptions) override { return S_OK; }
};

class ImagePart final : public Part<IPartImage> {
public:
    using Part::Part;
    HRESULT GetImageProperties(BSTR* type) override { return GiveText(type, L"image/png"); }
    HRESULT SetImageContent(const wchar_t*) override { return S_OK; }
};

// A new object of a fake class, held.
template <class T, class... Args>
CComPtr<T> Make(Args&&... args) {
    CComPtr<T> made;
    made.Attach(new T(std::forward<Args>(args)...));
    return made;
}

inline CComPtr<TicketPart> MakeTicket(const std::wstring& uri, const std::string& xml) {
    CComPtr<TicketPart> part;
    part.Attach(new TicketPart(uri, xml));
    return part;
}

// Iterates a snapshot of (uri, part) pairs.
class PartIterator final : public platform::ComObject<IXpsPartIterator> {
public:
    explicit PartIterator(std::vector<std::pair<std::wstring, CComPtr<IUnknown>>> parts)
        : m_parts(std::move(parts)) {}
    void Reset() override { m_index = 0; }
    HRESULT Current(BSTR* uri, IUnknown** part) override {
        if (m_index >= m_parts.size()) return E_FAIL;
        *uri = SysAllocString(m_parts[m_index].first.c_str());
        return m_parts[m_index].second.CopyTo(part);
    }
    BOOL IsDone() override { return m_index >= m_parts.size() ? TRUE : FALSE; }
    void Next() override { ++m_index; }

private:
    std::vector<std::pair<std::wstring, CComPtr<IUnknown>>> m_parts;
    std::size_t m_index = 0;
};

// Common ticket handling of the sequence, document and page fakes.
template <class Kind>
class TicketHolder : public platform::ComObject<Kind> {
public:
    HRESULT GetPrintTicket(IPartPrintTicket** out) override {
        *out = nullptr;
        return ticket ? ticket.CopyTo(out) : HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    HRESULT SetPrintTicket(IPartPrintTicket* fresh) override {
        ticket = fresh;
        ++setTicketCalls;
        return S_OK;
    }
    CComPtr<IPartPrintTicket> ticket;
    int setTicketCalls = 0;
};

// A sequence or document fake named by its fixed URI.
template <class Kind, const wchar_t* Uri>
class NamedHolder final : public TicketHolder<Kind> {
public:
    HRESULT GetUri(BSTR* uri) override { return GiveText(uri, Uri); }
};
inline constexpr wchar_t kSequenceUri[] = L"/FixedDocumentSequence.fdseq";
inline constexpr wchar_t kDocumentUri[] = L"/Documents/1/FixedDocument.fdoc";
using Sequence = NamedHolder<IFixedDocumentSequence, kSequenceUri>;
using Document = NamedHolder<IFixedDocument, kDocumentUri>;

class Page final : public TicketHolder<IFixedPage> {
public:
    HRESULT GetUri(BSTR* uri) override { return GiveText(uri, L"/Documents/1/Pages/1.fpage"); }
    HRESULT GetStream(IPrintReadStream** s) override { return Give(s, new ReadStream(markup)); }
    HRESULT GetPartCompression(Compression* c) override { return Give(c, Compression_Normal); }
    HRESULT SetPartCompression(Compression) override { return S_OK; }
    HRESULT GetPagePart(const wchar_t*, IUnknown**) override { return E_NOTIMPL; }
    HRESULT GetWriteStream(IPrintWriteStream**) override { return E_NOTIMPL; }
    HRESULT SetPagePart(IUnknown* part) override {
        if (failSetPagePart) return E_ACCESSDENIED;
        resources.emplace_back(part);
        return S_OK;
    }
    HRESULT DeleteResource(const wchar_t*) override { return E_NOTIMPL; }
    HRESULT GetXpsPartIterator(IXpsPartIterator** iterator) override {
        std::vector<std::pair<std::wstring, CComPtr<IUnknown>>> parts;
        for (auto& resource : resources) parts.emplace_back(L"/res", resource);
        *iterator = new PartIterator(std::move(parts));
        return S_OK;
    }

    std::string markup = "<FixedPage/>";
    std::vector<CComPtr<IUnknown>> resources;
    bool failSetPagePart = false;

protected:
    HRESULT QueryBase(REFIID iid, void** object) override {
        if (iid == IID_IPartBase) return Answer<IPartBase>(object);
        return E_NOINTERFACE;
    }
};

// Records what it is sent; GetNewEmptyPart makes parts of the asked kind with a recording stream.
class Consumer final : public platform::ComObject<IXpsDocumentConsumer> {
public:
    HRESULT SendXpsUnknown(IUnknown*) override { return Record("unknown"); }
    HRESULT SendXpsDocument(IXpsDocument*) override { return Record("document"); }
    HRESULT SendFixedDocumentSequence(IFixedDocumentSequence*) override {
        return Record("sequence");
    }
    HRESULT SendFixedDocument(IFixedDocument*) override { return Record("fixeddocument"); }
    HRESULT SendFixedPage(IFixedPage*) override { return Record("page"); }
    HRESULT CloseSender() override {
        ++closeCalls;
        return S_OK;
    }
    HRESULT GetNewEmptyPart(const wchar_t* uri, REFIID iid, void** object,
                            IPrintWriteStream** stream) override {
        ++newPartCalls;
        if (refuseNewParts) return E_ACCESSDENIED;
        CComPtr<WriteStream> writer;
        writer.Attach(new WriteStream());
        CComPtr<IUnknown> part;
        if (iid == IID_IPartPrintTicket) {
            auto* made = new TicketPart(uri, "");
            made->written = writer;
            part.Attach(static_cast<IPartPrintTicket*>(made));
        } else if (iid == IID_IPartFont) {
            auto* made = new FontPart(uri, "");
            made->written = writer;
            part.Attach(static_cast<IPartFont*>(made));
        } else if (iid == IID_IPartImage) {
            auto* made = new ImagePart(uri, "");
            made->written = writer;
            part.Attach(static_cast<IPartImage*>(made));
        } else {
            return E_NOINTERFACE;
        }
        newParts.push_back(part);
        newStreams.push_back(writer);
        HRESULT hr = part->QueryInterface(iid, object);
        if (FAILED(hr)) return hr;
        *stream = writer.Detach();
        return S_OK;
    }

    std::vector<std::string> sent;
    std::vector<CComPtr<IUnknown>> newParts;
    std::vector<CComPtr<WriteStream>> newStreams;
    int newPartCalls = 0;
    int closeCalls = 0;
    bool refuseNewParts = false;

private:
    HRESULT Record(const char* kind) {
        sent.emplace_back(kind);
        return S_OK;
    }
};

// A sample per-user default ticket.
inline constexpr char kDefaultTicket[] =
    "<?xml version='1.0' encoding='UTF-8'?>"
    "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
    "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/printing/"
    "printschemakeywords' version='1'>"
    "<psf:Feature name='psk:PageOrientation'><psf:Option name='psk:Portrait'/></psf:Feature>"
    "<psf:Feature name='psk:JobCopiesAllDocuments'><psf:Option name='psk:One'/></psf:Feature>"
    "</psf:PrintTicket>";

// Hands out read streams over a ticket text: what "PerUserPrintTicket" answers.
class TicketStreamFactory final : public platform::ComObject<IPrintReadStreamFactory> {
public:
    explicit TicketStreamFactory(std::string xml) : m_xml(std::move(xml)) {}
    HRESULT GetStream(IPrintReadStream** s) override { return Give(s, new ReadStream(m_xml)); }

private:
    std::string m_xml;
};

// A property bag over a small map of names to variants.
class PropertyBag final : public platform::ComObject<IPrintPipelinePropertyBag> {
public:
    HRESULT AddProperty(const wchar_t* name, const VARIANT* value) override {
        m_values[name] = *value;
        return S_OK;
    }
    HRESULT GetProperty(const wchar_t* name, VARIANT* value) override {
        auto found = m_values.find(name);
        if (found == m_values.end()) return E_INVALIDARG;
        return VariantCopy(value, &found->second);
    }
    BOOL DeleteProperty(const wchar_t* name) override {
        return m_values.erase(name) ? TRUE : FALSE;
    }

    // Fills the five keys a filter reads.
    void FillJobProperties(const std::string& ticketXml = kDefaultTicket, HANDLE token = nullptr) {
        CComPtr<IUnknown> factory;
        factory.Attach(static_cast<IPrintReadStreamFactory*>(new TicketStreamFactory(ticketXml)));
        CComVariant user, handle;
        user.vt = handle.vt = VT_BYREF;
        user.byref = token;
        handle.byref = reinterpret_cast<void*>(0x1234);
        const std::pair<const wchar_t*, CComVariant> values[] = {
            {L"PerUserPrintTicket", CComVariant(factory.p)},
            {L"PrinterName", CComVariant(L"Test Printer")},
            {L"UserSecurityToken", user},
            {L"PrintJobId", CComVariant(42u)},
            {L"PrinterHandle", handle}};
        for (const auto& [name, value] : values) AddProperty(name, &value);
    }

private:
    std::map<std::wstring, CComVariant> m_values;
};

class ManagerControl final : public platform::ComObject<IPrintPipelineManagerControl> {
public:
    HRESULT RequestShutdown(HRESULT reason, IImgErrorInfo*) override {
        shutdownReasons.push_back(reason);
        return S_OK;
    }
    HRESULT FilterFinished() override {
        ++finishedCalls;
        return S_OK;
    }
    std::vector<HRESULT> shutdownReasons;
    int finishedCalls = 0;
};

// Yields a scripted list of parts, then null, unless fetching is set to fail.
class Provider final : public platform::ComObject<IXpsDocumentProvider> {
public:
    HRESULT GetXpsPart(IUnknown** part) override {
        ++fetches;
        if (FAILED(fetchResult)) return fetchResult;
        if (m_next >= parts.size()) {
            *part = nullptr;
            return S_OK;
        }
        return parts[m_next++].CopyTo(part);
    }
    std::vector<CComPtr<IUnknown>> parts;
    HRESULT fetchResult = S_OK;
    int fetches = 0;

private:
    std::size_t m_next = 0;
};

// Gives the filter its reader and writer; either may be replaced by an object of another kind.
class Communicator final : public platform::ComObject<IInterFilterCommunicator> {
public:
    HRESULT RequestReader(void** reader) override {
        return reader_.CopyTo(reinterpret_cast<IUnknown**>(reader));
    }
    HRESULT RequestWriter(void** writer) override {
        return writer_.CopyTo(reinterpret_cast<IUnknown**>(writer));
    }
    CComPtr<IUnknown> reader_;
    CComPtr<IUnknown> writer_;
};

}  // namespace fakes
