// pagerewriter.cpp: the re-serialising SAX handler of the watermark filter.
#include "filters/watermark/pagerewriter.h"

#include <cwchar>
#include <new>

#include "platform/com/atl.h"
#include "platform/msxml/msxml6.h"
#include "support/errorframe/errorframe.h"

namespace {

std::wstring_view View(const wchar_t* text, INT length) {
    if (text == nullptr || length <= 0) return {};
    return {text, static_cast<std::size_t>(length)};
}

double ParseLength(std::wstring_view text) {
    const std::wstring copy(text);
    wchar_t* end = nullptr;
    const double value = std::wcstod(copy.c_str(), &end);
    if (end == copy.c_str() || !(value > 0.0) || value > 1e7) return 0.0;
    return value;
}

}  // namespace

PageRewriter::PageRewriter(Inserter inserter) : m_inserter(std::move(inserter)) {}

HRESULT PageRewriter::Rewrite(IUnknown* input) {
    if (input == nullptr) return E_POINTER;
    m_out.clear();
    m_pendingNamespaces.clear();
    m_depth = 0;
    m_inserted = false;
    try {
        CComPtr<ISAXXMLReader> reader;
        RETURN_IF_FAILED(
            platform::CreateSaxXmlReader60(IID_ISAXXMLReader, reinterpret_cast<void**>(&reader)));
        RETURN_IF_FAILED(reader->putContentHandler(this));
        VARIANT source;
        VariantInit(&source);
        source.vt = VT_UNKNOWN;
        source.punkVal = input;
        const HRESULT hr = reader->parse(source);
        reader->putContentHandler(nullptr);
        RETURN_IF_FAILED(hr);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    // A document whose root never closed, or that had none, is not a page.
    return m_inserted ? S_OK : E_FAIL;
}

HRESULT PageRewriter::WriteTo(IPrintWriteStream* stream) {
    if (stream == nullptr) return E_POINTER;
    CXString text(m_out);
    return WriteToPrintStream(&text, stream);
}

HRESULT PageRewriter::AppendEscaped(const wchar_t* text, INT length) {
    const std::wstring_view source = View(text, length);
    if (source.empty()) return S_OK;
    BSTR escaped = SysAllocStringLen(source.data(), static_cast<UINT>(source.size()));
    if (escaped == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = EscapeEntity(&escaped);
    if (FAILED(hr)) {
        SysFreeString(escaped);
        return hr;
    }
    for (const wchar_t* c = escaped; c != nullptr && *c != L'\0'; ++c) {
        switch (*c) {
            case L'\t':
                m_out += L"&#9;";
                break;
            case L'\n':
                m_out += L"&#10;";
                break;
            case L'\r':
                m_out += L"&#13;";
                break;
            default:
                m_out += *c;
                break;
        }
    }
    SysFreeString(escaped);
    return S_OK;
}

HRESULT PageRewriter::startDocument() {
    m_out += L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    return S_OK;
}

HRESULT PageRewriter::startPrefixMapping(const wchar_t* prefix, INT prefixLength,
                                         const wchar_t* uri, INT uriLength) {
    m_pendingNamespaces.emplace_back(std::wstring(View(prefix, prefixLength)),
                                     std::wstring(View(uri, uriLength)));
    return S_OK;
}

HRESULT PageRewriter::startElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                                   const wchar_t*, INT, const wchar_t* qName, INT qNameLength,
                                   ISAXAttributes* attributes) {
    const std::wstring_view name = View(qName, qNameLength);
    if (name.empty()) return E_INVALIDARG;
    RootInfo root;
    const bool isRoot = m_depth == 0;
    if (isRoot) {
        const std::size_t colon = name.find(L':');
        if (colon != std::wstring_view::npos) root.prefix = std::wstring(name.substr(0, colon + 1));
        root.namespaceUri = std::wstring(View(namespaceUri, namespaceUriLength));
    }
    m_out += L'<';
    m_out += name;
    for (const auto& [prefix, uri] : m_pendingNamespaces) {
        m_out += prefix.empty() ? L" xmlns" : L" xmlns:";
        m_out += prefix;
        m_out += L"=\"";
        RETURN_IF_FAILED(AppendEscaped(uri.c_str(), static_cast<INT>(uri.size())));
        m_out += L'"';
    }
    m_pendingNamespaces.clear();
    INT count = 0;
    if (attributes != nullptr) RETURN_IF_FAILED(attributes->getLength(&count));
    for (INT i = 0; i < count; ++i) {
        const wchar_t* attributeName = nullptr;
        INT attributeNameLength = 0;
        const wchar_t* value = nullptr;
        INT valueLength = 0;
        RETURN_IF_FAILED(attributes->getQName(i, &attributeName, &attributeNameLength));
        RETURN_IF_FAILED(attributes->getValue(i, &value, &valueLength));
        const std::wstring_view attribute = View(attributeName, attributeNameLength);
        if (attribute.empty()) return E_INVALIDARG;
        // Declarations reported as attributes were already written from the prefix mappings.
        if (attribute == std::wstring_view(L"xmlns") ||
            attribute.substr(0, 6) == std::wstring_view(L"xmlns:"))
            continue;
        m_out += L' ';
        m_out += attribute;
        m_out += L"=\"";
        RETURN_IF_FAILED(AppendEscaped(value, valueLength));
        m_out += L'"';
        if (isRoot && attribute == std::wstring_view(L"Width"))
            root.width = ParseLength(View(value, valueLength));
        if (isRoot && attribute == std::wstring_view(L"Height"))
            root.height = ParseLength(View(value, valueLength));
    }
    m_out += L'>';
    if (isRoot) {
        // The inserter runs now, while the root's attributes are known; its markup is kept
        // until the root closes. A second call (a new document) is impossible within one parse.
        m_rootInsert = m_inserter ? m_inserter(root) : std::wstring();
    }
    ++m_depth;
    return S_OK;
}

HRESULT PageRewriter::endElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t* qName,
                                 INT qNameLength) {
    const std::wstring_view name = View(qName, qNameLength);
    if (name.empty() || m_depth <= 0) return E_INVALIDARG;
    --m_depth;
    if (m_depth == 0) {
        m_out += m_rootInsert;
        m_inserted = true;
    }
    m_out += L"</";
    m_out += name;
    m_out += L'>';
    return S_OK;
}

HRESULT PageRewriter::characters(const wchar_t* chars, INT length) {
    return AppendEscaped(chars, length);
}

HRESULT PageRewriter::ignorableWhitespace(const wchar_t* chars, INT length) {
    return AppendEscaped(chars, length);
}

HRESULT PageRewriter::processingInstruction(const wchar_t* target, INT targetLength,
                                            const wchar_t* data, INT dataLength) {
    const std::wstring_view name = View(target, targetLength);
    const std::wstring_view body = View(data, dataLength);
    if (name.empty() || body.find(L"?>") != std::wstring_view::npos) return E_INVALIDARG;
    m_out += L"<?";
    m_out += name;
    if (!body.empty()) {
        m_out += L' ';
        m_out += body;
    }
    m_out += L"?>";
    return S_OK;
}
