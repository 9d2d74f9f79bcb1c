// domtree.h: one libxml2 document tree as the MSXML stand-in shares it between the document
// object and its node wrappers: who wraps which node, the namespace structures that must outlive
// any node naming them, and the subtrees that are detached but still referenced. Internal
// header.
//
// Lifetime rules:
// - A tree is reference counted; the document object holds its current tree and every node
//   wrapper holds the tree of its node, so a tree replaced by load() lives while its nodes do.
// - node->_private (also on attributes and namespace declarations) points at the node's wrapper
//   while one exists; a node has at most one wrapper, so wrappers give node identity.
// - A subtree that is not part of the document (created, removed, replaced) is a "detached
//   root". It is freed once no wrapper refers into it and no node list pins the tree, or when
//   the tree dies.
// - Every xmlNs the tree ever had lives until the tree dies: removing a namespace declaration
//   unlinks it but the nodes that named it keep pointing at it, keeping their namespaces.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/msxml/msxml6.h"

namespace platform::msxml {

class DomDocument;
class NodeCore;

// Initialises libxml2 once per process (thread-safe) and keeps it from writing to stderr:
// every parse reports its errors through its caller (a parse error object, an HRESULT, an
// exception), but libxml2 2.9 prints some of them (an input that its encoding cannot convert,
// for one) through its generic error channel even when asked not to. The silence applies to the
// calling thread and to every thread that uses libxml2 afterwards.
void EnsureLibxml();

inline xmlNode* AsNode(xmlAttr* attribute) {
    return reinterpret_cast<xmlNode*>(attribute);
}
inline xmlAttr* AsAttr(xmlNode* node) {
    return reinterpret_cast<xmlAttr*>(node);
}
inline xmlNode* AsNode(xmlDoc* doc) {
    return reinterpret_cast<xmlNode*>(doc);
}

// Pre-order successor of cur within root's subtree (children only, not attributes); null at the
// end. Does not descend into entity references.
xmlNode* NextInSubtree(xmlNode* cur, const xmlNode* root);
// Calls visit(node) for root and everything below it: children, attributes and attribute text.
template <class Visit>
void ForEachInSubtree(xmlNode* root, Visit&& visit) {
    for (xmlNode* cur = root; cur != nullptr; cur = NextInSubtree(cur, root)) {
        visit(cur);
        if (cur->type == XML_ELEMENT_NODE) {
            for (xmlAttr* a = cur->properties; a != nullptr; a = a->next) {
                visit(AsNode(a));
                for (xmlNode* t = a->children; t != nullptr; t = t->next) visit(t);
            }
        }
    }
}
// A namespace structure linked nowhere (prefix may be null: the default namespace).
xmlNs* NewNsStruct(const xmlChar* prefix, const xmlChar* href);

class Tree {
public:
    // Takes ownership of doc (freed at once when the tree cannot be made: null); owner is the
    // document object (not counted: it outlives every wrapper, which holds it).
    static Tree* Create(xmlDocPtr doc, DomDocument* owner);
    ULONG AddRef() { return ++m_refs; }
    ULONG Release();

    xmlDocPtr Doc() const { return m_doc; }
    DomDocument* Owner() const { return m_owner; }
    std::uint64_t Version() const { return m_version; }
    void Touch() { ++m_version; }

    // The node's wrapper (created on first use) with a reference added. A null node gives S_FALSE
    // and null; a node kind the DOM does not expose gives S_FALSE and null as well.
    HRESULT Wrap(xmlNode* node, IXMLDOMNode** out);
    // The wrapper of a namespace declaration `ns` held by element `owner` (null when detached).
    HRESULT WrapDeclaration(xmlNode* owner, xmlNs* ns, IXMLDOMAttribute** out);
    // Called by a wrapper as it goes away (after clearing _private).
    void WrapperGone(xmlNode* node);

    // A namespace structure for naming nodes with (prefix, href); shared and never declared.
    xmlNs* SharedNs(std::string_view prefix, std::string_view href, bool hasPrefix);
    // A fresh, exclusive namespace structure that is linked nowhere.
    xmlNs* LooseNs(const xmlChar* prefix, const xmlChar* href);
    // Takes ownership of a declaration unlinked from an element.
    void KeepNs(xmlNs* ns);

    void MarkDetached(xmlNode* root) { m_detached.insert(root); }
    void MarkAttached(xmlNode* root) { m_detached.erase(root); }
    bool IsDetachedRoot(xmlNode* node) const { return m_detached.count(node) != 0; }
    // An unlinked subtree nobody asked for: freed now unless a wrapper or a node list needs it.
    void Discard(xmlNode* root);
    // Node lists hold raw node pointers: while any exists, no detached subtree is freed.
    void Pin() { ++m_pins; }
    void Unpin();

    // True when a wrapper refers to root or anything below it.
    static bool HasWrappers(xmlNode* root);

    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

private:
    Tree(xmlDocPtr doc, DomDocument* owner) : m_doc(doc), m_owner(owner) {}
    ~Tree();
    void FreeSubtree(xmlNode* root);
    void Sweep();

    std::atomic<ULONG> m_refs{1};
    xmlDocPtr m_doc;
    DomDocument* m_owner;
    std::uint64_t m_version = 0;
    int m_pins = 0;
    std::unordered_set<xmlNode*> m_detached;
    std::map<std::pair<std::string, std::string>, xmlNs*> m_shared;
    std::vector<xmlNs*> m_orphans;
};

}  // namespace platform::msxml
