// domnamespaceattribute.cpp: a namespace declaration seen as an xmlns attribute node: its name
// and value, changing the URI it binds, and the node interface answered for a node that is no
// libxml2 node.
#include "platform/msxml/domnode.h"

#include <new>
#include <type_traits>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domdocument.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {

// ---- Namespace declarations as attributes ------------------------------------------------------

NamespaceAttribute::NamespaceAttribute(Tree* tree, xmlNode* owner, xmlNs* ns, bool exclusive)
    : m_tree(tree), m_owner(owner), m_ns(ns), m_exclusive(exclusive) {
    ns->_private = this;
    tree->Owner()->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_document));
}

NamespaceAttribute::~NamespaceAttribute() {
    if (m_ns->_private == this) m_ns->_private = nullptr;
    if (m_owner != nullptr) m_tree->WrapperGone(m_owner);
}

NamespaceAttribute* NamespaceAttribute::From(IUnknown* node) {
    return node == nullptr ? nullptr : dynamic_cast<NamespaceAttribute*>(node);
}

std::string NamespaceAttribute::Prefix() const {
    return std::string(View(m_ns->prefix));
}
std::string NamespaceAttribute::Href() const {
    return std::string(View(m_ns->href));
}

void NamespaceAttribute::Rehome(Tree* tree, xmlNode* owner, xmlNs* ns, bool exclusive) {
    if (m_ns->_private == this) m_ns->_private = nullptr;
    m_ns = ns;
    ns->_private = this;
    m_owner = owner;
    m_exclusive = exclusive;
    if (tree != m_tree.p) {
        m_tree = tree;
        m_document.Release();
        tree->Owner()->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_document));
    }
}

HRESULT NamespaceAttribute::SetHref(std::string_view href) {
    std::string value(href);
    if (m_owner == nullptr && m_exclusive) {
        xmlChar* copy = xmlStrdup(XmlStr(value));
        if (copy == nullptr) return E_OUTOFMEMORY;
        xmlFree(const_cast<xmlChar*>(m_ns->href));
        m_ns->href = copy;
        return S_OK;
    }
    if (m_owner != nullptr && DeclarationConflicts(m_owner, View(m_ns->prefix), href))
        return E_FAIL;
    xmlNs* fresh = NewNsStruct(m_ns->prefix, XmlStr(value));
    if (fresh == nullptr) return E_OUTOFMEMORY;
    if (m_owner != nullptr) {
        xmlNs** link = &m_owner->nsDef;
        while (*link != nullptr && *link != m_ns) link = &(*link)->next;
        if (*link == nullptr) {
            xmlFreeNs(fresh);
            return E_UNEXPECTED;
        }
        fresh->next = m_ns->next;
        *link = fresh;
        m_tree->KeepNs(m_ns);
    } else {
        m_tree->KeepNs(fresh);
    }
    m_ns->_private = nullptr;
    m_ns = fresh;
    fresh->_private = this;
    m_exclusive = m_owner == nullptr;
    m_tree->Touch();
    return S_OK;
}

HRESULT NamespaceAttribute::get_nodeName(BSTR* name) {
    if (name == nullptr) return E_INVALIDARG;
    std::string prefix = Prefix();
    return ReturnBstr(prefix.empty() ? std::string("xmlns") : "xmlns:" + prefix, name);
}

HRESULT NamespaceAttribute::get_nodeValue(VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    VariantInit(value);
    value->bstrVal = AllocBstr(View(m_ns->href));
    if (value->bstrVal == nullptr) return E_OUTOFMEMORY;
    value->vt = VT_BSTR;
    return S_OK;
}

HRESULT NamespaceAttribute::put_nodeValue(VARIANT value) {
    Utf8 text;
    FU_RETURN_IF_FAILED(VariantToUtf8(value, text));
    return SetHref(text);
}

HRESULT NamespaceAttribute::get_nodeType(DOMNodeType* type) {
    if (type == nullptr) return E_INVALIDARG;
    *type = NODE_ATTRIBUTE;
    return S_OK;
}

namespace {
HRESULT NoNode(IXMLDOMNode** node) {
    if (node == nullptr) return E_INVALIDARG;
    *node = nullptr;
    return S_FALSE;
}
}  // namespace

