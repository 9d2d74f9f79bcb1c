// comruntime.cpp: apartment counting, the class registry, task memory, file times and the
// in-memory IStream.
#include "platform/com/comruntime.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "platform/com/comobject.h"

namespace {

struct Apartment {
    int count = 0;
    DWORD model = 0;
};
thread_local Apartment t_apartment;

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}
std::map<CLSID, platform::ClassFactory>& Registry() {
    static std::map<CLSID, platform::ClassFactory> registry;
    return registry;
}

// Memory stream: a byte vector with a position; seeking past the end is allowed and a write
// there zero-fills the gap, as an HGLOBAL stream does.
class MemoryStream final : public platform::ComObject<IStream> {
public:
    MemoryStream() = default;
    explicit MemoryStream(std::vector<BYTE> bytes) : m_bytes(std::move(bytes)) {}

    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        if (buffer == nullptr && count != 0) return STG_E_INVALIDPOINTER;
        ULONG available = 0;
        if (m_position < m_bytes.size()) {
            std::size_t left = m_bytes.size() - static_cast<std::size_t>(m_position);
            available = static_cast<ULONG>(left < count ? left : count);
        }
        if (available != 0) std::memcpy(buffer, m_bytes.data() + m_position, available);
        m_position += available;
        if (read != nullptr) *read = available;
        return available < count ? S_FALSE : S_OK;
    }
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override {
        if (buffer == nullptr && count != 0) return STG_E_INVALIDPOINTER;
        ULONGLONG end = m_position + count;
        try {
            if (end > m_bytes.size()) m_bytes.resize(static_cast<std::size_t>(end));
        } catch (...) {
            if (written != nullptr) *written = 0;
            return STG_E_MEDIUMFULL;
        }
        if (count != 0) std::memcpy(m_bytes.data() + m_position, buffer, count);
        m_position = end;
        if (written != nullptr) *written = count;
        return S_OK;
    }
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override {
        LONGLONG base = 0;
        switch (origin) {
            case STREAM_SEEK_SET: base = 0; break;
            case STREAM_SEEK_CUR: base = static_cast<LONGLONG>(m_position); break;
            case STREAM_SEEK_END: base = static_cast<LONGLONG>(m_bytes.size()); break;
            default: return STG_E_INVALIDFUNCTION;
        }
        LONGLONG target = base + move.QuadPart;
        if (target < 0) return STG_E_INVALIDFUNCTION;
        m_position = static_cast<ULONGLONG>(target);
        if (newPosition != nullptr) newPosition->QuadPart = m_position;
        return S_OK;
    }
    HRESULT SetSize(ULARGE_INTEGER newSize) override {
        try {
            m_bytes.resize(static_cast<std::size_t>(newSize.QuadPart));
        } catch (...) {
            return STG_E_MEDIUMFULL;
        }
        return S_OK;
    }
    HRESULT CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                   ULARGE_INTEGER* written) override {
        if (target == nullptr) return STG_E_INVALIDPOINTER;
        ULONGLONG left = m_position < m_bytes.size() ? m_bytes.size() - m_position : 0;
        ULONGLONG amount = count.QuadPart < left ? count.QuadPart : left;
        ULONGLONG done = 0;
        HRESULT hr = S_OK;
        while (done < amount && SUCCEEDED(hr)) {
            ULONG chunk = static_cast<ULONG>(amount - done > 0x10000000 ? 0x10000000 : amount - done);
            ULONG wrote = 0;
            hr = target->Write(m_bytes.data() + m_position + done, chunk, &wrote);
            done += wrote;
            if (wrote != chunk) break;
        }
        m_position += amount;
        if (read != nullptr) read->QuadPart = amount;
        if (written != nullptr) written->QuadPart = done;
        return hr;
    }
    HRESULT Commit(DWORD) override { return S_OK; }
    HRESULT Revert() override { return S_OK; }
    HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT Stat(STATSTG* stat, DWORD) override {
        if (stat == nullptr) return STG_E_INVALIDPOINTER;
        std::memset(stat, 0, sizeof(*stat));
        stat->type = STGTY_STREAM;
        stat->cbSize.QuadPart = m_bytes.size();
        stat->grfMode = STGM_READWRITE;
        return S_OK;
    }
    HRESULT Clone(IStream** clone) override {
        if (clone == nullptr) return STG_E_INVALIDPOINTER;
        auto* copy = new (std::nothrow) MemoryStream(m_bytes);
        if (copy == nullptr) return E_OUTOFMEMORY;
        copy->m_position = m_position;
        *clone = copy;
        return S_OK;
    }

private:
    std::vector<BYTE> m_bytes;
    ULONGLONG m_position = 0;
};

}  // namespace

HRESULT CoInitializeEx(void* /*reserved*/, DWORD coInit) {
    DWORD model = coInit & COINIT_APARTMENTTHREADED;
    if (t_apartment.count > 0) {
        if (t_apartment.model != model) return RPC_E_CHANGED_MODE;
        ++t_apartment.count;
        return S_FALSE;
    }
    t_apartment.model = model;
    t_apartment.count = 1;
    return S_OK;
}

HRESULT CoInitialize(void* reserved) { return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED); }

void CoUninitialize() {
    if (t_apartment.count > 0) --t_apartment.count;
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD /*context*/, REFIID iid,
                         void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    platform::ClassFactory factory;
    {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        auto found = Registry().find(clsid);
        if (found == Registry().end()) return REGDB_E_CLASSNOTREG;
        factory = found->second;
    }
    return factory(iid, object);
}

void* CoTaskMemAlloc(SIZE_T bytes) { return std::malloc(bytes == 0 ? 1 : bytes); }
void* CoTaskMemRealloc(void* block, SIZE_T bytes) {
    return std::realloc(block, bytes == 0 ? 1 : bytes);
}
void CoTaskMemFree(void* block) { std::free(block); }

HRESULT CoFileTimeNow(FILETIME* now) {
    if (now == nullptr) return E_INVALIDARG;
    // 100 ns intervals between 1601-01-01 and 1970-01-01.
    constexpr ULONGLONG kEpochDifference = 116444736000000000ULL;
    auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    ULONGLONG ticks = kEpochDifference + static_cast<ULONGLONG>(since1970.count() / 100);
    now->dwLowDateTime = static_cast<DWORD>(ticks);
    now->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return S_OK;
}

HRESULT CreateStreamOnHGlobal(HGLOBAL global, BOOL /*deleteOnRelease*/, IStream** stream) {
    if (stream == nullptr) return E_INVALIDARG;
    *stream = nullptr;
    if (global != nullptr) return E_INVALIDARG;
    auto* created = new (std::nothrow) MemoryStream();
    if (created == nullptr) return E_OUTOFMEMORY;
    *stream = created;
    return S_OK;
}

namespace platform {

void RegisterComClass(REFCLSID clsid, ClassFactory factory) {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    Registry()[clsid] = std::move(factory);
}

void UnregisterComClass(REFCLSID clsid) {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    Registry().erase(clsid);
}

int ApartmentInitCount() { return t_apartment.count; }

HRESULT CreateMemoryStream(const void* data, std::size_t size, IStream** stream) {
    if (stream == nullptr || (data == nullptr && size != 0)) return E_POINTER;
    *stream = nullptr;
    try {
        const auto* bytes = static_cast<const BYTE*>(data);
        auto* created = new MemoryStream(std::vector<BYTE>(bytes, bytes + size));
        *stream = created;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

std::string GuidToString(const GUID& g) {
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  g.Data1, g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3],
                  g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

}  // namespace platform
