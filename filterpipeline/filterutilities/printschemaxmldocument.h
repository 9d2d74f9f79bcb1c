// printschemaxmldocument.h: one parsed Print Schema document (PrintTicket or PrintCapabilities)
// over the MSXML DOM: namespace prefix discovery, node lookup and value queries, and creation
// and deletion of Print Schema elements. PrintTicketXmlDocument and PrintCapabilitiesXmlDocument
// derive from it and only name the root element.
#pragma once

#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "filterpipeline/filterutilities/printschema.h"
#include "platform/com/atl.h"
#include "platform/msxml/msxml6.h"
#include "support/utilities/cxstring.h"

class PrintSchemaXmlDocument {
public:
    // Prepares the DOM for XPath queries, finds the root element rootName in the framework
    // namespace and discovers the document's prefixes; the private-keywords namespace is moved to
    // the prefix "zk". A null document gives an empty wrapper whose queries fail. Throws a
    // ZorunComException with HRESULT S_FALSE (1) when the root element is not found, and E_FAIL
    // when the framework namespace has no prefix of its own.
    PrintSchemaXmlDocument(const wchar_t* rootName, IXMLDOMDocument2* document);
    PrintSchemaXmlDocument(const PrintSchemaXmlDocument&) = default;
    PrintSchemaXmlDocument& operator=(const PrintSchemaXmlDocument&) = default;
    virtual ~PrintSchemaXmlDocument() = default;

    bool HasDomDocument() const { return m_document != nullptr; }
    IXMLDOMDocument2* GetDomDocPtr() const { return m_document; }
    IXMLDOMNode* GetRootNode() const { return m_rootNode; }

    // The serialised document; E_FAIL for an empty wrapper. Never throws.
    HRESULT get_xml(BSTR* xml) const;

    // Fresh copies of the prefixes, each with its trailing colon (null when undeclared).
    CComBSTR GetFrameworkNsPrefix() const { return m_frameworkPrefix; }
    CComBSTR GetKeywordsNsPrefix() const { return m_keywordsPrefix; }
    CComBSTR GetUserKeywordsNsPrefix() const { return m_privateKeywordsPrefix; }
    CComBSTR GetXmlSchemaNsPrefix() const { return m_xmlSchemaPrefix; }
    CComBSTR GetXmlSchemaInstanceNsPrefix() const { return m_xmlSchemaInstancePrefix; }
    // 0, 1 and 2 select the three getters above; anything else throws E_INVALIDARG.
    CComBSTR GetNsPrefix(PrintSchema::MsPrintTicketNamespacesEnum ns) const;

    // Kept for callers that dump documents while debugging; this library writes nothing.
    HRESULT DebugDumpXmlToFileInTempDirectory(CXString filePrefix, CXString name);

    // Small string helpers shared by the document classes: null counts as empty.
    static bool IsEmptyString(const wchar_t* text) { return text == nullptr || *text == L'\0'; }
    static CComBSTR JoinStrings(const wchar_t* first, const wchar_t* second);
    // text begins with prefix (both non-null).
    static bool StartsWithText(const wchar_t* text, const wchar_t* prefix) {
        return text != nullptr && prefix != nullptr &&
               std::wcsncmp(text, prefix, std::wcslen(prefix)) == 0;
    }
    // The node's typed value as text (untyped Print Schema elements give their trimmed text);
    // an empty value leaves text null. Returns the DOM's failure.
    static HRESULT ReadTypedText(IXMLDOMNode* node, CComBSTR& text);

    // --- Lookups and value queries ---

    // S_OK and the Feature named namePrefix + featureName anywhere in the document; S_FALSE
    // when there is none.
    HRESULT GetFeatureNodeIfExists(const wchar_t* namePrefix, const wchar_t* featureName,
                                   IXMLDOMNode** node);
    // As above, but an absent Feature throws E_FAIL.
    void GetFeatureNode(const wchar_t* namePrefix, const wchar_t* featureName, IXMLDOMNode** node);
    // S_OK when xpath selects a node; HRESULT_FROM_WIN32(ERROR_NOT_FOUND) (returned) when not.
    HRESULT QueryNode(const wchar_t* xpath);
    // The Value of the node (following a ParameterRef to its ParameterInit);
    // HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when the node is absent. An empty value is S_OK with
    // a null string.
    HRESULT QueryNodeValue(const wchar_t* xpath, BSTR* value);
    HRESULT QueryNodeValue(const wchar_t* xpath, int* value);
    HRESULT QueryNodeValue(const wchar_t* xpath, float* value);

