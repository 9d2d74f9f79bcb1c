// domcollections.cpp: childNodes, static node lists and the attribute map, plus the attribute
// and namespace-declaration operations behind IXMLDOMElement and IXMLDOMNamedNodeMap.
#include "platform/msxml/domcollections.h"

#include <new>

#include "platform/msxml/domdocument.h"

namespace platform::msxml {
namespace {

HRESULT NoItem(IXMLDOMNode** item) {
    *item = nullptr;
    return S_FALSE;
}

}  // namespace

// ---- ChildList --------------------------------------------------------------------------------

ChildList::ChildList(NodeCore* parent) : m_parentRef(parent->Self()), m_parent(parent) {}

ChildList::~ChildList() = default;

xmlNode* ChildList::At(LONG index) {
    if (index < 0) return nullptr;
    xmlNode* parent = m_parent->Node();
    if (parent->type != XML_ELEMENT_NODE && parent->type != XML_DOCUMENT_NODE &&
        parent->type != XML_DOCUMENT_FRAG_NODE && parent->type != XML_ATTRIBUTE_NODE) {
        return nullptr;
    }
    // The cached position is only trusted while the tree is unchanged: any edit bumps the
    // version, and a node is only ever freed after an edit removed it.
    Tree* tree = m_parent->GetTree();
    bool cacheValid = m_cachedNode != nullptr && m_cacheTree == tree &&
                      m_cacheVersion == tree->Version() && m_cachedIndex <= index;
    xmlNode* cur = cacheValid ? m_cachedNode : parent->children;
    LONG at = cacheValid ? m_cachedIndex : 0;
    while (cur != nullptr && at < index) {
        cur = cur->next;
        ++at;
    }
    if (cur != nullptr) {
        m_cachedNode = cur;
        m_cachedIndex = at;
        m_cacheTree = tree;
        m_cacheVersion = tree->Version();
    }
    return cur;
}

HRESULT ChildList::get_item(LONG index, IXMLDOMNode** item) {
    if (item == nullptr) return E_INVALIDARG;
    xmlNode* node = At(index);
    if (node == nullptr) return NoItem(item);
    return m_parent->GetTree()->Wrap(node, item);
}

HRESULT ChildList::get_length(LONG* length) {
    if (length == nullptr) return E_INVALIDARG;
    LONG count = 0;
    xmlNode* parent = m_parent->Node();
    bool hasChildren = parent->type == XML_ELEMENT_NODE || parent->type == XML_DOCUMENT_NODE ||
                       parent->type == XML_DOCUMENT_FRAG_NODE || parent->type == XML_ATTRIBUTE_NODE;
    if (hasChildren) {
        for (xmlNode* c = parent->children; c != nullptr; c = c->next) ++count;
    }
    *length = count;
    return S_OK;
}

HRESULT ChildList::nextNode(IXMLDOMNode** next) {
    if (next == nullptr) return E_INVALIDARG;
    xmlNode* node = At(m_next);
    if (node == nullptr) return NoItem(next);
    ++m_next;
    return m_parent->GetTree()->Wrap(node, next);
}

HRESULT ChildList::reset() {
    m_next = 0;
    return S_OK;
}

HRESULT ChildList::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IDispatch) return Answer<IXMLDOMNodeList>(object);
    return E_NOINTERFACE;
}

// ---- StaticList -------------------------------------------------------------------------------

StaticList::StaticList(Tree* tree, std::vector<xmlNode*> nodes)
    : m_tree(tree), m_nodes(std::move(nodes)) {
    tree->Pin();
    tree->Owner()->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_document));
}

StaticList::~StaticList() {
    m_tree->Unpin();
}

HRESULT StaticList::get_item(LONG index, IXMLDOMNode** item) {
    if (item == nullptr) return E_INVALIDARG;
    if (index < 0 || static_cast<std::size_t>(index) >= m_nodes.size()) return NoItem(item);
    // Listed nodes stay allocated while the list pins the tree, even if removed since (a node
    // moved to another document leaves its old, detached self behind here).
    return m_tree->Wrap(m_nodes[static_cast<std::size_t>(index)], item);
}

HRESULT StaticList::get_length(LONG* length) {
    if (length == nullptr) return E_INVALIDARG;
    *length = static_cast<LONG>(m_nodes.size());
    return S_OK;
}

HRESULT StaticList::nextNode(IXMLDOMNode** next) {
    if (next == nullptr) return E_INVALIDARG;
    if (m_next >= m_nodes.size()) return NoItem(next);
    return get_item(static_cast<LONG>(m_next++), next);
}

