// printticketxmldocument.cpp: Feature, Option and ScoredProperty reads of a PrintTicket, its
// deletions, and the builders of the elements a ticket edit inserts.
#include "filterpipeline/filterutilities/printticketxmldocument.h"

#include <cwchar>
#include <initializer_list>
#include <string>

#include "filterpipeline/filterutilities/printticketquerybuilder.h"
#include "platform/win32/crt.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/number.h"
#include "support/utilities/zorunutilities.h"

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

bool IsEmpty(const wchar_t* text) {
    return PrintSchemaXmlDocument::IsEmptyString(text);
}

CComBSTR Join(const wchar_t* first, const wchar_t* second) {
    return PrintSchemaXmlDocument::JoinStrings(first, second);
}

// Query texts kept per thread. A query is a function of nothing but the lookup and the prefixes
// and names it is built from, and the tickets of a job's pages declare the same prefixes and are
// asked the same few questions: a page's lookups then skip expanding the step templates. Only
// queries that were built (the builder did not throw) are kept, a few recent ones replaced in
// turn, and none whose parts are long.
class QueryMemo {
public:
    // The query for `parts` (the lookup's name first), built by `build` when not kept. The
    // reference stays valid until the calling thread's next lookup.
    template <class Build>
    static const CComBSTR& Get(std::initializer_list<const wchar_t*> parts, const Build& build) {
        thread_local QueryMemo memo;
        return memo.Find(parts, build);
    }

private:
    static constexpr std::size_t kEntries = 8;
    static constexpr std::size_t kMaxKey = 512;

    struct Entry {
        std::wstring key;
        CComBSTR query;
    };

    template <class Build>
    const CComBSTR& Find(std::initializer_list<const wchar_t*> parts, const Build& build) {
        // Each part is written after its length, so no two lists of parts give the same key.
        m_key.clear();
        for (const wchar_t* part : parts) {
            const std::size_t length = part == nullptr ? 0 : std::wcslen(part);
            m_key.push_back(static_cast<wchar_t>(length));
            if (length != 0) m_key.append(part, length);
        }
        for (const Entry& entry : m_entries) {
            if (entry.query.m_str != nullptr && entry.key == m_key) return entry.query;
        }
        Entry& slot = m_entries[m_next];
        slot.query.Empty();
        slot.query = build();
        if (m_key.size() <= kMaxKey) {
            slot.key = m_key;
            m_next = (m_next + 1) % kEntries;
        } else {
            slot.key.clear();  // used once, then taken by the next query
        }
        return slot.query;
    }

    std::wstring m_key;
    Entry m_entries[kEntries];
    std::size_t m_next = 0;
};

}  // namespace

PrintTicketXmlDocument::PrintTicketXmlDocument(IXMLDOMDocument2* document)
    : PrintSchemaXmlDocument(L"PrintTicket", document) {
    DebugDumpXmlToFileInTempDirectory(L"PrintTicket_", L"");
}

// --- Queries ---

