// debugprint.cpp: the library's free debug-print functions and HRESULT converters.
#include <memory>

#include "platform/win32/crt.h"
#include "platform/win32/debugoutput.h"
#include "platform/win32/kernel.h"
#include "support/errorframe/errorframe.h"

int DbgPrint(const char* format, ...) {
    if (format == nullptr) return 0;
    constexpr int kMaxCharacters = 32768;
    std::unique_ptr<char[]> buffer(new char[kMaxCharacters + 1]);
    va_list args;
    va_start(args, format);
    int length = _vsnprintf(buffer.get(), kMaxCharacters, format, args);
    va_end(args);
    if (length < 0 || length >= kMaxCharacters) buffer[kMaxCharacters] = '\0';
    OutputDebugStringA(buffer.get());
    return length >= 0 && length <= kMaxCharacters ? 1 : 0;
}

int RealDebugMessage(unsigned long bufferChars, const char* format, va_list argList) {
    if (format == nullptr || bufferChars == 0) return 0;
    // The size is 32-bit arithmetic: bufferChars + 1 must stay within 0x7FFFFFFF. A size that
    // does not is refused without allocating, and the (empty) unformatted buffer is sent.
    if (bufferChars >= 0x7FFFFFFFul) {
        OutputDebugStringA("");
        return 0;
    }
    HRESULT status = S_OK;
    std::unique_ptr<char[]> buffer(new char[bufferChars + 1]);
    int length = _vsnprintf(buffer.get(), bufferChars, format, argList);
    if (length < 0) {
        status = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
        buffer[bufferChars] = '\0';
    } else if (static_cast<unsigned long>(length) == bufferChars) {
        buffer[bufferChars] = '\0';
    }
    OutputDebugStringA(buffer.get());
    return SUCCEEDED(status) ? 1 : 0;
}

HRESULT GetLastErrorAsHResult() {
    DWORD error = GetLastError();
    if (static_cast<LONG>(error) <= 0) return static_cast<HRESULT>(error);
    return static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu));
}

HRESULT GetGDIStatusErrorAsHResult(Gdiplus::Status status) {
    switch (status) {
        case Gdiplus::Ok:
            return S_OK;
        case Gdiplus::GenericError:
            return E_FAIL;
        case Gdiplus::InvalidParameter:
            return E_INVALIDARG;
        case Gdiplus::OutOfMemory:
            return E_OUTOFMEMORY;
        case Gdiplus::ObjectBusy:
            return E_PENDING;
        case Gdiplus::InsufficientBuffer:
            return E_OUTOFMEMORY;
        case Gdiplus::NotImplemented:
            return E_NOTIMPL;
        case Gdiplus::Win32Error:
            return GetLastErrorAsHResult();
        case Gdiplus::FileNotFound:
            return static_cast<HRESULT>(0x80070002u);
        case Gdiplus::AccessDenied:
            return E_ACCESSDENIED;
        default:
            return E_FAIL;
    }
}
