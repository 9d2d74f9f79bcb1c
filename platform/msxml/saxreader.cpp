// saxreader.cpp: the MSXML 6 SAX reader (CLSID_SAXXMLReader60) on libxml2's streaming SAX2
// parser. Callbacks reach the content handler in MSXML's order: putDocumentLocator,
// startDocument, then for each element its startPrefixMapping calls, startElement, the content,
// endElement and its endPrefixMapping calls, and endDocument. White space is reported through
// characters (there is no DTD to make any of it ignorable). A failing handler stops the parse and
// its HRESULT is returned; malformed input stops it with a parse error code. DTDs are refused as
// in the DOM.
#include <libxml/SAX2.h>
#include <libxml/parser.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/msxml/domparser.h"
#include "platform/msxml/domtree.h"
#include "platform/msxml/msxml6.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

constexpr std::wstring_view kFeatureNamespaces = L"http://xml.org/sax/features/namespaces";
constexpr std::wstring_view kFeatureNamespacePrefixes =
    L"http://xml.org/sax/features/namespace-prefixes";
constexpr std::wstring_view kFeatureProhibitDtd = L"prohibit-dtd";
constexpr std::wstring_view kFeatureExternalGeneral =
    L"http://xml.org/sax/features/external-general-entities";
constexpr std::wstring_view kFeatureExternalParameter =
    L"http://xml.org/sax/features/external-parameter-entities";
constexpr std::wstring_view kPropertyMaxDepth = L"max-element-depth";
constexpr std::wstring_view kPropertyMaxSize = L"max-xml-size";

std::wstring_view Name(const wchar_t* text) {
    return text == nullptr ? std::wstring_view() : std::wstring_view(text);
}

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

// Wide text built in place: new space is handed out without being cleared first, and the
// capacity stays from one callback to the next.
class WideBuffer {
public:
    void Clear() { m_size = 0; }
    std::size_t Size() const { return m_size; }
    const wchar_t* Data() const { return m_data.get(); }
    // Room for `count` more characters at the end, to be written by the caller.
    wchar_t* Extend(std::size_t count) {
        if (m_size + count > m_capacity) Grow(m_size + count);
        wchar_t* at = m_data.get() + m_size;
        m_size += count;
        return at;
    }
    void Push(wchar_t c) { *Extend(1) = c; }
    void Append(std::wstring_view text) {
        if (!text.empty()) std::wmemcpy(Extend(text.size()), text.data(), text.size());
    }

private:
    void Grow(std::size_t needed) {
        const std::size_t capacity = std::max({needed, m_capacity * 2, std::size_t{64}});
        auto data = std::make_unique_for_overwrite<wchar_t[]>(capacity);
        if (m_size != 0) std::wmemcpy(data.get(), m_data.get(), m_size);
        m_data = std::move(data);
        m_capacity = capacity;
    }