    // --- Element creation and editing ---

    // A detached Property whose name is the prefix of ns followed by name.
    HRESULT CreateProperty(PrintSchema::MsPrintTicketNamespacesEnum ns, const wchar_t* name,
                           IXMLDOMElement** property);
    // A detached ParameterRef named prefix + name.
    void CreateParameterRef(const wchar_t* prefix, const wchar_t* name,
                            IXMLDOMElement** parameterRef);
    // A detached ScoredProperty named propertyPrefix + propertyName holding a ParameterRef
    // named parameterPrefix + parameterName.
    void CreateParameterRefScoredProperty(const wchar_t* propertyPrefix,
                                          const wchar_t* propertyName,
                                          const wchar_t* parameterPrefix,
                                          const wchar_t* parameterName,
                                          IXMLDOMElement** scoredProperty);
    void AppendChildToRootNode(IXMLDOMElement* child);
    void AppendChild(IXMLDOMElement* parent, IXMLDOMElement* child);
    void AppendChildIntegerProperty(IXMLDOMElement* parent,
                                    PrintSchema::MsPrintTicketNamespacesEnum ns,
                                    const wchar_t* name, int value);
    void AppendChildStringProperty(IXMLDOMElement* parent,
                                   PrintSchema::MsPrintTicketNamespacesEnum ns, const wchar_t* name,
                                   const wchar_t* value);
    void AppendChildIntegerScoredProperty(IXMLDOMElement* parent, const wchar_t* name, int value);
    void AppendChildQNameScoredProperty(IXMLDOMElement* parent, const wchar_t* name,
                                        const wchar_t* value);
    void AppendChildParameterRefScoredProperty(IXMLDOMElement* parent,
                                               const wchar_t* propertyPrefix,
                                               const wchar_t* propertyName,
                                               const wchar_t* parameterPrefix,
                                               const wchar_t* parameterName);

    // Removes the node from its parent; S_FALSE when it has none.
    HRESULT DeleteNode(IXMLDOMNode* node);
    // Deletes the Feature prefix + name; S_FALSE when there is none.
    HRESULT DeleteFeatureNodeIfExists(const wchar_t* prefix, const wchar_t* name);
    // When the Feature prefix + name occurs more than once, deletes the first occurrence only
    // (the later one wins); S_FALSE when nothing was deleted.
    HRESULT DeleteFeatureNodeIfADuplicateExists(const wchar_t* prefix, const wchar_t* name);
    // Deletes every <prefix>Property named prefix + name; S_FALSE when there was none.
    HRESULT DeletePropertyNodesIfExist(const wchar_t* prefix, const wchar_t* name);
    // Deletes every Feature whose name begins with privatePrefix; S_FALSE when there was none.
    HRESULT DeletePrivateFeatures(const wchar_t* privatePrefix);

    // The prefix to write names of `ns` with. A namespace the root does not declare (the
    // keywords, or the private keywords still under their placeholder prefix) is declared first,
    // under "psk" or "zk" or, where the root binds that prefix to another namespace, a free
    // variant of it; the document then reports the declared prefix.
    const CComBSTR& PrefixForWriting(PrintSchema::MsPrintTicketNamespacesEnum ns);
    const CComBSTR& KeywordsPrefixForWriting() {
        return PrefixForWriting(PrintSchema::MsPrintTicketKeywordsNamespace);
    }

protected:
    // S_OK and the first node xpath selects from the document; S_FALSE and null when none.
    HRESULT GetNode(const wchar_t* xpath, IXMLDOMNode** node);
    // Every element <framework prefix><elementName> in the document (possibly none).
    HRESULT GetNodes(const wchar_t* elementName, IXMLDOMNodeList** nodes);
    // The text of the node's Value child, or of the ParameterInit its ParameterRef names.
    // S_OK (value null when empty or unresolved); S_FALSE when xpath selects nothing.
    HRESULT GetNodeValue(const wchar_t* xpath, BSTR* value);
    // S_OK and the attribute's text; S_FALSE when the node has no such attribute.
    HRESULT GetAttributeValue(const IXMLDOMNode* node, const wchar_t* attributeName, BSTR* value);

