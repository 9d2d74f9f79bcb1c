// gdiplus.h: GDI+ start-up and shutdown. There is no GDI+ on Linux; what filter code needs of it
// is the status enumeration (Windows values), the start-up input record and a session token
// that GdiplusStartup hands out and GdiplusShutdown takes back. Sessions are counted so that
// tests can check the pairing.
#pragma once

#include "platform/com/wintypes.h"

namespace Gdiplus {

enum Status {
    Ok = 0,
    GenericError = 1,
    InvalidParameter = 2,
    OutOfMemory = 3,
    ObjectBusy = 4,
    InsufficientBuffer = 5,
    NotImplemented = 6,
    Win32Error = 7,
    WrongState = 8,
    Aborted = 9,
    FileNotFound = 10,
    ValueOverflow = 11,
    AccessDenied = 12,
    UnknownImageFormat = 13,
    FontFamilyNotFound = 14,
    FontStyleNotFound = 15,
    NotTrueTypeFont = 16,
    UnsupportedGdiplusVersion = 17,
    GdiplusNotInitialized = 18,
    PropertyNotFound = 19,
    PropertyNotSupported = 20,
    ProfileNotFound = 21,
};

enum DebugEventLevel { DebugEventLevelFatal, DebugEventLevelWarning };
using DebugEventProc = void (*)(DebugEventLevel level, CHAR* message);
using NotificationHookProc = Status (*)(ULONG_PTR* token);
using NotificationUnhookProc = void (*)(ULONG_PTR token);

struct GdiplusStartupInput {
    UINT32 GdiplusVersion = 1;
    DebugEventProc DebugEventCallback = nullptr;
    BOOL SuppressBackgroundThread = FALSE;
    BOOL SuppressExternalCodecs = FALSE;

    GdiplusStartupInput() = default;
    GdiplusStartupInput(DebugEventProc callback, BOOL suppressBackgroundThread = FALSE,
                        BOOL suppressExternalCodecs = FALSE)
        : DebugEventCallback(callback),
          SuppressBackgroundThread(suppressBackgroundThread),
          SuppressExternalCodecs(suppressExternalCodecs) {}
};

struct GdiplusStartupOutput {
    NotificationHookProc NotificationHook = nullptr;
    NotificationUnhookProc NotificationUnhook = nullptr;
};

// Starts a session and stores its token (never 0). Null token or input: InvalidParameter.
// GdiplusVersion outside 1..3: UnsupportedGdiplusVersion. SuppressBackgroundThread without an
// output record: InvalidParameter. With an output record, its hooks are filled in (they return
// Ok and do nothing, there being no background thread).
Status GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* input,
                      GdiplusStartupOutput* output);

// Ends the session of that token. A token of no active session (0, unknown, already shut down)
// is ignored, and counted (platform::GdiplusIgnoredShutdowns).
void GdiplusShutdown(ULONG_PTR token);

}  // namespace Gdiplus

namespace platform {

// Sessions started and not yet shut down.
int GdiplusActiveSessions();
// Shutdown calls whose token named no active session.
int GdiplusIgnoredShutdowns();

}  // namespace platform