    std::unique_ptr<wchar_t[]> m_data;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

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

// Wide strings of one callback, each NUL-terminated, in one buffer reused from callback to
// callback; addressed by offset while being built, with their lengths kept.
class WideArena {
public:
    struct Piece {
        std::size_t at = 0;
        INT length = 0;
    };
    void Clear() { m_text.Clear(); }
    Piece Add(std::string_view utf8) {
        const std::size_t at = m_text.Size();
        AppendWideFast(m_text, utf8);
        return Close(at);
    }
    Piece AddJoined(std::string_view prefix, std::string_view local) {
        const std::size_t at = m_text.Size();
        if (!prefix.empty()) {
            AppendWideFast(m_text, prefix);
            m_text.Push(L':');
        }
        AppendWideFast(m_text, local);
        return Close(at);
    }
    const wchar_t* At(Piece piece) const { return m_text.Data() + piece.at; }

private:
    Piece Close(std::size_t at) {
        const std::size_t length = m_text.Size() - at;
        m_text.Push(L'\0');
        return {at, static_cast<INT>(length)};
    }
    WideBuffer m_text;
};

// Without entity substitution libxml2 hands every '&' of an attribute value over as "&#38;"
// (and nothing else in that form, since no entity can be declared), and namespace URIs, which
// are attribute values, the same way: the text with each "&#38;" turned back into '&' (the text
// itself when it has none; `buffer` holds the result otherwise).
std::string_view WithAmpersands(std::string_view text, std::string& buffer) {
    if (text.find('&') == std::string_view::npos) return text;
    buffer.clear();
    for (std::size_t k = 0; k < text.size(); ++k) {
        if (text.compare(k, 5, "&#38;") == 0) {
            buffer += '&';
            k += 4;
        } else {
            buffer += text[k];
        }
    }
    return buffer;
}

// The wide names of elements, converted once per distinct name. libxml2 hands names, prefixes
// and namespace URIs over as strings of its dictionary, so the same pointers come back for every
// element of a kind. A dictionary string never changes while the parser lives, so for names
// that all belong to the dictionary the pointers alone identify them; any other pointer might be
// reused for other text, so its bytes are compared as well. One lookup per callback: what it
// returns stays valid until the next.
class ElementNames {
public:
    struct Names {
        const wchar_t* uri;
        INT uriLength;
        const wchar_t* local;
        INT localLength;
        const wchar_t* qname;
        INT qnameLength;
    };

    Names Lookup(xmlDictPtr dictionary, const xmlChar* uri, const xmlChar* prefix,
                 const xmlChar* local, bool namespaces) {
        const auto key = [](const xmlChar* text) { return reinterpret_cast<std::uintptr_t>(text); };
        Slot& slot =
            m_slots[((key(local) >> 4) ^ (key(uri) >> 6) ^ (key(prefix) >> 8)) % m_slots.size()];
        const bool same =
            slot.filled && slot.uri == uri && slot.prefix == prefix && slot.local == local &&
            (slot.interned || (slot.uriText == View(uri) && slot.prefixText == View(prefix) &&
                               slot.localText == View(local)));
        if (!same) Fill(slot, dictionary, uri, prefix, local, namespaces);
        return {slot.wide.At(slot.u), slot.u.length,        slot.wide.At(slot.l),
                slot.l.length,        slot.wide.At(slot.q), slot.q.length};
    }

private:
    struct Slot {
        bool filled = false;
        bool interned = false;  // every non-null pointer belongs to the dictionary
        const xmlChar* uri = nullptr;
        const xmlChar* prefix = nullptr;
        const xmlChar* local = nullptr;
        std::string uriText;
        std::string prefixText;
        std::string localText;
        WideArena wide;
        WideArena::Piece u;
        WideArena::Piece l;
        WideArena::Piece q;
    };

    static bool Interned(xmlDictPtr dictionary, const xmlChar* text) {
        return text == nullptr || (dictionary != nullptr && xmlDictOwns(dictionary, text) == 1);
    }

    static void Fill(Slot& slot, xmlDictPtr dictionary, const xmlChar* uri, const xmlChar* prefix,
                     const xmlChar* local, bool namespaces) {
        slot.filled = true;
        slot.interned = Interned(dictionary, uri) && Interned(dictionary, prefix) &&
                        Interned(dictionary, local);
        slot.uri = uri;
        slot.prefix = prefix;
        slot.local = local;
        slot.uriText.assign(View(uri));
        slot.prefixText.assign(View(prefix));
        slot.localText.assign(View(local));
        slot.wide.Clear();
        std::string decoded;
        slot.u =
            slot.wide.Add(namespaces ? WithAmpersands(slot.uriText, decoded) : std::string_view());
        slot.l = slot.wide.Add(namespaces ? std::string_view(slot.localText) : std::string_view());
        slot.q = slot.wide.AddJoined(slot.prefixText, slot.localText);
    }

