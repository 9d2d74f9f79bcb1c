// saxhandler.h: CSaxHandler, the base SAX content handler for filters that read an XML part with
// a SAX parser and write a changed copy: every callback succeeds and does nothing; a derived
// handler overrides the callbacks it needs and rebuilds the markup with EscapeEntity and
// WriteToPrintStream.
#pragma once

#include "filterpipeline/filterutilities/cunknown.h"
#include "platform/msxml/msxml6.h"
#include "platform/printpipeline/filterpipeline.h"
#include "support/utilities/cxstring.h"

class CSaxHandler : public CUnknown<ISAXContentHandler> {
public:
    CSaxHandler();
    CSaxHandler(const CSaxHandler&) = default;
    CSaxHandler& operator=(const CSaxHandler&) = default;

    HRESULT putDocumentLocator(ISAXLocator* locator) override;
    HRESULT startDocument() override;
    HRESULT endDocument() override;
    HRESULT startPrefixMapping(const wchar_t* prefix, INT prefixLength, const wchar_t* uri,
                               INT uriLength) override;
    HRESULT endPrefixMapping(const wchar_t* prefix, INT prefixLength) override;
    HRESULT startElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                         const wchar_t* localName, INT localNameLength, const wchar_t* qName,
                         INT qNameLength, ISAXAttributes* attributes) override;
    HRESULT endElement(const wchar_t* namespaceUri, INT namespaceUriLength,
                       const wchar_t* localName, INT localNameLength, const wchar_t* qName,
                       INT qNameLength) override;
    HRESULT characters(const wchar_t* chars, INT length) override;
    HRESULT ignorableWhitespace(const wchar_t* chars, INT length) override;
    HRESULT processingInstruction(const wchar_t* target, INT targetLength, const wchar_t* data,
                                  INT dataLength) override;
    HRESULT skippedEntity(const wchar_t* name, INT nameLength) override;

protected:
    // Replaces *text with its escaped form: & < > " ' become &amp; &lt; &gt; &quot; &apos;
    // (ampersands first, so existing entities are escaped again). The same table serves element
    // text and attribute values. An empty string is left as it is.
    HRESULT EscapeEntity(BSTR* text);
    // Writes text to the stream as UTF-8 (no BOM, no NUL) in one call.
    HRESULT WriteToPrintStream(CXString* text, IPrintWriteStream* stream);
    HRESULT WriteToPrintStream(CXString* text, ISequentialStream* stream);
};
