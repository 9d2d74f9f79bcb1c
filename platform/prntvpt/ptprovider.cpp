// ptprovider.cpp: the PrintTicket provider API: a table of open provider handles (checked on
// every call, bound to the thread that opened them) and the stream plumbing around the merge.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>
#include <unordered_map>

#include "platform/com/comruntime.h"
#include "platform/com/unicode.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketmerge.h"

namespace {

using platform::prntvpt::TicketError;
using platform::prntvpt::TicketRole;

struct ProviderRecord {
    std::wstring printerName;
    DWORD version;
    std::thread::id owner;
};

// Handles are keys into this table; a handle that is not in it (closed, never issued) is
// refused without being dereferenced. Keys are never reused within a process.
class ProviderTable {
public:
    HPTPROVIDER Add(ProviderRecord record) {
        std::lock_guard<std::mutex> lock(mutex_);
        const std::uintptr_t key = (next_++ << 4) | 0x8;
        records_.emplace(key, std::move(record));
        return reinterpret_cast<HPTPROVIDER>(key);
    }

    // S_OK, E_HANDLE (not open) or E_INVALIDARG (opened on another thread).
    HRESULT Check(HPTPROVIDER provider) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return CheckLocked(provider);
    }

    HRESULT Remove(HPTPROVIDER provider) {
        std::lock_guard<std::mutex> lock(mutex_);
        PT_RETURN_IF_FAILED(CheckLocked(provider));
        records_.erase(reinterpret_cast<std::uintptr_t>(provider));
        return S_OK;
    }

private:
    HRESULT CheckLocked(HPTPROVIDER provider) const {
        auto found = records_.find(reinterpret_cast<std::uintptr_t>(provider));
        if (found == records_.end()) return E_HANDLE;
        return found->second.owner == std::this_thread::get_id() ? S_OK : E_INVALIDARG;
    }

    mutable std::mutex mutex_;
    std::unordered_map<std::uintptr_t, ProviderRecord> records_;
    std::uintptr_t next_ = 1;
};

ProviderTable& Providers() {
    static ProviderTable table;
    return table;
}

HRESULT CheckPrinterName(PCWSTR printerName) {
    if (printerName == nullptr) return E_POINTER;
    if (printerName[0] == L'\0') return HRESULT_FROM_WIN32(ERROR_INVALID_PRINTER_NAME);
    return S_OK;
}

