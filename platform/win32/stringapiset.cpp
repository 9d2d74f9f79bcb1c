// stringapiset.cpp: Windows' code page converters over the UTF-8 helpers of platform/com.
#include "platform/win32/stringapiset.h"

#include <cstring>
#include <string>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"

namespace {

bool IsUtf8CodePage(UINT codePage) {
    return codePage == CP_ACP || codePage == CP_OEMCP || codePage == CP_THREAD_ACP ||
           codePage == CP_UTF8;
}

int Fail(DWORD error) {
    SetLastError(error);
    return 0;
}

// True when the wide text holds only valid code points (surrogates only as proper pairs).
bool IsValidWide(std::wstring_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
        if (c > 0x10FFFF) return false;
        if (c >= 0xDC00 && c <= 0xDFFF) return false;
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= text.size()) return false;
            auto low = static_cast<char32_t>(text[i + 1]);
            if (low < 0xDC00 || low > 0xDFFF) return false;
            ++i;
        }
    }
    return true;
}

template <class C>
int Deliver(const std::basic_string<C>& result, C* out, int outSize) {
    if (result.size() > static_cast<std::size_t>(INT32_MAX)) return Fail(ERROR_INSUFFICIENT_BUFFER);
    int needed = static_cast<int>(result.size());
    if (outSize == 0) return needed;
    if (needed > outSize) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(out, result.data(), result.size() * sizeof(C));
    return needed;
}

}  // namespace

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR out,
                        int outBytes, LPCSTR defaultChar, BOOL* usedDefaultChar) {
    if (!IsUtf8CodePage(codePage)) return Fail(ERROR_INVALID_PARAMETER);
    if (wide == nullptr || wideCount == 0 || wideCount < -1 || outBytes < 0 ||
        (out == nullptr && outBytes != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (defaultChar != nullptr || usedDefaultChar != nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if ((flags & ~WC_ERR_INVALID_CHARS) != 0) return Fail(ERROR_INVALID_FLAGS);
    std::size_t length =
        wideCount == -1 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(wideCount);
    std::wstring_view input(wide, length);
    if ((flags & WC_ERR_INVALID_CHARS) != 0 && !IsValidWide(input)) {
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    }
    return Deliver(platform::WideToUtf8(input), out, outBytes);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int byteCount, LPWSTR out,
                        int outChars) {
    if (!IsUtf8CodePage(codePage)) return Fail(ERROR_INVALID_PARAMETER);
    if (text == nullptr || byteCount == 0 || byteCount < -1 || outChars < 0 ||
        (out == nullptr && outChars != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if ((flags & ~MB_ERR_INVALID_CHARS) != 0) return Fail(ERROR_INVALID_FLAGS);
    std::size_t length =
        byteCount == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(byteCount);
    std::string_view input(text, length);
    if ((flags & MB_ERR_INVALID_CHARS) != 0 && !platform::IsValidUtf8(input)) {
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    }
    return Deliver(platform::Utf8ToWide(input), out, outChars);
}

UINT GetACP() {
    return CP_UTF8;
}
