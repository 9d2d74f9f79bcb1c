// domcollections.h: the node collections of the MSXML stand-in: the live child list
// (childNodes), the static lists that selectNodes and getElementsByTagName return, and the live
// attribute map (attributes) that lists namespace declarations first and then the attributes.
// Internal header.
#pragma once

#include <vector>

#include "platform/msxml/domnode.h"

namespace platform::msxml {

// childNodes: live, follows insertions and removals. Holds its parent node.
class ChildList final : public ComObject<IXMLDOMNodeList> {
public:
    explicit ChildList(NodeCore* parent);

    HRESULT get_item(LONG index, IXMLDOMNode** item) override;
    HRESULT get_length(LONG* length) override;
    HRESULT nextNode(IXMLDOMNode** next) override;
    HRESULT reset() override;

protected:
    ~ChildList() override;
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    xmlNode* At(LONG index);

    CComPtr<IXMLDOMNode> m_parentRef;
    NodeCore* m_parent;
    LONG m_next = 0;
    // Position cache so that walking the list in order costs O(1) per step.
    LONG m_cachedIndex = -1;
    xmlNode* m_cachedNode = nullptr;
    const Tree* m_cacheTree = nullptr;
    std::uint64_t m_cacheVersion = 0;
};

// A snapshot of nodes (selectNodes, getElementsByTagName). It pins its tree, so that the nodes
// it lists stay allocated even when they are removed from the document meanwhile.
class StaticList final : public ComObject<IXMLDOMNodeList> {
public:
    StaticList(Tree* tree, std::vector<xmlNode*> nodes);

    HRESULT get_item(LONG index, IXMLDOMNode** item) override;
    HRESULT get_length(LONG* length) override;
    HRESULT nextNode(IXMLDOMNode** next) override;
    HRESULT reset() override;

protected:
    ~StaticList() override;
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    CComPtr<Tree> m_tree;
    CComPtr<IXMLDOMDocument> m_document;
    std::vector<xmlNode*> m_nodes;
    std::size_t m_next = 0;
};

// attributes of an element: namespace declarations (in declaration order) followed by the
// attributes (in document order). Live; indexes count both kinds.
class AttributeMap final : public ComObject<IXMLDOMNamedNodeMap> {
public:
    explicit AttributeMap(NodeCore* element);

    HRESULT getNamedItem(BSTR name, IXMLDOMNode** item) override;
    HRESULT setNamedItem(IXMLDOMNode* newItem, IXMLDOMNode** replaced) override;
    HRESULT removeNamedItem(BSTR name, IXMLDOMNode** removed) override;
    HRESULT get_item(LONG index, IXMLDOMNode** item) override;
    HRESULT get_length(LONG* length) override;
    HRESULT getQualifiedItem(BSTR baseName, BSTR namespaceURI, IXMLDOMNode** item) override;
    HRESULT removeQualifiedItem(BSTR baseName, BSTR namespaceURI, IXMLDOMNode** removed) override;
    HRESULT nextNode(IXMLDOMNode** next) override;
    HRESULT reset() override;

protected:
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    CComPtr<IXMLDOMNode> m_elementRef;
    NodeCore* m_element;
    LONG m_next = 0;
};

// Attribute operations shared by IXMLDOMElement and IXMLDOMNamedNodeMap. Names are qualified
// names; "xmlns" and "xmlns:p" address namespace declarations.
namespace attributes {

LONG Count(const xmlNode* element);
HRESULT Item(NodeCore& element, LONG index, IXMLDOMNode** item);
HRESULT GetNamed(NodeCore& element, std::string_view name, IXMLDOMNode** item);
HRESULT GetQualified(NodeCore& element, std::string_view local, std::string_view uri,
                     IXMLDOMNode** item);
HRESULT RemoveNamed(NodeCore& element, std::string_view name, IXMLDOMNode** removed);
HRESULT RemoveQualified(NodeCore& element, std::string_view local, std::string_view uri,
                        IXMLDOMNode** removed);
// Attaches an attribute or declaration node; the one it replaces (same name) is returned.
HRESULT SetNode(NodeCore& element, IXMLDOMNode* attribute, IXMLDOMNode** replaced);
HRESULT RemoveNode(NodeCore& element, IXMLDOMNode* attribute, IXMLDOMNode** removed);
// setAttribute: sets or creates (a prefix must be declared in scope, or be "xml").
HRESULT SetValue(NodeCore& element, std::string_view name, std::string_view value);
// getAttribute: S_FALSE when absent.
HRESULT GetValue(const xmlNode* element, std::string_view name, std::string& value);

}  // namespace attributes

}  // namespace platform::msxml
