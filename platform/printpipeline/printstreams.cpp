// printstreams.cpp: memory-backed IPrintReadStream, IPrintReadStreamFactory and
// IPrintWriteStream.
#include "platform/printpipeline/printstreams.h"

#include <new>
#include <utility>

#include "platform/com/comobject.h"

namespace platform {
namespace {

class MemoryReadStream final : public ComObject<IPrintReadStream> {
public:
    explicit MemoryReadStream(std::shared_ptr<const std::string> bytes)
        : m_bytes(std::move(bytes)) {}

    HRESULT Seek(LONGLONG move, DWORD origin, ULONGLONG* newPosition) override {
        LONGLONG base = 0;
        switch (origin) {
            case STREAM_SEEK_SET:
                base = 0;
                break;
            case STREAM_SEEK_CUR:
                base = static_cast<LONGLONG>(m_position);
                break;
            case STREAM_SEEK_END:
                base = static_cast<LONGLONG>(m_bytes->size());
                break;
            default:
                return STG_E_INVALIDFUNCTION;
        }
        if ((move < 0 && base + move < 0)) return E_INVALIDARG;
        m_position = static_cast<ULONGLONG>(base + move);
        if (newPosition != nullptr) *newPosition = m_position;
        return S_OK;
    }

    HRESULT ReadBytes(void* buffer, ULONG requested, ULONG* read, BOOL* endOfFile) override {
        if (read == nullptr || endOfFile == nullptr || (buffer == nullptr && requested != 0)) {
            return E_POINTER;
        }
        ULONGLONG size = m_bytes->size();
        ULONGLONG available = m_position < size ? size - m_position : 0;
        ULONG count = available < requested ? static_cast<ULONG>(available) : requested;
        if (count != 0) m_bytes->copy(static_cast<char*>(buffer), count, m_position);
        m_position += count;
        *read = count;
        *endOfFile = m_position >= size ? TRUE : FALSE;
        return S_OK;
    }

private:
    std::shared_ptr<const std::string> m_bytes;
    ULONGLONG m_position = 0;
};

class MemoryReadStreamFactory final : public ComObject<IPrintReadStreamFactory> {
public:
    explicit MemoryReadStreamFactory(std::shared_ptr<const std::string> bytes)
        : m_bytes(std::move(bytes)) {}

    HRESULT GetStream(IPrintReadStream** stream) override {
        if (stream == nullptr) return E_POINTER;
        *stream = new (std::nothrow) MemoryReadStream(m_bytes);
        return *stream == nullptr ? E_OUTOFMEMORY : S_OK;
    }

private:
    std::shared_ptr<const std::string> m_bytes;
};

class MemoryWriteStream final : public ComObject<IPrintWriteStream> {
public:
    explicit MemoryWriteStream(std::shared_ptr<PrintWriteSink> sink) : m_sink(std::move(sink)) {}

    HRESULT WriteBytes(const void* buffer, ULONG count, ULONG* written) override {
        if (written == nullptr || (buffer == nullptr && count != 0)) return E_POINTER;
        *written = 0;
        if (m_sink->closed) return E_UNEXPECTED;
        try {
            m_sink->bytes.append(static_cast<const char*>(buffer), count);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        *written = count;
        return S_OK;
    }

    void Close() override { m_sink->closed = true; }

private:
    std::shared_ptr<PrintWriteSink> m_sink;
};

std::shared_ptr<const std::string> CopyBytes(const void* data, std::size_t size) {
    return std::make_shared<const std::string>(static_cast<const char*>(data), size);
}

}  // namespace

HRESULT CreatePrintReadStreamOnBytes(const void* data, std::size_t size,
                                     IPrintReadStream** stream) {
    if (stream == nullptr || (data == nullptr && size != 0)) return E_POINTER;
    *stream = nullptr;
    try {
        *stream = new MemoryReadStream(CopyBytes(data, size));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CreatePrintReadStreamFactoryOnBytes(const void* data, std::size_t size,
                                            IPrintReadStreamFactory** factory) {
    if (factory == nullptr || (data == nullptr && size != 0)) return E_POINTER;
    *factory = nullptr;
    try {
        *factory = new MemoryReadStreamFactory(CopyBytes(data, size));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CreatePrintWriteStreamOnSink(std::shared_ptr<PrintWriteSink> sink,
                                     IPrintWriteStream** stream) {
    if (stream == nullptr || sink == nullptr) return E_POINTER;
    *stream = new (std::nothrow) MemoryWriteStream(std::move(sink));
    return *stream == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace platform
