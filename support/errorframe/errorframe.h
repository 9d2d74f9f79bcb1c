// errorframe.h: the error frame every fallible operation of the filter library throws through,
// and the library's free debug functions.
//
// Usage, in a method of the library:
//
//     HRESULT PrintSchemaXmlDocument::QueryNode(BSTR query, IXMLDOMNode** node) {
//         if (node == nullptr) THROW_COM(E_POINTER, L"PrintSchemaXmlDocument::QueryNode", "");
//         HRESULT hr = m_document->selectSingleNode(query, node);
//         THROW_COM_IF_FAILED(hr, L"PrintSchemaXmlDocument::QueryNode", "query %S", query);
//         return hr;
//     }
//
// THROW_COM(hr, function, format, ...)            throws a ZorunComException carrying hr
// THROW_COM_IF_FAILED(hr, function, format, ...)  the same, only when FAILED(hr)
// THROW_COM_IF_NULL(pointer, function, format, ...)  E_POINTER when the pointer is null
// THROW_NULL_POINTER(function, format, ...)       throws ExceptionInvalidArgumentNullPointer
// THROW_DELAY_LOAD_FAILURE(function, format, ...) throws ExceptionDelayLoadDllLoadFailure
// RETURN_IF_FAILED(hr)                            returns hr from the enclosing function when
//                                                 FAILED(hr) (for code that returns HRESULTs)
// `function` is the wide qualified method name (L"Class::Method"); the macros add the wide
// source file and the line. `format` is a narrow printf-style format with Windows rules (in a
// narrow format %S is a wide string); pass "" for no message. Objects such as CXString must be
// passed as pointers ((const wchar_t*)text), never by value, through the `...`.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "platform/com/wintypes.h"
#include "platform/win32/gdiplus.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/exceptions.h"

// The debug-message category of exception messages, and the extra bit of the exception-debug
// check.
inline constexpr std::uint64_t kThrowDebugMessageCategory = 0x400000;
inline constexpr std::uint64_t kExceptionDebugCategory = 0x1;

// The message used when the message's format or arguments cannot be formatted.
inline constexpr const char kUnformattableMessageText[] =
    "A message argument was supplied, but the resulting string is empty. The argument list for "
    "this message causes a crash. Some code that executes to marshal the arguments to pass to the "
    "format string method causes a crash (e.g., a NULL pointer indirection). Look at the message "
    "arguments at the file and line number indicated above.";

// This library's own debug-message category mask. It starts as zero; the library never changes
// it (a host may, to route the library's messages).
DebugMessageCategories& ModuleDebugMessageCategories();

// The throw sequence: format the message, log "*Throwing* ZorunComException: <message>" when the
// debug-message manager wants it, offer the debugger a break, then throw by value. The HRESULT
// is carried as given: callers pass failure codes, with one deliberate exception (a Print Schema
// document whose root is not the expected element is rejected with S_FALSE).
[[noreturn]] void ThrowComException(HRESULT hr, const wchar_t* file, int line,
                                    const wchar_t* function, const char* format, ...);
[[noreturn]] void ThrowComExceptionV(HRESULT hr, const wchar_t* file, int line,
                                     const wchar_t* function, const char* format, va_list args);
// The same sequence for ExceptionInvalidArgumentNullPointer and
// ExceptionDelayLoadDllLoadFailure (which carry no HRESULT).
[[noreturn]] void ThrowInvalidArgumentNullPointer(const wchar_t* file, int line,
                                                  const wchar_t* function, const char* format, ...);
[[noreturn]] void ThrowDelayLoadDllLoadFailure(const wchar_t* file, int line,
                                               const wchar_t* function, const char* format, ...);

// Formats into at most 32,768 characters and sends the text to OutputDebugStringA; longer text
// is truncated, not dropped. Returns 1 when the text fitted (0..32,768 characters), else 0; a
// null format gives 0 and no output.
int DbgPrint(const char* format, ...);

// Formats into a buffer of bufferChars characters and sends it to OutputDebugStringA. Returns 1
// on success, 0 on failure: null format or bufferChars 0 (no output); bufferChars + 1 above
// 0x7FFFFFFF (an empty message is sent); text longer than bufferChars or a format error (the
// truncated text is sent). Text of exactly bufferChars characters succeeds.
int RealDebugMessage(unsigned long bufferChars, const char* format, va_list argList);

// The thread's last error as an HRESULT: 0 and negative values unchanged, others
// 0x80070000 | (error & 0xFFFF).
HRESULT GetLastErrorAsHResult();

// A GDI+ status as an HRESULT (Win32Error reads the thread's last error).
HRESULT GetGDIStatusErrorAsHResult(Gdiplus::Status status);

#define FU_ERRORFRAME_WIDEN2(text) L##text
#define FU_ERRORFRAME_WIDEN(text) FU_ERRORFRAME_WIDEN2(text)
// The wide path of the current source file.
#define FU_WFILE FU_ERRORFRAME_WIDEN(__FILE__)

#define THROW_COM(hr, function, ...) \
    ::ThrowComException((hr), FU_WFILE, __LINE__, (function), __VA_ARGS__)

#define THROW_COM_IF_FAILED(hr, function, ...)                                          \
    do {                                                                                \
        const HRESULT fuErrorFrameHr_ = (hr);                                           \
        if (FAILED(fuErrorFrameHr_)) THROW_COM(fuErrorFrameHr_, function, __VA_ARGS__); \
    } while (false)

#define THROW_COM_IF_NULL(pointer, function, ...)                              \
    do {                                                                       \
        if ((pointer) == nullptr) THROW_COM(E_POINTER, function, __VA_ARGS__); \
    } while (false)

#define THROW_NULL_POINTER(function, ...) \
    ::ThrowInvalidArgumentNullPointer(FU_WFILE, __LINE__, (function), __VA_ARGS__)

#define THROW_DELAY_LOAD_FAILURE(function, ...) \
    ::ThrowDelayLoadDllLoadFailure(FU_WFILE, __LINE__, (function), __VA_ARGS__)

#ifndef RETURN_IF_FAILED
#define RETURN_IF_FAILED(hr)                                 \
    do {                                                     \
        const HRESULT fuErrorFrameHr_ = (hr);                \
        if (FAILED(fuErrorFrameHr_)) return fuErrorFrameHr_; \
    } while (false)
#endif
