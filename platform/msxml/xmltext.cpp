// xmltext.cpp: UTF-8 <-> BSTR/wide conversion for the MSXML stand-in. libxml2 hands out valid
// UTF-8; malformed sequences (which only foreign input could carry) become U+FFFD.
#include "platform/msxml/xmltext.h"

#include "platform/com/unicode.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace platform::msxml {
namespace {

// Decodes the code point at text[i] and advances i; invalid sequences yield U+FFFD.
char32_t Decode(std::string_view text, std::size_t& i) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i++);
    if (lead < 0x80) return lead;
    int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : -1;
    if (extra < 0 || lead > 0xF4) return 0xFFFD;
    char32_t cp = lead & (0x3F >> extra);
    for (int k = 0; k < extra; ++k) {
        if (i >= text.size() || (byte(i) & 0xC0) != 0x80) return 0xFFFD;
        cp = (cp << 6) | (byte(i++) & 0x3F);
    }
    static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (cp < kMin[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0xFFFD;
    return cp;
}

std::size_t CountCodePoints(std::string_view text) {
    std::size_t count = 0;
    for (char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

// True when no byte has its high bit set; eight bytes at a time.
bool IsAscii(std::string_view text) {
    const char* p = text.data();
    std::size_t left = text.size();
    std::uint64_t high = 0;
    for (; left >= 8; p += 8, left -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        high |= word;
    }
    for (; left > 0; ++p, --left) high |= static_cast<unsigned char>(*p);
    return (high & 0x8080808080808080ull) == 0;
}

}  // namespace

// ASCII bytes to wide characters. With SSE2 (every x86-64) sixteen bytes are zero-extended to
// 32-bit characters at a time; elsewhere the buffers are declared not to overlap so that the
// compiler may widen several at once.
void WidenAscii(wchar_t* __restrict out, const unsigned char* __restrict bytes, std::size_t size) {
    std::size_t i = 0;
#if defined(__SSE2__)
    if constexpr (sizeof(wchar_t) == 4) {
        const __m128i zero = _mm_setzero_si128();
        for (; i + 16 <= size; i += 16) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
            const __m128i low = _mm_unpacklo_epi8(chunk, zero);
            const __m128i high = _mm_unpackhi_epi8(chunk, zero);
            auto* to = reinterpret_cast<__m128i*>(out + i);
            _mm_storeu_si128(to, _mm_unpacklo_epi16(low, zero));
            _mm_storeu_si128(to + 1, _mm_unpackhi_epi16(low, zero));
            _mm_storeu_si128(to + 2, _mm_unpacklo_epi16(high, zero));
            _mm_storeu_si128(to + 3, _mm_unpackhi_epi16(high, zero));
        }
    }
#endif
    for (; i + 8 <= size; i += 8) {
        for (std::size_t k = 0; k < 8; ++k) out[i + k] = static_cast<wchar_t>(bytes[i + k]);
    }
    for (; i < size; ++i) out[i] = static_cast<wchar_t>(bytes[i]);
}

BSTR AllocBstr(std::string_view utf8) {
    // Values are mostly ASCII (names, numbers, base64 device modes of kilobytes): such text is
    // widened byte by byte, with no decoding and no counting. Both paths write every character
    // of the string they return, so it is not zero-filled first.
    const std::size_t size = utf8.size();
    if (IsAscii(utf8)) {
        BSTR out = AllocateBstrToFill(static_cast<UINT>(size));
        if (out == nullptr) return nullptr;
        WidenAscii(out, reinterpret_cast<const unsigned char*>(utf8.data()), size);
        return out;
    }
    // A count of lead bytes bounds the length; decoding may only shorten it.
    std::size_t upper = CountCodePoints(utf8);
    BSTR out = AllocateBstrToFill(static_cast<UINT>(upper));
    if (out == nullptr) return nullptr;
    std::size_t i = 0;
    std::size_t n = 0;
    while (i < size && n < upper) out[n++] = static_cast<wchar_t>(Decode(utf8, i));
    if (i < size) {
        // Stray continuation bytes decode to extra replacement characters: take the slow path.
        SysFreeString(out);
        std::wstring wide = Utf8ToWide(utf8);
        return SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    }
    if (n != upper) {
        BSTR exact = SysAllocStringLen(out, static_cast<UINT>(n));
        SysFreeString(out);
        return exact;
    }
    return out;
}

bool AssignWide(std::wstring& out, std::string_view utf8) {
    if (IsAscii(utf8)) {
        // Growing a string writes only the characters it did not have: a buffer reused for text
        // of about the same length is widened into without being cleared first.
        out.resize(utf8.size());
        WidenAscii(out.data(), reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size());
        return true;
    }
    // Text beyond ASCII takes AllocBstr's own path, so both give the same characters.
    BSTR wide = AllocBstr(utf8);
    if (wide == nullptr) return false;
    out.assign(wide, SysStringLen(wide));
    SysFreeString(wide);
    return true;
}

HRESULT ReturnBstr(std::string_view utf8, BSTR* out) {
    *out = AllocBstr(utf8);
    return *out == nullptr ? E_OUTOFMEMORY : S_OK;
}

Utf8 ToUtf8(const wchar_t* text, std::size_t length) {
    if (text == nullptr || length == 0) return {};
    // Whole documents pass through here (loadXML), so ASCII is copied in a tight loop and only
    // the rest goes through the general converter.
    Utf8 out;
    out.resize(length);
    std::size_t i = 0;
    for (; i < length; ++i) {
        auto c = static_cast<std::make_unsigned_t<wchar_t>>(text[i]);
        if (c >= 0x80) break;
        out[i] = static_cast<char>(c);
    }
    if (i == length) return out;
    out.resize(i);
    out += WideToUtf8(std::wstring_view(text + i, length - i));
    return out;
}

void AppendWide(std::wstring& out, std::string_view utf8) {
    std::size_t i = 0;
    while (i < utf8.size()) {
        unsigned char c = static_cast<unsigned char>(utf8[i]);
        if (c < 0x80) {
            out.push_back(static_cast<wchar_t>(c));
            ++i;
        } else {
            out.push_back(static_cast<wchar_t>(Decode(utf8, i)));
        }
    }
}

HRESULT VariantToUtf8(const VARIANT& value, Utf8& out) {
    if (value.vt == VT_BSTR) {
        out = ToUtf8(value.bstrVal);
        return S_OK;
    }
    if (value.vt == VT_NULL || value.vt == VT_EMPTY) {
        out.clear();
        return S_OK;
    }
    VARIANT text;
    VariantInit(&text);
    HRESULT hr = VariantChangeType(&text, &value, VARIANT_ALPHABOOL, VT_BSTR);
    if (FAILED(hr)) return hr;
    out = ToUtf8(text.bstrVal);
    VariantClear(&text);
    return S_OK;
}

bool IsAllXmlSpace(std::string_view text) {
    for (char c : text) {
        if (!IsXmlSpace(c)) return false;
    }
    return true;
}

std::string_view TrimXmlSpace(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && IsXmlSpace(text[begin])) ++begin;
    while (end > begin && IsXmlSpace(text[end - 1])) --end;
    return text.substr(begin, end - begin);
}

}  // namespace platform::msxml
