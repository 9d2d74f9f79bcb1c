// printschemaxmldocumentedit.cpp: the builders, appenders and deleters of Print Schema elements
// (features, options, properties, scored properties, parameter inits) of PrintSchemaXmlDocument.
#include "filterpipeline/filterutilities/printschemaxmldocument.h"

#include <cwchar>
#include <iterator>
#include <string>

#include "filterpipeline/filterutilities/printticketquerybuilder.h"
#include "filterpipeline/filterutilities/rootnamespaces.h"
#include "platform/win32/crt.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/number.h"
#include "support/utilities/zorunutilities.h"

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

// Short names for the document's own text helpers.
constexpr auto IsEmpty = &PrintSchemaXmlDocument::IsEmptyString;
constexpr auto StartsWith = &PrintSchemaXmlDocument::StartsWithText;
constexpr auto Join = &PrintSchemaXmlDocument::JoinStrings;

}  // namespace

// --- Element creation ---

HRESULT PrintSchemaXmlDocument::CreateXMLElement(const wchar_t* qualifiedName,
                                                 const wchar_t* namespaceUri,
                                                 IXMLDOMElement** element) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateXMLElement";
    if (element == nullptr) THROW_COM(E_POINTER, kMethod, "");
    *element = nullptr;
    if (IsEmpty(qualifiedName)) THROW_COM(E_INVALIDARG, kMethod, "");
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    CComPtr<IXMLDOMNode> node;
    THROW_COM_IF_FAILED(
        m_document->createNode(CComVariant(static_cast<int>(NODE_ELEMENT)), CComBSTR(qualifiedName),
                               CComBSTR(namespaceUri), &node),
        kMethod, "");
    THROW_COM_IF_FAILED(node.QueryInterface(element), kMethod, "");
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::AppendXMLAttribute(IXMLDOMElement* element,
                                                   const wchar_t* qualifiedName,
                                                   const wchar_t* namespaceUri,
                                                   const wchar_t* value) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::AppendXMLAttribute";
    if (element == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(qualifiedName)) THROW_COM(E_INVALIDARG, kMethod, "");
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    CComPtr<IXMLDOMNode> node;
    THROW_COM_IF_FAILED(
        m_document->createNode(CComVariant(static_cast<int>(NODE_ATTRIBUTE)),
                               CComBSTR(qualifiedName), CComBSTR(namespaceUri), &node),
        kMethod, "");
    CComPtr<IXMLDOMAttribute> attribute;
    THROW_COM_IF_FAILED(node.QueryInterface(&attribute), kMethod, "");
    THROW_COM_IF_FAILED(attribute->put_value(CComVariant(IsEmpty(value) ? L"" : value)), kMethod,
                        "");
    CComPtr<IXMLDOMAttribute> replaced;
    THROW_COM_IF_FAILED(element->setAttributeNode(attribute, &replaced), kMethod, "");
    return S_OK;
}

void PrintSchemaXmlDocument::DeclareIfUndeclared(const wchar_t* uri, const wchar_t* preferred,
                                                 CComBSTR& member) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::DeclareIfUndeclared";
    if (member && member != PrintSchema::UndeclaredPrivateKeywordsPrefix) return;
    if (!m_document || !m_rootNode) THROW_COM(E_PENDING, kMethod, "");
    CComBSTR declared;
    THROW_COM_IF_FAILED(RootNamespaces::Declare(m_document, m_rootNode, uri, preferred, declared),
                        kMethod, "");
    member = declared;
}

const CComBSTR& PrintSchemaXmlDocument::PrefixForWriting(
    PrintSchema::MsPrintTicketNamespacesEnum ns) {
    switch (ns) {
        case PrintSchema::MsPrintTicketFrameworkNamespace:
            return m_frameworkPrefix;  // always declared: the constructor requires it
        case PrintSchema::MsPrintTicketKeywordsNamespace:
            DeclareIfUndeclared(PrintSchema::KeywordsNamespaceUri, L"psk", m_keywordsPrefix);
            return m_keywordsPrefix;
        case PrintSchema::MsPrintTicketUserKeywordsNamespace:
            DeclareIfUndeclared(PrintSchema::PrivateKeywordsNamespaceUri, L"zk",
                                m_privateKeywordsPrefix);
            return m_privateKeywordsPrefix;
    }
    THROW_COM(E_INVALIDARG, L"PrintSchemaXmlDocument::PrefixForWriting", "");
}

