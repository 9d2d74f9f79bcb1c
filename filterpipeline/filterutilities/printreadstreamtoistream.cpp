// printreadstreamtoistream.cpp: the IStream and ISequentialStream adapters over IPrintReadStream.
#include "filterpipeline/filterutilities/printreadstreamtoistream.h"

#include <atomic>
#include <cstring>
#include <new>

HRESULT CPrintReadStreamToIStream::Read(void* buffer, ULONG count, ULONG* read) {
    if (buffer == nullptr || read == nullptr) return E_POINTER;
    CoFileTimeNow(&m_accessedTime);
    if (count == 0) return S_OK;
    BOOL eof = FALSE;
    return m_pReadStream->ReadBytes(buffer, count, read, &eof);
}

HRESULT CPrintReadStreamToIStream::Seek(LARGE_INTEGER move, DWORD origin,
                                        ULARGE_INTEGER* newPosition) {
    ULONGLONG position = 0;
    HRESULT hr = m_pReadStream->Seek(move.QuadPart, origin, &position);
    if (SUCCEEDED(hr) && newPosition != nullptr) newPosition->QuadPart = position;
    return hr;
}

HRESULT CPrintReadStreamToIStream::Stat(STATSTG* stat, DWORD flags) {
    if (stat == nullptr) return E_POINTER;
    if (m_cachedSize == 0) {
        ULONGLONG current = 0;
        ULONGLONG end = 0;
        HRESULT hr = m_pReadStream->Seek(0, STREAM_SEEK_CUR, &current);
        if (SUCCEEDED(hr)) hr = m_pReadStream->Seek(0, STREAM_SEEK_END, &end);
        if (SUCCEEDED(hr)) hr = m_pReadStream->Seek(static_cast<LONGLONG>(current), STREAM_SEEK_SET,
                                                    nullptr);
        if (FAILED(hr)) return hr;
        m_cachedSize = end;
    }
    std::memset(stat, 0, sizeof(*stat));
    if (flags == STATFLAG_DEFAULT) {
        static const wchar_t kName[] = L"PrintReadStream";
        const std::size_t characters = sizeof(kName) / sizeof(kName[0]);
        // Generously sized: eight bytes per character plus eight.
        auto* name = static_cast<wchar_t*>(CoTaskMemAlloc(characters * 8 + 8));
        if (name == nullptr) return E_OUTOFMEMORY;
        std::memcpy(name, kName, sizeof(kName));
        stat->pwcsName = name;
    }
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_cachedSize;
    stat->mtime = m_modifiedTime;
    stat->ctime = m_createdTime;
    stat->atime = m_accessedTime;
    stat->grfMode = STGM_SHARE_DENY_WRITE;
    stat->grfLocksSupported = LOCK_WRITE;
    return S_OK;
}

HRESULT CPrintReadStreamToIStream::Write(const void*, ULONG, ULONG*) { return E_NOTIMPL; }
HRESULT CPrintReadStreamToIStream::SetSize(ULARGE_INTEGER) { return E_NOTIMPL; }
HRESULT CPrintReadStreamToIStream::CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                          ULARGE_INTEGER*) {
    return E_NOTIMPL;
}
HRESULT CPrintReadStreamToIStream::Commit(DWORD) { return E_NOTIMPL; }
HRESULT CPrintReadStreamToIStream::Revert() { return E_NOTIMPL; }
HRESULT CPrintReadStreamToIStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}
HRESULT CPrintReadStreamToIStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}
HRESULT CPrintReadStreamToIStream::Clone(IStream**) { return E_NOTIMPL; }

namespace {

// The read-only sequential adapter: IUnknown and ISequentialStream only.
class PrintReadSequentialStream final : public ISequentialStream {
public:
    explicit PrintReadSequentialStream(IPrintReadStream* stream) : m_stream(stream) {
        m_stream->AddRef();
    }

    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) return E_POINTER;
        if (iid == IID_IUnknown || iid == IID_ISequentialStream) {
            *object = static_cast<ISequentialStream*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++m_refs; }
    ULONG Release() override {
        ULONG left = --m_refs;
        if (left == 0) {
            m_stream->Release();
            delete this;
        }
        return left;
    }
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        BOOL eof = FALSE;  // the end shows as a short read; the flag is not needed
        return m_stream->ReadBytes(buffer, count, read, &eof);
    }
    HRESULT Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

private:
    ~PrintReadSequentialStream() = default;

    std::atomic<ULONG> m_refs{1};
    IPrintReadStream* m_stream;
};

}  // namespace

ISequentialStream* CreatePrintReadSequentialStream(IPrintReadStream* stream) {
    if (stream == nullptr) return nullptr;
    return new (std::nothrow) PrintReadSequentialStream(stream);
}
