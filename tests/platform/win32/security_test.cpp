// Tests of tokens and thread impersonation bookkeeping.
#include <gtest/gtest.h>

#include <thread>

#include "platform/win32/kernel.h"
#include "platform/win32/security.h"

TEST(Tokens, ImpersonateAndRevert) {
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
    EXPECT_FALSE(platform::IsThreadImpersonating());
    EXPECT_TRUE(SetThreadToken(nullptr, token));
    EXPECT_TRUE(platform::IsThreadImpersonating());
    HANDLE threadToken = nullptr;
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &threadToken));
    EXPECT_NE(threadToken, nullptr);
    EXPECT_TRUE(CloseHandle(threadToken));
    EXPECT_TRUE(SetThreadToken(nullptr, nullptr));
    EXPECT_FALSE(platform::IsThreadImpersonating());
    SetLastError(0);
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &threadToken));
    EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);
    EXPECT_EQ(threadToken, nullptr);

    // Impersonation is per thread, and the thread keeps its token after the handle closes.
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    bool otherImpersonating = true;
    std::thread([&] { otherImpersonating = platform::IsThreadImpersonating(); }).join();
    EXPECT_FALSE(otherImpersonating);
    EXPECT_TRUE(CloseHandle(token));
    EXPECT_TRUE(platform::IsThreadImpersonating());
    EXPECT_TRUE(RevertToSelf());
    EXPECT_FALSE(platform::IsThreadImpersonating());
    // A closed token cannot be impersonated.
    EXPECT_FALSE(SetThreadToken(nullptr, token));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Tokens, BadArguments) {
    SetLastError(0);
    int notAHandle = 0;
    EXPECT_FALSE(SetThreadToken(nullptr, &notAHandle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(platform::IsThreadImpersonating());
    EXPECT_FALSE(ImpersonateLoggedOnUser(nullptr));
    HANDLE token = nullptr;
    EXPECT_FALSE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(OpenProcessToken(GetCurrentThread(), TOKEN_QUERY, &token));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    HANDLE other = reinterpret_cast<HANDLE>(0x1234);
    EXPECT_FALSE(SetThreadToken(&other, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}