HRESULT PrintTicketXmlDocument::FeaturePresent(const wchar_t* featureName, IXMLDOMNode** node) {
    if (IsEmpty(featureName)) {
        THROW_COM(E_INVALIDARG, L"PrintTicketXmlDocument::FeaturePresent", "");
    }
    CComPtr<IXMLDOMNode> feature;
    if (GetFeatureNodeIfExists(KeywordsPrefix(), featureName, &feature) == S_FALSE) {
        return kNotFound;
    }
    if (node != nullptr) *node = feature.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::GetFeatureOption(const wchar_t* featureName, BSTR* optionName,
                                                 BSTR* optionPrefix) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::GetFeatureOption";
    if (optionName == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(featureName)) THROW_COM(E_INVALIDARG, kMethod, "");

    // The Feature's Option, or the Value of its ScoredProperty "<psk:>OptionName".
    const CComBSTR& query =
        QueryMemo::Get({L"FeatureOption", FrameworkPrefix(), KeywordsPrefix(), featureName}, [&] {
            PrintTicketQueryBuilder builder(FrameworkPrefix());
            builder.AddFeature(KeywordsPrefix(), featureName);
            builder.AddOption(KeywordsPrefix());
            CComBSTR built;
            builder.GetQuery(&built);
            return built;
        });
    CComPtr<IXMLDOMNode> node;
    if (GetNode(query, &node) == S_FALSE) return kNotFound;

    // An Option without a name gives its text.
    CComBSTR qualified;
    if (GetAttributeValue(node, L"name", &qualified) == S_FALSE) {
        THROW_COM_IF_FAILED(ReadTypedText(node, qualified), kMethod, "");
    }
    const wchar_t* text = qualified;
    const wchar_t* colon = text == nullptr ? nullptr : std::wcschr(text, L':');
    if (colon == nullptr) THROW_COM(E_FAIL, kMethod, "");

    CComBSTR local(colon + 1);
    if (optionPrefix != nullptr) {
        CComBSTR prefix(static_cast<int>(colon - text + 1), text);
        *optionPrefix = prefix.Detach();
    }
    *optionName = local.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::ReadStrippedOptionName(const wchar_t* method, const wchar_t* query,
                                                       BSTR* optionName) {
    CComPtr<IXMLDOMNode> node;
    if (GetNode(query, &node) == S_FALSE) return kNotFound;
    CComBSTR name;
    GetAttributeValue(node, L"name", &name);
    THROW_COM_IF_FAILED(StripKeywordNamespace(&name.m_str), method, "");
    *optionName = name.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::GetSubFeatureOption(const wchar_t* featureName,
                                                    const wchar_t* subFeatureName,
                                                    BSTR* optionName) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::GetSubFeatureOption";
    if (optionName == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(featureName) || IsEmpty(subFeatureName)) THROW_COM(E_INVALIDARG, kMethod, "");
    PrintTicketQueryBuilder builder(FrameworkPrefix());
    builder.AddFeature(KeywordsPrefix(), featureName);
    builder.AddFeature(KeywordsPrefix(), subFeatureName);
    builder.AddOption(KeywordsPrefix());
    CComBSTR query;
    builder.GetQuery(&query);
    return ReadStrippedOptionName(kMethod, query, optionName);
}

HRESULT PrintTicketXmlDocument::QueryNodeOption(const wchar_t* query, BSTR* optionName) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::QueryNodeOption";
    if (optionName == nullptr) THROW_COM(E_POINTER, kMethod, "");
    *optionName = nullptr;
    if (IsEmpty(query)) THROW_COM(E_INVALIDARG, kMethod, "");
    return ReadStrippedOptionName(kMethod, query, optionName);
}

HRESULT PrintTicketXmlDocument::StripKeywordNamespace(BSTR* text) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::StripKeywordNamespace";
    if (text == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(*text)) THROW_COM(E_INVALIDARG, kMethod, "");
    const wchar_t* keywords = KeywordsPrefix();
    if (IsEmpty(keywords)) return S_OK;
    const wchar_t* found = std::wcsstr(*text, keywords);
    if (found == nullptr) return S_OK;
    CComBSTR stripped(static_cast<int>(found - *text), *text);
    THROW_COM_IF_FAILED(stripped.Append(found + KeywordsPrefix().Length()), kMethod, "");
    ::SysFreeString(*text);
    *text = stripped.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::GetScoredPropertyValue(const wchar_t* featureName,
                                                       const wchar_t* propertyName, BSTR* value) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::GetScoredPropertyValue";
    if (value == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(featureName) || IsEmpty(propertyName)) THROW_COM(E_INVALIDARG, kMethod, "");
    const CComBSTR& query = QueryMemo::Get(
        {L"ScoredPropertyValue", FrameworkPrefix(), KeywordsPrefix(), featureName, propertyName},
        [&] {
            PrintTicketQueryBuilder builder(FrameworkPrefix());
            builder.AddFeature(KeywordsPrefix(), featureName);
            builder.AddScoredProperty(KeywordsPrefix(), propertyName);
            CComBSTR built;
            builder.GetQuery(&built);
            return built;
        });
    const HRESULT hr = GetNodeValue(query, value);
    return hr == S_FALSE ? kNotFound : hr;
}

