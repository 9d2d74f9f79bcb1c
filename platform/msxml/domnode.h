// domnode.h: the node wrappers of the MSXML stand-in. NodeCore implements IXMLDOMNode over one
// libxml2 node; DomNode<I> binds it to an interface; the concrete classes add the element,
// attribute, character-data, processing-instruction and fragment interfaces. Namespace
// declarations, which libxml2 keeps apart from attributes, are wrapped by NamespaceAttribute so
// that they appear as the "xmlns"/"xmlns:p" attributes MSXML shows. Internal header.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/msxml/domtree.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {

class DomDocument;

inline constexpr char kXmlnsNamespace[] = "http://www.w3.org/2000/xmlns/";

// The qualified name of an element or attribute ("p:local" or "local").
std::string QualifiedName(const xmlNode* node);
// Whether node's qualified name equals qname, without building the name.
bool HasQualifiedName(const xmlNode* node, std::string_view qname);
// Splits "p:local"; no colon gives an empty prefix and hasPrefix false.
struct SplitName {
    std::string_view prefix;
    std::string_view local;
    bool hasPrefix = false;
};
SplitName Split(std::string_view qname);
// Whether node may have children: an element, the document or a fragment.
bool IsContainer(const xmlNode* node);
// The text value of an attribute (its text children).
std::string AttributeValue(const xmlAttr* attribute);
// The concatenated text and CDATA content below node.
std::string DescendantText(const xmlNode* node);
// Links child (unlinked) under parent before ref (null: at the end). Never merges text nodes.
void LinkBefore(xmlNode* parent, xmlNode* child, xmlNode* ref);
// Appends an attribute (unlinked) to an element's attribute list.
void LinkAttribute(xmlNode* element, xmlAttr* attribute);
// Creates an attribute node of doc with a plain text value (no entity parsing).
xmlAttr* NewAttribute(xmlDocPtr doc, xmlNs* ns, const xmlChar* name, std::string_view value);
// Replaces the children of an element, fragment or attribute with one text node (none when
// text is empty); removed children go to tree->Discard.
bool ReplaceChildrenWithText(Tree* tree, xmlNode* node, std::string_view text);
// The namespace URI bound to prefix ("" = default) at element, or null: declarations on it and
// its ancestors, and prefixes their own names use.
const xmlChar* LookupNamespace(const xmlNode* element, std::string_view prefix);
// Copies a node into `tree` (deep: with its descendants). The copy is not linked anywhere.
xmlNode* CopySubtree(const xmlNode* source, Tree* tree, bool sameTree, bool deep);

// The interface ID this library's node wrappers answer with their NodeCore (not an interface;
// known only inside the library).
inline constexpr GUID kNodeCoreIid = {
    0x5f1c2a7e, 0x93d4, 0x4b61, {0x8a, 0x0e, 0x27, 0xc5, 0x4d, 0x19, 0xb3, 0x62}};

class NodeCore {
public:
    xmlNode* Node() const { return m_node; }
    Tree* GetTree() const { return m_tree; }
    DomDocument* Owner() const { return m_tree->Owner(); }
    // This wrapper as IXMLDOMNode (no reference added).
    virtual IXMLDOMNode* Self() = 0;

    // Our own node behind an interface pointer, or null for a foreign or declaration node.
    static NodeCore* From(IUnknown* node);
    // Moves the wrapper to another node (of another tree when a node changes documents).
    void Rehome(Tree* tree, xmlNode* node);

