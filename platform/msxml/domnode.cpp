// domnode.cpp: IXMLDOMNode over libxml2 nodes, shared by every node kind (NodeCore): naming,
// values, navigation and tree edits (which never merge text nodes or free a node a wrapper still
// uses); the wrappers made for each node kind; element attribute operations.
#include "platform/msxml/domnode.h"

#include <new>
#include <type_traits>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domdocument.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {
namespace {

DOMNodeType NodeTypeOf(const xmlNode* node) {
    switch (node->type) {
        case XML_ELEMENT_NODE:
            return NODE_ELEMENT;
        case XML_ATTRIBUTE_NODE:
            return NODE_ATTRIBUTE;
        case XML_TEXT_NODE:
            return NODE_TEXT;
        case XML_CDATA_SECTION_NODE:
            return NODE_CDATA_SECTION;
        case XML_ENTITY_REF_NODE:
            return NODE_ENTITY_REFERENCE;
        case XML_PI_NODE:
            return NODE_PROCESSING_INSTRUCTION;
        case XML_COMMENT_NODE:
            return NODE_COMMENT;
        case XML_DOCUMENT_NODE:
            return NODE_DOCUMENT;
        case XML_DOCUMENT_FRAG_NODE:
            return NODE_DOCUMENT_FRAGMENT;
        default:
            return NODE_INVALID;
    }
}

bool IsTextLike(const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE ||
           node->type == XML_COMMENT_NODE || node->type == XML_PI_NODE;
}

HRESULT ReturnEmpty(BSTR* out) {
    return ReturnBstr({}, out);
}

void AddRefOwner(DomDocument* owner) {
    if (owner != nullptr) owner->Self()->AddRef();
}
void ReleaseOwner(DomDocument* owner) {
    if (owner != nullptr) owner->Self()->Release();
}

// Checks that node (or a fragment's children) may become a child of the document node; a
// replaced root element does not count as an existing one.
HRESULT CheckDocumentChild(xmlNode* doc, xmlNode* node, xmlNode* replacing) {
    xmlNode* root = nullptr;
    for (xmlNode* c = doc->children; c != nullptr; c = c->next) {
        if (c->type == XML_ELEMENT_NODE && c != replacing) root = c;
    }
    int elements = 0;
    auto check = [&](xmlNode* n) {
        if (n->type == XML_TEXT_NODE || n->type == XML_CDATA_SECTION_NODE) return E_FAIL;
        if (n->type == XML_ELEMENT_NODE) {
            ++elements;
            if ((root != nullptr && root != n) || elements > 1) return E_FAIL;
        }
        return S_OK;
    };
    if (node->type == XML_DOCUMENT_FRAG_NODE) {
        for (xmlNode* c = node->children; c != nullptr; c = c->next) FU_RETURN_IF_FAILED(check(c));
        return S_OK;
    }
    return check(node);
}

}  // namespace

// ---- Tree: wrapping ---------------------------------------------------------------------------

HRESULT Tree::Wrap(xmlNode* node, IXMLDOMNode** out) {
    *out = nullptr;
    if (node == nullptr) return S_FALSE;
    if (node->_private != nullptr) {
        IXMLDOMNode* existing = static_cast<NodeCore*>(node->_private)->Self();
        existing->AddRef();
        *out = existing;
        return S_OK;
    }
    NodeCore* created = nullptr;
    switch (node->type) {
        case XML_ELEMENT_NODE:
            created = new (std::nothrow) ElementNode(this, node);
            break;
        case XML_ATTRIBUTE_NODE:
            created = new (std::nothrow) AttributeNode(this, node);
            break;
        case XML_TEXT_NODE:
            created = new (std::nothrow) TextNode(this, node);
            break;
        case XML_CDATA_SECTION_NODE:
            created = new (std::nothrow) CDataNode(this, node);
            break;
        case XML_COMMENT_NODE:
            created = new (std::nothrow) CommentNode(this, node);
            break;
        case XML_PI_NODE:
            created = new (std::nothrow) ProcessingInstructionNode(this, node);
            break;
        case XML_DOCUMENT_FRAG_NODE:
            created = new (std::nothrow) FragmentNode(this, node);
            break;
        case XML_DOCUMENT_NODE: {
            // The document node of a tree that load() has since replaced: the document object.
            IXMLDOMNode* document = m_owner->Self();
            document->AddRef();
            *out = document;
            return S_OK;
        }
        default:
            return S_FALSE;
    }
    if (created == nullptr) return E_OUTOFMEMORY;
    *out = created->Self();  // born with one reference, handed to the caller
    return S_OK;
}

