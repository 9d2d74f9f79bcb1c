// printdriver.cpp: PrintDriver over GetPrinterDriverW.
#include "support/utilities/printdriver.h"

#include <vector>

#include "platform/win32/kernel.h"
#include "platform/win32/winspool.h"

PrintDriver::PrintDriver() = default;
PrintDriver::~PrintDriver() = default;

CXString PrintDriver::GetDriverName(void* printerHandle) {
    DWORD needed = 0;
    if (GetPrinterDriverW(printerHandle, nullptr, 1, nullptr, 0, &needed) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER || needed < sizeof(DRIVER_INFO_1W)) {
        return CXString();
    }
    // DWORD-aligned storage for the record and the name behind it.
    std::vector<DRIVER_INFO_1W> storage(needed / sizeof(DRIVER_INFO_1W) + 1);
    auto* bytes = reinterpret_cast<BYTE*>(storage.data());
    DWORD size = static_cast<DWORD>(storage.size() * sizeof(DRIVER_INFO_1W));
    if (!GetPrinterDriverW(printerHandle, nullptr, 1, bytes, size, &needed)) return CXString();
    return CXString(storage[0].pName);
}
