// printers.h: what a printer's driver and the spooler report about a printer, read from the
// printer registry (winspool.h): GetPrinterDriverDirectoryA, DeviceCapabilitiesW with the public
// paper and resolution indices and the driver's two private indices (65525: its form list,
// 65518: its margins), and an information context (CreateICW, GetDeviceCaps, DeleteDC) that
// reports the printer's resolution. The settings are in the printer's printer.ini; the format is
// documented in docs/printers.md:
//
//     [Printer]
//     DriverName=Zorun Universal XPS
//     Resolution=600            ; dots per inch, or "600x1200" (horizontal x vertical)
//
//     [Margins]                 ; microns, as the driver reports them
//     Left=4233
//     Top=4233
//     Right=4233
//     Bottom=4233
//
//     [Forms]                   ; one form per line, in the order the driver lists them:
//     ; name=kind,paper id,width,height,data-model value (sizes in tenths of a millimetre)
//     A4=25001,9,2100,2970,5012
//
// A printer the registry does not know has no forms and zero margins; its resolution is the
// default, 600 dots per inch.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/com/wintypes.h"
#include "platform/win32/winspool.h"

// The driver's private capability indices.
inline constexpr WORD DC_PRIVATE_FORMS = 65525;    // its form list (FormsInfoRec records)
inline constexpr WORD DC_PRIVATE_MARGINS = 65518;  // its margins: four LONGs, microns

// Public DeviceCapabilities indices answered here.
inline constexpr WORD DC_PAPERS = 2;            // WORD paper ids
inline constexpr WORD DC_PAPERSIZE = 3;         // POINT sizes, tenths of a millimetre
inline constexpr WORD DC_ENUMRESOLUTIONS = 13;  // LONG pairs: horizontal, vertical dpi
inline constexpr WORD DC_PAPERNAMES = 16;       // 64-character names

// GetDeviceCaps indices answered here.
inline constexpr int LOGPIXELSX = 88;
inline constexpr int LOGPIXELSY = 90;
inline constexpr int PHYSICALWIDTH = 110;
inline constexpr int PHYSICALHEIGHT = 111;

// The resolution reported for a printer whose configuration names none.
inline constexpr int kDefaultPrinterResolution = 600;

struct POINT {
    LONG x;
    LONG y;
};

namespace MSDeviceCapabilities {

// One form of the driver's form list (DeviceCapabilitiesW index 65525): a 152-byte record.
struct _tag_FormsInfoRec {
    WORD paperId;  // devmode paper-size number; 256: a user-defined size
    WORD padding;
    DWORD width;           // tenths of a millimetre
    DWORD height;          // tenths of a millimetre
    INT32 dataModelValue;  // the driver data model's value id of the form
    DWORD reserved;        // zero
    DWORD kind;            // FormKind
    WORD name[64];         // the form's name, UTF-16, NUL-terminated (cut to 63 units)
};
static_assert(sizeof(_tag_FormsInfoRec) == 152, "the form record is a 152-byte wire format");

// Kinds of forms, as the driver classifies them.
enum FormKind : DWORD {
    FormKindPredefined = 25001,
    FormKindKnownToDictionary = 25002,
    FormKindDriverCustomSize = 25003,
    FormKindStandard = 25004,
    FormKindUser = 25005,
    FormKindCustomSizeEntry = 25008,
};

}  // namespace MSDeviceCapabilities

// The printer driver directory: FU_PRINTER_DRIVER_DIRECTORY when set, else the "drivers"
// folder of the first printer registry directory. `server` must be null or empty (the local
// server); the environment is ignored; level 1 only (else ERROR_INVALID_LEVEL). The path goes
// into `directory` with its NUL; *needed is the bytes that takes. A buffer that is too small
// gives FALSE with ERROR_INSUFFICIENT_BUFFER.
BOOL GetPrinterDriverDirectoryA(LPSTR server, LPSTR environment, DWORD level, LPBYTE directory,
                                DWORD bufferSize, DWORD* needed);

// Capabilities of the named printer. `port` and `devmode` are not used.
//   DC_PRIVATE_FORMS: the number of forms; with `output` given the records are written there
//     (the caller provides room for that number of _tag_FormsInfoRec). Unknown printer: 0.
//   DC_PRIVATE_MARGINS: writes left, top, right, bottom (LONG, microns) to `output` and
//     returns 1; an unknown printer gets four zeros and 0.
//   DC_PAPERS, DC_PAPERSIZE, DC_PAPERNAMES: the forms other than the custom-size entry (kind
//     25008): count, and with `output` their paper ids (WORD), sizes (POINT, tenths of a
//     millimetre) or names (64 wchar_t each, NUL-padded). DC_ENUMRESOLUTIONS: 1, and the
//     horizontal and vertical resolution (two LONGs).
//   An unknown printer (for these public indices) or index: -1 with ERROR_INVALID_PRINTER_NAME
//   or ERROR_NOT_SUPPORTED.
int DeviceCapabilitiesW(LPCWSTR device, LPCWSTR port, WORD capability, LPWSTR output,
                        const void* devmode);

// An information context of a printer: GetDeviceCaps answers its resolution (LOGPIXELSX/Y),
// and the size of its first form in device pixels (PHYSICALWIDTH/HEIGHT; Letter when it lists
// no form). Unknown printer: null with ERROR_INVALID_PRINTER_NAME.
HDC CreateICW(LPCWSTR driver, LPCWSTR device, LPCWSTR port, const void* devmode);
int GetDeviceCaps(HDC dc, int index);  // 0 for an unknown context or index
BOOL DeleteDC(HDC dc);

namespace platform {

// The printer registry directory: FU_PRINTER_REGISTRY, or /etc/xpsfilter/printers when unset.
std::string PrinterRegistryDirectory();

// A printer's configuration as the registry gives it.
struct PrinterConfiguration {
    bool known = false;  // the registry has the printer
    std::wstring driverName;
    int horizontalResolution = kDefaultPrinterResolution;
    int verticalResolution = kDefaultPrinterResolution;
    LONG margins[4] = {0, 0, 0, 0};  // left, top, right, bottom, microns
    std::vector<MSDeviceCapabilities::_tag_FormsInfoRec> forms;
    std::vector<std::wstring> formNames;
    // Lines of [Forms] that were not understood (they are left out, and reported once to the
    // debug output): "name=value" as written.
    std::vector<std::wstring> rejectedForms;
};

// Reads the printer's configuration (an unknown printer gives known == false and defaults).
PrinterConfiguration ReadPrinterConfiguration(const wchar_t* printerName);

// The form name stored in a record, as text.
std::wstring FormName(const MSDeviceCapabilities::_tag_FormsInfoRec& form);

}  // namespace platform
