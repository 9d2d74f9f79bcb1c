// saxwidetext.cpp: widening UTF-8 for the SAX reader, sixteen ASCII bytes at a time.
#include "platform/msxml/saxwidetext.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/msxml/xmltext.h"

namespace platform::msxml::sax {

// The length of the leading ASCII part of UTF-8 text, sixteen bytes at a time.
std::size_t AsciiPrefix(std::string_view utf8) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 16 <= utf8.size(); i += 16) {
        const int high =
            _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(utf8.data() + i)));
        if (high != 0) return i + static_cast<std::size_t>(__builtin_ctz(high));
    }
#endif
    for (; i + 8 <= utf8.size(); i += 8) {
        std::uint64_t block;
        std::memcpy(&block, utf8.data() + i, 8);
        if ((block & 0x8080808080808080ull) != 0) break;
    }
    while (i < utf8.size() && static_cast<unsigned char>(utf8[i]) < 0x80) ++i;
    return i;
}

// Without entity substitution libxml2 hands every '&' of an attribute value over as "&#38;"
// (and nothing else in that form, since no entity can be declared); namespace URIs come from
// declarations, which are attribute values too. Returns the text with that undone, using
// `scratch` only when there is something to undo.
std::string_view UndoAmpersandReferences(std::string_view text, std::string& scratch) {
    if (text.find('&') == std::string_view::npos) return text;
    scratch.clear();
    for (std::size_t k = 0; k < text.size(); ++k) {
        if (text.compare(k, 5, "&#38;") == 0) {
            scratch += '&';
            k += 4;
        } else {
            scratch += text[k];
        }
    }
    return scratch;
}

// Appends UTF-8 text as wide characters. ASCII runs (nearly all of page markup) are widened
// sixteen bytes at a time; each run of other bytes goes through the shared decoder, which
// gives the same characters as decoding the whole text at once, since ASCII bytes never belong
// to a multi-byte sequence.
void AppendWideFast(WideBuffer& out, std::string_view utf8) {
    while (!utf8.empty()) {
        const std::size_t ascii = AsciiPrefix(utf8);
        if (ascii > 0) {
            WidenAscii(out.Extend(ascii), reinterpret_cast<const unsigned char*>(utf8.data()),
                       ascii);
            utf8.remove_prefix(ascii);
        }
        std::size_t other = 0;
        while (other < utf8.size() && static_cast<unsigned char>(utf8[other]) >= 0x80) ++other;
        if (other > 0) {
            thread_local std::wstring decoded;
            decoded.clear();
            AppendWide(decoded, utf8.substr(0, other));
            out.Append(decoded);
            utf8.remove_prefix(other);
        }
    }
}

}  // namespace platform::msxml::sax
