// wingdi.h: the GDI records printer-driver code exchanges as bytes: the public device mode
// (DEVMODEW, 220 bytes), the header that opens a plug-in's part of a device mode's private area
// (OEM_DMEXTRAHEADER), the logical font (LOGFONTW), and MulDiv.
//
// These are wire layouts: a device mode travels inside PrintTickets as bytes written by Windows
// components, so every field keeps its Windows offset and size. Their text fields are UTF-16
// code units (char16_t), not wchar_t, which is 32-bit here. All multi-byte fields are
// little-endian, as the host is.
#pragma once

#include <cstddef>

#include "platform/com/wintypes.h"

// Text field lengths of DEVMODEW and LOGFONTW, in UTF-16 code units.
inline constexpr int CCHDEVICENAME = 32;
inline constexpr int CCHFORMNAME = 32;
inline constexpr int LF_FACESIZE = 32;

// The public part of a device mode. The driver's private bytes (dmDriverExtra of them) follow
// it at byte dmSize. This is the printer view of the Windows structure: the union that display
// drivers read as dmPosition / dmDisplayOrientation / dmDisplayFixedOutput overlays
// dmOrientation .. dmPrintQuality, and dmNup overlays dmDisplayFlags.
struct DEVMODEW {
    char16_t dmDeviceName[CCHDEVICENAME];
    WORD dmSpecVersion;
    WORD dmDriverVersion;
    WORD dmSize;         // bytes of the public part; the private area starts here
    WORD dmDriverExtra;  // bytes of the private area
    DWORD dmFields;      // DM_* bits: which fields are set
    SHORT dmOrientation;
    SHORT dmPaperSize;
    SHORT dmPaperLength;  // tenths of a millimetre
    SHORT dmPaperWidth;   // tenths of a millimetre
    SHORT dmScale;
    SHORT dmCopies;
    SHORT dmDefaultSource;
    SHORT dmPrintQuality;
    SHORT dmColor;
    SHORT dmDuplex;
    SHORT dmYResolution;
    SHORT dmTTOption;
    SHORT dmCollate;
    char16_t dmFormName[CCHFORMNAME];
    WORD dmLogPixels;
    DWORD dmBitsPerPel;
    DWORD dmPelsWidth;
    DWORD dmPelsHeight;
    union {
        DWORD dmDisplayFlags;
        DWORD dmNup;
    };
    DWORD dmDisplayFrequency;
    DWORD dmICMMethod;
    DWORD dmICMIntent;
    DWORD dmMediaType;
    DWORD dmDitherType;
    DWORD dmReserved1;
    DWORD dmReserved2;
    DWORD dmPanningWidth;
    DWORD dmPanningHeight;
};
using PDEVMODEW = DEVMODEW*;
using LPDEVMODEW = DEVMODEW*;

static_assert(sizeof(DEVMODEW) == 220, "DEVMODEW is the 220-byte Windows layout");
static_assert(offsetof(DEVMODEW, dmSpecVersion) == 64);
static_assert(offsetof(DEVMODEW, dmSize) == 68);
static_assert(offsetof(DEVMODEW, dmDriverExtra) == 70);
static_assert(offsetof(DEVMODEW, dmFields) == 72);
static_assert(offsetof(DEVMODEW, dmOrientation) == 76);
static_assert(offsetof(DEVMODEW, dmPaperSize) == 78);
static_assert(offsetof(DEVMODEW, dmPaperLength) == 80);
static_assert(offsetof(DEVMODEW, dmPaperWidth) == 82);
static_assert(offsetof(DEVMODEW, dmCopies) == 86);
static_assert(offsetof(DEVMODEW, dmColor) == 92);
static_assert(offsetof(DEVMODEW, dmDuplex) == 94);
static_assert(offsetof(DEVMODEW, dmCollate) == 100);
static_assert(offsetof(DEVMODEW, dmFormName) == 102);
static_assert(offsetof(DEVMODEW, dmLogPixels) == 166);
static_assert(offsetof(DEVMODEW, dmBitsPerPel) == 168);
static_assert(offsetof(DEVMODEW, dmNup) == 180);
static_assert(offsetof(DEVMODEW, dmMediaType) == 196);
static_assert(offsetof(DEVMODEW, dmPanningHeight) == 216);

// The device mode version of Windows 2000 and later (dmSpecVersion).
inline constexpr WORD DM_SPECVERSION = 0x0401;

