// number.h: Number, a decimal number parsed from text and read back as a double or a rounded
// integer; also the colour-to-text helper.
//
// Parsing ignores the process locale: optional white space, an optional sign, digits with an
// optional '.' fraction and an optional exponent ("1e3"). Text after the number is ignored;
// text that does not start with a number gives 0 (IsValid() tells the difference).
#pragma once

#include "support/utilities/cxstring.h"

class Number {
public:
    explicit Number(const CXString& text);
    explicit Number(double value);
    ~Number();

    double GetDoubleValue() const { return m_value; }
    // value + roundingOffset, truncated toward zero; clamped to the int range (NaN gives 0).
    // With 0.499999 exact halves round down and everything else to the nearest integer.
    int GetIntValue(double roundingOffset) const;
    // Whether the whole text (white space aside) was a number.
    bool IsValid() const { return m_valid; }

    // A COLORREF (0x00BBGGRR) as "#RRGGBB" with upper-case hexadecimal digits; the high byte is
    // ignored.
    static CXString ConvertColorRefToHexString(const unsigned long& colorRef);

private:
    double m_value = 0.0;
    bool m_valid = false;
};
