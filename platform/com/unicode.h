// unicode.h: UTF-8 <-> wide (UTF-32 wchar_t) conversion used by every stand-in. Invalid input
// never fails: malformed UTF-8 sequences and lone surrogates become U+FFFD, as Windows' converters
// do without their strict flags. A UTF-16 surrogate pair found in a wide string (text built
// 16 bits at a time) is combined into one code point.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

std::wstring Utf8ToWide(std::string_view utf8);
std::string WideToUtf8(std::wstring_view wide);

// Strict checks, for callers that must reject rather than repair.
bool IsValidUtf8(std::string_view utf8);

// Appends the UTF-8 form of one code point (invalid ones as U+FFFD).
void AppendUtf8(std::string& out, char32_t codePoint);

}  // namespace platform
