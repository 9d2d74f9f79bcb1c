// pagerewriter.cpp: the re-serialising SAX handler of the watermark filter. Every token is
// escaped and encoded to UTF-8 in one pass straight into the output buffer, so a page costs one
// growing byte buffer and no temporary strings.
#include "filters/watermark/pagerewriter.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/com/atl.h"
#include "platform/msxml/msxml6.h"
#include "support/errorframe/errorframe.h"

namespace {

using Unit = std::make_unsigned_t<wchar_t>;

// Names compared for every attribute, with their lengths known at compile time.
constexpr std::wstring_view kXmlns = L"xmlns";
constexpr std::wstring_view kXmlnsColon = L"xmlns:";
constexpr std::wstring_view kWidth = L"Width";
constexpr std::wstring_view kHeight = L"Height";

std::wstring_view View(const wchar_t* text, INT length) {
    if (text == nullptr || length <= 0) return {};
    return {text, static_cast<std::size_t>(length)};
}

double ParseLength(std::wstring_view text) {
    const std::wstring copy(text);
    wchar_t* end = nullptr;
    const double value = std::wcstod(copy.c_str(), &end);
    if (end == copy.c_str() || !(value > 0.0) || value > 1e7) return 0.0;
    return value;
}

// The replacement of each ASCII character in escaped text; empty where it is copied. Both
// tables escape CSaxHandler::EscapeEntity's five characters. Attribute values also carry tab,
// line feed and carriage return as character references, which keep them from being normalised
// to spaces when the page is read again; element content keeps its white space as it came,
// since readers of page markup treat only literal white space between elements as ignorable.
struct EscapeTable {
    std::string_view text[0x80] = {};
    bool escaped[0x80] = {};
    constexpr explicit EscapeTable(bool attributeValue) {
        Set('&', "&amp;");
        Set('<', "&lt;");
        Set('>', "&gt;");
        Set('"', "&quot;");
        Set('\'', "&apos;");
        if (attributeValue) {
            Set('\t', "&#9;");
            Set('\n', "&#10;");
            Set('\r', "&#13;");
        }
    }
    constexpr void Set(char c, std::string_view replacement) {
        text[static_cast<unsigned char>(c)] = replacement;
        escaped[static_cast<unsigned char>(c)] = true;
    }
};
constexpr EscapeTable kContentEscapes(false);
constexpr EscapeTable kAttributeEscapes(true);

// The most bytes one wide character can become: "&quot;" and "&apos;".
constexpr std::size_t kMaxBytesPerCharacter = 6;

// Writes one code point or wide unit at text[i] as UTF-8 at `out` and advances i past it: a
// surrogate pair becomes its code point, a lone surrogate or a value beyond U+10FFFF becomes
// U+FFFD, as the platform's UTF-8 converter writes them. At most four bytes.
char* EncodeNonAscii(char* out, std::wstring_view text, std::size_t& i) {
    char32_t c = static_cast<Unit>(text[i++]);
    if (c >= 0xD800 && c <= 0xDBFF && i < text.size()) {
        const char32_t low = static_cast<Unit>(text[i]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
            ++i;
        }
    }
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x800) {
        *out++ = static_cast<char>(0xC0 | (c >> 6));
    } else if (c < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (c >> 12));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (c >> 18));
        *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    }
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
    return out;
}

#if defined(__SSE2__)
// Narrows a block of 16 wide characters that are all printable ASCII needing no escape (with
// `escape` set; all ASCII without it) to `out`; false, writing nothing, if any is not. Page
// markup is nearly all such text, and a block costs a few vector instructions instead of sixteen
// table look-ups.
template <const EscapeTable* escapes>
bool NarrowPlainBlock(const wchar_t* text, char* out) {
    constexpr bool escape = escapes != nullptr;
    static_assert(sizeof(wchar_t) == 4);
    const auto* wide = reinterpret_cast<const __m128i*>(text);
    // Signed saturation keeps every value of 0x80 or more (and every negative one, as a wide
    // value beyond U+10FFFF) at 0x80 or more; unsigned saturation then keeps it a byte >= 0x80.
    const __m128i low = _mm_packs_epi32(_mm_loadu_si128(wide), _mm_loadu_si128(wide + 1));
    const __m128i high = _mm_packs_epi32(_mm_loadu_si128(wide + 2), _mm_loadu_si128(wide + 3));
    const __m128i lowNegative = _mm_cmplt_epi16(low, _mm_setzero_si128());
    const __m128i highNegative = _mm_cmplt_epi16(high, _mm_setzero_si128());
    const __m128i bytes =
        _mm_or_si128(_mm_packus_epi16(low, high), _mm_packs_epi16(lowNegative, highNegative));
    if (_mm_movemask_epi8(bytes) != 0) return false;  // a byte of 0x80 or more
    if (escape) {
        // Control characters (tab, line feed and carriage return are escaped in attribute
        // values) and the five entity characters.
        __m128i special = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20));
        for (const char c : {'&', '<', '>', '"', '\''}) {
            special = _mm_or_si128(special, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)));
        }
        if (_mm_movemask_epi8(special) != 0) {
            // Control characters other than the escaped three are copied; only the table's
            // characters need the slow path. Check the block exactly.
            for (int k = 0; k < 16; ++k) {
                if (escapes->escaped[static_cast<Unit>(text[k])]) return false;
            }
        }
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    return true;
}
#endif

