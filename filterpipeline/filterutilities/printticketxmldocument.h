// printticketxmldocument.h: a PrintTicket document: reads the selected Option of a Feature and
// ScoredProperty values, tests for and deletes Features, Properties and ParameterInits, and builds
// the element groups a ticket edit inserts. The driver's private data carried in the ticket is
// implemented by the same class in a source file of its own.
#pragma once

#include "filterpipeline/filterutilities/printschemaxmldocument.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/bytebuffer.h"

class PrintTicketXmlDocument : public PrintSchemaXmlDocument {
public:
    // Wraps a DOM whose root is psf:PrintTicket (null gives an empty wrapper).
    explicit PrintTicketXmlDocument(IXMLDOMDocument2* document);
    ~PrintTicketXmlDocument() override = default;

    // --- Queries. An absent Feature, Option or ScoredProperty is returned as
    // HRESULT_FROM_WIN32(ERROR_NOT_FOUND), never thrown. ---

    // S_OK when the Feature <keywords prefix><featureName> exists (node optional).
    HRESULT FeaturePresent(const wchar_t* featureName, IXMLDOMNode** node = nullptr);
    // The selected option of the Feature <keywords prefix><featureName>, split at its first ':'
    // into the local name and (optionally) the prefix with its colon: psk:ISOA4 gives ISOA4 and
    // psk:. A name without a colon throws E_FAIL.
    HRESULT GetFeatureOption(const wchar_t* featureName, BSTR* optionName,
                             BSTR* optionPrefix = nullptr);
    // The option of the sub-Feature nested in the Feature, without the keywords prefix.
    HRESULT GetSubFeatureOption(const wchar_t* featureName, const wchar_t* subFeatureName,
                                BSTR* optionName);
    // The name attribute of the node a complete XPath selects, without the keywords prefix.
    HRESULT QueryNodeOption(const wchar_t* query, BSTR* optionName);
    // The Value of the ScoredProperty <keywords prefix><propertyName> of the Feature, following a
    // ParameterRef; as text (null when empty), as _wtoi integer, or as a real number.
    HRESULT GetScoredPropertyValue(const wchar_t* featureName, const wchar_t* propertyName,
                                   BSTR* value);
    HRESULT GetScoredPropertyValue(const wchar_t* featureName, const wchar_t* propertyName,
                                   int* value);
    HRESULT GetScoredPropertyValue(const wchar_t* featureName, const wchar_t* propertyName,
                                   float* value);
    // S_OK and the ParameterInit named prefix + name (or its Value child); S_FALSE when absent.
    HRESULT GetParameterInitNodeIfExists(const wchar_t* prefix, const wchar_t* name,
                                         IXMLDOMNode** node);
    HRESULT GetParameterInitValueNodeIfExists(const wchar_t* prefix, const wchar_t* name,
                                              IXMLDOMNode** node);

    // --- Deletion: S_FALSE when there was nothing to delete. ---

    HRESULT DeleteParameterInitNodeIfExists(const wchar_t* prefix, const wchar_t* name);
    // Deletes the Property named with the framework prefix (psf:<propertyName>).
    HRESULT DeleteProperty(const wchar_t* propertyName);

    // --- Element building: created elements are detached; the caller inserts them. ---