HRESULT StaticList::reset() {
    m_next = 0;
    return S_OK;
}

HRESULT StaticList::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IDispatch) return Answer<IXMLDOMNodeList>(object);
    return E_NOINTERFACE;
}

// ---- Attribute operations ---------------------------------------------------------------------

namespace attributes {
namespace {

// "xmlns" and "xmlns:p" name declarations; prefix is "" for the default namespace.
bool IsDeclarationName(std::string_view name, std::string_view& prefix) {
    if (name == "xmlns") {
        prefix = {};
        return true;
    }
    if (name.size() > 6 && name.substr(0, 6) == "xmlns:") {
        prefix = name.substr(6);
        return true;
    }
    return false;
}

xmlNs* FindDeclaration(const xmlNode* element, std::string_view prefix) {
    for (xmlNs* d = element->nsDef; d != nullptr; d = d->next) {
        if (View(d->prefix) == prefix && (d->prefix != nullptr) == !prefix.empty()) return d;
    }
    return nullptr;
}

xmlAttr* FindAttribute(const xmlNode* element, std::string_view name) {
    for (xmlAttr* a = element->properties; a != nullptr; a = a->next) {
        if (HasQualifiedName(AsNode(a), name)) return a;
    }
    return nullptr;
}

xmlAttr* FindQualified(const xmlNode* element, std::string_view local, std::string_view uri) {
    for (xmlAttr* a = element->properties; a != nullptr; a = a->next) {
        std::string_view href = a->ns != nullptr ? View(a->ns->href) : std::string_view();
        if (View(a->name) == local && href == uri) return a;
    }
    return nullptr;
}

HRESULT WrapDeclaration(NodeCore& element, xmlNode* owner, xmlNs* ns, IXMLDOMNode** item) {
    CComPtr<IXMLDOMAttribute> attribute;
    FU_RETURN_IF_FAILED(element.GetTree()->WrapDeclaration(owner, ns, &attribute));
    *item = attribute.Detach();
    return S_OK;
}

// Unlinks a declaration; its wrapper (if any) becomes a detached declaration.
HRESULT RemoveDeclaration(NodeCore& element, xmlNs* ns, IXMLDOMNode** removed) {
    xmlNode* owner = element.Node();
    xmlNs** link = &owner->nsDef;
    while (*link != nullptr && *link != ns) link = &(*link)->next;
    if (*link == nullptr) return E_UNEXPECTED;
    *link = ns->next;
    Tree* tree = element.GetTree();
    tree->KeepNs(ns);
    if (ns->_private != nullptr) {
        static_cast<NamespaceAttribute*>(ns->_private)->Rehome(tree, nullptr, ns, false);
    }
    tree->Touch();
    if (removed == nullptr) return S_OK;
    return WrapDeclaration(element, nullptr, ns, removed);
}

HRESULT RemoveAttribute(NodeCore& element, xmlAttr* attribute, IXMLDOMNode** removed) {
    Tree* tree = element.GetTree();
    xmlUnlinkNode(AsNode(attribute));
    tree->Touch();
    if (removed == nullptr) {
        // Nobody asked for it: freed unless a wrapper or a node list still needs it.
        tree->Discard(AsNode(attribute));
        return S_OK;
    }
    tree->MarkDetached(AsNode(attribute));
    return tree->Wrap(AsNode(attribute), removed);
}

// Appends a fresh declaration prefix = href to the element.
xmlNs* AppendDeclaration(xmlNode* element, std::string_view prefix, std::string_view href) {
    std::string prefixText(prefix);
    std::string hrefText(href);
    xmlNs* ns = NewNsStruct(prefix.empty() ? nullptr : XmlStr(prefixText), XmlStr(hrefText));
    if (ns == nullptr) return nullptr;
    xmlNs** tail = &element->nsDef;
    while (*tail != nullptr) tail = &(*tail)->next;
    *tail = ns;
    return ns;
}

bool ReservedPrefix(std::string_view prefix) {
    return prefix == "xml" || prefix == "xmlns";
}

HRESULT AttachDeclaration(NodeCore& element, NamespaceAttribute* declaration,
                          IXMLDOMNode** replaced) {
    xmlNode* owner = element.Node();
    if (declaration->OwnerElement() == owner) return S_OK;
    if (declaration->OwnerElement() != nullptr) return E_FAIL;  // in use on another element
    std::string prefix = declaration->Prefix();
    std::string href = declaration->Href();
    if (ReservedPrefix(prefix) || (!prefix.empty() && href.empty())) return E_FAIL;
    if (DeclarationConflicts(owner, prefix, href)) return E_FAIL;
    if (xmlNs* existing = FindDeclaration(owner, prefix)) {
        FU_RETURN_IF_FAILED(RemoveDeclaration(element, existing, replaced));
    }
    xmlNs* fresh = AppendDeclaration(owner, prefix, href);
    if (fresh == nullptr) return E_OUTOFMEMORY;
    declaration->Rehome(element.GetTree(), owner, fresh, false);
    element.GetTree()->Touch();
    return S_OK;
}

HRESULT SetDeclarationValue(NodeCore& element, std::string_view prefix, std::string_view href) {
    xmlNode* owner = element.Node();
    if (ReservedPrefix(prefix) || (!prefix.empty() && href.empty())) return E_FAIL;
    xmlNs* existing = FindDeclaration(owner, prefix);
    if (existing != nullptr && View(existing->href) == href) return S_OK;
    if (DeclarationConflicts(owner, prefix, href)) return E_FAIL;
    if (existing != nullptr && existing->_private != nullptr) {
        return static_cast<NamespaceAttribute*>(existing->_private)->SetHref(href);
    }
    if (existing != nullptr) FU_RETURN_IF_FAILED(RemoveDeclaration(element, existing, nullptr));
    if (AppendDeclaration(owner, prefix, href) == nullptr) return E_OUTOFMEMORY;
    element.GetTree()->Touch();
    return S_OK;
}

}  // namespace

LONG Count(const xmlNode* element) {
    LONG count = 0;
    for (const xmlNs* d = element->nsDef; d != nullptr; d = d->next) ++count;
    for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) ++count;
    return count;
}

