// domdocument.cpp: the DOMDocument60 class: node factories, load/loadXML/save, the MSXML 6
// properties, the IStream view of the serialisation, and the class registration that makes
// CoCreateInstance(CLSID_DOMDocument60, ...) work.
#include "platform/msxml/domdocument.h"

#include <atomic>
#include <cstring>
#include <new>

#include "platform/com/comruntime.h"
#include "platform/msxml/domserializer.h"

namespace platform::msxml {
namespace {

bool ValidName(const std::string& name) {
    return !name.empty() && name.find('\0') == std::string::npos &&
           xmlValidateQName(XmlStr(name), 0) == 0;
}

// createNode's type argument: a number, or MSXML's node type strings.
HRESULT NodeKind(const VARIANT& type, LONG& kind) {
    if (type.vt == VT_BSTR) {
        static constexpr std::pair<const wchar_t*, LONG> kNames[] = {
            {L"element", NODE_ELEMENT},
            {L"attribute", NODE_ATTRIBUTE},
            {L"text", NODE_TEXT},
            {L"cdatasection", NODE_CDATA_SECTION},
            {L"processinginstruction", NODE_PROCESSING_INSTRUCTION},
            {L"comment", NODE_COMMENT},
            {L"documentfragment", NODE_DOCUMENT_FRAGMENT}};
        for (const auto& [name, value] : kNames) {
            if (type.bstrVal != nullptr && std::wcscmp(type.bstrVal, name) == 0) {
                kind = value;
                return S_OK;
            }
        }
    }
    VARIANT number;
    VariantInit(&number);
    if (FAILED(VariantChangeType(&number, &type, 0, VT_I4))) return E_INVALIDARG;
    kind = number.lVal;
    return S_OK;
}

HRESULT ReadBool(const VARIANT& value, bool& out) {
    VARIANT converted;
    VariantInit(&converted);
    if (FAILED(VariantChangeType(&converted, &value, 0, VT_BOOL))) return E_INVALIDARG;
    out = converted.boolVal != VARIANT_FALSE;
    return S_OK;
}

HRESULT ReadLong(const VARIANT& value, LONG& out) {
    VARIANT converted;
    VariantInit(&converted);
    if (FAILED(VariantChangeType(&converted, &value, 0, VT_I4))) return E_INVALIDARG;
    out = converted.lVal;
    return S_OK;
}

HRESULT ReturnBool(bool value, VARIANT* out) {
    out->vt = VT_BOOL;
    out->boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT ReturnVariantText(std::wstring_view text, VARIANT* out) {
    out->bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (out->bstrVal == nullptr) return E_OUTOFMEMORY;
    out->vt = VT_BSTR;
    return S_OK;
}

HRESULT WriteAll(ISequentialStream* stream, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ULONG chunk = static_cast<ULONG>(std::min<std::size_t>(bytes.size() - done, 1u << 20));
        ULONG written = 0;
        FU_RETURN_IF_FAILED(stream->Write(bytes.data() + done, chunk, &written));
        if (written == 0) return STG_E_WRITEFAULT;
        done += written;
    }
    return S_OK;
}

// Boolean properties MSXML 6 accepts and this DOM records without further effect: they concern
// XSLT, schemas or HTTP, which this DOM does not offer.
constexpr const char* kRecordedFlags[] = {
    "AllowDocumentFunction", "AllowXsltScript",          "NewParser",
    "UseInlineSchema",       "ServerHTTPRequest",        "MultipleErrorMessages",
    "ForcedResync",          "NormalizeAttributeValues", "ValidateOnParse"};

}  // namespace

DomDocument::DomDocument() : DomNode(nullptr, nullptr, true) {
    EnsureLibxml();
    xmlDocPtr doc = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
    if (doc == nullptr) return;
    Tree* tree = Tree::Create(doc, this);
    if (tree == nullptr) return;  // the factory reports E_OUTOFMEMORY
    SetDocumentTree(tree);
    tree->Release();
}

DomDocument::~DomDocument() = default;

HRESULT DomDocument::QueryBase(REFIID iid, void** object) {
    if (iid == IID_IXMLDOMDocument2) return Answer<IXMLDOMDocument2>(object);
    if (iid == IID_IXMLDOMDocument) return Answer<IXMLDOMDocument>(object);
    if (iid == IID_ISequentialStream) return Answer<ISequentialStream>(object);
    return DomNode::QueryBase(iid, object);
}

HRESULT DomDocument::NewDetachedNode(xmlNode* node, IXMLDOMNode** out) {
    if (node == nullptr) return E_OUTOFMEMORY;
    m_tree->MarkDetached(node);
    return m_tree->Wrap(node, out);
}

template <class I>
static HRESULT Narrow(HRESULT hr, IXMLDOMNode* node, I** out) {
    if (FAILED(hr) || node == nullptr) return FAILED(hr) ? hr : E_FAIL;
    hr = node->QueryInterface(__uuidof(I), reinterpret_cast<void**>(out));
    node->Release();
    return hr;
}

// ---- Structure --------------------------------------------------------------------------------

HRESULT DomDocument::get_documentElement(IXMLDOMElement** element) {
    if (element == nullptr) return E_INVALIDARG;
    *element = nullptr;
    xmlNode* root = xmlDocGetRootElement(m_tree->Doc());
    if (root == nullptr) return S_FALSE;
    IXMLDOMNode* node = nullptr;
    HRESULT hr = m_tree->Wrap(root, &node);
    return Narrow(hr, node, element);
}

HRESULT DomDocument::putref_documentElement(IXMLDOMElement* element) {
    xmlNode* old = xmlDocGetRootElement(m_tree->Doc());
    if (element == nullptr) {
        if (old != nullptr) {
            xmlUnlinkNode(old);
            m_tree->Discard(old);
            m_tree->Touch();
        }
        return S_OK;
    }
    NodeCore* replacement = NodeCore::From(element);
    if (replacement == nullptr || replacement->Node()->type != XML_ELEMENT_NODE)
        return E_INVALIDARG;
    if (old == nullptr) return AppendChild(element, nullptr);
    if (replacement->Node() == old) return S_OK;
    CComPtr<IXMLDOMNode> oldNode;
    FU_RETURN_IF_FAILED(m_tree->Wrap(old, &oldNode));
    return ReplaceChild(element, oldNode, nullptr);
}

HRESULT DomDocument::createElement(BSTR tagName, IXMLDOMElement** element) {
    if (element == nullptr) return E_INVALIDARG;
    *element = nullptr;
    VARIANT type;
    VariantInit(&type);
    type.vt = VT_I4;
    type.lVal = NODE_ELEMENT;
    IXMLDOMNode* node = nullptr;
    HRESULT hr = createNode(type, tagName, nullptr, &node);
    return Narrow(hr, node, element);
}

HRESULT DomDocument::createDocumentFragment(IXMLDOMDocumentFragment** fragment) {
    if (fragment == nullptr) return E_INVALIDARG;
    *fragment = nullptr;
    IXMLDOMNode* node = nullptr;
    HRESULT hr = NewDetachedNode(xmlNewDocFragment(m_tree->Doc()), &node);
    return Narrow(hr, node, fragment);
}

HRESULT DomDocument::createTextNode(BSTR data, IXMLDOMText** text) {
    if (text == nullptr) return E_INVALIDARG;
    *text = nullptr;
    Utf8 value = ToUtf8(data);
    IXMLDOMNode* node = nullptr;
    HRESULT hr = NewDetachedNode(
        xmlNewDocTextLen(m_tree->Doc(), XmlStr(value), static_cast<int>(value.size())), &node);
    return Narrow(hr, node, text);
}

HRESULT DomDocument::createComment(BSTR data, IXMLDOMComment** comment) {
    if (comment == nullptr) return E_INVALIDARG;
    *comment = nullptr;
    Utf8 value = ToUtf8(data);
    IXMLDOMNode* node = nullptr;
    HRESULT hr = NewDetachedNode(xmlNewDocComment(m_tree->Doc(), XmlStr(value)), &node);
    return Narrow(hr, node, comment);
}

HRESULT DomDocument::createCDATASection(BSTR data, IXMLDOMCDATASection** cdata) {
    if (cdata == nullptr) return E_INVALIDARG;
    *cdata = nullptr;
    Utf8 value = ToUtf8(data);
    IXMLDOMNode* node = nullptr;
    HRESULT hr = NewDetachedNode(
        xmlNewCDataBlock(m_tree->Doc(), XmlStr(value), static_cast<int>(value.size())), &node);
    return Narrow(hr, node, cdata);
}

HRESULT DomDocument::createProcessingInstruction(BSTR target, BSTR data,
                                                 IXMLDOMProcessingInstruction** pi) {
    if (pi == nullptr) return E_INVALIDARG;
    *pi = nullptr;
    Utf8 name = ToUtf8(target);
    if (!ValidName(name) || name.find(':') != std::string::npos) return E_INVALIDARG;
    Utf8 value = ToUtf8(data);
    if (value.find("?>") != std::string::npos) return E_INVALIDARG;
    IXMLDOMNode* node = nullptr;
    HRESULT hr = NewDetachedNode(xmlNewDocPI(m_tree->Doc(), XmlStr(name), XmlStr(value)), &node);
    return Narrow(hr, node, pi);
}

HRESULT DomDocument::createAttribute(BSTR name, IXMLDOMAttribute** attribute) {
    if (attribute == nullptr) return E_INVALIDARG;
    *attribute = nullptr;
    VARIANT type;
    VariantInit(&type);
    type.vt = VT_I4;
    type.lVal = NODE_ATTRIBUTE;
    IXMLDOMNode* node = nullptr;
    HRESULT hr = createNode(type, name, nullptr, &node);
    return Narrow(hr, node, attribute);
}

HRESULT DomDocument::createNode(VARIANT type, BSTR name, BSTR namespaceURI, IXMLDOMNode** node) {
    if (node == nullptr) return E_INVALIDARG;
    *node = nullptr;
    LONG kind = 0;
    FU_RETURN_IF_FAILED(NodeKind(type, kind));
    xmlDocPtr doc = m_tree->Doc();
    Utf8 qname = ToUtf8(name);
    Utf8 uri = ToUtf8(namespaceURI);
    switch (kind) {
        case NODE_TEXT:
            return NewDetachedNode(xmlNewDocText(doc, XmlStr("")), node);
        case NODE_CDATA_SECTION:
            return NewDetachedNode(xmlNewCDataBlock(doc, XmlStr(""), 0), node);
        case NODE_COMMENT:
            return NewDetachedNode(xmlNewDocComment(doc, XmlStr("")), node);
        case NODE_DOCUMENT_FRAGMENT:
            return NewDetachedNode(xmlNewDocFragment(doc), node);
        case NODE_PROCESSING_INSTRUCTION:
            if (!ValidName(qname) || qname.find(':') != std::string::npos) return E_INVALIDARG;
            return NewDetachedNode(xmlNewDocPI(doc, XmlStr(qname), nullptr), node);
        case NODE_ELEMENT:
        case NODE_ATTRIBUTE:
            break;
        default:
            return E_INVALIDARG;
    }
    if (!ValidName(qname) || uri.find('\0') != std::string::npos) return E_INVALIDARG;
    SplitName split = Split(qname);
    std::string local(split.local);
    bool declaration = qname == "xmlns" || (split.hasPrefix && split.prefix == "xmlns");
    if (kind == NODE_ATTRIBUTE && declaration) {
        if (!uri.empty() && uri != kXmlnsNamespace) return E_INVALIDARG;
        xmlNs* ns = m_tree->LooseNs(split.hasPrefix ? XmlStr(local) : nullptr, XmlStr(""));
        if (ns == nullptr) return E_OUTOFMEMORY;
        auto* created = new (std::nothrow) NamespaceAttribute(m_tree, nullptr, ns, true);
        if (created == nullptr) return E_OUTOFMEMORY;
        *node = created;
        return S_OK;
    }
    if (declaration) return E_INVALIDARG;  // no element may be named xmlns
    if (split.hasPrefix && uri.empty()) {
        // A prefix needs a namespace, or the node could never be written out well-formed.
        if (split.prefix != "xml") return E_INVALIDARG;
        uri = reinterpret_cast<const char*>(XML_XML_NAMESPACE);
    }
    if (split.prefix == "xml" && uri != reinterpret_cast<const char*>(XML_XML_NAMESPACE)) {
        return E_INVALIDARG;
    }
    xmlNs* ns = nullptr;
    if (!uri.empty()) {
        ns = m_tree->SharedNs(split.prefix, uri, split.hasPrefix);
        if (ns == nullptr) return E_OUTOFMEMORY;
    }
    if (kind == NODE_ELEMENT) {
        return NewDetachedNode(xmlNewDocNode(doc, ns, XmlStr(local), nullptr), node);
    }
    return NewDetachedNode(AsNode(NewAttribute(doc, ns, XmlStr(local), {})), node);
}

HRESULT DomDocument::importNode(IXMLDOMNode* node, VARIANT_BOOL deep, IXMLDOMNode** clone) {
    if (clone == nullptr || node == nullptr) return E_INVALIDARG;
    *clone = nullptr;
    if (NamespaceAttribute* declaration = NamespaceAttribute::From(node)) {
        std::string prefix = declaration->Prefix();
        std::string href = declaration->Href();
        xmlNs* ns = m_tree->LooseNs(prefix.empty() ? nullptr : XmlStr(prefix), XmlStr(href));
        if (ns == nullptr) return E_OUTOFMEMORY;
        auto* created = new (std::nothrow) NamespaceAttribute(m_tree, nullptr, ns, true);
        if (created == nullptr) return E_OUTOFMEMORY;
        *clone = created;
        return S_OK;
    }
    NodeCore* source = NodeCore::From(node);
    if (source == nullptr) return E_INVALIDARG;
    if (source->Node()->type == XML_DOCUMENT_NODE) return E_FAIL;
    xmlNode* copy =
        CopySubtree(source->Node(), m_tree, source->GetTree() == m_tree.p, deep != VARIANT_FALSE);
    return NewDetachedNode(copy, clone);
}

HRESULT DomDocument::CloneDocument(bool deep, IXMLDOMNode** clone) {
    auto* copy = new (std::nothrow) DomDocument();
    if (copy == nullptr) return E_OUTOFMEMORY;
    CComPtr<IXMLDOMNode> holder;
    holder.Attach(copy->Self());
    if (copy->m_tree == nullptr) return E_OUTOFMEMORY;
    copy->m_preserveWhiteSpace = m_preserveWhiteSpace;
    copy->m_validateOnParse = m_validateOnParse;
    copy->m_async = m_async;
    copy->m_flags = m_flags;
    copy->m_maxElementDepth = m_maxElementDepth;
    copy->m_maxXmlSize = m_maxXmlSize;
    FU_RETURN_IF_FAILED(copy->m_xpath.SetSelectionNamespaces(m_xpath.SelectionNamespaces()));
    if (deep) {
        xmlDocPtr source = m_tree->Doc();
        xmlDocPtr target = copy->m_tree->Doc();
        target->standalone = source->standalone;
        for (xmlNode* child = source->children; child != nullptr; child = child->next) {
            xmlNode* node = CopySubtree(child, copy->m_tree, false, true);
            if (node == nullptr) return E_OUTOFMEMORY;
            LinkBefore(AsNode(target), node, nullptr);
        }
    }
    *clone = holder.Detach();
    return S_OK;
}

// ---- Loading and saving -----------------------------------------------------------------------

HRESULT DomDocument::FinishLoad(xmlDocPtr parsed, ParseErrorInfo error, std::string url,
                                VARIANT_BOOL* isSuccessful) {
    bool success = parsed != nullptr;
    if (!success) {
        // As in MSXML, a failed load leaves an empty document behind.
        parsed = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
        if (parsed == nullptr) return E_OUTOFMEMORY;
    }
    Tree* tree = Tree::Create(parsed, this);
    if (tree == nullptr) return E_OUTOFMEMORY;
    SetDocumentTree(tree);
    tree->Release();
    ++m_loads;
    m_lastError = std::move(error);
    m_url = success ? std::move(url) : std::string();
    m_snapshotValid = false;
    m_position = 0;
    if (isSuccessful != nullptr) *isSuccessful = success ? VARIANT_TRUE : VARIANT_FALSE;
    return success ? S_OK : S_FALSE;
}

HRESULT DomDocument::LoadSource(const ParseSource& source, std::string url,
                                VARIANT_BOOL* isSuccessful) {
    ParseErrorInfo error;
    ParseSource limited = source;
    limited.maxBytes = static_cast<std::uint64_t>(m_maxXmlSize) * 1024;
    limited.maxDepth = m_maxElementDepth;
    xmlDocPtr parsed = ParseDocument(limited, m_preserveWhiteSpace, error);
    return FinishLoad(parsed, std::move(error), std::move(url), isSuccessful);
}

HRESULT DomDocument::load(VARIANT source, VARIANT_BOOL* isSuccessful) {
    if (isSuccessful != nullptr) *isSuccessful = VARIANT_FALSE;
    if (source.vt == VT_BSTR) {
        std::string location = ToUtf8(source.bstrVal);
        HRESULT opened = S_OK;
        std::FILE* file = OpenLocalFile(location, "rb", &opened);
        if (file == nullptr) {
            ParseErrorInfo error;
            error.code = opened;
            error.url = location;
            error.reason = opened == E_ACCESSDENIED ? "Access to the resource is not allowed."
                                                    : "The system cannot locate the resource.";
            return FinishLoad(nullptr, std::move(error), location, isSuccessful);
        }
        ParseSource input;
        input.file = file;
        input.url = location;
        HRESULT hr = LoadSource(input, location, isSuccessful);
        std::fclose(file);
        return hr;
    }
    if (source.vt != VT_UNKNOWN && source.vt != VT_DISPATCH) return E_INVALIDARG;
    IUnknown* object = source.punkVal;
    if (object == nullptr) return E_INVALIDARG;
    CComPtr<IXMLDOMDocument> other;
    if (SUCCEEDED(object->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(&other)))) {
        CComBSTR xml;
        FU_RETURN_IF_FAILED(other->get_xml(&xml));
        return loadXML(xml, isSuccessful);
    }
    CComPtr<ISequentialStream> stream;
    if (FAILED(object->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream))) &&
        FAILED(object->QueryInterface(IID_ISequentialStream, reinterpret_cast<void**>(&stream)))) {
        return E_INVALIDARG;
    }
    ParseSource input;
    input.stream = stream;
    return LoadSource(input, {}, isSuccessful);
}