// Appends text as UTF-8, escaping ASCII characters with the table `escapes` (none when null), in
// one pass into room reserved for the longest result.
template <const EscapeTable* escapes>
void AppendUtf8(PageRewriter::Utf8Buffer& buffer, std::wstring_view text) {
    constexpr bool escape = escapes != nullptr;
    if (text.empty()) return;
    char* out = buffer.Reserve(text.size() * kMaxBytesPerCharacter);
    std::size_t i = 0;
    while (i < text.size()) {
        // Whole blocks of plain text at once; a block that is not plain goes character by
        // character.
        std::size_t end = text.size();
#if defined(__SSE2__)
        if (text.size() - i >= 16) {
            if (NarrowPlainBlock<escapes>(text.data() + i, out)) {
                out += 16;
                i += 16;
                continue;
            }
            end = i + 16;
        }
#endif
        while (i < end) {
            const Unit c = static_cast<Unit>(text[i]);
            if (c < 0x80) {
                if (escape && escapes->escaped[c]) {
                    const std::string_view replacement = escapes->text[c];
                    for (const char r : replacement) *out++ = r;
                } else {
                    *out++ = static_cast<char>(c);
                }
                ++i;
            } else {
                out = EncodeNonAscii(out, text, i);
            }
        }
    }
    buffer.CommitTo(out);
}

}  // namespace

void PageRewriter::Utf8Buffer::Grow(std::size_t count) {
    if (count > SIZE_MAX / 2 - m_size) throw std::bad_alloc();
    const std::size_t capacity = std::max({m_size + count, m_capacity * 2, std::size_t{4096}});
    auto data = std::make_unique_for_overwrite<char[]>(capacity);
    if (m_size != 0) std::memcpy(data.get(), m_data.get(), m_size);
    m_data = std::move(data);
    m_capacity = capacity;
}

void PageRewriter::Utf8Buffer::Append(std::string_view bytes) {
    if (bytes.empty()) return;
    std::memcpy(Reserve(bytes.size()), bytes.data(), bytes.size());
    m_size += bytes.size();
}

PageRewriter::PageRewriter(Inserter inserter) : m_inserter(std::move(inserter)) {}

