// Tests of the Microsoft runtime functions: the bounded formatters' return and termination
// contract, _wtoi/_wtol and the ASCII-only case-insensitive compares.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/win32/crt.h"

// Shorter output is terminated, an exact fit is not, truncation returns -1.
TEST(Vsnprintf, TerminationAndReturnFollowTheMicrosoftRuntime) {
    const struct {
        const char* name;
        std::size_t capacity;
        const char* text;
        int returned;
        const char* buffer;  // the five bytes after the call
    } rows[] = {
        {"shorter", 5, "123", 3, "123\0x"},
        {"exact fit", 3, "abc", 3, "abcxx"},
        {"truncated", 4, "abcdefgh", -1, "abcdx"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
        EXPECT_EQ(_snprintf(buffer, row.capacity, "%s", row.text), row.returned);
        EXPECT_EQ(std::memcmp(buffer, row.buffer, 5), 0);
    }
    // Size queries and bad arguments.
    EXPECT_EQ(_snprintf(nullptr, 0, "%s-%d", "ab", 12), 5);
    EXPECT_EQ(_snprintf(nullptr, 4, "x"), -1);
    char buffer[8] = "junk";
    errno = 0;
    EXPECT_EQ(_snprintf(buffer, sizeof buffer, "%q"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(_snprintf(buffer, sizeof buffer, nullptr), -1);
    // The wide form counts wide characters.
    wchar_t wide[6];
    EXPECT_EQ(_snwprintf(wide, 6, L"%s=%d", L"ab", 7), 4);
    EXPECT_STREQ(wide, L"ab=7");
    EXPECT_EQ(_snwprintf(wide, 3, L"%S", "abcd"), -1);
    EXPECT_EQ(std::wmemcmp(wide, L"abc", 3), 0);
    EXPECT_EQ(_snwprintf(nullptr, 0, L"%s", L"\x263A\x263A"), 2);
}

TEST(Wtoi, ParsesAndSaturatesLikeTheMicrosoftRuntime) {
    const struct {
        const wchar_t* text;
        int expected;
    } rows[] = {{L"  -42abc", -42},
                {L"+17", 17},
                {L"abc", 0},
                {L"", 0},
                {L"\t\n 8", 8},
                {L"-2147483648", INT_MIN},
                {L"2147483647", INT_MAX}};
    for (const auto& row : rows) EXPECT_EQ(_wtoi(row.text), row.expected);
    errno = 0;
    EXPECT_EQ(_wtoi(nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(_wtoi(L"99999999999"), INT_MAX);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(_wtol(L"-99999999999999999999999"), INT_MIN);
    EXPECT_EQ(_wtoi64(L"-9223372036854775808"), LLONG_MIN);
    EXPECT_EQ(_atoi64("9223372036854775808"), LLONG_MAX);
}

TEST(CaseInsensitiveCompare, FoldsAsciiOnly) {
    EXPECT_EQ(_stricmp("Zorun.DLL", "zorun.dll"), 0);
    EXPECT_LT(_stricmp("a", "B"), 0);
    EXPECT_EQ(_wcsicmp(L"ABC", L"abc"), 0);
    EXPECT_NE(_wcsicmp(L"\x00C9", L"\x00E9"), 0);
    EXPECT_EQ(_stricmp(nullptr, nullptr), 0);
    EXPECT_LT(_stricmp(nullptr, ""), 0);
}
