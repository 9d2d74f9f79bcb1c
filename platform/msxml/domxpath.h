// domxpath.h: XPath 1.0 selection for the MSXML stand-in: the SelectionNamespaces prefixes of a
// document, and, per thread, a bounded cache of compiled expressions and one evaluation context,
// so that a query is compiled once per thread (whatever document it runs on) and then only
// evaluated. Internal header.
#pragma once

#include <libxml/xpath.h>

#include <cstdint>
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
    const std::wstring& SelectionNamespaces() const { return m_namespacesText; }
    // Identifies the current declarations: a new process-wide unique value on every change
    // (setting the same text again is none); 0 while none were ever set.
    std::uint64_t NamespacesVersion() const { return m_namespacesVersion; }

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

    std::vector<std::pair<std::string, std::string>> m_namespaces;
    std::wstring m_namespacesText;
    std::uint64_t m_namespacesVersion = 0;
};

// Number of XPath compilations in this process (diagnostics: shows the cache working).
std::uint64_t XPathCompilationCount();

}  // namespace platform::msxml
