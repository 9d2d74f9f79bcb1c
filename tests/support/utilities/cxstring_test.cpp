// Tests of CXString: construction, search, replace, delete, span and buffer edge cases.
#include <gtest/gtest.h>

#include <cwchar>

#include "support/utilities/cxstring.h"
#include "support/utilities/zorunutilities.h"

TEST(CXString, ConstructionAndNulls) {
    CXString empty(static_cast<const wchar_t*>(nullptr));
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_STREQ(static_cast<const wchar_t*>(empty), L"");
    CXString narrow("caf\xC3\xA9");
    EXPECT_EQ(narrow, L"caf\x00E9");
    CXString fromNullNarrow(static_cast<const char*>(nullptr));
    EXPECT_EQ(fromNullNarrow.GetLength(), 0);
    CXString copy(narrow);
    copy += L"!";
    EXPECT_EQ(narrow, L"caf\x00E9");  // value semantics
    EXPECT_EQ(copy, L"caf\x00E9!");
}

TEST(CXString, ConcatenationAndSelfAppend) {
    CXString a(L"ab");
    EXPECT_EQ(L"x" + a, L"xab");
    EXPECT_EQ(a + L"y", L"aby");
    EXPECT_EQ(a + a, L"abab");
    a += a;
    EXPECT_EQ(a, L"abab");
    a += static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(a, L"abab");
    a = a.GetString() + 2;  // assigning from its own text
    EXPECT_EQ(a, L"ab");
}

TEST(CXString, LeftRightMidClamp) {
    CXString s(L"abcdef");
    EXPECT_EQ(s.Left(2), L"ab");
    EXPECT_EQ(s.Left(-1), L"");
    EXPECT_EQ(s.Left(100), L"abcdef");
    EXPECT_EQ(s.Right(2), L"ef");
    EXPECT_EQ(s.Right(0), L"");
    EXPECT_EQ(s.Right(100), L"abcdef");
    EXPECT_EQ(s.Mid(4), L"ef");
    EXPECT_EQ(s.Mid(6), L"");
    EXPECT_EQ(s.Mid(60), L"");
    EXPECT_EQ(s.Mid(-3), L"abcdef");
    EXPECT_EQ(s.Mid(1, 2), L"bc");
}

TEST(CXString, FindAndReverseFind) {
    CXString s(L"a/b/c");
    EXPECT_EQ(s.Find(L'/'), 1);
    EXPECT_EQ(s.Find(L'/', 2), 3);
    EXPECT_EQ(s.Find(L'x'), -1);
    EXPECT_EQ(s.Find(L'\0'), -1);
    EXPECT_EQ(s.Find(L"b/c"), 2);
    EXPECT_EQ(s.Find(L"c/"), -1);
    EXPECT_EQ(s.Find(L""), 0);
    EXPECT_EQ(s.Find(static_cast<const wchar_t*>(nullptr)), -1);
    EXPECT_EQ(s.Find(L"a", 99), -1);
    EXPECT_EQ(s.ReverseFind(L'/'), 3);
    EXPECT_EQ(s.ReverseFind(L'q'), -1);
    EXPECT_EQ(CXString().Find(L'a'), -1);
    EXPECT_EQ(CXString().ReverseFind(L'a'), -1);
}

TEST(CXString, ReplaceCountsNonOverlappingMatches) {
    CXString s(L"aaaa");
    EXPECT_EQ(s.Replace(L"aa", L"b"), 2);
    EXPECT_EQ(s, L"bb");
    CXString t(L"x.y.z");
    EXPECT_EQ(t.Replace(L".", L"::"), 2);
    EXPECT_EQ(t, L"x::y::z");
    EXPECT_EQ(t.Replace(L"::", static_cast<const wchar_t*>(nullptr)), 2);
    EXPECT_EQ(t, L"xyz");
    EXPECT_EQ(t.Replace(L"", L"q"), 0);
    EXPECT_EQ(t.Replace(static_cast<const wchar_t*>(nullptr), L"q"), 0);
    EXPECT_EQ(t.Replace(L"nothing", L"q"), 0);
    EXPECT_EQ(t, L"xyz");
    // Replacement text containing the searched text does not loop.
    CXString u(L"ab");
    EXPECT_EQ(u.Replace(L"a", L"aa"), 1);
    EXPECT_EQ(u, L"aab");
}

