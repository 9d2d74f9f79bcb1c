// formatters.cpp: the utility library's formatters on the platform format engine, with the
// per-thread "last format failed" flag.
#include <string>

#include "platform/com/unicode.h"
#include "platform/win32/format.h"
#include "support/utilities/zorunutilities.h"

namespace ZorunUtilities {
namespace {

thread_local bool t_lastFormatFailed = false;

}  // namespace

bool LastFormatFailed() {
    return t_lastFormatFailed;
}

CXString SafeFormatStringV(const wchar_t* format, va_list args) {
    try {
        std::wstring text;
        t_lastFormatFailed = !platform::FormatWideV(text, format, args);
        return t_lastFormatFailed ? CXString() : CXString(text);
    } catch (...) {
        t_lastFormatFailed = true;
        return CXString();
    }
}

CXString SafeFormatStringV(const char* format, va_list args) {
    try {
        std::string text;
        t_lastFormatFailed = !platform::FormatNarrowV(text, format, args);
        return t_lastFormatFailed ? CXString() : CXString(platform::Utf8ToWide(text));
    } catch (...) {
        t_lastFormatFailed = true;
        return CXString();
    }
}

CXString SafeFormatString(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    CXString result = SafeFormatStringV(format, args);
    va_end(args);
    return result;
}

CXString SafeFormatString(const char* format, ...) {
    va_list args;
    va_start(args, format);
    CXString result = SafeFormatStringV(format, args);
    va_end(args);
    return result;
}

CXString formatStringV(const char* format, va_list args) {
    try {
        std::string text;
        bool ok = platform::FormatNarrowV(text, format, args);
        t_lastFormatFailed = !ok;
        if (!ok) return CXString(format);
        return CXString(platform::Utf8ToWide(text));
    } catch (...) {
        t_lastFormatFailed = true;
        return CXString();
    }
}

CXString formatString(const char* format, ...) {
    va_list args;
    va_start(args, format);
    CXString result = formatStringV(format, args);
    va_end(args);
    return result;
}

}  // namespace ZorunUtilities