HRESULT PrintTicketXmlDocument::GetScoredPropertyValue(const wchar_t* featureName,
                                                       const wchar_t* propertyName, int* value) {
    if (value == nullptr) {
        THROW_COM(E_POINTER, L"PrintTicketXmlDocument::GetScoredPropertyValue", "");
    }
    CComBSTR text;
    const HRESULT hr = GetScoredPropertyValue(featureName, propertyName, &text);
    if (hr == kNotFound) return hr;
    *value = _wtoi(text.Length() == 0 ? L"" : text.m_str);
    return hr;
}

HRESULT PrintTicketXmlDocument::GetScoredPropertyValue(const wchar_t* featureName,
                                                       const wchar_t* propertyName, float* value) {
    if (value == nullptr) {
        THROW_COM(E_POINTER, L"PrintTicketXmlDocument::GetScoredPropertyValue", "");
    }
    CComBSTR text;
    const HRESULT hr = GetScoredPropertyValue(featureName, propertyName, &text);
    if (hr == kNotFound) return hr;
    *value = static_cast<float>(Number(CXString(text.m_str)).GetDoubleValue());
    return hr;
}

HRESULT PrintTicketXmlDocument::GetParameterInitNodeIfExists(const wchar_t* prefix,
                                                             const wchar_t* name,
                                                             IXMLDOMNode** node) {
    PrintTicketQueryBuilder builder(FrameworkPrefix());
    builder.AddParameterInit(prefix, name);
    CComBSTR query;
    builder.GetQuery(&query);
    return GetNode(query, node);
}

HRESULT PrintTicketXmlDocument::GetParameterInitValueNodeIfExists(const wchar_t* prefix,
                                                                  const wchar_t* name,
                                                                  IXMLDOMNode** node) {
    const CComBSTR& query =
        QueryMemo::Get({L"ParameterInitValue", FrameworkPrefix(), prefix, name}, [&] {
            PrintTicketQueryBuilder builder(FrameworkPrefix());
            builder.AddParameterInit(prefix, name);
            builder.AddValue();
            CComBSTR built;
            builder.GetQuery(&built);
            return built;
        });
    return GetNode(query, node);
}

// --- Deletion ---

HRESULT PrintTicketXmlDocument::DeleteParameterInitNodeIfExists(const wchar_t* prefix,
                                                                const wchar_t* name) {
    CComPtr<IXMLDOMNode> parameterInit;
    if (GetParameterInitNodeIfExists(prefix, name, &parameterInit) == S_FALSE) return S_FALSE;
    return DeleteNode(parameterInit);
}

HRESULT PrintTicketXmlDocument::DeleteProperty(const wchar_t* propertyName) {
    if (IsEmpty(propertyName)) {
        THROW_COM(E_INVALIDARG, L"PrintTicketXmlDocument::DeleteProperty", "");
    }
    // The name is looked up with the framework prefix (psf:...), not the keywords prefix.
    PrintTicketQueryBuilder builder(FrameworkPrefix());
    builder.AddProperty(FrameworkPrefix(), propertyName);
    CComBSTR query;
    builder.GetQuery(&query);
    CComPtr<IXMLDOMNode> property;
    if (GetNode(query, &property) == S_FALSE) return S_FALSE;
    return DeleteNode(property);
}

HRESULT PrintTicketXmlDocument::DeleteNodeList(IXMLDOMNodeList* list) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::DeleteNodeList";
    if (list == nullptr) THROW_COM(E_POINTER, kMethod, "");
    LONG count = 0;
    THROW_COM_IF_FAILED(list->get_length(&count), kMethod, "");
    for (LONG index = 0; index < count; ++index) {
        CComPtr<IXMLDOMNode> node;
        THROW_COM_IF_FAILED(list->get_item(index, &node), kMethod, "");
        if (node) DeleteNode(node);
    }
    return S_OK;
}

