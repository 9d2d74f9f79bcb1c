// printcapabilitiesxmldocument.cpp: the builders of PrintCapabilities Features, Options and
// ParameterDefs, and the node-relative Option, DisplayName and ScoredProperty queries.
#include "filterpipeline/filterutilities/printcapabilitiesxmldocument.h"

#include "filterpipeline/filterutilities/printticketquerybuilder.h"
#include "platform/win32/crt.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/zorunutilities.h"

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

bool IsEmpty(const wchar_t* text) {
    return PrintSchemaXmlDocument::IsEmptyString(text);
}

CComBSTR Join(const wchar_t* first, const wchar_t* second) {
    return PrintSchemaXmlDocument::JoinStrings(first, second);
}

CXString Format(const wchar_t* format, int value) {
    return ZorunUtilities::SafeFormatString(format, value);
}

CXString FormatReal(float value) {
    return ZorunUtilities::SafeFormatString(L"%.2f", static_cast<double>(value));
}

}  // namespace

PrintCapabilitiesXmlDocument::PrintCapabilitiesXmlDocument(IXMLDOMDocument2* document)
    : PrintSchemaXmlDocument(L"PrintCapabilities", document) {
    DebugDumpXmlToFileInTempDirectory(L"PrintCapabilities_", L"");
}

// --- Element building ---

void PrintCapabilitiesXmlDocument::AppendFrameworkProperty(IXMLDOMElement* parent,
                                                           const wchar_t* name,
                                                           const wchar_t* value,
                                                           const wchar_t* type) {
    CComPtr<IXMLDOMElement> property;
    CreateProperty(PrintSchema::MsPrintTicketFrameworkNamespace, name, value, type, &property);
    AppendChild(parent, property);
}

void PrintCapabilitiesXmlDocument::AppendDisplayName(IXMLDOMElement* parent,
                                                     const wchar_t* displayName) {
    CComPtr<IXMLDOMElement> property;
    CreateProperty(PrintSchema::MsPrintTicketKeywordsNamespace, L"DisplayName", displayName,
                   L"string", &property);
    AppendChild(parent, property);
}

HRESULT PrintCapabilitiesXmlDocument::CreateFeature(const wchar_t* name, const wchar_t* displayName,
                                                    IXMLDOMElement** feature) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreateFeature";
    if (feature == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name)) THROW_COM(E_INVALIDARG, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateNamedElement(L"Feature", Join(KeywordsPrefixForWriting(), name), &created);
    if (!IsEmpty(displayName)) AppendDisplayName(created, displayName);
    *feature = created.Detach();
    return S_OK;
}

HRESULT PrintCapabilitiesXmlDocument::CreatePickOneFeature(const wchar_t* name,
                                                           const wchar_t* displayName,
                                                           IXMLDOMElement** feature) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreatePickOneFeature";
    if (feature == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateFeature(name, displayName, &created);
    AppendFrameworkProperty(created, L"SelectionType", Join(KeywordsPrefixForWriting(), L"PickOne"),
                            L"QName");
    *feature = created.Detach();
    return S_OK;
}

HRESULT PrintCapabilitiesXmlDocument::CreateOption(const wchar_t* name, const wchar_t* prefix,
                                                   const wchar_t* displayName,
                                                   const wchar_t* constraint,
                                                   IXMLDOMElement** option) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreateOption";
    if (option == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name) || IsEmpty(prefix)) THROW_COM(E_INVALIDARG, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateNamedElement(L"Option", Join(prefix, name), &created);
    if (!IsEmpty(displayName)) AppendDisplayName(created, displayName);
    if (!IsEmpty(constraint)) {
        AppendXMLAttribute(created, L"constrained", L"",
                           Join(KeywordsPrefixForWriting(), constraint));
    }
    *option = created.Detach();
    return S_OK;
}

void PrintCapabilitiesXmlDocument::CreateAndAppendOption(const wchar_t* name, const wchar_t* prefix,
                                                         const wchar_t* displayName,
                                                         const wchar_t* constraint,
                                                         IXMLDOMElement* parent) {
    if (parent == nullptr) {
        THROW_COM(E_POINTER, L"PrintCapabilitiesXmlDocument::CreateAndAppendOption", "");
    }
    CComPtr<IXMLDOMElement> option;
    CreateOption(name, prefix, displayName, constraint, &option);
    AppendChild(parent, option);
}

void PrintCapabilitiesXmlDocument::CreateParameterDefElement(const wchar_t* method,
                                                             const wchar_t* prefix,
                                                             const wchar_t* name,
                                                             IXMLDOMElement** parameterDef) {
    if (IsEmpty(name)) THROW_COM(E_INVALIDARG, method, "");
    CreateNamedElement(L"ParameterDef", Join(prefix, name), parameterDef);
}

