// Tests of Crc32, Number and Dimension.
#include <gtest/gtest.h>

#include <clocale>
#include <climits>
#include <cmath>
#include <string>

#include "support/utilities/crc32.h"
#include "support/utilities/dimension.h"
#include "support/utilities/number.h"

namespace {

TEST(Crc32, StandardCheckValues) {
    auto crc = [](std::string text) {
        return Crc32::GetCrc(reinterpret_cast<unsigned char*>(text.data()),
                             static_cast<unsigned long>(text.size()));
    };
    EXPECT_EQ(crc("123456789"), 0xCBF43926u);
    EXPECT_EQ(crc("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(crc(std::string(32, '\0')), 0x190A55ADu);
    EXPECT_EQ(crc(""), 0u);
    EXPECT_EQ(Crc32::GetCrc(nullptr, 10), 0u);
}

TEST(Number, ParsesDecimalTextWhateverTheLocale) {
    // clang-format off
    const struct { const wchar_t* text; double value; bool valid; } rows[] = {
        {L"12.5", 12.5, true}, {L"  -3.25 ", -3.25, true}, {L"+7", 7.0, true},
        {L"1e3", 1000.0, true}, {L" 42 ", 42.0, true}, {L"12abc", 12.0, false}, {L"", 0, false},
        {L"abc", 0, false}, {L"-", 0, false}, {L"+-1", 0, false}, {L"\x0661", 0, false},
        {L"1e-999", 0, true}, {L"1e999", INFINITY, true}, {L"-1e999", -INFINITY, true}};
    // clang-format on
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr)
        std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(row.text)));
        Number number(row.text);
        EXPECT_EQ(number.GetDoubleValue(), row.value);
        EXPECT_EQ(number.IsValid(), row.valid);
    }
    std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(Number, IntValuesAndColours) {
    EXPECT_EQ(Number(L"2.5").GetIntValue(0.499999), 2);  // exact half rounds down
    EXPECT_EQ(Number(L"2.6").GetIntValue(0.499999), 3);
    EXPECT_EQ(Number(L"2.9").GetIntValue(0.0), 2);
    EXPECT_EQ(Number(L"-2.9").GetIntValue(0.0), -2);  // toward zero
    EXPECT_EQ(Number(L"1e20").GetIntValue(0.0), INT_MAX);
    EXPECT_EQ(Number(L"-1e20").GetIntValue(0.0), INT_MIN);
    EXPECT_EQ(Number(std::nan("")).GetIntValue(0.5), 0);
    // Red is the low byte of a COLORREF; the top byte is ignored.
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x000000ul), L"#000000");
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x0000FFul), L"#FF0000");
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x00FF0000ul), L"#0000FF");
    EXPECT_EQ(Number::ConvertColorRefToHexString(0xFF123456ul), L"#563412");
}

TEST(Dimension, ConvertsBetweenUnits) {
    // The unit numbers are stored in saved attribute lists.
    EXPECT_EQ(std::vector<int>({Dimension::TenthsOfMillimeter, Dimension::Microns,
                                Dimension::HundredthsOfMillimeter, Dimension::ThousandthsOfInch}),
              std::vector<int>({6, 8, 9, 10}));
    Dimension letterWidth(2159.0, Dimension::TenthsOfMillimeter);
    // clang-format off
    const std::pair<Dimension::UnitsEnum, double> rows[] = {
        {Dimension::Microns, 215900.0}, {Dimension::Inches, 8.5}, {Dimension::Points, 612.0},
        {Dimension::Pixels96, 816.0}, {Dimension::Millimeters, 215.9},
        {Dimension::Centimeters, 21.59}, {static_cast<Dimension::UnitsEnum>(-1), 0.0}};
    // clang-format on
    for (const auto& [unit, value] : rows) {
        EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(unit), value) << unit;
    }
    Dimension gutter(12700.0, Dimension::Microns);
    EXPECT_EQ(gutter.GetValue(Dimension::HundredthsOfMillimeter).GetIntValue(0.499999), 1270);
    EXPECT_EQ(gutter.GetValue(Dimension::ThousandthsOfInch).GetIntValue(0.499999), 500);
    EXPECT_DOUBLE_EQ(Dimension(1.0, Dimension::Inches).GetDoubleValue(Dimension::Twips), 1440.0);
    EXPECT_DOUBLE_EQ(Dimension(1.0, Dimension::Inches).GetDoubleValue(Dimension::HundredthsOfInch),
                     100.0);
    EXPECT_EQ(letterWidth.GetUnit(), Dimension::TenthsOfMillimeter);
    EXPECT_EQ(letterWidth.GetOriginalValue(), 2159.0);
    Dimension odd(5.0, static_cast<Dimension::UnitsEnum>(42));  // unknown units give zero
    EXPECT_EQ(odd.GetDoubleValue(Dimension::Microns), 0.0);
    EXPECT_EQ(odd.GetDoubleValue(static_cast<Dimension::UnitsEnum>(42)), 0.0);
}

}  // namespace