HRESULT Tree::WrapDeclaration(xmlNode* owner, xmlNs* ns, IXMLDOMAttribute** out) {
    *out = nullptr;
    if (ns->_private != nullptr) {
        auto* existing = static_cast<NamespaceAttribute*>(ns->_private);
        existing->AddRef();
        *out = existing;
        return S_OK;
    }
    auto* created = new (std::nothrow) NamespaceAttribute(this, owner, ns, false);
    if (created == nullptr) return E_OUTOFMEMORY;
    *out = created;
    return S_OK;
}

// ---- NodeCore ---------------------------------------------------------------------------------

NodeCore::NodeCore(Tree* tree, xmlNode* node, bool isDocument)
    : m_node(node), m_tree(tree), m_isDocument(isDocument) {
    if (!isDocument) {
        node->_private = this;
        AddRefOwner(tree->Owner());
    }
}

NodeCore::~NodeCore() {
    if (m_isDocument) {
        if (m_node != nullptr && m_node->_private == this) m_node->_private = nullptr;
        return;
    }
    m_node->_private = nullptr;
    DomDocument* owner = m_tree->Owner();
    m_tree->WrapperGone(m_node);
    m_tree.Release();
    ReleaseOwner(owner);
}

void NodeCore::SetDocumentTree(Tree* tree) {
    if (m_node != nullptr && m_node->_private == this) m_node->_private = nullptr;
    m_tree = tree;
    m_node = AsNode(tree->Doc());
    m_node->_private = this;
}

void NodeCore::Rehome(Tree* tree, xmlNode* node) {
    if (m_node->_private == this) m_node->_private = nullptr;
    m_node = node;
    node->_private = this;
    if (tree != m_tree.p) {
        DomDocument* oldOwner = m_tree->Owner();
        AddRefOwner(tree->Owner());
        m_tree = tree;
        ReleaseOwner(oldOwner);
    }
}

NodeCore* NodeCore::From(IUnknown* node) {
    // Asked through QueryInterface: a virtual call and a few interface ID comparisons, where a
    // cross-cast through the type information took about 900 instructions, for every node the
    // library's helpers are handed.
    if (node == nullptr) return nullptr;
    void* core = nullptr;
    if (node->QueryInterface(kNodeCoreIid, &core) != S_OK || core == nullptr) return nullptr;
    node->Release();  // the reference the query added; the caller holds its own
    return static_cast<NodeCore*>(core);
}

HRESULT NodeCore::GetNodeName(BSTR* name) {
    if (name == nullptr) return E_INVALIDARG;
    switch (m_node->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE:
            return ReturnBstr(QualifiedName(m_node), name);
        case XML_TEXT_NODE:
            return ReturnBstr("#text", name);
        case XML_CDATA_SECTION_NODE:
            return ReturnBstr("#cdata-section", name);
        case XML_COMMENT_NODE:
            return ReturnBstr("#comment", name);
        case XML_DOCUMENT_NODE:
            return ReturnBstr("#document", name);
        case XML_DOCUMENT_FRAG_NODE:
            return ReturnBstr("#document-fragment", name);
        default:
            return ReturnBstr(View(m_node->name), name);
    }
}

HRESULT NodeCore::GetNodeValue(VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    VariantInit(value);
    if (m_node->type == XML_ATTRIBUTE_NODE || IsTextLike(m_node)) {
        std::string text = m_node->type == XML_ATTRIBUTE_NODE ? AttributeValue(AsAttr(m_node))
                                                              : std::string(View(m_node->content));
        value->bstrVal = AllocBstr(text);
        if (value->bstrVal == nullptr) return E_OUTOFMEMORY;
        value->vt = VT_BSTR;
        return S_OK;
    }
    value->vt = VT_NULL;
    return S_FALSE;
}

