// domparser.cpp: libxml2 parsing with MSXML 6's safe defaults, error capture into the parse
// error object, white-space stripping, and local-file opening (no network).
#include "platform/msxml/domparser.h"

#include <cerrno>
#include <climits>
#include <new>

#include <libxml/SAX2.h>
#include <libxml/dict.h>
#include <libxml/parserInternals.h>

#include "platform/msxml/domtree.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

std::string TrimMessage(const char* message) {
    std::string text = message == nullptr ? std::string() : std::string(message);
    while (!text.empty() && IsXmlSpace(text.back())) text.pop_back();
    return text;
}

// The text of line `line` (1-based) of the input, bounded in length.
std::string LineOf(std::string_view text, LONG line) {
    constexpr std::size_t kMaxLine = 256;
    std::size_t start = 0;
    for (LONG at = 1; at < line; ++at) {
        std::size_t next = text.find('\n', start);
        if (next == std::string_view::npos) return {};
        start = next + 1;
    }
    std::size_t end = text.find('\n', start);
    std::string_view found =
        text.substr(start, end == std::string_view::npos ? text.size() - start : end - start);
    if (!found.empty() && found.back() == '\r') found.remove_suffix(1);
    return std::string(found.substr(0, kMaxLine));
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != prefix[i]) return false;
    }
    return true;
}

}  // namespace

// ---- ParserGuard ------------------------------------------------------------------------------

ParserGuard::ParserGuard(xmlParserCtxtPtr context) : m_context(context) {
    context->_private = this;
    context->sax->internalSubset = OnInternalSubset;
    context->sax->serror = OnError;
}

ParserGuard::~ParserGuard() {
    m_context->_private = nullptr;
}

ParserGuard* ParserGuard::Of(xmlParserCtxtPtr context) {
    return static_cast<ParserGuard*>(context->_private);
}

void ParserGuard::OnInternalSubset(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* parser = static_cast<xmlParserCtxtPtr>(context);
    ParserGuard* guard = Of(parser);
    guard->m_doctype = true;
    if (guard->m_error.code == 0) {
        guard->m_error.code = kXmlDtdProhibited;
        guard->m_error.reason = "DTD is prohibited.";
        guard->m_error.line = xmlSAX2GetLineNumber(parser);
        guard->m_error.linepos = xmlSAX2GetColumnNumber(parser);
        guard->m_error.filepos = static_cast<LONG>(xmlByteConsumed(parser));
    }
    parser->wellFormed = 0;
    xmlStopParser(parser);
}

namespace {

// libxml2 raises some warnings at error level (a namespace URI that is not a valid URI, for
// one); like MSXML, which does not check namespace URIs, they do not fail a load.
bool IsWarning(const xmlError* error) {
    switch (error->code) {
        case XML_WAR_UNDECLARED_ENTITY:
        case XML_WAR_CATALOG_PI:
        case XML_WAR_UNKNOWN_VERSION:
        case XML_WAR_LANG_VALUE:
        case XML_WAR_NS_URI:
        case XML_WAR_NS_URI_RELATIVE:
        case XML_WAR_SPACE_VALUE:
        case XML_WAR_NS_COLUMN:
        case XML_WAR_ENTITY_REDEFINED:
            return true;
        default:
            return error->level < XML_ERR_ERROR;
    }
}

}  // namespace

void ParserGuard::OnError(void* context, xmlErrorPtr error) {
    if (error == nullptr || IsWarning(error)) return;
    auto* parser = static_cast<xmlParserCtxtPtr>(context);
    ParserGuard* guard = Of(parser);
    if (guard == nullptr || guard->m_error.code != 0) return;
    guard->m_error.code = kXmlParseErrorBase + (error->code & 0xFFF);
    guard->m_error.reason = TrimMessage(error->message);
    guard->m_error.line = error->line;
    guard->m_error.linepos = error->int2;
    guard->m_error.filepos = static_cast<LONG>(xmlByteConsumed(parser));
}

