// domserializer.cpp: XML text of a libxml2 tree with namespace fix-up. The walk is iterative (a
// tree built through the DOM may be deeper than any stack), and the in-scope namespace bindings
// are tracked by value, so nodes whose declarations were removed or never made are declared where
// they are used, under the names they carry.
#include "platform/msxml/domserializer.h"

#include <deque>
#include <string_view>
#include <vector>

#include "platform/msxml/domtree.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

void AppendEscaped(std::string& out, std::string_view text, bool attribute) {
    std::size_t run = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char* entity = nullptr;
        switch (text[i]) {
            case '&':
                entity = "&amp;";
                break;
            case '<':
                entity = "&lt;";
                break;
            case '>':
                entity = "&gt;";
                break;
            case '\r':
                entity = "&#xD;";
                break;
            case '"':
                entity = attribute ? "&quot;" : nullptr;
                break;
            case '\t':
                entity = attribute ? "&#x9;" : nullptr;
                break;
            case '\n':
                entity = attribute ? "&#xA;" : nullptr;
                break;
            default:
                break;
        }
        if (entity != nullptr) {
            out.append(text.data() + run, i - run);
            out += entity;
            run = i + 1;
        }
    }
    out.append(text.data() + run, text.size() - run);
}

struct Binding {
    std::string_view prefix;  // "" for the default namespace
    std::string_view href;
};

class Writer {
public:
    explicit Writer(std::string& out) : m_out(out) {}

    // Takes the bindings in scope at node from its ancestors, as the full serialisation would
    // have declared them, so that they are not repeated.
    void InheritScope(const xmlNode* node) {
        std::vector<const xmlNode*> ancestors;
        for (const xmlNode* p = node->parent; p != nullptr && p->type == XML_ELEMENT_NODE;
             p = p->parent) {
            ancestors.push_back(p);
        }
        for (auto it = ancestors.rbegin(); it != ancestors.rend(); ++it) {
            Bind(*it, m_scope.size());
        }
    }

    void Write(const xmlNode* start) {
        const xmlNode* cur = start;
        while (true) {
            if (Enter(cur)) {
                cur = cur->children;
                continue;
            }
            while (true) {
                if (cur == start) return;
                if (cur->next != nullptr) {
                    cur = cur->next;
                    break;
                }
                cur = cur->parent;
                Leave(cur);
            }
        }
    }

private:
    std::string_view Lookup(std::string_view prefix, bool& found) const {
        found = true;
        if (prefix == "xml") return kXmlNamespace;
        for (auto it = m_scope.rbegin(); it != m_scope.rend(); ++it) {
            if (it->prefix == prefix) return it->href;
        }
        found = prefix.empty();  // outside any declaration the default namespace is "none"
        return {};
    }

    bool DeclaredSince(std::string_view prefix, std::size_t mark) const {
        for (std::size_t i = mark; i < m_scope.size(); ++i) {
            if (m_scope[i].prefix == prefix) return true;
        }
        return false;
    }

    // A prefix in scope (not shadowed) bound to href, or "".
    std::string_view PrefixFor(std::string_view href) const {
        for (auto it = m_scope.rbegin(); it != m_scope.rend(); ++it) {
            bool found = false;
            if (!it->prefix.empty() && it->href == href && Lookup(it->prefix, found) == href) {
                return it->prefix;
            }
        }
        return {};
    }