CComBSTR PrintSchemaXmlDocument::DeclaredName(const wchar_t* qualifiedName) {
    // The placeholder only ever stands for the private keywords before they are declared (a
    // declared private namespace is moved to its fixed prefix), so a name under it is one of
    // them, even when the caller took the prefix before an earlier write declared it.
    if (!StartsWith(qualifiedName, PrintSchema::UndeclaredPrivateKeywordsPrefix)) {
        return CComBSTR(IsEmpty(qualifiedName) ? L"" : qualifiedName);
    }
    const CComBSTR& prefix = PrefixForWriting(PrintSchema::MsPrintTicketUserKeywordsNamespace);
    return Join(prefix, qualifiedName + std::wcslen(PrintSchema::UndeclaredPrivateKeywordsPrefix));
}

HRESULT PrintSchemaXmlDocument::CreateNamedElement(const wchar_t* localName, const wchar_t* name,
                                                   IXMLDOMElement** element) {
    if (element == nullptr) THROW_COM(E_POINTER, L"PrintSchemaXmlDocument::CreateNamedElement", "");
    CComPtr<IXMLDOMElement> created;
    CreateXMLElement(Join(m_frameworkPrefix, localName), PrintSchema::FrameworkNamespaceUri,
                     &created);
    AppendXMLAttribute(created, L"name", L"", DeclaredName(name));
    *element = created.Detach();
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::CreateValueElement(const wchar_t* value, const wchar_t* type,
                                                   IXMLDOMElement** element) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateValueElement";
    if (element == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateXMLElement(Join(m_frameworkPrefix, L"Value"), PrintSchema::FrameworkNamespaceUri,
                     &created);
    if (!IsEmpty(type)) {
        // The typed value names both XML Schema namespaces: declared if the ticket does not.
        DeclareIfUndeclared(PrintSchema::XmlSchemaInstanceNamespaceUri, L"xsi",
                            m_xmlSchemaInstancePrefix);
        DeclareIfUndeclared(PrintSchema::XmlSchemaNamespaceUri, L"xsd", m_xmlSchemaPrefix);
        AppendXMLAttribute(created, Join(m_xmlSchemaInstancePrefix, L"type"),
                           PrintSchema::XmlSchemaInstanceNamespaceUri,
                           Join(m_xmlSchemaPrefix, type));
    }
    if (!IsEmpty(value)) THROW_COM_IF_FAILED(created->put_text(CComBSTR(value)), kMethod, "");
    *element = created.Detach();
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::CreateProperty(PrintSchema::MsPrintTicketNamespacesEnum ns,
                                               const wchar_t* name, IXMLDOMElement** property) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateProperty";
    if (property == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name)) THROW_COM(E_INVALIDARG, kMethod, "");
    return CreateNamedElement(L"Property", Join(PrefixForWriting(ns), name), property);
}

HRESULT PrintSchemaXmlDocument::CreateProperty(PrintSchema::MsPrintTicketNamespacesEnum ns,
                                               const wchar_t* name, const wchar_t* value,
                                               const wchar_t* type, IXMLDOMElement** property) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateProperty";
    if (property == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateProperty(ns, name, &created);
    CComPtr<IXMLDOMElement> valueElement;
    CreateValueElement(value, type, &valueElement);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(created->appendChild(valueElement, &appended), kMethod, "");
    *property = created.Detach();
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::CreateScoredProperty(const wchar_t* name,
                                                     IXMLDOMElement** scoredProperty) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateScoredProperty";
    if (scoredProperty == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name)) THROW_COM(E_INVALIDARG, kMethod, "");
    return CreateNamedElement(L"ScoredProperty", name, scoredProperty);
}

HRESULT PrintSchemaXmlDocument::CreateScoredProperty(const wchar_t* name, const wchar_t* value,
                                                     const wchar_t* type,
                                                     IXMLDOMElement** scoredProperty) {
    CComPtr<IXMLDOMElement> valueElement;
    CreateValueElement(value, type, &valueElement);
    return CreateScoredProperty(name, valueElement, scoredProperty);
}

