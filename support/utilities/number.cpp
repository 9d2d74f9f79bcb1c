// number.cpp: locale-independent number parsing and rounding.
#include "support/utilities/number.h"

#include <charconv>
#include <cmath>
#include <climits>
#include <string>
#include <string_view>

namespace {

bool IsSpace(wchar_t c) {
    return c == L' ' || (c >= L'\t' && c <= L'\r');
}

}  // namespace

Number::Number(const CXString& text) {
    // The characters a number can be made of are ASCII; anything else ends it.
    std::string ascii;
    const std::wstring& wide = text.Str();
    std::size_t i = 0;
    while (i < wide.size() && IsSpace(wide[i])) ++i;
    std::size_t start = i;
    for (; i < wide.size() && wide[i] > 0 && wide[i] < 0x80 && !IsSpace(wide[i]); ++i) {
        ascii.push_back(static_cast<char>(wide[i]));
    }
    const char* first = ascii.c_str();
    const char* last = first + ascii.size();
    bool negative = false;
    if (first != last && (*first == '+' || *first == '-')) negative = *first++ == '-';
    if (first == last || *first == '+' || *first == '-') return;
    double value = 0.0;
    auto [end, error] = std::from_chars(first, last, value, std::chars_format::general);
    if (error == std::errc::invalid_argument) return;
    if (error == std::errc::result_out_of_range) {
        // Beyond the double range: a negative exponent means too small (0), else too large.
        std::string_view parsed(first, static_cast<std::size_t>(end - first));
        std::size_t exponent = parsed.find_first_of("eE");
        bool tiny = exponent != std::string_view::npos && exponent + 1 < parsed.size() &&
                    parsed[exponent + 1] == '-';
        value = tiny ? 0.0 : HUGE_VAL;
    }
    m_value = negative ? -value : value;
    std::size_t consumed = start + static_cast<std::size_t>(end - ascii.c_str());
    while (consumed < wide.size() && IsSpace(wide[consumed])) ++consumed;
    m_valid = consumed == wide.size();
}

Number::Number(double value) : m_value(value), m_valid(true) {}

Number::~Number() = default;

int Number::GetIntValue(double roundingOffset) const {
    double shifted = m_value + roundingOffset;
    if (std::isnan(shifted)) return 0;
    double truncated = std::trunc(shifted);
    if (truncated >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (truncated <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(truncated);
}

CXString Number::ConvertColorRefToHexString(const unsigned long& colorRef) {
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    unsigned red = colorRef & 0xFF;
    unsigned green = (colorRef >> 8) & 0xFF;
    unsigned blue = (colorRef >> 16) & 0xFF;
    wchar_t text[8] = {L'#',
                       kDigits[red >> 4],
                       kDigits[red & 15],
                       kDigits[green >> 4],
                       kDigits[green & 15],
                       kDigits[blue >> 4],
                       kDigits[blue & 15],
                       L'\0'};
    return CXString(text);
}
