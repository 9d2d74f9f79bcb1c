// atl.h: the ATL helpers filter code is written with: CComPtr, CComQIPtr, CComBSTR, CComVariant
// and CAtlException/AtlThrow. Semantics follow ATL: smart pointers hold one counted reference,
// operator& requires an empty pointer, CComBSTR owns its BSTR and throws CAtlException with
// E_OUTOFMEMORY where ATL does.
#pragma once

#include <cassert>
#include <cwchar>
#include <memory>
#include <utility>

#include "platform/com/bstr.h"
#include "platform/com/comruntime.h"
#include "platform/com/variant.h"

class CAtlException {
public:
    CAtlException() noexcept : m_hr(E_FAIL) {}
    CAtlException(HRESULT hr) noexcept : m_hr(hr) {}  // NOLINT: implicit as in ATL
    operator HRESULT() const noexcept { return m_hr; }

    HRESULT m_hr;
};

[[noreturn]] inline void AtlThrow(HRESULT hr) { throw CAtlException(hr); }

template <class T>
class CComPtr {
public:
    CComPtr() noexcept : p(nullptr) {}
    CComPtr(T* other) noexcept : p(other) {  // NOLINT: implicit as in ATL
        if (p != nullptr) p->AddRef();
    }
    CComPtr(const CComPtr& other) noexcept : CComPtr(other.p) {}
    CComPtr(CComPtr&& other) noexcept : p(other.p) { other.p = nullptr; }
    ~CComPtr() {
        if (p != nullptr) p->Release();
    }

    CComPtr& operator=(T* other) noexcept {
        if (other != p) {
            if (other != nullptr) other->AddRef();
            T* old = p;
            p = other;
            if (old != nullptr) old->Release();
        }
        return *this;
    }
    CComPtr& operator=(const CComPtr& other) noexcept { return *this = other.p; }
    CComPtr& operator=(CComPtr&& other) noexcept {
        if (this != std::addressof(other)) {
            T* old = p;
            p = other.p;
            other.p = nullptr;
            if (old != nullptr) old->Release();
        }
        return *this;
    }

    operator T*() const noexcept { return p; }
    T& operator*() const {
        assert(p != nullptr);
        return *p;
    }
    T* operator->() const noexcept {
        assert(p != nullptr);
        return p;
    }
    // Address for an out-parameter: the pointer must be empty, as ATL asserts.
    T** operator&() noexcept {
        assert(p == nullptr);
        return &p;
    }
    bool operator!() const noexcept { return p == nullptr; }
    bool operator==(T* other) const noexcept { return p == other; }
    bool operator!=(T* other) const noexcept { return p != other; }

    void Release() noexcept {
        T* old = p;
        if (old != nullptr) {
            p = nullptr;
            old->Release();
        }
    }
    void Attach(T* other) noexcept {
        if (p != nullptr) p->Release();
        p = other;
    }
    T* Detach() noexcept {
        T* old = p;
        p = nullptr;
        return old;
    }
    HRESULT CopyTo(T** target) const noexcept {
        if (target == nullptr) return E_POINTER;
        *target = p;
        if (p != nullptr) p->AddRef();
        return S_OK;
    }
    template <class Q>
    HRESULT QueryInterface(Q** target) const noexcept {
        assert(target != nullptr && *target == nullptr);
        if (p == nullptr) return E_POINTER;
        return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(target));
    }
    bool IsEqualObject(IUnknown* other) const noexcept {
        if (p == nullptr && other == nullptr) return true;
        if (p == nullptr || other == nullptr) return false;
        CComPtr<IUnknown> mine;
        CComPtr<IUnknown> theirs;
        p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&mine));
        other->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&theirs));
        return mine.p == theirs.p;
    }
    HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer = nullptr,
                             DWORD context = CLSCTX_ALL) noexcept {
        assert(p == nullptr);
        return ::CoCreateInstance(clsid, outer, context, __uuidof(T), reinterpret_cast<void**>(&p));
    }

    T* p;
};

