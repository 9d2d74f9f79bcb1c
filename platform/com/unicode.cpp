// unicode.cpp: hand-rolled because the C library's converters depend on the process locale,
// which filter code must not.
#include "platform/com/unicode.h"

namespace platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

// Decodes one sequence at text[i]; advances i. Returns kReplacement for a malformed sequence,
// consuming the maximal invalid prefix (at least one byte).
char32_t DecodeOne(std::string_view text, std::size_t& i, bool& valid) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i);
    valid = true;
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    int extra = 0;
    char32_t cp = 0;
    char32_t min = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        extra = 1;
        cp = lead & 0x1F;
        min = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        extra = 2;
        cp = lead & 0x0F;
        min = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        extra = 3;
        cp = lead & 0x07;
        min = 0x10000;
    } else {
        ++i;
        valid = false;
        return kReplacement;
    }
    std::size_t start = i++;
    for (int k = 0; k < extra; ++k, ++i) {
        if (i >= text.size() || (byte(i) & 0xC0) != 0x80) {
            valid = false;
            if (i == start) ++i;
            return kReplacement;
        }
        cp = (cp << 6) | (byte(i) & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || IsSurrogate(cp)) {
        valid = false;
        return kReplacement;
    }
    return cp;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view utf8) {
    std::wstring out;
    out.reserve(utf8.size());
    std::size_t i = 0;
    bool valid = true;
    while (i < utf8.size()) out.push_back(static_cast<wchar_t>(DecodeOne(utf8, i, valid)));
    return out;
}

bool IsValidUtf8(std::string_view utf8) {
    std::size_t i = 0;
    bool valid = true;
    while (i < utf8.size()) {
        DecodeOne(utf8, i, valid);
        if (!valid) return false;
    }
    return true;
}

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp > 0x10FFFF || IsSurrogate(cp)) cp = kReplacement;
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

std::string WideToUtf8(std::wstring_view wide) {
    std::string out;
    out.reserve(wide.size());
    for (std::size_t i = 0; i < wide.size(); ++i) {
        auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(wide[i]));
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < wide.size()) {
            auto low = static_cast<char32_t>(wide[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        AppendUtf8(out, c);
    }
    return out;
}

}  // namespace platform