    // A Feature named with the keywords (isPublicKeyword) or private-keywords prefix, holding an
    // empty Option; both are returned.
    HRESULT CreateFeatureOptionPair(bool isPublicKeyword, const wchar_t* featureName,
                                    IXMLDOMElement** feature, IXMLDOMElement** option);
    // As above, the Option named with the keywords or private-keywords prefix + optionName.
    HRESULT CreateFeatureOptionPair(bool isPublicFeature, const wchar_t* featureName,
                                    bool isPublicOption, const wchar_t* optionName,
                                    IXMLDOMElement** feature, IXMLDOMElement** option);
    // A ParameterRef and a ParameterInit, both named <keywords prefix><name>, the ParameterInit
    // holding a Value typed <xsd prefix><type>. The integer form writes value with "%i".
    HRESULT CreateParamRefInitPair(const wchar_t* name, const wchar_t* value, const wchar_t* type,
                                   IXMLDOMElement** parameterRef, IXMLDOMElement** parameterInit);
    HRESULT CreateParamRefInitPair(const wchar_t* name, int value, IXMLDOMElement** parameterRef,
                                   IXMLDOMElement** parameterInit);
    // A ParameterInit named prefix + name with a Value typed "string"; "integer" written with
    // "%u" (so -1 reads 4294967295); or with no type attribute at all.
    void CreateStringParameterInit(const wchar_t* prefix, const wchar_t* name, const wchar_t* value,
                                   IXMLDOMElement** parameterInit);
    void CreateIntegerParameterInit(const wchar_t* prefix, const wchar_t* name, int value,
                                    IXMLDOMElement** parameterInit);
    void CreateUntypedParameterInitFromString(const wchar_t* prefix, const wchar_t* name,
                                              const wchar_t* value, IXMLDOMElement** parameterInit);
    // The same ParameterInits appended as the last child of the root element.
    void AppendStringParameterInit(const wchar_t* prefix, const wchar_t* name,
                                   const wchar_t* value);
    void AppendIntegerParameterInit(const wchar_t* prefix, const wchar_t* name, int value);
    // Appends child to the element <framework prefix><elementLocalName> selected from the
    // document ("PrintTicket" selects the root); HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when there
    // is no such element.
    HRESULT AppendToElement(const wchar_t* elementLocalName, IXMLDOMNode* child);

    // --- The driver's private data (printticketxmldocument_privatedata.cpp,
    // docs/privatedata.md) ---

    // Writes the device mode, framed by its CRC, as the base64 private ParameterInit
    // "JobZorunDriverData" (replacing one there), the root's last child. Never throws: returns
    // the failure.
    HRESULT SetJobZorunDriverDataInPrintTicket(DEVMODEW* devmode, DWORD size);
    // The device mode of "JobZorunDriverData", CRC checked (a mismatch empties the buffer and
    // throws E_FAIL) and with a truncated private area zero-filled; empty when absent.
    void GetJobZorunDriverDataFromPrintTicket(ByteBuffer& devmode);
    // The bytes of "PageDevmodeSnapshot"; empty when absent. Text that is not base64 empties
    // the buffer and throws E_FAIL.
    void GetPageDevmodeSnapshotFromPrintTicket(ByteBuffer& devmode);
    // The page snapshot when it holds the driver's current plug-in part: S_OK; S_FALSE when the
    // ticket has no snapshot; E_FAIL (or the failure met) otherwise, the buffer then empty.
    // Never throws.
    HRESULT GetDevmodeFromPrintTicket(ByteBuffer& devmode);
    // Inserts the maker's job ticket (ANSI text) as the private ParameterInit
    // "JobZorunZjifJobTicket", wrapped in "<![CDATA[\n...\n]]>" text, as the root's first child.
    void CreateZorunZjifParameterInit(ByteBuffer& zjifTicket);

private:
    friend class PrintSchemaTestAccess;  // lets the unit tests reach the private helpers

    // Removes the first occurrence of the keywords prefix from *text; other prefixes stay.
    HRESULT StripKeywordNamespace(BSTR* text);
    // Deletes every node of the list, in order.
    HRESULT DeleteNodeList(IXMLDOMNodeList* list);
    // Deletes every ParameterInit that no ParameterRef names (exact, case-sensitive match).
    HRESULT DeleteParamInitOrphans(IXMLDOMNodeList* parameterRefs, IXMLDOMNodeList* parameterInits);
    // The shared body of the Create...ParameterInit operations; type null means untyped.
    void CreateParameterInit(const wchar_t* method, const wchar_t* prefix, const wchar_t* name,
                             const wchar_t* value, const wchar_t* type,
                             IXMLDOMElement** parameterInit);
    // Reads the option name of the node a query selects (name attribute) without the keywords
    // prefix; HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when the query selects nothing.
    HRESULT ReadStrippedOptionName(const wchar_t* method, const wchar_t* query, BSTR* optionName);
};
