// domxpath.h: XPath 1.0 selection for the MSXML stand-in: the SelectionNamespaces prefixes of a
// document, and, per thread, a bounded cache of compiled expressions and one evaluation context,
// so that a query is compiled once per thread (whatever document it runs on) and then only
// evaluated. Internal header.
#pragma once

#include <libxml/xpath.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/msxml/domtree.h"

namespace platform::msxml {

class XPathEngine {
public:
    // Compiled expressions kept per thread (least recently used ones are dropped beyond this).
    static constexpr std::size_t kCacheCapacity = 256;

    XPathEngine() = default;
    XPathEngine(const XPathEngine&) = delete;
    XPathEngine& operator=(const XPathEngine&) = delete;

    // "xmlns:p='uri' xmlns:q=\"uri\"" (white space separated; a default "xmlns='uri'" is accepted
    // and has no effect, as XPath 1.0 names without prefix are in no namespace). E_FAIL when the
    // text does not have that form; the previous value then stays.
    HRESULT SetSelectionNamespaces(std::wstring_view text);
    const std::wstring& SelectionNamespaces() const { return m_declarations->text; }
    // Identifies the current declarations: a process-wide unique value for each parsed text
    // (setting the same text again is no change); 0 while none were ever set.
    std::uint64_t NamespacesVersion() const { return m_declarations->version; }

    // selectSingleNode: S_OK and the first node in document order, S_FALSE and null when nothing
    // matches, E_FAIL for an expression that does not compile or does not select nodes.
    HRESULT SelectSingle(Tree* tree, xmlNode* context, BSTR expression, IXMLDOMNode** node);
    // selectNodes: S_OK and a (possibly empty) static list, E_FAIL as above.
    HRESULT SelectAll(Tree* tree, xmlNode* context, BSTR expression, IXMLDOMNodeList** list);

    // How many compiled expressions the calling thread keeps.
    static std::size_t CachedExpressions();

private:
    // The selected nodes in document order (only the first with firstOnly).
    HRESULT Select(Tree* tree, xmlNode* context, BSTR expression, bool firstOnly,
                   std::vector<xmlNode*>& nodes);
    xmlXPathObjectPtr Evaluate(xmlXPathCompExprPtr compiled, Tree* tree, xmlNode* context);

public:
    // A parsed SelectionNamespaces text: the text, its prefixes and URIs (UTF-8), and its
    // version. Never changed once made, so documents (on any thread) share it.
    struct Declarations {
        std::wstring text;
        std::vector<std::pair<std::string, std::string>> prefixes;
        std::uint64_t version = 0;
    };

private:
    std::shared_ptr<const Declarations> m_declarations = NoDeclarations();

    static const std::shared_ptr<const Declarations>& NoDeclarations();
};

// Number of XPath compilations in this process (diagnostics: shows the cache working).
std::uint64_t XPathCompilationCount();

}  // namespace platform::msxml