// Smart pointer that queries its source for T on assignment; null when the source lacks T.
template <class T, const IID* piid = &__uuidof(T)>
class CComQIPtr : public CComPtr<T> {
public:
    CComQIPtr() noexcept = default;
    CComQIPtr(T* other) noexcept : CComPtr<T>(other) {}  // NOLINT
    CComQIPtr(const CComQIPtr& other) noexcept : CComPtr<T>(other.p) {}
    CComQIPtr(IUnknown* other) noexcept {  // NOLINT
        if (other != nullptr) other->QueryInterface(*piid, reinterpret_cast<void**>(&this->p));
    }
    template <class U>
    CComQIPtr(const CComPtr<U>& other) noexcept : CComQIPtr(static_cast<IUnknown*>(other.p)) {}

    CComQIPtr& operator=(T* other) noexcept {
        CComPtr<T>::operator=(other);
        return *this;
    }
    CComQIPtr& operator=(const CComQIPtr& other) noexcept {
        CComPtr<T>::operator=(other.p);
        return *this;
    }
    CComQIPtr& operator=(IUnknown* other) noexcept {
        T* found = nullptr;
        if (other != nullptr) other->QueryInterface(*piid, reinterpret_cast<void**>(&found));
        this->Attach(found);
        return *this;
    }
};

class CComBSTR {
public:
    CComBSTR() noexcept : m_str(nullptr) {}
    CComBSTR(const wchar_t* text) : m_str(nullptr) {  // NOLINT: implicit as in ATL
        if (text != nullptr) {
            m_str = ::SysAllocString(text);
            if (m_str == nullptr) AtlThrow(E_OUTOFMEMORY);
        }
    }
    CComBSTR(int length, const wchar_t* text) : m_str(nullptr) {
        if (length != 0 || text != nullptr) {
            m_str = ::SysAllocStringLen(text, static_cast<UINT>(length));
            if (m_str == nullptr) AtlThrow(E_OUTOFMEMORY);
        }
    }
    CComBSTR(const char* text);  // narrow text, converted from UTF-8
    CComBSTR(const CComBSTR& other) : m_str(other.Copy()) {
        if (other.m_str != nullptr && m_str == nullptr) AtlThrow(E_OUTOFMEMORY);
    }
    CComBSTR(CComBSTR&& other) noexcept : m_str(other.m_str) { other.m_str = nullptr; }
    ~CComBSTR() { ::SysFreeString(m_str); }

    CComBSTR& operator=(const CComBSTR& other) {
        if (this != std::addressof(other)) {
            BSTR fresh = other.Copy();
            if (other.m_str != nullptr && fresh == nullptr) AtlThrow(E_OUTOFMEMORY);
            ::SysFreeString(m_str);
            m_str = fresh;
        }
        return *this;
    }
    CComBSTR& operator=(CComBSTR&& other) noexcept {
        if (this != std::addressof(other)) {
            ::SysFreeString(m_str);
            m_str = other.m_str;
            other.m_str = nullptr;
        }
        return *this;
    }
    CComBSTR& operator=(const wchar_t* text) {
        if (text != m_str) {
            BSTR fresh = nullptr;
            if (text != nullptr) {
                fresh = ::SysAllocString(text);
                if (fresh == nullptr) AtlThrow(E_OUTOFMEMORY);
            }
            ::SysFreeString(m_str);
            m_str = fresh;
        }
        return *this;
    }

