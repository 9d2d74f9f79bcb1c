// saxhandler.cpp: the do-nothing content handler and its re-serialisation helpers.
#include "filterpipeline/filterutilities/saxhandler.h"

#include "filterpipeline/filterutilities/widetoutf8.h"
#include "support/errorframe/errorframe.h"

CSaxHandler::CSaxHandler() : CUnknown<ISAXContentHandler>(IID_ISAXContentHandler) {}

HRESULT CSaxHandler::putDocumentLocator(ISAXLocator*) { return S_OK; }
HRESULT CSaxHandler::startDocument() { return S_OK; }
HRESULT CSaxHandler::endDocument() { return S_OK; }
HRESULT CSaxHandler::startPrefixMapping(const wchar_t*, INT, const wchar_t*, INT) { return S_OK; }
HRESULT CSaxHandler::endPrefixMapping(const wchar_t*, INT) { return S_OK; }
HRESULT CSaxHandler::startElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT,
                                  ISAXAttributes*) {
    return S_OK;
}
HRESULT CSaxHandler::endElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::characters(const wchar_t*, INT) { return S_OK; }
HRESULT CSaxHandler::ignorableWhitespace(const wchar_t*, INT) { return S_OK; }
HRESULT CSaxHandler::processingInstruction(const wchar_t*, INT, const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::skippedEntity(const wchar_t*, INT) { return S_OK; }

HRESULT CSaxHandler::EscapeEntity(BSTR* text) {
    if (text == nullptr) return E_POINTER;
    if (SysStringLen(*text) == 0) return S_OK;
    try {
        CXString escaped(*text, static_cast<int>(SysStringLen(*text)));
        escaped.Replace(L"&", L"&amp;");
        escaped.Replace(L"<", L"&lt;");
        escaped.Replace(L">", L"&gt;");
        escaped.Replace(L"\"", L"&quot;");
        escaped.Replace(L"'", L"&apos;");
        SysFreeString(*text);
        *text = SysAllocStringLen(escaped, static_cast<UINT>(escaped.GetLength()));
        if (*text == nullptr) THROW_COM(E_OUTOFMEMORY, L"CSaxHandler::EscapeEntity", "");
        return S_OK;
    } catch (const ZorunComException& e) {
        return e.GetHresult();
    }
}

namespace {

// Converts text and hands the bytes to `write`, freeing the buffer on every path.
template <class Write>
HRESULT ConvertAndWrite(CXString* text, Write write) {
    try {
        CWideToUTF8 converter(text);
        BYTE* data = nullptr;
        DWORD size = 0;
        HRESULT hr = converter.GetBuffer(&data, &size);
        if (SUCCEEDED(hr)) hr = write(data, size);
        return hr;  // the converter frees its buffer
    } catch (const ZorunComException& e) {
        return e.GetHresult();
    }
}

}  // namespace

HRESULT CSaxHandler::WriteToPrintStream(CXString* text, IPrintWriteStream* stream) {
    if (text == nullptr) return E_POINTER;
    if (stream == nullptr) return E_POINTER;
    return ConvertAndWrite(text, [stream](BYTE* data, DWORD size) {
        ULONG written = 0;
        return stream->WriteBytes(data, size, &written);
    });
}

HRESULT CSaxHandler::WriteToPrintStream(CXString* text, ISequentialStream* stream) {
    if (text == nullptr) return E_POINTER;
    if (stream == nullptr) return E_POINTER;
    return ConvertAndWrite(text, [stream](BYTE* data, DWORD size) {
        ULONG written = 0;
        return stream->Write(data, size, &written);
    });
}
