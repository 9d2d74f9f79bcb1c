// guid.h: GUID/IID/CLSID with Windows' layout, and the interface-id registry that stands in for
// MSVC's __uuidof. Every interface declares its id once with FU_DECLARE_IID, which defines the
// IID_<Name> constant and makes __uuidof(Name) work.
#pragma once

#include <cstring>
#include <string>

#include "platform/com/wintypes.h"

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

constexpr bool operator==(const GUID& a, const GUID& b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i) {
        if (a.Data4[i] != b.Data4[i]) return false;
    }
    return true;
}
constexpr bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
inline bool operator<(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }
constexpr bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }
constexpr bool IsEqualIID(REFIID a, REFIID b) { return a == b; }
constexpr bool IsEqualCLSID(REFCLSID a, REFCLSID b) { return a == b; }

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
#define IID_NULL GUID_NULL
#define CLSID_NULL GUID_NULL

namespace platform {

// Specialised once per interface by FU_DECLARE_IID.
template <class Interface>
struct InterfaceId;

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case, as Windows' StringFromGUID2 writes it.
std::string GuidToString(const GUID& guid);

}  // namespace platform

#define FU_DECLARE_IID(Interface, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7)         \
    inline constexpr IID IID_##Interface = {d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}}; \
    template <>                                                                          \
    struct platform::InterfaceId<Interface> {                                            \
        static constexpr const IID& value = IID_##Interface;                             \
    }

#define FU_DECLARE_CLSID(Name, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7) \
    inline constexpr CLSID CLSID_##Name = {d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}}

// __uuidof(Interface): the interface's IID, as MSVC gives it.
#define __uuidof(Interface) (::platform::InterfaceId<Interface>::value)
