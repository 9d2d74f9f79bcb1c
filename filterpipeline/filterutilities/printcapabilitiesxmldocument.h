// printcapabilitiesxmldocument.h: a PrintCapabilities document: builds the capability-side
// elements (Features with display names, PickOne Features, Options, integer, string and real
// ParameterDefs) and answers node-relative queries for Options, DisplayNames and ScoredProperties.
#pragma once

#include "filterpipeline/filterutilities/printschemaxmldocument.h"

class PrintCapabilitiesXmlDocument : public PrintSchemaXmlDocument {
public:
    // Wraps a DOM whose root is psf:PrintCapabilities (null gives an empty wrapper).
    explicit PrintCapabilitiesXmlDocument(IXMLDOMDocument2* document);
    ~PrintCapabilitiesXmlDocument() override = default;

    // --- Element building: created elements are detached; the caller inserts them. ---

    // A Feature named <keywords prefix><name>, with a DisplayName Property when displayName is
    // not empty.
    HRESULT CreateFeature(const wchar_t* name, const wchar_t* displayName,
                          IXMLDOMElement** feature);
    // CreateFeature plus the Property psf:SelectionType = <keywords prefix>PickOne.
    HRESULT CreatePickOneFeature(const wchar_t* name, const wchar_t* displayName,
                                 IXMLDOMElement** feature);
    // An Option named prefix + name (local name first, prefix second), with a DisplayName
    // Property and a constrained="<keywords prefix><constraint>" attribute when given.
    HRESULT CreateOption(const wchar_t* name, const wchar_t* prefix, const wchar_t* displayName,
                         const wchar_t* constraint, IXMLDOMElement** option);
    void CreateAndAppendOption(const wchar_t* name, const wchar_t* prefix,
                               const wchar_t* displayName, const wchar_t* constraint,
                               IXMLDOMElement* parent);
    // ParameterDefs named prefix + name. Numbers are written with "%i" (integer form) or "%.2f"
    // (real form); Multiple appears only when positive, DisplayName only when not empty.
    HRESULT CreateIntegerParameterDef(const wchar_t* prefix, const wchar_t* name,
                                      const wchar_t* mandatory, const wchar_t* displayName,
                                      int defaultValue, int minValue, int maxValue, int multiple,
                                      const wchar_t* unitType, IXMLDOMElement** parameterDef);
    HRESULT CreateStringParameterDef(const wchar_t* prefix, const wchar_t* name,
                                     const wchar_t* mandatory, const wchar_t* displayName,
                                     const wchar_t* defaultValue, int minLength, int maxLength,
                                     const wchar_t* unitType, IXMLDOMElement** parameterDef);
    HRESULT CreateRealParameterDef(const wchar_t* prefix, const wchar_t* name,
                                   const wchar_t* mandatory, const wchar_t* displayName,
                                   float defaultValue, float minValue, float maxValue,
                                   float multiple, const wchar_t* unitType,
                                   IXMLDOMElement** parameterDef);

    // --- Lookups ---

    // S_OK and the ParameterDef named prefix + name; S_FALSE when absent.
    HRESULT GetParameterDefNodeIfExists(const wchar_t* prefix, const wchar_t* name,
                                        IXMLDOMNode** node);
    HRESULT DeleteParameterDefNodeIfExists(const wchar_t* prefix, const wchar_t* name);
    // The Option children of a Feature.
    CComPtr<IXMLDOMNodeList> GetChildOptionNodes(IXMLDOMNode* feature);
    // S_OK and the Option child named prefix + name; S_FALSE when absent.
    HRESULT GetChildOptionNodeIfExists(IXMLDOMNode* feature, const wchar_t* prefix,
                                       const wchar_t* name, IXMLDOMNode** option);
    // Replaces the text of the node's own DisplayName Property Value;
    // HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when it has none.
    HRESULT ReplaceDisplayNamePropertyValue(IXMLDOMNode* node, const wchar_t* displayName);
    HRESULT ReplaceOptionDisplayNamePropertyValue(IXMLDOMNode* feature, const wchar_t* prefix,
                                                  const wchar_t* optionName,
                                                  const wchar_t* displayName);
    // The text of the ScoredProperty <keywords prefix><name> below the node; E_FAIL is thrown
    // when there is none.
    CXString GetChildScoredPropertyValueAsString(IXMLDOMNode* node, const wchar_t* name);
    int GetChildScoredPropertyValueAsInteger(IXMLDOMNode* node, const wchar_t* name);

private:
    // A ParameterDef element named prefix + name (an empty name is E_INVALIDARG).
    void CreateParameterDefElement(const wchar_t* method, const wchar_t* prefix,
                                   const wchar_t* name, IXMLDOMElement** parameterDef);
    // Appends a typed framework-namespace Property (psf:<name>) to parent.
    void AppendFrameworkProperty(IXMLDOMElement* parent, const wchar_t* name, const wchar_t* value,
                                 const wchar_t* type);
    // Appends the keywords-namespace Property psk:DisplayName typed "string".
    void AppendDisplayName(IXMLDOMElement* parent, const wchar_t* displayName);
};
