// printreadstreamtoistream.h: CPrintReadStreamToIStream presents a pipeline IPrintReadStream as
// a read-only COM IStream (Read, Seek and Stat; every writing or locking call is E_NOTIMPL), so
// that a part's content can be handed to code that takes an IStream, such as an XML DOM.
#pragma once

#include "filterpipeline/filterutilities/cunknown.h"
#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"
#include "support/errorframe/errorframe.h"

class CPrintReadStreamToIStream : public CUnknown<IStream> {
public:
    // A null stream, or a failing clock, throws ZorunComException through the error frame.
    explicit CPrintReadStreamToIStream(IPrintReadStream* stream) : CUnknown<IStream>(IID_IStream) {
        if (stream == nullptr) {
            THROW_COM(E_POINTER, L"CPrintReadStreamToIStream::CPrintReadStreamToIStream", "");
        }
        HRESULT hr = CoFileTimeNow(&m_modifiedTime);
        if (SUCCEEDED(hr)) hr = CoFileTimeNow(&m_createdTime);
        if (SUCCEEDED(hr)) hr = CoFileTimeNow(&m_accessedTime);
        THROW_COM_IF_FAILED(hr, L"CPrintReadStreamToIStream::CPrintReadStreamToIStream", "");
        m_pReadStream = stream;
        m_pReadStream->AddRef();
    }
    ~CPrintReadStreamToIStream() override {
        if (m_pReadStream != nullptr) m_pReadStream->Release();
    }
    CPrintReadStreamToIStream(const CPrintReadStreamToIStream&) = delete;
    CPrintReadStreamToIStream& operator=(const CPrintReadStreamToIStream&) = delete;

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
    HRESULT SetSize(ULARGE_INTEGER newSize) override;
    HRESULT CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                   ULARGE_INTEGER* written) override;
    HRESULT Commit(DWORD flags) override;
    HRESULT Revert() override;
    HRESULT LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    HRESULT UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    // The size is found by seeking to the end once and cached; the name (STATFLAG_DEFAULT) is
    // "PrintReadStream" in CoTaskMemAlloc'd memory the caller frees.
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream** clone) override;

private:
    IPrintReadStream* m_pReadStream = nullptr;
    ULONGLONG m_cachedSize = 0;
    FILETIME m_modifiedTime{};
    FILETIME m_createdTime{};
    FILETIME m_accessedTime{};
};

// Wraps a print read stream as a new sequential stream (count 1, owned by the caller). Used when
// a part's ticket is loaded into a DOM. Null when out of memory.
ISequentialStream* CreatePrintReadSequentialStream(IPrintReadStream* stream);
