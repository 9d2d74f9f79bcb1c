// domtree.cpp: bookkeeping of one libxml2 tree shared by a document and its node wrappers:
// detached subtrees and namespace structures.
#include "platform/msxml/domtree.h"

#include <libxml/parser.h>
#include <libxml/xpathInternals.h>

#include <cstring>
#include <mutex>
#include <new>

namespace platform::msxml {

namespace {
void DiscardLibxmlMessage(void* /*context*/, const char* /*format*/, ...) {}
}  // namespace

void EnsureLibxml() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlThrDefSetGenericErrorFunc(nullptr, &DiscardLibxmlMessage);
        xmlSetGenericErrorFunc(nullptr, &DiscardLibxmlMessage);
    });
}

xmlNode* NextInSubtree(xmlNode* cur, const xmlNode* root) {
    bool descends = cur->type == XML_ELEMENT_NODE || cur->type == XML_DOCUMENT_NODE ||
                    cur->type == XML_DOCUMENT_FRAG_NODE || cur->type == XML_ATTRIBUTE_NODE;
    if (descends && cur->children != nullptr) return cur->children;
    while (cur != root) {
        if (cur->next != nullptr) return cur->next;
        cur = cur->parent;
        if (cur == nullptr) return nullptr;
    }
    return nullptr;
}

Tree* Tree::Create(xmlDocPtr doc, DomDocument* owner) {
    Tree* tree = new (std::nothrow) Tree(doc, owner);
    if (tree == nullptr) xmlFreeDoc(doc);
    return tree;
}

ULONG Tree::Release() {
    ULONG left = --m_refs;
    if (left == 0) delete this;
    return left;
}

Tree::~Tree() {
    for (xmlNode* root : m_detached) FreeSubtree(root);
    m_detached.clear();
    if (m_doc != nullptr) {
        m_doc->_private = nullptr;
        xmlFreeDoc(m_doc);
    }
    for (xmlNs* ns : m_orphans) xmlFreeNs(ns);
    for (auto& entry : m_shared) xmlFreeNs(entry.second);
}

bool Tree::HasWrappers(xmlNode* root) {
    bool found = false;
    ForEachInSubtree(root, [&](xmlNode* node) {
        if (node->_private != nullptr) found = true;
        if (node->type == XML_ELEMENT_NODE) {
            for (xmlNs* ns = node->nsDef; ns != nullptr; ns = ns->next) {
                if (ns->_private != nullptr) found = true;
            }
        }
    });
    return found;
}

void Tree::FreeSubtree(xmlNode* root) {
    // Declarations move to the orphan list first: nodes elsewhere may still name them.
    ForEachInSubtree(root, [&](xmlNode* node) {
        if (node->type != XML_ELEMENT_NODE) return;
        xmlNs* ns = node->nsDef;
        node->nsDef = nullptr;
        while (ns != nullptr) {
            xmlNs* next = ns->next;
            ns->next = nullptr;
            m_orphans.push_back(ns);
            ns = next;
        }
    });
    if (root->type == XML_ATTRIBUTE_NODE) {
        xmlFreeProp(AsAttr(root));
    } else {
        xmlFreeNode(root);
    }
}

void Tree::WrapperGone(xmlNode* node) {
    if (m_pins > 0 || m_detached.empty() || node == nullptr) return;
    xmlNode* top = node;
    while (top->parent != nullptr) top = top->parent;
    auto found = m_detached.find(top);
    if (found == m_detached.end() || HasWrappers(top)) return;
    m_detached.erase(found);
    FreeSubtree(top);
}

void Tree::Discard(xmlNode* root) {
    if (m_pins == 0 && !HasWrappers(root)) {
        FreeSubtree(root);
    } else {
        m_detached.insert(root);
    }
}

void Tree::Unpin() {
    if (--m_pins == 0 && !m_detached.empty()) Sweep();
}

void Tree::Sweep() {
    std::vector<xmlNode*> unused;
    for (xmlNode* root : m_detached) {
        if (!HasWrappers(root)) unused.push_back(root);
    }
    for (xmlNode* root : unused) {
        m_detached.erase(root);
        FreeSubtree(root);
    }
}

xmlNs* Tree::SharedNs(std::string_view prefix, std::string_view href, bool hasPrefix) {
    // A leading "\x01" keeps "no prefix" apart from an empty one in the key.
    std::pair<std::string, std::string> key(hasPrefix ? std::string(prefix) : std::string("\x01"),
                                            std::string(href));
    auto found = m_shared.find(key);
    if (found != m_shared.end()) return found->second;
    std::string prefixText(prefix);
    std::string hrefText(href);
    xmlNs* ns = LooseNs(hasPrefix ? reinterpret_cast<const xmlChar*>(prefixText.c_str()) : nullptr,
                        reinterpret_cast<const xmlChar*>(hrefText.c_str()));
    if (ns == nullptr) return nullptr;
    m_orphans.pop_back();  // owned by the shared map instead
    m_shared.emplace(std::move(key), ns);
    return ns;
}

xmlNs* NewNsStruct(const xmlChar* prefix, const xmlChar* href) {
    // xmlNewNs(NULL, ...) refuses the "xml" prefix; build the structure directly instead.
    auto* ns = static_cast<xmlNs*>(xmlMalloc(sizeof(xmlNs)));
    if (ns == nullptr) return nullptr;
    std::memset(ns, 0, sizeof(xmlNs));
    ns->type = XML_LOCAL_NAMESPACE;
    ns->href = xmlStrdup(href == nullptr ? reinterpret_cast<const xmlChar*>("") : href);
    ns->prefix = prefix == nullptr ? nullptr : xmlStrdup(prefix);
    if (ns->href == nullptr || (prefix != nullptr && ns->prefix == nullptr)) {
        xmlFreeNs(ns);
        return nullptr;
    }
    return ns;
}

xmlNs* Tree::LooseNs(const xmlChar* prefix, const xmlChar* href) {
    xmlNs* ns = NewNsStruct(prefix, href);
    if (ns != nullptr) m_orphans.push_back(ns);
    return ns;
}

void Tree::KeepNs(xmlNs* ns) {
    ns->next = nullptr;
    m_orphans.push_back(ns);
}

}  // namespace platform::msxml
