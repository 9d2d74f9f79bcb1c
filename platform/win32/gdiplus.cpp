// gdiplus.cpp: the GDI+ session bookkeeping.
#include "platform/win32/gdiplus.h"

#include <mutex>
#include <set>

namespace {

struct Sessions {
    std::mutex lock;
    std::set<ULONG_PTR> active;
    ULONG_PTR next = 1;
    int ignoredShutdowns = 0;
};

Sessions& State() {
    static Sessions* sessions = new Sessions;  // guards may shut down from static destructors
    return *sessions;
}

Gdiplus::Status HookStub(ULONG_PTR* token) {
    if (token == nullptr) return Gdiplus::InvalidParameter;
    *token = 0;
    return Gdiplus::Ok;
}

void UnhookStub(ULONG_PTR) {}

}  // namespace

namespace Gdiplus {

Status GdiplusStartup(ULONG_PTR* token, const GdiplusStartupInput* input,
                      GdiplusStartupOutput* output) {
    if (token == nullptr || input == nullptr) return InvalidParameter;
    *token = 0;
    if (input->GdiplusVersion < 1 || input->GdiplusVersion > 3) return UnsupportedGdiplusVersion;
    if (input->SuppressBackgroundThread && output == nullptr) return InvalidParameter;
    if (output != nullptr) {
        output->NotificationHook = &HookStub;
        output->NotificationUnhook = &UnhookStub;
    }
    Sessions& sessions = State();
    std::lock_guard guard(sessions.lock);
    *token = sessions.next++;
    sessions.active.insert(*token);
    return Ok;
}

void GdiplusShutdown(ULONG_PTR token) {
    Sessions& sessions = State();
    std::lock_guard guard(sessions.lock);
    if (sessions.active.erase(token) == 0) ++sessions.ignoredShutdowns;
}

}  // namespace Gdiplus

namespace platform {

int GdiplusActiveSessions() {
    Sessions& sessions = State();
    std::lock_guard guard(sessions.lock);
    return static_cast<int>(sessions.active.size());
}

int GdiplusIgnoredShutdowns() {
    Sessions& sessions = State();
    std::lock_guard guard(sessions.lock);
    return sessions.ignoredShutdowns;
}

}  // namespace platform
