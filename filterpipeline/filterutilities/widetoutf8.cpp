// widetoutf8.cpp: wide to UTF-8 through WideCharToMultiByte(CP_UTF8).
#include "filterpipeline/filterutilities/widetoutf8.h"

#include <new>

#include "platform/win32/stringapiset.h"
#include "support/errorframe/errorframe.h"

CWideToUTF8::CWideToUTF8(CXString* source) : m_source(source) {
    if (source == nullptr) THROW_COM(E_POINTER, L"CWideToUTF8::CWideToUTF8", "");
}

CWideToUTF8::~CWideToUTF8() { FreeBuffer(); }

void CWideToUTF8::FreeBuffer() {
    delete[] m_buffer;
    m_buffer = nullptr;
}

HRESULT CWideToUTF8::GetBuffer(BYTE** data, DWORD* size) {
    if (data == nullptr || size == nullptr) return E_POINTER;
    try {
        FreeBuffer();
        const wchar_t* text = *m_source;
        const int length = m_source->GetLength();
        int needed = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
        if (needed < 1) return E_FAIL;  // an empty source fails on purpose
        m_buffer = new (std::nothrow) BYTE[static_cast<std::size_t>(needed)];
        if (m_buffer == nullptr) return E_OUTOFMEMORY;
        int converted = WideCharToMultiByte(CP_UTF8, 0, text, length,
                                            reinterpret_cast<char*>(m_buffer), needed, nullptr,
                                            nullptr);
        if (converted < 1) return E_FAIL;
        *data = m_buffer;
        *size = static_cast<DWORD>(converted);
        return S_OK;
    } catch (const ZorunComException& e) {
        return e.GetHresult();
    }
}

HRESULT CWideToUTF8::WriteToPrintStream(IPrintWriteStream* stream) {
    if (stream == nullptr) return E_POINTER;
    try {
        BYTE* data = nullptr;
        DWORD size = 0;
        HRESULT hr = GetBuffer(&data, &size);
        if (FAILED(hr)) return hr;
        ULONG written = 0;  // a short write is not detected, as with the stream itself
        return stream->WriteBytes(data, size, &written);
    } catch (const ZorunComException& e) {
        return e.GetHresult();
    }
}

HRESULT CWideToUTF8::WriteToPrintStream(CXString* text, IPrintWriteStream* stream) {
    CWideToUTF8 converter(text);
    HRESULT hr = converter.WriteToPrintStream(stream);
    converter.FreeBuffer();
    return hr;
}
