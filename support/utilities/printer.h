// printer.h: Printer, owner of one printer handle (platform/win32/winspool.h).
#pragma once

class Printer {
public:
    Printer();
    ~Printer();
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    // Opens the named printer and returns its handle, which this object owns and closes (a
    // handle it held before is closed first). Null when the printer cannot be opened (the
    // thread's last error says why).
    void* CreateHandle(const wchar_t* printerName);

private:
    void Close();

    void* m_handle = nullptr;
};
