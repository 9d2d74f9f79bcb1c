// msxml_test_support.h: small helpers shared by the MSXML stand-in tests: creating documents and
// readers, loading text, reading strings and counts back, and a content handler that ignores
// every callback for tests to override.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/msxml/msxml6.h"

namespace msxmltest {

inline CComPtr<IXMLDOMDocument2> NewDocument() {
    CComPtr<IXMLDOMDocument2> doc;
    HRESULT hr = CoCreateInstance(CLSID_DOMDocument60, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument2,
                                  reinterpret_cast<void**>(&doc));
    EXPECT_EQ(hr, S_OK);
    return doc;
}

// Loads text; returns loadXML's VARIANT_BOOL as a bool.
inline bool Load(IXMLDOMDocument2* doc, const wchar_t* xml) {
    VARIANT_BOOL ok = VARIANT_FALSE;
    CComBSTR text(xml);
    HRESULT hr = doc->loadXML(text, &ok);
    EXPECT_EQ(hr, ok == VARIANT_TRUE ? S_OK : S_FALSE);
    return ok == VARIANT_TRUE;
}

inline CComPtr<IXMLDOMDocument2> Parsed(const wchar_t* xml) {
    CComPtr<IXMLDOMDocument2> doc = NewDocument();
    EXPECT_TRUE(Load(doc, xml)) << "could not load test document";
    return doc;
}

inline std::wstring Str(BSTR text) {
    return text == nullptr ? std::wstring() : std::wstring(text, SysStringLen(text));
}

template <class Node>
std::wstring Xml(Node* node) {
    CComBSTR xml;
    EXPECT_EQ(node->get_xml(&xml), S_OK);
    return Str(xml);
}

template <class Node>
std::wstring Text(Node* node) {
    CComBSTR text;
    EXPECT_EQ(node->get_text(&text), S_OK);
    return Str(text);
}

template <class Node>
std::wstring Name(Node* node) {
    CComBSTR name;
    EXPECT_EQ(node->get_nodeName(&name), S_OK);
    return Str(name);
}

template <class Node>
std::wstring NamespaceUri(Node* node) {
    CComBSTR uri;
    EXPECT_EQ(node->get_namespaceURI(&uri), S_OK);
    return Str(uri);
}

inline CComPtr<IXMLDOMNode> Select(IXMLDOMNode* context, const wchar_t* xpath) {
    CComPtr<IXMLDOMNode> node;
    CComBSTR query(xpath);
    EXPECT_EQ(context->selectSingleNode(query, &node), S_OK) << "no match for the query";
    return node;
}

inline void SetNamespaces(IXMLDOMDocument2* doc, const wchar_t* list) {
    CComBSTR name(L"SelectionNamespaces");
    EXPECT_EQ(doc->setProperty(name, CComVariant(list)), S_OK);
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline CComPtr<IStream> StreamOf(const std::string& bytes) {
    CComPtr<IStream> stream;
    EXPECT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
    return stream;
}

// UTF-16 little-endian bytes with their byte-order mark.
inline std::string Utf16Le(const std::u16string& text) {
    std::string bytes("\xFF\xFE", 2);
    for (char16_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    return bytes;
}

// `depth` elements nested in each other.
inline std::string Nested(int depth) {
    std::string xml;
    for (int i = 0; i < depth; ++i) xml += "<d>";
    for (int i = 0; i < depth; ++i) xml += "</d>";
    return xml;
}

inline std::wstring Piece(const wchar_t* text, INT length) {
    return text == nullptr ? std::wstring() : std::wstring(text, static_cast<std::size_t>(length));
}

// A string property read through `get` (e.g. &IXMLDOMNode::get_prefix).
template <class Object, class Getter>
std::wstring Get(Object* object, Getter get) {
    CComBSTR text;
    EXPECT_EQ((object->*get)(&text), S_OK);
    return Str(text);
}

// A VARIANT's text, or a marker naming its type when it holds no string.
inline std::wstring VarText(const VARIANT& value) {
    return value.vt == VT_BSTR ? Str(value.bstrVal) : L"<vt " + std::to_wstring(value.vt) + L">";
}

inline LONG Length(IXMLDOMNodeList* list) {
    LONG length = -1;
    EXPECT_EQ(list->get_length(&length), S_OK);
    return length;
}

inline LONG ChildCount(IXMLDOMNode* node) {
    CComPtr<IXMLDOMNodeList> children;
    EXPECT_EQ(node->get_childNodes(&children), S_OK);
    return Length(children);
}

// How many nodes selectNodes finds; -1 when it fails.
inline LONG Count(IXMLDOMNode* context, const wchar_t* xpath) {
    CComPtr<IXMLDOMNodeList> list;
    EXPECT_EQ(context->selectNodes(CComBSTR(xpath), &list), S_OK) << "query failed";
    return list ? Length(list) : -1;
}

inline CComPtr<ISAXXMLReader> NewReader() {
    CComPtr<ISAXXMLReader> reader;
    EXPECT_EQ(CoCreateInstance(CLSID_SAXXMLReader60, nullptr, CLSCTX_ALL, IID_ISAXXMLReader,
                               reinterpret_cast<void**>(&reader)),
              S_OK);
    return reader;
}

// Accepts every callback; tests override the ones they watch.
class NullContentHandler : public platform::ComObject<ISAXContentHandler> {
public:
    HRESULT putDocumentLocator(ISAXLocator*) override { return S_OK; }
    HRESULT startDocument() override { return S_OK; }
    HRESULT endDocument() override { return S_OK; }
    HRESULT startPrefixMapping(const wchar_t*, INT, const wchar_t*, INT) override { return S_OK; }
    HRESULT endPrefixMapping(const wchar_t*, INT) override { return S_OK; }
    HRESULT startElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT,
                         ISAXAttributes*) override {
        return S_OK;
    }
    HRESULT endElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT) override {
        return S_OK;
    }
    HRESULT characters(const wchar_t*, INT) override { return S_OK; }
    HRESULT ignorableWhitespace(const wchar_t*, INT) override { return S_OK; }
    HRESULT processingInstruction(const wchar_t*, INT, const wchar_t*, INT) override {
        return S_OK;
    }
    HRESULT skippedEntity(const wchar_t*, INT) override { return S_OK; }
};

}  // namespace msxmltest
