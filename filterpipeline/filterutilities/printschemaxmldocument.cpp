// printschemaxmldocument.cpp: prefix discovery and the private-prefix fix-up, node lookup and
// value queries (the builders and deleters are in printschemaxmldocumentedit.cpp).
#include "filterpipeline/filterutilities/printschemaxmldocument.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <new>
#include <string>
#include <string_view>

#include "filterpipeline/filterutilities/printticketquerybuilder.h"
#include "filterpipeline/filterutilities/rootnamespaces.h"
#include "platform/com/unicode.h"
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

// Parses the leading decimal integer of a text the way the C runtime's _wtoi does.
int ToInteger(const wchar_t* text) {
    return _wtoi(IsEmpty(text) ? L"" : text);
}

}  // namespace

CComBSTR PrintSchemaXmlDocument::JoinStrings(const wchar_t* first, const wchar_t* second) {
    CComBSTR joined(IsEmptyString(first) ? L"" : first);
    joined += IsEmptyString(second) ? L"" : second;
    return joined;
}

HRESULT PrintSchemaXmlDocument::ReadTypedText(IXMLDOMNode* node, CComBSTR& text) {
    text.Empty();
    if (node == nullptr) return E_POINTER;
    CComVariant value;
    HRESULT hr = node->get_nodeTypedValue(&value);
    if (FAILED(hr)) return hr;
    if (value.vt == VT_EMPTY || value.vt == VT_NULL) return S_OK;
    if (value.vt != VT_BSTR) {
        hr = value.ChangeType(VT_BSTR);
        if (FAILED(hr)) return hr;
    }
    if (::SysStringLen(value.bstrVal) != 0) {
        text.Attach(value.bstrVal);
        value.vt = VT_EMPTY;  // the string now belongs to text
    }
    return S_OK;
}

PrintSchemaXmlDocument::PrintSchemaXmlDocument(const wchar_t* rootName, IXMLDOMDocument2* document)
    : m_document(document), m_rootName(rootName) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::PrintSchemaXmlDocument";
    if (!m_document) return;

    // The property's name and value are the same for every document: made once, lent to each
    // call.
    static const CComBSTR language(L"SelectionLanguage");
    static const CComBSTR xpath(L"XPath");
    VARIANT languageValue;
    VariantInit(&languageValue);
    languageValue.vt = VT_BSTR;
    languageValue.bstrVal = xpath.m_str;
    THROW_COM_IF_FAILED(m_document->setProperty(language, languageValue), kMethod, "");
    // Until the document's own framework prefix is known, the root is looked up as "psf".
    SetSelectionNamespace(kMethod, L"psf");
    // The root is the first rootName element of the framework namespace in document order. The
    // document element comes first in that order, so when it is the one, the whole-document
    // query ("//psf:<rootName>") need not run.
    m_rootNode = DocumentElementIfRoot(rootName);
    if (!m_rootNode) {
        const CComBSTR rootQuery(ZorunUtilities::SafeFormatString(
            L"//%s:%s", L"psf", IsEmpty(rootName) ? L"" : rootName));
        HRESULT hr = m_document->selectSingleNode(rootQuery, &m_rootNode);
        THROW_COM_IF_FAILED(hr, kMethod, "");
        // Not the expected Print Schema root: rejected on purpose with the success-valued
        // S_FALSE, which callers catching the exception test for.
        if (hr == S_FALSE || !m_rootNode) THROW_COM(S_FALSE, kMethod, "");
    }

    // The five namespaces the document works with, looked up in one pass over the root's
    // attributes (their UTF-8 spellings made once for the process).
    static const std::string kUris[] = {
        platform::WideToUtf8(PrintSchema::PrivateKeywordsNamespaceUri),
        platform::WideToUtf8(PrintSchema::FrameworkNamespaceUri),
        platform::WideToUtf8(PrintSchema::KeywordsNamespaceUri),
        platform::WideToUtf8(PrintSchema::XmlSchemaInstanceNamespaceUri),
        platform::WideToUtf8(PrintSchema::XmlSchemaNamespaceUri)};
    PrefixLookup lookups[std::size(kUris)];
    for (std::size_t i = 0; i < std::size(kUris); ++i) lookups[i].uri = kUris[i];
    FindDeclarations(lookups, std::size(lookups));
    if (PrefixFromLookup(lookups[0], &m_privateKeywordsPrefix) == S_OK) {
        THROW_COM_IF_FAILED(FixPrivateNameSpacePrefix(), kMethod, "");
    } else {
        BSTR undeclared = ::SysAllocString(PrintSchema::UndeclaredPrivateKeywordsPrefix);
        if (undeclared == nullptr) THROW_COM(E_OUTOFMEMORY, kMethod, "");
        m_privateKeywordsPrefix.Attach(undeclared);
    }

    // The fix-up above only touched the private declaration; the others read as before.
    PrefixFromLookup(lookups[1], &m_frameworkPrefix);
    PrefixFromLookup(lookups[2], &m_keywordsPrefix);
    PrefixFromLookup(lookups[3], &m_xmlSchemaInstancePrefix);
    PrefixFromLookup(lookups[4], &m_xmlSchemaPrefix);

    // Later queries use the document's own framework prefix, which must be a real prefix.
    const wchar_t* framework = m_frameworkPrefix;
    const wchar_t* colon = framework == nullptr ? nullptr : std::wcschr(framework, L':');
    if (colon == nullptr || colon == framework) THROW_COM(E_FAIL, kMethod, "");
    const CComBSTR ownPrefix(static_cast<int>(colon - framework), framework);
    if (ownPrefix != L"psf") SetSelectionNamespace(kMethod, ownPrefix);  // else already set
}

