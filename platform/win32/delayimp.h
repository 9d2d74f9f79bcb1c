// delayimp.h: the delay-load helper. A module that wants a library bound only when one of its
// functions is first called declares the function as a DelayLoadedFunction; the first call goes
// through the helper, which notifies the hook (__pfnDliNotifyHook2) exactly as the Windows
// helper does (dliStartProcessing, dliNotePreLoadLibrary, dliFailLoadLib,
// dliNotePreGetProcAddress, dliFailGetProc, dliNoteEndProcessing), loads the library, looks the
// function up and remembers both. Later calls cost one atomic load.
//
// Differences from Windows, where there is a helper per module: the hook pointers and the table
// of bound libraries are process-wide here. A failure the hook does not repair is reported by
// throwing platform::DelayLoadError (where Windows raises a structured exception with
// ERROR_MOD_NOT_FOUND or ERROR_PROC_NOT_FOUND); an exception the hook throws passes through.
// __FUnloadDelayLoadedDLL2 unloads a library the helper bound and makes every function of it
// bind again on its next call.
#pragma once

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/com/wintypes.h"
#include "platform/win32/modules.h"

// The notification codes, with the Windows values.
enum {
    dliStartProcessing = 0,
    dliNoteStartProcessing = dliStartProcessing,
    dliNotePreLoadLibrary = 1,
    dliNotePreGetProcAddress = 2,
    dliFailLoadLib = 3,
    dliFailGetProc = 4,
    dliNoteEndProcessing = 5,
};

struct DelayLoadProc {
    BOOL fImportByName;
    union {
        LPCSTR szProcName;
        DWORD dwOrdinal;
    };
};

// What the hook is told about the call being bound.
struct DelayLoadInfo {
    DWORD cb;           // size of this record
    const void* pidd;   // the import descriptor (none here: null)
    FARPROC* ppfn;      // where the bound address is stored (none here: null)
    LPCSTR szDll;       // the library's name
    DelayLoadProc dlp;  // the function's name
    HMODULE hmodCur;    // the library's handle once loaded
    FARPROC pfnCur;     // the function's address once found
    DWORD dwLastError;  // the error of the failed step (dliFail... notifications)
};
using PDelayLoadInfo = DelayLoadInfo*;
using PCDelayLoadInfo = const DelayLoadInfo*;

using PfnDliHook = FARPROC(WINAPI*)(unsigned notification, PDelayLoadInfo info);

extern "C" {
// The notification hook and the failure hook; null means none.
extern PfnDliHook __pfnDliNotifyHook2;
extern PfnDliHook __pfnDliFailureHook2;

// Unloads a library the helper bound (name compared exactly) and unbinds its functions. TRUE
// when it was bound and has been released, FALSE when the helper holds no such library.
BOOL WINAPI __FUnloadDelayLoadedDLL2(LPCSTR dllName);
}

namespace platform {

// A library or function the helper could not bind (Windows: the delay-load exception).
class DelayLoadError : public std::runtime_error {
public:
    DelayLoadError(DWORD error, std::string library, std::string procedure);
    DWORD GetError() const { return m_error; }  // ERROR_MOD_NOT_FOUND or ERROR_PROC_NOT_FOUND
    const std::string& GetLibrary() const { return m_library; }
    const std::string& GetProcedure() const { return m_procedure; }

private:
    DWORD m_error;
    std::string m_library;
    std::string m_procedure;
};

// Binds `procedure` of `library` through the hooks (see above). Thread-safe; throws
// DelayLoadError or what the hook throws.
FARPROC DelayLoadHelper(const char* library, const char* procedure);

// Changes each time a library is unloaded through __FUnloadDelayLoadedDLL2, so bound addresses
// can tell they are stale.
std::uint64_t DelayLoadGeneration();

// The handle the helper holds for the library, or null.
HMODULE GetDelayLoadedModule(const char* library);

// A function of a delay-loaded library: DelayLoadedFunction<int(int)> f("libx.so", "Fn");
// then f(1) binds on first use. Objects are meant to be statics.
template <class Signature>
class DelayLoadedFunction;

template <class R, class... Args>
class DelayLoadedFunction<R(Args...)> {
public:
    using Pointer = R (*)(Args...);

    constexpr DelayLoadedFunction(const char* library, const char* procedure)
        : m_library(library), m_procedure(procedure) {}

    // The bound address; binds first when needed.
    Pointer Get() {
        std::uint64_t generation = DelayLoadGeneration();
        if (m_generation.load(std::memory_order_acquire) == generation + 1) {
            return m_pointer.load(std::memory_order_acquire);
        }
        auto pointer = reinterpret_cast<Pointer>(DelayLoadHelper(m_library, m_procedure));
        m_pointer.store(pointer, std::memory_order_release);
        m_generation.store(generation + 1, std::memory_order_release);
        return pointer;
    }

    R operator()(Args... args) { return Get()(args...); }

private:
    const char* m_library;
    const char* m_procedure;
    std::atomic<Pointer> m_pointer{nullptr};
    std::atomic<std::uint64_t> m_generation{0};  // generation it was bound in, plus one
};

}  // namespace platform
