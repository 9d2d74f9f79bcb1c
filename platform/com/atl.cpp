// atl.cpp: the out-of-line CComBSTR members.
#include "platform/com/atl.h"

#include <cwctype>
#include <string>

#include "platform/com/unicode.h"

CComBSTR::CComBSTR(const char* text) : m_str(nullptr) {
    if (text == nullptr) return;
    std::wstring wide = platform::Utf8ToWide(text);
    m_str = ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    if (m_str == nullptr) AtlThrow(E_OUTOFMEMORY);
}

bool CComBSTR::operator==(const wchar_t* text) const noexcept {
    if (text == nullptr) return m_str == nullptr;
    if (m_str == nullptr) return false;
    std::size_t length = std::wcslen(text);
    return length == Length() && std::wmemcmp(m_str, text, length) == 0;
}

HRESULT CComBSTR::Append(const wchar_t* text, int length) noexcept {
    if (length < 0) return E_INVALIDARG;
    if (text == nullptr && length != 0) return E_INVALIDARG;
    UINT current = Length();
    BSTR fresh = ::SysAllocStringLen(nullptr, current + static_cast<UINT>(length));
    if (fresh == nullptr) return E_OUTOFMEMORY;
    if (current != 0) std::wmemcpy(fresh, m_str, current);
    if (length != 0) std::wmemcpy(fresh + current, text, static_cast<std::size_t>(length));
    ::SysFreeString(m_str);
    m_str = fresh;
    return S_OK;
}

HRESULT CComBSTR::ToLower() noexcept {
    for (UINT i = 0; i < Length(); ++i) {
        m_str[i] = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(m_str[i])));
    }
    return S_OK;
}

HRESULT CComBSTR::ToUpper() noexcept {
    for (UINT i = 0; i < Length(); ++i) {
        m_str[i] = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(m_str[i])));
    }
    return S_OK;
}
