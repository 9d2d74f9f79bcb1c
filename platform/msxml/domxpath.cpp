// domxpath.cpp: XPath selection with compiled-expression caching. Compiled expressions depend on
// neither the document nor the namespace bindings (libxml2 resolves prefixes when it evaluates),
// so each thread keeps one cache keyed by the expression text alone: the same query on the next
// page's ticket is not compiled again, and the cache survives SelectionNamespaces changes. Each
// thread also evaluates through one context, whose registered prefixes are those of the last
// SelectionNamespaces it evaluated for.
#include "platform/msxml/domxpath.h"

#include <libxml/xpathInternals.h>

#include <atomic>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <unordered_map>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domxpathpaths.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

std::atomic<std::uint64_t> g_compilations{0};
// The source of NamespacesVersion values: unique across documents, so a thread's context can
// tell whose declarations it holds.
std::atomic<std::uint64_t> g_namespaceSets{0};

void SilentError(void*, xmlErrorPtr) {}

struct ContextFree {
    void operator()(xmlXPathContextPtr context) const { xmlXPathFreeContext(context); }
};
using Context = std::unique_ptr<xmlXPathContext, ContextFree>;

Context NewContext() {
    EnsureLibxml();
    Context created(xmlXPathNewContext(nullptr));
    if (created != nullptr) created->error = SilentError;
    return created;
}

// The calling thread's XPath state: compiled expressions (least recently used last), the
// context expressions are compiled in (it only routes errors away from stderr) and the one they
// are evaluated in, with the NamespacesVersion whose prefixes it has registered.
class ThreadXPath {
public:
    ~ThreadXPath() {
        for (Entry& entry : m_lru) xmlXPathFreeCompExpr(entry.compiled);
    }

    // An expression ready to run: libxml2's compiled form, and the engine's own form when the
    // expression is a simple location path (domxpathpaths.h).
    struct Prepared {
        xmlXPathCompExprPtr compiled = nullptr;
        const SimplePaths* simple = nullptr;
    };
    // Null compiled form: the text does not compile.
    Prepared Prepare(std::wstring_view text);
    std::size_t Size() const { return m_index.size(); }

    // The evaluation context, its prefixes those of `namespaces` (version `version`).
    xmlXPathContextPtr Evaluation(
        std::uint64_t version, const std::vector<std::pair<std::string, std::string>>& namespaces);

private:
    struct Entry {
        std::wstring text;
        xmlXPathCompExprPtr compiled;
        std::optional<SimplePaths> simple;
    };
    std::list<Entry> m_lru;
    std::unordered_map<std::wstring_view, std::list<Entry>::iterator> m_index;
    Context m_compile;
    Context m_evaluate;
    std::uint64_t m_registered = 0;
};

ThreadXPath& ThisThread() {
    thread_local ThreadXPath state;
    return state;
}

bool IsNameChar(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') ||
           c == L'_' || c == L'-' || c == L'.' || c > 0x7F;
}

bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

// True for a predicate that cannot depend on the position of its node: "@name", or
// "@name = 'literal'" (either quote, white space allowed around the parts).
bool IsAttributePredicate(std::wstring_view predicate) {
    std::size_t i = 0;
    const std::size_t n = predicate.size();
    auto skipSpace = [&] {
        while (i < n && IsSpace(predicate[i])) ++i;
    };
    skipSpace();
    if (i == n || predicate[i] != L'@') return false;
    ++i;
    const std::size_t name = i;
    while (i < n && (IsNameChar(predicate[i]) || predicate[i] == L':')) ++i;
    if (i == name) return false;
    skipSpace();
    if (i == n) return true;
    if (predicate[i] != L'=') return false;
    ++i;
    skipSpace();
    if (i == n || (predicate[i] != L'"' && predicate[i] != L'\'')) return false;
    const std::size_t close = predicate.find(predicate[i], i + 1);
    if (close == std::wstring_view::npos) return false;
    i = close + 1;
    skipSpace();
    return i == n;
}

