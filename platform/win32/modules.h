// modules.h: module loading as kernel32 offers it (LoadLibraryA/ExA, GetModuleHandleA/W/ExA,
// GetModuleFileNameA, GetProcAddress, FreeLibrary), over dlopen/dladdr.
//
// A module handle (HMODULE) is, as on Windows, the address at which the module is mapped: the
// base address of the shared object or program (the place of its ELF header). Such a handle is
// never null for a loaded module and can be given to dladdr. A handle that is not the base of a
// loaded module is rejected with ERROR_MOD_NOT_FOUND; it is never dereferenced.
//
// Names: a name with a path separator ('/' or '\', both accepted, see shlwapi.h) is a file name;
// a bare name is looked up the way dlopen does (LD_LIBRARY_PATH, the run path, the system
// directories). GetModuleHandle compares a bare name, ignoring case, with the file names (the
// part after the last separator) of the loaded modules. "kernel32.dll" and "kernel32" name the
// module that holds these stand-ins, so GetProcAddress(GetModuleHandleW(L"kernel32.dll"),
// "GetModuleHandleExA") finds the function below, as it does on Windows.
//
// LOAD_WITH_ALTERED_SEARCH_PATH is accepted: the libraries a module needs are found through its
// own run path ($ORIGIN), which is what the flag achieves on Windows. Other flags and a non-null
// file handle give ERROR_INVALID_PARAMETER.
#pragma once

#include <string>

#include "platform/com/wintypes.h"

using FARPROC = void (*)();

inline constexpr DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 0x00000008;

inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_PIN = 0x00000001;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT = 0x00000002;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 0x00000004;

extern "C" {

// Loads the module (or adds a reference to it when already loaded). Null on failure with
// ERROR_MOD_NOT_FOUND (platform::GetLastModuleError tells why).
HMODULE WINAPI LoadLibraryA(LPCSTR fileName);
HMODULE WINAPI LoadLibraryW(LPCWSTR fileName);
HMODULE WINAPI LoadLibraryExA(LPCSTR fileName, HANDLE file, DWORD flags);

// The handle of an already loaded module, without adding a reference; null (the main program)
// gives the program's handle. Not loaded: null with ERROR_MOD_NOT_FOUND.
HMODULE WINAPI GetModuleHandleA(LPCSTR moduleName);
HMODULE WINAPI GetModuleHandleW(LPCWSTR moduleName);

// The same, adding a reference unless GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT is given (the
// caller then releases it with FreeLibrary); with GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS the
// name is an address inside the module; GET_MODULE_HANDLE_EX_FLAG_PIN keeps the module loaded
// until the process ends. FALSE with *module null on failure.
BOOL WINAPI GetModuleHandleExA(DWORD flags, LPCSTR moduleName, HMODULE* module);

// The full file name of the module (null: the program). The result is cut to size - 1
// characters and NUL-terminated when it does not fit: the return value is then `size` and the
// last error ERROR_INSUFFICIENT_BUFFER. Otherwise the length without the NUL. 0 on failure.
DWORD WINAPI GetModuleFileNameA(HMODULE module, LPSTR fileName, DWORD size);

// The address of an exported function or variable; null with ERROR_PROC_NOT_FOUND when there is
// none. Ordinals (values below 0x10000 in place of a name) are not supported.
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR procName);

// Releases one reference; the module is unloaded when none is left.
BOOL WINAPI FreeLibrary(HMODULE module);

}  // extern "C"

namespace platform {

// The loader's message for the calling thread's last failed load ("" when there was none).
std::string GetLastModuleError();

// Whether a module of that file name (compared as GetModuleHandleA does) is loaded now.
bool IsModuleLoaded(const char* moduleName);

}  // namespace platform