HRESULT PrintSchemaXmlDocument::CreateScoredProperty(const wchar_t* name, IXMLDOMNode* child,
                                                     IXMLDOMElement** scoredProperty) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateScoredProperty";
    if (child == nullptr || scoredProperty == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateScoredProperty(name, &created);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(created->appendChild(child, &appended), kMethod, "");
    *scoredProperty = created.Detach();
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::CreateStringScoredProperty(const wchar_t* name,
                                                           const wchar_t* value,
                                                           IXMLDOMElement** scoredProperty) {
    return CreateScoredProperty(name, value, L"string", scoredProperty);
}

HRESULT PrintSchemaXmlDocument::CreateIntegerScoredProperty(const wchar_t* name, int value,
                                                            IXMLDOMElement** scoredProperty) {
    return CreateScoredProperty(name, ZorunUtilities::SafeFormatString(L"%i", value), L"integer",
                                scoredProperty);
}

HRESULT PrintSchemaXmlDocument::CreateRealScoredProperty(const wchar_t* name, float value,
                                                         IXMLDOMElement** scoredProperty) {
    return CreateScoredProperty(
        name, ZorunUtilities::SafeFormatString(L"%.2f", static_cast<double>(value)), L"decimal",
        scoredProperty);
}

void PrintSchemaXmlDocument::CreateParameterRef(const wchar_t* prefix, const wchar_t* name,
                                                IXMLDOMElement** parameterRef) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::CreateParameterRef";
    if (parameterRef == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name)) THROW_COM(E_INVALIDARG, kMethod, "");
    CreateNamedElement(L"ParameterRef", Join(prefix, name), parameterRef);
}

