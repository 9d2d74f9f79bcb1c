// rootnamespaces.cpp: reading and adding the namespace declarations of a document's root element.
#include "filterpipeline/filterutilities/rootnamespaces.h"

#include <cwchar>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/printschema.h"
#include "support/errorframe/errorframe.h"

namespace {

constexpr wchar_t kXmlns[] = L"xmlns";
constexpr wchar_t kXmlnsColon[] = L"xmlns:";
constexpr std::size_t kXmlnsColonLength = 6;

struct Declaration {
    std::wstring name;   // "xmlns" or "xmlns:p"
    std::wstring value;  // the namespace URI
};

// The root's namespace declarations, in the order the DOM lists its attributes.
HRESULT ReadDeclarations(IXMLDOMNode* root, std::vector<Declaration>& declarations) {
    declarations.clear();
    if (root == nullptr) return E_POINTER;
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    HRESULT hr = root->get_attributes(&attributes);
    if (FAILED(hr) || !attributes) return FAILED(hr) ? hr : S_OK;
    hr = attributes->reset();
    while (SUCCEEDED(hr)) {
        CComPtr<IXMLDOMNode> attribute;
        hr = attributes->nextNode(&attribute);
        if (FAILED(hr)) return hr;
        if (hr == S_FALSE || !attribute) return S_OK;
        CComBSTR name;
        RETURN_IF_FAILED(attribute->get_nodeName(&name));
        if (!name || (std::wcscmp(name, kXmlns) != 0 &&
                      std::wcsncmp(name, kXmlnsColon, kXmlnsColonLength) != 0)) {
            continue;
        }
        CComVariant value;
        RETURN_IF_FAILED(attribute->get_nodeValue(&value));
        declarations.push_back(
            {std::wstring(name.m_str),
             value.vt == VT_BSTR && value.bstrVal != nullptr ? value.bstrVal : L""});
    }
    return hr;
}

const Declaration* PrefixedDeclarationOf(const std::vector<Declaration>& declarations,
                                         const wchar_t* uri) {
    for (const Declaration& declaration : declarations) {
        if (declaration.name.size() > kXmlnsColonLength && declaration.value == uri) {
            return &declaration;
        }
    }
    return nullptr;
}

bool BindsPrefix(const std::vector<Declaration>& declarations, const std::wstring& prefix) {
    const std::wstring name = kXmlnsColon + prefix;
    for (const Declaration& declaration : declarations) {
        if (declaration.name == name) return true;
    }
    return false;
}

// The prefix and its colon, from a declaration's name.
CComBSTR PrefixOf(const Declaration& declaration) {
    return CComBSTR((declaration.name.substr(kXmlnsColonLength) + L":").c_str());
}

HRESULT RootOf(IXMLDOMDocument2* document, CComPtr<IXMLDOMElement>& root) {
    if (document == nullptr) return E_POINTER;
    RETURN_IF_FAILED(document->get_documentElement(&root));
    return root ? S_OK : E_FAIL;
}

// Adds the declaration xmlns:prefix="uri" to the root, as an attribute node made by the document.
HRESULT AddDeclaration(IXMLDOMDocument2* document, IXMLDOMElement* root, const std::wstring& prefix,
                       const wchar_t* uri) {
    CComPtr<IXMLDOMNode> node;
    RETURN_IF_FAILED(document->createNode(CComVariant(static_cast<int>(NODE_ATTRIBUTE)),
                                          CComBSTR((kXmlnsColon + prefix).c_str()), CComBSTR(L""),
                                          &node));
    CComPtr<IXMLDOMAttribute> attribute;
    RETURN_IF_FAILED(node.QueryInterface(&attribute));
    RETURN_IF_FAILED(attribute->put_value(CComVariant(uri)));
    CComPtr<IXMLDOMAttribute> replaced;
    return root->setAttributeNode(attribute, &replaced);
}

}  // namespace

namespace RootNamespaces {

HRESULT FindPrefix(IXMLDOMNode* root, const wchar_t* uri, CComBSTR& prefix) {
    prefix.Empty();
    if (uri == nullptr) return E_POINTER;
    std::vector<Declaration> declarations;
    RETURN_IF_FAILED(ReadDeclarations(root, declarations));
    const Declaration* found = PrefixedDeclarationOf(declarations, uri);
    if (found == nullptr) return S_FALSE;
    prefix = PrefixOf(*found);
    return S_OK;
}

HRESULT Declare(IXMLDOMDocument2* document, IXMLDOMNode* rootNode, const wchar_t* uri,
                const wchar_t* preferred, CComBSTR& prefix) {
    prefix.Empty();
    if (uri == nullptr || preferred == nullptr || *preferred == L'\0') return E_INVALIDARG;
    CComPtr<IXMLDOMElement> root;
    if (rootNode != nullptr) {
        root = CComQIPtr<IXMLDOMElement>(rootNode);
        if (!root) return E_NOINTERFACE;
    } else {
        RETURN_IF_FAILED(RootOf(document, root));
    }
    std::vector<Declaration> declarations;
    RETURN_IF_FAILED(ReadDeclarations(root, declarations));
    if (const Declaration* found = PrefixedDeclarationOf(declarations, uri)) {
        prefix = PrefixOf(*found);
        return S_FALSE;
    }
    std::wstring chosen = preferred;
    for (int n = 1; BindsPrefix(declarations, chosen); ++n) {
        chosen = preferred + std::to_wstring(n);
    }
    RETURN_IF_FAILED(AddDeclaration(document, root, chosen, uri));
    prefix = CComBSTR((chosen + L":").c_str());
    return S_OK;
}

HRESULT PrefixDefaultFrameworkNamespace(IXMLDOMDocument2* document) {
    CComPtr<IXMLDOMElement> root;
    if (FAILED(RootOf(document, root))) return S_FALSE;  // nothing to move: left to the reader
    // Tickets nearly always name their root with a prefix; only an unprefixed root can be in a
    // default namespace, so the declarations are read for those alone (this runs for every
    // ticket a filter loads).
    CComBSTR rootPrefix;
    RETURN_IF_FAILED(root->get_prefix(&rootPrefix));
    if (rootPrefix.Length() != 0) return S_FALSE;
    std::vector<Declaration> declarations;
    RETURN_IF_FAILED(ReadDeclarations(root, declarations));
    bool defaultIsFramework = false;
    for (const Declaration& declaration : declarations) {
        if (declaration.name == kXmlns && declaration.value == PrintSchema::FrameworkNamespaceUri) {
            defaultIsFramework = true;
        }
    }
    if (!defaultIsFramework) return S_FALSE;
    // The prefixed declaration first, so that the framework stays declared throughout; then the
    // default one goes, which the document classes would otherwise find first and refuse.
    CComBSTR prefix;
    RETURN_IF_FAILED(Declare(document, root, PrintSchema::FrameworkNamespaceUri, L"psf", prefix));
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    RETURN_IF_FAILED(root->get_attributes(&attributes));
    if (!attributes) return E_FAIL;
    CComPtr<IXMLDOMNode> removed;
    RETURN_IF_FAILED(attributes->removeNamedItem(CComBSTR(kXmlns), &removed));
    return S_OK;
}

}  // namespace RootNamespaces
