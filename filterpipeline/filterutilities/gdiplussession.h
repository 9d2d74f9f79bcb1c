// gdiplussession.h: GDIPlus, a guard whose lifetime brackets one GDI+ session. The constructor
// starts GDI+ (never throws, never fails: callers test GetGDIPlusStartStatus() == Gdiplus::Ok),
// the destructor shuts the session down. Copies share the token; callers do not copy guards.
#pragma once

#include "platform/win32/gdiplus.h"

class GDIPlus {
public:
    GDIPlus();
    GDIPlus(const GDIPlus&) = default;
    GDIPlus& operator=(const GDIPlus&) = default;
    virtual ~GDIPlus();

    Gdiplus::Status GetGDIPlusStartStatus() const { return m_startStatus; }

private:
    ULONG_PTR m_token = 0;
    Gdiplus::Status m_startStatus = Gdiplus::GdiplusNotInitialized;
};
