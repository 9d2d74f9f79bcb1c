#include <gtest/gtest.h>

#include <cwchar>
#include <vector>

#include "platform/com/com.h"

TEST(Bstr, LengthsAndComparisons) {
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    SysFreeString(nullptr);  // no effect
    EXPECT_EQ(VarBstrCmp(nullptr, CComBSTR(L""), LOCALE_USER_DEFAULT, 0), VARCMP_EQ);
    const wchar_t text[] = {L'a', L'\0', L'b'};
    BSTR s = SysAllocStringLen(text, 3);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(SysStringLen(s), 3u);
    EXPECT_EQ(SysStringByteLen(s), 3u * sizeof(wchar_t));
    EXPECT_EQ(s[2], L'b');
    EXPECT_EQ(s[3], L'\0');  // always terminated
    // Equal up to the shorter length: the longer one sorts after.
    CComBSTR shorter(1, text);
    EXPECT_EQ(VarBstrCmp(shorter, s, LOCALE_USER_DEFAULT, 0), VARCMP_LT);
    EXPECT_EQ(VarBstrCmp(s, shorter, LOCALE_USER_DEFAULT, 0), VARCMP_GT);
    SysFreeString(s);
    // Case-sensitive unless asked.
    CComBSTR upper(L"PageMediaSize");
    CComBSTR lower(L"pagemediasize");
    EXPECT_EQ(VarBstrCmp(upper, lower, LOCALE_USER_DEFAULT, 0), VARCMP_LT);
    EXPECT_EQ(VarBstrCmp(upper, lower, LOCALE_USER_DEFAULT, NORM_IGNORECASE), VARCMP_EQ);
}

TEST(Bstr, AllocationForms) {
    // Reallocation accepts its own text.
    BSTR s = SysAllocString(L"hello world");
    ASSERT_TRUE(SysReAllocStringLen(&s, s + 6, 5));
    EXPECT_STREQ(s, L"world");
    EXPECT_EQ(SysStringLen(s), 5u);
    SysFreeString(s);
    // A byte-length allocation keeps odd byte counts.
    s = SysAllocStringByteLen("abc", 3);
    EXPECT_EQ(SysStringByteLen(s), 3u);
    EXPECT_EQ(SysStringLen(s), 0u);  // less than one whole wide character
    SysFreeString(s);
    // AllocateBstrToFill sets the length and the terminator only.
    s = platform::AllocateBstrToFill(5);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(SysStringLen(s), 5u);
    EXPECT_EQ(SysStringByteLen(s), 5u * sizeof(wchar_t));
    EXPECT_EQ(s[5], L'\0');
    std::wmemcpy(s, L"hello", 5);
    EXPECT_STREQ(s, L"hello");
    SysFreeString(s);

    BSTR empty = platform::AllocateBstrToFill(0);
    ASSERT_NE(empty, nullptr);  // an empty string, not a null BSTR
    EXPECT_EQ(SysStringLen(empty), 0u);
    EXPECT_EQ(empty[0], L'\0');
    SysFreeString(empty);

    EXPECT_EQ(platform::AllocateBstrToFill(0xFFFFFFFFu), nullptr);  // larger than a BSTR holds
}

TEST(Bstr, NullSourceGivesZeroedCharacters) {
    // Filled with garbage first, so that a block handed back by the allocator is not zero
    // merely by chance.
    std::vector<BSTR> used;
    for (int i = 0; i < 8; ++i) {
        BSTR s = platform::AllocateBstrToFill(1500);
        ASSERT_NE(s, nullptr);
        for (UINT k = 0; k < 1500; ++k) s[k] = L'x';
        used.push_back(s);
    }
    for (BSTR s : used) SysFreeString(s);
    for (int i = 0; i < 8; ++i) {
        BSTR zeroed = SysAllocStringLen(nullptr, 1500);
        ASSERT_NE(zeroed, nullptr);
        EXPECT_EQ(SysStringLen(zeroed), 1500u);
        for (UINT k = 0; k <= 1500; ++k) ASSERT_EQ(zeroed[k], L'\0') << k;
        SysFreeString(zeroed);
    }
    BSTR bytes = SysAllocStringByteLen(nullptr, 7);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(SysStringByteLen(bytes), 7u);
    for (int k = 0; k < 7; ++k) EXPECT_EQ(reinterpret_cast<const char*>(bytes)[k], '\0');
    SysFreeString(bytes);
}