TEST(CXString, DeleteReturnsTheNewLength) {
    CXString s(L"abcdef");
    EXPECT_EQ(s.Delete(1, 2), 4);
    EXPECT_EQ(s, L"adef");
    EXPECT_EQ(s.Delete(2, 100), 2);
    EXPECT_EQ(s, L"ad");
    EXPECT_EQ(s.Delete(5, 1), 2);   // beyond the end: nothing
    EXPECT_EQ(s.Delete(-1, 1), 2);  // negative index: nothing
    EXPECT_EQ(s.Delete(0, 0), 2);
    EXPECT_EQ(s.Delete(0, -3), 2);
    EXPECT_EQ(s.Delete(0), 1);
    EXPECT_EQ(s, L"d");
}

TEST(CXString, SpanExcluding) {
    CXString s(L"name=value;x");
    EXPECT_EQ(s.SpanExcluding(L"=;"), L"name");
    EXPECT_EQ(s.SpanExcluding(L"#"), L"name=value;x");
    EXPECT_EQ(s.SpanExcluding(L""), L"name=value;x");
    EXPECT_EQ(s.SpanExcluding(nullptr), L"name=value;x");
    EXPECT_EQ(s.SpanExcluding(L"n"), L"");
    EXPECT_EQ(CXString().SpanExcluding(L"a"), L"");
    EXPECT_EQ(CXString(L"aab").SpanIncluding(L"a"), L"aa");
}

TEST(CXString, CompareIsThreeWay) {
    CXString s(L"abc");
    EXPECT_EQ(s.Compare(L"abc"), 0);
    EXPECT_LT(s.Compare(L"abd"), 0);
    EXPECT_GT(s.Compare(L"ab"), 0);
    EXPECT_GT(s.Compare(nullptr), 0);
    EXPECT_EQ(CXString().Compare(nullptr), 0);
    EXPECT_LT(s.Compare(L"ABC") * -1, 0);  // case-sensitive: 'a' > 'A'
    EXPECT_EQ(s.CompareNoCase(L"ABC"), 0);
    EXPECT_GT(CXString(L"\x00E9").Compare(L"z"), 0);  // by character value
}

TEST(CXString, GetBufferTakesTheLengthFromTheNul) {
    CXString s(L"ab");
    wchar_t* buffer = s.GetBuffer(10);
    std::wcscpy(buffer, L"hello");
    EXPECT_EQ(s.GetLength(), 5);
    EXPECT_EQ(s, L"hello");
    // Nothing written: the old text stays.
    CXString t(L"keep");
    t.GetBuffer(50);
    EXPECT_EQ(t, L"keep");
    // A smaller request still gives the whole current text.
    wchar_t* same = t.GetBuffer(1);
    same[2] = L'\0';
    EXPECT_EQ(t, L"ke");
    CXString u;
    u.GetBuffer(-5);
    EXPECT_TRUE(u.IsEmpty());
}

TEST(CXString, GetBufferSetLengthFixesTheLength) {
    CXString s;
    wchar_t* buffer = s.GetBufferSetLength(3);
    buffer[0] = L'x';
    buffer[1] = L'\0';
    buffer[2] = L'y';
    EXPECT_EQ(s.GetLength(), 3);  // embedded NUL kept
    EXPECT_EQ(s.Right(1), L"y");
    s.GetBufferSetLength(1);
    EXPECT_EQ(s, L"x");
    s.GetBufferSetLength(-2);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(CXString, FormatFollowsWindowsRules) {
    CXString s;
    s.Format(L"%s has %d (%S)", L"wide", 3, "narrow");
    EXPECT_EQ(s, L"wide has 3 (narrow)");
    s.Format(L"%ld", static_cast<long long>(0x1FFFFFFFFLL));
    EXPECT_EQ(s, L"-1");
    s.Format(L"%q");
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_TRUE(ZorunUtilities::LastFormatFailed());
    s.AppendFormat(L"%d", 5);
    s.AppendFormat(L"-%d", 6);
    EXPECT_EQ(s, L"5-6");
}

TEST(CXString, TrimAndCase) {
    CXString s(L"  Mixed Case\t\r\n");
    s.Trim();
    EXPECT_EQ(s, L"Mixed Case");
    EXPECT_EQ(CXString(s).MakeUpper(), L"MIXED CASE");
    EXPECT_EQ(CXString(s).MakeLower(), L"mixed case");
    EXPECT_EQ(s.Insert(5, L","), 11);
    EXPECT_EQ(s, L"Mixed, Case");
    EXPECT_EQ(s.ToUtf8(), "Mixed, Case");
}
