// printer.cpp: Printer over OpenPrinterW/ClosePrinter.
#include "support/utilities/printer.h"

#include <string>

#include "platform/win32/kernel.h"
#include "platform/win32/winspool.h"

Printer::Printer() = default;

Printer::~Printer() {
    Close();
}

void Printer::Close() {
    if (m_handle != nullptr) ClosePrinter(m_handle);
    m_handle = nullptr;
}

void* Printer::CreateHandle(const wchar_t* printerName) {
    Close();
    if (printerName == nullptr) {
        SetLastError(ERROR_INVALID_PRINTER_NAME);
        return nullptr;
    }
    std::wstring name(printerName);  // OpenPrinterW takes a non-const name
    HANDLE handle = nullptr;
    if (!OpenPrinterW(name.data(), &handle, nullptr)) return nullptr;
    m_handle = handle;
    return m_handle;
}
