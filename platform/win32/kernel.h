// kernel.h: the kernel32 basics filter code calls: the per-thread last error, the tick counter,
// the interlocked operations and kernel handles (CloseHandle over a process-wide handle table
// that other stand-ins register their objects in).
#pragma once

#include <memory>

#include "platform/com/wintypes.h"

// The calling thread's last-error value. Starts at 0 on every thread.
DWORD GetLastError();
void SetLastError(DWORD error);

// Milliseconds since an arbitrary fixed point (the monotonic clock), wrapping after 49.7 days
// as on Windows. GetTickCount64 does not wrap. With reproducible ticks on
// (platform::SetReproducibleTicks), GetTickCount counts its own calls instead (1, 2, 3, ...), so
// that names made unique with it come out the same in every run; GetTickCount64, which measures
// durations, keeps the clock.
DWORD GetTickCount();
ULONGLONG GetTickCount64();

// Pseudo handles meaning "the calling process" and "the calling thread", with the Windows values.
inline HANDLE GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
}
inline HANDLE GetCurrentThread() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();

// Closes a handle of the handle table. A handle that is not open (null, a pseudo handle, one
// already closed) gives FALSE with ERROR_INVALID_HANDLE.
BOOL CloseHandle(HANDLE handle);

// Interlocked operations: sequentially consistent, on 32-bit LONG and 64-bit LONGLONG values as on
// Windows. Increment/Decrement/Add return the new value; Exchange, CompareExchange and
// ExchangeAdd return the value before the operation.
inline LONG InterlockedIncrement(LONG volatile* value) {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(LONG volatile* value) {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedAdd(LONG volatile* value, LONG add) {
    return __atomic_add_fetch(value, add, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(LONG volatile* target, LONG value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchangeAdd(LONG volatile* target, LONG add) {
    return __atomic_fetch_add(target, add, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedCompareExchange(LONG volatile* target, LONG exchange, LONG comparand) {
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}
inline LONGLONG InterlockedIncrement64(LONGLONG volatile* value) {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedDecrement64(LONGLONG volatile* value) {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedExchange64(LONGLONG volatile* target, LONGLONG value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedExchangeAdd64(LONGLONG volatile* target, LONGLONG add) {
    return __atomic_fetch_add(target, add, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedCompareExchange64(LONGLONG volatile* target, LONGLONG exchange,
                                             LONGLONG comparand) {
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}
inline PVOID InterlockedExchangePointer(PVOID volatile* target, PVOID value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline PVOID InterlockedCompareExchangePointer(PVOID volatile* target, PVOID exchange,
                                               PVOID comparand) {
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}

namespace platform {

// Turns the call counter behind GetTickCount on (starting again from 1) or off.
void SetReproducibleTicks(bool on);

// An object a kernel handle refers to. Stand-ins derive their objects (security tokens, ...)
// from it and register them; the table holds one reference per open handle.
class KernelObject {
public:
    virtual ~KernelObject() = default;
};

// Opens a new handle to the object. Handles are never null, never a pseudo handle, and not
// reused while the process runs.
HANDLE RegisterHandle(std::shared_ptr<KernelObject> object);

// The object behind an open handle, or null (handle not open).
std::shared_ptr<KernelObject> LookupHandle(HANDLE handle);

// The object behind an open handle when it is of type T, else null.
template <class T>
std::shared_ptr<T> LookupHandleAs(HANDLE handle) {
    return std::dynamic_pointer_cast<T>(LookupHandle(handle));
}

// Number of open handles (for leak checks in tests).
std::size_t OpenHandleCount();

}  // namespace platform
