// Tests of the Windows-rules format engine: text conversions by format width, integer sizes,
// the "(null)" rule, locale independence and format errors.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <string>

#include "platform/win32/format.h"

using platform::FormatNarrow;
using platform::FormatWide;

namespace {

std::string N(const char* format, ...) {
    std::string out;
    va_list args;
    va_start(args, format);
    EXPECT_TRUE(platform::FormatNarrowV(out, format, args)) << format;
    va_end(args);
    return out;
}

std::wstring W(const wchar_t* format, ...) {
    std::wstring out;
    va_list args;
    va_start(args, format);
    EXPECT_TRUE(platform::FormatWideV(out, format, args));
    va_end(args);
    return out;
}

}  // namespace

TEST(FormatEngine, StringAndCharacterConversions) {
    EXPECT_EQ(W(L"[%s]", L"wide"), L"[wide]");
    EXPECT_EQ(W(L"[%S]", "narrow"), L"[narrow]");
    EXPECT_EQ(W(L"[%hs|%ls|%ws]", "h", L"l", L"w"), L"[h|l|w]");
    EXPECT_EQ(W(L"%c%C", L'\x263A', 'x'), L"\x263Ax");
    EXPECT_EQ(N("[%s]", "narrow"), "[narrow]");
    EXPECT_EQ(N("[%S]", L"wide \x00E9"), "[wide \xC3\xA9]");  // UTF-8 output
    EXPECT_EQ(N("[%hS|%lS]", "h", L"l"), "[h|l]");
    EXPECT_EQ(N("%c%C", 'a', L'\x00E9'), "a\xC3\xA9");
    EXPECT_EQ(W(L"%S", "caf\xC3\xA9"), L"caf\x00E9");
    // Malformed UTF-8 is repaired, not dropped.
    EXPECT_EQ(W(L"%S",
                "a\xFF"
                "b"),
              L"a\xFFFD"
              L"b");
    EXPECT_EQ(N("%s|%S", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr)),
              "(null)|(null)");
    EXPECT_EQ(W(L"%s", static_cast<const wchar_t*>(nullptr)), L"(null)");
    EXPECT_EQ(N("%.3s", static_cast<const char*>(nullptr)), "(nu");
    // "é" is two bytes; a precision of 2 keeps "a" only rather than half a character.
    EXPECT_EQ(N("%.2s", "a\xC3\xA9"), "a");
    EXPECT_EQ(N("%.2S", L"\x00E9\x00E9\x00E9"), "\xC3\xA9\xC3\xA9");
    EXPECT_EQ(N("a%cb", 0), std::string("a\0b", 3));  // character zero is kept
}

TEST(FormatEngine, NumbersFlagsAndWidths) {
    // A 64-bit value passed for %ld is read as 32 bits, as Windows' long is.
    EXPECT_EQ(N("%ld", static_cast<std::int64_t>(0x100000005LL)), "5");
    EXPECT_EQ(N("%lu", 0xFFFFFFFFu), "4294967295");
    EXPECT_EQ(N("%ld", -1), "-1");
    EXPECT_EQ(N("%lx", 0xDEADBEEFu), "deadbeef");
    EXPECT_EQ(W(L"%ld", -42), L"-42");
    EXPECT_EQ(N("%I64d", static_cast<long long>(-9000000000LL)), "-9000000000");
    EXPECT_EQ(N("%lld", static_cast<long long>(9000000000LL)), "9000000000");
    EXPECT_EQ(N("%I64X", 0x123456789ABCDEFull), "123456789ABCDEF");
    EXPECT_EQ(N("%Iu|%zu", static_cast<std::size_t>(1) << 40, static_cast<std::size_t>(7)),
              "1099511627776|7");
    EXPECT_EQ(N("%I32d", -5), "-5");
    EXPECT_EQ(N("%hd|%hhu", 70000, 258), "4464|2");
    EXPECT_EQ(N("[%5d|%-5d|%05d|%+d|% d]", 42, 42, 42, 42, 42), "[   42|42   |00042|+42| 42]");
    EXPECT_EQ(N("[%*d|%-*d|%.*f]", 4, 7, 3, 7, 2, 3.14159), "[   7|7  |3.14]");
    EXPECT_EQ(N("[%*s]", -4, "a"), "[a   ]");
    // A precision of zero from the arguments prints nothing; a negative one means none.
    EXPECT_EQ(N("[%.*s|%.*s]", 0, "abc", -1, "abc"), "[|abc]");
    EXPECT_EQ(N("[%.2s|%6.2s]", "abcdef", "abcdef"), "[ab|    ab]");
    EXPECT_EQ(W(L"[%5s|%-5s]", L"ab", L"ab"), L"[   ab|ab   ]");
    EXPECT_EQ(N("%#x|%#o", 255u, 8u), "0xff|010");
    EXPECT_EQ(N("100%%"), "100%");
    EXPECT_EQ(N("%.3f|%e|%g", 1.5, 12345.678, 0.0001), "1.500|1.234568e+04|0.0001");
    EXPECT_EQ(W(L"%.1f", 2.25), L"2.2");
    EXPECT_EQ(N("%p", reinterpret_cast<void*>(0xABCDEF)), "0000000000ABCDEF");
    EXPECT_EQ(N("%Lf", static_cast<long double>(0.5)), "0.500000");
    const char* previous = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = previous != nullptr ? previous : "C";
    // A locale with a decimal comma, where one is installed; the result must not change.
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
        std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    }
    EXPECT_EQ(N("%.2f", 1.25), "1.25");
    std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(FormatEngine, FormatErrorsStopAndReportFailure) {
    std::string out;
    EXPECT_FALSE(FormatNarrow(out, "ok %q", 1));
    EXPECT_EQ(out, "ok ");
    int written = 0;
    EXPECT_FALSE(FormatNarrow(out, "%n", &written));
    EXPECT_EQ(written, 0);
    EXPECT_FALSE(FormatNarrow(out, "%1$d", 5));
    EXPECT_FALSE(FormatNarrow(out, "trailing %"));
    EXPECT_FALSE(FormatNarrow(out, "%hhs", "x"));
    EXPECT_FALSE(FormatNarrow(out, "%99999999d", 1));
    EXPECT_FALSE(FormatNarrow(out, nullptr));
    std::wstring wide;
    EXPECT_FALSE(FormatWide(wide, L"%y"));
    EXPECT_FALSE(FormatWide(wide, L"%Is", L"x"));
}
