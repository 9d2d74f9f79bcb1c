// zorunutilities.h: the free functions of the utility library: the formatters (Windows format
// rules, see platform/win32/format.h), base64, and file/module name helpers.
//
// How a formatter reports failure without throwing: every formatter call sets a per-thread flag
// that LastFormatFailed() reads back — false after a call that formatted, true after one that
// met a format error, a null format or an allocation failure. On failure SafeFormatString returns
// an empty string, formatString returns the format text itself (so a diagnostic line still says
// something). Neither ever throws.
#pragma once

#include <cstdarg>

#include "platform/com/wintypes.h"
#include "support/utilities/cxstring.h"

namespace ZorunUtilities {

CXString SafeFormatString(const wchar_t* format, ...);
CXString SafeFormatString(const char* format, ...);
CXString SafeFormatStringV(const wchar_t* format, va_list args);
CXString SafeFormatStringV(const char* format, va_list args);

CXString formatString(const char* format, ...);
CXString formatStringV(const char* format, va_list args);

// True when the calling thread's last formatter call failed.
bool LastFormatFailed();

// Base64, standard alphabet (RFC 4648) with '=' padding.
// Flags: ATL_BASE64_FLAG_NOPAD (1) leaves out the padding; ATL_BASE64_FLAG_NOCRLF (2) writes
// one unbroken line. Without flag 2, a line break (CR LF) follows every 76 characters of output
// (none after the last line).
inline constexpr unsigned long ATL_BASE64_FLAG_NONE = 0;
inline constexpr unsigned long ATL_BASE64_FLAG_NOPAD = 1;
inline constexpr unsigned long ATL_BASE64_FLAG_NOCRLF = 2;

// Characters the encoding of byteCount bytes needs (0 for a negative count).
int Base64EncodeGetRequiredLength(int byteCount, unsigned long flags);
// Encodes into `out`; *outLength is the capacity on entry and the characters written on return
// (no NUL is added). Returns nonzero on success; 0 when an argument is null or negative or the
// capacity is too small (then *outLength is the capacity needed).
int Base64Encode(const unsigned char* data, int byteCount, wchar_t* out, int* outLength,
                 unsigned long flags);
// Upper bound of the bytes `charCount` characters decode to.
int Base64DecodeGetRequiredLength(int charCount);
// Decodes `charCount` characters (white space is skipped; padding optional). *outLength is the
// capacity on entry and the bytes written on return. Returns 0 — never crashing — for text that
// is not base64 (a character outside the alphabet, data after padding, a dangling single
// character), for null or negative arguments, and when the capacity is too small.
int Base64Decode(const wchar_t* text, int charCount, unsigned char* out, int* outLength);

// The part after the last '\' or '/' (the whole path when there is none).
CXString getFileNameFromFullPath(const CXString& path);

// The file name (without directory) of the loaded module (shared object or program) that
// `module` is a handle of or an address inside; null means the main program. "" when unknown.
CXString getModuleName(HINSTANCE module);

}  // namespace ZorunUtilities