void PrintSchemaXmlDocument::CreateParameterRefScoredProperty(const wchar_t* propertyPrefix,
                                                              const wchar_t* propertyName,
                                                              const wchar_t* parameterPrefix,
                                                              const wchar_t* parameterName,
                                                              IXMLDOMElement** scoredProperty) {
    static constexpr wchar_t kMethod[] =
        L"PrintSchemaXmlDocument::CreateParameterRefScoredProperty";
    if (scoredProperty == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateXMLElement(Join(m_frameworkPrefix, L"ScoredProperty"), PrintSchema::FrameworkNamespaceUri,
                     &created);
    AppendXMLAttribute(created, L"name", L"", DeclaredName(Join(propertyPrefix, propertyName)));
    CComPtr<IXMLDOMElement> reference;
    CreateParameterRef(parameterPrefix, parameterName, &reference);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(created->appendChild(reference, &appended), kMethod, "");
    *scoredProperty = created.Detach();
}

// --- Appending ---

void PrintSchemaXmlDocument::AppendChildToRootNode(IXMLDOMElement* child) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::AppendChildToRootNode";
    if (child == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (!m_rootNode) THROW_COM(E_PENDING, kMethod, "");
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(m_rootNode->appendChild(child, &appended), kMethod, "");
}

void PrintSchemaXmlDocument::AppendChild(IXMLDOMElement* parent, IXMLDOMElement* child) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::AppendChild";
    if (parent == nullptr || child == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(parent->appendChild(child, &appended), kMethod, "");
}

void PrintSchemaXmlDocument::AppendChildIntegerProperty(IXMLDOMElement* parent,
                                                        PrintSchema::MsPrintTicketNamespacesEnum ns,
                                                        const wchar_t* name, int value) {
    CComPtr<IXMLDOMElement> property;
    CreateProperty(ns, name, ZorunUtilities::SafeFormatString(L"%i", value), L"integer", &property);
    AppendChild(parent, property);
}

void PrintSchemaXmlDocument::AppendChildStringProperty(IXMLDOMElement* parent,
                                                       PrintSchema::MsPrintTicketNamespacesEnum ns,
                                                       const wchar_t* name, const wchar_t* value) {
    CComPtr<IXMLDOMElement> property;
    CreateProperty(ns, name, value, L"string", &property);
    AppendChild(parent, property);
}

void PrintSchemaXmlDocument::AppendChildIntegerScoredProperty(IXMLDOMElement* parent,
                                                              const wchar_t* name, int value) {
    CComPtr<IXMLDOMElement> scoredProperty;
    CreateIntegerScoredProperty(name, value, &scoredProperty);
    AppendChild(parent, scoredProperty);
}

void PrintSchemaXmlDocument::AppendChildQNameScoredProperty(IXMLDOMElement* parent,
                                                            const wchar_t* name,
                                                            const wchar_t* value) {
    CComPtr<IXMLDOMElement> scoredProperty;
    CreateScoredProperty(name, value, L"QName", &scoredProperty);
    AppendChild(parent, scoredProperty);
}

void PrintSchemaXmlDocument::AppendChildParameterRefScoredProperty(IXMLDOMElement* parent,
                                                                   const wchar_t* propertyPrefix,
                                                                   const wchar_t* propertyName,
                                                                   const wchar_t* parameterPrefix,
                                                                   const wchar_t* parameterName) {
    CComPtr<IXMLDOMElement> scoredProperty;
    CreateParameterRefScoredProperty(propertyPrefix, propertyName, parameterPrefix, parameterName,
                                     &scoredProperty);
    AppendChild(parent, scoredProperty);
}

// --- Deleting ---

HRESULT PrintSchemaXmlDocument::DeleteNode(IXMLDOMNode* node) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::DeleteNode";
    if (node == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMNode> parent;
    THROW_COM_IF_FAILED(node->get_parentNode(&parent), kMethod, "");
    if (!parent) return S_FALSE;
    CComPtr<IXMLDOMNode> removed;
    THROW_COM_IF_FAILED(parent->removeChild(node, &removed), kMethod, "");
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::DeleteFeatureNodeIfExists(const wchar_t* prefix,
                                                          const wchar_t* name) {
    CComPtr<IXMLDOMNode> feature;
    if (GetFeatureNodeIfExists(prefix, name, &feature) == S_FALSE) return S_FALSE;
    return DeleteNode(feature);
}

HRESULT PrintSchemaXmlDocument::DeleteFeatureNodeIfADuplicateExists(const wchar_t* prefix,
                                                                    const wchar_t* name) {
    static constexpr wchar_t kMethod[] =
        L"PrintSchemaXmlDocument::DeleteFeatureNodeIfADuplicateExists";
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    PrintTicketQueryBuilder builder(m_frameworkPrefix);
    builder.AddFeature(prefix, name);
    CComBSTR query;
    builder.GetQuery(&query);
    CComPtr<IXMLDOMNodeList> features;
    THROW_COM_IF_FAILED(m_document->selectNodes(query, &features), kMethod, "");
    LONG count = 0;
    THROW_COM_IF_FAILED(features->get_length(&count), kMethod, "");
    // Only the first occurrence goes, however many there are: the last one written wins.
    if (count <= 1) return S_FALSE;
    CComPtr<IXMLDOMNode> first;
    THROW_COM_IF_FAILED(features->get_item(0, &first), kMethod, "");
    DeleteNode(first);
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::DeletePropertyNodesIfExist(const wchar_t* prefix,
                                                           const wchar_t* name) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::DeletePropertyNodesIfExist";
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    PrintTicketQueryBuilder builder(prefix);
    builder.AddProperty(prefix, name);
    CComBSTR query;
    builder.GetQuery(&query);
    CComPtr<IXMLDOMNodeList> properties;
    THROW_COM_IF_FAILED(m_document->selectNodes(query, &properties), kMethod, "");
    LONG count = 0;
    THROW_COM_IF_FAILED(properties->get_length(&count), kMethod, "");
    for (LONG index = 0; index < count; ++index) {
        CComPtr<IXMLDOMNode> property;
        THROW_COM_IF_FAILED(properties->get_item(index, &property), kMethod, "");
        DeleteNode(property);
    }
    return count > 0 ? S_OK : S_FALSE;
}

HRESULT PrintSchemaXmlDocument::DeletePrivateFeatures(const wchar_t* privatePrefix) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::DeletePrivateFeatures";
    if (IsEmpty(privatePrefix)) THROW_COM(E_INVALIDARG, kMethod, "");
    CComPtr<IXMLDOMNodeList> features;
    GetNodes(L"Feature", &features);
    if (!features) return S_FALSE;
    THROW_COM_IF_FAILED(features->reset(), kMethod, "");
    HRESULT result = S_FALSE;
    for (;;) {
        CComPtr<IXMLDOMNode> feature;
        const HRESULT hr = features->nextNode(&feature);
        THROW_COM_IF_FAILED(hr, kMethod, "");
        if (hr == S_FALSE || !feature) break;
        CComBSTR name;
        GetAttributeValue(feature, L"name", &name);
        if (StartsWith(name, privatePrefix)) {
            DeleteNode(feature);
            result = S_OK;
        }
    }
    return result;
}