void ParserGuard::Describe(ParseErrorInfo& info, std::string_view memory) const {
    info = m_error;
    if (FAILED(m_readFailure)) {
        // What libxml2 says about a broken input is a consequence; the read failure is the cause.
        info.code = m_readFailure;
        info.reason = m_readFailure == E_OUTOFMEMORY ? "The XML source exceeds the size limit."
                                                     : "The XML source could not be read.";
    } else if (info.code == 0) {
        info.code = kXmlParseErrorBase;
        info.reason = "The XML document is not well-formed.";
    }
    if (!memory.empty() && info.line > 0) info.srcText = LineOf(memory, info.line);
}

// ---- Parsing ----------------------------------------------------------------------------------

int SafeParseOptions(bool keepBlanks, bool decoded) {
    int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    if (!keepBlanks) options |= XML_PARSE_NOBLANKS;
    if (decoded) options |= XML_PARSE_IGNORE_ENC;
    return options;
}

int ReadSourceCallback(void* context, char* buffer, int length) {
    auto* reader = static_cast<SourceReader*>(context);
    if (length <= 0) return 0;
    std::size_t got = 0;
    if (reader->source->stream != nullptr) {
        ULONG read = 0;
        HRESULT hr = reader->source->stream->Read(buffer, static_cast<ULONG>(length), &read);
        if (FAILED(hr)) {
            reader->guard->SetReadFailure(hr);
            return -1;
        }
        got = read > static_cast<ULONG>(length) ? static_cast<std::size_t>(length) : read;
    } else {
        got = std::fread(buffer, 1, static_cast<std::size_t>(length), reader->source->file);
        if (got == 0 && std::ferror(reader->source->file)) {
            reader->guard->SetReadFailure(STG_E_READFAULT);
            return -1;
        }
    }
    reader->consumed += got;
    if (reader->source->maxBytes != 0 && reader->consumed > reader->source->maxBytes) {
        reader->guard->SetReadFailure(E_OUTOFMEMORY);
        return -1;
    }
    return static_cast<int>(got);
}

namespace {

// The deepest element nesting of a document (iterative).
LONG ElementDepth(xmlDocPtr doc) {
    LONG depth = 0;
    LONG deepest = 0;
    xmlNode* cur = xmlDocGetRootElement(doc);
    while (cur != nullptr) {
        if (cur->type == XML_ELEMENT_NODE && cur->children != nullptr) {
            ++depth;
            if (depth > deepest) deepest = depth;
            cur = cur->children;
            continue;
        }
        if (cur->type == XML_ELEMENT_NODE && depth + 1 > deepest) deepest = depth + 1;
        while (cur != nullptr && cur->next == nullptr) {
            cur = cur->parent;
            if (cur == nullptr || cur->type == XML_DOCUMENT_NODE) return deepest;
            --depth;
        }
        if (cur != nullptr) cur = cur->next;
    }
    return deepest;
}

// Parser contexts kept per thread, one per option set, so that loading a document does not
// build and tear down libxml2's context (its SAX handler and its node, name, namespace and
// attribute stacks) every time. A context always parses with the same options, so nothing an
// option sets carries over to a parse with other options; xmlCtxtReset clears the rest of the
// previous parse's state. Each parse gets a dictionary of its own, which the document takes a
// reference to: documents never share a dictionary, so editing one on another thread cannot race
// with a parse here. A context is taken out of the cache while it parses (a load started from a
// stream's Read callback gets a context of its own), and one whose stacks grew past
// kMaxKeptStack entries is freed instead of kept.
class ThreadParserContexts {
public:
    ThreadParserContexts() = default;
    ThreadParserContexts(const ThreadParserContexts&) = delete;
    ThreadParserContexts& operator=(const ThreadParserContexts&) = delete;
    ~ThreadParserContexts() {
        for (xmlParserCtxtPtr& context : m_contexts) {
            if (context != nullptr) xmlFreeParserCtxt(context);
            context = nullptr;
        }
    }

    // A context for the options (kept or new); null when memory runs out.
    xmlParserCtxtPtr Take(int options) {
        xmlParserCtxtPtr& kept = m_contexts[SlotOf(options)];
        if (kept != nullptr && m_options[SlotOf(options)] == options) {
            xmlParserCtxtPtr context = kept;
            kept = nullptr;
            return context;
        }
        return xmlNewParserCtxt();
    }

