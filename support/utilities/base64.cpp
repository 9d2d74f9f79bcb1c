// base64.cpp: base64 encoding and decoding into caller buffers, with ATL's length rules.
#include <cstdint>

#include "support/utilities/zorunutilities.h"

namespace ZorunUtilities {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kLineLength = 76;

constexpr int DecodeValue(wchar_t c) {
    if (c >= L'A' && c <= L'Z') return c - L'A';
    if (c >= L'a' && c <= L'z') return c - L'a' + 26;
    if (c >= L'0' && c <= L'9') return c - L'0' + 52;
    if (c == L'+') return 62;
    if (c == L'/') return 63;
    return -1;
}

// DecodeValue for the ASCII range, as a table (-1: not in the alphabet).
struct DecodeTable {
    signed char values[128];
    constexpr DecodeTable() : values() {
        for (int c = 0; c < 128; ++c) values[c] = static_cast<signed char>(DecodeValue(c));
    }
};
constexpr DecodeTable kDecodeTable;

// The value of an alphabet character, or -1 (anything else, also beyond ASCII).
int TableValue(wchar_t c) {
    return static_cast<std::uint32_t>(c) < 128 ? kDecodeTable.values[c] : -1;
}

bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

}  // namespace

int Base64EncodeGetRequiredLength(int byteCount, unsigned long flags) {
    if (byteCount < 0) return 0;
    long long count = byteCount;
    long long characters =
        (flags & ATL_BASE64_FLAG_NOPAD) != 0 ? (count * 4 + 2) / 3 : (count + 2) / 3 * 4;
    if ((flags & ATL_BASE64_FLAG_NOCRLF) == 0 && characters > 0) {
        characters += (characters - 1) / kLineLength * 2;
    }
    return characters > INT32_MAX ? 0 : static_cast<int>(characters);
}

int Base64Encode(const unsigned char* data, int byteCount, wchar_t* out, int* outLength,
                 unsigned long flags) {
    if (outLength == nullptr || byteCount < 0 || (data == nullptr && byteCount > 0)) return 0;
    int needed = Base64EncodeGetRequiredLength(byteCount, flags);
    if (byteCount > 0 && needed == 0) return 0;  // too large to count in an int
    if (*outLength < needed || (out == nullptr && needed > 0)) {
        *outLength = needed;
        return 0;
    }
    bool pad = (flags & ATL_BASE64_FLAG_NOPAD) == 0;
    bool lines = (flags & ATL_BASE64_FLAG_NOCRLF) == 0;
    int written = 0;
    int onLine = 0;
    auto put = [&](wchar_t c) {
        if (lines && onLine == kLineLength) {
            out[written++] = L'\r';
            out[written++] = L'\n';
            onLine = 0;
        }
        out[written++] = c;
        ++onLine;
    };
    for (int i = 0; i < byteCount; i += 3) {
        int remaining = byteCount - i;
        std::uint32_t group = static_cast<std::uint32_t>(data[i]) << 16;
        if (remaining > 1) group |= static_cast<std::uint32_t>(data[i + 1]) << 8;
        if (remaining > 2) group |= data[i + 2];
        put(static_cast<wchar_t>(kAlphabet[(group >> 18) & 63]));
        put(static_cast<wchar_t>(kAlphabet[(group >> 12) & 63]));
        if (remaining > 1) {
            put(static_cast<wchar_t>(kAlphabet[(group >> 6) & 63]));
        } else if (pad) {
            put(L'=');
        }
        if (remaining > 2) {
            put(static_cast<wchar_t>(kAlphabet[group & 63]));
        } else if (pad) {
            put(L'=');
        }
    }
    *outLength = written;
    return 1;
}

int Base64DecodeGetRequiredLength(int charCount) {
    if (charCount <= 0) return 0;
    return static_cast<int>((static_cast<long long>(charCount) * 3 + 3) / 4);
}

int Base64Decode(const wchar_t* text, int charCount, unsigned char* out, int* outLength) {
    if (outLength == nullptr || charCount < 0 || (text == nullptr && charCount > 0)) return 0;
    int capacity = *outLength;
    int written = 0;
    std::uint32_t group = 0;
    int inGroup = 0;
    int padding = 0;
    for (int i = 0; i < charCount; ++i) {
        // Whole groups of four alphabet characters (all of a device mode but its end) are
        // decoded at once; anything else takes the character-by-character path below.
        while (inGroup == 0 && padding == 0 && i + 4 <= charCount) {
            const int a = TableValue(text[i]);
            const int b = TableValue(text[i + 1]);
            const int c = TableValue(text[i + 2]);
            const int d = TableValue(text[i + 3]);
            if ((a | b | c | d) < 0 || written + 3 > capacity || out == nullptr) break;
            const std::uint32_t bits =
                (static_cast<std::uint32_t>(a) << 18) | (static_cast<std::uint32_t>(b) << 12) |
                (static_cast<std::uint32_t>(c) << 6) | static_cast<std::uint32_t>(d);
            out[written++] = static_cast<unsigned char>(bits >> 16);
            out[written++] = static_cast<unsigned char>(bits >> 8);
            out[written++] = static_cast<unsigned char>(bits);
            i += 4;
        }
        if (i >= charCount) break;
        wchar_t c = text[i];
        if (IsSpace(c)) continue;
        if (c == L'=') {
            // Padding may only complete a group of two or three characters.
            if (inGroup < 2 || inGroup + padding >= 4) return 0;
            ++padding;
            continue;
        }
        int value = DecodeValue(c);
        if (value < 0 || padding > 0) return 0;  // not base64, or data after the padding
        group = (group << 6) | static_cast<std::uint32_t>(value);
        if (++inGroup == 4) {
            if (written + 3 > capacity || out == nullptr) return 0;
            out[written++] = static_cast<unsigned char>(group >> 16);
            out[written++] = static_cast<unsigned char>(group >> 8);
            out[written++] = static_cast<unsigned char>(group);
            group = 0;
            inGroup = 0;
        }
    }
    if (inGroup == 1) return 0;  // six bits cannot make a byte
    if (inGroup > 0) {
        if (padding > 0 && inGroup + padding != 4) return 0;
        int bytes = inGroup - 1;
        group <<= 6 * (4 - inGroup);
        if (written + bytes > capacity || out == nullptr) return 0;
        out[written++] = static_cast<unsigned char>(group >> 16);
        if (bytes > 1) out[written++] = static_cast<unsigned char>(group >> 8);
    } else if (padding > 0) {
        return 0;
    }
    *outLength = written;
    return 1;
}

}  // namespace ZorunUtilities
