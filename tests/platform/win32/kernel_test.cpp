// Tests of the kernel basics: per-thread last error, tick counts, interlocked operations and the
// handle table.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/win32/kernel.h"

TEST(LastError, IsPerThreadAndInterlockedFollowsWindows) {
    SetLastError(ERROR_ACCESS_DENIED);
    DWORD seenOnOtherThread = 99;
    std::thread([&] {
        seenOnOtherThread = GetLastError();
        SetLastError(ERROR_FILE_NOT_FOUND);
    }).join();
    EXPECT_EQ(seenOnOtherThread, 0u);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    // Interlocked operations return what Windows returns.
    LONG value = 5;
    EXPECT_EQ(InterlockedIncrement(&value), 6);
    EXPECT_EQ(InterlockedDecrement(&value), 5);
    EXPECT_EQ(InterlockedExchange(&value, 9), 5);
    EXPECT_EQ(InterlockedExchangeAdd(&value, 3), 9);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(InterlockedCompareExchange(&value, 1, 99), 12);  // no match: unchanged
    EXPECT_EQ(value, 12);
    EXPECT_EQ(InterlockedCompareExchange(&value, 1, 12), 12);
    EXPECT_EQ(value, 1);
    LONG big = 0x7FFFFFFF;
    EXPECT_EQ(InterlockedIncrement(&big), static_cast<LONG>(0x80000000u));  // wraps as on Windows
    int a = 0;
    int b = 0;
    PVOID pointer = &a;
    EXPECT_EQ(InterlockedCompareExchangePointer(&pointer, &b, &a), &a);
    EXPECT_EQ(pointer, &b);
}

namespace {
struct Probe : platform::KernelObject {
    explicit Probe(bool* destroyed) : destroyed(destroyed) {}
    ~Probe() override { *destroyed = true; }
    bool* destroyed;
};
}  // namespace

TEST(Handles, CloseReleasesTheObjectOnce) {
    bool destroyed = false;
    std::size_t before = platform::OpenHandleCount();
    HANDLE handle = platform::RegisterHandle(std::make_shared<Probe>(&destroyed));
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(platform::OpenHandleCount(), before + 1);
    EXPECT_NE(platform::LookupHandleAs<Probe>(handle), nullptr);
    EXPECT_TRUE(CloseHandle(handle));
    EXPECT_TRUE(destroyed);
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_FALSE(CloseHandle(GetCurrentProcess()));
    EXPECT_EQ(platform::LookupHandle(handle), nullptr);
}
