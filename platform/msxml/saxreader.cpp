// saxreader.cpp: the MSXML 6 SAX reader (CLSID_SAXXMLReader60) on libxml2's streaming SAX2
// parser. Callbacks reach the content handler in MSXML's order: putDocumentLocator,
// startDocument, then for each element its startPrefixMapping calls, startElement, the content,
// endElement and its endPrefixMapping calls, and endDocument. White space is reported through
// characters (there is no DTD to make any of it ignorable). A failing handler stops the parse and
// its HRESULT is returned; malformed input stops it with a parse error code. DTDs are refused as
// in the DOM.
#include <libxml/SAX2.h>
#include <libxml/parser.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <deque>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/msxml/domparser.h"
#include "platform/msxml/domtree.h"
#include "platform/msxml/msxml6.h"
#include "platform/msxml/saxattributes.h"
#include "platform/msxml/saxelementnames.h"
#include "platform/msxml/saxwidetext.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml {
namespace {

constexpr std::wstring_view kFeatureNamespaces = L"http://xml.org/sax/features/namespaces";
constexpr std::wstring_view kFeatureNamespacePrefixes =
    L"http://xml.org/sax/features/namespace-prefixes";
constexpr std::wstring_view kFeatureProhibitDtd = L"prohibit-dtd";
constexpr std::wstring_view kFeatureExternalGeneral =
    L"http://xml.org/sax/features/external-general-entities";
constexpr std::wstring_view kFeatureExternalParameter =
    L"http://xml.org/sax/features/external-parameter-entities";
constexpr std::wstring_view kPropertyMaxDepth = L"max-element-depth";
constexpr std::wstring_view kPropertyMaxSize = L"max-xml-size";

std::wstring_view Name(const wchar_t* text) {
    return text == nullptr ? std::wstring_view() : std::wstring_view(text);
}

using sax::ElementNames;
using sax::SaxAttributes;
using sax::UndoAmpersandReferences;
using sax::WideArena;
using sax::WideBuffer;

class SaxLocator final : public ComObject<ISAXLocator> {
public:
    void Attach(xmlParserCtxtPtr context) { m_context = context; }
    void Detach() {
        if (m_context != nullptr) {
            m_line = xmlSAX2GetLineNumber(m_context);
            m_column = xmlSAX2GetColumnNumber(m_context);
        }
        m_context = nullptr;
    }
    void SetSystemId(std::wstring id) { m_systemId = std::move(id); }

    HRESULT getColumnNumber(INT* column) override {
        if (column == nullptr) return E_POINTER;
        *column = m_context != nullptr ? xmlSAX2GetColumnNumber(m_context) : m_column;
        return S_OK;
    }
    HRESULT getLineNumber(INT* line) override {
        if (line == nullptr) return E_POINTER;
        *line = m_context != nullptr ? xmlSAX2GetLineNumber(m_context) : m_line;
        return S_OK;
    }
    HRESULT getPublicId(const wchar_t** publicId) override {
        if (publicId == nullptr) return E_POINTER;
        *publicId = nullptr;
        return S_FALSE;
    }
    HRESULT getSystemId(const wchar_t** systemId) override {
        if (systemId == nullptr) return E_POINTER;
        *systemId = m_systemId.empty() ? nullptr : m_systemId.c_str();
        return m_systemId.empty() ? S_FALSE : S_OK;
    }

private:
    xmlParserCtxtPtr m_context = nullptr;
    INT m_line = 0;
    INT m_column = 0;
    std::wstring m_systemId;
};

// The state of one parse, reached from libxml2's callbacks through the parser guard.
struct Session {
    Session(ISAXContentHandler* handler, bool namespaces, bool namespacePrefixes, LONG maxDepth,
            xmlParserCtxtPtr context, ParserGuard* guard, SaxLocator* locator,
            SaxAttributes* attributes)
        : handler(handler),
          namespaces(namespaces),
          namespacePrefixes(namespacePrefixes),
          maxDepth(maxDepth),
          context(context),
          guard(guard),
          locator(locator),
          attributes(attributes) {}