HRESULT PrintCapabilitiesXmlDocument::CreateIntegerParameterDef(
    const wchar_t* prefix, const wchar_t* name, const wchar_t* mandatory,
    const wchar_t* displayName, int defaultValue, int minValue, int maxValue, int multiple,
    const wchar_t* unitType, IXMLDOMElement** parameterDef) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreateIntegerParameterDef";
    if (parameterDef == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateParameterDefElement(kMethod, prefix, name, &created);
    AppendFrameworkProperty(created, L"DataType", Join(XmlSchemaPrefix(), L"integer"), L"QName");
    AppendFrameworkProperty(created, L"DefaultValue", Format(L"%i", defaultValue), L"integer");
    AppendFrameworkProperty(created, L"MaxValue", Format(L"%i", maxValue), L"integer");
    AppendFrameworkProperty(created, L"MinValue", Format(L"%i", minValue), L"integer");
    AppendFrameworkProperty(created, L"Mandatory", Join(KeywordsPrefixForWriting(), mandatory),
                            L"QName");
    AppendFrameworkProperty(created, L"UnitType", unitType, L"string");
    if (multiple > 0) {
        AppendFrameworkProperty(created, L"Multiple", Format(L"%i", multiple), L"integer");
    }
    if (!IsEmpty(displayName)) AppendDisplayName(created, displayName);
    *parameterDef = created.Detach();
    return S_OK;
}

HRESULT PrintCapabilitiesXmlDocument::CreateStringParameterDef(
    const wchar_t* prefix, const wchar_t* name, const wchar_t* mandatory,
    const wchar_t* displayName, const wchar_t* defaultValue, int minLength, int maxLength,
    const wchar_t* unitType, IXMLDOMElement** parameterDef) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreateStringParameterDef";
    if (parameterDef == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateParameterDefElement(kMethod, prefix, name, &created);
    AppendFrameworkProperty(created, L"DataType", Join(XmlSchemaPrefix(), L"string"), L"QName");
    AppendFrameworkProperty(created, L"MaxLength", Format(L"%i", maxLength), L"integer");
    AppendFrameworkProperty(created, L"MinLength", Format(L"%i", minLength), L"integer");
    AppendFrameworkProperty(created, L"Mandatory", Join(KeywordsPrefixForWriting(), mandatory),
                            L"QName");
    AppendFrameworkProperty(created, L"UnitType", unitType, L"string");
    if (!IsEmpty(displayName)) AppendDisplayName(created, displayName);
    // The default comes last; an empty default is left out.
    if (!IsEmpty(defaultValue)) {
        AppendFrameworkProperty(created, L"DefaultValue", defaultValue, L"string");
    }
    *parameterDef = created.Detach();
    return S_OK;
}

HRESULT PrintCapabilitiesXmlDocument::CreateRealParameterDef(
    const wchar_t* prefix, const wchar_t* name, const wchar_t* mandatory,
    const wchar_t* displayName, float defaultValue, float minValue, float maxValue, float multiple,
    const wchar_t* unitType, IXMLDOMElement** parameterDef) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::CreateRealParameterDef";
    if (parameterDef == nullptr) THROW_COM(E_POINTER, kMethod, "");
    CComPtr<IXMLDOMElement> created;
    CreateParameterDefElement(kMethod, prefix, name, &created);
    AppendFrameworkProperty(created, L"DataType", Join(XmlSchemaPrefix(), L"decimal"), L"QName");
    // The default is written typed "string", not "decimal", unlike the limits.
    AppendFrameworkProperty(created, L"DefaultValue", FormatReal(defaultValue), L"string");
    AppendFrameworkProperty(created, L"MaxValue", FormatReal(maxValue), L"decimal");
    AppendFrameworkProperty(created, L"MinValue", FormatReal(minValue), L"decimal");
    AppendFrameworkProperty(created, L"Mandatory", Join(KeywordsPrefixForWriting(), mandatory),
                            L"QName");
    AppendFrameworkProperty(created, L"UnitType", unitType, L"string");
    if (multiple > 0.0F) {
        AppendFrameworkProperty(created, L"Multiple", FormatReal(multiple), L"decimal");
    }
    if (!IsEmpty(displayName)) AppendDisplayName(created, displayName);
    *parameterDef = created.Detach();
    return S_OK;
}

// --- Lookups ---

HRESULT PrintCapabilitiesXmlDocument::GetParameterDefNodeIfExists(const wchar_t* prefix,
                                                                  const wchar_t* name,
                                                                  IXMLDOMNode** node) {
    PrintTicketQueryBuilder builder(FrameworkPrefix());
    builder.AddParameterDef(prefix, name);
    CComBSTR query;
    builder.GetQuery(&query);
    return GetNode(query, node);
}

