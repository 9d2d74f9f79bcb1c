// setthreadtokenwrapper.h: SetThreadTokenWrapper, a scope in which the calling thread
// impersonates a security token (platform/win32/security.h).
#pragma once

class SetThreadTokenWrapper {
public:
    // Makes the calling thread impersonate `token` through SetThreadToken (a null token means: do
    // not impersonate). The thread's previous impersonation, if any, is remembered. Never throws;
    // Succeeded() tells whether SetThreadToken accepted the token.
    explicit SetThreadTokenWrapper(void* token);
    // Puts the thread back as it was before the constructor: impersonating the previous token,
    // or not impersonating.
    ~SetThreadTokenWrapper();
    SetThreadTokenWrapper(const SetThreadTokenWrapper&) = delete;
    SetThreadTokenWrapper& operator=(const SetThreadTokenWrapper&) = delete;

    bool Succeeded() const { return m_succeeded; }

    // Whether the calling thread impersonates a token now.
    static bool IsThisThreadImpersonating();

private:
    void* m_previous = nullptr;  // a handle of our own to the previous token, or null
    bool m_succeeded = false;
};