    std::array<Slot, 61> m_slots;
};

// The attributes of the element being reported. Names and values are converted to wide text
// only when the handler asks for them (a re-serialiser needs qualified names and values, not
// URIs and local names), each into a buffer of its own that keeps its capacity from element to
// element, so that a string handed out stays valid while others are converted.
class SaxAttributes final : public ComObject<ISAXAttributes> {
public:
    void Reset() { m_count = 0; }
    // An attribute as libxml2 reports it; the texts stay valid during the callback.
    void Add(std::string_view uri, std::string_view prefix, std::string_view local,
             std::string_view value) {
        Entry& entry = Next();
        entry.uri.Set(uri);
        entry.local.Set(local);
        entry.qname.Set(local);
        entry.prefix = prefix;
        entry.value.Set(value);
    }
    // An attribute whose qualified name or value had to be built: converted at once.
    void AddWithQName(std::string_view qname, std::string_view local, std::string_view value) {
        Entry& entry = Next();
        entry.uri.Set({});
        entry.local.Set(local);
        entry.qname.Set(qname);
        entry.prefix = {};
        entry.value.Set(value);
        entry.qname.Convert({});
        entry.value.Convert({});
    }
    void AddDecodedValue(std::string_view uri, std::string_view prefix, std::string_view local,
                         std::string_view value) {
        Add(uri, prefix, local, value);
        m_entries[m_count - 1].value.Convert({});
    }

    HRESULT getLength(INT* length) override {
        if (length == nullptr) return E_POINTER;
        *length = static_cast<INT>(m_count);
        return S_OK;
    }
    HRESULT getURI(INT index, const wchar_t** uri, INT* length) override {
        return Get(index, &Entry::uri, uri, length);
    }
    HRESULT getLocalName(INT index, const wchar_t** local, INT* length) override {
        return Get(index, &Entry::local, local, length);
    }
    HRESULT getQName(INT index, const wchar_t** qname, INT* length) override {
        return Get(index, &Entry::qname, qname, length);
    }
    HRESULT getName(INT index, const wchar_t** uri, INT* uriLength, const wchar_t** local,
                    INT* localLength, const wchar_t** qname, INT* qnameLength) override {
        FU_RETURN_IF_FAILED(Get(index, &Entry::uri, uri, uriLength));
        FU_RETURN_IF_FAILED(Get(index, &Entry::local, local, localLength));
        return Get(index, &Entry::qname, qname, qnameLength);
    }
    HRESULT getIndexFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                             INT localLength, INT* index) override {
        if (index == nullptr || local == nullptr || uriLength < 0 || localLength < 0 ||
            (uri == nullptr && uriLength != 0)) {
            return E_INVALIDARG;
        }
        std::wstring_view wantedUri(uri == nullptr ? L"" : uri,
                                    static_cast<std::size_t>(uriLength));
        std::wstring_view wantedLocal(local, static_cast<std::size_t>(localLength));
        for (std::size_t i = 0; i < m_count; ++i) {
            Entry& entry = m_entries[i];
            if (entry.uri.Wide({}) == wantedUri && entry.local.Wide({}) == wantedLocal) {
                *index = static_cast<INT>(i);
                return S_OK;
            }
        }
        *index = -1;
        return E_INVALIDARG;
    }
    HRESULT getIndexFromQName(const wchar_t* qname, INT length, INT* index) override {
        if (index == nullptr || qname == nullptr || length < 0) return E_INVALIDARG;
        std::wstring_view wanted(qname, static_cast<std::size_t>(length));
        for (std::size_t i = 0; i < m_count; ++i) {
            Entry& entry = m_entries[i];
            if (entry.qname.Wide(entry.prefix) == wanted) {
                *index = static_cast<INT>(i);
                return S_OK;
            }
        }
        *index = -1;
        return E_INVALIDARG;
    }
    HRESULT getType(INT index, const wchar_t** type, INT* length) override {
        if (type == nullptr || length == nullptr) return E_POINTER;
        if (index < 0 || static_cast<std::size_t>(index) >= m_count) return E_INVALIDARG;
        *type = L"CDATA";  // without a DTD every attribute is CDATA
        *length = 5;
        return S_OK;
    }
    HRESULT getTypeFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                            INT localLength, const wchar_t** type, INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromName(uri, uriLength, local, localLength, &index));
        return getType(index, type, length);
    }
    HRESULT getTypeFromQName(const wchar_t* qname, INT qnameLength, const wchar_t** type,
                             INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromQName(qname, qnameLength, &index));
        return getType(index, type, length);
    }
    HRESULT getValue(INT index, const wchar_t** value, INT* length) override {
        return Get(index, &Entry::value, value, length);
    }
    HRESULT getValueFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                             INT localLength, const wchar_t** value, INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromName(uri, uriLength, local, localLength, &index));
        return getValue(index, value, length);
    }
    HRESULT getValueFromQName(const wchar_t* qname, INT qnameLength, const wchar_t** value,
                              INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromQName(qname, qnameLength, &index));
        return getValue(index, value, length);
    }

