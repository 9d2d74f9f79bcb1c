// msxml6.h: the MSXML 6 DOM and SAX interfaces, with the Windows IIDs, CLSIDs, method names and
// argument order, so that code written against the SDK's msxml6.h compiles unchanged. The
// implementation (platform/msxml/*.cpp) sits on libxml2; docs/msxml.md lists its behaviour.
// IDispatch is only an identity here: no automation (DISPIDs, Invoke) is offered.
#pragma once

#include <string>
#include <string_view>

#include "platform/com/bstr.h"
#include "platform/com/guid.h"
#include "platform/com/unknown.h"
#include "platform/com/variant.h"

// Node types, with MSXML's values.
enum tagDOMNodeType : INT {
    NODE_INVALID = 0,
    NODE_ELEMENT = 1,
    NODE_ATTRIBUTE = 2,
    NODE_TEXT = 3,
    NODE_CDATA_SECTION = 4,
    NODE_ENTITY_REFERENCE = 5,
    NODE_ENTITY = 6,
    NODE_PROCESSING_INSTRUCTION = 7,
    NODE_COMMENT = 8,
    NODE_DOCUMENT = 9,
    NODE_DOCUMENT_TYPE = 10,
    NODE_DOCUMENT_FRAGMENT = 11,
    NODE_NOTATION = 12,
};
using DOMNodeType = tagDOMNodeType;

struct IXMLDOMNode;
struct IXMLDOMNodeList;
struct IXMLDOMNamedNodeMap;
struct IXMLDOMDocument;
struct IXMLDOMElement;
struct IXMLDOMAttribute;
struct IXMLDOMText;
struct IXMLDOMComment;
struct IXMLDOMCDATASection;
struct IXMLDOMProcessingInstruction;
struct IXMLDOMDocumentFragment;
struct IXMLDOMParseError;

struct IXMLDOMNode : IDispatch {
    virtual HRESULT get_nodeName(BSTR* name) = 0;
    virtual HRESULT get_nodeValue(VARIANT* value) = 0;
    virtual HRESULT put_nodeValue(VARIANT value) = 0;
    virtual HRESULT get_nodeType(DOMNodeType* type) = 0;
    virtual HRESULT get_parentNode(IXMLDOMNode** parent) = 0;
    virtual HRESULT get_childNodes(IXMLDOMNodeList** childList) = 0;
    virtual HRESULT get_firstChild(IXMLDOMNode** firstChild) = 0;
    virtual HRESULT get_lastChild(IXMLDOMNode** lastChild) = 0;
    virtual HRESULT get_previousSibling(IXMLDOMNode** previousSibling) = 0;
    virtual HRESULT get_nextSibling(IXMLDOMNode** nextSibling) = 0;
    virtual HRESULT get_attributes(IXMLDOMNamedNodeMap** attributeMap) = 0;
    virtual HRESULT insertBefore(IXMLDOMNode* newChild, VARIANT refChild,
                                 IXMLDOMNode** outNewChild) = 0;
    virtual HRESULT replaceChild(IXMLDOMNode* newChild, IXMLDOMNode* oldChild,
                                 IXMLDOMNode** outOldChild) = 0;
    virtual HRESULT removeChild(IXMLDOMNode* childNode, IXMLDOMNode** oldChild) = 0;
    virtual HRESULT appendChild(IXMLDOMNode* newChild, IXMLDOMNode** outNewChild) = 0;
    virtual HRESULT hasChildNodes(VARIANT_BOOL* hasChild) = 0;
    virtual HRESULT get_ownerDocument(IXMLDOMDocument** document) = 0;
    virtual HRESULT cloneNode(VARIANT_BOOL deep, IXMLDOMNode** cloneRoot) = 0;
    virtual HRESULT get_nodeTypeString(BSTR* nodeType) = 0;
    virtual HRESULT get_text(BSTR* text) = 0;
    virtual HRESULT put_text(BSTR text) = 0;
    virtual HRESULT get_specified(VARIANT_BOOL* isSpecified) = 0;
    virtual HRESULT get_nodeTypedValue(VARIANT* typedValue) = 0;
    virtual HRESULT put_nodeTypedValue(VARIANT typedValue) = 0;
    virtual HRESULT get_dataType(VARIANT* dataTypeName) = 0;
    virtual HRESULT get_xml(BSTR* xmlString) = 0;
    virtual HRESULT selectNodes(BSTR queryString, IXMLDOMNodeList** resultList) = 0;
    virtual HRESULT selectSingleNode(BSTR queryString, IXMLDOMNode** resultNode) = 0;
    virtual HRESULT get_parsed(VARIANT_BOOL* isParsed) = 0;
    virtual HRESULT get_namespaceURI(BSTR* namespaceURI) = 0;
    virtual HRESULT get_prefix(BSTR* prefixString) = 0;
    virtual HRESULT get_baseName(BSTR* nameString) = 0;

protected:
    ~IXMLDOMNode() = default;
};
FU_DECLARE_IID(IXMLDOMNode, 0x2933bf80, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e,
               0x60);

