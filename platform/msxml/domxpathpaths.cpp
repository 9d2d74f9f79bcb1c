// domxpathpaths.cpp: parsing and evaluation of the simple location paths the XPath engine answers
// by walking the tree itself (see domxpathpaths.h). The parser accepts only what it can evaluate
// exactly and refuses everything else, which libxml2 then evaluates as before.
#include "platform/msxml/domxpathpaths.h"

#include <cstring>

#include "platform/msxml/domtree.h"

namespace platform::msxml {
namespace {

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool IsNameStart(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80;
}

bool IsNameChar(unsigned char c) {
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

class Scanner {
public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    bool AtEnd() const { return m_at == m_text.size(); }
    void SkipSpace() {
        while (!AtEnd() && IsSpace(m_text[m_at])) ++m_at;
    }
    bool Peek(char c) const { return !AtEnd() && m_text[m_at] == c; }
    bool PeekTwo(char c) const { return m_at + 1 < m_text.size() && m_text[m_at + 1] == c; }
    bool Take(char c) {
        if (!Peek(c)) return false;
        ++m_at;
        return true;
    }
    // An NCName (no colon).
    bool Name(std::string& out) {
        if (AtEnd() || !IsNameStart(static_cast<unsigned char>(m_text[m_at]))) return false;
        const std::size_t start = m_at;
        while (!AtEnd() && IsNameChar(static_cast<unsigned char>(m_text[m_at]))) ++m_at;
        out.assign(m_text.substr(start, m_at - start));
        return true;
    }
    // 'text' or "text" (XPath 1.0 literals have no escapes).
    bool Literal(std::string& out) {
        if (!Peek('\'') && !Peek('"')) return false;
        const char quote = m_text[m_at];
        const std::size_t close = m_text.find(quote, m_at + 1);
        if (close == std::string_view::npos) return false;
        out.assign(m_text.substr(m_at + 1, close - m_at - 1));
        m_at = close + 1;
        return true;
    }

private:
    std::string_view m_text;
    std::size_t m_at = 0;
};

// The string value of an attribute: its text children, joined.
bool AttributeValueEquals(const xmlAttr* attribute, const std::string& value) {
    const xmlNode* child = attribute->children;
    if (child != nullptr && child->next == nullptr && child->type == XML_TEXT_NODE) {
        const char* text = reinterpret_cast<const char*>(child->content);
        return text != nullptr ? value == text : value.empty();
    }
    std::string joined;
    for (; child != nullptr; child = child->next) {
        if ((child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) &&
            child->content != nullptr) {
            joined += reinterpret_cast<const char*>(child->content);
        }
    }
    return joined == value;
}

bool SameText(const xmlChar* text, const std::string& wanted) {
    return text != nullptr && std::strcmp(reinterpret_cast<const char*>(text), wanted.c_str()) == 0;
}

}  // namespace

std::optional<SimplePaths> SimplePaths::Parse(std::string_view utf8) {
    if (utf8.find('\0') != std::string_view::npos) return std::nullopt;
    Scanner in(utf8);
    SimplePaths parsed;
    for (;;) {
        Path path;
        in.SkipSpace();
        bool descendant = false;
        if (in.Peek('/')) {
            path.absolute = true;
            in.Take('/');
            descendant = in.Take('/');
        }
        for (;;) {
            in.SkipSpace();
            Step step;
            step.descendant = descendant;
            if (in.Take('*')) {
                step.anyName = true;
            } else {
                std::string first;
                if (!in.Name(first)) return std::nullopt;
                if (in.Peek(':')) {
                    if (in.PeekTwo(':')) return std::nullopt;  // an axis ("child::")
                    in.Take(':');
                    step.hasPrefix = true;
                    step.prefix = std::move(first);
                    if (in.Take('*')) {
                        step.anyName = true;
                    } else if (!in.Name(step.local)) {
                        return std::nullopt;
                    }
                } else {
                    step.local = std::move(first);
                }
            }
            in.SkipSpace();
            if (in.Peek('(')) return std::nullopt;  // a node type test or a function
            while (in.Take('[')) {
                in.SkipSpace();
                AttributeTest test;
                if (!in.Take('@') || !in.Name(test.name) || in.Peek(':')) return std::nullopt;
                in.SkipSpace();
                if (in.Take('=')) {
                    in.SkipSpace();
                    if (!in.Literal(test.value)) return std::nullopt;
                    test.compares = true;
                    in.SkipSpace();
                }
                if (!in.Take(']')) return std::nullopt;
                step.tests.push_back(std::move(test));
                in.SkipSpace();
            }
            path.steps.push_back(std::move(step));
            if (!in.Take('/')) break;
            descendant = in.Take('/');
        }
        parsed.m_paths.push_back(std::move(path));
        in.SkipSpace();
        if (in.AtEnd()) break;
        if (!in.Take('|')) return std::nullopt;
    }
    // Absolute and relative paths in one union select from two places whose relative order
    // libxml2 decides: left to it.
    for (const Path& path : parsed.m_paths) {
        if (path.absolute != parsed.m_paths.front().absolute) return std::nullopt;
    }
    return parsed;
}

bool SimplePaths::StepMatches(const xmlNode* element, const Step& step, const std::string* uri) {
    if (!step.anyName && !SameText(element->name, step.local)) return false;
    if (step.hasPrefix) {
        if (element->ns == nullptr || !SameText(element->ns->href, *uri)) return false;
    } else if (!step.anyName && element->ns != nullptr) {
        return false;  // a name without prefix is a name in no namespace
    }
    for (const AttributeTest& test : step.tests) {
        const xmlAttr* found = nullptr;
        for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) {
            if (a->ns == nullptr && SameText(a->name, test.name)) {
                found = a;
                break;
            }
        }
        if (found == nullptr) return false;
        if (test.compares && !AttributeValueEquals(found, test.value)) return false;
    }
    return true;
}

bool SimplePaths::MatchesFrom(const xmlNode* element, const Path& path,
                              const std::string* const* uris, std::size_t last,
                              const xmlNode* origin) {
    const Step& step = path.steps[last];
    if (!StepMatches(element, step, uris[last])) return false;
    const xmlNode* parent = element->parent;
    if (last == 0) return step.descendant || parent == origin;
    if (!step.descendant) {
        return parent != nullptr && parent->type == XML_ELEMENT_NODE &&
               MatchesFrom(parent, path, uris, last - 1, origin);
    }
    for (const xmlNode* above = parent; above != nullptr && above->type == XML_ELEMENT_NODE;
         above = above->parent) {
        if (MatchesFrom(above, path, uris, last - 1, origin)) return true;
    }
    return false;
}

SimplePaths::Outcome SimplePaths::Select(
    xmlDoc* document, xmlNode* context,
    const std::vector<std::pair<std::string, std::string>>& namespaces, bool firstOnly,
    std::vector<xmlNode*>& found) const {
    found.clear();
    // The namespaces of all steps, path after path (one buffer per thread, reused).
    thread_local std::vector<const std::string*> uris;
    uris.clear();
    for (std::size_t p = 0; p < m_paths.size(); ++p) {
        for (const Step& step : m_paths[p].steps) {
            const std::string* uri = nullptr;
            if (step.hasPrefix) {
                // "xml" is bound whatever the declarations say; the rest must be declared.
                if (step.prefix == "xml") return Outcome::NotHandled;
                for (auto it = namespaces.rbegin(); it != namespaces.rend(); ++it) {
                    if (it->first == step.prefix) {
                        uri = &it->second;
                        break;
                    }
                }
                if (uri == nullptr) return Outcome::NotHandled;
            }
            uris.push_back(uri);
        }
    }

    xmlNode* root = nullptr;
    if (m_paths.front().absolute) {
        root = reinterpret_cast<xmlNode*>(document);
    } else if (context != nullptr &&
               (context->type == XML_ELEMENT_NODE || context->type == XML_DOCUMENT_NODE)) {
        root = context;
    }
    if (root == nullptr) return Outcome::NotHandled;

    // Attribute tests see attributes without namespace. An attribute in a namespace without a
    // prefix would be a corner libxml2 treats its own way: it is left to libxml2.
    for (xmlNode* cur = root; cur != nullptr; cur = NextInSubtree(cur, root)) {
        if (cur->type != XML_ELEMENT_NODE) continue;
        for (const xmlAttr* a = cur->properties; a != nullptr; a = a->next) {
            if (a->ns != nullptr && a->ns->prefix == nullptr) return Outcome::NotHandled;
        }
        if (cur == root) continue;
        const std::string* const* pathUris = uris.data();
        for (const Path& path : m_paths) {
            if (MatchesFrom(cur, path, pathUris, path.steps.size() - 1, root)) {
                found.push_back(cur);
                break;
            }
            pathUris += path.steps.size();
        }
        if (firstOnly && !found.empty()) break;
    }
    return Outcome::Evaluated;
}

}  // namespace platform::msxml
