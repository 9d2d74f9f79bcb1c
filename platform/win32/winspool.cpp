// winspool.cpp: printer handles and driver names over the printer registry directory.
#include "platform/win32/winspool.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"
#include "platform/win32/printers.h"
#include "platform/win32/profile.h"

namespace {

class PrinterObject : public platform::KernelObject {
public:
    PrinterObject(std::wstring name, std::string directory)
        : m_name(std::move(name)), m_directory(std::move(directory)) {}
    const std::wstring& Name() const { return m_name; }
    const std::string& Directory() const { return m_directory; }

private:
    std::wstring m_name;
    std::string m_directory;
};

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

namespace platform {

std::string FindPrinterDirectory(const wchar_t* printerName) {
    if (printerName == nullptr) return {};
    const std::string registry = PrinterRegistryDirectory();
    std::wstring_view name(printerName);
    if (name.empty() || name == L"." || name == L".." || name.find_first_of(L"/\\") != name.npos) {
        return {};
    }
    std::string directory = std::string(registry) + "/" + WideToUtf8(name);
    struct stat info {};
    if (stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return {};
    return directory;
}

std::wstring GetPrinterNameFromHandle(HANDLE printer) {
    auto object = LookupHandleAs<PrinterObject>(printer);
    return object ? object->Name() : std::wstring();
}

}  // namespace platform

BOOL OpenPrinterW(LPWSTR printerName, HANDLE* printer, PRINTER_DEFAULTSW*) {
    if (printer == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    *printer = nullptr;
    std::string directory = platform::FindPrinterDirectory(printerName);
    if (directory.empty()) return Fail(ERROR_INVALID_PRINTER_NAME);
    *printer = platform::RegisterHandle(std::make_shared<PrinterObject>(printerName, directory));
    return TRUE;
}

BOOL ClosePrinter(HANDLE printer) {
    if (!platform::LookupHandleAs<PrinterObject>(printer)) return Fail(ERROR_INVALID_HANDLE);
    return CloseHandle(printer);
}

BOOL GetPrinterDriverW(HANDLE printer, LPWSTR, DWORD level, LPBYTE driverInfo, DWORD bufferSize,
                       DWORD* needed) {
    auto object = platform::LookupHandleAs<PrinterObject>(printer);
    if (!object) return Fail(ERROR_INVALID_HANDLE);
    if (level != 1) return Fail(ERROR_INVALID_LEVEL);
    std::wstring file = platform::Utf8ToWide(object->Directory() + "/printer.ini");
    wchar_t name[1024];
    DWORD length =
        GetPrivateProfileStringW(L"Printer", L"DriverName", L"", name, 1024, file.c_str());
    if (length == 0) return Fail(ERROR_UNKNOWN_PRINTER_DRIVER);
    DWORD required = static_cast<DWORD>(sizeof(DRIVER_INFO_1W) + (length + 1) * sizeof(wchar_t));
    if (needed != nullptr) *needed = required;
    if (driverInfo == nullptr || bufferSize < required) return Fail(ERROR_INSUFFICIENT_BUFFER);
    auto* record = reinterpret_cast<DRIVER_INFO_1W*>(driverInfo);
    auto* text = reinterpret_cast<wchar_t*>(driverInfo + sizeof(DRIVER_INFO_1W));
    std::memcpy(text, name, (length + 1) * sizeof(wchar_t));
    record->pName = text;
    return TRUE;
}
