// devmodesyntax.cpp: numbers, strings, UTF-16 fields and hexadecimal bytes of the device mode
// description (see devmodesyntax.h).
#include "devmodesyntax.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/com/unicode.h"

namespace xpsfilter::devmodesyntax {

const PublicField kPublicFields[30] = {
    {"specVersion", offsetof(DEVMODEW, dmSpecVersion), 2, false, true},
    {"driverVersion", offsetof(DEVMODEW, dmDriverVersion), 2, false, true},
    {"fields", offsetof(DEVMODEW, dmFields), 4, false, true},
    {"orientation", offsetof(DEVMODEW, dmOrientation), 2, true, false},
    {"paperSize", offsetof(DEVMODEW, dmPaperSize), 2, true, false},
    {"paperLength", offsetof(DEVMODEW, dmPaperLength), 2, true, false},
    {"paperWidth", offsetof(DEVMODEW, dmPaperWidth), 2, true, false},
    {"scale", offsetof(DEVMODEW, dmScale), 2, true, false},
    {"copies", offsetof(DEVMODEW, dmCopies), 2, true, false},
    {"defaultSource", offsetof(DEVMODEW, dmDefaultSource), 2, true, false},
    {"printQuality", offsetof(DEVMODEW, dmPrintQuality), 2, true, false},
    {"color", offsetof(DEVMODEW, dmColor), 2, true, false},
    {"duplex", offsetof(DEVMODEW, dmDuplex), 2, true, false},
    {"yResolution", offsetof(DEVMODEW, dmYResolution), 2, true, false},
    {"ttOption", offsetof(DEVMODEW, dmTTOption), 2, true, false},
    {"collate", offsetof(DEVMODEW, dmCollate), 2, true, false},
    {"logPixels", offsetof(DEVMODEW, dmLogPixels), 2, false, false},
    {"bitsPerPel", offsetof(DEVMODEW, dmBitsPerPel), 4, false, false},
    {"pelsWidth", offsetof(DEVMODEW, dmPelsWidth), 4, false, false},
    {"pelsHeight", offsetof(DEVMODEW, dmPelsHeight), 4, false, false},
    {"nup", offsetof(DEVMODEW, dmNup), 4, false, false},
    {"displayFrequency", offsetof(DEVMODEW, dmDisplayFrequency), 4, false, false},
    {"icmMethod", offsetof(DEVMODEW, dmICMMethod), 4, false, false},
    {"icmIntent", offsetof(DEVMODEW, dmICMIntent), 4, false, false},
    {"mediaType", offsetof(DEVMODEW, dmMediaType), 4, false, false},
    {"ditherType", offsetof(DEVMODEW, dmDitherType), 4, false, false},
    {"reserved1", offsetof(DEVMODEW, dmReserved1), 4, false, false},
    {"reserved2", offsetof(DEVMODEW, dmReserved2), 4, false, false},
    {"panningWidth", offsetof(DEVMODEW, dmPanningWidth), 4, false, false},
    {"panningHeight", offsetof(DEVMODEW, dmPanningHeight), 4, false, false},
};

const PublicField* FindPublicField(std::string_view name) {
    for (const PublicField& field : kPublicFields) {
        if (name == field.name) return &field;
    }
    return nullptr;
}

const char* const kUnitNames[11] = {"in",      "pt",          "mm", "cm",          "px96", "twip",
                                    "tenthmm", "hundredthin", "um", "hundredthmm", "mil"};

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

[[noreturn]] void Fail(int line, const std::string& message) {
    throw DescriptionError("line " + std::to_string(line) + ": " + message);
}

// A decimal or 0x-hexadecimal integer, optionally signed, within [low, high].
long long ParseInteger(std::string_view text, long long low, long long high, int line,
                       const char* what) {
    std::string_view digits = text;
    bool negative = false;
    if (!digits.empty() && (digits.front() == '-' || digits.front() == '+')) {
        negative = digits.front() == '-';
        digits.remove_prefix(1);
    }
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits.remove_prefix(2);
    }
    unsigned long long magnitude = 0;
    auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        magnitude > 0x7FFFFFFFFFFFFFFFull) {
        Fail(line, std::string(what) + " is not an integer: '" + std::string(text) + "'");
    }
    long long value =
        negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    if (value < low || value > high) {
        Fail(line, std::string(what) + " " + std::string(text) + " is out of range " +
                       std::to_string(low) + ".." + std::to_string(high));
    }
    return value;
}