CComPtr<IXMLDOMNode> PrintSchemaXmlDocument::DocumentElementIfRoot(const wchar_t* rootName) {
    if (IsEmpty(rootName)) return nullptr;
    CComPtr<IXMLDOMElement> element;
    if (m_document->get_documentElement(&element) != S_OK || !element) return nullptr;
    CComBSTR uri;
    CComBSTR localName;
    if (FAILED(element->get_namespaceURI(&uri)) || FAILED(element->get_baseName(&localName)) ||
        uri != PrintSchema::FrameworkNamespaceUri || localName != rootName) {
        return nullptr;
    }
    return CComPtr<IXMLDOMNode>(element.p);
}

void PrintSchemaXmlDocument::SetSelectionNamespace(const wchar_t* method,
                                                   const wchar_t* prefixWithoutColon) {
    // "xmlns:%s='%s'" with the prefix and the framework namespace, written straight into the
    // one string the call gets.
    static constexpr wchar_t kHead[] = L"xmlns:";
    static constexpr wchar_t kMiddle[] = L"='";
    const std::size_t headLength = std::size(kHead) - 1;
    const std::size_t middleLength = std::size(kMiddle) - 1;
    const std::size_t prefixLength =
        IsEmpty(prefixWithoutColon) ? 0 : std::wcslen(prefixWithoutColon);
    const std::size_t uriLength = std::wcslen(PrintSchema::FrameworkNamespaceUri);
    const std::size_t length = headLength + prefixLength + middleLength + uriLength + 1;
    CComBSTR namespaces;
    namespaces.Attach(::SysAllocStringLen(nullptr, static_cast<UINT>(length)));
    if (!namespaces) THROW_COM(E_OUTOFMEMORY, method, "");
    wchar_t* out = namespaces.m_str;
    out = std::wmemcpy(out, kHead, headLength) + headLength;
    if (prefixLength != 0) out = std::wmemcpy(out, prefixWithoutColon, prefixLength) + prefixLength;
    out = std::wmemcpy(out, kMiddle, middleLength) + middleLength;
    out = std::wmemcpy(out, PrintSchema::FrameworkNamespaceUri, uriLength) + uriLength;
    *out = L'\'';
    // Name and value are lent to the call, as a VARIANT argument is: no copies of the strings.
    static const CComBSTR name(L"SelectionNamespaces");
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = namespaces.m_str;
    THROW_COM_IF_FAILED(m_document->setProperty(name, value), method, "");
}

