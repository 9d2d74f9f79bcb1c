// printdriver.h: PrintDriver, the name of a printer's driver.
#pragma once

#include "support/utilities/cxstring.h"

class PrintDriver {
public:
    PrintDriver();
    ~PrintDriver();

    // The driver name of the printer behind the handle (GetPrinterDriverW, level 1); "" when the
    // handle is not an open printer or the printer names no driver.
    CXString GetDriverName(void* printerHandle);
};
