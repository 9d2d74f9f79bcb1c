// bstr.h: automation strings. A BSTR points at the first character of a NUL-terminated wide
// string preceded by its length in bytes (a 32-bit prefix), so it may hold embedded NULs. A null
// BSTR is the empty string to every function here.
#pragma once

#include "platform/com/wintypes.h"

BSTR SysAllocString(const OLECHAR* text);
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);  // text may be null: zero-filled
BSTR SysAllocStringByteLen(const char* bytes, UINT byteLength);
INT SysReAllocString(BSTR* target, const OLECHAR* text);
INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);      // characters, embedded NULs counted
UINT SysStringByteLen(BSTR text);  // bytes: characters * sizeof(OLECHAR)

// VarBstrCmp results and flags.
inline constexpr HRESULT VARCMP_LT = 0;
inline constexpr HRESULT VARCMP_EQ = 1;
inline constexpr HRESULT VARCMP_GT = 2;
inline constexpr HRESULT VARCMP_NULL = 3;
inline constexpr ULONG NORM_IGNORECASE = 0x00000001;

// Compares two BSTRs over their full lengths (embedded NULs included); null equals empty.
// Ordering is by code point, which is what the user-default locale gives for the Print Schema
// names compared here; NORM_IGNORECASE folds ASCII and Latin-1 letters.
HRESULT VarBstrCmp(BSTR left, BSTR right, LCID locale, ULONG flags);

namespace platform {

// A BSTR of `length` characters that are left unset, for a caller that writes every one of them
// itself (SysAllocStringLen with a null source zero-fills them first). The terminating NUL and
// the length prefix are set. Null when out of memory or too long.
BSTR AllocateBstrToFill(UINT length);

}  // namespace platform