HRESULT Item(NodeCore& element, LONG index, IXMLDOMNode** item) {
    if (index < 0) return NoItem(item);
    xmlNode* owner = element.Node();
    for (xmlNs* d = owner->nsDef; d != nullptr; d = d->next, --index) {
        if (index == 0) return WrapDeclaration(element, owner, d, item);
    }
    for (xmlAttr* a = owner->properties; a != nullptr; a = a->next, --index) {
        if (index == 0) return element.GetTree()->Wrap(AsNode(a), item);
    }
    return NoItem(item);
}

HRESULT GetNamed(NodeCore& element, std::string_view name, IXMLDOMNode** item) {
    xmlNode* owner = element.Node();
    std::string_view prefix;
    if (IsDeclarationName(name, prefix)) {
        xmlNs* ns = FindDeclaration(owner, prefix);
        return ns == nullptr ? NoItem(item) : WrapDeclaration(element, owner, ns, item);
    }
    xmlAttr* attribute = FindAttribute(owner, name);
    return attribute == nullptr ? NoItem(item) : element.GetTree()->Wrap(AsNode(attribute), item);
}

HRESULT GetQualified(NodeCore& element, std::string_view local, std::string_view uri,
                     IXMLDOMNode** item) {
    xmlNode* owner = element.Node();
    if (uri == kXmlnsNamespace) {
        xmlNs* ns = FindDeclaration(owner, local == "xmlns" ? std::string_view() : local);
        return ns == nullptr ? NoItem(item) : WrapDeclaration(element, owner, ns, item);
    }
    xmlAttr* attribute = FindQualified(owner, local, uri);
    return attribute == nullptr ? NoItem(item) : element.GetTree()->Wrap(AsNode(attribute), item);
}

HRESULT RemoveNamed(NodeCore& element, std::string_view name, IXMLDOMNode** removed) {
    if (removed != nullptr) *removed = nullptr;
    xmlNode* owner = element.Node();
    std::string_view prefix;
    if (IsDeclarationName(name, prefix)) {
        xmlNs* ns = FindDeclaration(owner, prefix);
        return ns == nullptr ? S_FALSE : RemoveDeclaration(element, ns, removed);
    }
    xmlAttr* attribute = FindAttribute(owner, name);
    return attribute == nullptr ? S_FALSE : RemoveAttribute(element, attribute, removed);
}

HRESULT RemoveQualified(NodeCore& element, std::string_view local, std::string_view uri,
                        IXMLDOMNode** removed) {
    if (removed != nullptr) *removed = nullptr;
    xmlNode* owner = element.Node();
    if (uri == kXmlnsNamespace) {
        xmlNs* ns = FindDeclaration(owner, local == "xmlns" ? std::string_view() : local);
        return ns == nullptr ? S_FALSE : RemoveDeclaration(element, ns, removed);
    }
    xmlAttr* attribute = FindQualified(owner, local, uri);
    return attribute == nullptr ? S_FALSE : RemoveAttribute(element, attribute, removed);
}