    HRESULT CreateXMLElement(const wchar_t* qualifiedName, const wchar_t* namespaceUri,
                             IXMLDOMElement** element);
    HRESULT AppendXMLAttribute(IXMLDOMElement* element, const wchar_t* qualifiedName,
                               const wchar_t* namespaceUri, const wchar_t* value);
    // type is an XML Schema type local name ("string", "integer", "decimal", "QName").
    HRESULT CreateProperty(PrintSchema::MsPrintTicketNamespacesEnum ns, const wchar_t* name,
                           const wchar_t* value, const wchar_t* type, IXMLDOMElement** property);
    HRESULT CreateScoredProperty(const wchar_t* name, IXMLDOMElement** scoredProperty);
    HRESULT CreateScoredProperty(const wchar_t* name, const wchar_t* value, const wchar_t* type,
                                 IXMLDOMElement** scoredProperty);
    HRESULT CreateScoredProperty(const wchar_t* name, IXMLDOMNode* child,
                                 IXMLDOMElement** scoredProperty);
    HRESULT CreateStringScoredProperty(const wchar_t* name, const wchar_t* value,
                                       IXMLDOMElement** scoredProperty);
    HRESULT CreateIntegerScoredProperty(const wchar_t* name, int value,
                                        IXMLDOMElement** scoredProperty);
    HRESULT CreateRealScoredProperty(const wchar_t* name, float value,
                                     IXMLDOMElement** scoredProperty);

    // A detached <framework prefix>Value element typed xsi:type="<xsd prefix><type>" (no type
    // attribute when type is null) holding value as its text.
    HRESULT CreateValueElement(const wchar_t* value, const wchar_t* type, IXMLDOMElement** element);
    // A detached <framework prefix><localName> element with name="<name>".
    HRESULT CreateNamedElement(const wchar_t* localName, const wchar_t* name,
                               IXMLDOMElement** element);

    // The prefixes without copying, for the derived documents' queries and element names.
    const CComBSTR& FrameworkPrefix() const { return m_frameworkPrefix; }
    const CComBSTR& KeywordsPrefix() const { return m_keywordsPrefix; }
    const CComBSTR& PrivateKeywordsPrefix() const { return m_privateKeywordsPrefix; }
    const CComBSTR& XmlSchemaPrefix() const { return m_xmlSchemaPrefix; }
    const CComBSTR& XmlSchemaInstancePrefix() const { return m_xmlSchemaInstancePrefix; }

    // A QName about to be written: one under the private placeholder prefix is given the
    // declared private prefix instead (declaring it), so that no undeclared prefix is written.
    CComBSTR DeclaredName(const wchar_t* qualifiedName);

    // Moves the private-keywords namespace to the prefix "zk": rewrites name attribute values
    // that begin with the old prefix and swaps the root's declaration. Returns failures.
    HRESULT FixPrivateNameSpacePrefix();

private:
    friend class PrintSchemaTestAccess;  // lets the unit tests reach the private helpers

    // A namespace URI looked up among the root's attributes: the name of the first attribute
    // whose value it is, when there is one.
    struct PrefixLookup {
        std::string_view uri;  // UTF-8
        std::string name;      // the declaring attribute's name ("xmlns:p"); empty: none found
    };
    // Fills each lookup in one pass over the root's attributes (namespace declarations
    // included), in the order the attribute map lists them.
    void FindDeclarations(PrefixLookup* lookups, std::size_t count);

    // S_OK and prefix (with ":") when the root element declares one for uri; S_FALSE when not.
    HRESULT GetPrefixFromURI(const wchar_t* uri, BSTR* prefix);
    // The same from a lookup already made: the constructor looks up all its URIs in one pass.
    HRESULT PrefixFromLookup(const PrefixLookup& lookup, BSTR* prefix);
    void SetSelectionNamespace(const wchar_t* method, const wchar_t* prefixWithoutColon);
    // The document element when it is rootName in the framework namespace, else null.
    CComPtr<IXMLDOMNode> DocumentElementIfRoot(const wchar_t* rootName);
    // Declares uri on the root when no prefix member holds it yet (member null, or the private
    // placeholder), and stores the prefix in member. Throws on failure.
    void DeclareIfUndeclared(const wchar_t* uri, const wchar_t* preferred, CComBSTR& member);

    CComPtr<IXMLDOMDocument2> m_document;
    CComBSTR m_rootName;
    CComBSTR m_xmlSchemaPrefix;
    CComBSTR m_xmlSchemaInstancePrefix;
    CComBSTR m_frameworkPrefix;
    CComBSTR m_keywordsPrefix;
    CComBSTR m_privateKeywordsPrefix;
    CComPtr<IXMLDOMNode> m_rootNode;
};
