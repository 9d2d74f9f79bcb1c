// kernel.cpp: last error, tick counts, process/thread ids and the handle table.
#include "platform/win32/kernel.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <unordered_map>

namespace {

thread_local DWORD t_lastError = 0;

struct HandleTable {
    std::mutex lock;
    std::unordered_map<UINT_PTR, std::shared_ptr<platform::KernelObject>> objects;
    // Handles count up in steps of 4 like Windows handles, starting well clear of the pseudo
    // handles (-1, -2) and of small integers that code might confuse with handles.
    UINT_PTR next = 0x1000;
};

HandleTable& Table() {
    static HandleTable* table = new HandleTable;  // outlives every static destructor
    return *table;
}

ULONGLONG MonotonicMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000u +
           static_cast<ULONGLONG>(now.tv_nsec) / 1000000u;
}

std::atomic<bool> g_reproducibleTicks{false};
std::atomic<DWORD> g_tickCalls{0};

}  // namespace

DWORD GetLastError() {
    return t_lastError;
}
void SetLastError(DWORD error) {
    t_lastError = error;
}

DWORD GetTickCount() {
    if (g_reproducibleTicks.load(std::memory_order_relaxed)) {
        return g_tickCalls.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return static_cast<DWORD>(MonotonicMilliseconds());
}
ULONGLONG GetTickCount64() {
    return MonotonicMilliseconds();
}

DWORD GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}
DWORD GetCurrentThreadId() {
    return static_cast<DWORD>(syscall(SYS_gettid));
}

BOOL CloseHandle(HANDLE handle) {
    std::shared_ptr<platform::KernelObject> released;  // destroyed outside the lock
    {
        HandleTable& table = Table();
        std::lock_guard guard(table.lock);
        auto found = table.objects.find(reinterpret_cast<UINT_PTR>(handle));
        if (found == table.objects.end()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        released = std::move(found->second);
        table.objects.erase(found);
    }
    return TRUE;
}

namespace platform {

void SetReproducibleTicks(bool on) {
    g_tickCalls.store(0);
    g_reproducibleTicks.store(on);
}

HANDLE RegisterHandle(std::shared_ptr<KernelObject> object) {
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    UINT_PTR value = table.next;
    table.next += 4;
    table.objects.emplace(value, std::move(object));
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle) {
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    auto found = table.objects.find(reinterpret_cast<UINT_PTR>(handle));
    return found == table.objects.end() ? nullptr : found->second;
}

std::size_t OpenHandleCount() {
    HandleTable& table = Table();
    std::lock_guard guard(table.lock);
    return table.objects.size();
}

}  // namespace platform