struct IXMLDOMNodeList : IDispatch {
    virtual HRESULT get_item(LONG index, IXMLDOMNode** listItem) = 0;
    virtual HRESULT get_length(LONG* listLength) = 0;
    virtual HRESULT nextNode(IXMLDOMNode** nextItem) = 0;
    virtual HRESULT reset() = 0;

protected:
    ~IXMLDOMNodeList() = default;
};
FU_DECLARE_IID(IXMLDOMNodeList, 0x2933bf82, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMNamedNodeMap : IDispatch {
    virtual HRESULT getNamedItem(BSTR name, IXMLDOMNode** namedItem) = 0;
    virtual HRESULT setNamedItem(IXMLDOMNode* newItem, IXMLDOMNode** nameItem) = 0;
    virtual HRESULT removeNamedItem(BSTR name, IXMLDOMNode** namedItem) = 0;
    virtual HRESULT get_item(LONG index, IXMLDOMNode** listItem) = 0;
    virtual HRESULT get_length(LONG* listLength) = 0;
    virtual HRESULT getQualifiedItem(BSTR baseName, BSTR namespaceURI,
                                     IXMLDOMNode** qualifiedItem) = 0;
    virtual HRESULT removeQualifiedItem(BSTR baseName, BSTR namespaceURI,
                                        IXMLDOMNode** qualifiedItem) = 0;
    virtual HRESULT nextNode(IXMLDOMNode** nextItem) = 0;
    virtual HRESULT reset() = 0;

protected:
    ~IXMLDOMNamedNodeMap() = default;
};
FU_DECLARE_IID(IXMLDOMNamedNodeMap, 0x2933bf83, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMParseError : IDispatch {
    virtual HRESULT get_errorCode(LONG* errorCode) = 0;
    virtual HRESULT get_url(BSTR* urlString) = 0;
    virtual HRESULT get_reason(BSTR* reasonString) = 0;
    virtual HRESULT get_srcText(BSTR* sourceString) = 0;
    virtual HRESULT get_line(LONG* lineNumber) = 0;
    virtual HRESULT get_linepos(LONG* linePosition) = 0;
    virtual HRESULT get_filepos(LONG* filePosition) = 0;

protected:
    ~IXMLDOMParseError() = default;
};
FU_DECLARE_IID(IXMLDOMParseError, 0x3efaa426, 0x272f, 0x11d2, 0x83, 0x6f, 0x00, 0x00, 0xf8, 0x7a,
               0x77, 0x82);

struct IXMLDOMDocument : IXMLDOMNode {
    virtual HRESULT get_documentElement(IXMLDOMElement** element) = 0;
    virtual HRESULT putref_documentElement(IXMLDOMElement* element) = 0;
    virtual HRESULT createElement(BSTR tagName, IXMLDOMElement** element) = 0;
    virtual HRESULT createDocumentFragment(IXMLDOMDocumentFragment** fragment) = 0;
    virtual HRESULT createTextNode(BSTR data, IXMLDOMText** text) = 0;
    virtual HRESULT createComment(BSTR data, IXMLDOMComment** comment) = 0;
    virtual HRESULT createCDATASection(BSTR data, IXMLDOMCDATASection** cdata) = 0;
    virtual HRESULT createProcessingInstruction(BSTR target, BSTR data,
                                                IXMLDOMProcessingInstruction** pi) = 0;
    virtual HRESULT createAttribute(BSTR name, IXMLDOMAttribute** attribute) = 0;
    virtual HRESULT getElementsByTagName(BSTR tagName, IXMLDOMNodeList** resultList) = 0;
    virtual HRESULT createNode(VARIANT type, BSTR name, BSTR namespaceURI, IXMLDOMNode** node) = 0;
    virtual HRESULT load(VARIANT xmlSource, VARIANT_BOOL* isSuccessful) = 0;
    virtual HRESULT get_readyState(LONG* value) = 0;
    virtual HRESULT get_parseError(IXMLDOMParseError** errorObj) = 0;
    virtual HRESULT get_url(BSTR* urlString) = 0;
    virtual HRESULT get_async(VARIANT_BOOL* isAsync) = 0;
    virtual HRESULT put_async(VARIANT_BOOL isAsync) = 0;
    virtual HRESULT loadXML(BSTR bstrXML, VARIANT_BOOL* isSuccessful) = 0;
    virtual HRESULT save(VARIANT destination) = 0;
    virtual HRESULT get_validateOnParse(VARIANT_BOOL* isValidating) = 0;
    virtual HRESULT put_validateOnParse(VARIANT_BOOL isValidating) = 0;
    virtual HRESULT get_resolveExternals(VARIANT_BOOL* isResolving) = 0;
    virtual HRESULT put_resolveExternals(VARIANT_BOOL isResolving) = 0;
    virtual HRESULT get_preserveWhiteSpace(VARIANT_BOOL* isPreserving) = 0;
    virtual HRESULT put_preserveWhiteSpace(VARIANT_BOOL isPreserving) = 0;

protected:
    ~IXMLDOMDocument() = default;
};
FU_DECLARE_IID(IXMLDOMDocument, 0x2933bf81, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMDocument2 : IXMLDOMDocument {
    // Properties: "SelectionLanguage" (only "XPath"), "SelectionNamespaces" (a list such as
    // "xmlns:p='uri' xmlns:q=\"uri\""), "ProhibitDTD", "ResolveExternals", "NewParser",
    // "AllowDocumentFunction", "AllowXsltScript", "MaxElementDepth" and a few more: see
    // docs/msxml.md for the values each accepts.
    virtual HRESULT setProperty(BSTR name, VARIANT value) = 0;
    virtual HRESULT getProperty(BSTR name, VARIANT* value) = 0;

protected:
    ~IXMLDOMDocument2() = default;
};
FU_DECLARE_IID(IXMLDOMDocument2, 0x2933bf95, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMDocument3 : IXMLDOMDocument2 {
    // Copies a node of any document into this one (not yet attached).
    virtual HRESULT importNode(IXMLDOMNode* node, VARIANT_BOOL deep, IXMLDOMNode** clone) = 0;

protected:
    ~IXMLDOMDocument3() = default;
};
FU_DECLARE_IID(IXMLDOMDocument3, 0x2933bf96, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMElement : IXMLDOMNode {
    virtual HRESULT get_tagName(BSTR* tagName) = 0;
    virtual HRESULT getAttribute(BSTR name, VARIANT* value) = 0;
    virtual HRESULT setAttribute(BSTR name, VARIANT value) = 0;
    virtual HRESULT removeAttribute(BSTR name) = 0;
    virtual HRESULT getAttributeNode(BSTR name, IXMLDOMAttribute** attributeNode) = 0;
    virtual HRESULT setAttributeNode(IXMLDOMAttribute* attribute,
                                     IXMLDOMAttribute** attributeNode) = 0;
    virtual HRESULT removeAttributeNode(IXMLDOMAttribute* attribute,
                                        IXMLDOMAttribute** attributeNode) = 0;
    virtual HRESULT getElementsByTagName(BSTR tagName, IXMLDOMNodeList** resultList) = 0;
    virtual HRESULT normalize() = 0;

protected:
    ~IXMLDOMElement() = default;
};
FU_DECLARE_IID(IXMLDOMElement, 0x2933bf86, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e,
               0x60);

struct IXMLDOMAttribute : IXMLDOMNode {
    virtual HRESULT get_name(BSTR* attributeName) = 0;
    virtual HRESULT get_value(VARIANT* attributeValue) = 0;
    virtual HRESULT put_value(VARIANT attributeValue) = 0;

protected:
    ~IXMLDOMAttribute() = default;
};
FU_DECLARE_IID(IXMLDOMAttribute, 0x2933bf85, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMCharacterData : IXMLDOMNode {
    virtual HRESULT get_data(BSTR* data) = 0;
    virtual HRESULT put_data(BSTR data) = 0;
    virtual HRESULT get_length(LONG* dataLength) = 0;
    virtual HRESULT substringData(LONG offset, LONG count, BSTR* data) = 0;
    virtual HRESULT appendData(BSTR data) = 0;
    virtual HRESULT insertData(LONG offset, BSTR data) = 0;
    virtual HRESULT deleteData(LONG offset, LONG count) = 0;
    virtual HRESULT replaceData(LONG offset, LONG count, BSTR data) = 0;

protected:
    ~IXMLDOMCharacterData() = default;
};
FU_DECLARE_IID(IXMLDOMCharacterData, 0x2933bf84, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMText : IXMLDOMCharacterData {
    virtual HRESULT splitText(LONG offset, IXMLDOMText** rightHandTextNode) = 0;

protected:
    ~IXMLDOMText() = default;
};
FU_DECLARE_IID(IXMLDOMText, 0x2933bf87, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e,
               0x60);

struct IXMLDOMComment : IXMLDOMCharacterData {
protected:
    ~IXMLDOMComment() = default;
};
FU_DECLARE_IID(IXMLDOMComment, 0x2933bf88, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e,
               0x60);

struct IXMLDOMCDATASection : IXMLDOMText {
protected:
    ~IXMLDOMCDATASection() = default;
};
FU_DECLARE_IID(IXMLDOMCDATASection, 0x2933bf8a, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98,
               0x3e, 0x60);

struct IXMLDOMProcessingInstruction : IXMLDOMNode {
    virtual HRESULT get_target(BSTR* name) = 0;
    virtual HRESULT get_data(BSTR* value) = 0;
    virtual HRESULT put_data(BSTR value) = 0;

protected:
    ~IXMLDOMProcessingInstruction() = default;
};
FU_DECLARE_IID(IXMLDOMProcessingInstruction, 0x2933bf89, 0x7b36, 0x11d2, 0xb2, 0x0e, 0x00, 0xc0,
               0x4f, 0x98, 0x3e, 0x60);

struct IXMLDOMDocumentFragment : IXMLDOMNode {
protected:
    ~IXMLDOMDocumentFragment() = default;
};
FU_DECLARE_IID(IXMLDOMDocumentFragment, 0x3efaa413, 0x272f, 0x11d2, 0x83, 0x6f, 0x00, 0x00, 0xf8,
               0x7a, 0x77, 0x82);

// ---- SAX2 -------------------------------------------------------------------------------------

struct ISAXLocator : IUnknown {
    virtual HRESULT getColumnNumber(INT* column) = 0;
    virtual HRESULT getLineNumber(INT* line) = 0;
    virtual HRESULT getPublicId(const wchar_t** publicId) = 0;
    virtual HRESULT getSystemId(const wchar_t** systemId) = 0;

protected:
    ~ISAXLocator() = default;
};
FU_DECLARE_IID(ISAXLocator, 0x9b7e472a, 0x0de4, 0x4640, 0xbf, 0xf3, 0x84, 0xd3, 0x8a, 0x05, 0x1c,
               0x31);

// Attributes of one startElement call. Strings stay valid until the callback returns; they are
// not NUL-terminated, use the lengths.
struct ISAXAttributes : IUnknown {
    virtual HRESULT getLength(INT* length) = 0;
    virtual HRESULT getURI(INT index, const wchar_t** uri, INT* uriLength) = 0;
    virtual HRESULT getLocalName(INT index, const wchar_t** localName, INT* localNameLength) = 0;
    virtual HRESULT getQName(INT index, const wchar_t** qName, INT* qNameLength) = 0;
    virtual HRESULT getName(INT index, const wchar_t** uri, INT* uriLength,
                            const wchar_t** localName, INT* localNameLength, const wchar_t** qName,
                            INT* qNameLength) = 0;
    virtual HRESULT getIndexFromName(const wchar_t* uri, INT uriLength, const wchar_t* localName,
                                     INT localNameLength, INT* index) = 0;
    virtual HRESULT getIndexFromQName(const wchar_t* qName, INT qNameLength, INT* index) = 0;
    virtual HRESULT getType(INT index, const wchar_t** type, INT* typeLength) = 0;
    virtual HRESULT getTypeFromName(const wchar_t* uri, INT uriLength, const wchar_t* localName,
                                    INT localNameLength, const wchar_t** type, INT* typeLength) = 0;
    virtual HRESULT getTypeFromQName(const wchar_t* qName, INT qNameLength, const wchar_t** type,
                                     INT* typeLength) = 0;
    virtual HRESULT getValue(INT index, const wchar_t** value, INT* valueLength) = 0;
    virtual HRESULT getValueFromName(const wchar_t* uri, INT uriLength, const wchar_t* localName,
                                     INT localNameLength, const wchar_t** value,
                                     INT* valueLength) = 0;
    virtual HRESULT getValueFromQName(const wchar_t* qName, INT qNameLength, const wchar_t** value,
                                      INT* valueLength) = 0;

protected:
    ~ISAXAttributes() = default;
};
FU_DECLARE_IID(ISAXAttributes, 0xf078abe1, 0x45d2, 0x4832, 0x91, 0xea, 0x44, 0x66, 0xce, 0x2f, 0x25,
               0xc9);

struct ISAXContentHandler : IUnknown {
    virtual HRESULT putDocumentLocator(ISAXLocator* locator) = 0;
    virtual HRESULT startDocument() = 0;
    virtual HRESULT endDocument() = 0;
    virtual HRESULT startPrefixMapping(const wchar_t* prefix, INT prefixLength, const wchar_t* uri,
                                       INT uriLength) = 0;
    virtual HRESULT endPrefixMapping(const wchar_t* prefix, INT prefixLength) = 0;
    virtual HRESULT startElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                                 const wchar_t* localName, INT localNameLength,
                                 const wchar_t* qName, INT qNameLength,
                                 ISAXAttributes* attributes) = 0;
    virtual HRESULT endElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                               const wchar_t* localName, INT localNameLength, const wchar_t* qName,
                               INT qNameLength) = 0;
    virtual HRESULT characters(const wchar_t* chars, INT length) = 0;
    virtual HRESULT ignorableWhitespace(const wchar_t* chars, INT length) = 0;
    virtual HRESULT processingInstruction(const wchar_t* target, INT targetLength,
                                          const wchar_t* data, INT dataLength) = 0;
    virtual HRESULT skippedEntity(const wchar_t* name, INT nameLength) = 0;

protected:
    ~ISAXContentHandler() = default;
};
FU_DECLARE_IID(ISAXContentHandler, 0x1545cdfa, 0x9e4e, 0x4497, 0xa8, 0xa4, 0x2b, 0xf7, 0xd0, 0x11,
               0x2c, 0x44);

struct ISAXErrorHandler : IUnknown {
    virtual HRESULT error(ISAXLocator* locator, const wchar_t* errorMessage, HRESULT errorCode) = 0;
    virtual HRESULT fatalError(ISAXLocator* locator, const wchar_t* errorMessage,
                               HRESULT errorCode) = 0;
    virtual HRESULT ignorableWarning(ISAXLocator* locator, const wchar_t* errorMessage,
                                     HRESULT errorCode) = 0;

protected:
    ~ISAXErrorHandler() = default;
};
FU_DECLARE_IID(ISAXErrorHandler, 0xa60511c4, 0xccf5, 0x479e, 0x98, 0xa3, 0xdc, 0x8d, 0xc5, 0x45,
               0xb7, 0xd0);

struct ISAXXMLReader : IUnknown {
    // Features: "http://xml.org/sax/features/namespaces" (on), ".../namespace-prefixes" (off),
    // "prohibit-dtd" (on; cannot be turned off), ".../external-general-entities" and
    // ".../external-parameter-entities" (off; cannot be turned on).
    virtual HRESULT getFeature(const wchar_t* name, VARIANT_BOOL* value) = 0;
    virtual HRESULT putFeature(const wchar_t* name, VARIANT_BOOL value) = 0;
    virtual HRESULT getProperty(const wchar_t* name, VARIANT* value) = 0;
    virtual HRESULT putProperty(const wchar_t* name, VARIANT value) = 0;
    virtual HRESULT getContentHandler(ISAXContentHandler** handler) = 0;
    virtual HRESULT putContentHandler(ISAXContentHandler* handler) = 0;
    virtual HRESULT getErrorHandler(ISAXErrorHandler** handler) = 0;
    virtual HRESULT putErrorHandler(ISAXErrorHandler* handler) = 0;
    virtual HRESULT getBaseURL(const wchar_t** baseUrl) = 0;
    virtual HRESULT putBaseURL(const wchar_t* baseUrl) = 0;
    virtual HRESULT getSecureBaseURL(const wchar_t** secureBaseUrl) = 0;
    virtual HRESULT putSecureBaseURL(const wchar_t* secureBaseUrl) = 0;
    // input: VT_BSTR (the XML text itself), or VT_UNKNOWN/VT_DISPATCH answering IStream or
    // ISequentialStream; anything else is E_INVALIDARG.
    virtual HRESULT parse(VARIANT input) = 0;
    // A local file path or file:// URL; other schemes are refused (no network).
    virtual HRESULT parseURL(const wchar_t* url) = 0;

protected:
    ~ISAXXMLReader() = default;
};
FU_DECLARE_IID(ISAXXMLReader, 0xa4f96ed0, 0xf829, 0x476e, 0x81, 0xc0, 0xcd, 0xc7, 0xbd, 0x2a, 0x08,
               0x02);

// ---- Classes ----------------------------------------------------------------------------------

// The MSXML 6 DOM document ("Msxml2.DOMDocument.6.0"). It answers IXMLDOMDocument,
// IXMLDOMDocument2, IXMLDOMDocument3, IXMLDOMNode and IStream (its UTF-8 serialisation).
FU_DECLARE_CLSID(DOMDocument60, 0x88d96a05, 0xf192, 0x11d4, 0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32,
                 0x51, 0xe5);
// The free-threaded variant is the same class here (documents are not shared between threads).
FU_DECLARE_CLSID(FreeThreadedDOMDocument60, 0x88d96a06, 0xf192, 0x11d4, 0xa6, 0x5f, 0x00, 0x40,
                 0x96, 0x32, 0x51, 0xe5);
// The MSXML 6 SAX reader ("Msxml2.SAXXMLReader.6.0").
FU_DECLARE_CLSID(SAXXMLReader60, 0x88d96a0c, 0xf192, 0x11d4, 0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32,
                 0x51, 0xe5);

namespace platform {

// Parse error codes (IXMLDOMParseError::get_errorCode, and the SAX reader's failure HRESULT).
// They sit in MSXML's error range (0xC00CE...), so FAILED() holds for all of them: a document
// that is not well-formed gives kXmlParseErrorBase plus libxml2's error number; a DOCTYPE, which
// is always prohibited, gives kXmlDtdProhibited.
inline constexpr HRESULT kXmlParseErrorBase = static_cast<HRESULT>(0xC00CE000u);
inline constexpr HRESULT kXmlDtdProhibited = static_cast<HRESULT>(0xC00CEFFDu);

}  // namespace platform

namespace platform {

// Creates the MSXML 6 classes directly (CoCreateInstance goes through the same factories; both
// classes are registered when the platform library is loaded).
HRESULT CreateDomDocument60(REFIID iid, void** object);
HRESULT CreateSaxXmlReader60(REFIID iid, void** object);

// A stamp of the document's observable state: it changes whenever a node is edited, added or
// removed, a document is loaded, or SelectionNamespaces or preserveWhiteSpace is changed, and no
// two documents share one. Code that keeps facts derived from a document (its prefixes, a
// decoded value) reuses them while the stamp stays the same. 0 for a document object that is
// not this library's DOMDocument: nothing can be known about it, so nothing is reused.
unsigned long long DomDocumentChangeStamp(IXMLDOMDocument* document);

// The text property of a node of this library's DOM (what get_text gives), written into
// `text`, whose storage is reused: for code that reads kilobytes of text (a device mode's base64)
// page after page without a string allocated each time. E_INVALIDARG for a null node;
// E_NOINTERFACE for a node of another implementation or a namespace declaration, which the caller
// then reads through get_text; E_OUTOFMEMORY.
HRESULT DomNodeText(IXMLDOMNode* node, std::wstring& text);
// The same text as UTF-8, as the tree holds it: no conversion, only a copy into `text` (whose
// storage is reused). The same errors as DomNodeText.
HRESULT DomNodeTextUtf8(IXMLDOMNode* node, std::string& text);

// Receives one attribute of DomElementAttributes: its nodeName and its nodeValue as UTF-8, valid
// only during the call. A failure stops the listing.
using DomAttributeSink = HRESULT (*)(void* context, std::string_view name, std::string_view value);
// The attributes of an element of this library's DOM, in the order its attribute map lists them
// (namespace declarations first, then the other attributes), each as the name and value its node
// gives, read from the tree without a node object or a string made for each: for code that reads
// a root's declarations page after page. E_INVALIDARG for a null element or sink; E_NOINTERFACE
// for a node of another implementation or one that is not an element, which the caller then reads
// through the attribute map; E_OUTOFMEMORY; or the sink's failure.
HRESULT DomElementAttributes(IXMLDOMNode* element, DomAttributeSink sink, void* context);

// How many XPath expressions this process has compiled (diagnostics: a query repeated on a
// document is compiled once; see docs/msxml.md for the cache).
unsigned long long DomXPathCompilationCount();

}  // namespace platform