    // Adds the element's bindings from `mark` on: its own declarations, then whatever its name
    // and its attributes' names need. Fills m_attributePrefixes with the prefix each attribute
    // is written with.
    void Bind(const xmlNode* element, std::size_t mark) {
        std::string_view ownPrefix =
            element->ns != nullptr ? View(element->ns->prefix) : std::string_view();
        std::string_view ownHref =
            element->ns != nullptr ? View(element->ns->href) : std::string_view();
        for (const xmlNs* d = element->nsDef; d != nullptr; d = d->next) {
            std::string_view prefix = View(d->prefix);
            std::string_view href = View(d->href);
            if (prefix == "xml" || prefix == "xmlns" || DeclaredSince(prefix, mark)) continue;
            if (prefix == ownPrefix && href != ownHref) continue;  // the element's name wins
            if (!prefix.empty() && href.empty()) continue;         // not expressible in XML 1.0
            m_scope.push_back({prefix, href});
        }
        bool found = false;
        if (ownPrefix != "xml" && (Lookup(ownPrefix, found) != ownHref || !found)) {
            if (!DeclaredSince(ownPrefix, mark) && (ownPrefix.empty() || !ownHref.empty())) {
                m_scope.push_back({ownPrefix, ownHref});
            }
        }
        m_attributePrefixes.clear();
        for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) {
            if (a->ns == nullptr) {
                m_attributePrefixes.emplace_back();
                continue;
            }
            std::string_view prefix = View(a->ns->prefix);
            std::string_view href = View(a->ns->href);
            if (href == kXmlNamespace) {
                m_attributePrefixes.emplace_back("xml");
                continue;
            }
            if (!prefix.empty() && prefix != "xmlns" && prefix != "xml") {
                std::string_view bound = Lookup(prefix, found);
                if (found && bound == href) {
                    m_attributePrefixes.push_back(prefix);
                    continue;
                }
                if (!DeclaredSince(prefix, mark)) {
                    m_scope.push_back({prefix, href});
                    m_attributePrefixes.push_back(prefix);
                    continue;
                }
            }
            // An attribute needs a prefix of its own for its namespace: reuse one in scope or
            // make one up.
            std::string_view chosen = PrefixFor(href);
            if (chosen.empty()) {
                int n = 0;
                std::string candidate;
                do {
                    candidate = "ns" + std::to_string(++n);
                    Lookup(candidate, found);
                } while (found);
                chosen = m_generated.emplace_back(std::move(candidate));
                m_scope.push_back({chosen, href});
            }
            m_attributePrefixes.push_back(chosen);
        }
    }

    bool Enter(const xmlNode* node) {
        switch (node->type) {
            case XML_ELEMENT_NODE:
                return StartElement(node);
            case XML_TEXT_NODE:
                AppendEscaped(m_out, View(node->content), false);
                return false;
            case XML_CDATA_SECTION_NODE: {
                std::string_view text = View(node->content);
                m_out += "<![CDATA[";
                std::size_t at = 0;
                for (std::size_t end; (end = text.find("]]>", at)) != std::string_view::npos;
                     at = end + 2) {
                    m_out.append(text.substr(at, end + 2 - at));
                    m_out += "]]><![CDATA[";
                }
                m_out.append(text.substr(at));
                m_out += "]]>";
                return false;
            }
            case XML_COMMENT_NODE:
                m_out += "<!--";
                m_out += View(node->content);
                m_out += "-->";
                return false;
            case XML_PI_NODE:
                m_out += "<?";
                m_out += View(node->name);
                if (node->content != nullptr && *node->content != 0) {
                    m_out += ' ';
                    m_out += View(node->content);
                }
                m_out += "?>";
                return false;
            case XML_ENTITY_REF_NODE:
                m_out += '&';
                m_out += View(node->name);
                m_out += ';';
                return false;
            case XML_ATTRIBUTE_NODE:
                if (node->ns != nullptr && node->ns->prefix != nullptr) {
                    m_out += View(node->ns->prefix);
                    m_out += ':';
                }
                m_out += View(node->name);
                m_out += "=\"";
                for (const xmlNode* t = node->children; t != nullptr; t = t->next) {
                    AppendEscaped(m_out, View(t->content), true);
                }
                m_out += '"';
                return false;
            case XML_DOCUMENT_FRAG_NODE:
            case XML_DOCUMENT_NODE:
                return node->children != nullptr;
            default:
                return false;
        }
    }

    void AppendName(const xmlNode* node) {
        if (node->ns != nullptr && node->ns->prefix != nullptr) {
            m_out += View(node->ns->prefix);
            m_out += ':';
        }
        m_out += View(node->name);
    }

    bool StartElement(const xmlNode* element) {
        std::size_t mark = m_scope.size();
        m_marks.push_back(mark);
        Bind(element, mark);
        m_out += '<';
        AppendName(element);
        for (std::size_t i = mark; i < m_scope.size(); ++i) {
            m_out += m_scope[i].prefix.empty() ? " xmlns" : " xmlns:";
            m_out += m_scope[i].prefix;
            m_out += "=\"";
            AppendEscaped(m_out, m_scope[i].href, true);
            m_out += '"';
        }
        std::size_t k = 0;
        for (const xmlAttr* a = element->properties; a != nullptr; a = a->next, ++k) {
            m_out += ' ';
            if (!m_attributePrefixes[k].empty()) {
                m_out += m_attributePrefixes[k];
                m_out += ':';
            }
            m_out += View(a->name);
            m_out += "=\"";
            for (const xmlNode* t = a->children; t != nullptr; t = t->next) {
                AppendEscaped(m_out, View(t->content), true);
            }
            m_out += '"';
        }
        if (element->children == nullptr) {
            m_out += "/>";
            m_scope.resize(mark);
            m_marks.pop_back();
            return false;
        }
        m_out += '>';
        return true;
    }

    void Leave(const xmlNode* node) {
        if (node->type != XML_ELEMENT_NODE) return;
        m_out += "</";
        AppendName(node);
        m_out += '>';
        m_scope.resize(m_marks.back());
        m_marks.pop_back();
    }

    std::string& m_out;
    std::vector<Binding> m_scope;
    std::vector<std::size_t> m_marks;
    std::vector<std::string_view> m_attributePrefixes;
    std::deque<std::string> m_generated;
};

bool IsXmlDeclarationPi(const xmlNode* node) {
    return node != nullptr && node->type == XML_PI_NODE && node->name != nullptr &&
           xmlStrcasecmp(node->name, reinterpret_cast<const xmlChar*>("xml")) == 0;
}

void AppendStandalone(std::string& out, int standalone) {
    if (standalone == 1) out += " standalone=\"yes\"";
    if (standalone == 0) out += " standalone=\"no\"";
}

}  // namespace

void SerializeNode(const xmlNode* node, std::string& out) {
    Writer writer(out);
    if (node->type == XML_ELEMENT_NODE) writer.InheritScope(node);
    writer.Write(node);
}

void SerializeDocument(const xmlDoc* doc, bool forSave, std::string& out) {
    std::string_view version = doc->version != nullptr ? View(doc->version) : "1.0";
    const xmlNode* first = doc->children;
    if (forSave) {
        // The bytes are UTF-8 whatever a declaration node in the tree says.
        out += "<?xml version=\"";
        out += version;
        out += "\" encoding=\"UTF-8\"";
        AppendStandalone(out, doc->standalone);
        out += "?>\r\n";
        if (IsXmlDeclarationPi(first)) first = first->next;
    } else if (doc->standalone != -1 && !IsXmlDeclarationPi(first)) {
        // Loaded with a declaration: shown without its encoding, the text being wide now.
        out += "<?xml version=\"";
        out += version;
        out += '"';
        AppendStandalone(out, doc->standalone);
        out += "?>\r\n";
    }
    for (const xmlNode* child = first; child != nullptr; child = child->next) {
        Writer writer(out);
        writer.Write(child);
        out += "\r\n";
    }
}

}  // namespace platform::msxml