    ISAXContentHandler* handler;
    bool namespaces;
    bool namespacePrefixes;
    LONG maxDepth;
    xmlParserCtxtPtr context;
    ParserGuard* guard;
    SaxLocator* locator;
    SaxAttributes* attributes;
    HRESULT result = S_OK;
    LONG depth = 0;
    WideArena names;
    ElementNames elementNames;
    WideBuffer text;
    std::string decoded;                    // an attribute value with its "&#38;" undone
    std::string decodedUri;                 // the same for an attribute's namespace URI
    std::vector<std::wstring> prefixStack;  // prefixes mapped by open elements, in order
    std::vector<std::size_t> prefixCounts;

    // True while events may go on to the handler.
    bool Live() {
        if (FAILED(result)) return false;
        if (guard->HasError()) {
            // A namespace error, which libxml2 reports without stopping: stop here.
            xmlStopParser(context);
            return false;
        }
        return true;
    }
    void Check(HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(result)) {
            result = hr;
            xmlStopParser(context);
        }
    }
};

Session* SessionOf(void* context) {
    auto* parser = static_cast<xmlParserCtxtPtr>(context);
    ParserGuard* guard = ParserGuard::Of(parser);
    return guard == nullptr ? nullptr : static_cast<Session*>(guard->Owner());
}

void OnStartDocument(void* context) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->Check(s->handler->putDocumentLocator(s->locator));
    if (s->Live()) s->Check(s->handler->startDocument());
}

void OnEndDocument(void* context) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->Check(s->handler->endDocument());
}

void OnStartElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                    const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                    int attributeCount, int /*defaulted*/, const xmlChar** attributes) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live()) return;
    if (s->maxDepth > 0 && ++s->depth > s->maxDepth) {
        s->Check(kXmlParseErrorBase + XML_ERR_INTERNAL_ERROR);
        return;
    }
    if (s->handler == nullptr) return;
    std::size_t mapped = 0;
    if (s->namespaces) {
        for (int i = 0; i < namespaceCount && s->Live(); ++i) {
            s->names.Clear();
            const WideArena::Piece p = s->names.Add(View(namespaces[2 * i]));
            const WideArena::Piece u =
                s->names.Add(UndoAmpersandReferences(View(namespaces[2 * i + 1]), s->decoded));
            s->prefixStack.emplace_back(s->names.At(p), static_cast<std::size_t>(p.length));
            ++mapped;
            s->Check(
                s->handler->startPrefixMapping(s->names.At(p), p.length, s->names.At(u), u.length));
        }
    }
    s->prefixCounts.push_back(mapped);
    if (!s->Live()) return;

    SaxAttributes* list = s->attributes;
    list->Reset();
    if (s->namespacePrefixes || !s->namespaces) {
        for (int i = 0; i < namespaceCount; ++i) {
            std::string_view p = View(namespaces[2 * i]);
            std::string qname = p.empty() ? std::string("xmlns") : "xmlns:" + std::string(p);
            list->AddWithQName(qname, s->namespaces ? (p.empty() ? "xmlns" : p) : "",
                               UndoAmpersandReferences(View(namespaces[2 * i + 1]), s->decoded));
        }
    }
    for (int i = 0; i < attributeCount; ++i) {
        const xmlChar** a = attributes + 5 * i;  // localname, prefix, URI, value, end
        const std::string_view raw(reinterpret_cast<const char*>(a[3]),
                                   static_cast<std::size_t>(a[4] - a[3]));
        std::string_view value = UndoAmpersandReferences(raw, s->decoded);
        const bool encoded = value.data() != raw.data();
        if (s->namespaces) {
            const std::string_view rawUri = View(a[2]);
            const std::string_view attributeUri = UndoAmpersandReferences(rawUri, s->decodedUri);
            if (encoded || attributeUri.data() != rawUri.data()) {
                list->AddDecoded(attributeUri, View(a[1]), View(a[0]), value);
            } else {
                list->Add(attributeUri, View(a[1]), View(a[0]), value);
            }
        } else {
            std::string qname = a[1] != nullptr ? std::string(View(a[1])) + ":" : std::string();
            qname += View(a[0]);
            list->AddWithQName(qname, "", value);
        }
    }
    const ElementNames::Names n =
        s->elementNames.Lookup(s->context->dict, uri, prefix, localname, s->namespaces);
    s->Check(s->handler->startElement(n.uri, n.uriLength, n.local, n.localLength, n.qname,
                                      n.qnameLength, list));
}

void OnEndElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                  const xmlChar* uri) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live()) return;
    if (s->maxDepth > 0) --s->depth;
    if (s->handler == nullptr) return;
    const ElementNames::Names n =
        s->elementNames.Lookup(s->context->dict, uri, prefix, localname, s->namespaces);
    s->Check(
        s->handler->endElement(n.uri, n.uriLength, n.local, n.localLength, n.qname, n.qnameLength));
    std::size_t mapped = s->prefixCounts.empty() ? 0 : s->prefixCounts.back();
    if (!s->prefixCounts.empty()) s->prefixCounts.pop_back();
    std::size_t first = s->prefixStack.size() - mapped;
    for (std::size_t i = first; i < s->prefixStack.size() && s->Live(); ++i) {
        const std::wstring& p = s->prefixStack[i];
        s->Check(s->handler->endPrefixMapping(p.c_str(), static_cast<INT>(p.size())));
    }
    s->prefixStack.resize(first);
}

void OnCharacters(void* context, const xmlChar* chars, int length) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr || length <= 0) return;
    s->text.Clear();
    AppendWideFast(s->text, std::string_view(reinterpret_cast<const char*>(chars),
                                             static_cast<std::size_t>(length)));
    const INT size = static_cast<INT>(s->text.Size());
    s->text.Push(L'\0');
    s->Check(s->handler->characters(s->text.Data(), size));
}

void OnProcessingInstruction(void* context, const xmlChar* target, const xmlChar* data) {
    Session* s = SessionOf(context);
    if (s == nullptr || !s->Live() || s->handler == nullptr) return;
    s->names.Clear();
    const WideArena::Piece t = s->names.Add(View(target));
    const WideArena::Piece d = s->names.Add(View(data));
    s->Check(s->handler->processingInstruction(s->names.At(t), t.length, s->names.At(d), d.length));
}