// libxml2 turns "//name" into one descendant step only when the step has no predicate; with one
// ("//psf:Feature[@name = 'x']") it collects every node of the document and then each one's
// children. When every predicate of the expression is an attribute test, which cannot depend on
// a node's position, "//name[...]" selects exactly what "/descendant::name[...]" selects, so
// the expression is compiled in that form. Returns the rewritten text, or an empty one when the
// expression is left as it is.
std::wstring DescendantSteps(std::wstring_view text) {
    // Pass 1: every predicate must be an attribute test (no nesting, literals skipped).
    std::vector<std::size_t> slashes;
    const std::size_t n = text.size();
    for (std::size_t i = 0; i < n; ++i) {
        const wchar_t c = text[i];
        if (c == L'"' || c == L'\'') {
            const std::size_t close = text.find(c, i + 1);
            if (close == std::wstring_view::npos) return {};
            i = close;
        } else if (c == L'[') {
            std::size_t close = i + 1;
            while (close < n && text[close] != L']') {
                if (text[close] == L'[') return {};
                if (text[close] == L'"' || text[close] == L'\'') {
                    close = text.find(text[close], close + 1);
                    if (close == std::wstring_view::npos) return {};
                }
                ++close;
            }
            if (close == n || !IsAttributePredicate(text.substr(i + 1, close - i - 1))) return {};
            i = close;
        } else if (c == L']') {
            return {};
        } else if (c == L'/' && i + 1 < n && text[i + 1] == L'/') {
            slashes.push_back(i);
            ++i;
        }
    }
    // Pass 2: each "//" followed by a plain name test ("name", "p:name", "*", "p:*") becomes
    // "/descendant::"; axes, node type tests, "@" and "." are left alone.
    std::wstring out;
    std::size_t copied = 0;
    for (std::size_t at : slashes) {
        std::size_t i = at + 2;
        const std::size_t start = i;
        while (i < n && (IsNameChar(text[i]) || text[i] == L'*' ||
                         (text[i] == L':' && i + 1 < n && text[i + 1] != L':'))) {
            ++i;
        }
        if (i == start || text[start] == L'.' || text[start] == L'-') continue;
        if (i < n && !(text[i] == L'[' || text[i] == L'/' || text[i] == L'|' || IsSpace(text[i]))) {
            continue;
        }
        out.append(text.substr(copied, at - copied));
        out.append(L"/descendant::");
        copied = at + 2;
    }
    if (copied == 0) return {};
    out.append(text.substr(copied));
    return out;
}

ThreadXPath::Prepared ThreadXPath::Prepare(std::wstring_view text) {
    auto found = m_index.find(text);
    if (found != m_index.end()) {
        m_lru.splice(m_lru.begin(), m_lru, found->second);
        const Entry& entry = *found->second;
        return {entry.compiled, entry.simple ? &*entry.simple : nullptr};
    }
    if (text.find(L'\0') != std::wstring_view::npos) return {};
    if (m_compile == nullptr) m_compile = NewContext();
    if (m_compile == nullptr) return {};
    ++g_compilations;
    xmlXPathCompExprPtr compiled = nullptr;
    const std::wstring faster = DescendantSteps(text);
    if (!faster.empty()) {
        std::string utf8 = ToUtf8(faster.data(), faster.size());
        compiled = xmlXPathCtxtCompile(m_compile.get(), XmlStr(utf8));
    }
    if (compiled == nullptr) {
        // As written (also when the rewritten form did not compile: the error is the text's).
        std::string utf8 = ToUtf8(text.data(), text.size());
        compiled = xmlXPathCtxtCompile(m_compile.get(), XmlStr(utf8));
    }
    // libxml2 compiles every expression, so that what it refuses stays refused; the simple form
    // then does the evaluating where it can.
    if (compiled == nullptr) return {};
    try {
        m_lru.push_front(Entry{std::wstring(text), compiled,
                               SimplePaths::Parse(ToUtf8(text.data(), text.size()))});
        m_index.emplace(std::wstring_view(m_lru.front().text), m_lru.begin());
    } catch (const std::bad_alloc&) {
        if (!m_lru.empty() && m_lru.front().compiled == compiled) m_lru.pop_front();
        xmlXPathFreeCompExpr(compiled);
        return {};
    }
    if (m_lru.size() > XPathEngine::kCacheCapacity) {
        Entry& oldest = m_lru.back();
        m_index.erase(std::wstring_view(oldest.text));
        xmlXPathFreeCompExpr(oldest.compiled);
        m_lru.pop_back();
    }
    const Entry& entry = m_lru.front();
    return {entry.compiled, entry.simple ? &*entry.simple : nullptr};
}

xmlXPathContextPtr ThreadXPath::Evaluation(
    std::uint64_t version, const std::vector<std::pair<std::string, std::string>>& namespaces) {
    if (m_evaluate == nullptr) {
        m_evaluate = NewContext();
        if (m_evaluate == nullptr) return nullptr;
        xmlXPathContextSetCache(m_evaluate.get(), 1, -1, 0);
        m_registered = 0;
    }
    xmlXPathContextPtr context = m_evaluate.get();
    if (version != m_registered) {
        xmlXPathRegisteredNsCleanup(context);
        m_registered = 0;
        for (const auto& [prefix, uri] : namespaces) {
            if (xmlXPathRegisterNs(context, XmlStr(prefix), XmlStr(uri)) != 0) {
                xmlXPathRegisteredNsCleanup(context);  // registered again on the next query
                return nullptr;
            }
        }
        m_registered = version;
    }
    return context;
}

