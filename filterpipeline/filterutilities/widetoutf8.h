// widetoutf8.h: CWideToUTF8 converts one wide string to a UTF-8 byte buffer it owns (no BOM, no
// terminating NUL) and writes it to a print write stream. Two passes: a size query, then the
// conversion into an exactly sized buffer.
#pragma once

#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"
#include "support/utilities/cxstring.h"

class CWideToUTF8 {
public:
    // A null source throws ZorunComException(E_POINTER).
    explicit CWideToUTF8(CXString* source);
    // Copies share the source and the buffer as they stand (both will free it): do not copy a
    // converter that holds a buffer.
    CWideToUTF8(const CWideToUTF8&) = default;
    CWideToUTF8& operator=(const CWideToUTF8&) = default;
    virtual ~CWideToUTF8();

    // Converts the source. An empty source is E_FAIL. The buffer lives until the next call,
    // FreeBuffer or the destructor.
    HRESULT GetBuffer(BYTE** data, DWORD* size);
    // Converts and writes the bytes with one WriteBytes call.
    HRESULT WriteToPrintStream(IPrintWriteStream* stream);
    // One-shot conversion and write; a null text throws as the constructor does.
    static HRESULT WriteToPrintStream(CXString* text, IPrintWriteStream* stream);

private:
    void FreeBuffer();

    CXString* m_source;
    BYTE* m_buffer = nullptr;
};
