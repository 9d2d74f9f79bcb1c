// dlldelayloader.h: DllDelayLoader, the delay-load notification hook of the filter library and
// the record of what it loaded. When a function of a delay-loaded library (the core library) is
// first called, the delay-load helper (platform/win32/delayimp.h) asks the hook for the library.
// The hook takes a library the process already has, else looks for it beside the filter
// library, then in the printer driver directory's "3" subfolder; it logs what it loads, records
// every library it handed out, and turns a failure into ExceptionDelayLoadDllLoadFailure. The
// process's loader releases the recorded libraries when the process ends (or the filter library
// is unloaded). See docs/corelib.md.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "platform/com/wintypes.h"
#include "platform/win32/delayimp.h"

class DllDelayLoader {
public:
    // The size of the path buffer; longer paths skip the location they name.
    static constexpr DWORD kPathBufferSize = 261;

    DllDelayLoader();
    virtual ~DllDelayLoader();
    DllDelayLoader(const DllDelayLoader&) = delete;
    DllDelayLoader& operator=(const DllDelayLoader&) = delete;

    // Process attach: remembers the module the loader acts for (the library it is linked into:
    // "beside this library" means beside that module) and starts acting.
    void OnProcessAttach(HMODULE module);

    // The hook. Acts on dliNotePreLoadLibrary only: returns the library's handle, or null to
    // let the helper go on by itself (the utility library it could not find). Throws
    // ExceptionDelayLoadDllLoadFailure for any other library it cannot find.
    FARPROC Notify(unsigned notification, PDelayLoadInfo info);

    // What the destructor does: release every recorded library through the helper, once. After
    // it the hook does nothing.
    void Release();

    // The names the hook recorded, each once, in recording order.
    std::vector<std::string> GetLoadedLibraryNames() const;
    bool IsEnabled() const { return m_enabled; }
    bool IsReleased() const { return m_released; }
    bool IsUtilityLibraryLoaded() const { return m_utilityLibraryLoaded; }
    HMODULE GetModule() const { return m_module; }

    // The file name the hook recognises as the utility library's (compared ignoring case).
    const char* GetUtilityLibraryFileName() const { return m_utilityLibraryFileName; }

    // The loader of this process: the one ZDliNotifyHook2 forwards to, attached to the module
    // this code is linked into when that module is loaded.
    static DllDelayLoader& GetProcessLoader();

protected:
    // For a module that delay-loads the utility library itself: the hook then loads it without
    // logging, and throws only once the utility library is there to build the exception.
    explicit DllDelayLoader(bool utilityLibraryDelayLoaded);
    // Another file name for the utility library (the name must outlive the loader).
    void SetUtilityLibraryFileName(const char* fileName) { m_utilityLibraryFileName = fileName; }

private:
    HMODULE OnPreLoadLibrary(const char* name);
    void Record(const char* name, bool isUtilityLibrary);

    bool m_enabled = false;
    bool m_released = false;
    bool m_utilityLibraryDelayLoaded = false;
    bool m_utilityLibraryLoaded = false;
    std::vector<std::string> m_loadedLibraries;
    mutable std::mutex m_lock;  // guards m_loadedLibraries
    HMODULE m_module = nullptr;
    const char* m_utilityLibraryFileName;
};

// The notification hook installed as the helper's __pfnDliNotifyHook2: forwards to the
// process's loader (and does nothing once that loader is gone).
extern "C" FARPROC WINAPI ZDliNotifyHook2(unsigned notification, PDelayLoadInfo info);

// Installs ZDliNotifyHook2 as the helper's notification hook. Idempotent; the core-library
// binding calls it before its first call.
void InstallDllDelayLoaderHook();

// Builds an ExceptionDelayLoadDllLoadFailure (function "ThrowDelayLoadDllLoadFailureException",
// an empty message), logs "*Throwing* ExceptionDelayLoadDllLoadFailure: " and throws it.
[[noreturn]] void ThrowDelayLoadDllLoadFailureException(const char* libraryName);