HRESULT NamespaceAttribute::get_parentNode(IXMLDOMNode** parent) {
    return NoNode(parent);
}
HRESULT NamespaceAttribute::get_firstChild(IXMLDOMNode** child) {
    return NoNode(child);
}
HRESULT NamespaceAttribute::get_lastChild(IXMLDOMNode** child) {
    return NoNode(child);
}
HRESULT NamespaceAttribute::get_previousSibling(IXMLDOMNode** sibling) {
    return NoNode(sibling);
}
HRESULT NamespaceAttribute::get_nextSibling(IXMLDOMNode** sibling) {
    return NoNode(sibling);
}
HRESULT NamespaceAttribute::selectSingleNode(BSTR, IXMLDOMNode** node) {
    return NoNode(node);
}

HRESULT NamespaceAttribute::get_childNodes(IXMLDOMNodeList** list) {
    if (list == nullptr) return E_INVALIDARG;
    *list = new (std::nothrow) StaticList(m_tree, {});
    return *list == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT NamespaceAttribute::selectNodes(BSTR, IXMLDOMNodeList** list) {
    return get_childNodes(list);
}

HRESULT NamespaceAttribute::get_attributes(IXMLDOMNamedNodeMap** map) {
    if (map == nullptr) return E_INVALIDARG;
    *map = nullptr;
    return S_FALSE;
}

HRESULT NamespaceAttribute::hasChildNodes(VARIANT_BOOL* has) {
    if (has == nullptr) return E_INVALIDARG;
    *has = VARIANT_FALSE;
    return S_FALSE;
}

HRESULT NamespaceAttribute::get_ownerDocument(IXMLDOMDocument** document) {
    if (document == nullptr) return E_INVALIDARG;
    return m_document.CopyTo(document);
}

HRESULT NamespaceAttribute::cloneNode(VARIANT_BOOL, IXMLDOMNode** clone) {
    if (clone == nullptr) return E_INVALIDARG;
    *clone = nullptr;
    xmlNs* ns = m_tree->LooseNs(m_ns->prefix, m_ns->href);
    if (ns == nullptr) return E_OUTOFMEMORY;
    auto* copy = new (std::nothrow) NamespaceAttribute(m_tree, nullptr, ns, true);
    if (copy == nullptr) return E_OUTOFMEMORY;
    *clone = copy;
    return S_OK;
}

HRESULT NamespaceAttribute::get_nodeTypeString(BSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    return ReturnBstr("attribute", text);
}

HRESULT NamespaceAttribute::get_text(BSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    return ReturnBstr(View(m_ns->href), text);
}

HRESULT NamespaceAttribute::put_text(BSTR text) {
    return SetHref(ToUtf8(text));
}

HRESULT NamespaceAttribute::get_specified(VARIANT_BOOL* specified) {
    if (specified == nullptr) return E_INVALIDARG;
    *specified = VARIANT_TRUE;
    return S_OK;
}

HRESULT NamespaceAttribute::get_dataType(VARIANT* type) {
    if (type == nullptr) return E_INVALIDARG;
    VariantInit(type);
    type->vt = VT_NULL;
    return S_FALSE;
}

HRESULT NamespaceAttribute::get_xml(BSTR* xml) {
    if (xml == nullptr) return E_INVALIDARG;
    std::string prefix = Prefix();
    std::string text = prefix.empty() ? std::string("xmlns=\"") : "xmlns:" + prefix + "=\"";
    for (char c : View(m_ns->href)) {
        switch (c) {
            case '&':
                text += "&amp;";
                break;
            case '<':
                text += "&lt;";
                break;
            case '>':
                text += "&gt;";
                break;
            case '"':
                text += "&quot;";
                break;
            default:
                text += c;
        }
    }
    text += '"';
    return ReturnBstr(text, xml);
}

HRESULT NamespaceAttribute::get_parsed(VARIANT_BOOL* parsed) {
    if (parsed == nullptr) return E_INVALIDARG;
    *parsed = VARIANT_TRUE;
    return S_OK;
}

HRESULT NamespaceAttribute::get_namespaceURI(BSTR* uri) {
    if (uri == nullptr) return E_INVALIDARG;
    return ReturnBstr(kXmlnsNamespace, uri);
}

HRESULT NamespaceAttribute::get_prefix(BSTR* prefix) {
    if (prefix == nullptr) return E_INVALIDARG;
    return ReturnBstr(m_ns->prefix == nullptr ? "" : "xmlns", prefix);
}

HRESULT NamespaceAttribute::get_baseName(BSTR* name) {
    if (name == nullptr) return E_INVALIDARG;
    return ReturnBstr(m_ns->prefix == nullptr ? std::string("xmlns") : Prefix(), name);
}

HRESULT NamespaceAttribute::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IXMLDOMNode || iid == IID_IDispatch) return Answer<IXMLDOMAttribute>(object);
    return E_NOINTERFACE;
}

}  // namespace platform::msxml
