// Tests of Crc32, Number and Dimension.
#include <gtest/gtest.h>

#include <clocale>
#include <climits>
#include <cmath>
#include <string>

#include "support/utilities/crc32.h"
#include "support/utilities/dimension.h"
#include "support/utilities/number.h"

TEST(Crc32, StandardCheckValues) {
    std::string check = "123456789";
    EXPECT_EQ(Crc32::GetCrc(reinterpret_cast<unsigned char*>(check.data()), 9), 0xCBF43926u);
    std::string fox = "The quick brown fox jumps over the lazy dog";
    EXPECT_EQ(Crc32::GetCrc(reinterpret_cast<unsigned char*>(fox.data()),
                            static_cast<unsigned long>(fox.size())),
              0x414FA339u);
    unsigned char zeros[32] = {};
    EXPECT_EQ(Crc32::GetCrc(zeros, 32), 0x190A55ADu);
    EXPECT_EQ(Crc32::GetCrc(zeros, 0), 0u);
    EXPECT_EQ(Crc32::GetCrc(nullptr, 10), 0u);
}

TEST(Number, ParsesDecimalText) {
    EXPECT_DOUBLE_EQ(Number(L"12.5").GetDoubleValue(), 12.5);
    EXPECT_DOUBLE_EQ(Number(L"  -3.25 ").GetDoubleValue(), -3.25);
    EXPECT_DOUBLE_EQ(Number(L"+7").GetDoubleValue(), 7.0);
    EXPECT_DOUBLE_EQ(Number(L"1e3").GetDoubleValue(), 1000.0);
    EXPECT_TRUE(Number(L" 42 ").IsValid());
    Number trailing(L"12abc");
    EXPECT_DOUBLE_EQ(trailing.GetDoubleValue(), 12.0);
    EXPECT_FALSE(trailing.IsValid());
    for (const wchar_t* bad : {L"", L"abc", L"-", L"+-1", L"\x0661"}) {
        Number n(bad);
        EXPECT_EQ(n.GetDoubleValue(), 0.0);
        EXPECT_FALSE(n.IsValid());
    }
    EXPECT_TRUE(std::isinf(Number(L"1e999").GetDoubleValue()));
    EXPECT_EQ(Number(L"1e-999").GetDoubleValue(), 0.0);
}

TEST(Number, ParsingIgnoresTheLocale) {
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr)
        std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    EXPECT_DOUBLE_EQ(Number(L"2.5").GetDoubleValue(), 2.5);
    std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(Number, IntValueAddsTheOffsetThenTruncates) {
    EXPECT_EQ(Number(L"2.5").GetIntValue(0.499999), 2);  // exact half rounds down
    EXPECT_EQ(Number(L"2.6").GetIntValue(0.499999), 3);
    EXPECT_EQ(Number(L"2.9").GetIntValue(0.0), 2);
    EXPECT_EQ(Number(L"-2.9").GetIntValue(0.0), -2);  // toward zero
    EXPECT_EQ(Number(L"1e20").GetIntValue(0.0), INT_MAX);
    EXPECT_EQ(Number(L"-1e20").GetIntValue(0.0), INT_MIN);
    EXPECT_EQ(Number(std::nan("")).GetIntValue(0.5), 0);
}

TEST(Number, ColorRefToHex) {
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x000000ul), L"#000000");
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x0000FFul), L"#FF0000");  // red is the low byte
    EXPECT_EQ(Number::ConvertColorRefToHexString(0x00FF0000ul), L"#0000FF");
    EXPECT_EQ(Number::ConvertColorRefToHexString(0xFF123456ul), L"#563412");
}

TEST(Dimension, UnitValuesAreFixed) {
    EXPECT_EQ(Dimension::TenthsOfMillimeter, 6);
    EXPECT_EQ(Dimension::Microns, 8);
    EXPECT_EQ(Dimension::HundredthsOfMillimeter, 9);
    EXPECT_EQ(Dimension::ThousandthsOfInch, 10);
}

TEST(Dimension, ConvertsBetweenUnits) {
    Dimension letterWidth(2159.0, Dimension::TenthsOfMillimeter);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Microns), 215900.0);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Inches), 8.5);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Points), 612.0);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Pixels96), 816.0);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Millimeters), 215.9);
    EXPECT_DOUBLE_EQ(letterWidth.GetDoubleValue(Dimension::Centimeters), 21.59);
    Dimension gutter(12700.0, Dimension::Microns);
    EXPECT_EQ(gutter.GetValue(Dimension::HundredthsOfMillimeter).GetIntValue(0.499999), 1270);
    EXPECT_EQ(gutter.GetValue(Dimension::ThousandthsOfInch).GetIntValue(0.499999), 500);
    EXPECT_DOUBLE_EQ(Dimension(1.0, Dimension::Inches).GetDoubleValue(Dimension::Twips), 1440.0);
    EXPECT_DOUBLE_EQ(Dimension(1.0, Dimension::Inches).GetDoubleValue(Dimension::HundredthsOfInch),
                     100.0);
    EXPECT_EQ(letterWidth.GetUnit(), Dimension::TenthsOfMillimeter);
    EXPECT_EQ(letterWidth.GetOriginalValue(), 2159.0);
}

TEST(Dimension, UnknownUnitsGiveZero) {
    Dimension odd(5.0, static_cast<Dimension::UnitsEnum>(42));
    EXPECT_EQ(odd.GetDoubleValue(Dimension::Microns), 0.0);
    EXPECT_EQ(odd.GetDoubleValue(static_cast<Dimension::UnitsEnum>(42)), 0.0);
    EXPECT_EQ(
        Dimension(5.0, Dimension::Microns).GetDoubleValue(static_cast<Dimension::UnitsEnum>(-1)),
        0.0);
}
