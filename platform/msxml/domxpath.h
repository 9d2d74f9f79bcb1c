// domxpath.h: XPath 1.0 selection for the MSXML stand-in: the SelectionNamespaces prefixes, and
// a bounded cache of compiled expressions per document so that a query is compiled once and then
// only evaluated. Internal header.
#pragma once

#include <libxml/xpath.h>

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/msxml/domtree.h"

namespace platform::msxml {

class XPathEngine {
public:
    static constexpr std::size_t kCacheCapacity = 256;

    XPathEngine() = default;
    ~XPathEngine();
    XPathEngine(const XPathEngine&) = delete;
    XPathEngine& operator=(const XPathEngine&) = delete;

    // "xmlns:p='uri' xmlns:q=\"uri\"" (white space separated; a default "xmlns='uri'" is accepted
    // and has no effect, as XPath 1.0 names without prefix are in no namespace). E_FAIL when the
    // text does not have that form; the previous value then stays.
    HRESULT SetSelectionNamespaces(std::wstring_view text);
    const std::wstring& SelectionNamespaces() const { return m_namespacesText; }

    // selectSingleNode: S_OK and the first node in document order, S_FALSE and null when nothing
    // matches, E_FAIL for an expression that does not compile or does not select nodes.
    HRESULT SelectSingle(Tree* tree, xmlNode* context, BSTR expression, IXMLDOMNode** node);
    // selectNodes: S_OK and a (possibly empty) static list, E_FAIL as above.
    HRESULT SelectAll(Tree* tree, xmlNode* context, BSTR expression, IXMLDOMNodeList** list);

    std::size_t CachedExpressions() const { return m_index.size(); }

private:
    struct Entry {
        std::wstring text;
        xmlXPathCompExprPtr compiled;
    };
    xmlXPathCompExprPtr Compiled(std::wstring_view text);
    xmlXPathObjectPtr Evaluate(Tree* tree, xmlNode* context, BSTR expression);

    std::list<Entry> m_lru;  // most recently used first
    std::unordered_map<std::wstring_view, std::list<Entry>::iterator> m_index;
    std::vector<std::pair<std::string, std::string>> m_namespaces;
    std::wstring m_namespacesText;
    std::uint64_t m_namespacesVersion = 0;
};

// Number of XPath compilations in this process (diagnostics: shows the cache working).
std::uint64_t XPathCompilationCount();

}  // namespace platform::msxml