private:
    // One name or value: its UTF-8 source and, once asked for, its wide form.
    class Field {
    public:
        void Set(std::string_view utf8) {
            m_utf8 = utf8;
            m_ready = false;
        }
        // Converts on first use; a non-empty `prefix` is joined in front with a colon.
        void Convert(std::string_view prefix) {
            if (m_ready) return;
            m_wide.Clear();
            if (!prefix.empty()) {
                AppendWideFast(m_wide, prefix);
                m_wide.Push(L':');
            }
            AppendWideFast(m_wide, m_utf8);
            m_wide.Push(L'\0');  // handed-out strings are terminated as well
            m_ready = true;
        }
        std::wstring_view Wide(std::string_view prefix) {
            Convert(prefix);
            return {m_wide.Data(), m_wide.Size() - 1};
        }

    private:
        std::string_view m_utf8;
        WideBuffer m_wide;
        bool m_ready = false;
    };
    struct Entry {
        Field uri;
        Field local;
        Field qname;  // the local name until converted with the prefix
        Field value;
        std::string_view prefix;
    };

    Entry& Next() {
        if (m_count == m_entries.size()) m_entries.emplace_back();
        return m_entries[m_count++];
    }
    HRESULT Get(INT index, Field Entry::*member, const wchar_t** text, INT* length) {
        if (text == nullptr || length == nullptr) return E_POINTER;
        if (index < 0 || static_cast<std::size_t>(index) >= m_count) return E_INVALIDARG;
        Entry& entry = m_entries[static_cast<std::size_t>(index)];
        const std::wstring_view wide =
            (entry.*member).Wide(member == &Entry::qname ? entry.prefix : std::string_view());
        *text = wide.data();
        *length = static_cast<INT>(wide.size());
        return S_OK;
    }

    // Entries past m_count are kept for their buffers. A deque keeps them in place as it grows.
    std::deque<Entry> m_entries;
    std::size_t m_count = 0;
};

class SaxLocator final : public ComObject<ISAXLocator> {
public:
    void Attach(xmlParserCtxtPtr context) { m_context = context; }
    void Detach() {
        if (m_context != nullptr) {
            m_line = xmlSAX2GetLineNumber(m_context);
            m_column = xmlSAX2GetColumnNumber(m_context);
        }
        m_context = nullptr;
    }
    void SetSystemId(std::wstring id) { m_systemId = std::move(id); }

    HRESULT getColumnNumber(INT* column) override {
        if (column == nullptr) return E_POINTER;
        *column = m_context != nullptr ? xmlSAX2GetColumnNumber(m_context) : m_column;
        return S_OK;
    }
    HRESULT getLineNumber(INT* line) override {
        if (line == nullptr) return E_POINTER;
        *line = m_context != nullptr ? xmlSAX2GetLineNumber(m_context) : m_line;
        return S_OK;
    }
    HRESULT getPublicId(const wchar_t** publicId) override {
        if (publicId == nullptr) return E_POINTER;
        *publicId = nullptr;
        return S_FALSE;
    }
    HRESULT getSystemId(const wchar_t** systemId) override {
        if (systemId == nullptr) return E_POINTER;
        *systemId = m_systemId.empty() ? nullptr : m_systemId.c_str();
        return m_systemId.empty() ? S_FALSE : S_OK;
    }

private:
    xmlParserCtxtPtr m_context = nullptr;
    INT m_line = 0;
    INT m_column = 0;
    std::wstring m_systemId;
};