HRESULT PrintSchemaXmlDocument::get_xml(BSTR* xml) const {
    if (!m_document) return E_FAIL;
    if (xml == nullptr) return E_POINTER;
    return m_document->get_xml(xml);
}

CComBSTR PrintSchemaXmlDocument::GetNsPrefix(PrintSchema::MsPrintTicketNamespacesEnum ns) const {
    switch (ns) {
        case PrintSchema::MsPrintTicketFrameworkNamespace:
            return GetFrameworkNsPrefix();
        case PrintSchema::MsPrintTicketKeywordsNamespace:
            return GetKeywordsNsPrefix();
        case PrintSchema::MsPrintTicketUserKeywordsNamespace:
            return GetUserKeywordsNsPrefix();
    }
    THROW_COM(E_INVALIDARG, L"PrintSchemaXmlDocument::GetNsPrefix", "");
}

HRESULT PrintSchemaXmlDocument::DebugDumpXmlToFileInTempDirectory(CXString /*filePrefix*/,
                                                                  CXString /*name*/) {
    return S_OK;
}

void PrintSchemaXmlDocument::FindDeclarations(PrefixLookup* lookups, std::size_t count) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetPrefixFromURI";
    if (!m_rootNode) THROW_COM(E_PENDING, kMethod, "");
    struct Search {
        PrefixLookup* lookups;
        std::size_t count;
        // The first attribute whose value is a lookup's URI (compared code unit by code unit,
        // whole string, as VarBstrCmp without flags compares) answers it.
        HRESULT Take(std::string_view name, std::string_view value) {
            try {
                for (std::size_t i = 0; i < count; ++i) {
                    PrefixLookup& lookup = lookups[i];
                    // An attribute's name is never empty, so an empty one is "not yet found".
                    if (lookup.name.empty() && value == lookup.uri) lookup.name.assign(name);
                }
            } catch (const std::bad_alloc&) {
                return E_OUTOFMEMORY;
            }
            return S_OK;
        }
    } search{lookups, count};

    // This library's DOM lists the names and values straight from its tree; another DOM is read
    // through its attribute map.
    const HRESULT listed = platform::DomElementAttributes(
        m_rootNode,
        [](void* context, std::string_view name, std::string_view value) -> HRESULT {
            return static_cast<Search*>(context)->Take(name, value);
        },
        &search);
    if (listed != E_NOINTERFACE) {
        THROW_COM_IF_FAILED(listed, kMethod, "");
        return;
    }
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    THROW_COM_IF_FAILED(m_rootNode->get_attributes(&attributes), kMethod, "");
    if (!attributes) return;
    THROW_COM_IF_FAILED(attributes->reset(), kMethod, "");
    for (;;) {
        CComPtr<IXMLDOMNode> attribute;
        const HRESULT hr = attributes->nextNode(&attribute);
        THROW_COM_IF_FAILED(hr, kMethod, "");
        if (hr == S_FALSE || !attribute) break;
        CComVariant value;
        THROW_COM_IF_FAILED(attribute->get_nodeValue(&value), kMethod, "");
        CComBSTR name;
        THROW_COM_IF_FAILED(attribute->get_nodeName(&name), kMethod, "");
        const std::string utf8Value =
            value.vt == VT_BSTR
                ? platform::WideToUtf8(std::wstring_view(value.bstrVal, ::SysStringLen(value.bstrVal)))
                : std::string();
        const std::string utf8Name =
            platform::WideToUtf8(std::wstring_view(name.m_str, name.Length()));
        THROW_COM_IF_FAILED(search.Take(utf8Name, utf8Value), kMethod, "");
    }
}

HRESULT PrintSchemaXmlDocument::GetPrefixFromURI(const wchar_t* uri, BSTR* prefix) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetPrefixFromURI";
    if (prefix == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(uri)) THROW_COM(E_INVALIDARG, kMethod, "");
    const std::string utf8Uri = platform::WideToUtf8(uri);
    PrefixLookup lookup;
    lookup.uri = utf8Uri;
    FindDeclarations(&lookup, 1);
    return PrefixFromLookup(lookup, prefix);
}

