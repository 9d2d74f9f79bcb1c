// delayimp.cpp: the delay-load helper: binds a function of a library on its first call, telling
// the notification hook each step, and unloads bound libraries on request.

#include "platform/win32/delayimp.h"

#include <map>
#include <mutex>
#include <string>

#include "platform/win32/kernel.h"

extern "C" {
PfnDliHook __pfnDliNotifyHook2 = nullptr;
PfnDliHook __pfnDliFailureHook2 = nullptr;
}

namespace {

struct BoundLibraries {
    std::recursive_mutex lock;  // a library's constructor may bind functions itself
    std::map<std::string, HMODULE> modules;
    std::atomic<std::uint64_t> generation{0};
};

BoundLibraries& Bound() {
    static BoundLibraries* bound = new BoundLibraries;  // usable from static destructors
    return *bound;
}

FARPROC Notify(PfnDliHook hook, unsigned notification, DelayLoadInfo& info) {
    return hook != nullptr ? hook(notification, &info) : nullptr;
}

}  // namespace

namespace platform {

DelayLoadError::DelayLoadError(DWORD error, std::string library, std::string procedure)
    : std::runtime_error((error == ERROR_PROC_NOT_FOUND
                              ? "delay load: no function " + procedure + " in " + library
                              : "delay load: cannot load " + library)),
      m_error(error),
      m_library(std::move(library)),
      m_procedure(std::move(procedure)) {}

FARPROC DelayLoadHelper(const char* library, const char* procedure) {
    if (library == nullptr || procedure == nullptr) {
        throw DelayLoadError(ERROR_INVALID_PARAMETER, library ? library : "",
                             procedure ? procedure : "");
    }
    BoundLibraries& bound = Bound();
    std::lock_guard<std::recursive_mutex> guard(bound.lock);

    DelayLoadInfo info{};
    info.cb = sizeof info;
    info.szDll = library;
    info.dlp.fImportByName = TRUE;
    info.dlp.szProcName = procedure;

    PfnDliHook hook = __pfnDliNotifyHook2;
    if (FARPROC early = Notify(hook, dliStartProcessing, info)) return early;

    auto known = bound.modules.find(library);
    info.hmodCur = known != bound.modules.end() ? known->second : nullptr;
    if (info.hmodCur == nullptr) {
        HMODULE module = reinterpret_cast<HMODULE>(Notify(hook, dliNotePreLoadLibrary, info));
        if (module == nullptr) module = LoadLibraryExA(library, nullptr, 0);
        if (module == nullptr) {
            info.dwLastError = GetLastError();
            module = reinterpret_cast<HMODULE>(Notify(__pfnDliFailureHook2, dliFailLoadLib, info));
        }
        if (module == nullptr) {
            Notify(hook, dliNoteEndProcessing, info);
            throw DelayLoadError(ERROR_MOD_NOT_FOUND, library, procedure);
        }
        bound.modules[library] = module;
        info.hmodCur = module;
    }

    FARPROC function = Notify(hook, dliNotePreGetProcAddress, info);
    if (function == nullptr) function = GetProcAddress(info.hmodCur, procedure);
    if (function == nullptr) {
        info.dwLastError = GetLastError();
        function = Notify(__pfnDliFailureHook2, dliFailGetProc, info);
    }
    if (function == nullptr) {
        Notify(hook, dliNoteEndProcessing, info);
        throw DelayLoadError(ERROR_PROC_NOT_FOUND, library, procedure);
    }
    info.pfnCur = function;
    Notify(hook, dliNoteEndProcessing, info);
    return function;
}

std::uint64_t DelayLoadGeneration() {
    return Bound().generation.load(std::memory_order_acquire);
}

HMODULE GetDelayLoadedModule(const char* library) {
    if (library == nullptr) return nullptr;
    BoundLibraries& bound = Bound();
    std::lock_guard<std::recursive_mutex> guard(bound.lock);
    auto known = bound.modules.find(library);
    return known != bound.modules.end() ? known->second : nullptr;
}

}  // namespace platform

extern "C" BOOL WINAPI __FUnloadDelayLoadedDLL2(LPCSTR dllName) {
    if (dllName == nullptr) return FALSE;
    BoundLibraries& bound = Bound();
    std::lock_guard<std::recursive_mutex> guard(bound.lock);
    auto known = bound.modules.find(dllName);
    if (known == bound.modules.end()) return FALSE;
    HMODULE module = known->second;
    bound.modules.erase(known);
    bound.generation.fetch_add(1, std::memory_order_acq_rel);
    FreeLibrary(module);
    return TRUE;
}
