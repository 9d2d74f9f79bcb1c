#include <gtest/gtest.h>

#include "platform/com/com.h"

TEST(Bstr, NullIsTheEmptyString) {
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    SysFreeString(nullptr);  // no effect
    BSTR empty = SysAllocString(L"");
    EXPECT_EQ(VarBstrCmp(nullptr, empty, LOCALE_USER_DEFAULT, 0), VARCMP_EQ);
    SysFreeString(empty);
}

TEST(Bstr, EmbeddedNulsSurviveAndCount) {
    const wchar_t text[] = {L'a', L'\0', L'b'};
    BSTR s = SysAllocStringLen(text, 3);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(SysStringLen(s), 3u);
    EXPECT_EQ(SysStringByteLen(s), 3u * sizeof(wchar_t));
    EXPECT_EQ(s[2], L'b');
    EXPECT_EQ(s[3], L'\0');  // always terminated
    BSTR shorter = SysAllocStringLen(text, 1);
    // Equal up to the shorter length: the longer one sorts after.
    EXPECT_EQ(VarBstrCmp(shorter, s, LOCALE_USER_DEFAULT, 0), VARCMP_LT);
    EXPECT_EQ(VarBstrCmp(s, shorter, LOCALE_USER_DEFAULT, 0), VARCMP_GT);
    SysFreeString(shorter);
    SysFreeString(s);
}

TEST(Bstr, ReallocAcceptsItsOwnText) {
    BSTR s = SysAllocString(L"hello world");
    ASSERT_TRUE(SysReAllocStringLen(&s, s + 6, 5));
    EXPECT_STREQ(s, L"world");
    EXPECT_EQ(SysStringLen(s), 5u);
    SysFreeString(s);
}

TEST(Bstr, ByteLengthAllocationKeepsOddByteCounts) {
    BSTR s = SysAllocStringByteLen("abc", 3);
    EXPECT_EQ(SysStringByteLen(s), 3u);
    EXPECT_EQ(SysStringLen(s), 0u);  // less than one whole wide character
    SysFreeString(s);
}

TEST(Bstr, CompareIsCaseSensitiveUnlessAsked) {
    CComBSTR upper(L"PageMediaSize");
    CComBSTR lower(L"pagemediasize");
    EXPECT_EQ(VarBstrCmp(upper, lower, LOCALE_USER_DEFAULT, 0), VARCMP_LT);
    EXPECT_EQ(VarBstrCmp(upper, lower, LOCALE_USER_DEFAULT, NORM_IGNORECASE), VARCMP_EQ);
}