    operator BSTR() const noexcept { return m_str; }
    BSTR* operator&() noexcept {
        assert(m_str == nullptr);
        return &m_str;
    }
    bool operator!() const noexcept { return m_str == nullptr; }
    bool operator==(const CComBSTR& other) const noexcept {
        return ::VarBstrCmp(m_str, other.m_str, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ;
    }
    bool operator==(const wchar_t* text) const noexcept;
    bool operator!=(const CComBSTR& other) const noexcept { return !(*this == other); }
    bool operator!=(const wchar_t* text) const noexcept { return !(*this == text); }

    unsigned int Length() const noexcept { return ::SysStringLen(m_str); }
    unsigned int ByteLength() const noexcept { return ::SysStringByteLen(m_str); }
    BSTR Copy() const noexcept {
        return m_str == nullptr ? nullptr : ::SysAllocStringLen(m_str, ::SysStringLen(m_str));
    }
    HRESULT CopyTo(BSTR* target) const noexcept {
        if (target == nullptr) return E_POINTER;
        *target = Copy();
        return (m_str != nullptr && *target == nullptr) ? E_OUTOFMEMORY : S_OK;
    }
    void Attach(BSTR text) noexcept {
        if (text != m_str) {
            ::SysFreeString(m_str);
            m_str = text;
        }
    }
    BSTR Detach() noexcept {
        BSTR old = m_str;
        m_str = nullptr;
        return old;
    }
    void Empty() noexcept {
        ::SysFreeString(m_str);
        m_str = nullptr;
    }
    HRESULT Append(const wchar_t* text, int length) noexcept;
    HRESULT Append(const wchar_t* text) noexcept {
        return text == nullptr ? S_OK : Append(text, static_cast<int>(std::wcslen(text)));
    }
    HRESULT Append(const CComBSTR& other) noexcept {
        return Append(other.m_str, static_cast<int>(other.Length()));
    }
    HRESULT Append(wchar_t c) noexcept { return Append(&c, 1); }
    HRESULT AppendBSTR(BSTR other) noexcept {
        return Append(other, static_cast<int>(::SysStringLen(other)));
    }
    CComBSTR& operator+=(const wchar_t* text) {
        HRESULT hr = Append(text);
        if (FAILED(hr)) AtlThrow(hr);
        return *this;
    }
    CComBSTR& operator+=(const CComBSTR& other) {
        HRESULT hr = Append(other);
        if (FAILED(hr)) AtlThrow(hr);
        return *this;
    }
    HRESULT ToLower() noexcept;
    HRESULT ToUpper() noexcept;

    BSTR m_str;
};

class CComVariant : public VARIANT {
public:
    CComVariant() noexcept { ::VariantInit(this); }
    CComVariant(const VARIANT& other) {  // NOLINT
        ::VariantInit(this);
        HRESULT hr = ::VariantCopy(this, &other);
        if (FAILED(hr)) AtlThrow(hr);
    }
    CComVariant(const CComVariant& other) : CComVariant(static_cast<const VARIANT&>(other)) {}
    CComVariant(const wchar_t* text) {  // NOLINT
        ::VariantInit(this);
        vt = VT_BSTR;
        bstrVal = ::SysAllocString(text == nullptr ? L"" : text);
        if (bstrVal == nullptr) {
            vt = VT_EMPTY;
            AtlThrow(E_OUTOFMEMORY);
        }
    }
    CComVariant(const CComBSTR& text) : CComVariant(static_cast<const wchar_t*>(text.m_str)) {}
    CComVariant(bool value) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = VT_BOOL;
        boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    }
    CComVariant(int value, VARTYPE type = VT_I4) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = type;
        lVal = value;
    }
    CComVariant(unsigned int value, VARTYPE type = VT_UI4) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = type;
        ulVal = value;
    }
    CComVariant(long long value) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = VT_I8;
        llVal = value;
    }
    CComVariant(double value) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = VT_R8;
        dblVal = value;
    }
    CComVariant(IUnknown* object) noexcept {  // NOLINT
        ::VariantInit(this);
        vt = VT_UNKNOWN;
        punkVal = object;
        if (object != nullptr) object->AddRef();
    }
    ~CComVariant() { ::VariantClear(this); }

    CComVariant& operator=(const CComVariant& other) {
        if (this != std::addressof(other)) {
            HRESULT hr = ::VariantCopy(this, &other);
            if (FAILED(hr)) AtlThrow(hr);
        }
        return *this;
    }
    CComVariant& operator=(const VARIANT& other) {
        if (this != std::addressof(other)) {
            HRESULT hr = ::VariantCopy(this, &other);
            if (FAILED(hr)) AtlThrow(hr);
        }
        return *this;
    }

    HRESULT Clear() noexcept { return ::VariantClear(this); }
    HRESULT Copy(const VARIANT* source) noexcept { return ::VariantCopy(this, source); }
    HRESULT Detach(VARIANT* target) noexcept {
        if (target == nullptr) return E_POINTER;
        HRESULT hr = ::VariantClear(target);
        if (SUCCEEDED(hr)) {
            *target = *this;
            ::VariantInit(this);
        }
        return hr;
    }
    HRESULT ChangeType(VARTYPE type, const VARIANT* source = nullptr) noexcept {
        return ::VariantChangeType(this, source == nullptr ? this : source, 0, type);
    }
};