HRESULT PrintSchemaXmlDocument::PrefixFromLookup(const PrefixLookup& lookup, BSTR* prefix) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetPrefixFromURI";
    if (prefix == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (lookup.name.empty()) return S_FALSE;

    // Only "xmlns:p" is accepted: a default-namespace declaration ("xmlns") has no prefix.
    constexpr std::string_view kXmlns = "xmlns:";
    const std::string_view name = lookup.name;
    if (name.substr(0, kXmlns.size()) != kXmlns) THROW_COM(E_FAIL, kMethod, "");
    if (name.size() == kXmlns.size()) THROW_COM(E_FAIL, kMethod, "");
    // The prefix and its colon, in one allocation (widened in place when ASCII, as prefixes
    // nearly always are).
    const std::string_view chars = name.substr(kXmlns.size());
    const bool ascii = std::all_of(chars.begin(), chars.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    BSTR made = nullptr;
    if (ascii) {
        made = ::SysAllocStringLen(nullptr, static_cast<UINT>(chars.size() + 1));
        if (made != nullptr) std::copy(chars.begin(), chars.end(), made);
    } else {
        const std::wstring wide = platform::Utf8ToWide(chars);
        made = ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size() + 1));
    }
    if (made == nullptr) THROW_COM(E_OUTOFMEMORY, kMethod, "");
    made[::SysStringLen(made) - 1] = L':';
    ::SysFreeString(*prefix);
    *prefix = made;
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::FixPrivateNameSpacePrefix() {
    const CComBSTR fixedPrefix(PrintSchema::PrivateKeywordsPrefix);
    if (::VarBstrCmp(m_privateKeywordsPrefix, fixedPrefix, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ) {
        return S_OK;
    }
    if (!m_rootNode || m_privateKeywordsPrefix.Length() < 2) return E_FAIL;
    const CXString oldPrefix(m_privateKeywordsPrefix.m_str);

    // 1. Keyword names written with the old prefix: only name attribute values change; element
    // names keep their prefix (the DOM keeps them bound to their namespace).
    CComPtr<IXMLDOMNodeList> named;
    HRESULT hr = m_rootNode->selectNodes(CComBSTR(L"//*[@name]"), &named);
    if (SUCCEEDED(hr) && named) hr = named->reset();
    const CComBSTR nameAttribute(L"name");
    while (SUCCEEDED(hr) && named) {
        CComPtr<IXMLDOMNode> element;
        hr = named->nextNode(&element);
        if (FAILED(hr)) break;
        if (hr == S_FALSE || !element) {
            hr = S_OK;
            break;
        }
        CComPtr<IXMLDOMNamedNodeMap> attributes;
        hr = element->get_attributes(&attributes);
        if (FAILED(hr) || !attributes) continue;
        CComPtr<IXMLDOMNode> attribute;
        hr = attributes->getNamedItem(nameAttribute, &attribute);
        if (FAILED(hr) || !attribute) continue;
        CComVariant value;
        hr = attribute->get_nodeValue(&value);
        if (FAILED(hr) || value.vt != VT_BSTR || !StartsWith(value.bstrVal, oldPrefix)) continue;
        CXString renamed(value.bstrVal);
        renamed.Replace(oldPrefix, PrintSchema::PrivateKeywordsPrefix);
        hr = attribute->put_nodeValue(CComVariant(static_cast<const wchar_t*>(renamed)));
    }
    if (FAILED(hr)) return hr;

    // 2. The declaration: add xmlns:zk with the same URI, then drop the old one.
    const CComBSTR oldDeclaration(
        Join(L"xmlns:", CComBSTR(static_cast<int>(oldPrefix.GetLength() - 1),
                                 static_cast<const wchar_t*>(oldPrefix))));
    const CComBSTR newDeclaration(L"xmlns:zk");
    CComPtr<IXMLDOMNamedNodeMap> rootAttributes;
    hr = m_rootNode->get_attributes(&rootAttributes);
    if (SUCCEEDED(hr) && !rootAttributes) hr = E_FAIL;
    CComPtr<IXMLDOMNode> declaration;
    if (SUCCEEDED(hr)) hr = rootAttributes->getNamedItem(oldDeclaration, &declaration);
    if (SUCCEEDED(hr) && !declaration) hr = E_FAIL;
    CComVariant uri;
    if (SUCCEEDED(hr)) hr = declaration->get_nodeValue(&uri);
    if (SUCCEEDED(hr) && uri.vt != VT_BSTR) hr = E_FAIL;
    CComQIPtr<IXMLDOMElement> rootElement(m_rootNode.p);
    if (SUCCEEDED(hr) && !rootElement) hr = E_NOINTERFACE;
    if (SUCCEEDED(hr)) {
        try {
            hr = AppendXMLAttribute(rootElement, newDeclaration, L"", uri.bstrVal);
        } catch (const ZorunComException& e) {
            hr = e.GetHresult();
        }
    }
    if (SUCCEEDED(hr)) {
        CComPtr<IXMLDOMNode> removed;
        hr = rootAttributes->removeNamedItem(oldDeclaration, &removed);
    }
    if (SUCCEEDED(hr)) m_privateKeywordsPrefix = fixedPrefix;
    return hr;
}

// --- Lookups and value queries ---

HRESULT PrintSchemaXmlDocument::GetNode(const wchar_t* xpath, IXMLDOMNode** node) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetNode";
    if (node == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    *node = nullptr;
    if (IsEmpty(xpath)) THROW_COM(E_INVALIDARG, kMethod, "");
    const HRESULT hr = m_document->selectSingleNode(CComBSTR(xpath), node);
    THROW_COM_IF_FAILED(hr, kMethod, "");
    return *node == nullptr ? S_FALSE : hr;
}

HRESULT PrintSchemaXmlDocument::GetNodes(const wchar_t* elementName, IXMLDOMNodeList** nodes) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetNodes";
    if (nodes == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(elementName)) THROW_COM(E_FAIL, kMethod, "");
    if (!m_document) THROW_COM(E_PENDING, kMethod, "");
    *nodes = nullptr;
    const CComBSTR query(Join(L"//", Join(m_frameworkPrefix, elementName)));
    THROW_COM_IF_FAILED(m_document->selectNodes(query, nodes), kMethod, "");
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::GetFeatureNodeIfExists(const wchar_t* namePrefix,
                                                       const wchar_t* featureName,
                                                       IXMLDOMNode** node) {
    PrintTicketQueryBuilder builder(m_frameworkPrefix);
    builder.AddFeature(namePrefix, featureName);
    CComBSTR query;
    builder.GetQuery(&query);
    return GetNode(query, node);
}

void PrintSchemaXmlDocument::GetFeatureNode(const wchar_t* namePrefix, const wchar_t* featureName,
                                            IXMLDOMNode** node) {
    if (GetFeatureNodeIfExists(namePrefix, featureName, node) == S_FALSE) {
        THROW_COM(E_FAIL, L"PrintSchemaXmlDocument::GetFeatureNode", "");
    }
}

HRESULT PrintSchemaXmlDocument::QueryNode(const wchar_t* xpath) {
    if (IsEmpty(xpath)) THROW_COM(E_INVALIDARG, L"PrintSchemaXmlDocument::QueryNode", "");
    CComPtr<IXMLDOMNode> node;
    const HRESULT hr = GetNode(xpath, &node);
    return hr == S_FALSE ? kNotFound : hr;
}

HRESULT PrintSchemaXmlDocument::QueryNodeValue(const wchar_t* xpath, BSTR* value) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::QueryNodeValue";
    if (value == nullptr) THROW_COM(E_POINTER, kMethod, "");
    *value = nullptr;
    if (IsEmpty(xpath)) THROW_COM(E_INVALIDARG, kMethod, "");
    const HRESULT hr = GetNodeValue(xpath, value);
    return hr == S_FALSE ? kNotFound : hr;
}