class SaxReader final : public ComObject<ISAXXMLReader> {
public:
    HRESULT getFeature(const wchar_t* name, VARIANT_BOOL* value) override {
        if (value == nullptr) return E_POINTER;
        std::wstring_view feature = Name(name);
        bool flag = false;
        if (feature == kFeatureNamespaces) {
            flag = m_namespaces;
        } else if (feature == kFeatureNamespacePrefixes) {
            flag = m_namespacePrefixes;
        } else if (feature == kFeatureProhibitDtd) {
            flag = true;
        } else if (feature != kFeatureExternalGeneral && feature != kFeatureExternalParameter) {
            return E_INVALIDARG;
        }
        *value = flag ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    HRESULT putFeature(const wchar_t* name, VARIANT_BOOL value) override {
        std::wstring_view feature = Name(name);
        bool flag = value != VARIANT_FALSE;
        if (m_parsing) return E_FAIL;
        if (feature == kFeatureNamespaces) {
            m_namespaces = flag;
        } else if (feature == kFeatureNamespacePrefixes) {
            m_namespacePrefixes = flag;
        } else if (feature == kFeatureProhibitDtd) {
            if (!flag) return E_INVALIDARG;  // DTDs are never read
        } else if (feature == kFeatureExternalGeneral || feature == kFeatureExternalParameter) {
            if (flag) return E_INVALIDARG;  // external entities are never read
        } else {
            return E_INVALIDARG;
        }
        return S_OK;
    }
    HRESULT getProperty(const wchar_t* name, VARIANT* value) override {
        if (value == nullptr) return E_POINTER;
        VariantInit(value);
        std::wstring_view property = Name(name);
        if (property != kPropertyMaxDepth && property != kPropertyMaxSize) return E_INVALIDARG;
        value->vt = VT_I4;
        value->lVal = property == kPropertyMaxDepth ? m_maxDepth : m_maxSize;
        return S_OK;
    }
    HRESULT putProperty(const wchar_t* name, VARIANT value) override {
        std::wstring_view property = Name(name);
        if (property != kPropertyMaxDepth && property != kPropertyMaxSize) return E_INVALIDARG;
        if (m_parsing) return E_FAIL;
        VARIANT number;
        VariantInit(&number);
        if (FAILED(VariantChangeType(&number, &value, 0, VT_I4)) || number.lVal < 0) {
            return E_INVALIDARG;
        }
        (property == kPropertyMaxDepth ? m_maxDepth : m_maxSize) = number.lVal;
        return S_OK;
    }
    HRESULT getContentHandler(ISAXContentHandler** handler) override {
        if (handler == nullptr) return E_POINTER;
        return m_handler.CopyTo(handler);
    }
    HRESULT putContentHandler(ISAXContentHandler* handler) override {
        m_handler = handler;
        return S_OK;
    }
    HRESULT getErrorHandler(ISAXErrorHandler** handler) override {
        if (handler == nullptr) return E_POINTER;
        return m_errorHandler.CopyTo(handler);
    }
    HRESULT putErrorHandler(ISAXErrorHandler* handler) override {
        m_errorHandler = handler;
        return S_OK;
    }
    HRESULT getBaseURL(const wchar_t** url) override { return GetText(m_baseUrl, url); }
    HRESULT putBaseURL(const wchar_t* url) override {
        m_baseUrl = url == nullptr ? L"" : url;
        return S_OK;
    }
    HRESULT getSecureBaseURL(const wchar_t** url) override { return GetText(m_secureBaseUrl, url); }
    HRESULT putSecureBaseURL(const wchar_t* url) override {
        m_secureBaseUrl = url == nullptr ? L"" : url;
        return S_OK;
    }

    HRESULT parse(VARIANT input) override {
        if (input.vt == VT_BSTR) {
            std::string text = ToUtf8(input.bstrVal);
            ParseSource source;
            source.memory = text;
            source.decoded = true;
            return Run(source, {});
        }
        if (input.vt != VT_UNKNOWN && input.vt != VT_DISPATCH) return E_INVALIDARG;
        if (input.punkVal == nullptr) return E_INVALIDARG;
        CComPtr<ISequentialStream> stream;
        if (FAILED(input.punkVal->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream))) &&
            FAILED(input.punkVal->QueryInterface(IID_ISequentialStream,
                                                 reinterpret_cast<void**>(&stream)))) {
            return E_INVALIDARG;
        }
        ParseSource source;
        source.stream = stream;
        return Run(source, {});
    }

    HRESULT parseURL(const wchar_t* url) override {
        if (url == nullptr || *url == 0) return E_INVALIDARG;
        std::string location = ToUtf8(url, std::wcslen(url));
        HRESULT opened = S_OK;
        std::FILE* file = OpenLocalFile(location, "rb", &opened);
        if (file == nullptr) return opened;
        ParseSource source;
        source.file = file;
        source.url = location;
        HRESULT hr = Run(source, url);
        std::fclose(file);
        return hr;
    }

