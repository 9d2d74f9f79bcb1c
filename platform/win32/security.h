// security.h: access tokens and thread impersonation, as far as filter code uses them. Every
// token stands for the user the process runs as (Linux has no per-thread credentials to switch
// to); what is real is the bookkeeping: a token is a handle of the handle table, a thread
// impersonates a token (holding its own reference to it, so the handle may be closed), and
// OpenThreadToken tells whether the calling thread is impersonating.
#pragma once

#include "platform/com/wintypes.h"

inline constexpr DWORD TOKEN_ASSIGN_PRIMARY = 0x0001;
inline constexpr DWORD TOKEN_DUPLICATE = 0x0002;
inline constexpr DWORD TOKEN_IMPERSONATE = 0x0004;
inline constexpr DWORD TOKEN_QUERY = 0x0008;
inline constexpr DWORD TOKEN_QUERY_SOURCE = 0x0010;
inline constexpr DWORD TOKEN_ADJUST_PRIVILEGES = 0x0020;
inline constexpr DWORD TOKEN_ADJUST_GROUPS = 0x0040;
inline constexpr DWORD TOKEN_ADJUST_DEFAULT = 0x0080;
inline constexpr DWORD TOKEN_READ = 0x00020008;
inline constexpr DWORD TOKEN_ALL_ACCESS = 0x000F01FF;

// A new token handle for the process's user. `process` must be GetCurrentProcess() (else
// ERROR_INVALID_HANDLE); a null `token` gives ERROR_INVALID_PARAMETER.
BOOL OpenProcessToken(HANDLE process, DWORD desiredAccess, HANDLE* token);

// A new handle to the calling thread's impersonation token. `thread` must be
// GetCurrentThread(). A thread that is not impersonating gives FALSE with ERROR_NO_TOKEN.
BOOL OpenThreadToken(HANDLE thread, DWORD desiredAccess, BOOL openAsSelf, HANDLE* token);

// Makes the calling thread impersonate `token`, or stop impersonating when `token` is null.
// `thread` must be null or point to GetCurrentThread() (other threads: ERROR_INVALID_HANDLE).
// A token that is not an open token handle gives FALSE with ERROR_INVALID_HANDLE and leaves the
// thread as it was.
BOOL SetThreadToken(HANDLE* thread, HANDLE token);

// SetThreadToken(nullptr, token), with a null token rejected (ERROR_INVALID_HANDLE).
BOOL ImpersonateLoggedOnUser(HANDLE token);

// Ends the calling thread's impersonation; always TRUE.
BOOL RevertToSelf();

// A second handle to the same token (both must be closed).
BOOL DuplicateHandleToken(HANDLE token, HANDLE* duplicate);

namespace platform {

// Whether the calling thread is impersonating a token now.
bool IsThreadImpersonating();

}  // namespace platform