HRESULT DomDocument::loadXML(BSTR xml, VARIANT_BOOL* isSuccessful) {
    if (isSuccessful != nullptr) *isSuccessful = VARIANT_FALSE;
    std::string text = ToUtf8(xml);
    ParseSource input;
    input.memory = text;
    input.decoded = true;
    return LoadSource(input, {}, isSuccessful);
}

HRESULT DomDocument::save(VARIANT destination) {
    std::string bytes;
    SerializeDocument(m_tree->Doc(), true, bytes);
    if (destination.vt == VT_BSTR) {
        HRESULT opened = S_OK;
        std::FILE* file = OpenLocalFile(ToUtf8(destination.bstrVal), "wb", &opened);
        if (file == nullptr) return opened;
        bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        ok = std::fclose(file) == 0 && ok;
        return ok ? S_OK : STG_E_WRITEFAULT;
    }
    if (destination.vt != VT_UNKNOWN && destination.vt != VT_DISPATCH) return E_INVALIDARG;
    IUnknown* object = destination.punkVal;
    if (object == nullptr) return E_INVALIDARG;
    CComPtr<IXMLDOMDocument> other;
    if (SUCCEEDED(object->QueryInterface(IID_IXMLDOMDocument, reinterpret_cast<void**>(&other)))) {
        CComBSTR xml;
        xml.Attach(AllocBstr(bytes));
        if (!xml) return E_OUTOFMEMORY;
        VARIANT_BOOL loaded = VARIANT_FALSE;
        FU_RETURN_IF_FAILED(other->loadXML(xml, &loaded));
        return loaded != VARIANT_FALSE ? S_OK : E_FAIL;
    }
    CComPtr<ISequentialStream> stream;
    if (FAILED(object->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream))) &&
        FAILED(object->QueryInterface(IID_ISequentialStream, reinterpret_cast<void**>(&stream)))) {
        return E_INVALIDARG;
    }
    return WriteAll(stream, bytes);
}

