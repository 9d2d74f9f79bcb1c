// domcharacterdata.cpp: text, CDATA and comment nodes (IXMLDOMCharacterData: reading, editing
// and splitting their data in UTF-16 units) and processing instructions.
#include "platform/msxml/domnode.h"

#include <new>
#include <type_traits>

#include "platform/msxml/domcollections.h"
#include "platform/msxml/domdocument.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {
namespace {

HRESULT SplitTextNode(NodeCore& node, LONG offset, IXMLDOMText** right) {
    if (right == nullptr) return E_INVALIDARG;
    *right = nullptr;
    xmlNode* text = node.Node();
    std::wstring data;
    AppendWide(data, View(text->content));
    if (offset < 0 || static_cast<std::size_t>(offset) > data.size()) return E_INVALIDARG;
    Utf8 head = ToUtf8(data.data(), static_cast<std::size_t>(offset));
    Utf8 tail = ToUtf8(data.data() + offset, data.size() - static_cast<std::size_t>(offset));
    xmlDocPtr doc = node.GetTree()->Doc();
    xmlNode* split = text->type == XML_CDATA_SECTION_NODE
                         ? xmlNewCDataBlock(doc, XmlStr(tail), static_cast<int>(tail.size()))
                         : xmlNewDocTextLen(doc, XmlStr(tail), static_cast<int>(tail.size()));
    if (split == nullptr) return E_OUTOFMEMORY;
    xmlNodeSetContentLen(text, XmlStr(head), static_cast<int>(head.size()));
    if (text->parent != nullptr) {
        LinkBefore(text->parent, split, text->next);
    } else {
        node.GetTree()->MarkDetached(split);
    }
    node.GetTree()->Touch();
    CComPtr<IXMLDOMNode> wrapped;
    FU_RETURN_IF_FAILED(node.GetTree()->Wrap(split, &wrapped));
    return wrapped->QueryInterface(IID_IXMLDOMText, reinterpret_cast<void**>(right));
}

}  // namespace

// ---- Character data ---------------------------------------------------------------------------

template <class I>
std::wstring CharacterDataNode<I>::Data() const {
    std::wstring data;
    AppendWide(data, View(this->m_node->content));
    return data;
}

template <class I>
HRESULT CharacterDataNode<I>::SetData(std::wstring_view data) {
    Utf8 text = ToUtf8(data.data(), data.size());
    xmlNodeSetContentLen(this->m_node, XmlStr(text), static_cast<int>(text.size()));
    this->m_tree->Touch();
    return S_OK;
}

template <class I>
HRESULT CharacterDataNode<I>::GetNodeValueText(BSTR* data) {
    if (data == nullptr) return E_INVALIDARG;
    return ReturnBstr(View(this->m_node->content), data);
}

template <class I>
HRESULT CharacterDataNode<I>::put_data(BSTR data) {
    return SetData(std::wstring_view(data == nullptr ? L"" : data, SysStringLen(data)));
}

template <class I>
HRESULT CharacterDataNode<I>::get_length(LONG* length) {
    if (length == nullptr) return E_INVALIDARG;
    *length = static_cast<LONG>(Data().size());
    return S_OK;
}

template <class I>
HRESULT CharacterDataNode<I>::substringData(LONG offset, LONG count, BSTR* data) {
    if (data == nullptr) return E_INVALIDARG;
    *data = nullptr;
    std::wstring text = Data();
    if (offset < 0 || count < 0 || static_cast<std::size_t>(offset) > text.size()) {
        return E_INVALIDARG;
    }
    std::wstring part =
        text.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
    *data = SysAllocStringLen(part.data(), static_cast<UINT>(part.size()));
    return *data == nullptr ? E_OUTOFMEMORY : S_OK;
}

template <class I>
HRESULT CharacterDataNode<I>::appendData(BSTR data) {
    std::wstring text = Data();
    text.append(data == nullptr ? L"" : data, SysStringLen(data));
    return SetData(text);
}

template <class I>
HRESULT CharacterDataNode<I>::insertData(LONG offset, BSTR data) {
    std::wstring text = Data();
    if (offset < 0 || static_cast<std::size_t>(offset) > text.size()) return E_INVALIDARG;
    text.insert(static_cast<std::size_t>(offset), data == nullptr ? L"" : data, SysStringLen(data));
    return SetData(text);
}

template <class I>
HRESULT CharacterDataNode<I>::deleteData(LONG offset, LONG count) {
    std::wstring text = Data();
    if (offset < 0 || count < 0 || static_cast<std::size_t>(offset) > text.size()) {
        return E_INVALIDARG;
    }
    text.erase(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
    return SetData(text);
}

template <class I>
HRESULT CharacterDataNode<I>::replaceData(LONG offset, LONG count, BSTR data) {
    std::wstring text = Data();
    if (offset < 0 || count < 0 || static_cast<std::size_t>(offset) > text.size()) {
        return E_INVALIDARG;
    }
    text.replace(static_cast<std::size_t>(offset), static_cast<std::size_t>(count),
                 data == nullptr ? L"" : data, SysStringLen(data));
    return SetData(text);
}

template <class I>
HRESULT CharacterDataNode<I>::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IXMLDOMCharacterData) {
        *object = static_cast<IXMLDOMCharacterData*>(static_cast<I*>(this));
        this->AddRef();
        return S_OK;
    }
    if constexpr (std::is_base_of_v<IXMLDOMText, I> && !std::is_same_v<IXMLDOMText, I>) {
        if (iid == IID_IXMLDOMText) {
            *object = static_cast<IXMLDOMText*>(static_cast<I*>(this));
            this->AddRef();
            return S_OK;
        }
    }
    return DomNode<I>::QueryBase(iid, object);
}

template class CharacterDataNode<IXMLDOMText>;
template class CharacterDataNode<IXMLDOMCDATASection>;
template class CharacterDataNode<IXMLDOMComment>;

HRESULT TextNode::splitText(LONG offset, IXMLDOMText** right) {
    return SplitTextNode(*this, offset, right);
}

HRESULT CDataNode::splitText(LONG offset, IXMLDOMText** right) {
    return SplitTextNode(*this, offset, right);
}

HRESULT ProcessingInstructionNode::get_data(BSTR* value) {
    if (value == nullptr) return E_INVALIDARG;
    return ReturnBstr(View(m_node->content), value);
}

HRESULT ProcessingInstructionNode::put_data(BSTR value) {
    Utf8 text = ToUtf8(value);
    xmlNodeSetContentLen(m_node, XmlStr(text), static_cast<int>(text.size()));
    m_tree->Touch();
    return S_OK;
}

}  // namespace platform::msxml