    // Takes the context back after a parse with `options`, ready for the next one.
    void Give(int options, xmlParserCtxtPtr context) {
        xmlCtxtReset(context);  // frees the input and the strings of the finished parse
        xmlParserCtxtPtr& kept = m_contexts[SlotOf(options)];
        if (kept != nullptr || !Reusable(context) || !RenewDictionary(context)) {
            xmlFreeParserCtxt(context);
            return;
        }
        kept = context;
        m_options[SlotOf(options)] = options;
    }

    static ThreadParserContexts& Current() {
        thread_local ThreadParserContexts contexts;
        return contexts;
    }

private:
    static constexpr int kMaxKeptStack = 1024;

    // White space kept or dropped, and decoded text or bytes: the options that vary.
    static std::size_t SlotOf(int options) {
        return ((options & XML_PARSE_NOBLANKS) != 0 ? 1 : 0) +
               ((options & XML_PARSE_IGNORE_ENC) != 0 ? 2 : 0);
    }

    static bool Reusable(xmlParserCtxtPtr context) {
        return context->maxatts <= kMaxKeptStack && context->nsMax <= kMaxKeptStack &&
               context->nodeMax <= kMaxKeptStack && context->nameMax <= kMaxKeptStack &&
               context->spaceMax <= kMaxKeptStack && context->inputMax <= kMaxKeptStack;
    }

    // The finished document holds its own reference to the dictionary it was parsed with; the
    // context lets go of it and starts the next parse with a fresh one, limited as a new
    // context's is. The context's cached names ("xml", the xml namespace) still point into the
    // old dictionary until xmlCtxtReset, which every parse starts with, looks them up again.
    static bool RenewDictionary(xmlParserCtxtPtr context) {
        xmlDictPtr fresh = xmlDictCreate();
        if (fresh == nullptr) return false;
        xmlDictSetLimit(fresh, XML_MAX_DICTIONARY_LIMIT);
        xmlDictFree(context->dict);
        context->dict = fresh;
        return true;
    }

    xmlParserCtxtPtr m_contexts[4] = {};
    int m_options[4] = {};
};

}  // namespace

xmlDocPtr ParseDocument(const ParseSource& source, bool preserveWhiteSpace, ParseErrorInfo& error) {
    EnsureLibxml();
    error = ParseErrorInfo();
    error.url = source.url;
    if (source.memory.size() > static_cast<std::size_t>(INT_MAX) ||
        (source.maxBytes != 0 && source.memory.size() > source.maxBytes)) {
        error.code = E_OUTOFMEMORY;
        error.reason = "The XML source is too large.";
        return nullptr;
    }
    const int options = SafeParseOptions(preserveWhiteSpace, source.decoded);
    ThreadParserContexts& contexts = ThreadParserContexts::Current();
    xmlParserCtxtPtr context = contexts.Take(options);
    if (context == nullptr) {
        error.code = E_OUTOFMEMORY;
        error.reason = "Out of memory.";
        return nullptr;
    }
    xmlDocPtr doc = nullptr;
    {
        ParserGuard guard(context);
        const char* url = source.url.empty() ? nullptr : source.url.c_str();
        if (source.stream != nullptr || source.file != nullptr) {
            SourceReader reader{&source, &guard};
            doc =
                xmlCtxtReadIO(context, ReadSourceCallback, nullptr, &reader, url, nullptr, options);
        } else {
            doc = xmlCtxtReadMemory(context, source.memory.data(),
                                    static_cast<int>(source.memory.size()), url, nullptr, options);
        }
        bool ok = doc != nullptr && context->wellFormed && !guard.HasError() &&
                  !guard.DoctypeSeen() && SUCCEEDED(guard.ReadFailure());
        if (!ok) {
            guard.Describe(error, source.memory);
            error.url = source.url;
            if (doc != nullptr) xmlFreeDoc(doc);
            doc = nullptr;
        }
    }
    contexts.Give(options, context);
    if (doc != nullptr && source.maxDepth > 0 && source.maxDepth < 256 &&
        ElementDepth(doc) > source.maxDepth) {
        xmlFreeDoc(doc);
        error.code = kXmlParseErrorBase + XML_ERR_INTERNAL_ERROR;
        error.reason = "The document is nested deeper than MaxElementDepth allows.";
        return nullptr;
    }
    if (doc != nullptr && !preserveWhiteSpace) StripWhiteSpaceText(doc);
    return doc;
}

