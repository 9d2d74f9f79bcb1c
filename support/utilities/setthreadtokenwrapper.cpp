// setthreadtokenwrapper.cpp: impersonation scope over SetThreadToken/OpenThreadToken.
#include "support/utilities/setthreadtokenwrapper.h"

#include "platform/win32/kernel.h"
#include "platform/win32/security.h"

SetThreadTokenWrapper::SetThreadTokenWrapper(void* token) {
    HANDLE previous = nullptr;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &previous)) {
        m_previous = previous;
    }
    m_succeeded = SetThreadToken(nullptr, token) != FALSE;
}

SetThreadTokenWrapper::~SetThreadTokenWrapper() {
    SetThreadToken(nullptr, m_previous);
    if (m_previous != nullptr) CloseHandle(m_previous);
}

bool SetThreadTokenWrapper::IsThisThreadImpersonating() {
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return false;
    CloseHandle(token);
    return true;
}