HRESULT PrintTicketXmlDocument::DeleteParamInitOrphans(IXMLDOMNodeList* parameterRefs,
                                                       IXMLDOMNodeList* parameterInits) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::DeleteParamInitOrphans";
    if (parameterRefs == nullptr || parameterInits == nullptr) {
        THROW_COM(E_POINTER, kMethod, "");
    }
    LONG referenceCount = 0;
    THROW_COM_IF_FAILED(parameterRefs->get_length(&referenceCount), kMethod, "");
    if (referenceCount == 0) return DeleteNodeList(parameterInits);

    THROW_COM_IF_FAILED(parameterInits->reset(), kMethod, "");
    for (;;) {
        CComPtr<IXMLDOMNode> parameterInit;
        HRESULT hr = parameterInits->nextNode(&parameterInit);
        THROW_COM_IF_FAILED(hr, kMethod, "");
        if (hr == S_FALSE || !parameterInit) break;
        CComBSTR initName;
        if (GetAttributeValue(parameterInit, L"name", &initName) == S_FALSE) continue;

        bool referenced = false;
        THROW_COM_IF_FAILED(parameterRefs->reset(), kMethod, "");
        while (!referenced) {
            CComPtr<IXMLDOMNode> parameterRef;
            hr = parameterRefs->nextNode(&parameterRef);
            THROW_COM_IF_FAILED(hr, kMethod, "");
            if (hr == S_FALSE || !parameterRef) break;
            CComBSTR refName;
            if (GetAttributeValue(parameterRef, L"name", &refName) == S_FALSE) continue;
            referenced = ::VarBstrCmp(refName, initName, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ;
        }
        if (!referenced) DeleteNode(parameterInit);
    }
    return S_OK;
}

// --- Element building ---

HRESULT PrintTicketXmlDocument::CreateFeatureOptionPair(bool isPublicKeyword,
                                                        const wchar_t* featureName,
                                                        IXMLDOMElement** feature,
                                                        IXMLDOMElement** option) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::CreateFeatureOptionPair";
    if (feature == nullptr || option == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(featureName)) THROW_COM(E_INVALIDARG, kMethod, "");
    const CComBSTR& prefix =
        PrefixForWriting(isPublicKeyword ? PrintSchema::MsPrintTicketKeywordsNamespace
                                         : PrintSchema::MsPrintTicketUserKeywordsNamespace);
    CComPtr<IXMLDOMElement> createdFeature;
    CreateNamedElement(L"Feature", Join(prefix, featureName), &createdFeature);
    CComPtr<IXMLDOMElement> createdOption;
    CreateXMLElement(Join(FrameworkPrefix(), L"Option"), PrintSchema::FrameworkNamespaceUri,
                     &createdOption);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(createdFeature->appendChild(createdOption, &appended), kMethod, "");
    *feature = createdFeature.Detach();
    *option = createdOption.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::CreateFeatureOptionPair(
    bool isPublicFeature, const wchar_t* featureName, bool isPublicOption,
    const wchar_t* optionName, IXMLDOMElement** feature, IXMLDOMElement** option) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::CreateFeatureOptionPair";
    if (feature == nullptr || option == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(optionName)) THROW_COM(E_INVALIDARG, kMethod, "");
    CComPtr<IXMLDOMElement> createdFeature;
    CComPtr<IXMLDOMElement> createdOption;
    CreateFeatureOptionPair(isPublicFeature, featureName, &createdFeature, &createdOption);
    const CComBSTR& prefix =
        PrefixForWriting(isPublicOption ? PrintSchema::MsPrintTicketKeywordsNamespace
                                        : PrintSchema::MsPrintTicketUserKeywordsNamespace);
    AppendXMLAttribute(createdOption, L"name", L"", Join(prefix, optionName));
    *feature = createdFeature.Detach();
    *option = createdOption.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::CreateParamRefInitPair(const wchar_t* name, const wchar_t* value,
                                                       const wchar_t* type,
                                                       IXMLDOMElement** parameterRef,
                                                       IXMLDOMElement** parameterInit) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::CreateParamRefInitPair";
    if (parameterRef == nullptr || parameterInit == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(name) || IsEmpty(value) || IsEmpty(type)) THROW_COM(E_INVALIDARG, kMethod, "");
    const CComBSTR parameterName(Join(KeywordsPrefixForWriting(), name));
    CComPtr<IXMLDOMElement> reference;
    CreateNamedElement(L"ParameterRef", parameterName, &reference);
    CComPtr<IXMLDOMElement> initialiser;
    CreateNamedElement(L"ParameterInit", parameterName, &initialiser);
    CComPtr<IXMLDOMElement> valueElement;
    CreateValueElement(value, type, &valueElement);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(initialiser->appendChild(valueElement, &appended), kMethod, "");
    *parameterRef = reference.Detach();
    *parameterInit = initialiser.Detach();
    return S_OK;
}

