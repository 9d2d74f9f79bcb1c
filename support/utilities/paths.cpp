// paths.cpp: file and module name helpers.
#include <dlfcn.h>
#include <unistd.h>

#include "support/utilities/zorunutilities.h"

namespace ZorunUtilities {

CXString getFileNameFromFullPath(const CXString& path) {
    int slash = path.ReverseFind(L'/');
    int backslash = path.ReverseFind(L'\\');
    int last = slash > backslash ? slash : backslash;
    return path.Mid(last + 1);
}

// A module handle is, as on Windows, the address the module is loaded at; any address inside
// the module names it as well.
CXString getModuleName(HINSTANCE module) {
    if (module == nullptr) {
        char path[4096];
        ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
        if (length <= 0) return CXString();
        path[length] = '\0';
        return getFileNameFromFullPath(CXString(path));
    }
    Dl_info info{};
    if (dladdr(module, &info) == 0 || info.dli_fname == nullptr) return CXString();
    return getFileNameFromFullPath(CXString(info.dli_fname));
}

}  // namespace ZorunUtilities
