// crt.h: the Microsoft C runtime functions filter code uses, with their Windows contracts, on the
// format engine of format.h (Windows format rules, see there).
//
// _vsnprintf / _snprintf (and the wide _vsnwprintf / _snwprintf), count in characters:
//   - output shorter than count: written with a terminating NUL; returns its length;
//   - output of exactly count characters: written without a NUL; returns count;
//   - longer output: the first count characters are written without a NUL; returns -1;
//   - buffer null and count 0: nothing is written; returns the length the output needs;
//   - format error, null format, or null buffer with count > 0: returns -1 (errno EINVAL) and,
//     when there is room, leaves an empty string in the buffer.
// _vscprintf / _vscwprintf return the length the output needs, or -1 on a format error.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/com/wintypes.h"

int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args);
int _snprintf(char* buffer, std::size_t count, const char* format, ...);
int _vsnwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, va_list args);
int _snwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, ...);
int _vscprintf(const char* format, va_list args);
int _vscwprintf(const wchar_t* format, va_list args);

// Decimal text to a number as the Microsoft runtime does it: leading white space, an optional
// sign, then digits up to the first non-digit; no digits gives 0. Out-of-range values saturate
// (INT_MAX/INT_MIN for _wtoi and _wtol, whose `long` is 32-bit as on Windows) with errno ERANGE.
// A null pointer gives 0 with errno EINVAL.
int _wtoi(const wchar_t* text);
LONG _wtol(const wchar_t* text);
LONGLONG _wtoi64(const wchar_t* text);
LONGLONG _atoi64(const char* text);

// Case-insensitive comparisons folding ASCII letters only (locale independent). A null pointer
// sorts before every string; two nulls are equal.
int _stricmp(const char* a, const char* b);
int _wcsicmp(const wchar_t* a, const wchar_t* b);
