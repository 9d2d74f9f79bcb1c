// stringapiset.h: WideCharToMultiByte and MultiByteToWideChar for the code pages filter code
// uses. CP_ACP, CP_OEMCP and CP_THREAD_ACP are UTF-8 on this platform, like CP_UTF8; any other
// code page fails with ERROR_INVALID_PARAMETER. Wide text is one wchar_t per code point (32-bit
// wchar_t); a UTF-16 surrogate pair met in wide input is combined into one code point.
//
// Contracts as on Windows:
//   - count -1: the input is NUL-terminated and the NUL is converted and counted;
//   - a null input pointer, count 0 or below -1, a negative output size, or a null output with a
//     non-zero size: 0 with ERROR_INVALID_PARAMETER;
//   - output size 0: nothing written, returns the size the output needs;
//   - output too small: 0 with ERROR_INSUFFICIENT_BUFFER (the buffer content is unspecified);
//   - invalid input (malformed UTF-8, lone surrogates, values above U+10FFFF) becomes U+FFFD,
//     unless MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS is given: then 0 with
//     ERROR_NO_UNICODE_TRANSLATION;
//   - for UTF-8 the default-character arguments of WideCharToMultiByte must be null, and flags
//     other than the two "invalid chars" flags fail with ERROR_INVALID_FLAGS.
#pragma once

#include "platform/com/wintypes.h"

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_OEMCP = 1;
inline constexpr UINT CP_THREAD_ACP = 3;
inline constexpr UINT CP_UTF8 = 65001;

inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;
inline constexpr DWORD WC_ERR_INVALID_CHARS = 0x00000080;
inline constexpr DWORD ERROR_INVALID_FLAGS = 1004;

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR out,
                        int outBytes, LPCSTR defaultChar, BOOL* usedDefaultChar);
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int byteCount, LPWSTR out,
                        int outChars);

// The ANSI code page: 65001 (UTF-8) on this platform.
UINT GetACP();