    // IXMLDOMNode behaviour shared by every node kind.
    HRESULT GetNodeName(BSTR* name);
    HRESULT GetNodeValue(VARIANT* value);
    HRESULT PutNodeValue(const VARIANT& value);
    HRESULT GetNodeType(DOMNodeType* type);
    HRESULT GetParentNode(IXMLDOMNode** parent);
    HRESULT GetChildNodes(IXMLDOMNodeList** list);
    HRESULT GetFirstChild(IXMLDOMNode** child);
    HRESULT GetLastChild(IXMLDOMNode** child);
    HRESULT GetPreviousSibling(IXMLDOMNode** sibling);
    HRESULT GetNextSibling(IXMLDOMNode** sibling);
    HRESULT GetAttributes(IXMLDOMNamedNodeMap** map);
    HRESULT InsertBefore(IXMLDOMNode* newChild, const VARIANT& refChild, IXMLDOMNode** out);
    HRESULT ReplaceChild(IXMLDOMNode* newChild, IXMLDOMNode* oldChild, IXMLDOMNode** out);
    HRESULT RemoveChild(IXMLDOMNode* child, IXMLDOMNode** out);
    HRESULT AppendChild(IXMLDOMNode* newChild, IXMLDOMNode** out);
    HRESULT HasChildNodes(VARIANT_BOOL* has);
    HRESULT GetOwnerDocument(IXMLDOMDocument** document);
    HRESULT CloneNode(VARIANT_BOOL deep, IXMLDOMNode** clone);
    HRESULT GetNodeTypeString(BSTR* text);
    HRESULT GetText(BSTR* text);
    // The same text into a string the caller reuses (platform::DomNodeText).
    HRESULT GetText(std::wstring& text);
    // The same text in UTF-8 (the tree's own encoding), written into `text`.
    HRESULT GetTextUtf8(std::string& text);
    HRESULT PutText(BSTR text);
    HRESULT GetSpecified(VARIANT_BOOL* specified);
    HRESULT GetNodeTypedValue(VARIANT* value);
    HRESULT PutNodeTypedValue(const VARIANT& value);
    HRESULT GetDataType(VARIANT* type);
    HRESULT GetXml(BSTR* xml);
    HRESULT SelectNodes(BSTR query, IXMLDOMNodeList** list);
    HRESULT SelectSingleNode(BSTR query, IXMLDOMNode** node);
    HRESULT GetParsed(VARIANT_BOOL* parsed);
    HRESULT GetNamespaceURI(BSTR* uri);
    HRESULT GetPrefix(BSTR* prefix);
    HRESULT GetBaseName(BSTR* name);

    // The node's text as MSXML's `text` gives it (UTF-8).
    std::string Text() const;
    // What the text property gives, as UTF-8: a view of the node's own text when an element holds
    // a single text node, else Text() gathered into `scratch`.
    std::string_view TextView(std::string& scratch) const;
    // Inserts newChild before ref (null: append) under this node; `replacing` is a child about
    // to be removed (it does not count as the document's root element).
    HRESULT Insert(IXMLDOMNode* newChild, xmlNode* ref, IXMLDOMNode** out,
                   xmlNode* replacing = nullptr);
    // The static list of descendant elements named `name` ("*": all).
    HRESULT ElementsByTagName(BSTR name, IXMLDOMNodeList** list);

    NodeCore(const NodeCore&) = delete;
    NodeCore& operator=(const NodeCore&) = delete;

protected:
    // A node wrapper: holds its tree and the document (through the owner). The document object
    // itself passes isDocument, holding neither (it owns the tree instead).
    NodeCore(Tree* tree, xmlNode* node, bool isDocument);
    virtual ~NodeCore();
    void SetDocumentTree(Tree* tree);  // for the document object on load

    xmlNode* m_node;
    CComPtr<Tree> m_tree;

private:
    bool m_isDocument;
};

// Moves a node (and its wrappers) into another tree: the node is copied into `target` and every
// wrapper of the old subtree is moved onto its copy. The copy is a detached root of target.
HRESULT Adopt(NodeCore* node, Tree* target);

template <class I, class... More>
class DomNode : public ComObject<I, More...>, public NodeCore {
public:
    IXMLDOMNode* Self() override { return static_cast<IXMLDOMNode*>(static_cast<I*>(this)); }

