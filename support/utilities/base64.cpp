// base64.cpp: base64 encoding and decoding into caller buffers, with ATL's length rules.
#include <algorithm>
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

// For the four places of a group, each ASCII character's value already shifted into place;
// characters outside the alphabet carry kInvalidBits, which no shifted value reaches.
constexpr std::uint32_t kInvalidBits = 0x80000000u;
struct ShiftedTables {
    std::uint32_t place[4][128];
    constexpr ShiftedTables() : place() {
        for (int c = 0; c < 128; ++c) {
            const int value = DecodeValue(c);
            for (int p = 0; p < 4; ++p) {
                place[p][c] =
                    value < 0 ? kInvalidBits : static_cast<std::uint32_t>(value) << (18 - 6 * p);
            }
        }
    }
};
constexpr ShiftedTables kShifted;

// Decodes whole groups of four alphabet characters from text[*i] on while there is room for
// their three bytes; stops before the first group that holds anything else (white space,
// padding, a character outside the alphabet), which the caller then reads one by one.
void DecodeWholeGroups(const wchar_t* text, int charCount, int* i, unsigned char* out, int capacity,
                       int* written) {
    const int groups = std::min((charCount - *i) / 4, (capacity - *written) / 3);
    const wchar_t* in = text + *i;
    unsigned char* to = out + *written;
    int done = 0;
    for (; done < groups; ++done, in += 4, to += 3) {
        const std::uint32_t a = static_cast<std::uint32_t>(in[0]);
        const std::uint32_t b = static_cast<std::uint32_t>(in[1]);
        const std::uint32_t c = static_cast<std::uint32_t>(in[2]);
        const std::uint32_t d = static_cast<std::uint32_t>(in[3]);
        if ((a | b | c | d) >= 128) break;
        const std::uint32_t bits = kShifted.place[0][a] | kShifted.place[1][b] |
                                   kShifted.place[2][c] | kShifted.place[3][d];
        if ((bits & kInvalidBits) != 0) break;
        to[0] = static_cast<unsigned char>(bits >> 16);
        to[1] = static_cast<unsigned char>(bits >> 8);
        to[2] = static_cast<unsigned char>(bits);
    }
    *i += done * 4;
    *written += done * 3;
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
        if (inGroup == 0 && padding == 0 && out != nullptr) {
            DecodeWholeGroups(text, charCount, &i, out, capacity, &written);
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
