// domnodecopy.cpp: copies of nodes within and across documents (namespaces re-bound in the
// target tree) and moving a node to another document together with the wrappers of its subtree.
#include "platform/msxml/domnode.h"

#include <new>
#include <type_traits>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domdocument.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {
namespace {

xmlNode* CopyOne(const xmlNode* source, Tree* tree, bool sameTree) {
    xmlDocPtr doc = tree->Doc();
    auto mapNs = [&](xmlNs* ns) -> xmlNs* {
        if (ns == nullptr || sameTree) return ns;
        return tree->SharedNs(View(ns->prefix), View(ns->href), ns->prefix != nullptr);
    };
    switch (source->type) {
        case XML_ELEMENT_NODE: {
            xmlNode* element = xmlNewDocNode(doc, nullptr, source->name, nullptr);
            if (element == nullptr) return nullptr;
            element->ns = mapNs(source->ns);
            xmlNs** tail = &element->nsDef;
            for (xmlNs* d = source->nsDef; d != nullptr; d = d->next) {
                xmlNs* copy = NewNsStruct(d->prefix, d->href);
                if (copy == nullptr) {
                    xmlFreeNode(element);
                    return nullptr;
                }
                *tail = copy;
                tail = &copy->next;
            }
            for (xmlAttr* a = source->properties; a != nullptr; a = a->next) {
                xmlAttr* copy = NewAttribute(doc, mapNs(a->ns), a->name, AttributeValue(a));
                if (copy == nullptr) {
                    xmlFreeNode(element);
                    return nullptr;
                }
                LinkAttribute(element, copy);
            }
            return element;
        }
        case XML_ATTRIBUTE_NODE:
            return AsNode(NewAttribute(doc, mapNs(source->ns), source->name,
                                       AttributeValue(reinterpret_cast<const xmlAttr*>(source))));
        case XML_TEXT_NODE:
            return xmlNewDocText(doc, source->content);
        case XML_CDATA_SECTION_NODE:
            return xmlNewCDataBlock(doc, source->content, xmlStrlen(source->content));
        case XML_COMMENT_NODE:
            return xmlNewDocComment(doc, source->content);
        case XML_PI_NODE:
            return xmlNewDocPI(doc, source->name, source->content);
        case XML_DOCUMENT_FRAG_NODE:
            return xmlNewDocFragment(doc);
        default:
            return nullptr;
    }
}

void MoveWrapper(xmlNode* from, xmlNode* to, Tree* target) {
    if (from->_private != nullptr) static_cast<NodeCore*>(from->_private)->Rehome(target, to);
}

// Moves every wrapper of the subtree `from` onto the same position in its copy `to`.
void MoveWrappers(xmlNode* from, xmlNode* to, Tree* target) {
    xmlNode* s = from;
    xmlNode* d = to;
    while (s != nullptr && d != nullptr) {
        MoveWrapper(s, d, target);
        if (s->type == XML_ELEMENT_NODE) {
            xmlAttr* a = s->properties;
            xmlAttr* b = d->properties;
            for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
                MoveWrapper(AsNode(a), AsNode(b), target);
                xmlNode* at = a->children;
                xmlNode* bt = b->children;
                for (; at != nullptr && bt != nullptr; at = at->next, bt = bt->next) {
                    MoveWrapper(at, bt, target);
                }
            }
            xmlNs* x = s->nsDef;
            xmlNs* y = d->nsDef;
            for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
                if (x->_private != nullptr) {
                    static_cast<NamespaceAttribute*>(x->_private)->Rehome(target, d, y, false);
                }
            }
        }
        s = NextInSubtree(s, from);
        d = NextInSubtree(d, to);
    }
}

}  // namespace

xmlNode* CopySubtree(const xmlNode* source, Tree* tree, bool sameTree, bool deep) {
    xmlNode* root = CopyOne(source, tree, sameTree);
    if (root == nullptr || !deep || source->type == XML_ATTRIBUTE_NODE) return root;
    // Iterative walk: the copy keeps pace with the source, so depth costs no stack.
    const xmlNode* s = source->children;
    xmlNode* parent = root;
    while (s != nullptr) {
        xmlNode* copy = CopyOne(s, tree, sameTree);
        if (copy == nullptr) {
            xmlFreeNode(root);
            return nullptr;
        }
        LinkBefore(parent, copy, nullptr);
        if (s->children != nullptr && IsContainer(s)) {
            parent = copy;
            s = s->children;
            continue;
        }
        while (s != nullptr && s->next == nullptr) {
            s = s->parent;
            if (s == source) {
                s = nullptr;
                break;
            }
            parent = parent->parent;
        }
        if (s != nullptr) s = s->next;
    }
    return root;
}

HRESULT Adopt(NodeCore* node, Tree* target) {
    CComPtr<Tree> source = node->GetTree();
    xmlNode* original = node->Node();
    xmlNode* copy = CopySubtree(original, target, false, true);
    if (copy == nullptr) return E_OUTOFMEMORY;
    target->MarkDetached(copy);
    MoveWrappers(original, copy, target);
    if (original->parent != nullptr) {
        xmlUnlinkNode(original);
    } else {
        source->MarkAttached(original);
    }
    source->Discard(original);
    source->Touch();
    target->Touch();
    return S_OK;
}

}  // namespace platform::msxml
