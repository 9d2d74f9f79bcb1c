// pagerewriter.h: PageRewriter, a SAX content handler that re-serialises a fixed page's markup
// as UTF-8 while the parser reads it — every element, attribute, namespace declaration, text
// and processing instruction, escaped — and inserts extra markup (the watermark) just before
// the closing tag of the root element. The result is kept in memory, already encoded as UTF-8,
// until the parse has succeeded, so that markup that turns out not to be well-formed never
// reaches the output.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "filterpipeline/filterutilities/saxhandler.h"

class PageRewriter : public CSaxHandler {
public:
    // What the root element tells the inserter: its qualified-name prefix ("" or "x:"), its
    // namespace URI and its Width and Height attributes (0 when absent or not numbers).
    struct RootInfo {
        std::wstring prefix;
        std::wstring namespaceUri;
        double width = 0.0;
        double height = 0.0;
    };
    // Returns the markup to insert before the root's closing tag (already escaped).
    using Inserter = std::function<std::wstring(const RootInfo&)>;

    explicit PageRewriter(Inserter inserter);
    // The inserter of the next Rewrite: one rewriter serves every page of a job, so its output
    // buffer keeps its capacity from page to page.
    void SetInserter(Inserter inserter) { m_inserter = std::move(inserter); }

    // Parses `input` (an IStream or ISequentialStream) with the MSXML SAX reader and rebuilds
    // the markup. S_OK: Output() holds the new page. Any failure (the parser's error for markup
    // that is not well-formed, the stream's error, E_OUTOFMEMORY) leaves Output() incomplete.
    HRESULT Rewrite(IUnknown* input);

    // The rebuilt markup as UTF-8; WriteTo writes it to a stream.
    std::string_view Output() const { return m_out.View(); }
    HRESULT WriteTo(IPrintWriteStream* stream);

    HRESULT startDocument() override;
    HRESULT startPrefixMapping(const wchar_t* prefix, INT prefixLength, const wchar_t* uri,
                               INT uriLength) override;
    HRESULT startElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                         const wchar_t* localName, INT localNameLength, const wchar_t* qName,
                         INT qNameLength, ISAXAttributes* attributes) override;
    HRESULT endElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                       const wchar_t* localName, INT localNameLength, const wchar_t* qName,
                       INT qNameLength) override;
    HRESULT characters(const wchar_t* chars, INT length) override;
    HRESULT ignorableWhitespace(const wchar_t* chars, INT length) override;
    HRESULT processingInstruction(const wchar_t* target, INT targetLength, const wchar_t* data,
                                  INT dataLength) override;

    // Appends element content as UTF-8 with the five entity characters escaped as
    // CSaxHandler::EscapeEntity writes them; white space is kept as it came.
    void AppendContent(std::wstring_view text);
    // Appends an attribute value as UTF-8: the five entity characters escaped, and tab, line
    // feed and carriage return as character references so that they survive the parser's
    // attribute-value normalisation.
    void AppendAttributeValue(std::wstring_view text);
    // Appends text as UTF-8 unchanged (names, processing instructions, inserted markup).
    void AppendRaw(std::wstring_view text);

    // Bytes appended in place: space is reserved for the longest encoding of a token and
    // written through a pointer, never cleared first; the capacity stays from page to page.
    class Utf8Buffer {
    public:
        void Clear() { m_size = 0; }
        bool Empty() const { return m_size == 0; }
        std::string_view View() const { return {m_data.get(), m_size}; }
        // Room for at least `count` more bytes; the returned pointer is where they go.
        char* Reserve(std::size_t count) {
            if (count > m_capacity - m_size) Grow(count);
            return m_data.get() + m_size;
        }
        // Marks everything up to `end` (inside the reserved room) as written.
        void CommitTo(const char* end) { m_size = static_cast<std::size_t>(end - m_data.get()); }
        void Append(std::string_view bytes);
        Utf8Buffer& operator+=(std::string_view bytes) {
            Append(bytes);
            return *this;
        }
        Utf8Buffer& operator+=(char c) {
            *Reserve(1) = c;
            ++m_size;
            return *this;
        }

    private:
        void Grow(std::size_t count);

        std::unique_ptr<char[]> m_data;
        std::size_t m_size = 0;
        std::size_t m_capacity = 0;
    };

private:
    Inserter m_inserter;
    Utf8Buffer m_out;
    Utf8Buffer m_rootInsert;
    // Namespace declarations of the next element, already written as ` xmlns:p="uri"`.
    Utf8Buffer m_pendingNamespaces;
    int m_depth = 0;
    bool m_inserted = false;
};
