// security.cpp: token objects in the handle table and the per-thread impersonation slot.
#include "platform/win32/security.h"

#include <memory>

#include "platform/win32/kernel.h"

namespace {

// A token. Every token stands for the process user, so it carries no data of its own; its
// identity (the object) is what impersonation tracks.
class AccessToken : public platform::KernelObject {};

thread_local std::shared_ptr<AccessToken> t_impersonation;

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

BOOL OpenProcessToken(HANDLE process, DWORD, HANDLE* token) {
    if (token == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    *token = nullptr;
    if (process != GetCurrentProcess()) return Fail(ERROR_INVALID_HANDLE);
    *token = platform::RegisterHandle(std::make_shared<AccessToken>());
    return TRUE;
}

BOOL OpenThreadToken(HANDLE thread, DWORD, BOOL, HANDLE* token) {
    if (token == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    *token = nullptr;
    if (thread != GetCurrentThread()) return Fail(ERROR_INVALID_HANDLE);
    if (!t_impersonation) return Fail(ERROR_NO_TOKEN);
    *token = platform::RegisterHandle(t_impersonation);
    return TRUE;
}

BOOL SetThreadToken(HANDLE* thread, HANDLE token) {
    if (thread != nullptr && *thread != GetCurrentThread()) return Fail(ERROR_INVALID_HANDLE);
    if (token == nullptr) {
        t_impersonation.reset();
        return TRUE;
    }
    auto object = platform::LookupHandleAs<AccessToken>(token);
    if (!object) return Fail(ERROR_INVALID_HANDLE);
    t_impersonation = std::move(object);
    return TRUE;
}

BOOL ImpersonateLoggedOnUser(HANDLE token) {
    if (token == nullptr) return Fail(ERROR_INVALID_HANDLE);
    return SetThreadToken(nullptr, token);
}

BOOL RevertToSelf() {
    t_impersonation.reset();
    return TRUE;
}

BOOL DuplicateHandleToken(HANDLE token, HANDLE* duplicate) {
    if (duplicate == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    *duplicate = nullptr;
    auto object = platform::LookupHandleAs<AccessToken>(token);
    if (!object) return Fail(ERROR_INVALID_HANDLE);
    *duplicate = platform::RegisterHandle(std::move(object));
    return TRUE;
}

namespace platform {

bool IsThreadImpersonating() {
    return static_cast<bool>(t_impersonation);
}

}  // namespace platform