// The state of one parse, reached from libxml2's callbacks through the parser guard.
struct Session {
    Session(ISAXContentHandler* handler, bool namespaces, bool namespacePrefixes, LONG maxDepth,
            xmlParserCtxtPtr context, ParserGuard* guard, SaxLocator* locator,
            SaxAttributes* attributes)
        : handler(handler),
          namespaces(namespaces),
          namespacePrefixes(namespacePrefixes),
          maxDepth(maxDepth),
          context(context),
          guard(guard),
          locator(locator),
          attributes(attributes) {}

    ISAXContentHandler* handler;
    bool namespaces;
    bool namespacePrefixes;
    LONG maxDepth;
    xmlParserCtxtPtr context;
    ParserGuard* guard;
    SaxLocator* locator;
    SaxAttributes* attributes;
    HRESULT result = S_OK;
    LONG depth = 0;
    WideArena names;
    ElementNames elementNames;
    WideBuffer text;
    std::string decoded;                    // an attribute value with its "&#38;" undone
    std::vector<std::wstring> prefixStack;  // prefixes mapped by open elements, in order
    std::vector<std::size_t> prefixCounts;

    // True while events may go on to the handler.
    bool Live() {
        if (FAILED(result)) return false;
        if (guard->HasError()) {
            // A namespace error, which libxml2 reports without stopping: stop here.
            xmlStopParser(context);
            return false;
        }
        return true;
    }
    void Check(HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(result)) {
            result = hr;
            xmlStopParser(context);
        }
    }
};

Session* SessionOf(void* context) {
    auto* parser = static_cast<xmlParserCtxtPtr>(context);
    ParserGuard* guard = ParserGuard::Of(parser);
    return guard == nullptr ? nullptr : static_cast<Session*>(guard->Owner());
}

void OnStartDocument(void* context) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->Check(s->handler->putDocumentLocator(s->locator));
    if (s->Live()) s->Check(s->handler->startDocument());
}

void OnEndDocument(void* context) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->Check(s->handler->endDocument());
}

void OnStartElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                    const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                    int attributeCount, int /*defaulted*/, const xmlChar** attributes) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live()) return;
    if (s->maxDepth > 0 && ++s->depth > s->maxDepth) {
        s->Check(kXmlParseErrorBase + XML_ERR_INTERNAL_ERROR);
        return;
    }
    if (s->handler == nullptr) return;
    std::size_t mapped = 0;
    if (s->namespaces) {
        for (int i = 0; i < namespaceCount && s->Live(); ++i) {
            s->names.Clear();
            const WideArena::Piece p = s->names.Add(View(namespaces[2 * i]));
            const WideArena::Piece u =
                s->names.Add(WithAmpersands(View(namespaces[2 * i + 1]), s->decoded));
            s->prefixStack.emplace_back(s->names.At(p), static_cast<std::size_t>(p.length));
            ++mapped;
            s->Check(
                s->handler->startPrefixMapping(s->names.At(p), p.length, s->names.At(u), u.length));
        }
    }
    s->prefixCounts.push_back(mapped);
    if (!s->Live()) return;

    SaxAttributes* list = s->attributes;
    list->Reset();
    if (s->namespacePrefixes || !s->namespaces) {
        for (int i = 0; i < namespaceCount; ++i) {
            std::string_view p = View(namespaces[2 * i]);
            std::string qname = p.empty() ? std::string("xmlns") : "xmlns:" + std::string(p);
            list->AddWithQName(qname, s->namespaces ? (p.empty() ? "xmlns" : p) : "",
                               WithAmpersands(View(namespaces[2 * i + 1]), s->decoded));
        }
    }
    for (int i = 0; i < attributeCount; ++i) {
        const xmlChar** a = attributes + 5 * i;  // localname, prefix, URI, value, end
        std::string_view value(reinterpret_cast<const char*>(a[3]),
                               static_cast<std::size_t>(a[4] - a[3]));
        const bool encoded = value.find('&') != std::string_view::npos;
        if (encoded) value = WithAmpersands(value, s->decoded);
        if (s->namespaces) {
            if (encoded) {
                list->AddDecodedValue(View(a[2]), View(a[1]), View(a[0]), value);
            } else {
                list->Add(View(a[2]), View(a[1]), View(a[0]), value);
            }
        } else {
            std::string qname = a[1] != nullptr ? std::string(View(a[1])) + ":" : std::string();
            qname += View(a[0]);
            list->AddWithQName(qname, "", value);
        }
    }
    const ElementNames::Names n =
        s->elementNames.Lookup(s->context->dict, uri, prefix, localname, s->namespaces);
    s->Check(s->handler->startElement(n.uri, n.uriLength, n.local, n.localLength, n.qname,
                                      n.qnameLength, list));
}

void OnEndElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                  const xmlChar* uri) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live()) return;
    if (s->maxDepth > 0) --s->depth;
    if (s->handler == nullptr) return;
    const ElementNames::Names n =
        s->elementNames.Lookup(s->context->dict, uri, prefix, localname, s->namespaces);
    s->Check(
        s->handler->endElement(n.uri, n.uriLength, n.local, n.localLength, n.qname, n.qnameLength));
    std::size_t mapped = s->prefixCounts.empty() ? 0 : s->prefixCounts.back();
    if (!s->prefixCounts.empty()) s->prefixCounts.pop_back();
    std::size_t first = s->prefixStack.size() - mapped;
    for (std::size_t i = first; i < s->prefixStack.size() && s->Live(); ++i) {
        const std::wstring& p = s->prefixStack[i];
        s->Check(s->handler->endPrefixMapping(p.c_str(), static_cast<INT>(p.size())));
    }
    s->prefixStack.resize(first);
}

void OnCharacters(void* context, const xmlChar* chars, int length) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr || length <= 0) return;
    s->text.Clear();
    AppendWideFast(s->text, std::string_view(reinterpret_cast<const char*>(chars),
                                             static_cast<std::size_t>(length)));
    const INT size = static_cast<INT>(s->text.Size());
    s->text.Push(L'\0');
    s->Check(s->handler->characters(s->text.Data(), size));
}

void OnProcessingInstruction(void* context, const xmlChar* target, const xmlChar* data) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->names.Clear();
    const WideArena::Piece t = s->names.Add(View(target));
    const WideArena::Piece d = s->names.Add(View(data));
    s->Check(s->handler->processingInstruction(s->names.At(t), t.length, s->names.At(d), d.length));
}