HRESULT NodeCore::PutNodeValue(const VARIANT& value) {
    if (m_node->type != XML_ATTRIBUTE_NODE && !IsTextLike(m_node)) return E_FAIL;
    Utf8 text;
    FU_RETURN_IF_FAILED(VariantToUtf8(value, text));
    if (m_node->type == XML_ATTRIBUTE_NODE) {
        return ReplaceChildrenWithText(m_tree, m_node, text) ? S_OK : E_OUTOFMEMORY;
    }
    xmlNodeSetContentLen(m_node, XmlStr(text), static_cast<int>(text.size()));
    m_tree->Touch();
    return S_OK;
}

HRESULT NodeCore::GetNodeType(DOMNodeType* type) {
    if (type == nullptr) return E_INVALIDARG;
    *type = NodeTypeOf(m_node);
    return S_OK;
}

HRESULT NodeCore::GetParentNode(IXMLDOMNode** parent) {
    if (parent == nullptr) return E_INVALIDARG;
    *parent = nullptr;
    if (m_node->type == XML_ATTRIBUTE_NODE) return S_FALSE;
    return m_tree->Wrap(m_node->parent, parent);
}

HRESULT NodeCore::GetChildNodes(IXMLDOMNodeList** list) {
    if (list == nullptr) return E_INVALIDARG;
    *list = new (std::nothrow) ChildList(this);
    return *list == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT NodeCore::GetFirstChild(IXMLDOMNode** child) {
    if (child == nullptr) return E_INVALIDARG;
    *child = nullptr;
    if (IsTextLike(m_node)) return S_FALSE;
    return m_tree->Wrap(m_node->children, child);
}

HRESULT NodeCore::GetLastChild(IXMLDOMNode** child) {
    if (child == nullptr) return E_INVALIDARG;
    *child = nullptr;
    if (IsTextLike(m_node)) return S_FALSE;
    return m_tree->Wrap(m_node->last, child);
}

HRESULT NodeCore::GetPreviousSibling(IXMLDOMNode** sibling) {
    if (sibling == nullptr) return E_INVALIDARG;
    *sibling = nullptr;
    if (m_node->type == XML_ATTRIBUTE_NODE || m_node->type == XML_DOCUMENT_NODE) return S_FALSE;
    return m_tree->Wrap(m_node->prev, sibling);
}

HRESULT NodeCore::GetNextSibling(IXMLDOMNode** sibling) {
    if (sibling == nullptr) return E_INVALIDARG;
    *sibling = nullptr;
    if (m_node->type == XML_ATTRIBUTE_NODE || m_node->type == XML_DOCUMENT_NODE) return S_FALSE;
    return m_tree->Wrap(m_node->next, sibling);
}

HRESULT NodeCore::GetAttributes(IXMLDOMNamedNodeMap** map) {
    if (map == nullptr) return E_INVALIDARG;
    *map = nullptr;
    if (m_node->type != XML_ELEMENT_NODE) return S_FALSE;
    *map = new (std::nothrow) AttributeMap(this);
    return *map == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT NodeCore::Insert(IXMLDOMNode* newChild, xmlNode* ref, IXMLDOMNode** out,
                         xmlNode* replacing) {
    if (out != nullptr) *out = nullptr;
    if (newChild == nullptr) return E_INVALIDARG;
    NodeCore* child = From(newChild);
    if (child == nullptr)
        return NamespaceAttribute::From(newChild) != nullptr ? E_FAIL : E_INVALIDARG;
    xmlNode* parent = m_node;
    if (!IsContainer(parent)) return E_FAIL;
    if (ref != nullptr && ref->parent != parent) return E_INVALIDARG;
    xmlNode* node = child->m_node;
    if (node->type == XML_ATTRIBUTE_NODE || node->type == XML_DOCUMENT_NODE) return E_FAIL;
    if (parent->type == XML_DOCUMENT_NODE)
        FU_RETURN_IF_FAILED(CheckDocumentChild(parent, node, replacing));
    for (xmlNode* a = parent; a != nullptr; a = a->parent) {
        if (a == node) return E_FAIL;  // a node cannot go below itself
    }
    if (node != ref) {
        if (child->m_tree.p != m_tree.p) {
            FU_RETURN_IF_FAILED(Adopt(child, m_tree));
            node = child->m_node;
        }
        if (node->type == XML_DOCUMENT_FRAG_NODE) {
            while (xmlNode* c = node->children) {
                xmlUnlinkNode(c);
                LinkBefore(parent, c, ref);
            }
        } else {
            if (node->parent != nullptr) {
                xmlUnlinkNode(node);
            } else {
                m_tree->MarkAttached(node);
            }
            LinkBefore(parent, node, ref);
        }
        m_tree->Touch();
    }
    if (out != nullptr) {
        newChild->AddRef();
        *out = newChild;
    }
    return S_OK;
}

HRESULT NodeCore::InsertBefore(IXMLDOMNode* newChild, const VARIANT& refChild, IXMLDOMNode** out) {
    xmlNode* ref = nullptr;
    if (refChild.vt == VT_UNKNOWN || refChild.vt == VT_DISPATCH) {
        if (refChild.punkVal != nullptr) {
            NodeCore* refNode = From(refChild.punkVal);
            if (refNode == nullptr) return E_INVALIDARG;
            ref = refNode->m_node;
        }
    } else if (refChild.vt != VT_EMPTY && refChild.vt != VT_NULL) {
        return E_INVALIDARG;
    }
    return Insert(newChild, ref, out);
}

HRESULT NodeCore::ReplaceChild(IXMLDOMNode* newChild, IXMLDOMNode* oldChild, IXMLDOMNode** out) {
    if (out != nullptr) *out = nullptr;
    NodeCore* old = From(oldChild);
    if (old == nullptr || newChild == nullptr || old->m_node->parent != m_node) return E_INVALIDARG;
    NodeCore* replacement = From(newChild);
    if (replacement != old) {
        FU_RETURN_IF_FAILED(Insert(newChild, old->m_node, nullptr, old->m_node));
        xmlUnlinkNode(old->m_node);
        m_tree->MarkDetached(old->m_node);
        m_tree->Touch();
    }
    if (out != nullptr) {
        oldChild->AddRef();
        *out = oldChild;
    }
    return S_OK;
}

HRESULT NodeCore::RemoveChild(IXMLDOMNode* child, IXMLDOMNode** out) {
    if (out != nullptr) *out = nullptr;
    NodeCore* removed = From(child);
    if (removed == nullptr || removed->m_node->parent != m_node ||
        removed->m_node->type == XML_ATTRIBUTE_NODE) {
        return E_INVALIDARG;
    }
    xmlUnlinkNode(removed->m_node);
    m_tree->MarkDetached(removed->m_node);
    m_tree->Touch();
    if (out != nullptr) {
        child->AddRef();
        *out = child;
    }
    return S_OK;
}

HRESULT NodeCore::AppendChild(IXMLDOMNode* newChild, IXMLDOMNode** out) {
    return Insert(newChild, nullptr, out);
}

HRESULT NodeCore::HasChildNodes(VARIANT_BOOL* has) {
    if (has == nullptr) return E_INVALIDARG;
    bool any = !IsTextLike(m_node) && m_node->children != nullptr;
    *has = any ? VARIANT_TRUE : VARIANT_FALSE;
    return any ? S_OK : S_FALSE;
}

HRESULT NodeCore::GetOwnerDocument(IXMLDOMDocument** document) {
    if (document == nullptr) return E_INVALIDARG;
    *document = nullptr;
    if (m_node->type == XML_DOCUMENT_NODE) return S_FALSE;
    return Owner()->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(document));
}

HRESULT NodeCore::CloneNode(VARIANT_BOOL deep, IXMLDOMNode** clone) {
    if (clone == nullptr) return E_INVALIDARG;
    *clone = nullptr;
    if (m_node->type == XML_DOCUMENT_NODE)
        return Owner()->CloneDocument(deep != VARIANT_FALSE, clone);
    xmlNode* copy = CopySubtree(m_node, m_tree, true, deep != VARIANT_FALSE);
    if (copy == nullptr) return E_OUTOFMEMORY;
    m_tree->MarkDetached(copy);
    return m_tree->Wrap(copy, clone);
}

HRESULT NodeCore::GetNodeTypeString(BSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    static constexpr const char* kNames[] = {"",
                                             "element",
                                             "attribute",
                                             "text",
                                             "cdatasection",
                                             "entityreference",
                                             "entity",
                                             "processinginstruction",
                                             "comment",
                                             "document",
                                             "documenttype",
                                             "documentfragment",
                                             "notation"};
    return ReturnBstr(kNames[NodeTypeOf(m_node)], text);
}

std::string NodeCore::Text() const {
    switch (m_node->type) {
        case XML_ELEMENT_NODE:
        case XML_DOCUMENT_NODE:
        case XML_DOCUMENT_FRAG_NODE: {
            std::string text = DescendantText(m_node);
            bool preserve = Owner()->PreserveWhiteSpace() || (m_node->type == XML_ELEMENT_NODE &&
                                                              xmlNodeGetSpacePreserve(m_node) == 1);
            if (!preserve) {
                // Trimmed in place: a device mode's base64 text is kilobytes long.
                const std::string_view trimmed = TrimXmlSpace(text);
                if (trimmed.size() != text.size()) {
                    const std::size_t begin =
                        static_cast<std::size_t>(trimmed.data() - text.data());
                    text.erase(begin + trimmed.size());
                    text.erase(0, begin);
                }
            }
            return text;
        }
        case XML_ATTRIBUTE_NODE:
            return AttributeValue(AsAttr(m_node));
        default:
            return std::string(View(m_node->content));
    }
}

std::string_view NodeCore::TextView(std::string& scratch) const {
    // An element holding one text node (a Value, a device mode's base64) is read straight from
    // that node: the same text as Text() gives, without gathering it into a copy first.
    const xmlNode* only = m_node->type == XML_ELEMENT_NODE ? m_node->children : nullptr;
    if (only != nullptr && only->next == nullptr &&
        (only->type == XML_TEXT_NODE || only->type == XML_CDATA_SECTION_NODE)) {
        const std::string_view content = View(only->content);
        const bool preserve = Owner()->PreserveWhiteSpace() || xmlNodeGetSpacePreserve(m_node) == 1;
        return preserve ? content : TrimXmlSpace(content);
    }
    scratch = Text();
    return scratch;
}

HRESULT NodeCore::GetText(BSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    std::string scratch;
    return ReturnBstr(TextView(scratch), text);
}

HRESULT NodeCore::GetText(std::wstring& text) {
    std::string scratch;
    return AssignWide(text, TextView(scratch)) ? S_OK : E_OUTOFMEMORY;
}

HRESULT NodeCore::GetTextUtf8(std::string& text) {
    std::string scratch;
    const std::string_view view = TextView(scratch);
    if (view.data() == scratch.data()) {
        text.swap(scratch);
    } else {
        text.assign(view.data(), view.size());
    }
    return S_OK;
}

HRESULT NodeCore::PutText(BSTR text) {
    Utf8 value = ToUtf8(text);
    switch (m_node->type) {
        case XML_ELEMENT_NODE:
        case XML_DOCUMENT_FRAG_NODE:
        case XML_ATTRIBUTE_NODE:
            return ReplaceChildrenWithText(m_tree, m_node, value) ? S_OK : E_OUTOFMEMORY;
        case XML_DOCUMENT_NODE:
            return E_FAIL;
        default:
            xmlNodeSetContentLen(m_node, XmlStr(value), static_cast<int>(value.size()));
            m_tree->Touch();
            return S_OK;
    }
}

HRESULT NodeCore::GetSpecified(VARIANT_BOOL* specified) {
    if (specified == nullptr) return E_INVALIDARG;
    *specified = VARIANT_TRUE;
    return S_OK;
}

HRESULT NodeCore::GetNodeTypedValue(VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    VariantInit(value);
    if (m_node->type == XML_DOCUMENT_NODE || m_node->type == XML_DOCUMENT_FRAG_NODE) {
        value->vt = VT_NULL;
        return S_FALSE;
    }
    // Nodes carry no data type here, and MSXML gives an untyped node's text.
    value->bstrVal = AllocBstr(Text());
    if (value->bstrVal == nullptr) return E_OUTOFMEMORY;
    value->vt = VT_BSTR;
    return S_OK;
}

HRESULT NodeCore::PutNodeTypedValue(const VARIANT& value) {
    Utf8 text;
    FU_RETURN_IF_FAILED(VariantToUtf8(value, text));
    BSTR converted = AllocBstr(text);
    if (converted == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = PutText(converted);
    SysFreeString(converted);
    return hr;
}

HRESULT NodeCore::GetDataType(VARIANT* type) {
    if (type == nullptr) return E_INVALIDARG;
    VariantInit(type);
    type->vt = VT_NULL;
    return S_FALSE;
}

HRESULT NodeCore::GetXml(BSTR* xml) {
    if (xml == nullptr) return E_INVALIDARG;
    std::string text;
    if (m_node->type == XML_DOCUMENT_NODE) {
        SerializeDocument(reinterpret_cast<xmlDoc*>(m_node), false, text);
    } else {
        SerializeNode(m_node, text);
    }
    return ReturnBstr(text, xml);
}

HRESULT NodeCore::SelectNodes(BSTR query, IXMLDOMNodeList** list) {
    if (list == nullptr) return E_INVALIDARG;
    return Owner()->XPath().SelectAll(m_tree, m_node, query, list);
}

HRESULT NodeCore::SelectSingleNode(BSTR query, IXMLDOMNode** node) {
    if (node == nullptr) return E_INVALIDARG;
    return Owner()->XPath().SelectSingle(m_tree, m_node, query, node);
}

HRESULT NodeCore::GetParsed(VARIANT_BOOL* parsed) {
    if (parsed == nullptr) return E_INVALIDARG;
    *parsed = VARIANT_TRUE;
    return S_OK;
}

HRESULT NodeCore::GetNamespaceURI(BSTR* uri) {
    if (uri == nullptr) return E_INVALIDARG;
    bool named = m_node->type == XML_ELEMENT_NODE || m_node->type == XML_ATTRIBUTE_NODE;
    if (named && m_node->ns != nullptr) return ReturnBstr(View(m_node->ns->href), uri);
    return ReturnEmpty(uri);
}

HRESULT NodeCore::GetPrefix(BSTR* prefix) {
    if (prefix == nullptr) return E_INVALIDARG;
    bool named = m_node->type == XML_ELEMENT_NODE || m_node->type == XML_ATTRIBUTE_NODE;
    if (named && m_node->ns != nullptr) return ReturnBstr(View(m_node->ns->prefix), prefix);
    return ReturnEmpty(prefix);
}

HRESULT NodeCore::GetBaseName(BSTR* name) {
    if (name == nullptr) return E_INVALIDARG;
    if (m_node->type == XML_ELEMENT_NODE || m_node->type == XML_ATTRIBUTE_NODE ||
        m_node->type == XML_PI_NODE) {
        return ReturnBstr(View(m_node->name), name);
    }
    return ReturnEmpty(name);
}

HRESULT NodeCore::ElementsByTagName(BSTR name, IXMLDOMNodeList** list) {
    if (list == nullptr) return E_INVALIDARG;
    *list = nullptr;
    Utf8 wanted = ToUtf8(name);
    bool all = wanted == "*";
    std::vector<xmlNode*> found;
    for (xmlNode* cur = NextInSubtree(m_node, m_node); cur != nullptr;
         cur = NextInSubtree(cur, m_node)) {
        if (cur->type == XML_ELEMENT_NODE && (all || HasQualifiedName(cur, wanted))) {
            found.push_back(cur);
        }
    }
    *list = new (std::nothrow) StaticList(m_tree, std::move(found));
    return *list == nullptr ? E_OUTOFMEMORY : S_OK;
}

// ---- Element ----------------------------------------------------------------------------------

HRESULT ElementNode::getAttribute(BSTR name, VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    VariantInit(value);
    std::string text;
    HRESULT hr = attributes::GetValue(m_node, ToUtf8(name), text);
    if (hr != S_OK) {
        value->vt = VT_NULL;
        return hr;
    }
    value->bstrVal = AllocBstr(text);
    if (value->bstrVal == nullptr) return E_OUTOFMEMORY;
    value->vt = VT_BSTR;
    return S_OK;
}

HRESULT ElementNode::setAttribute(BSTR name, VARIANT value) {
    Utf8 text;
    FU_RETURN_IF_FAILED(VariantToUtf8(value, text));
    return attributes::SetValue(*this, ToUtf8(name), text);
}

HRESULT ElementNode::removeAttribute(BSTR name) {
    return attributes::RemoveNamed(*this, ToUtf8(name), nullptr);
}

HRESULT ElementNode::getAttributeNode(BSTR name, IXMLDOMAttribute** attribute) {
    if (attribute == nullptr) return E_INVALIDARG;
    *attribute = nullptr;
    CComPtr<IXMLDOMNode> found;
    HRESULT hr = attributes::GetNamed(*this, ToUtf8(name), &found);
    if (hr != S_OK) return hr;
    return found->QueryInterface(IID_IXMLDOMAttribute, reinterpret_cast<void**>(attribute));
}

HRESULT ElementNode::setAttributeNode(IXMLDOMAttribute* attribute, IXMLDOMAttribute** replaced) {
    if (replaced != nullptr) *replaced = nullptr;
    CComPtr<IXMLDOMNode> old;
    FU_RETURN_IF_FAILED(attributes::SetNode(*this, attribute, &old));
    if (replaced != nullptr && old != nullptr) {
        return old->QueryInterface(IID_IXMLDOMAttribute, reinterpret_cast<void**>(replaced));
    }
    return S_OK;
}

HRESULT ElementNode::removeAttributeNode(IXMLDOMAttribute* attribute, IXMLDOMAttribute** removed) {
    if (removed != nullptr) *removed = nullptr;
    CComPtr<IXMLDOMNode> old;
    FU_RETURN_IF_FAILED(attributes::RemoveNode(*this, attribute, &old));
    if (removed != nullptr && old != nullptr) {
        return old->QueryInterface(IID_IXMLDOMAttribute, reinterpret_cast<void**>(removed));
    }
    return S_OK;
}

HRESULT ElementNode::normalize() {
    xmlNode* cur = m_node;
    while (cur != nullptr) {
        if (cur->type == XML_TEXT_NODE) {
            while (cur->next != nullptr && cur->next->type == XML_TEXT_NODE) {
                xmlNode* following = cur->next;
                xmlNodeAddContent(cur, following->content);
                xmlUnlinkNode(following);
                m_tree->Discard(following);
            }
            if (cur->content == nullptr || *cur->content == 0) {
                xmlNode* next = NextInSubtree(cur, m_node);
                xmlUnlinkNode(cur);
                m_tree->Discard(cur);
                cur = next;
                continue;
            }
        }
        cur = NextInSubtree(cur, m_node);
    }
    m_tree->Touch();
    return S_OK;
}

}  // namespace platform::msxml

namespace platform {

HRESULT DomNodeText(IXMLDOMNode* node, std::wstring& text) {
    if (node == nullptr) return E_INVALIDARG;
    msxml::NodeCore* core = msxml::NodeCore::From(node);
    if (core == nullptr) return E_NOINTERFACE;
    try {
        return core->GetText(text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DomNodeTextUtf8(IXMLDOMNode* node, std::string& text) {
    if (node == nullptr) return E_INVALIDARG;
    msxml::NodeCore* core = msxml::NodeCore::From(node);
    if (core == nullptr) return E_NOINTERFACE;
    try {
        return core->GetTextUtf8(text);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace platform
