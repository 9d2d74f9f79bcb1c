// printticketquerybuilder.h: assembles XPath location paths into Print Schema documents step by
// step ("the Feature named X, its Option, its Value"), putting the document's own framework
// prefix before every Print Schema element name. It knows nothing of the DOM.
#pragma once

#include "platform/com/atl.h"

class PrintTicketQueryBuilder {
public:
    // elementPrefix is the framework prefix with its trailing colon ("psf:"); a null or empty
    // prefix makes every Add... fail with E_FAIL. Null arguments leave the member null.
    explicit PrintTicketQueryBuilder(const wchar_t* elementPrefix);
    PrintTicketQueryBuilder(const wchar_t* elementPrefix, const wchar_t* initialQuery);
    PrintTicketQueryBuilder(const PrintTicketQueryBuilder&) = default;
    PrintTicketQueryBuilder& operator=(const PrintTicketQueryBuilder&) = default;
    virtual ~PrintTicketQueryBuilder() = default;

    // Forgets the query built so far; the prefix stays.
    void Clear();

    // Hands the caller a new copy of the query (null when empty). What *query held before is
    // freed first, so pass null or a string no longer needed.
    void GetQuery(BSTR* query) const;

    // Each appends one step. The two-argument forms compare the name attribute with namePrefix
    // followed by localName (namePrefix skipped when empty).
    void AddFeature(const wchar_t* namePrefix, const wchar_t* localName);
    void AddProperty(const wchar_t* namePrefix, const wchar_t* localName);
    void AddChildProperty(const wchar_t* namePrefix, const wchar_t* localName);
    void AddChildPropertyValue(const wchar_t* namePrefix, const wchar_t* localName);
    void AddScoredProperty(const wchar_t* namePrefix, const wchar_t* localName);
    void AddParameterRef(const wchar_t* namePrefix, const wchar_t* localName);
    void AddParameterDef(const wchar_t* namePrefix, const wchar_t* localName);
    void AddParameterInit(const wchar_t* namePrefix, const wchar_t* localName);
    void AddChildOptionName(const wchar_t* namePrefix, const wchar_t* localName);
    void AddValue();
    // Appends the union "Q/psf:Option | Q/psf:ScoredProperty[@name = "<featureName>OptionName"]/
    // psf:Value", Q being the query as it stood before the call.
    void AddOption(const wchar_t* featureName);

private:
    // Appends the step formatted from a template with one %s (the element prefix) and, when the
    // template has a second one, the joined name; a third %s is the element prefix again.
    void AppendNamedStep(const wchar_t* method, const wchar_t* stepTemplate,
                         const wchar_t* namePrefix, const wchar_t* localName);
    void RequirePrefix(const wchar_t* method) const;
    void Append(const wchar_t* method, const wchar_t* text);

    CComBSTR m_query;
    CComBSTR m_elementPrefix;
};
