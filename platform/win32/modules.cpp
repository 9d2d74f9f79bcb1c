// modules.cpp: the kernel32 module-loading stand-ins over dlopen, dladdr and dl_iterate_phdr.
// A module handle is the module's base address (see modules.h); every call maps it back to a
// dlopen handle by asking dladdr, so a handle that is not a loaded module is rejected, not used.

#include "platform/win32/modules.h"

#include <dlfcn.h>
#include <link.h>
#include <strings.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"
#include "platform/win32/shlwapi.h"

namespace {

thread_local std::string t_lastModuleError;

struct LoadedModule {
    HMODULE base = nullptr;
    std::string path;  // as the loader knows it; the program's own file name for the program
    bool isProgram = false;
};

std::string ProgramPath() {
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return std::string();
    return std::string(path, static_cast<std::size_t>(length));
}

int CollectModule(dl_phdr_info* info, std::size_t, void* context) {
    auto* modules = static_cast<std::vector<LoadedModule>*>(context);
    const void* firstSegment = nullptr;
    for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
        if (info->dlpi_phdr[i].p_type == PT_LOAD) {
            firstSegment =
                reinterpret_cast<const void*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
            break;
        }
    }
    Dl_info where{};
    if (firstSegment == nullptr || dladdr(firstSegment, &where) == 0) return 0;
    LoadedModule module;
    module.base = where.dli_fbase;
    module.isProgram = modules->empty();  // the loader reports the program first
    module.path =
        module.isProgram ? ProgramPath() : std::string(info->dlpi_name ? info->dlpi_name : "");
    if (!module.isProgram && module.path.empty()) return 0;
    modules->push_back(std::move(module));
    return 0;
}

std::vector<LoadedModule> LoadedModules() {
    std::vector<LoadedModule> modules;
    dl_iterate_phdr(&CollectModule, &modules);
    return modules;
}

// The loaded module whose base address is `handle`.
bool FindModule(HMODULE handle, LoadedModule& found) {
    if (handle == nullptr) return false;
    Dl_info where{};
    if (dladdr(handle, &where) == 0 || where.dli_fbase != handle) return false;
    for (LoadedModule& module : LoadedModules()) {
        if (module.base == handle) {
            found = std::move(module);
            return true;
        }
    }
    return false;
}

// A dlopen handle holding one more reference to the module (release with dlclose).
void* OpenLoaded(const LoadedModule& module, int extraFlags = 0) {
    if (module.isProgram) return dlopen(nullptr, RTLD_LAZY);
    return dlopen(module.path.c_str(), RTLD_LAZY | RTLD_NOLOAD | extraFlags);
}

std::string FileNamePart(const std::string& path) {
    std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool IsKernel32(const char* name) {
    return strcasecmp(name, "kernel32.dll") == 0 || strcasecmp(name, "kernel32") == 0;
}

HMODULE BaseOfAddress(const void* address) {
    Dl_info where{};
    if (dladdr(address, &where) == 0) return nullptr;
    return where.dli_fbase;
}

bool FindModuleByName(const char* name, LoadedModule& found) {
    if (IsKernel32(name)) {
        return FindModule(BaseOfAddress(reinterpret_cast<const void*>(&GetModuleHandleA)), found);
    }
    std::string wanted = platform::ToNativePath(name);
    bool byPath = wanted.find('/') != std::string::npos;
    for (LoadedModule& module : LoadedModules()) {
        bool same = byPath ? module.path == wanted
                           : strcasecmp(FileNamePart(module.path).c_str(), wanted.c_str()) == 0;
        if (same) {
            found = std::move(module);
            return true;
        }
    }
    return false;
}

HMODULE Fail(DWORD error, std::string message) {
    t_lastModuleError = std::move(message);
    SetLastError(error);
    return nullptr;
}

}  // namespace

extern "C" {

HMODULE WINAPI LoadLibraryExA(LPCSTR fileName, HANDLE file, DWORD flags) {
    if (fileName == nullptr || *fileName == '\0' || file != nullptr ||
        (flags & ~LOAD_WITH_ALTERED_SEARCH_PATH) != 0) {
        return Fail(ERROR_INVALID_PARAMETER, "LoadLibraryExA: invalid argument");
    }
    std::string native = platform::ToNativePath(fileName);
    void* handle = dlopen(native.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        return Fail(ERROR_MOD_NOT_FOUND, why != nullptr ? why : native);
    }
    link_map* map = nullptr;
    HMODULE base = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr) {
        base = BaseOfAddress(map->l_ld);
    }
    if (base == nullptr) {
        dlclose(handle);
        return Fail(ERROR_MOD_NOT_FOUND, "LoadLibraryExA: loaded module has no base address");
    }
    t_lastModuleError.clear();
    return base;  // the dlopen reference stays: it is the one FreeLibrary releases
}

HMODULE WINAPI LoadLibraryA(LPCSTR fileName) {
    return LoadLibraryExA(fileName, nullptr, 0);
}

