// bstr.cpp: BSTR allocation with a 32-bit byte-length prefix in front of the characters.
#include "platform/com/bstr.h"

#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <limits>

namespace {

constexpr std::size_t kPrefix = sizeof(std::uint32_t);
constexpr UINT kMaxChars = (std::numeric_limits<std::uint32_t>::max() - 16) / sizeof(OLECHAR);

std::uint32_t* PrefixOf(BSTR text) {
    return reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(text) - kPrefix);
}

enum class Fill { kCopy, kZero, kNone };

BSTR AllocateBytes(const void* source, std::uint32_t byteLength, Fill fill) {
    // Room for the prefix, the bytes, and a full wide NUL, rounded up to whole characters.
    std::size_t total = kPrefix + byteLength + 2 * sizeof(OLECHAR);
    auto* block = static_cast<char*>(std::malloc(total));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &byteLength, kPrefix);
    char* chars = block + kPrefix;
    if (fill == Fill::kCopy) {
        std::memcpy(chars, source, byteLength);
    } else if (fill == Fill::kZero) {
        std::memset(chars, 0, byteLength);
    }
    std::memset(chars + byteLength, 0, 2 * sizeof(OLECHAR));
    return reinterpret_cast<BSTR>(chars);
}

wchar_t FoldCase(wchar_t c) {
    if (c < 0x80) return (c >= L'A' && c <= L'Z') ? c + 32 : c;
    return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text) {
    if (text == nullptr) return nullptr;
    return SysAllocStringLen(text, static_cast<UINT>(std::wcslen(text)));
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
    if (length > kMaxChars) return nullptr;
    return AllocateBytes(text, length * static_cast<std::uint32_t>(sizeof(OLECHAR)),
                         text != nullptr ? Fill::kCopy : Fill::kZero);
}

BSTR SysAllocStringByteLen(const char* bytes, UINT byteLength) {
    if (byteLength > kMaxChars * sizeof(OLECHAR)) return nullptr;
    return AllocateBytes(bytes, byteLength, bytes != nullptr ? Fill::kCopy : Fill::kZero);
}

INT SysReAllocString(BSTR* target, const OLECHAR* text) {
    if (target == nullptr) return FALSE;
    return SysReAllocStringLen(target, text, text ? static_cast<UINT>(std::wcslen(text)) : 0);
}

INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) {
    if (target == nullptr) return FALSE;
    BSTR fresh = SysAllocStringLen(text, length);  // text may alias *target: copy first
    if (fresh == nullptr) return FALSE;
    SysFreeString(*target);
    *target = fresh;
    return TRUE;
}

void SysFreeString(BSTR text) {
    if (text != nullptr) std::free(PrefixOf(text));
}

UINT SysStringByteLen(BSTR text) {
    return text == nullptr ? 0 : *PrefixOf(text);
}

UINT SysStringLen(BSTR text) {
    return SysStringByteLen(text) / sizeof(OLECHAR);
}

HRESULT VarBstrCmp(BSTR left, BSTR right, LCID /*locale*/, ULONG flags) {
    UINT leftLength = SysStringLen(left);
    UINT rightLength = SysStringLen(right);
    UINT common = leftLength < rightLength ? leftLength : rightLength;
    const bool ignoreCase = (flags & NORM_IGNORECASE) != 0;
    for (UINT i = 0; i < common; ++i) {
        wchar_t a = ignoreCase ? FoldCase(left[i]) : left[i];
        wchar_t b = ignoreCase ? FoldCase(right[i]) : right[i];
        if (a != b) return a < b ? VARCMP_LT : VARCMP_GT;
    }
    if (leftLength == rightLength) return VARCMP_EQ;
    return leftLength < rightLength ? VARCMP_LT : VARCMP_GT;
}

namespace platform {

BSTR AllocateBstrToFill(UINT length) {
    if (length > kMaxChars) return nullptr;
    return AllocateBytes(nullptr, length * static_cast<std::uint32_t>(sizeof(OLECHAR)),
                         Fill::kNone);
}

}  // namespace platform
