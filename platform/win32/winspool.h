// winspool.h: the spooler calls filter code makes, over a printer registry directory. There is
// no spooler to ask on Linux; instead the environment variable FU_PRINTER_REGISTRY (unset:
// /etc/xpsfilter/printers) names a directory with one subdirectory per printer, named after the
// printer:
//
//     $FU_PRINTER_REGISTRY/<printer name>/printer.ini
//
//     [Printer]
//     DriverName=Zorun Universal XPS
//
// A printer exists when its directory exists. Further per-printer settings (forms, margins,
// resolution) live in the same directory; platform::FindPrinterDirectory is the one lookup all
// of them go through.
#pragma once

#include <string>

#include "platform/com/wintypes.h"

inline constexpr DWORD ERROR_INVALID_LEVEL = 124;

struct PRINTER_DEFAULTSW {
    LPWSTR pDatatype;
    void* pDevMode;
    DWORD DesiredAccess;
};

struct DRIVER_INFO_1W {
    LPWSTR pName;
};

// Opens a handle to a printer of the registry. Unknown printer, no registry, a null or empty name
// or one that is not a plain directory name ("..", containing '/' or '\'):
// FALSE with ERROR_INVALID_PRINTER_NAME. A null `printer` gives ERROR_INVALID_PARAMETER.
BOOL OpenPrinterW(LPWSTR printerName, HANDLE* printer, PRINTER_DEFAULTSW* defaults);

// Closes a printer handle (FALSE with ERROR_INVALID_HANDLE for anything else).
BOOL ClosePrinter(HANDLE printer);

// Level 1 only (others: ERROR_INVALID_LEVEL): a DRIVER_INFO_1W whose name string is stored in the
// same buffer after the record. *needed receives the bytes required; a smaller buffer gives FALSE
// with ERROR_INSUFFICIENT_BUFFER. A printer without a DriverName gives
// ERROR_UNKNOWN_PRINTER_DRIVER; a handle that is not a printer ERROR_INVALID_HANDLE. The
// environment argument is ignored.
BOOL GetPrinterDriverW(HANDLE printer, LPWSTR environment, DWORD level, LPBYTE driverInfo,
                       DWORD bufferSize, DWORD* needed);

namespace platform {

// The registry directory of the named printer, or "" when there is no such printer (or no
// registry, or the name is not a plain directory name).
std::string FindPrinterDirectory(const wchar_t* printerName);

// The printer name behind an open printer handle ("" when it is none).
std::wstring GetPrinterNameFromHandle(HANDLE printer);

}  // namespace platform
