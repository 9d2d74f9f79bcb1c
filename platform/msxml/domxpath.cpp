// domxpath.cpp: XPath selection with compiled-expression caching. Compiled expressions do not
// depend on the namespace bindings (libxml2 resolves prefixes when it evaluates), so the cache is
// keyed by the expression text alone and survives SelectionNamespaces changes.
#include "platform/msxml/domxpath.h"

#include <libxml/xpathInternals.h>

#include <atomic>
#include <memory>
#include <new>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

std::atomic<std::uint64_t> g_compilations{0};

void SilentError(void*, xmlErrorPtr) {}

// Compilation needs a context only to route errors away from stderr.
xmlXPathContextPtr CompileContext() {
    struct Free {
        void operator()(xmlXPathContextPtr context) const { xmlXPathFreeContext(context); }
    };
    thread_local std::unique_ptr<xmlXPathContext, Free> context([] {
        EnsureLibxml();
        xmlXPathContextPtr created = xmlXPathNewContext(nullptr);
        if (created != nullptr) created->error = SilentError;
        return created;
    }());
    return context.get();
}

bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

struct XPathObjectFree {
    void operator()(xmlXPathObjectPtr object) const { xmlXPathFreeObject(object); }
};
using XPathObject = std::unique_ptr<xmlXPathObject, XPathObjectFree>;

}  // namespace

std::uint64_t XPathCompilationCount() {
    return g_compilations.load();
}

XPathEngine::~XPathEngine() {
    for (Entry& entry : m_lru) xmlXPathFreeCompExpr(entry.compiled);
}

HRESULT XPathEngine::SetSelectionNamespaces(std::wstring_view text) {
    std::vector<std::pair<std::string, std::string>> parsed;
    std::size_t i = 0;
    const std::size_t n = text.size();
    auto skipSpace = [&] {
        while (i < n && IsSpace(text[i])) ++i;
    };
    while (true) {
        skipSpace();
        if (i == n) break;
        if (text.substr(i, 5) != L"xmlns") return E_FAIL;
        i += 5;
        std::wstring_view prefix;
        if (i < n && text[i] == L':') {
            std::size_t start = ++i;
            while (i < n && text[i] != L'=' && !IsSpace(text[i])) ++i;
            prefix = text.substr(start, i - start);
            std::string check = ToUtf8(prefix.data(), prefix.size());
            if (prefix.empty() || check.find('\0') != std::string::npos ||
                xmlValidateNCName(XmlStr(check), 0) != 0) {
                return E_FAIL;
            }
        }
        skipSpace();
        if (i == n || text[i] != L'=') return E_FAIL;
        ++i;
        skipSpace();
        if (i == n || (text[i] != L'\'' && text[i] != L'"')) return E_FAIL;
        wchar_t quote = text[i++];
        std::size_t close = text.find(quote, i);
        if (close == std::wstring_view::npos) return E_FAIL;
        std::wstring_view uri = text.substr(i, close - i);
        i = close + 1;
        if (i < n && !IsSpace(text[i])) return E_FAIL;
        // XPath 1.0 has no default namespace for names: a default declaration changes nothing.
        if (!prefix.empty()) {
            parsed.emplace_back(ToUtf8(prefix.data(), prefix.size()),
                                ToUtf8(uri.data(), uri.size()));
        }
    }
    m_namespaces = std::move(parsed);
    m_namespacesText.assign(text);
    ++m_namespacesVersion;
    return S_OK;
}

xmlXPathCompExprPtr XPathEngine::Compiled(std::wstring_view text) {
    auto found = m_index.find(text);
    if (found != m_index.end()) {
        m_lru.splice(m_lru.begin(), m_lru, found->second);
        return found->second->compiled;
    }
    if (text.find(L'\0') != std::wstring_view::npos) return nullptr;
    xmlXPathContextPtr context = CompileContext();
    if (context == nullptr) return nullptr;
    std::string utf8 = ToUtf8(text.data(), text.size());
    ++g_compilations;
    xmlXPathCompExprPtr compiled = xmlXPathCtxtCompile(context, XmlStr(utf8));
    if (compiled == nullptr) return nullptr;
    try {
        m_lru.push_front(Entry{std::wstring(text), compiled});
        m_index.emplace(std::wstring_view(m_lru.front().text), m_lru.begin());
    } catch (const std::bad_alloc&) {
        xmlXPathFreeCompExpr(compiled);
        return nullptr;
    }
    if (m_lru.size() > kCacheCapacity) {
        Entry& oldest = m_lru.back();
        m_index.erase(std::wstring_view(oldest.text));
        xmlXPathFreeCompExpr(oldest.compiled);
        m_lru.pop_back();
    }
    return compiled;
}

xmlXPathObjectPtr XPathEngine::Evaluate(Tree* tree, xmlNode* context, BSTR expression) {
    std::wstring_view text(expression == nullptr ? L"" : expression, SysStringLen(expression));
    if (text.empty()) return nullptr;
    xmlXPathCompExprPtr compiled = Compiled(text);
    if (compiled == nullptr) return nullptr;
    xmlXPathContextPtr xpath = tree->XPathContext();
    if (xpath == nullptr) return nullptr;
    if (tree->RegisteredNamespacesVersion() != m_namespacesVersion) {
        xmlXPathRegisteredNsCleanup(xpath);
        for (const auto& [prefix, uri] : m_namespaces) {
            xmlXPathRegisterNs(xpath, XmlStr(prefix), XmlStr(uri));
        }
        tree->RegisteredNamespacesVersion() = m_namespacesVersion;
    }
    xpath->node = context;
    return xmlXPathCompiledEval(compiled, xpath);
}

HRESULT XPathEngine::SelectSingle(Tree* tree, xmlNode* context, BSTR expression,
                                  IXMLDOMNode** node) {
    *node = nullptr;
    XPathObject result(Evaluate(tree, context, expression));
    if (result == nullptr || result->type != XPATH_NODESET) return E_FAIL;
    xmlNodeSetPtr set = result->nodesetval;
    if (set == nullptr) return S_FALSE;
    for (int i = 0; i < set->nodeNr; ++i) {
        xmlNode* found = set->nodeTab[i];
        if (found->type == XML_NAMESPACE_DECL) continue;
        return tree->Wrap(found, node);
    }
    return S_FALSE;
}

HRESULT XPathEngine::SelectAll(Tree* tree, xmlNode* context, BSTR expression,
                               IXMLDOMNodeList** list) {
    *list = nullptr;
    XPathObject result(Evaluate(tree, context, expression));
    if (result == nullptr || result->type != XPATH_NODESET) return E_FAIL;
    std::vector<xmlNode*> nodes;
    if (xmlNodeSetPtr set = result->nodesetval) {
        nodes.reserve(static_cast<std::size_t>(set->nodeNr));
        for (int i = 0; i < set->nodeNr; ++i) {
            if (set->nodeTab[i]->type != XML_NAMESPACE_DECL) nodes.push_back(set->nodeTab[i]);
        }
    }
    *list = new (std::nothrow) StaticList(tree, std::move(nodes));
    return *list == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace platform::msxml

unsigned long long platform::DomXPathCompilationCount() {
    return platform::msxml::XPathCompilationCount();
}
