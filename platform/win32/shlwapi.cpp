// shlwapi.cpp: file existence checks and the Windows-to-Linux file name rule.
#include "platform/win32/shlwapi.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"

namespace platform {

std::string ToNativePath(const char* path) {
    std::string native = path != nullptr ? path : "";
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

std::string ToNativePath(const wchar_t* path) {
    return path != nullptr ? ToNativePath(WideToUtf8(path).c_str()) : std::string();
}

}  // namespace platform

BOOL PathFileExistsA(LPCSTR path) {
    if (path == nullptr || *path == '\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    struct stat info {};
    if (stat(platform::ToNativePath(path).c_str(), &info) == 0) return TRUE;
    SetLastError(errno == ENOENT    ? ERROR_FILE_NOT_FOUND
                 : errno == ENOTDIR ? ERROR_PATH_NOT_FOUND
                 : errno == EACCES  ? ERROR_ACCESS_DENIED
                                    : ERROR_FILE_NOT_FOUND);
    return FALSE;
}

BOOL PathFileExistsW(LPCWSTR path) {
    if (path == nullptr || *path == L'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return PathFileExistsA(platform::ToNativePath(path).c_str());
}