HRESULT DomDocument::get_readyState(LONG* value) {
    if (value == nullptr) return E_INVALIDARG;
    *value = 4;  // READYSTATE_COMPLETE: loading is always synchronous here
    return S_OK;
}

HRESULT DomDocument::get_parseError(IXMLDOMParseError** error) {
    if (error == nullptr) return E_INVALIDARG;
    *error = new (std::nothrow) ParseError(m_lastError);
    return *error == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT DomDocument::get_url(BSTR* url) {
    if (url == nullptr) return E_INVALIDARG;
    *url = nullptr;
    if (m_url.empty()) return S_FALSE;
    return ReturnBstr(m_url, url);
}

// ---- Flags and properties ---------------------------------------------------------------------

HRESULT DomDocument::get_async(VARIANT_BOOL* isAsync) {
    if (isAsync == nullptr) return E_INVALIDARG;
    *isAsync = m_async ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::put_async(VARIANT_BOOL isAsync) {
    m_async = isAsync != VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::get_validateOnParse(VARIANT_BOOL* value) {
    if (value == nullptr) return E_INVALIDARG;
    *value = m_validateOnParse ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::put_validateOnParse(VARIANT_BOOL value) {
    m_validateOnParse = value != VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::get_resolveExternals(VARIANT_BOOL* value) {
    if (value == nullptr) return E_INVALIDARG;
    *value = VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::put_resolveExternals(VARIANT_BOOL value) {
    // External DTDs and entities are never read by this DOM.
    return value == VARIANT_FALSE ? S_OK : E_INVALIDARG;
}

HRESULT DomDocument::get_preserveWhiteSpace(VARIANT_BOOL* value) {
    if (value == nullptr) return E_INVALIDARG;
    *value = m_preserveWhiteSpace ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT DomDocument::put_preserveWhiteSpace(VARIANT_BOOL value) {
    m_preserveWhiteSpace = value != VARIANT_FALSE;
    return S_OK;
}

unsigned long long DomDocument::ChangeStamp() {
    // Stamps come from one process-wide sequence, so two documents never share one, and a
    // document's stamp moves on whenever what queries and text reads see may have changed.
    static std::atomic<unsigned long long> s_lastStamp{0};
    Tree* tree = GetTree();
    if (tree == nullptr) return 0;
    if (m_stamp == 0 || m_stampLoads != m_loads || m_stampVersion != tree->Version() ||
        m_stampNamespaces != m_xpath.NamespacesVersion() ||
        m_stampPreserve != m_preserveWhiteSpace) {
        m_stamp = ++s_lastStamp;
        m_stampLoads = m_loads;
        m_stampVersion = tree->Version();
        m_stampNamespaces = m_xpath.NamespacesVersion();
        m_stampPreserve = m_preserveWhiteSpace;
    }
    return m_stamp;
}

HRESULT DomDocument::setProperty(BSTR name, VARIANT value) {
    std::string property = ToUtf8(name);
    if (property == "SelectionLanguage") {
        if (value.vt != VT_BSTR) return E_INVALIDARG;
        std::string language = ToUtf8(value.bstrVal);
        if (language == "XPath") return S_OK;
        return language == "XSLPattern" ? E_FAIL : E_INVALIDARG;
    }
    if (property == "SelectionNamespaces") {
        if (value.vt != VT_BSTR) return E_INVALIDARG;
        return m_xpath.SetSelectionNamespaces(std::wstring_view(
            value.bstrVal == nullptr ? L"" : value.bstrVal, SysStringLen(value.bstrVal)));
    }
    if (property == "ProhibitDTD" || property == "ResolveExternals") {
        bool flag = false;
        FU_RETURN_IF_FAILED(ReadBool(value, flag));
        // DTDs stay prohibited and externals unresolved: only the safe value is accepted.
        bool safe = property == "ProhibitDTD" ? flag : !flag;
        return safe ? S_OK : E_INVALIDARG;
    }
    if (property == "MaxElementDepth") {
        LONG depth = 0;
        FU_RETURN_IF_FAILED(ReadLong(value, depth));
        if (depth < 0) return E_INVALIDARG;
        m_maxElementDepth = depth;
        return S_OK;
    }
    if (property == "MaxXMLSize") {
        LONG size = 0;
        FU_RETURN_IF_FAILED(ReadLong(value, size));
        if (size < 0) return E_INVALIDARG;
        m_maxXmlSize = size;
        return S_OK;
    }
    for (const char* flagName : kRecordedFlags) {
        if (property == flagName) {
            bool flag = false;
            FU_RETURN_IF_FAILED(ReadBool(value, flag));
            if (property == "ValidateOnParse") m_validateOnParse = flag;
            m_flags[property] = flag;
            return S_OK;
        }
    }
    return E_INVALIDARG;
}

HRESULT DomDocument::getProperty(BSTR name, VARIANT* value) {
    if (value == nullptr) return E_INVALIDARG;
    VariantInit(value);
    std::string property = ToUtf8(name);
    if (property == "SelectionLanguage") return ReturnVariantText(L"XPath", value);
    if (property == "SelectionNamespaces") {
        return ReturnVariantText(m_xpath.SelectionNamespaces(), value);
    }
    if (property == "ProhibitDTD") return ReturnBool(true, value);
    if (property == "ResolveExternals") return ReturnBool(false, value);
    if (property == "MaxElementDepth" || property == "MaxXMLSize") {
        value->vt = VT_I4;
        value->lVal = property == "MaxElementDepth" ? m_maxElementDepth : m_maxXmlSize;
        return S_OK;
    }
    if (property == "ValidateOnParse") return ReturnBool(m_validateOnParse, value);
    for (const char* flagName : kRecordedFlags) {
        if (property == flagName) {
            auto found = m_flags.find(property);
            // MSXML 6 defaults: only NewParser is on.
            bool flag = found != m_flags.end() ? found->second : property == "NewParser";
            return ReturnBool(flag, value);
        }
    }
    return E_INVALIDARG;
}

// ---- IStream ----------------------------------------------------------------------------------

void DomDocument::RefreshSnapshot() {
    bool current =
        m_snapshotValid && m_snapshotTree == m_tree.p && m_snapshotVersion == m_tree->Version();
    if (current) return;
    m_snapshot.clear();
    SerializeDocument(m_tree->Doc(), true, m_snapshot);
    m_snapshotTree = m_tree.p;
    m_snapshotVersion = m_tree->Version();
    m_snapshotValid = true;
}

HRESULT DomDocument::Read(void* buffer, ULONG count, ULONG* read) {
    if (buffer == nullptr && count != 0) return STG_E_INVALIDPOINTER;
    if (m_position == 0 || !m_snapshotValid) RefreshSnapshot();
    ULONG available = 0;
    if (m_position < m_snapshot.size()) {
        std::size_t left = m_snapshot.size() - static_cast<std::size_t>(m_position);
        available = static_cast<ULONG>(left < count ? left : count);
        std::memcpy(buffer, m_snapshot.data() + m_position, available);
    }
    m_position += available;
    if (read != nullptr) *read = available;
    return available < count ? S_FALSE : S_OK;
}

HRESULT DomDocument::Write(const void*, ULONG, ULONG* written) {
    if (written != nullptr) *written = 0;
    return E_NOTIMPL;  // a read-only view: documents are built through load and the DOM
}

HRESULT DomDocument::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
    LONGLONG base = 0;
    switch (origin) {
        case STREAM_SEEK_SET:
            base = 0;
            break;
        case STREAM_SEEK_CUR:
            base = static_cast<LONGLONG>(m_position);
            break;
        case STREAM_SEEK_END:
            if (m_position == 0 || !m_snapshotValid) RefreshSnapshot();
            base = static_cast<LONGLONG>(m_snapshot.size());
            break;
        default:
            return STG_E_INVALIDFUNCTION;
    }
    LONGLONG target = base + move.QuadPart;
    if (target < 0) return STG_E_INVALIDFUNCTION;
    m_position = static_cast<ULONGLONG>(target);
    if (newPosition != nullptr) newPosition->QuadPart = m_position;
    return S_OK;
}

HRESULT DomDocument::SetSize(ULARGE_INTEGER) {
    return E_NOTIMPL;
}

HRESULT DomDocument::CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                            ULARGE_INTEGER* written) {
    if (target == nullptr) return STG_E_INVALIDPOINTER;
    if (m_position == 0 || !m_snapshotValid) RefreshSnapshot();
    ULONGLONG left = m_position < m_snapshot.size() ? m_snapshot.size() - m_position : 0;
    ULONGLONG amount = count.QuadPart < left ? count.QuadPart : left;
    std::string part =
        m_snapshot.substr(static_cast<std::size_t>(m_position), static_cast<std::size_t>(amount));
    HRESULT hr = WriteAll(target, part);
    m_position += amount;
    if (read != nullptr) read->QuadPart = amount;
    if (written != nullptr) written->QuadPart = SUCCEEDED(hr) ? amount : 0;
    return hr;
}

HRESULT DomDocument::Commit(DWORD) {
    return S_OK;
}
HRESULT DomDocument::Revert() {
    return S_OK;
}
HRESULT DomDocument::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return STG_E_INVALIDFUNCTION;
}
HRESULT DomDocument::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return STG_E_INVALIDFUNCTION;
}

HRESULT DomDocument::Stat(STATSTG* stat, DWORD) {
    if (stat == nullptr) return STG_E_INVALIDPOINTER;
    if (m_position == 0 || !m_snapshotValid) RefreshSnapshot();
    std::memset(stat, 0, sizeof(*stat));
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_snapshot.size();
    stat->grfMode = STGM_READ;
    return S_OK;
}

HRESULT DomDocument::Clone(IStream** clone) {
    if (clone == nullptr) return STG_E_INVALIDPOINTER;
    *clone = nullptr;
    if (m_position == 0 || !m_snapshotValid) RefreshSnapshot();
    FU_RETURN_IF_FAILED(platform::CreateMemoryStream(m_snapshot.data(), m_snapshot.size(), clone));
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(m_position);
    return (*clone)->Seek(at, STREAM_SEEK_SET, nullptr);
}

}  // namespace platform::msxml

// ---- Creation and registration ------------------------------------------------------------------

namespace platform {

unsigned long long DomDocumentChangeStamp(IXMLDOMDocument* document) {
    auto* ours = dynamic_cast<msxml::DomDocument*>(document);
    return ours == nullptr ? 0 : ours->ChangeStamp();
}

HRESULT CreateDomDocument60(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    auto* document = new (std::nothrow) msxml::DomDocument();
    if (document == nullptr) return E_OUTOFMEMORY;
    CComPtr<IXMLDOMNode> holder;
    holder.Attach(document->Self());
    if (document->GetTree() == nullptr) return E_OUTOFMEMORY;
    return holder->QueryInterface(iid, object);
}

namespace {
struct Registration {
    Registration() {
        RegisterComClass(CLSID_DOMDocument60, &CreateDomDocument60);
        RegisterComClass(CLSID_FreeThreadedDOMDocument60, &CreateDomDocument60);
        RegisterComClass(CLSID_SAXXMLReader60, &CreateSaxXmlReader60);
    }
};
const Registration g_registration;
}  // namespace

}  // namespace platform