private:
    static HRESULT GetText(const std::wstring& text, const wchar_t** out) {
        if (out == nullptr) return E_POINTER;
        *out = text.empty() ? nullptr : text.c_str();
        return S_OK;
    }

    HRESULT Run(ParseSource& source, std::wstring systemId) {
        if (m_parsing) return E_UNEXPECTED;  // parse() from inside a callback
        EnsureLibxml();
        source.maxBytes = static_cast<std::uint64_t>(m_maxSize) * 1024;
        if (source.maxBytes != 0 && source.memory.size() > source.maxBytes) {
            return kXmlParseErrorBase + XML_ERR_INTERNAL_ERROR;
        }
        if (source.memory.size() > static_cast<std::size_t>(INT_MAX)) return E_OUTOFMEMORY;
        xmlParserCtxtPtr context = xmlNewParserCtxt();
        if (context == nullptr) return E_OUTOFMEMORY;

        CComPtr<SaxLocator> locator;
        locator.Attach(new (std::nothrow) SaxLocator());
        CComPtr<SaxAttributes> attributes;
        attributes.Attach(new (std::nothrow) SaxAttributes());
        if (locator == nullptr || attributes == nullptr) {
            xmlFreeParserCtxt(context);
            return E_OUTOFMEMORY;
        }
        locator->SetSystemId(std::move(systemId));
        locator->Attach(context);

        // The handler lives through the parse even if a callback replaces it.
        CComPtr<ISAXContentHandler> handler = m_handler;
        HRESULT result = S_OK;
        {
            ParserGuard guard(context);
            Session session(handler, m_namespaces, m_namespacePrefixes, m_maxDepth, context, &guard,
                            locator, attributes);
            guard.SetOwner(&session);
            xmlSAXHandler* sax = context->sax;
            sax->startDocument = OnStartDocument;
            sax->endDocument = OnEndDocument;
            sax->startElementNs = OnStartElement;
            sax->endElementNs = OnEndElement;
            sax->startElement = nullptr;
            sax->endElement = nullptr;
            sax->characters = OnCharacters;
            sax->cdataBlock = OnCharacters;
            sax->ignorableWhitespace = OnCharacters;
            sax->processingInstruction = OnProcessingInstruction;
            sax->comment = nullptr;
            sax->reference = nullptr;
            sax->setDocumentLocator = nullptr;
            sax->externalSubset = nullptr;

            m_parsing = true;
            int options = SafeParseOptions(true, source.decoded);
            xmlDocPtr doc = nullptr;
            const char* url = source.url.empty() ? nullptr : source.url.c_str();
            if (source.stream != nullptr || source.file != nullptr) {
                SourceReader reader{&source, &guard};
                doc = xmlCtxtReadIO(context, ReadSourceCallback, nullptr, &reader, url, nullptr,
                                    options);
            } else {
                doc = xmlCtxtReadMemory(context, source.memory.data(),
                                        static_cast<int>(source.memory.size()), url, nullptr,
                                        options);
            }
            m_parsing = false;
            if (doc != nullptr) xmlFreeDoc(doc);
            locator->Detach();

            result = session.result;
            bool wellFormed = context->wellFormed && !guard.HasError() && !guard.DoctypeSeen() &&
                              SUCCEEDED(guard.ReadFailure());
            if (SUCCEEDED(result) && !wellFormed) {
                ParseErrorInfo error;
                guard.Describe(error, source.memory);
                result = error.code;
                if (m_errorHandler != nullptr) {
                    std::wstring message;
                    AppendWide(message, error.reason);
                    m_errorHandler->fatalError(locator, message.c_str(), error.code);
                }
            }
        }
        xmlFreeParserCtxt(context);
        return SUCCEEDED(result) ? S_OK : result;
    }

    CComPtr<ISAXContentHandler> m_handler;
    CComPtr<ISAXErrorHandler> m_errorHandler;
    std::wstring m_baseUrl;
    std::wstring m_secureBaseUrl;
    bool m_namespaces = true;
    bool m_namespacePrefixes = false;
    LONG m_maxDepth = 0;
    LONG m_maxSize = 0;
    bool m_parsing = false;
};

}  // namespace
}  // namespace platform::msxml

namespace platform {

HRESULT CreateSaxXmlReader60(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    auto* reader = new (std::nothrow) msxml::SaxReader();
    if (reader == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = reader->QueryInterface(iid, object);
    reader->Release();
    return hr;
}

}  // namespace platform
