// Tests of WideCharToMultiByte / MultiByteToWideChar: size queries, -1 counts, buffer errors and
// invalid input.
#include <gtest/gtest.h>

#include <string>

#include "platform/win32/kernel.h"
#include "platform/win32/stringapiset.h"

TEST(WideCharToMultiByte, ConvertsCountsAndReplacesLoneSurrogates) {
    const wchar_t* text = L"caf\x00E9";
    int needed = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    EXPECT_EQ(needed, 6);  // five bytes and the NUL
    std::string out(needed, '?');
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), needed, nullptr, nullptr), 6);
    EXPECT_EQ(out, std::string("caf\xC3\xA9\0", 6));
    char small[8] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"abcdef", 3, small, 8, nullptr, nullptr), 3);
    EXPECT_STREQ(small, "abc");
    const wchar_t lone[] = {L'a', static_cast<wchar_t>(0xD800), L'b'};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, lone, 3, small, 8, nullptr, nullptr), 5);
    EXPECT_EQ(std::string(small, 5),
              "a\xEF\xBF\xBD"
              "b");
    SetLastError(0);
    EXPECT_EQ(
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone, 3, small, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    // A proper pair is one code point.
    const wchar_t pair[] = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, pair, 2, small, 8, nullptr, nullptr), 4);
}

TEST(WideCharToMultiByte, ErrorsSetTheLastError) {
    char out[2];
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, out, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, -1, out, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 0, out, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"a", 1, out, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    BOOL usedDefault = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 1, out, 2, nullptr, &usedDefault), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0x400, L"a", 1, out, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
}

TEST(MultiByteToWideChar, ConvertsAndRefusesInvalidInput) {
    const char* text = "\xE2\x82\xAC 5";
    int needed = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    EXPECT_EQ(needed, 4);
    std::wstring converted(needed, L'?');
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, converted.data(), needed), 4);
    EXPECT_EQ(converted, std::wstring(L"\x20AC 5\0", 4));
    wchar_t out[4];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a\xC0", 2, out, 4), 2);
    EXPECT_EQ(out[1], L'\xFFFD');
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xC0", 2, out, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abcdef", 6, out, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -2, out, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, nullptr, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetACP(), CP_UTF8);
}
