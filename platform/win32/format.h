// format.h: the one printf-style format engine behind every formatter of the project
// (_vsnprintf and friends, CXString::Format, the ZorunUtilities formatters). It follows the
// Windows C runtime's rules, not the C library's:
//   - in a narrow format %s and %c take narrow text, %S and %C wide text; in a wide format %s and
//     %c take wide text, %S and %C narrow text; h (%hs, %hc) always means narrow and l or w
//     (%ls, %ws, %lc, %wc) always wide;
//   - a null string pointer prints "(null)";
//   - integer sizes: hh 8-bit, h 16-bit, none and l and w 32-bit (Windows `long`), I32 32-bit,
//     ll, L and I64 64-bit, I, z, t and j pointer-sized (64-bit);
//   - %p prints the pointer as 16 upper-case hexadecimal digits.
// Narrow output is UTF-8 (the ANSI code page), wide output one wchar_t per code point. Text
// conversions never depend on the C locale; numbers are formatted in the "C" locale.
// A format error — an unknown conversion, %n, positional arguments, a size prefix that does not
// fit the conversion, a width or precision above kMaxFormatWidth, a lone % at the end — stops
// formatting: the engine returns false and the output holds the text produced before the error.
#pragma once

#include <cstdarg>
#include <string>

namespace platform {

inline constexpr int kMaxFormatWidth = 1 << 20;

bool FormatNarrowV(std::string& out, const char* format, va_list args);
bool FormatWideV(std::wstring& out, const wchar_t* format, va_list args);

bool FormatNarrow(std::string& out, const char* format, ...);
bool FormatWide(std::wstring& out, const wchar_t* format, ...);

}  // namespace platform
