// crt.cpp: the Microsoft runtime's bounded formatters and text-to-number functions.
#include "platform/win32/crt.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "platform/win32/format.h"

namespace {

template <class C>
int CopyOut(C* buffer, std::size_t count, bool ok, const std::basic_string<C>& text) {
    if (!ok || (buffer == nullptr && count != 0)) {
        if (buffer != nullptr && count > 0) buffer[0] = 0;
        errno = EINVAL;
        return -1;
    }
    if (text.size() > static_cast<std::size_t>(INT_MAX)) {
        if (count > 0) buffer[0] = 0;
        errno = ERANGE;
        return -1;
    }
    int length = static_cast<int>(text.size());
    if (buffer == nullptr) return length;  // count is 0: the size query
    std::size_t copied = text.size() < count ? text.size() : count;
    std::memcpy(buffer, text.data(), copied * sizeof(C));
    if (text.size() < count) {
        buffer[text.size()] = 0;
        return length;
    }
    return text.size() == count ? length : -1;
}

template <class C>
LONGLONG ParseDecimal(const C* text, LONGLONG min, LONGLONG max) {
    if (text == nullptr) {
        errno = EINVAL;
        return 0;
    }
    const C* p = text;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    // Accumulate as a negative number so that the minimum is representable.
    LONGLONG value = 0;
    bool overflow = false;
    for (; *p >= '0' && *p <= '9'; ++p) {
        int digit = static_cast<int>(*p - '0');
        if (value < (LLONG_MIN + digit) / 10) {
            overflow = true;
            continue;
        }
        value = value * 10 - digit;
    }
    if (!negative) {
        if (overflow || value < -max) {
            errno = ERANGE;
            return max;
        }
        return -value;
    }
    if (overflow || value < min) {
        errno = ERANGE;
        return min;
    }
    return value;
}

template <class C>
int CompareNoCase(const C* a, const C* b) {
    if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
    auto fold = [](C c) -> unsigned long {
        unsigned long u = static_cast<unsigned long>(static_cast<std::make_unsigned_t<C>>(c));
        return (u >= 'A' && u <= 'Z') ? u + ('a' - 'A') : u;
    };
    for (;; ++a, ++b) {
        unsigned long x = fold(*a);
        unsigned long y = fold(*b);
        if (x != y) return x < y ? -1 : 1;
        if (x == 0) return 0;
    }
}

}  // namespace

int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args) {
    std::string text;
    bool ok = platform::FormatNarrowV(text, format, args);
    return CopyOut(buffer, count, ok, text);
}

int _snprintf(char* buffer, std::size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = _vsnprintf(buffer, count, format, args);
    va_end(args);
    return result;
}

int _vsnwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, va_list args) {
    std::wstring text;
    bool ok = platform::FormatWideV(text, format, args);
    return CopyOut(buffer, count, ok, text);
}

int _snwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    int result = _vsnwprintf(buffer, count, format, args);
    va_end(args);
    return result;
}

int _vscprintf(const char* format, va_list args) {
    return _vsnprintf(nullptr, 0, format, args);
}

int _vscwprintf(const wchar_t* format, va_list args) {
    return _vsnwprintf(nullptr, 0, format, args);
}

int _wtoi(const wchar_t* text) {
    return static_cast<int>(ParseDecimal(text, INT_MIN, INT_MAX));
}
LONG _wtol(const wchar_t* text) {
    return static_cast<LONG>(ParseDecimal(text, INT_MIN, INT_MAX));
}
LONGLONG _wtoi64(const wchar_t* text) {
    return ParseDecimal(text, LLONG_MIN, LLONG_MAX);
}
LONGLONG _atoi64(const char* text) {
    return ParseDecimal(text, LLONG_MIN, LLONG_MAX);
}

int _stricmp(const char* a, const char* b) {
    return CompareNoCase(a, b);
}
int _wcsicmp(const wchar_t* a, const wchar_t* b) {
    return CompareNoCase(a, b);
}