HRESULT PrintCapabilitiesXmlDocument::DeleteParameterDefNodeIfExists(const wchar_t* prefix,
                                                                     const wchar_t* name) {
    CComPtr<IXMLDOMNode> parameterDef;
    if (GetParameterDefNodeIfExists(prefix, name, &parameterDef) == S_FALSE) return S_FALSE;
    return DeleteNode(parameterDef);
}

CComPtr<IXMLDOMNodeList> PrintCapabilitiesXmlDocument::GetChildOptionNodes(IXMLDOMNode* feature) {
    static constexpr wchar_t kMethod[] = L"PrintCapabilitiesXmlDocument::GetChildOptionNodes";
    if (feature == nullptr) THROW_COM(E_POINTER, kMethod, "");
    const CComBSTR query(ZorunUtilities::SafeFormatString(
        L"./%sOption", static_cast<const wchar_t*>(FrameworkPrefix())));
    CComPtr<IXMLDOMNodeList> options;
    THROW_COM_IF_FAILED(feature->selectNodes(query, &options), kMethod, "");
    return options;
}

HRESULT PrintCapabilitiesXmlDocument::GetChildOptionNodeIfExists(IXMLDOMNode* feature,
                                                                 const wchar_t* prefix,
                                                                 const wchar_t* name,
                                                                 IXMLDOMNode** option) {
    static constexpr wchar_t kMethod[] =
        L"PrintCapabilitiesXmlDocument::GetChildOptionNodeIfExists";
    if (feature == nullptr || option == nullptr) THROW_COM(E_POINTER, kMethod, "");
    *option = nullptr;
    PrintTicketQueryBuilder builder(FrameworkPrefix(), L".");
    builder.AddChildOptionName(prefix, name);
    CComBSTR query;
    builder.GetQuery(&query);
    const HRESULT hr = feature->selectSingleNode(query, option);
    THROW_COM_IF_FAILED(hr, kMethod, "");
    return *option == nullptr ? S_FALSE : hr;
}

HRESULT PrintCapabilitiesXmlDocument::ReplaceDisplayNamePropertyValue(IXMLDOMNode* node,
                                                                      const wchar_t* displayName) {
    static constexpr wchar_t kMethod[] =
        L"PrintCapabilitiesXmlDocument::ReplaceDisplayNamePropertyValue";
    if (node == nullptr || IsEmpty(displayName)) THROW_COM(E_INVALIDARG, kMethod, "");
    PrintTicketQueryBuilder builder(FrameworkPrefix(), L".");
    builder.AddChildPropertyValue(KeywordsPrefix(), L"DisplayName");
    CComBSTR query;
    builder.GetQuery(&query);
    CComPtr<IXMLDOMNode> value;
    THROW_COM_IF_FAILED(node->selectSingleNode(query, &value), kMethod, "");
    if (!value) return kNotFound;
    THROW_COM_IF_FAILED(value->put_text(CComBSTR(displayName)), kMethod, "");
    return S_OK;
}

HRESULT PrintCapabilitiesXmlDocument::ReplaceOptionDisplayNamePropertyValue(
    IXMLDOMNode* feature, const wchar_t* prefix, const wchar_t* optionName,
    const wchar_t* displayName) {
    CComPtr<IXMLDOMNode> option;
    if (GetChildOptionNodeIfExists(feature, prefix, optionName, &option) == S_FALSE) {
        return kNotFound;
    }
    return ReplaceDisplayNamePropertyValue(option, displayName);
}

CXString PrintCapabilitiesXmlDocument::GetChildScoredPropertyValueAsString(IXMLDOMNode* node,
                                                                           const wchar_t* name) {
    static constexpr wchar_t kMethod[] =
        L"PrintCapabilitiesXmlDocument::GetChildScoredPropertyValueAsString";
    if (node == nullptr) THROW_COM(E_POINTER, kMethod, "");
    PrintTicketQueryBuilder builder(FrameworkPrefix(), L".");
    builder.AddScoredProperty(KeywordsPrefix(), name);
    CComBSTR query;
    builder.GetQuery(&query);
    CComPtr<IXMLDOMNode> scoredProperty;
    const HRESULT hr = node->selectSingleNode(query, &scoredProperty);
    if (FAILED(hr) || !scoredProperty) THROW_COM(E_FAIL, kMethod, "");
    CComBSTR text;
    if (FAILED(ReadTypedText(scoredProperty, text))) THROW_COM(E_FAIL, kMethod, "");
    return CXString(text.m_str);
}

int PrintCapabilitiesXmlDocument::GetChildScoredPropertyValueAsInteger(IXMLDOMNode* node,
                                                                       const wchar_t* name) {
    const CXString text = GetChildScoredPropertyValueAsString(node, name);
    return _wtoi(static_cast<const wchar_t*>(text));
}
