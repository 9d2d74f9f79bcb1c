// dlldelayloader.cpp: the delay-load hook: where a delay-loaded library is looked for, what is
// logged, what is recorded, and the release of the recorded libraries at the end.

#include "utilitiesstaticlib/dlldelayloader.h"

#include <strings.h>

#include <cstring>
#include <memory>

#include "platform/win32/modules.h"
#include "platform/win32/printers.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/zorunutilities.h"

#ifndef FU_UTILITY_LIBRARY_FILE_NAME
#error "FU_UTILITY_LIBRARY_FILE_NAME must name the utility library's file"
#endif

namespace {

using GetModuleHandleExAFunction = BOOL(WINAPI*)(DWORD, LPCSTR, HMODULE*);

// Set once the process's loader has been destroyed: the hook must not touch it any more.
std::atomic<bool> g_processLoaderGone{false};

// Appends `text` to the NUL-terminated `buffer` of `size` bytes. False, and the buffer as it
// was, when the result would not fit.
bool BoundedAppend(char* buffer, std::size_t size, const char* text) {
    std::size_t used = strnlen(buffer, size);
    std::size_t length = std::strlen(text);
    if (used >= size || length >= size - used) return false;
    std::memcpy(buffer + used, text, length + 1);
    return true;
}

// A performance-measurement message, when the debug-message manager has them switched on.
void LogPerformanceMessage(const CXString& text) {
    DebugMessageManager& manager = GetDebugMessageManager();
    if (!manager.IsPerformanceMeasurementEnabledByConfiguration()) return;
    const DebugMessageCategories& categories = ModuleDebugMessageCategories();
    manager.AddMessage(false, categories, categories, ZorunDebugMessage(text, L"", 0, L""));
}

// Process attach of the module this code is linked into.
__attribute__((constructor)) void AttachProcessDllDelayLoader() {
    HMODULE module = nullptr;
    if (GetModuleHandleExA(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCSTR>(&AttachProcessDllDelayLoader), &module)) {
        DllDelayLoader::GetProcessLoader().OnProcessAttach(module);
    }
}

class ProcessDllDelayLoader : public DllDelayLoader {
public:
    ~ProcessDllDelayLoader() override { g_processLoaderGone.store(true); }
};

}  // namespace

DllDelayLoader::DllDelayLoader() : m_utilityLibraryFileName(FU_UTILITY_LIBRARY_FILE_NAME) {}

DllDelayLoader::DllDelayLoader(bool utilityLibraryDelayLoaded)
    : m_utilityLibraryDelayLoaded(utilityLibraryDelayLoaded),
      m_utilityLibraryFileName(FU_UTILITY_LIBRARY_FILE_NAME) {}

DllDelayLoader::~DllDelayLoader() {
    Release();
}

void DllDelayLoader::OnProcessAttach(HMODULE module) {
    m_module = module;
    m_enabled = true;
}

DllDelayLoader& DllDelayLoader::GetProcessLoader() {
    static ProcessDllDelayLoader loader;  // destroyed at process end: releases the libraries
    return loader;
}

