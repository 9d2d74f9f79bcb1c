// saxhandler.cpp: the do-nothing content handler and its re-serialisation helpers.
#include "filterpipeline/filterutilities/saxhandler.h"

#include <cwchar>
#include <string>

#include "filterpipeline/filterutilities/widetoutf8.h"
#include "support/errorframe/errorframe.h"

CSaxHandler::CSaxHandler() : CUnknown<ISAXContentHandler>(IID_ISAXContentHandler) {}

HRESULT CSaxHandler::putDocumentLocator(ISAXLocator*) {
    return S_OK;
}
HRESULT CSaxHandler::startDocument() {
    return S_OK;
}
HRESULT CSaxHandler::endDocument() {
    return S_OK;
}
HRESULT CSaxHandler::startPrefixMapping(const wchar_t*, INT, const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::endPrefixMapping(const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::startElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT,
                                  ISAXAttributes*) {
    return S_OK;
}
HRESULT CSaxHandler::endElement(const wchar_t*, INT, const wchar_t*, INT, const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::characters(const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::ignorableWhitespace(const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::processingInstruction(const wchar_t*, INT, const wchar_t*, INT) {
    return S_OK;
}
HRESULT CSaxHandler::skippedEntity(const wchar_t*, INT) {
    return S_OK;
}

namespace {

// The entity of each character EscapeEntity replaces; null for the rest. Replacing all five in
// one pass gives what replacing them one after another, ampersands first, gives: an entity
// added for one character never contains another of the five except its own leading ampersand.
const wchar_t* EntityOf(wchar_t c) {
    switch (c) {
        case L'&':
            return L"&amp;";
        case L'<':
            return L"&lt;";
        case L'>':
            return L"&gt;";
        case L'"':
            return L"&quot;";
        case L'\'':
            return L"&apos;";
        default:
            return nullptr;
    }
}

}  // namespace

HRESULT CSaxHandler::EscapeEntity(BSTR* text) {
    if (text == nullptr) return E_POINTER;
    const UINT length = SysStringLen(*text);
    if (length == 0) return S_OK;
    try {
        // Measure, then build the escaped text in one allocation.
        std::size_t escapedLength = 0;
        for (UINT i = 0; i < length; ++i) {
            const wchar_t* entity = EntityOf((*text)[i]);
            escapedLength += entity != nullptr ? std::wcslen(entity) : 1;
        }
        std::wstring escaped;
        escaped.reserve(escapedLength);
        for (UINT i = 0; i < length; ++i) {
            const wchar_t c = (*text)[i];
            const wchar_t* entity = EntityOf(c);
            if (entity != nullptr) {
                escaped += entity;
            } else {
                escaped += c;
            }
        }
        // The result is allocated as a plain string: text after an embedded NUL is dropped.
        SysFreeString(*text);
        *text = SysAllocString(escaped.c_str());
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
