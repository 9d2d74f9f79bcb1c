// variant.cpp: VARIANT life cycle and the conversions filter code relies on.
#include "platform/com/variant.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <string>

void VariantInit(VARIANT* v) {
    if (v == nullptr) return;
    v->vt = VT_EMPTY;
    v->wReserved1 = v->wReserved2 = v->wReserved3 = 0;
    v->ullVal = 0;
}

HRESULT VariantClear(VARIANT* v) {
    if (v == nullptr) return E_INVALIDARG;
    switch (v->vt) {
        case VT_BSTR:
            SysFreeString(v->bstrVal);
            break;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            if (v->punkVal != nullptr) v->punkVal->Release();
            break;
        default:
            if ((v->vt & (VT_ARRAY)) != 0) return DISP_E_BADVARTYPE;
            break;
    }
    VariantInit(v);
    return S_OK;
}

HRESULT VariantCopy(VARIANT* target, const VARIANT* source) {
    if (target == nullptr || source == nullptr) return E_INVALIDARG;
    if (target == source) return S_OK;
    HRESULT hr = VariantClear(target);
    if (FAILED(hr)) return hr;
    *target = *source;
    switch (source->vt) {
        case VT_BSTR:
            if (source->bstrVal != nullptr) {
                target->bstrVal = SysAllocStringLen(source->bstrVal, SysStringLen(source->bstrVal));
                if (target->bstrVal == nullptr) {
                    VariantInit(target);
                    return E_OUTOFMEMORY;
                }
            }
            break;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            if (target->punkVal != nullptr) target->punkVal->AddRef();
            break;
        default:
            break;
    }
    return S_OK;
}

