// widetoutf8.cpp: wide to UTF-8 with WideCharToMultiByte(CP_UTF8) semantics. Text made only of
// valid code points (the usual case) is measured and encoded here in two tight passes; text
// holding surrogate units or values beyond U+10FFFF, and the empty string, go through
// WideCharToMultiByte itself, so every input gives exactly the bytes and results it gives.
#include "filterpipeline/filterutilities/widetoutf8.h"

#include <climits>
#include <new>
#include <type_traits>

#include "platform/win32/stringapiset.h"
#include "support/errorframe/errorframe.h"

namespace {

using Unit = std::make_unsigned_t<wchar_t>;

// The UTF-8 length of text made of valid code points; -1 when it holds a surrogate unit or a
// value beyond U+10FFFF (the system converter decides those), or when the result would not fit
// an int as WideCharToMultiByte counts.
long long EncodedLength(const wchar_t* text, int length) {
    long long bytes = 0;
    for (int i = 0; i < length; ++i) {
        const Unit c = static_cast<Unit>(text[i]);
        if (c < 0x80) {
            ++bytes;
        } else if (c < 0x800) {
            bytes += 2;
        } else if (c < 0xD800 || (c > 0xDFFF && c < 0x10000)) {
            bytes += 3;
        } else if (c >= 0x10000 && c <= 0x10FFFF) {
            bytes += 4;
        } else {
            return -1;
        }
    }
    return bytes > INT_MAX ? -1 : bytes;
}

// Encodes text already measured by EncodedLength.
void Encode(const wchar_t* text, int length, BYTE* out) {
    for (int i = 0; i < length; ++i) {
        const Unit c = static_cast<Unit>(text[i]);
        if (c < 0x80) {
            *out++ = static_cast<BYTE>(c);
        } else if (c < 0x800) {
            *out++ = static_cast<BYTE>(0xC0 | (c >> 6));
            *out++ = static_cast<BYTE>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            *out++ = static_cast<BYTE>(0xE0 | (c >> 12));
            *out++ = static_cast<BYTE>(0x80 | ((c >> 6) & 0x3F));
            *out++ = static_cast<BYTE>(0x80 | (c & 0x3F));
        } else {
            *out++ = static_cast<BYTE>(0xF0 | (c >> 18));
            *out++ = static_cast<BYTE>(0x80 | ((c >> 12) & 0x3F));
            *out++ = static_cast<BYTE>(0x80 | ((c >> 6) & 0x3F));
            *out++ = static_cast<BYTE>(0x80 | (c & 0x3F));
        }
    }
}

}  // namespace

CWideToUTF8::CWideToUTF8(CXString* source) : m_source(source) {
    if (source == nullptr) THROW_COM(E_POINTER, L"CWideToUTF8::CWideToUTF8", "");
}

CWideToUTF8::~CWideToUTF8() {
    FreeBuffer();
}

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
        const long long direct = length > 0 ? EncodedLength(text, length) : -1;
        int needed = direct >= 0 ? static_cast<int>(direct)
                                 : WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0,
                                                       nullptr, nullptr);
        if (needed < 1) return E_FAIL;  // an empty source fails on purpose
        m_buffer = new (std::nothrow) BYTE[static_cast<std::size_t>(needed)];
        if (m_buffer == nullptr) return E_OUTOFMEMORY;
        int converted = needed;
        if (direct >= 0) {
            Encode(text, length, m_buffer);
        } else {
            converted =
                WideCharToMultiByte(CP_UTF8, 0, text, length, reinterpret_cast<char*>(m_buffer),
                                    needed, nullptr, nullptr);
        }
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