HRESULT SetNode(NodeCore& element, IXMLDOMNode* attribute, IXMLDOMNode** replaced) {
    if (replaced != nullptr) *replaced = nullptr;
    if (attribute == nullptr) return E_INVALIDARG;
    if (NamespaceAttribute* declaration = NamespaceAttribute::From(attribute)) {
        return AttachDeclaration(element, declaration, replaced);
    }
    NodeCore* node = NodeCore::From(attribute);
    if (node == nullptr) return E_INVALIDARG;
    if (node->Node()->type != XML_ATTRIBUTE_NODE) return E_FAIL;
    xmlNode* owner = element.Node();
    if (node->Node()->parent == owner) return S_OK;
    if (node->Node()->parent != nullptr) return E_FAIL;  // in use on another element
    Tree* tree = element.GetTree();
    if (node->GetTree() != tree) FU_RETURN_IF_FAILED(Adopt(node, tree));
    xmlAttr* fresh = AsAttr(node->Node());
    std::string_view uri = fresh->ns != nullptr ? View(fresh->ns->href) : std::string_view();
    if (xmlAttr* existing = FindQualified(owner, View(fresh->name), uri)) {
        FU_RETURN_IF_FAILED(RemoveAttribute(element, existing, replaced));
    }
    tree->MarkAttached(AsNode(fresh));
    LinkAttribute(owner, fresh);
    tree->Touch();
    return S_OK;
}

HRESULT RemoveNode(NodeCore& element, IXMLDOMNode* attribute, IXMLDOMNode** removed) {
    if (removed != nullptr) *removed = nullptr;
    if (attribute == nullptr) return E_INVALIDARG;
    if (NamespaceAttribute* declaration = NamespaceAttribute::From(attribute)) {
        if (declaration->OwnerElement() != element.Node()) return E_INVALIDARG;
        return RemoveDeclaration(element, declaration->Ns(), removed);
    }
    NodeCore* node = NodeCore::From(attribute);
    if (node == nullptr || node->Node()->type != XML_ATTRIBUTE_NODE ||
        node->Node()->parent != element.Node()) {
        return E_INVALIDARG;
    }
    return RemoveAttribute(element, AsAttr(node->Node()), removed);
}

HRESULT SetValue(NodeCore& element, std::string_view name, std::string_view value) {
    if (name.empty() || name.find('\0') != std::string_view::npos) return E_INVALIDARG;
    std::string_view prefix;
    if (IsDeclarationName(name, prefix)) return SetDeclarationValue(element, prefix, value);
    xmlNode* owner = element.Node();
    Tree* tree = element.GetTree();
    if (xmlAttr* existing = FindAttribute(owner, name)) {
        return ReplaceChildrenWithText(tree, AsNode(existing), value) ? S_OK : E_OUTOFMEMORY;
    }
    std::string qname(name);
    if (xmlValidateQName(XmlStr(qname), 0) != 0) return E_INVALIDARG;
    SplitName split = Split(name);
    xmlNs* ns = nullptr;
    if (split.hasPrefix) {
        const xmlChar* href = LookupNamespace(owner, split.prefix);
        if (href == nullptr || *href == 0) return E_INVALIDARG;  // undeclared prefix
        ns = tree->SharedNs(split.prefix, View(href), true);
        if (ns == nullptr) return E_OUTOFMEMORY;
    }
    std::string local(split.local);
    xmlAttr* attribute = NewAttribute(tree->Doc(), ns, XmlStr(local), value);
    if (attribute == nullptr) return E_OUTOFMEMORY;
    LinkAttribute(owner, attribute);
    tree->Touch();
    return S_OK;
}

HRESULT GetValue(const xmlNode* element, std::string_view name, std::string& value) {
    std::string_view prefix;
    if (IsDeclarationName(name, prefix)) {
        xmlNs* ns = FindDeclaration(element, prefix);
        if (ns == nullptr) return S_FALSE;
        value = View(ns->href);
        return S_OK;
    }
    xmlAttr* attribute = FindAttribute(element, name);
    if (attribute == nullptr) return S_FALSE;
    value = AttributeValue(attribute);
    return S_OK;
}

}  // namespace attributes

// ---- AttributeMap -----------------------------------------------------------------------------