HRESULT PageRewriter::Rewrite(IUnknown* input) {
    if (input == nullptr) return E_POINTER;
    m_out.Clear();
    m_rootInsert.Clear();
    m_pendingNamespaces.Clear();
    m_depth = 0;
    m_inserted = false;
    try {
        CComPtr<ISAXXMLReader> reader;
        RETURN_IF_FAILED(
            platform::CreateSaxXmlReader60(IID_ISAXXMLReader, reinterpret_cast<void**>(&reader)));
        RETURN_IF_FAILED(reader->putContentHandler(this));
        VARIANT source;
        VariantInit(&source);
        source.vt = VT_UNKNOWN;
        source.punkVal = input;
        const HRESULT hr = reader->parse(source);
        reader->putContentHandler(nullptr);
        RETURN_IF_FAILED(hr);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    // A document whose root never closed, or that had none, is not a page.
    return m_inserted ? S_OK : E_FAIL;
}

HRESULT PageRewriter::WriteTo(IPrintWriteStream* stream) {
    if (stream == nullptr) return E_POINTER;
    const std::string_view bytes = m_out.View();
    if (bytes.empty()) return E_FAIL;  // nothing was rebuilt
    // One write of the whole page, as CSaxHandler::WriteToPrintStream would make; a stream that
    // takes less is given the rest.
    std::size_t done = 0;
    while (done < bytes.size()) {
        const std::size_t left = bytes.size() - done;
        const ULONG block = left > 0x40000000u ? 0x40000000u : static_cast<ULONG>(left);
        ULONG written = 0;
        RETURN_IF_FAILED(stream->WriteBytes(bytes.data() + done, block, &written));
        if (written == 0 || written > block) return STG_E_WRITEFAULT;
        done += written;
    }
    return S_OK;
}

void PageRewriter::AppendContent(std::wstring_view text) {
    AppendUtf8<&kContentEscapes>(m_out, text);
}

void PageRewriter::AppendAttributeValue(std::wstring_view text) {
    AppendUtf8<&kAttributeEscapes>(m_out, text);
}

void PageRewriter::AppendRaw(std::wstring_view text) {
    AppendUtf8<nullptr>(m_out, text);
}

HRESULT PageRewriter::startDocument() {
    m_out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    return S_OK;
}

HRESULT PageRewriter::startPrefixMapping(const wchar_t* prefix, INT prefixLength,
                                         const wchar_t* uri, INT uriLength) {
    // Written into a side buffer: the declarations go inside the next start tag.
    const std::wstring_view name = View(prefix, prefixLength);
    m_pendingNamespaces += name.empty() ? " xmlns" : " xmlns:";
    AppendUtf8<nullptr>(m_pendingNamespaces, name);
    m_pendingNamespaces += "=\"";
    AppendUtf8<&kAttributeEscapes>(m_pendingNamespaces, View(uri, uriLength));
    m_pendingNamespaces += '"';
    return S_OK;
}

HRESULT PageRewriter::startElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                                   const wchar_t*, INT, const wchar_t* qName, INT qNameLength,
                                   ISAXAttributes* attributes) {
    const std::wstring_view name = View(qName, qNameLength);
    if (name.empty()) return E_INVALIDARG;
    RootInfo root;
    const bool isRoot = m_depth == 0;
    if (isRoot) {
        const std::size_t colon = name.find(L':');
        if (colon != std::wstring_view::npos) root.prefix = std::wstring(name.substr(0, colon + 1));
        root.namespaceUri = std::wstring(View(namespaceUri, namespaceUriLength));
    }
    m_out += '<';
    AppendRaw(name);
    m_out += m_pendingNamespaces.View();
    m_pendingNamespaces.Clear();
    INT count = 0;
    if (attributes != nullptr) RETURN_IF_FAILED(attributes->getLength(&count));
    for (INT i = 0; i < count; ++i) {
        const wchar_t* attributeName = nullptr;
        INT attributeNameLength = 0;
        const wchar_t* value = nullptr;
        INT valueLength = 0;
        RETURN_IF_FAILED(attributes->getQName(i, &attributeName, &attributeNameLength));
        const std::wstring_view attribute = View(attributeName, attributeNameLength);
        if (attribute.empty()) return E_INVALIDARG;
        // Declarations reported as attributes were already written from the prefix mappings.
        if (attribute == kXmlns || attribute.substr(0, 6) == kXmlnsColon) continue;
        RETURN_IF_FAILED(attributes->getValue(i, &value, &valueLength));
        m_out += ' ';
        AppendRaw(attribute);
        m_out += "=\"";
        AppendAttributeValue(View(value, valueLength));
        m_out += '"';
        if (isRoot && attribute == kWidth) root.width = ParseLength(View(value, valueLength));
        if (isRoot && attribute == kHeight) root.height = ParseLength(View(value, valueLength));
    }
    m_out += '>';
    if (isRoot) {
        // The inserter runs now, while the root's attributes are known; its markup is kept
        // until the root closes. A second call (a new document) is impossible within one parse.
        m_rootInsert.Clear();
        if (m_inserter) AppendUtf8<nullptr>(m_rootInsert, m_inserter(root));
    }
    ++m_depth;
    return S_OK;
}

HRESULT PageRewriter::endElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t* qName,
                                 INT qNameLength) {
    const std::wstring_view name = View(qName, qNameLength);
    if (name.empty() || m_depth <= 0) return E_INVALIDARG;
    --m_depth;
    if (m_depth == 0) {
        m_out += m_rootInsert.View();
        m_inserted = true;
    }
    m_out += "</";
    AppendRaw(name);
    m_out += '>';
    return S_OK;
}

HRESULT PageRewriter::characters(const wchar_t* chars, INT length) {
    AppendContent(View(chars, length));
    return S_OK;
}

HRESULT PageRewriter::ignorableWhitespace(const wchar_t* chars, INT length) {
    AppendContent(View(chars, length));
    return S_OK;
}

HRESULT PageRewriter::processingInstruction(const wchar_t* target, INT targetLength,
                                            const wchar_t* data, INT dataLength) {
    const std::wstring_view name = View(target, targetLength);
    const std::wstring_view body = View(data, dataLength);
    if (name.empty() || body.find(L"?>") != std::wstring_view::npos) return E_INVALIDARG;
    m_out += "<?";
    AppendRaw(name);
    if (!body.empty()) {
        m_out += ' ';
        AppendRaw(body);
    }
    m_out += "?>";
    return S_OK;
}
