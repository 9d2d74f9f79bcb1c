// gdiplussession.cpp: GDI+ start-up and shut-down pairing.
#include "filterpipeline/filterutilities/gdiplussession.h"

GDIPlus::GDIPlus() {
    m_startStatus = Gdiplus::GdiplusNotInitialized;
    m_token = 0;
    Gdiplus::GdiplusStartupInput input;
    input.GdiplusVersion = 1;
    input.DebugEventCallback = nullptr;
    input.SuppressBackgroundThread = FALSE;
    input.SuppressExternalCodecs = FALSE;
    m_startStatus = Gdiplus::GdiplusStartup(&m_token, &input, nullptr);
}

GDIPlus::~GDIPlus() {
    // Unconditional, also after a failed start-up (token 0).
    Gdiplus::GdiplusShutdown(m_token);
    m_token = 0;
    m_startStatus = Gdiplus::GdiplusNotInitialized;
}