HMODULE WINAPI LoadLibraryW(LPCWSTR fileName) {
    if (fileName == nullptr) return Fail(ERROR_INVALID_PARAMETER, "LoadLibraryW: null name");
    std::string narrow = platform::WideToUtf8(fileName);
    return LoadLibraryExA(narrow.c_str(), nullptr, 0);
}

HMODULE WINAPI GetModuleHandleA(LPCSTR moduleName) {
    HMODULE module = nullptr;
    return GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, moduleName, &module)
               ? module
               : nullptr;
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR moduleName) {
    if (moduleName == nullptr) return GetModuleHandleA(nullptr);
    std::string narrow = platform::WideToUtf8(moduleName);
    return GetModuleHandleA(narrow.c_str());
}

BOOL WINAPI GetModuleHandleExA(DWORD flags, LPCSTR moduleName, HMODULE* module) {
    if (module == nullptr) {
        Fail(ERROR_INVALID_PARAMETER, "GetModuleHandleExA: null result pointer");
        return FALSE;
    }
    *module = nullptr;
    constexpr DWORD known = GET_MODULE_HANDLE_EX_FLAG_PIN |
                            GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT |
                            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
    if ((flags & ~known) != 0 || ((flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0 &&
                                  (flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) != 0)) {
        Fail(ERROR_INVALID_PARAMETER, "GetModuleHandleExA: invalid flags");
        return FALSE;
    }
    LoadedModule found;
    bool ok = false;
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) != 0) {
        ok = moduleName != nullptr && FindModule(BaseOfAddress(moduleName), found);
    } else if (moduleName == nullptr) {
        std::vector<LoadedModule> modules = LoadedModules();
        ok = !modules.empty();
        if (ok) found = modules.front();
    } else {
        ok = FindModuleByName(moduleName, found);
    }
    if (!ok) {
        Fail(ERROR_MOD_NOT_FOUND, "GetModuleHandleExA: module not loaded");
        return FALSE;
    }
    if (!found.isProgram && (flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) == 0) {
        // The reference this call adds: the dlopen handle is deliberately kept open.
        int pin = (flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0 ? RTLD_NODELETE : 0;
        if (OpenLoaded(found, pin) == nullptr) {
            Fail(ERROR_MOD_NOT_FOUND, "GetModuleHandleExA: module was unloaded");
            return FALSE;
        }
    }
    *module = found.base;
    return TRUE;
}

DWORD WINAPI GetModuleFileNameA(HMODULE module, LPSTR fileName, DWORD size) {
    if (fileName == nullptr || size == 0) {
        Fail(ERROR_INSUFFICIENT_BUFFER, "GetModuleFileNameA: no buffer");
        return 0;
    }
    LoadedModule found;
    bool ok = false;
    if (module == nullptr) {
        std::vector<LoadedModule> modules = LoadedModules();
        ok = !modules.empty();
        if (ok) found = modules.front();
    } else {
        ok = FindModule(module, found);
    }
    if (!ok) {
        fileName[0] = '\0';
        Fail(ERROR_MOD_NOT_FOUND, "GetModuleFileNameA: not a loaded module");
        return 0;
    }
    const std::string& path = found.path;
    if (path.size() >= size) {
        std::memcpy(fileName, path.data(), size - 1);
        fileName[size - 1] = '\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    std::memcpy(fileName, path.c_str(), path.size() + 1);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(path.size());
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR procName) {
    if (procName == nullptr || reinterpret_cast<std::uintptr_t>(procName) < 0x10000) {
        Fail(ERROR_PROC_NOT_FOUND, "GetProcAddress: ordinals are not supported");
        return nullptr;
    }
    LoadedModule found;
    if (!FindModule(module, found)) {
        Fail(ERROR_MOD_NOT_FOUND, "GetProcAddress: not a loaded module");
        return nullptr;
    }
    void* handle = OpenLoaded(found);
    if (handle == nullptr) {
        Fail(ERROR_MOD_NOT_FOUND, "GetProcAddress: module was unloaded");
        return nullptr;
    }
    dlerror();
    void* symbol = dlsym(handle, procName);
    dlclose(handle);
    if (symbol == nullptr) {
        Fail(ERROR_PROC_NOT_FOUND, std::string("GetProcAddress: no export ") + procName);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

BOOL WINAPI FreeLibrary(HMODULE module) {
    LoadedModule found;
    if (!FindModule(module, found)) {
        Fail(ERROR_MOD_NOT_FOUND, "FreeLibrary: not a loaded module");
        return FALSE;
    }
    if (found.isProgram) return TRUE;
    void* handle = OpenLoaded(found);
    if (handle == nullptr) {
        Fail(ERROR_MOD_NOT_FOUND, "FreeLibrary: module was unloaded");
        return FALSE;
    }
    dlclose(handle);  // the reference just taken
    dlclose(handle);  // the reference being released
    return TRUE;
}

}  // extern "C"

namespace platform {

std::string GetLastModuleError() {
    return t_lastModuleError;
}

bool IsModuleLoaded(const char* moduleName) {
    LoadedModule found;
    return moduleName != nullptr && FindModuleByName(moduleName, found);
}

}  // namespace platform