HRESULT OpenAtVersion(PCWSTR printerName, DWORD version, HPTPROVIDER* provider) {
    try {
        *provider = Providers().Add({printerName, version, std::this_thread::get_id()});
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

const char* RoleWord(TicketRole role) {
    return role == TicketRole::Base ? "base" : "delta";
}

// Reads a whole ticket stream from its start (rewinding it first; a stream that cannot seek is
// read from where it stands), refusing more than the size limit.
HRESULT ReadTicketStream(IStream* stream, TicketRole role, std::string& bytes, TicketError& error) {
    LARGE_INTEGER start{};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    constexpr ULONG kChunk = 64 * 1024;
    char buffer[kChunk];
    for (;;) {
        ULONG got = 0;
        const HRESULT hr = stream->Read(buffer, kChunk, &got);
        if (FAILED(hr)) {
            error.code = hr;
            error.message = std::string("Reading the ") + RoleWord(role) + " ticket stream failed";
            return hr;
        }
        got = got > kChunk ? kChunk : got;
        if (got == 0) break;
        if (bytes.size() + got > platform::kMaxPrintTicketBytes) {
            error.code = platform::prntvpt::FormatErrorCode(role);
            error.message = std::string("The ") + RoleWord(role) +
                            " ticket is larger than the limit of " +
                            std::to_string(platform::kMaxPrintTicketBytes) + " bytes";
            return error.code;
        }
        bytes.append(buffer, got);
    }
    return S_OK;
}

HRESULT WriteAll(IStream* stream, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const std::size_t left = bytes.size() - done;
        const ULONG chunk = left > 0x40000000u ? 0x40000000u : static_cast<ULONG>(left);
        ULONG written = 0;
        PT_RETURN_IF_FAILED(stream->Write(bytes.data() + done, chunk, &written));
        if (written == 0 || written > chunk) return STG_E_WRITEFAULT;
        done += written;
    }
    return S_OK;
}

HRESULT SetErrorText(BSTR* errorMessage, const std::string& text) {
    *errorMessage = SysAllocString(platform::Utf8ToWide(text).c_str());
    return *errorMessage == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT MergeStreams(IStream* baseTicket, IStream* deltaTicket, EPrintTicketScope scope,
                     IStream* resultTicket, BSTR* errorMessage) {
    TicketError error;
    std::string base;
    std::string delta;
    std::string merged;
    HRESULT hr = ReadTicketStream(baseTicket, TicketRole::Base, base, error);
    if (SUCCEEDED(hr) && deltaTicket != nullptr) {
        hr = ReadTicketStream(deltaTicket, TicketRole::Delta, delta, error);
    }
    if (SUCCEEDED(hr)) {
        std::optional<std::string_view> deltaBytes;
        if (deltaTicket != nullptr) deltaBytes = delta;
        hr = platform::prntvpt::MergeTicketBytes(base, deltaBytes, scope, merged, error);
    }
    if (FAILED(hr)) {
        SetErrorText(errorMessage, error.message);
        return hr;
    }
    PT_RETURN_IF_FAILED(WriteAll(resultTicket, merged));
    return hr;
}

}  // namespace

HRESULT PTOpenProvider(PCWSTR printerName, DWORD version, HPTPROVIDER* provider) {
    if (provider == nullptr) return E_POINTER;
    *provider = nullptr;
    PT_RETURN_IF_FAILED(CheckPrinterName(printerName));
    if (version != PT_SCHEMA_VERSION) return E_INVALIDARG;
    return OpenAtVersion(printerName, version, provider);
}

HRESULT PTOpenProviderEx(PCWSTR printerName, DWORD maxVersion, DWORD preferredVersion,
                         HPTPROVIDER* provider, DWORD* usedVersion) {
    if (provider == nullptr || usedVersion == nullptr) return E_POINTER;
    *provider = nullptr;
    *usedVersion = 0;
    PT_RETURN_IF_FAILED(CheckPrinterName(printerName));
    if (maxVersion == 0 || preferredVersion == 0 || preferredVersion > maxVersion) {
        return E_INVALIDARG;
    }
    const DWORD version =
        preferredVersion < PT_SCHEMA_VERSION ? preferredVersion : PT_SCHEMA_VERSION;
    PT_RETURN_IF_FAILED(OpenAtVersion(printerName, version, provider));
    *usedVersion = version;
    return S_OK;
}

HRESULT PTQuerySchemaVersionSupport(PCWSTR printerName, DWORD* maxVersion) {
    if (maxVersion == nullptr) return E_POINTER;
    *maxVersion = 0;
    PT_RETURN_IF_FAILED(CheckPrinterName(printerName));
    *maxVersion = PT_SCHEMA_VERSION;
    return S_OK;
}

HRESULT PTCloseProvider(HPTPROVIDER provider) {
    return Providers().Remove(provider);
}

HRESULT PTMergeAndValidatePrintTicket(HPTPROVIDER provider, IStream* baseTicket,
                                      IStream* deltaTicket, EPrintTicketScope scope,
                                      IStream* resultTicket, BSTR* errorMessage) {
    if (errorMessage == nullptr) return E_POINTER;
    *errorMessage = nullptr;
    PT_RETURN_IF_FAILED(Providers().Check(provider));
    if (baseTicket == nullptr || resultTicket == nullptr) return E_POINTER;
    try {
        return MergeStreams(baseTicket, deltaTicket, scope, resultTicket, errorMessage);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT PTReleaseMemory(PVOID buffer) {
    CoTaskMemFree(buffer);
    return S_OK;
}

namespace platform {
namespace {

bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

HRESULT ReadTicketFile(const std::string& path, TicketRole role, std::string& bytes,
                       std::string& error) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        const int code = errno;
        error = std::string("Cannot open the ") + RoleWord(role) + " ticket file '" + path +
                "': " + std::strerror(code);
        if (code == ENOENT) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        if (code == EACCES) return E_ACCESSDENIED;
        return E_FAIL;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(file, std::fclose);
    char buffer[64 * 1024];
    for (;;) {
        const std::size_t got = std::fread(buffer, 1, sizeof buffer, file);
        if (bytes.size() + got > kMaxPrintTicketBytes) {
            error = std::string("The ") + RoleWord(role) + " ticket file '" + path +
                    "' is larger than the limit of " + std::to_string(kMaxPrintTicketBytes) +
                    " bytes";
            return prntvpt::FormatErrorCode(role);
        }
        bytes.append(buffer, got);
        if (got < sizeof buffer) break;
    }
    if (std::ferror(file)) {
        error = std::string("Cannot read the ") + RoleWord(role) + " ticket file '" + path +
                "': " + std::strerror(errno);
        return STG_E_READFAULT;
    }
    return S_OK;
}

}  // namespace

bool ParsePrintTicketScope(std::string_view text, EPrintTicketScope* scope) {
    if (scope == nullptr) return false;
    for (EPrintTicketScope candidate : {kPTPageScope, kPTDocumentScope, kPTJobScope}) {
        if (EqualsIgnoringAsciiCase(text, PrintTicketScopeName(candidate))) {
            *scope = candidate;
            return true;
        }
    }
    return false;
}

const char* PrintTicketScopeName(EPrintTicketScope scope) {
    switch (scope) {
        case kPTPageScope:
            return "page";
        case kPTDocumentScope:
            return "document";
        case kPTJobScope:
            return "job";
    }
    return "unknown";
}

HRESULT MergePrintTicketXml(std::string_view base, std::optional<std::string_view> delta,
                            EPrintTicketScope scope, std::string& merged, std::string& error) {
    try {
        prntvpt::TicketError failure;
        std::string result;
        const HRESULT hr = prntvpt::MergeTicketBytes(base, delta, scope, result, failure);
        if (FAILED(hr)) {
            error = std::move(failure.message);
            return hr;
        }
        merged = std::move(result);
        error.clear();
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT MergePrintTicketFiles(const std::string& basePath, const std::string& deltaPath,
                              EPrintTicketScope scope, std::string& merged, std::string& error) {
    try {
        std::string base;
        std::string delta;
        PT_RETURN_IF_FAILED(ReadTicketFile(basePath, TicketRole::Base, base, error));
        if (!deltaPath.empty()) {
            PT_RETURN_IF_FAILED(ReadTicketFile(deltaPath, TicketRole::Delta, delta, error));
        }
        std::optional<std::string_view> deltaBytes;
        if (!deltaPath.empty()) deltaBytes = delta;
        return MergePrintTicketXml(base, deltaBytes, scope, merged, error);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace platform
