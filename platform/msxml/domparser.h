// domparser.h: parsing for the MSXML stand-in's DOM with MSXML 6's safe defaults: a DOCTYPE is
// rejected, no external entity or DTD is read, no network access, libxml2's size and depth
// limits apply (XML_PARSE_HUGE is never set), and white-space-only text is dropped unless
// preserved. Also the parse error object. Internal header.
#pragma once

#include <libxml/parser.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/com/comobject.h"
#include "platform/msxml/msxml6.h"

namespace platform::msxml {

struct ParseErrorInfo {
    LONG code = 0;  // 0: no error
    std::string reason;
    std::string srcText;
    std::string url;
    LONG line = 0;
    LONG linepos = 0;
    LONG filepos = 0;
};

// Where the bytes come from: memory, a COM stream or an open file. `decoded` marks memory that
// holds text already converted from a wide string (its encoding declaration is then ignored).
struct ParseSource {
    std::string_view memory;
    ISequentialStream* stream = nullptr;
    std::FILE* file = nullptr;
    bool decoded = false;
    std::string url;
    std::uint64_t maxBytes = 0;  // 0: no limit
    LONG maxDepth = 0;           // element nesting; 0 or above 256: the parser's limit of 256
};

// Installs the DOCTYPE refusal and error capture on a parser context; shared with the SAX
// reader. The context's _private must stay free for this.
class ParserGuard {
public:
    explicit ParserGuard(xmlParserCtxtPtr context);
    ~ParserGuard();
    ParserGuard(const ParserGuard&) = delete;
    ParserGuard& operator=(const ParserGuard&) = delete;

    bool DoctypeSeen() const { return m_doctype; }
    const ParseErrorInfo& FirstError() const { return m_error; }
    bool HasError() const { return m_error.code != 0; }
    // Fills `info` from the first error (or the stream's failure, or a generic one).
    void Describe(ParseErrorInfo& info, std::string_view memory) const;
    // A stream read failure, recorded by the read callback.
    HRESULT ReadFailure() const { return m_readFailure; }
    void SetReadFailure(HRESULT hr) { m_readFailure = hr; }

    static ParserGuard* Of(xmlParserCtxtPtr context);
    // Whoever drives the parse (the SAX reader keeps its session here).
    void SetOwner(void* owner) { m_owner = owner; }
    void* Owner() const { return m_owner; }

private:
    static void OnInternalSubset(void* context, const xmlChar*, const xmlChar*, const xmlChar*);
    static void OnError(void* context, xmlErrorPtr error);

    xmlParserCtxtPtr m_context;
    bool m_doctype = false;
    ParseErrorInfo m_error;
    HRESULT m_readFailure = S_OK;
    void* m_owner = nullptr;
};

// Parser options for a source (no HUGE, no DTD loading, no entity substitution, no network).
int SafeParseOptions(bool keepBlanks, bool decoded);
// Reads from a ParseSource through libxml2's I/O callbacks.
int ReadSourceCallback(void* context, char* buffer, int length);
struct SourceReader {
    const ParseSource* source;
    ParserGuard* guard;
    std::uint64_t consumed = 0;
};

// Parses a document. Null with `error` filled on failure.
xmlDocPtr ParseDocument(const ParseSource& source, bool preserveWhiteSpace, ParseErrorInfo& error);

// Removes white-space-only text nodes outside xml:space="preserve" scopes.
void StripWhiteSpaceText(xmlDocPtr doc);

class ParseError final : public ComObject<IXMLDOMParseError> {
public:
    explicit ParseError(ParseErrorInfo info) : m_info(std::move(info)) {}

    HRESULT get_errorCode(LONG* code) override;
    HRESULT get_url(BSTR* url) override;
    HRESULT get_reason(BSTR* reason) override;
    HRESULT get_srcText(BSTR* text) override;
    HRESULT get_line(LONG* line) override;
    HRESULT get_linepos(LONG* position) override;
    HRESULT get_filepos(LONG* position) override;

protected:
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    ParseErrorInfo m_info;
};

// Opens a local file named by a path or a file:// URL (UTF-8). Other URL schemes are refused
// (no network): null with errno-like failure in *hr.
std::FILE* OpenLocalFile(const std::string& location, const char* mode, HRESULT* hr);

}  // namespace platform::msxml