void StripWhiteSpaceText(xmlDocPtr doc) {
    xmlNode* root = AsNode(doc);
    xmlNode* cur = doc->children;
    while (cur != nullptr) {
        if (cur->type == XML_TEXT_NODE && IsAllXmlSpace(View(cur->content)) &&
            xmlNodeGetSpacePreserve(cur->parent) != 1) {
            xmlNode* next = NextInSubtree(cur, root);
            xmlUnlinkNode(cur);
            xmlFreeNode(cur);
            cur = next;
            continue;
        }
        cur = NextInSubtree(cur, root);
    }
}

std::FILE* OpenLocalFile(const std::string& location, const char* mode, HRESULT* hr) {
    *hr = S_OK;
    std::string path;
    if (StartsWithNoCase(location, "file://")) {
        std::string_view rest = std::string_view(location).substr(7);
        if (StartsWithNoCase(rest, "localhost/")) rest.remove_prefix(9);
        for (std::size_t i = 0; i < rest.size(); ++i) {
            if (rest[i] == '%' && i + 2 < rest.size() && HexValue(rest[i + 1]) >= 0 &&
                HexValue(rest[i + 2]) >= 0) {
                path += static_cast<char>(HexValue(rest[i + 1]) * 16 + HexValue(rest[i + 2]));
                i += 2;
            } else {
                path += rest[i];
            }
        }
    } else {
        std::size_t colon = location.find(':');
        bool scheme =
            colon != std::string::npos && colon > 1 && location.find_first_of("/\\") > colon;
        if (scheme) {
            *hr = E_ACCESSDENIED;  // http:, ftp: and the like: no network access
            return nullptr;
        }
        path = location;
    }
    if (path.empty() || path.find('\0') != std::string::npos) {
        *hr = E_INVALIDARG;
        return nullptr;
    }
    std::FILE* file = std::fopen(path.c_str(), mode);
    if (file == nullptr) {
        switch (errno) {
            case ENOENT:
                *hr = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
                break;
            case ENOTDIR:
                *hr = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
                break;
            case EACCES:
            case EPERM:
            case EISDIR:
                *hr = E_ACCESSDENIED;
                break;
            default:
                *hr = E_FAIL;
                break;
        }
    }
    return file;
}

// ---- ParseError -------------------------------------------------------------------------------

HRESULT ParseError::get_errorCode(LONG* code) {
    if (code == nullptr) return E_INVALIDARG;
    *code = m_info.code;
    return S_OK;
}

HRESULT ParseError::get_url(BSTR* url) {
    if (url == nullptr) return E_INVALIDARG;
    *url = nullptr;
    if (m_info.url.empty()) return S_FALSE;
    return ReturnBstr(m_info.url, url);
}

HRESULT ParseError::get_reason(BSTR* reason) {
    if (reason == nullptr) return E_INVALIDARG;
    *reason = nullptr;
    if (m_info.code == 0) return S_FALSE;
    return ReturnBstr(m_info.reason, reason);
}

HRESULT ParseError::get_srcText(BSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    *text = nullptr;
    if (m_info.code == 0) return S_FALSE;
    return ReturnBstr(m_info.srcText, text);
}

HRESULT ParseError::get_line(LONG* line) {
    if (line == nullptr) return E_INVALIDARG;
    *line = m_info.line;
    return S_OK;
}

HRESULT ParseError::get_linepos(LONG* position) {
    if (position == nullptr) return E_INVALIDARG;
    *position = m_info.linepos;
    return S_OK;
}

HRESULT ParseError::get_filepos(LONG* position) {
    if (position == nullptr) return E_INVALIDARG;
    *position = m_info.filepos;
    return S_OK;
}

HRESULT ParseError::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IDispatch) return Answer<IXMLDOMParseError>(object);
    return E_NOINTERFACE;
}

}  // namespace platform::msxml