HRESULT PrintSchemaXmlDocument::QueryNodeValue(const wchar_t* xpath, int* value) {
    if (value == nullptr) THROW_COM(E_POINTER, L"PrintSchemaXmlDocument::QueryNodeValue", "");
    CComBSTR text;
    const HRESULT hr = QueryNodeValue(xpath, &text);
    if (hr == kNotFound) return hr;
    *value = ToInteger(text);
    return hr;
}

HRESULT PrintSchemaXmlDocument::QueryNodeValue(const wchar_t* xpath, float* value) {
    if (value == nullptr) THROW_COM(E_POINTER, L"PrintSchemaXmlDocument::QueryNodeValue", "");
    CComBSTR text;
    const HRESULT hr = QueryNodeValue(xpath, &text);
    if (hr == kNotFound) return hr;
    *value = static_cast<float>(Number(CXString(text.m_str)).GetDoubleValue());
    return hr;
}

HRESULT PrintSchemaXmlDocument::GetNodeValue(const wchar_t* xpath, BSTR* value) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetNodeValue";
    if (value == nullptr) THROW_COM(E_POINTER, kMethod, "");
    ::SysFreeString(*value);
    *value = nullptr;
    if (IsEmpty(xpath)) THROW_COM(E_INVALIDARG, kMethod, "");

    CComPtr<IXMLDOMNode> node;
    if (GetNode(xpath, &node) == S_FALSE) return S_FALSE;

    // A literal Value child wins, even an empty one.
    CComPtr<IXMLDOMNode> valueNode;
    THROW_COM_IF_FAILED(node->selectSingleNode(Join(m_frameworkPrefix, L"Value"), &valueNode),
                        kMethod, "");
    CComBSTR text;
    if (valueNode) {
        THROW_COM_IF_FAILED(ReadTypedText(valueNode, text), kMethod, "");
        if (text.Length() != 0) *value = text.Detach();
        return S_OK;
    }

    // Otherwise the value is parameterised: follow the ParameterRef to the ParameterInit of the
    // same name.
    CComPtr<IXMLDOMNode> reference;
    THROW_COM_IF_FAILED(
        node->selectSingleNode(Join(m_frameworkPrefix, L"ParameterRef"), &reference), kMethod, "");
    if (!reference) return S_OK;
    CComBSTR parameterName;
    if (GetAttributeValue(reference, L"name", &parameterName) == S_FALSE) return S_OK;

    CComPtr<IXMLDOMNodeList> initialisers;
    GetNodes(L"ParameterInit", &initialisers);
    if (!initialisers) return S_OK;
    THROW_COM_IF_FAILED(initialisers->reset(), kMethod, "");
    for (;;) {
        CComPtr<IXMLDOMNode> initialiser;
        const HRESULT hr = initialisers->nextNode(&initialiser);
        THROW_COM_IF_FAILED(hr, kMethod, "");
        if (hr == S_FALSE || !initialiser) break;
        CComBSTR initialiserName;
        GetAttributeValue(initialiser, L"name", &initialiserName);
        if (::VarBstrCmp(initialiserName, parameterName, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ) {
            THROW_COM_IF_FAILED(ReadTypedText(initialiser, text), kMethod, "");
            if (text.Length() != 0) *value = text.Detach();
            break;
        }
    }
    return S_OK;
}

HRESULT PrintSchemaXmlDocument::GetAttributeValue(const IXMLDOMNode* node,
                                                  const wchar_t* attributeName, BSTR* value) {
    static constexpr wchar_t kMethod[] = L"PrintSchemaXmlDocument::GetAttributeValue";
    if (node == nullptr || value == nullptr) THROW_COM(E_POINTER, kMethod, "");
    if (IsEmpty(attributeName)) THROW_COM(E_INVALIDARG, kMethod, "");
    ::SysFreeString(*value);
    *value = nullptr;

    // The DOM interfaces take no const object; reading attributes does not change the node.
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    THROW_COM_IF_FAILED(const_cast<IXMLDOMNode*>(node)->get_attributes(&attributes), kMethod, "");
    if (!attributes) return S_FALSE;
    CComPtr<IXMLDOMNode> attribute;
    const HRESULT hr = attributes->getNamedItem(CComBSTR(attributeName), &attribute);
    THROW_COM_IF_FAILED(hr, kMethod, "");
    if (hr == S_FALSE || !attribute) return S_FALSE;
    THROW_COM_IF_FAILED(attribute->get_text(value), kMethod, "");
    return S_OK;
}