FARPROC DllDelayLoader::Notify(unsigned notification, PDelayLoadInfo info) {
    if (!m_enabled || m_released || notification != dliNotePreLoadLibrary || info == nullptr ||
        info->szDll == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(OnPreLoadLibrary(info->szDll));
}

HMODULE DllDelayLoader::OnPreLoadLibrary(const char* name) {
    const bool isUtilityLibrary = strcasecmp(name, GetUtilityLibraryFileName()) == 0;
    HMODULE module = nullptr;

    // Already loaded: take a reference to it.
    HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    auto getModuleHandleEx = kernel != nullptr ? reinterpret_cast<GetModuleHandleExAFunction>(
                                                     GetProcAddress(kernel, "GetModuleHandleExA"))
                                               : nullptr;
    if (getModuleHandleEx != nullptr) {
        if (!getModuleHandleEx(0, name, &module)) module = nullptr;
    } else if (GetModuleHandleA(name) != nullptr) {
        module = LoadLibraryA(name);
    }

    if (module == nullptr) {
        auto path = std::make_unique<char[]>(kPathBufferSize);
        const bool logging = !(m_utilityLibraryDelayLoaded && !m_utilityLibraryLoaded);
        const CXString moduleName = ZorunUtilities::getModuleName(m_module);

        // Beside this library. A file name that does not fit the buffer skips this location.
        DWORD length = GetModuleFileNameA(m_module, path.get(), kPathBufferSize);
        if (length < kPathBufferSize) {
            char* separator = std::strrchr(path.get(), '/');
            char* backslash = std::strrchr(path.get(), '\\');
            if (backslash != nullptr && (separator == nullptr || backslash > separator)) {
                separator = backslash;
            }
            if (separator != nullptr) {
                separator[1] = '\0';
            } else {
                path[0] = '\0';
            }
            if (BoundedAppend(path.get(), kPathBufferSize, name)) {
                if (logging && !isUtilityLibrary) {
                    LogPerformanceMessage(ZorunUtilities::SafeFormatString(
                        L"@@@>> %s: Delay loading DLL: %S (%S)",
                        static_cast<const wchar_t*>(moduleName), name, path.get()));
                }
                module = LoadLibraryExA(path.get(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
            }
        }

        // In the printer driver directory's "3" subfolder.
        if (module == nullptr) {
            path[0] = '\0';
            DWORD needed = 0;
            if (GetPrinterDriverDirectoryA(nullptr, nullptr, 1,
                                           reinterpret_cast<LPBYTE>(path.get()), kPathBufferSize,
                                           &needed) &&
                BoundedAppend(path.get(), kPathBufferSize, "\\3\\") &&
                BoundedAppend(path.get(), kPathBufferSize, name)) {
                if (logging && !isUtilityLibrary) {
                    LogPerformanceMessage(
                        ZorunUtilities::SafeFormatString(L"Delay loading DLL: %S", path.get()));
                }
                module = LoadLibraryExA(path.get(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
            }
        }
    }

    if (module == nullptr) {
        if (!m_utilityLibraryDelayLoaded) {
            if (isUtilityLibrary) return nullptr;
            ThrowDelayLoadDllLoadFailureException(name);
        }
        if (m_utilityLibraryLoaded && !isUtilityLibrary)
            ThrowDelayLoadDllLoadFailureException(name);
        return nullptr;
    }
    Record(name, isUtilityLibrary);
    return module;
}

void DllDelayLoader::Record(const char* name, bool isUtilityLibrary) {
    std::lock_guard<std::mutex> guard(m_lock);
    bool known = false;
    for (const std::string& recorded : m_loadedLibraries) {
        if (recorded == name) {
            known = true;
            break;
        }
    }
    if (!known) m_loadedLibraries.emplace_back(name);
    if (isUtilityLibrary) m_utilityLibraryLoaded = true;
}

void DllDelayLoader::Release() {
    if (m_released) return;
    m_released = true;
    m_utilityLibraryLoaded = false;
    std::vector<std::string> names = GetLoadedLibraryNames();
    const CXString moduleName =
        m_utilityLibraryDelayLoaded ? CXString() : ZorunUtilities::getModuleName(m_module);
    for (const std::string& name : names) {
        if (__FUnloadDelayLoadedDLL2(name.c_str()) && !m_utilityLibraryDelayLoaded) {
            LogPerformanceMessage(ZorunUtilities::SafeFormatString(
                L"<<@@@ %s: Released Delay Loaded dll, %S", static_cast<const wchar_t*>(moduleName),
                name.c_str()));
        }
    }
}

std::vector<std::string> DllDelayLoader::GetLoadedLibraryNames() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_loadedLibraries;
}

extern "C" FARPROC WINAPI ZDliNotifyHook2(unsigned notification, PDelayLoadInfo info) {
    if (g_processLoaderGone.load()) return nullptr;
    return DllDelayLoader::GetProcessLoader().Notify(notification, info);
}

void InstallDllDelayLoaderHook() {
    static std::once_flag installed;
    std::call_once(installed, [] { __pfnDliNotifyHook2 = &ZDliNotifyHook2; });
}

void ThrowDelayLoadDllLoadFailureException(const char*) {
    THROW_DELAY_LOAD_FAILURE(L"ThrowDelayLoadDllLoadFailureException", "");
}