    HRESULT get_nodeName(BSTR* v) override { return GetNodeName(v); }
    HRESULT get_nodeValue(VARIANT* v) override { return GetNodeValue(v); }
    HRESULT put_nodeValue(VARIANT v) override { return PutNodeValue(v); }
    HRESULT get_nodeType(DOMNodeType* v) override { return GetNodeType(v); }
    HRESULT get_parentNode(IXMLDOMNode** v) override { return GetParentNode(v); }
    HRESULT get_childNodes(IXMLDOMNodeList** v) override { return GetChildNodes(v); }
    HRESULT get_firstChild(IXMLDOMNode** v) override { return GetFirstChild(v); }
    HRESULT get_lastChild(IXMLDOMNode** v) override { return GetLastChild(v); }
    HRESULT get_previousSibling(IXMLDOMNode** v) override { return GetPreviousSibling(v); }
    HRESULT get_nextSibling(IXMLDOMNode** v) override { return GetNextSibling(v); }
    HRESULT get_attributes(IXMLDOMNamedNodeMap** v) override { return GetAttributes(v); }
    HRESULT insertBefore(IXMLDOMNode* c, VARIANT r, IXMLDOMNode** o) override {
        return InsertBefore(c, r, o);
    }
    HRESULT replaceChild(IXMLDOMNode* c, IXMLDOMNode* old, IXMLDOMNode** o) override {
        return ReplaceChild(c, old, o);
    }
    HRESULT removeChild(IXMLDOMNode* c, IXMLDOMNode** o) override { return RemoveChild(c, o); }
    HRESULT appendChild(IXMLDOMNode* c, IXMLDOMNode** o) override { return AppendChild(c, o); }
    HRESULT hasChildNodes(VARIANT_BOOL* v) override { return HasChildNodes(v); }
    HRESULT get_ownerDocument(IXMLDOMDocument** v) override { return GetOwnerDocument(v); }
    HRESULT cloneNode(VARIANT_BOOL deep, IXMLDOMNode** v) override { return CloneNode(deep, v); }
    HRESULT get_nodeTypeString(BSTR* v) override { return GetNodeTypeString(v); }
    HRESULT get_text(BSTR* v) override { return GetText(v); }
    HRESULT put_text(BSTR v) override { return PutText(v); }
    HRESULT get_specified(VARIANT_BOOL* v) override { return GetSpecified(v); }
    HRESULT get_nodeTypedValue(VARIANT* v) override { return GetNodeTypedValue(v); }
    HRESULT put_nodeTypedValue(VARIANT v) override { return PutNodeTypedValue(v); }
    HRESULT get_dataType(VARIANT* v) override { return GetDataType(v); }
    HRESULT get_xml(BSTR* v) override { return GetXml(v); }
    HRESULT selectNodes(BSTR q, IXMLDOMNodeList** v) override { return SelectNodes(q, v); }
    HRESULT selectSingleNode(BSTR q, IXMLDOMNode** v) override { return SelectSingleNode(q, v); }
    HRESULT get_parsed(VARIANT_BOOL* v) override { return GetParsed(v); }
    HRESULT get_namespaceURI(BSTR* v) override { return GetNamespaceURI(v); }
    HRESULT get_prefix(BSTR* v) override { return GetPrefix(v); }
    HRESULT get_baseName(BSTR* v) override { return GetBaseName(v); }

protected:
    DomNode(Tree* tree, xmlNode* node, bool isDocument = false)
        : NodeCore(tree, node, isDocument) {}