HRESULT PrintTicketXmlDocument::CreateParamRefInitPair(const wchar_t* name, int value,
                                                       IXMLDOMElement** parameterRef,
                                                       IXMLDOMElement** parameterInit) {
    return CreateParamRefInitPair(name, ZorunUtilities::SafeFormatString(L"%i", value), L"integer",
                                  parameterRef, parameterInit);
}

void PrintTicketXmlDocument::CreateParameterInit(const wchar_t* method, const wchar_t* prefix,
                                                 const wchar_t* name, const wchar_t* value,
                                                 const wchar_t* type,
                                                 IXMLDOMElement** parameterInit) {
    if (parameterInit == nullptr) THROW_COM(E_POINTER, method, "");
    if (IsEmpty(prefix) || IsEmpty(name) || IsEmpty(value)) THROW_COM(E_INVALIDARG, method, "");
    CComPtr<IXMLDOMElement> initialiser;
    CreateNamedElement(L"ParameterInit", Join(prefix, name), &initialiser);
    CComPtr<IXMLDOMElement> valueElement;
    CreateValueElement(value, type, &valueElement);
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(initialiser->appendChild(valueElement, &appended), method, "");
    *parameterInit = initialiser.Detach();
}

void PrintTicketXmlDocument::CreateStringParameterInit(const wchar_t* prefix, const wchar_t* name,
                                                       const wchar_t* value,
                                                       IXMLDOMElement** parameterInit) {
    CreateParameterInit(L"PrintTicketXmlDocument::CreateStringParameterInit", prefix, name, value,
                        L"string", parameterInit);
}

void PrintTicketXmlDocument::CreateIntegerParameterInit(const wchar_t* prefix, const wchar_t* name,
                                                        int value, IXMLDOMElement** parameterInit) {
    // "%u" on purpose: a negative value is written as its unsigned 32-bit reading.
    CreateParameterInit(L"PrintTicketXmlDocument::CreateIntegerParameterInit", prefix, name,
                        ZorunUtilities::SafeFormatString(L"%u", static_cast<unsigned>(value)),
                        L"integer", parameterInit);
}

void PrintTicketXmlDocument::CreateUntypedParameterInitFromString(const wchar_t* prefix,
                                                                  const wchar_t* name,
                                                                  const wchar_t* value,
                                                                  IXMLDOMElement** parameterInit) {
    CreateParameterInit(L"PrintTicketXmlDocument::CreateUntypedParameterInitFromString", prefix,
                        name, value, nullptr, parameterInit);
}

void PrintTicketXmlDocument::AppendStringParameterInit(const wchar_t* prefix, const wchar_t* name,
                                                       const wchar_t* value) {
    CComPtr<IXMLDOMElement> parameterInit;
    CreateStringParameterInit(prefix, name, value, &parameterInit);
    AppendChildToRootNode(parameterInit);
}

void PrintTicketXmlDocument::AppendIntegerParameterInit(const wchar_t* prefix, const wchar_t* name,
                                                        int value) {
    CComPtr<IXMLDOMElement> parameterInit;
    CreateIntegerParameterInit(prefix, name, value, &parameterInit);
    AppendChildToRootNode(parameterInit);
}

HRESULT PrintTicketXmlDocument::AppendToElement(const wchar_t* elementLocalName,
                                                IXMLDOMNode* child) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::AppendToElement";
    if (child == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(elementLocalName)) THROW_COM(E_INVALIDARG, kMethod, "");
    CComPtr<IXMLDOMNode> target;
    if (GetNode(Join(FrameworkPrefix(), elementLocalName), &target) == S_FALSE) return kNotFound;
    CComPtr<IXMLDOMNode> appended;
    THROW_COM_IF_FAILED(target->appendChild(child, &appended), kMethod, "");
    return S_OK;
}