// dmFields bits.
inline constexpr DWORD DM_ORIENTATION = 0x00000001;
inline constexpr DWORD DM_PAPERSIZE = 0x00000002;
inline constexpr DWORD DM_PAPERLENGTH = 0x00000004;
inline constexpr DWORD DM_PAPERWIDTH = 0x00000008;
inline constexpr DWORD DM_SCALE = 0x00000010;
inline constexpr DWORD DM_COPIES = 0x00000100;
inline constexpr DWORD DM_DEFAULTSOURCE = 0x00000200;
inline constexpr DWORD DM_PRINTQUALITY = 0x00000400;
inline constexpr DWORD DM_COLOR = 0x00000800;
inline constexpr DWORD DM_DUPLEX = 0x00001000;
inline constexpr DWORD DM_YRESOLUTION = 0x00002000;
inline constexpr DWORD DM_TTOPTION = 0x00004000;
inline constexpr DWORD DM_COLLATE = 0x00008000;
inline constexpr DWORD DM_FORMNAME = 0x00010000;
inline constexpr DWORD DM_NUP = 0x00000040;
inline constexpr DWORD DM_MEDIATYPE = 0x02000000;
inline constexpr DWORD DM_DITHERTYPE = 0x04000000;

// dmOrientation values.
inline constexpr SHORT DMORIENT_PORTRAIT = 1;
inline constexpr SHORT DMORIENT_LANDSCAPE = 2;

// dmColor values.
inline constexpr SHORT DMCOLOR_MONOCHROME = 1;
inline constexpr SHORT DMCOLOR_COLOR = 2;

// dmDuplex values.
inline constexpr SHORT DMDUP_SIMPLEX = 1;
inline constexpr SHORT DMDUP_VERTICAL = 2;
inline constexpr SHORT DMDUP_HORIZONTAL = 3;

// The header every plug-in's part of the private area starts with (Windows printoem.h):
// dwSize counts the whole part, header included; dwSignature identifies the plug-in.
struct OEM_DMEXTRAHEADER {
    DWORD dwSize;
    DWORD dwSignature;
    DWORD dwVersion;
};
using POEM_DMEXTRAHEADER = OEM_DMEXTRAHEADER*;

static_assert(sizeof(OEM_DMEXTRAHEADER) == 12, "OEM_DMEXTRAHEADER is three DWORDs");

// A logical font (the Windows layout, 92 bytes). Heights are in device units: a negative
// lfHeight is the character height, a positive one the cell height.
struct LOGFONTW {
    LONG lfHeight;
    LONG lfWidth;
    LONG lfEscapement;   // tenths of a degree
    LONG lfOrientation;  // tenths of a degree
    LONG lfWeight;       // 400 normal, 700 bold
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    char16_t lfFaceName[LF_FACESIZE];
};
using PLOGFONTW = LOGFONTW*;

static_assert(sizeof(LOGFONTW) == 92, "LOGFONTW is the 92-byte Windows layout");
static_assert(offsetof(LOGFONTW, lfFaceName) == 28);

inline constexpr LONG FW_NORMAL = 400;
inline constexpr LONG FW_BOLD = 700;
inline constexpr BYTE ANSI_CHARSET = 0;
inline constexpr BYTE DEFAULT_CHARSET = 1;
inline constexpr BYTE OUT_DEFAULT_PRECIS = 0;
inline constexpr BYTE OUT_TT_ONLY_PRECIS = 7;
inline constexpr BYTE CLIP_DEFAULT_PRECIS = 0;
inline constexpr BYTE DEFAULT_QUALITY = 0;
inline constexpr BYTE CLEARTYPE_QUALITY = 5;
inline constexpr BYTE DEFAULT_PITCH = 0;

// number * numerator / denominator with a 64-bit intermediate, rounded half away from zero, as
// Windows computes it. A zero denominator or a result outside the 32-bit range gives -1.
inline int MulDiv(int number, int numerator, int denominator) {
    if (denominator == 0) return -1;
    long long product = static_cast<long long>(number) * numerator;
    bool negative = (product < 0) != (denominator < 0);
    unsigned long long magnitude = product < 0 ? 0ull - static_cast<unsigned long long>(product)
                                               : static_cast<unsigned long long>(product);
    unsigned long long divisor = denominator < 0
                                     ? 0ull - static_cast<unsigned long long>(denominator)
                                     : static_cast<unsigned long long>(denominator);
    unsigned long long quotient = (magnitude + divisor / 2) / divisor;
    if (quotient > (negative ? 2147483648ull : 2147483647ull)) return -1;
    return negative ? static_cast<int>(0ll - static_cast<long long>(quotient))
                    : static_cast<int>(quotient);
}
