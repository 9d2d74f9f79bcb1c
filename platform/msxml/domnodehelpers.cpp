// domnodehelpers.cpp: what the DOM classes do on bare libxml2 nodes: qualified names, attribute
// values and text, linking children and attributes without merging text nodes, namespace lookup
// and the check that a declaration would conflict.
#include "platform/msxml/domnode.h"

#include <new>
#include <type_traits>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domdocument.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {

bool IsContainer(const xmlNode* node) {
    return node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
           node->type == XML_DOCUMENT_FRAG_NODE;
}

// ---- Helpers ----------------------------------------------------------------------------------

std::string QualifiedName(const xmlNode* node) {
    std::string out;
    if (node->ns != nullptr && node->ns->prefix != nullptr) {
        out += View(node->ns->prefix);
        out += ':';
    }
    out += View(node->name);
    return out;
}

bool HasQualifiedName(const xmlNode* node, std::string_view qname) {
    std::string_view local = View(node->name);
    if (node->ns != nullptr && node->ns->prefix != nullptr) {
        std::string_view prefix = View(node->ns->prefix);
        return qname.size() == prefix.size() + 1 + local.size() &&
               qname.substr(0, prefix.size()) == prefix && qname[prefix.size()] == ':' &&
               qname.substr(prefix.size() + 1) == local;
    }
    return qname == local;
}

SplitName Split(std::string_view qname) {
    std::size_t colon = qname.find(':');
    if (colon == std::string_view::npos) return {std::string_view(), qname, false};
    return {qname.substr(0, colon), qname.substr(colon + 1), true};
}

std::string AttributeValue(const xmlAttr* attribute) {
    std::string out;
    for (const xmlNode* t = attribute->children; t != nullptr; t = t->next) out += View(t->content);
    return out;
}

std::string DescendantText(const xmlNode* node) {
    std::string out;
    xmlNode* root = const_cast<xmlNode*>(node);
    for (xmlNode* cur = root; cur != nullptr; cur = NextInSubtree(cur, root)) {
        if (cur->type == XML_TEXT_NODE || cur->type == XML_CDATA_SECTION_NODE) {
            out += View(cur->content);
        }
    }
    return out;
}

void LinkBefore(xmlNode* parent, xmlNode* child, xmlNode* ref) {
    child->parent = parent;
    if (ref == nullptr) {
        child->next = nullptr;
        child->prev = parent->last;
        if (parent->last != nullptr) {
            parent->last->next = child;
        } else {
            parent->children = child;
        }
        parent->last = child;
        return;
    }
    child->next = ref;
    child->prev = ref->prev;
    if (ref->prev != nullptr) {
        ref->prev->next = child;
    } else {
        parent->children = child;
    }
    ref->prev = child;
}

void LinkAttribute(xmlNode* element, xmlAttr* attribute) {
    attribute->parent = element;
    attribute->next = nullptr;
    if (element->properties == nullptr) {
        attribute->prev = nullptr;
        element->properties = attribute;
        return;
    }
    xmlAttr* last = element->properties;
    while (last->next != nullptr) last = last->next;
    last->next = attribute;
    attribute->prev = last;
}

xmlAttr* NewAttribute(xmlDocPtr doc, xmlNs* ns, const xmlChar* name, std::string_view value) {
    xmlAttr* attribute = xmlNewDocProp(doc, name, nullptr);
    if (attribute == nullptr) return nullptr;
    attribute->ns = ns;
    if (!value.empty()) {
        xmlNode* text = xmlNewDocTextLen(doc, reinterpret_cast<const xmlChar*>(value.data()),
                                         static_cast<int>(value.size()));
        if (text == nullptr) {
            xmlFreeProp(attribute);
            return nullptr;
        }
        text->parent = AsNode(attribute);
        attribute->children = text;
        attribute->last = text;
    }
    return attribute;
}

bool ReplaceChildrenWithText(Tree* tree, xmlNode* node, std::string_view text) {
    xmlNode* child = node->children;
    while (child != nullptr) {
        xmlNode* next = child->next;
        xmlUnlinkNode(child);
        tree->Discard(child);
        child = next;
    }
    tree->Touch();
    if (text.empty()) return true;
    xmlNode* fresh = xmlNewDocTextLen(node->doc, reinterpret_cast<const xmlChar*>(text.data()),
                                      static_cast<int>(text.size()));
    if (fresh == nullptr) return false;
    LinkBefore(node, fresh, nullptr);
    return true;
}

const xmlChar* LookupNamespace(const xmlNode* element, std::string_view prefix) {
    if (prefix == "xml") return XML_XML_NAMESPACE;
    for (const xmlNode* e = element; e != nullptr && e->type == XML_ELEMENT_NODE; e = e->parent) {
        for (const xmlNs* d = e->nsDef; d != nullptr; d = d->next) {
            if (View(d->prefix) == prefix) return d->href;
        }
        if (e->ns != nullptr && View(e->ns->prefix) == prefix) return e->ns->href;
    }
    return nullptr;
}

bool DeclarationConflicts(const xmlNode* element, std::string_view prefix, std::string_view href) {
    if (prefix.empty()) {
        // A default declaration renames the element when it has no prefix.
        if (element->ns == nullptr || element->ns->prefix == nullptr) {
            std::string_view current = element->ns != nullptr ? View(element->ns->href) : "";
            return current != href;
        }
        return false;
    }
    auto conflicts = [&](const xmlNs* ns) {
        return ns != nullptr && ns->prefix != nullptr && View(ns->prefix) == prefix &&
               View(ns->href) != href;
    };
    if (conflicts(element->ns)) return true;
    for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) {
        if (conflicts(a->ns)) return true;
    }
    return false;
}

}  // namespace platform::msxml
