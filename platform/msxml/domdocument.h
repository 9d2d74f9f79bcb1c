// domdocument.h: the MSXML 6 DOMDocument on libxml2 (CLSID_DOMDocument60). It answers
// IXMLDOMDocument/2/3 and IXMLDOMNode, and IStream, whose reads give the document's UTF-8
// serialisation. Internal header; clients use CoCreateInstance or platform::CreateDomDocument60.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/msxml/domnode.h"
#include "platform/msxml/domparser.h"
#include "platform/msxml/domxpath.h"

namespace platform::msxml {

class DomDocument final : public DomNode<IXMLDOMDocument3, IStream> {
public:
    DomDocument();

    bool PreserveWhiteSpace() const { return m_preserveWhiteSpace; }
    XPathEngine& XPath() { return m_xpath; }
    // See platform::DomDocumentChangeStamp (msxml6.h).
    unsigned long long ChangeStamp();
    // A new document holding copies of this one's nodes.
    HRESULT CloneDocument(bool deep, IXMLDOMNode** clone);

    // IXMLDOMDocument
    HRESULT get_documentElement(IXMLDOMElement** element) override;
    HRESULT putref_documentElement(IXMLDOMElement* element) override;
    HRESULT createElement(BSTR tagName, IXMLDOMElement** element) override;
    HRESULT createDocumentFragment(IXMLDOMDocumentFragment** fragment) override;
    HRESULT createTextNode(BSTR data, IXMLDOMText** text) override;
    HRESULT createComment(BSTR data, IXMLDOMComment** comment) override;
    HRESULT createCDATASection(BSTR data, IXMLDOMCDATASection** cdata) override;
    HRESULT createProcessingInstruction(BSTR target, BSTR data,
                                        IXMLDOMProcessingInstruction** pi) override;
    HRESULT createAttribute(BSTR name, IXMLDOMAttribute** attribute) override;
    HRESULT getElementsByTagName(BSTR tagName, IXMLDOMNodeList** list) override {
        return ElementsByTagName(tagName, list);
    }
    HRESULT createNode(VARIANT type, BSTR name, BSTR namespaceURI, IXMLDOMNode** node) override;
    HRESULT load(VARIANT source, VARIANT_BOOL* isSuccessful) override;
    HRESULT get_readyState(LONG* value) override;
    HRESULT get_parseError(IXMLDOMParseError** error) override;
    HRESULT get_url(BSTR* url) override;
    HRESULT get_async(VARIANT_BOOL* isAsync) override;
    HRESULT put_async(VARIANT_BOOL isAsync) override;
    HRESULT loadXML(BSTR xml, VARIANT_BOOL* isSuccessful) override;
    HRESULT save(VARIANT destination) override;
    HRESULT get_validateOnParse(VARIANT_BOOL* value) override;
    HRESULT put_validateOnParse(VARIANT_BOOL value) override;
    HRESULT get_resolveExternals(VARIANT_BOOL* value) override;
    HRESULT put_resolveExternals(VARIANT_BOOL value) override;
    HRESULT get_preserveWhiteSpace(VARIANT_BOOL* value) override;
    HRESULT put_preserveWhiteSpace(VARIANT_BOOL value) override;
    // IXMLDOMDocument2
    HRESULT setProperty(BSTR name, VARIANT value) override;
    HRESULT getProperty(BSTR name, VARIANT* value) override;
    // IXMLDOMDocument3
    HRESULT importNode(IXMLDOMNode* node, VARIANT_BOOL deep, IXMLDOMNode** clone) override;

    // IStream: a read-only view of the UTF-8 serialisation (as save() writes it). The text is
    // taken when reading starts at offset 0 and stays fixed until the stream is back at 0.
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
    HRESULT SetSize(ULARGE_INTEGER newSize) override;
    HRESULT CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                   ULARGE_INTEGER* written) override;
    HRESULT Commit(DWORD flags) override;
    HRESULT Revert() override;
    HRESULT LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    HRESULT UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) override;
    HRESULT Stat(STATSTG* stat, DWORD flags) override;
    HRESULT Clone(IStream** clone) override;

protected:
    ~DomDocument() override;
    HRESULT QueryBase(REFIID iid, void** object) override;

private:
    // Replaces the tree after a load attempt: the parsed document, or an empty one on failure.
    HRESULT FinishLoad(xmlDocPtr parsed, ParseErrorInfo error, std::string url,
                       VARIANT_BOOL* isSuccessful);
    HRESULT LoadSource(const ParseSource& source, std::string url, VARIANT_BOOL* isSuccessful);
    HRESULT NewDetachedNode(xmlNode* node, IXMLDOMNode** out);
    void RefreshSnapshot();

    XPathEngine m_xpath;
    ParseErrorInfo m_lastError;
    std::string m_url;
    bool m_async = true;
    bool m_validateOnParse = false;
    bool m_preserveWhiteSpace = false;
    LONG m_maxElementDepth = 256;  // 0: no limit beyond the parser's own (256 levels)
    LONG m_maxXmlSize = 0;         // kilobytes; 0: no limit
    std::map<std::string, bool> m_flags;
    // IStream state.
    std::string m_snapshot;
    const Tree* m_snapshotTree = nullptr;
    std::uint64_t m_snapshotVersion = 0;
    bool m_snapshotValid = false;
    ULONGLONG m_position = 0;
    // ChangeStamp's memory: the stamp handed out and what it was taken over.
    unsigned long long m_stamp = 0;
    std::uint64_t m_loads = 0;  // trees installed by load/loadXML
    std::uint64_t m_stampLoads = 0;
    std::uint64_t m_stampVersion = 0;
    std::uint64_t m_stampNamespaces = 0;
    bool m_stampPreserve = false;
};

}  // namespace platform::msxml