namespace {

// Reads a numeric variant as long double; false for non-numeric types.
bool ReadNumber(const VARIANT& v, long double& out) {
    switch (v.vt) {
        case VT_I1: out = v.cVal; return true;
        case VT_UI1: out = v.bVal; return true;
        case VT_I2: out = v.iVal; return true;
        case VT_UI2: out = v.uiVal; return true;
        case VT_I4: out = v.lVal; return true;
        case VT_UI4: out = v.ulVal; return true;
        case VT_INT: out = v.intVal; return true;
        case VT_UINT: out = v.uintVal; return true;
        case VT_I8: out = static_cast<long double>(v.llVal); return true;
        case VT_UI8: out = static_cast<long double>(v.ullVal); return true;
        case VT_R4: out = v.fltVal; return true;
        case VT_R8: out = v.dblVal; return true;
        case VT_BOOL: out = v.boolVal ? -1 : 0; return true;
        case VT_ERROR: out = v.scode; return true;
        case VT_INT_PTR: out = static_cast<long double>(v.intPtrVal); return true;
        case VT_UINT_PTR: out = static_cast<long double>(v.uintPtrVal); return true;
        default: return false;
    }
}

bool ParseText(BSTR text, long double& out) {
    if (text == nullptr) return false;
    std::wstring s(text, SysStringLen(text));
    if (s == L"True" || s == L"true") { out = -1; return true; }
    if (s == L"False" || s == L"false") { out = 0; return true; }
    wchar_t* end = nullptr;
    errno = 0;
    long double value = std::wcstold(s.c_str(), &end);
    if (end == s.c_str()) return false;
    while (*end == L' ' || *end == L'\t') ++end;
    if (*end != L'\0' || errno == ERANGE) return false;
    out = value;
    return true;
}

template <class T>
bool InRange(long double v) {
    return v >= static_cast<long double>(std::numeric_limits<T>::lowest()) &&
           v <= static_cast<long double>(std::numeric_limits<T>::max());
}

// Integer conversions round half to even, as automation does.
long double RoundForInteger(long double v) { return std::nearbyint(v); }

HRESULT NumberToText(const VARIANT& source, USHORT flags, BSTR& out) {
    std::wstring text;
    if (source.vt == VT_BOOL) {
        if (flags & VARIANT_ALPHABOOL) {
            text = source.boolVal ? L"True" : L"False";
        } else {
            text = source.boolVal ? L"-1" : L"0";
        }
    } else if (source.vt == VT_R4 || source.vt == VT_R8) {
        wchar_t buffer[64];
        std::swprintf(buffer, 64, L"%.*g", source.vt == VT_R4 ? 7 : 15,
                      source.vt == VT_R4 ? static_cast<double>(source.fltVal) : source.dblVal);
        text = buffer;
    } else if (source.vt == VT_UI8) {
        text = std::to_wstring(source.ullVal);
    } else if (source.vt == VT_UINT_PTR) {
        text = std::to_wstring(source.uintPtrVal);
    } else {
        long double value = 0;
        if (!ReadNumber(source, value)) return DISP_E_TYPEMISMATCH;
        text = std::to_wstring(static_cast<long long>(value));
    }
    out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return out == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace

HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, USHORT flags, VARTYPE type) {
    if (target == nullptr || source == nullptr) return E_INVALIDARG;
    if (source->vt == type) return VariantCopy(target, source);

    VARIANT result;
    VariantInit(&result);
    result.vt = type;
    if (type == VT_BSTR) {
        if (source->vt == VT_EMPTY) {
            result.bstrVal = SysAllocString(L"");
            if (result.bstrVal == nullptr) return E_OUTOFMEMORY;
        } else {
            HRESULT hr = NumberToText(*source, flags, result.bstrVal);
            if (FAILED(hr)) return hr;
        }
    } else if (type == VT_UNKNOWN && source->vt == VT_DISPATCH) {
        result.punkVal = source->pdispVal;
        if (result.punkVal != nullptr) result.punkVal->AddRef();
    } else {
        long double value = 0;
        if (source->vt == VT_EMPTY) {
            value = 0;
        } else if (source->vt == VT_BSTR) {
            if (!ParseText(source->bstrVal, value)) return DISP_E_TYPEMISMATCH;
        } else if (!ReadNumber(*source, value)) {
            return DISP_E_TYPEMISMATCH;
        }
        long double rounded = RoundForInteger(value);
        switch (type) {
            case VT_I1: if (!InRange<CHAR>(rounded)) return DISP_E_OVERFLOW; result.cVal = static_cast<CHAR>(rounded); break;
            case VT_UI1: if (!InRange<BYTE>(rounded)) return DISP_E_OVERFLOW; result.bVal = static_cast<BYTE>(rounded); break;
            case VT_I2: if (!InRange<SHORT>(rounded)) return DISP_E_OVERFLOW; result.iVal = static_cast<SHORT>(rounded); break;
            case VT_UI2: if (!InRange<USHORT>(rounded)) return DISP_E_OVERFLOW; result.uiVal = static_cast<USHORT>(rounded); break;
            case VT_I4: case VT_INT: if (!InRange<LONG>(rounded)) return DISP_E_OVERFLOW; result.lVal = static_cast<LONG>(rounded); break;
            case VT_UI4: case VT_UINT: if (!InRange<ULONG>(rounded)) return DISP_E_OVERFLOW; result.ulVal = static_cast<ULONG>(rounded); break;
            case VT_I8: if (!InRange<LONGLONG>(rounded)) return DISP_E_OVERFLOW; result.llVal = static_cast<LONGLONG>(rounded); break;
            case VT_UI8: if (!InRange<ULONGLONG>(rounded)) return DISP_E_OVERFLOW; result.ullVal = static_cast<ULONGLONG>(rounded); break;
            case VT_R4: if (!InRange<float>(value)) return DISP_E_OVERFLOW; result.fltVal = static_cast<FLOAT>(value); break;
            case VT_R8: result.dblVal = static_cast<DOUBLE>(value); break;
            case VT_BOOL: result.boolVal = value != 0 ? VARIANT_TRUE : VARIANT_FALSE; break;
            default: return DISP_E_TYPEMISMATCH;
        }
    }
    HRESULT hr = VariantClear(target);
    if (FAILED(hr)) {
        VariantClear(&result);
        return hr;
    }
    *target = result;
    return S_OK;
}
