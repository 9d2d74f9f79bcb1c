// variant.h: the automation VARIANT with the members filter code reads (vt, bstrVal, punkVal,
// lVal, ...), and the helpers that create, copy, clear and convert it.
#pragma once

#include "platform/com/bstr.h"
#include "platform/com/unknown.h"

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_VOID = 24,
    VT_HRESULT = 25,
    VT_PTR = 26,
    VT_LPSTR = 30,
    VT_LPWSTR = 31,
    VT_INT_PTR = 37,
    VT_UINT_PTR = 38,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
};

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        ULONGLONG ullVal;
        LONG lVal;
        ULONG ulVal;
        INT intVal;
        UINT uintVal;
        BYTE bVal;
        CHAR cVal;
        SHORT iVal;
        USHORT uiVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        INT_PTR intPtrVal;
        UINT_PTR uintPtrVal;
        PVOID byref;
    };
};
using VARIANTARG = VARIANT;
using LPVARIANT = VARIANT*;

#define V_VT(v) ((v)->vt)
#define V_BSTR(v) ((v)->bstrVal)
#define V_UNKNOWN(v) ((v)->punkVal)
#define V_DISPATCH(v) ((v)->pdispVal)
#define V_I4(v) ((v)->lVal)
#define V_UI4(v) ((v)->ulVal)
#define V_BOOL(v) ((v)->boolVal)

// VariantChangeType flags.
inline constexpr USHORT VARIANT_NOVALUEPROP = 0x01;
inline constexpr USHORT VARIANT_ALPHABOOL = 0x02;

void VariantInit(VARIANT* v);
// Frees what the variant owns (BSTR, interface reference) and leaves it VT_EMPTY.
HRESULT VariantClear(VARIANT* v);
// Deep copy: BSTRs duplicated, interfaces AddRef'd. The target is cleared first.
HRESULT VariantCopy(VARIANT* target, const VARIANT* source);
// Conversions between the numeric types, VT_BOOL and VT_BSTR (decimal text, "True"/"False"
// with VARIANT_ALPHABOOL, else "-1"/"0"). Unsupported pairs give DISP_E_TYPEMISMATCH; numbers
// out of range DISP_E_OVERFLOW.
HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, USHORT flags, VARTYPE type);