AttributeMap::AttributeMap(NodeCore* element) : m_elementRef(element->Self()), m_element(element) {}

HRESULT AttributeMap::getNamedItem(BSTR name, IXMLDOMNode** item) {
    if (item == nullptr) return E_INVALIDARG;
    return attributes::GetNamed(*m_element, ToUtf8(name), item);
}

HRESULT AttributeMap::setNamedItem(IXMLDOMNode* newItem, IXMLDOMNode** replaced) {
    return attributes::SetNode(*m_element, newItem, replaced);
}

HRESULT AttributeMap::removeNamedItem(BSTR name, IXMLDOMNode** removed) {
    return attributes::RemoveNamed(*m_element, ToUtf8(name), removed);
}

HRESULT AttributeMap::get_item(LONG index, IXMLDOMNode** item) {
    if (item == nullptr) return E_INVALIDARG;
    return attributes::Item(*m_element, index, item);
}

HRESULT AttributeMap::get_length(LONG* length) {
    if (length == nullptr) return E_INVALIDARG;
    *length = attributes::Count(m_element->Node());
    return S_OK;
}

HRESULT AttributeMap::getQualifiedItem(BSTR baseName, BSTR namespaceURI, IXMLDOMNode** item) {
    if (item == nullptr) return E_INVALIDARG;
    return attributes::GetQualified(*m_element, ToUtf8(baseName), ToUtf8(namespaceURI), item);
}

HRESULT AttributeMap::removeQualifiedItem(BSTR baseName, BSTR namespaceURI, IXMLDOMNode** removed) {
    return attributes::RemoveQualified(*m_element, ToUtf8(baseName), ToUtf8(namespaceURI), removed);
}

HRESULT AttributeMap::nextNode(IXMLDOMNode** next) {
    if (next == nullptr) return E_INVALIDARG;
    HRESULT hr = attributes::Item(*m_element, m_next, next);
    if (hr == S_OK) ++m_next;
    return hr;
}

HRESULT AttributeMap::reset() {
    m_next = 0;
    return S_OK;
}

HRESULT AttributeMap::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IDispatch) return Answer<IXMLDOMNamedNodeMap>(object);
    return E_NOINTERFACE;
}

}  // namespace platform::msxml

namespace platform {

HRESULT DomElementAttributes(IXMLDOMNode* element, DomAttributeSink sink, void* context) {
    if (element == nullptr || sink == nullptr) return E_INVALIDARG;
    msxml::NodeCore* core = msxml::NodeCore::From(element);
    if (core == nullptr || core->Node()->type != XML_ELEMENT_NODE) return E_NOINTERFACE;
    try {
        xmlNode* owner = core->Node();
        // "xmlns", "xmlns:p", "p:local": most names fit the string's own storage.
        std::string name;
        for (const xmlNs* d = owner->nsDef; d != nullptr; d = d->next) {
            const std::string_view prefix = msxml::View(d->prefix);
            name.assign("xmlns");
            if (!prefix.empty()) name.append(":").append(prefix);
            FU_RETURN_IF_FAILED(sink(context, name, msxml::View(d->href)));
        }
        for (xmlAttr* a = owner->properties; a != nullptr; a = a->next) {
            const xmlNode* text = a->children;
            if (text != nullptr && text->next == nullptr && text->type == XML_TEXT_NODE) {
                // The usual value, one text node: read in place.
                name.clear();
                if (a->ns != nullptr && a->ns->prefix != nullptr) {
                    name.append(msxml::View(a->ns->prefix)).append(":");
                }
                name.append(msxml::View(a->name));
                FU_RETURN_IF_FAILED(sink(context, name, msxml::View(text->content)));
                continue;
            }
            // Any other (empty, or several nodes): through the attribute's own node.
            CComPtr<IXMLDOMNode> attribute;
            FU_RETURN_IF_FAILED(core->GetTree()->Wrap(msxml::AsNode(a), &attribute));
            CComVariant value;
            FU_RETURN_IF_FAILED(attribute->get_nodeValue(&value));
            CComBSTR nodeName;
            FU_RETURN_IF_FAILED(attribute->get_nodeName(&nodeName));
            const msxml::Utf8 utf8Name = msxml::ToUtf8(nodeName);
            const msxml::Utf8 utf8Value =
                value.vt == VT_BSTR ? msxml::ToUtf8(value.bstrVal) : msxml::Utf8();
            FU_RETURN_IF_FAILED(sink(context, utf8Name, utf8Value));
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace platform
