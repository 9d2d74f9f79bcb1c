// profile.h: reading INI files the way GetPrivateProfileStringW does, for files stored as UTF-8
// (with or without a byte-order mark; UTF-16 files with a byte-order mark are read too), with
// LF or CRLF line ends. Malformed UTF-8 is repaired (U+FFFD), never rejected.
//
// File syntax: "[section]" lines open a section; "key=value" lines inside one give values; white
// space around section names, keys and values is ignored; a value wholly enclosed in matching
// single or double quotes loses them; lines starting with ';' or '#', and other lines without
// '=', are ignored. Section and key names compare without regard to ASCII case; the first
// section and key of a name win. The file name follows platform::ToNativePath ('\' separates).
// Files above 64 MiB are treated as missing.
//
// Parsed files are cached by path, as Windows caches INI files: each call stats the file and
// reuses the parsed copy while device, inode, size and modification and status-change times are
// unchanged, so repeated reads of an unchanged file cost one stat. A file that changed less than
// a tick of the file system's clock before it was read (100 ms; 2 s where times are whole
// seconds) is read again on every call until it has settled, so that a second change within the
// same tick is not missed. Up to 16 files of at most 1 MiB are kept. Thread-safe.
//
// GetPrivateProfileStringW(section, key, default, out, size, file) — the Windows contract:
//   - section and key given: the value, or the default (null: "") with trailing blanks removed
//     when the key, section or file is missing. Truncated to size - 1 characters if need be;
//     always NUL-terminated; returns the characters copied (size - 1 when truncated).
//   - key null: the section's key names; section null: all section names. Each name is followed
//     by a NUL and the list by a second NUL; returns the characters copied without the final NUL.
//     When the list does not fit, the last name is cut short, followed by two NULs, and the
//     return value is size - 2.
//   - out null or size 0: returns 0 and writes nothing.
#pragma once

#include <cstdint>

#include "platform/com/wintypes.h"

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR out,
                               DWORD size, LPCWSTR fileName);

// The key's value read as a decimal integer (leading digits; none gives 0; negative gives 0),
// or `defaultValue` when the key is missing.
UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName);

namespace platform {

// How many times an INI file has been read from disk and parsed by this process (a cached file
// is not counted again): diagnostics, and how tests see the cache at work.
std::uint64_t ProfileFilesParsed();

}  // namespace platform