struct XPathObjectFree {
    void operator()(xmlXPathObjectPtr object) const { xmlXPathFreeObject(object); }
};
using XPathObject = std::unique_ptr<xmlXPathObject, XPathObjectFree>;

}  // namespace

std::uint64_t XPathCompilationCount() {
    return g_compilations.load();
}

std::size_t XPathEngine::CachedExpressions() {
    return ThisThread().Size();
}

const std::shared_ptr<const XPathEngine::Declarations>& XPathEngine::NoDeclarations() {
    static const std::shared_ptr<const Declarations> none = std::make_shared<Declarations>();
    return none;
}

HRESULT XPathEngine::SetSelectionNamespaces(std::wstring_view text) {
    // The same declarations again (every wrapper of a document sets them): nothing changes.
    if (m_declarations->version != 0 && text == m_declarations->text) return S_OK;
    // Every page's ticket declares the same prefixes: the declarations last parsed on this
    // thread are shared rather than parsed again, and keep their version, so the thread's
    // evaluation context need not register them anew for each document.
    thread_local std::shared_ptr<const Declarations> lastParsed;
    if (lastParsed != nullptr && text == lastParsed->text) {
        m_declarations = lastParsed;
        return S_OK;
    }
    auto parsed = std::make_shared<Declarations>();
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
            parsed->prefixes.emplace_back(ToUtf8(prefix.data(), prefix.size()),
                                          ToUtf8(uri.data(), uri.size()));
        }
    }
    parsed->text.assign(text);
    parsed->version = ++g_namespaceSets;
    m_declarations = parsed;
    lastParsed = std::move(parsed);
    return S_OK;
}

xmlXPathObjectPtr XPathEngine::Evaluate(xmlXPathCompExprPtr compiled, Tree* tree,
                                        xmlNode* context) {
    xmlXPathContextPtr xpath =
        ThisThread().Evaluation(m_declarations->version, m_declarations->prefixes);
    if (xpath == nullptr) return nullptr;
    xpath->doc = tree->Doc();
    xpath->node = context;
    xmlXPathObjectPtr result = xmlXPathCompiledEval(compiled, xpath);
    // The context outlives this document: it keeps no pointer into it.
    xpath->doc = nullptr;
    xpath->node = nullptr;
    return result;
}

HRESULT XPathEngine::Select(Tree* tree, xmlNode* context, BSTR expression, bool firstOnly,
                            std::vector<xmlNode*>& nodes) {
    nodes.clear();
    std::wstring_view text(expression == nullptr ? L"" : expression, SysStringLen(expression));
    if (text.empty()) return E_FAIL;
    const ThreadXPath::Prepared prepared = ThisThread().Prepare(text);
    if (prepared.compiled == nullptr) return E_FAIL;
    if (prepared.simple != nullptr &&
        prepared.simple->Select(tree->Doc(), context, m_declarations->prefixes, firstOnly, nodes) ==
            SimplePaths::Outcome::Evaluated) {
        return S_OK;
    }
    nodes.clear();  // what a walk left to libxml2 had found so far
    XPathObject result(Evaluate(prepared.compiled, tree, context));
    if (result == nullptr || result->type != XPATH_NODESET) return E_FAIL;
    if (xmlNodeSetPtr set = result->nodesetval) {
        nodes.reserve(static_cast<std::size_t>(set->nodeNr));
        for (int i = 0; i < set->nodeNr; ++i) {
            if (set->nodeTab[i]->type == XML_NAMESPACE_DECL) continue;
            nodes.push_back(set->nodeTab[i]);
            if (firstOnly) break;
        }
    }
    return S_OK;
}

HRESULT XPathEngine::SelectSingle(Tree* tree, xmlNode* context, BSTR expression,
                                  IXMLDOMNode** node) {
    *node = nullptr;
    // One node at most: the thread's buffer is reused rather than a vector made per query.
    thread_local std::vector<xmlNode*> nodes;
    FU_RETURN_IF_FAILED(Select(tree, context, expression, true, nodes));
    if (nodes.empty()) return S_FALSE;
    xmlNode* found = nodes.front();
    nodes.clear();
    return tree->Wrap(found, node);
}

HRESULT XPathEngine::SelectAll(Tree* tree, xmlNode* context, BSTR expression,
                               IXMLDOMNodeList** list) {
    *list = nullptr;
    std::vector<xmlNode*> nodes;
    FU_RETURN_IF_FAILED(Select(tree, context, expression, false, nodes));
    *list = new (std::nothrow) StaticList(tree, std::move(nodes));
    return *list == nullptr ? E_OUTOFMEMORY : S_OK;
}

}  // namespace platform::msxml

unsigned long long platform::DomXPathCompilationCount() {
    return platform::msxml::XPathCompilationCount();
}