double ParseReal(std::string_view text, int line) {
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value)) {
        Fail(line, "not a finite number: '" + std::string(text) + "'");
    }
    return value;
}

// A quoted string with \\ \" \n \r \t and \uXXXX escapes, or bare text (trimmed). `rest`
// receives what follows the closing quote.
std::string ParseText(std::string_view text, int line, std::string_view* rest) {
    text = Trim(text);
    if (text.empty() || text.front() != '"') {
        if (rest != nullptr) *rest = {};
        return std::string(text);
    }
    std::string value;
    std::size_t i = 1;
    for (; i < text.size() && text[i] != '"'; ++i) {
        char c = text[i];
        if (c != '\\') {
            value += c;
            continue;
        }
        if (++i >= text.size()) Fail(line, "unfinished escape in a string");
        switch (text[i]) {
            case '\\':
                value += '\\';
                break;
            case '"':
                value += '"';
                break;
            case 'n':
                value += '\n';
                break;
            case 'r':
                value += '\r';
                break;
            case 't':
                value += '\t';
                break;
            case 'u': {
                if (i + 4 >= text.size()) Fail(line, "\\u needs four hexadecimal digits");
                unsigned code = 0;
                auto [end, error] =
                    std::from_chars(text.data() + i + 1, text.data() + i + 5, code, 16);
                if (error != std::errc() || end != text.data() + i + 5) {
                    Fail(line, "\\u needs four hexadecimal digits");
                }
                value += platform::WideToUtf8(std::wstring(1, static_cast<wchar_t>(code)));
                i += 4;
                break;
            }
            default:
                Fail(line, std::string("unknown escape \\") + text[i]);
        }
    }
    if (i >= text.size()) Fail(line, "a string is not closed");
    if (rest != nullptr) *rest = Trim(text.substr(i + 1));
    return value;
}

std::string Quote(const std::string& utf8) {
    std::string quoted = "\"";
    for (unsigned char c : utf8) {
        switch (c) {
            case '\\':
                quoted += "\\\\";
                break;
            case '"':
                quoted += "\\\"";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04X", c);
                    quoted += escape;
                } else {
                    quoted += static_cast<char>(c);
                }
        }
    }
    return quoted + "\"";
}

std::u16string ToUtf16(const std::string& utf8) {
    std::u16string text;
    for (wchar_t c : platform::Utf8ToWide(utf8)) {
        char32_t code = static_cast<char32_t>(c);
        if (code >= 0x10000) {
            code -= 0x10000;
            text.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            text.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            text.push_back(static_cast<char16_t>(code));
        }
    }
    return text;
}

std::string FromUtf16(const char16_t* text, std::size_t capacity) {
    std::wstring wide;
    for (std::size_t i = 0; i < capacity && text[i] != u'\0'; ++i) {
        char32_t unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < capacity && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            unit = 0xFFFD;
        }
        wide.push_back(static_cast<wchar_t>(unit));
    }
    return platform::WideToUtf8(wide);
}

void SetText(char16_t* field, std::size_t capacity, const std::string& utf8, int line,
             const char* name) {
    std::u16string text = ToUtf16(utf8);
    if (text.size() >= capacity) {
        Fail(line, std::string(name) + " is longer than " + std::to_string(capacity - 1) +
                       " UTF-16 units");
    }
    std::memset(field, 0, capacity * sizeof(char16_t));
    std::memcpy(field, text.data(), text.size() * sizeof(char16_t));
}

std::string FormatReal(double value) {
    char text[64];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::string("0");
}

std::string Hex(const BYTE* bytes, std::size_t count) {
    std::string text;
    char pair[4];
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0 && i % 32 == 0)
            text += "\nhex = ";
        else if (i > 0)
            text += ' ';
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

void ParseHex(std::string_view text, int line, ByteBuffer& out) {
    int high = -1;
    for (char c : text) {
        if (c == ' ' || c == '\t') continue;
        int digit = (c >= '0' && c <= '9')   ? c - '0'
                    : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                             : -1;
        if (digit < 0) Fail(line, std::string("not a hexadecimal digit: '") + c + "'");
        if (high < 0) {
            high = digit;
        } else {
            out.push_back(static_cast<BYTE>(high * 16 + digit));
            high = -1;
        }
        if (out.size() > 0xFFFF) Fail(line, "a record holds at most 65535 bytes");
    }
    if (high >= 0) Fail(line, "an odd number of hexadecimal digits");
}

}  // namespace xpsfilter::devmodesyntax
