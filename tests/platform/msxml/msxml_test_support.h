// msxml_test_support.h: small helpers shared by the MSXML stand-in tests: creating documents,
// loading text, reading strings back as std::wstring.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "platform/com/atl.h"
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

}  // namespace msxmltest
