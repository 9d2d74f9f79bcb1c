// Tests of CXString, ByteBuffer and the formatters: construction, search, replace, delete, span
// and buffer edge cases, Windows format rules and how formatting failures are reported.
#include <gtest/gtest.h>

#include <cwchar>
#include <thread>

#include "support/utilities/bytebuffer.h"
#include "support/utilities/cxstring.h"
#include "support/utilities/zorunutilities.h"

namespace {

// A row is the expression as written, what it gave, and what it should give; rows are evaluated
// in order, so a row may see the effect of the rows before it on a string it changes.
template <class T>
struct Row {
    const char* name;
    T actual, expected;
};
#define ROW(expression, expected) \
    { #expression, expression, expected }

template <class T>
void Check(const std::vector<Row<T>>& rows) {
    for (const Row<T>& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.actual, row.expected);
    }
}

TEST(CXString, TextResults) {
    CXString s(L"abcdef"), a(L"ab"), nul(static_cast<const wchar_t*>(nullptr));
    CXString narrow("caf\xC3\xA9"), copy(narrow), spans(L"name=value;x");
    copy += L"!";
    // clang-format off
    Check<CXString>({
        ROW(nul, L""), ROW(narrow, L"caf\x00E9"), ROW(copy, L"caf\x00E9!"),
        ROW(CXString(static_cast<const char*>(nullptr)), L""), ROW(L"x" + a, L"xab"),
        ROW(a + L"y", L"aby"), ROW(a + a, L"abab"), ROW(s.Left(2), L"ab"), ROW(s.Left(-1), L""),
        ROW(s.Left(100), L"abcdef"), ROW(s.Right(2), L"ef"), ROW(s.Right(0), L""),
        ROW(s.Right(100), L"abcdef"), ROW(s.Mid(4), L"ef"), ROW(s.Mid(6), L""), ROW(s.Mid(60), L""),
        ROW(s.Mid(-3), L"abcdef"), ROW(s.Mid(1, 2), L"bc"), ROW(spans.SpanExcluding(L"=;"), L"name"),
        ROW(spans.SpanExcluding(L"#"), L"name=value;x"), ROW(spans.SpanExcluding(L""), L"name=value;x"),
        ROW(spans.SpanExcluding(nullptr), L"name=value;x"), ROW(spans.SpanExcluding(L"n"), L""),
        ROW(CXString().SpanExcluding(L"a"), L""), ROW(CXString(L"aab").SpanIncluding(L"a"), L"aa"),
        ROW(CXString(L"Mixed Case").MakeUpper(), L"MIXED CASE"),
        ROW(CXString(L"Mixed Case").MakeLower(), L"mixed case"),
        ROW(CXString(L"  Mixed Case\t\r\n").Trim(), L"Mixed Case"), ROW(a + L'!', L"ab!"),
        ROW(CXString(L"abc", 2), L"ab"), ROW(CXString(L"abc", -1), L""), ROW(CXString(L"ab") += L'c', L"abc")});
    // clang-format on
    a += a;
    a += static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(a, L"abab");
    a = a.GetString() + 2;  // assigning from its own text
    EXPECT_EQ(a, L"ab");
    EXPECT_EQ(CXString(L"Mixed Case").Insert(5, L","), 11);
    EXPECT_EQ(CXString(L"Mixed, Case").ToUtf8(), "Mixed, Case");
}

TEST(CXString, SearchCompareReplaceDelete) {
    CXString s(L"a/b/c"), t(L"x.y.z"), u(L"aaaa"), v(L"ab"), d(L"abcdef"), c(L"abc");
    Check<int>({ROW(s.Find(L'/'), 1), ROW(s.Find(L'/', 2), 3), ROW(s.Find(L'x'), -1),
                ROW(s.Find(L'\0'), -1), ROW(s.Find(L"b/c"), 2), ROW(s.Find(L"c/"), -1),
                ROW(s.Find(L""), 0), ROW(s.Find(static_cast<const wchar_t*>(nullptr)), -1),
                ROW(s.Find(L"a", 99), -1), ROW(s.ReverseFind(L'/'), 3),
                ROW(s.ReverseFind(L'q'), -1), ROW(CXString().Find(L'a'), -1),
                ROW(CXString().ReverseFind(L'a'), -1), ROW(c.Compare(L"abc"), 0),
                ROW(c.Compare(L"abd") < 0, true), ROW(c.Compare(L"ab") > 0, true),
                ROW(c.Compare(nullptr) > 0, true), ROW(CXString().Compare(nullptr), 0),
                ROW(c.Compare(L"ABC") > 0, true), ROW(c.CompareNoCase(L"ABC"), 0),
                ROW(CXString(L"\x00E9").Compare(L"z") > 0, true),
                // Non-overlapping matches are counted; replacement text holding the match does
                // not loop.
                ROW(u.Replace(L"aa", L"b"), 2), ROW(u.Compare(L"bb"), 0),
                ROW(t.Replace(L".", L"::"), 2), ROW(t.Compare(L"x::y::z"), 0),
                ROW(t.Replace(L"::", static_cast<const wchar_t*>(nullptr)), 2),
                ROW(t.Replace(L"", L"q"), 0),
                ROW(t.Replace(static_cast<const wchar_t*>(nullptr), L"q"), 0),
                ROW(t.Replace(L"nothing", L"q"), 0), ROW(t.Compare(L"xyz"), 0),
                ROW(v.Replace(L"a", L"aa"), 1), ROW(v.Compare(L"aab"), 0),
                ROW(CXString(L"a.b.c").Replace(L'.', L'/'), 2), ROW(s.FindOneOf(L"c/"), 1),
                ROW(s.FindOneOf(L"xyz"), -1), ROW(s.FindOneOf(L""), -1), ROW(L"a/b/c" == s, true),
                ROW(s != CXString(L"a/b"), true), ROW(s != L"a/b/c", false), ROW(L"a" != s, true),
                ROW(s < CXString(L"b"), true), ROW(CXString(L"b") < s, false),
                // Delete returns the new length; out-of-range arguments delete nothing.
                ROW(d.Delete(1, 2), 4), ROW(d.Compare(L"adef"), 0), ROW(d.Delete(2, 100), 2),
                ROW(d.Delete(5, 1), 2), ROW(d.Delete(-1, 1), 2), ROW(d.Delete(0, 0), 2),
                ROW(d.Delete(0, -3), 2), ROW(d.Delete(0), 1), ROW(d.Compare(L"d"), 0)});
}

TEST(CXString, BuffersTakeTheLengthFromTheNulOrAsSet) {
    CXString s(L"ab");
    std::wcscpy(s.GetBuffer(10), L"hello");
    EXPECT_EQ(s.GetLength(), 5);
    EXPECT_EQ(s, L"hello");
    s.GetBuffer(10)[1] = L'\0';
    s.ReleaseBuffer();  // the length from the NUL
    EXPECT_EQ(s, L"h");
    std::wcscpy(s.GetBuffer(10), L"hello");
    s.ReleaseBuffer(2);  // the length as given
    EXPECT_EQ(s, L"he");
    CXString t(L"keep");
    t.GetBuffer(50);  // nothing written: the old text stays
    EXPECT_EQ(t, L"keep");
    t.GetBuffer(1)[2] = L'\0';  // a smaller request still gives the whole current text
    EXPECT_EQ(t, L"ke");
    CXString u;
    u.GetBuffer(-5);
    EXPECT_TRUE(u.IsEmpty());
    wchar_t* buffer = u.GetBufferSetLength(3);
    buffer[0] = L'x';
    buffer[1] = L'\0';
    buffer[2] = L'y';
    EXPECT_EQ(u.GetLength(), 3);  // embedded NUL kept
    EXPECT_EQ(u.Right(1), L"y");
    u.GetBufferSetLength(1);
    EXPECT_EQ(u, L"x");
    u.GetBufferSetLength(-2);
    EXPECT_TRUE(u.IsEmpty());
}

TEST(CXString, FormatFollowsWindowsRules) {
    using ZorunUtilities::formatString;
    using ZorunUtilities::LastFormatFailed;
    using ZorunUtilities::SafeFormatString;
    CXString s;
    s.Format(L"%s has %d (%S)", L"wide", 3, "narrow");
    EXPECT_EQ(s, L"wide has 3 (narrow)");
    s.Format(L"%ld", static_cast<long long>(0x1FFFFFFFFLL));
    EXPECT_EQ(s, L"-1");
    s.Format(L"%q");
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_TRUE(LastFormatFailed());
    s.AppendFormat(L"%d", 5);
    s.AppendFormat(L"-%d", 6);
    EXPECT_EQ(s, L"5-6");
    EXPECT_EQ(SafeFormatString("%s=%S", "key", L"\x00E9"), L"key=\x00E9");
    EXPECT_FALSE(LastFormatFailed());
    EXPECT_EQ(SafeFormatString(L"%s=%S", L"key", "value"), L"key=value");
    EXPECT_EQ(formatString("%ld|%I64d", 7, static_cast<long long>(1) << 40), L"7|1099511627776");
    EXPECT_EQ(SafeFormatString("[%s]", std::string(100000, 'x').c_str()).GetLength(), 100002);
    // Failures give an empty text (formatString: the format itself) and set a per-thread flag.
    EXPECT_TRUE(SafeFormatString("%y", 1).IsEmpty());
    EXPECT_TRUE(LastFormatFailed());
    bool otherThreadFlag = true;
    std::thread([&] { otherThreadFlag = LastFormatFailed(); }).join();
    EXPECT_FALSE(otherThreadFlag);
    EXPECT_TRUE(SafeFormatString(static_cast<const char*>(nullptr)).IsEmpty());
    EXPECT_TRUE(LastFormatFailed());
    SafeFormatString("%d", 1);
    EXPECT_TRUE(SafeFormatString(L"%n", nullptr).IsEmpty());
    EXPECT_TRUE(LastFormatFailed());
    EXPECT_EQ(formatString("bad %y here"), L"bad %y here");
    EXPECT_EQ(SafeFormatString(""), L"");
    EXPECT_FALSE(LastFormatFailed());
}

TEST(Paths, FileAndModuleNames) {
    using ZorunUtilities::getFileNameFromFullPath;
    Check<CXString>({ROW(getFileNameFromFullPath(L"C:\\dir\\file.dll"), L"file.dll"),
                     ROW(getFileNameFromFullPath(L"/usr/lib/libx.so"), L"libx.so"),
                     ROW(getFileNameFromFullPath(L"mixed/a\\b.txt"), L"b.txt"),
                     ROW(getFileNameFromFullPath(L"plain"), L"plain"),
                     ROW(getFileNameFromFullPath(L"dir/"), L""),
                     ROW(getFileNameFromFullPath(L""), L"")});
    // An address inside the utility library names the library; null names the program.
    CXString library = ZorunUtilities::getModuleName(
        reinterpret_cast<HINSTANCE>(&ZorunUtilities::LastFormatFailed));
    EXPECT_EQ(library.Find(L"libzorunutilities.so"), 0) << library.ToUtf8();
    EXPECT_EQ(ZorunUtilities::getModuleName(nullptr), L"utilities_tests");
    int onTheStack = 0;
    EXPECT_EQ(ZorunUtilities::getModuleName(&onTheStack), L"");
}

TEST(ByteBuffer, DwordsAndAnsiText) {
    auto bytes = [](const char* data, std::size_t size) {
        ByteBuffer buffer;
        buffer.appendLpbyte(reinterpret_cast<const unsigned char*>(data), size);
        return buffer;
    };
    EXPECT_EQ(bytes("\x78\x56\x34\x12\xFF", 5).getDword(), 0x12345678u);  // little-endian
    EXPECT_EQ(bytes("\xFE\xFF\xFF\xFF", 4).getAsLongValue(), -2);
    EXPECT_EQ(bytes("\xFE\xFF\xFF\xFF", 4).getDword(), 0xFFFFFFFEu);
    EXPECT_EQ(bytes("\x78\x56", 2).getDword(), 0x5678u);
    EXPECT_EQ(ByteBuffer().getDword(), 0u);
    EXPECT_EQ(ByteBuffer(std::allocator<unsigned char>()).getLpbyte(), nullptr);  // empty
    EXPECT_EQ(*bytes("ab", 2).getLpbyte(), 'a');
    EXPECT_TRUE(
        bytes(nullptr, 10).appendLpbyte(reinterpret_cast<const unsigned char*>("a"), 0).empty());
    EXPECT_EQ(bytes("caf\xC3\xA9\0tail", 10).getAsStringValueFromAnsiBuffer(), L"caf\x00E9");
    EXPECT_EQ(bytes("xyz", 3).getAsStringValueFromAnsiBuffer(), L"xyz");  // no NUL at all
}

}  // namespace