class SaxReader final : public ComObject<ISAXXMLReader> {
public:
    HRESULT getFeature(const wchar_t* name, VARIANT_BOOL* value) override {
        if (value == nullptr) return E_POINTER;
        std::wstring_view feature = Name(name);
        bool flag = false;
        if (feature == kFeatureNamespaces) {
            flag = m_namespaces;
        } else if (feature == kFeatureNamespacePrefixes) {
            flag = m_namespacePrefixes;
        } else if (feature == kFeatureProhibitDtd) {
            flag = true;
        } else if (feature != kFeatureExternalGeneral && feature != kFeatureExternalParameter) {
            return E_INVALIDARG;
        }
        *value = flag ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    HRESULT putFeature(const wchar_t* name, VARIANT_BOOL value) override {
        std::wstring_view feature = Name(name);
        bool flag = value != VARIANT_FALSE;
        if (m_parsing) return E_FAIL;
        if (feature == kFeatureNamespaces) {
            m_namespaces = flag;
        } else if (feature == kFeatureNamespacePrefixes) {
            m_namespacePrefixes = flag;
        } else if (feature == kFeatureProhibitDtd) {
            if (!flag) return E_INVALIDARG;  // DTDs are never read
        } else if (feature == kFeatureExternalGeneral || feature == kFeatureExternalParameter) {
            if (flag) return E_INVALIDARG;  // external entities are never read
        } else {
            return E_INVALIDARG;
        }
        return S_OK;
    }
    HRESULT getProperty(const wchar_t* name, VARIANT* value) override {
        if (value == nullptr) return E_POINTER;
        VariantInit(value);
        std::wstring_view property = Name(name);
        if (property != kPropertyMaxDepth && property != kPropertyMaxSize) return E_INVALIDARG;
        value->vt = VT_I4;
        value->lVal = property == kPropertyMaxDepth ? m_maxDepth : m_maxSize;
        return S_OK;
    }
    HRESULT putProperty(const wchar_t* name, VARIANT value) override {
        std::wstring_view property = Name(name);
        if (property != kPropertyMaxDepth && property != kPropertyMaxSize) return E_INVALIDARG;
        if (m_parsing) return E_FAIL;
        VARIANT number;
        VariantInit(&number);
        if (FAILED(VariantChangeType(&number, &value, 0, VT_I4)) || number.lVal < 0) {
            return E_INVALIDARG;
        }
        (property == kPropertyMaxDepth ? m_maxDepth : m_maxSize) = number.lVal;
        return S_OK;
    }
    HRESULT getContentHandler(ISAXContentHandler** handler) override {
        if (handler == nullptr) return E_POINTER;
        return m_handler.CopyTo(handler);
    }
    HRESULT putContentHandler(ISAXContentHandler* handler) override {
        m_handler = handler;
        return S_OK;
    }
    HRESULT getErrorHandler(ISAXErrorHandler** handler) override {
        if (handler == nullptr) return E_POINTER;
        return m_errorHandler.CopyTo(handler);
    }
    HRESULT putErrorHandler(ISAXErrorHandler* handler) override {
        m_errorHandler = handler;
        return S_OK;
    }
    HRESULT getBaseURL(const wchar_t** url) override { return GetText(m_baseUrl, url); }
    HRESULT putBaseURL(const wchar_t* url) override {
        m_baseUrl = url == nullptr ? L"" : url;
        return S_OK;
    }
    HRESULT getSecureBaseURL(const wchar_t** url) override { return GetText(m_secureBaseUrl, url); }
    HRESULT putSecureBaseURL(const wchar_t* url) override {
        m_secureBaseUrl = url == nullptr ? L"" : url;
        return S_OK;
    }

    HRESULT parse(VARIANT input) override {
        if (input.vt == VT_BSTR) {
            std::string text = ToUtf8(input.bstrVal);
            ParseSource source;
            source.memory = text;
            source.decoded = true;
            return Run(source, {});
        }
        if (input.vt != VT_UNKNOWN && input.vt != VT_DISPATCH) return E_INVALIDARG;
        if (input.punkVal == nullptr) return E_INVALIDARG;
        CComPtr<ISequentialStream> stream;
        if (FAILED(input.punkVal->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream))) &&
            FAILED(input.punkVal->QueryInterface(IID_ISequentialStream,
                                                 reinterpret_cast<void**>(&stream)))) {
            return E_INVALIDARG;
        }
        ParseSource source;
        source.stream = stream;
        return Run(source, {});
    }

    HRESULT parseURL(const wchar_t* url) override {
        if (url == nullptr || *url == 0) return E_INVALIDARG;
        std::string location = ToUtf8(url, std::wcslen(url));
        HRESULT opened = S_OK;
        std::FILE* file = OpenLocalFile(location, "rb", &opened);
        if (file == nullptr) return opened;
        ParseSource source;
        source.file = file;
        source.url = location;
        HRESULT hr = Run(source, url);
        std::fclose(file);
        return hr;
    }

