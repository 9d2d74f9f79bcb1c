// base64_fuzz.cpp: libFuzzer target over the utility library's base64, which decodes the
// device mode snapshots tickets carry. The input is read twice: as text to decode (each byte a
// character), and as bytes to encode with the flags of its first byte.
//
// Decoding must stay within the bound Base64DecodeGetRequiredLength gives; what decodes must
// encode and decode back to the same bytes; every encoding must decode to its input.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/utilities/zorunutilities.h"

namespace {

using namespace ZorunUtilities;

std::vector<wchar_t> Encode(const unsigned char* bytes, int count, unsigned long flags) {
    int length = Base64EncodeGetRequiredLength(count, flags);
    std::vector<wchar_t> text(static_cast<std::size_t>(length));
    if (!Base64Encode(bytes, count, text.data(), &length, flags)) __builtin_trap();
    if (static_cast<std::size_t>(length) > text.size()) __builtin_trap();
    text.resize(static_cast<std::size_t>(length));
    return text;
}

void DecodesTo(const std::vector<wchar_t>& text, const unsigned char* bytes, int count) {
    int length = Base64DecodeGetRequiredLength(static_cast<int>(text.size()));
    std::vector<unsigned char> decoded(static_cast<std::size_t>(length));
    if (!Base64Decode(text.data(), static_cast<int>(text.size()), decoded.data(), &length))
        __builtin_trap();
    if (length != count || (count > 0 && std::memcmp(decoded.data(), bytes, count) != 0))
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0 || size > (1u << 20)) return 0;
    const int count = static_cast<int>(size);

    // Exactly sized buffers: a write past the bound is an AddressSanitizer report.
    std::vector<wchar_t> text(data, data + size);
    int length = Base64DecodeGetRequiredLength(count);
    std::vector<unsigned char> decoded(static_cast<std::size_t>(length));
    if (Base64Decode(text.data(), count, decoded.data(), &length)) {
        if (length < 0 || static_cast<std::size_t>(length) > decoded.size()) __builtin_trap();
        DecodesTo(Encode(decoded.data(), length, ZorunUtilities::ATL_BASE64_FLAG_NONE),
                  decoded.data(), length);
    }

    const unsigned long flags = data[0] & 3u;  // NOPAD, NOCRLF
    DecodesTo(Encode(data + 1, count - 1, flags), data + 1, count - 1);
    return 0;
}