    HRESULT QueryBase(REFIID iid, void** object) override {
        if (iid == IID_IXMLDOMNode || iid == IID_IDispatch) {
            *object = Self();
            this->AddRef();
            return S_OK;
        }
        if (iid == kNodeCoreIid) {  // for NodeCore::From only
            *object = static_cast<NodeCore*>(this);
            this->AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
};

class ElementNode final : public DomNode<IXMLDOMElement> {
public:
    ElementNode(Tree* tree, xmlNode* node) : DomNode(tree, node) {}

    HRESULT get_tagName(BSTR* name) override { return GetNodeName(name); }
    HRESULT getAttribute(BSTR name, VARIANT* value) override;
    HRESULT setAttribute(BSTR name, VARIANT value) override;
    HRESULT removeAttribute(BSTR name) override;
    HRESULT getAttributeNode(BSTR name, IXMLDOMAttribute** attribute) override;
    HRESULT setAttributeNode(IXMLDOMAttribute* attribute, IXMLDOMAttribute** replaced) override;
    HRESULT removeAttributeNode(IXMLDOMAttribute* attribute, IXMLDOMAttribute** removed) override;
    HRESULT getElementsByTagName(BSTR name, IXMLDOMNodeList** list) override {
        return ElementsByTagName(name, list);
    }
    HRESULT normalize() override;
};

class AttributeNode final : public DomNode<IXMLDOMAttribute> {
public:
    AttributeNode(Tree* tree, xmlNode* node) : DomNode(tree, node) {}

    HRESULT get_name(BSTR* name) override { return GetNodeName(name); }
    HRESULT get_value(VARIANT* value) override { return GetNodeValue(value); }
    HRESULT put_value(VARIANT value) override { return PutNodeValue(value); }
};

// IXMLDOMCharacterData over a text, CDATA or comment node. Offsets and lengths count wide
// characters (code points here).
template <class I>
class CharacterDataNode : public DomNode<I> {
public:
    HRESULT get_data(BSTR* data) override { return this->GetNodeValueText(data); }
    HRESULT put_data(BSTR data) override;
    HRESULT get_length(LONG* length) override;
    HRESULT substringData(LONG offset, LONG count, BSTR* data) override;
    HRESULT appendData(BSTR data) override;
    HRESULT insertData(LONG offset, BSTR data) override;
    HRESULT deleteData(LONG offset, LONG count) override;
    HRESULT replaceData(LONG offset, LONG count, BSTR data) override;

protected:
    CharacterDataNode(Tree* tree, xmlNode* node) : DomNode<I>(tree, node) {}
    HRESULT GetNodeValueText(BSTR* data);
    std::wstring Data() const;
    HRESULT SetData(std::wstring_view data);
    HRESULT QueryBase(REFIID iid, void** object) override;
};

class TextNode final : public CharacterDataNode<IXMLDOMText> {
public:
    TextNode(Tree* tree, xmlNode* node) : CharacterDataNode(tree, node) {}
    HRESULT splitText(LONG offset, IXMLDOMText** rightHandTextNode) override;
};

class CDataNode final : public CharacterDataNode<IXMLDOMCDATASection> {
public:
    CDataNode(Tree* tree, xmlNode* node) : CharacterDataNode(tree, node) {}
    HRESULT splitText(LONG offset, IXMLDOMText** rightHandTextNode) override;
};

class CommentNode final : public CharacterDataNode<IXMLDOMComment> {
public:
    CommentNode(Tree* tree, xmlNode* node) : CharacterDataNode(tree, node) {}
};

class ProcessingInstructionNode final : public DomNode<IXMLDOMProcessingInstruction> {
public:
    ProcessingInstructionNode(Tree* tree, xmlNode* node) : DomNode(tree, node) {}
    HRESULT get_target(BSTR* name) override { return GetNodeName(name); }
    HRESULT get_data(BSTR* value) override;
    HRESULT put_data(BSTR value) override;
};

class FragmentNode final : public DomNode<IXMLDOMDocumentFragment> {
public:
    FragmentNode(Tree* tree, xmlNode* node) : DomNode(tree, node) {}
};

// A namespace declaration shown as an attribute ("xmlns:p" or "xmlns"). Attached, its xmlNs is
// in the owner element's nsDef list; detached, it is linked nowhere and owned by the tree.
// Declarations are never changed in place once a node may name them: a new value, or attaching
// to an element, links a fresh xmlNs, so that nodes keep the namespaces they were created with.
class NamespaceAttribute final : public ComObject<IXMLDOMAttribute> {
public:
    NamespaceAttribute(Tree* tree, xmlNode* owner, xmlNs* ns, bool exclusive);

    static NamespaceAttribute* From(IUnknown* node);
    xmlNode* OwnerElement() const { return m_owner; }
    xmlNs* Ns() const { return m_ns; }
    Tree* GetTree() const { return m_tree; }
    std::string Prefix() const;  // "" for the default namespace
    std::string Href() const;
    // Points the wrapper at a declaration (owner null: detached and owned by the tree).
    void Rehome(Tree* tree, xmlNode* owner, xmlNs* ns, bool exclusive);

    HRESULT get_nodeName(BSTR* name) override;
    HRESULT get_nodeValue(VARIANT* value) override;
    HRESULT put_nodeValue(VARIANT value) override;
    HRESULT get_nodeType(DOMNodeType* type) override;
    HRESULT get_parentNode(IXMLDOMNode** parent) override;
    HRESULT get_childNodes(IXMLDOMNodeList** list) override;
    HRESULT get_firstChild(IXMLDOMNode** child) override;
    HRESULT get_lastChild(IXMLDOMNode** child) override;
    HRESULT get_previousSibling(IXMLDOMNode** sibling) override;
    HRESULT get_nextSibling(IXMLDOMNode** sibling) override;
    HRESULT get_attributes(IXMLDOMNamedNodeMap** map) override;
    HRESULT insertBefore(IXMLDOMNode*, VARIANT, IXMLDOMNode**) override { return E_FAIL; }
    HRESULT replaceChild(IXMLDOMNode*, IXMLDOMNode*, IXMLDOMNode**) override { return E_FAIL; }
    HRESULT removeChild(IXMLDOMNode*, IXMLDOMNode**) override { return E_FAIL; }
    HRESULT appendChild(IXMLDOMNode*, IXMLDOMNode**) override { return E_FAIL; }
    HRESULT hasChildNodes(VARIANT_BOOL* has) override;
    HRESULT get_ownerDocument(IXMLDOMDocument** document) override;
    HRESULT cloneNode(VARIANT_BOOL deep, IXMLDOMNode** clone) override;
    HRESULT get_nodeTypeString(BSTR* text) override;
    HRESULT get_text(BSTR* text) override;
    HRESULT put_text(BSTR text) override;
    HRESULT get_specified(VARIANT_BOOL* specified) override;
    HRESULT get_nodeTypedValue(VARIANT* value) override { return get_nodeValue(value); }
    HRESULT put_nodeTypedValue(VARIANT value) override { return put_nodeValue(value); }
    HRESULT get_dataType(VARIANT* type) override;
    HRESULT get_xml(BSTR* xml) override;
    HRESULT selectNodes(BSTR query, IXMLDOMNodeList** list) override;
    HRESULT selectSingleNode(BSTR query, IXMLDOMNode** node) override;
    HRESULT get_parsed(VARIANT_BOOL* parsed) override;
    HRESULT get_namespaceURI(BSTR* uri) override;
    HRESULT get_prefix(BSTR* prefix) override;
    HRESULT get_baseName(BSTR* name) override;
    HRESULT get_name(BSTR* name) override { return get_nodeName(name); }
    HRESULT get_value(VARIANT* value) override { return get_nodeValue(value); }
    HRESULT put_value(VARIANT value) override { return put_nodeValue(value); }

    HRESULT SetHref(std::string_view href);

protected:
    ~NamespaceAttribute() override;
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    CComPtr<Tree> m_tree;
    CComPtr<IXMLDOMDocument> m_document;
    xmlNode* m_owner;
    xmlNs* m_ns;
    bool m_exclusive;  // detached and named by no node: may change in place
};

// Whether declaring prefix = href on element would rename the element or one of its attributes.
bool DeclarationConflicts(const xmlNode* element, std::string_view prefix, std::string_view href);

}  // namespace platform::msxml
