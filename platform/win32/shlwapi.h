// shlwapi.h: PathFileExistsW and the one rule every file-name argument of the stand-ins follows:
// a backslash is a path separator, as it is on Windows, and is turned into '/' before the file
// system is asked (so "dir\Zorun\file.ini" names dir/Zorun/file.ini). Names are UTF-8 on disk.
#pragma once

#include <string>

#include "platform/com/wintypes.h"

// TRUE when a file or directory of that name exists. Null or empty: FALSE. A missing file sets
// ERROR_FILE_NOT_FOUND (ERROR_PATH_NOT_FOUND when a folder on the way is missing).
BOOL PathFileExistsW(LPCWSTR path);
BOOL PathFileExistsA(LPCSTR path);

namespace platform {

// The Linux file name of a Windows-style file name: UTF-8, backslashes turned into '/'.
std::string ToNativePath(const wchar_t* path);
std::string ToNativePath(const char* path);

}  // namespace platform