private:
    static HRESULT GetText(const std::wstring& text, const wchar_t** out) {
        if (out == nullptr) return E_POINTER;
        *out = text.empty() ? nullptr : text.c_str();
        return S_OK;
    }

    HRESULT Run(ParseSource& source, std::wstring systemId) {
        if (m_parsing) return E_UNEXPECTED;  // parse() from inside a callback
        EnsureLibxml();
        source.maxBytes = static_cast<std::uint64_t>(m_maxSize) * 1024;
        if (source.maxBytes != 0 && source.memory.size() > source.maxBytes) {
            return kXmlParseErrorBase + XML_ERR_INTERNAL_ERROR;
        }
        if (source.memory.size() > static_cast<std::size_t>(INT_MAX)) return E_OUTOFMEMORY;
        xmlParserCtxtPtr context = xmlNewParserCtxt();
        if (context == nullptr) return E_OUTOFMEMORY;

        CComPtr<SaxLocator> locator;
        locator.Attach(new (std::nothrow) SaxLocator());
        CComPtr<SaxAttributes> attributes;
        attributes.Attach(new (std::nothrow) SaxAttributes());
        if (locator == nullptr || attributes == nullptr) {
            xmlFreeParserCtxt(context);
            return E_OUTOFMEMORY;
        }
        locator->SetSystemId(std::move(systemId));
        locator->Attach(context);

        // The handler lives through the parse even if a callback replaces it.
        CComPtr<ISAXContentHandler> handler = m_handler;
        HRESULT result = S_OK;
        {
            ParserGuard guard(context);
            Session session(handler, m_namespaces, m_namespacePrefixes, m_maxDepth, context, &guard,
                            locator, attributes);
            guard.SetOwner(&session);
            xmlSAXHandler* sax = context->sax;
            sax->startDocument = OnStartDocument;
            sax->endDocument = OnEndDocument;
            sax->startElementNs = OnStartElement;
            sax->endElementNs = OnEndElement;
            sax->startElement = nullptr;
            sax->endElement = nullptr;
            sax->characters = OnCharacters;
            sax->cdataBlock = OnCharacters;
            sax->ignorableWhitespace = OnCharacters;
            sax->processingInstruction = OnProcessingInstruction;
            sax->comment = nullptr;
            sax->reference = nullptr;
            sax->setDocumentLocator = nullptr;
            sax->externalSubset = nullptr;

            m_parsing = true;
            int options = SafeParseOptions(true, source.decoded);
            xmlDocPtr doc = nullptr;
            const char* url = source.url.empty() ? nullptr : source.url.c_str();
            if (source.stream != nullptr || source.file != nullptr) {
                SourceReader reader{&source, &guard};
                doc = xmlCtxtReadIO(context, ReadSourceCallback, nullptr, &reader, url, nullptr,
                                    options);
            } else {
                doc = xmlCtxtReadMemory(context, source.memory.data(),
                                        static_cast<int>(source.memory.size()), url, nullptr,
                                        options);
            }
            m_parsing = false;
            if (doc != nullptr) xmlFreeDoc(doc);
            locator->Detach();

            result = session.result;
            bool wellFormed = context->wellFormed && !guard.HasError() && !guard.DoctypeSeen() &&
                              SUCCEEDED(guard.ReadFailure());
            if (SUCCEEDED(result) && !wellFormed) {
                ParseErrorInfo error;
                guard.Describe(error, source.memory);
                result = error.code;
                if (m_errorHandler != nullptr) {
                    std::wstring message;
                    AppendWide(message, error.reason);
                    m_errorHandler->fatalError(locator, message.c_str(), error.code);
                }
            }
        }
        xmlFreeParserCtxt(context);
        return SUCCEEDED(result) ? S_OK : result;
    }

    CComPtr<ISAXContentHandler> m_handler;
    CComPtr<ISAXErrorHandler> m_errorHandler;
    std::wstring m_baseUrl;
    std::wstring m_secureBaseUrl;
    bool m_namespaces = true;
    bool m_namespacePrefixes = false;
    LONG m_maxDepth = 0;
    LONG m_maxSize = 0;
    bool m_parsing = false;
};

}  // namespace
}  // namespace platform::msxml

namespace platform {

HRESULT CreateSaxXmlReader60(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    auto* reader = new (std::nothrow) msxml::SaxReader();
    if (reader == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = reader->QueryInterface(iid, object);
    reader->Release();
    return hr;
}

}  // namespace platform
