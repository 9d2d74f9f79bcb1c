// partfilewriter.h: PartFileWriter, a resource writer for the filter's resource cache that
// writes bytes held in memory (a font or an image read from a file) as one part of the output
// package, under a fixed key, part name, kind and content type.
#pragma once

#include <string>
#include <vector>

#include "filterpipeline/filterutilities/reswriter.h"

class PartFileWriter : public IResWriter {
public:
    // `partKind` is IID_IPartFont or IID_IPartImage; `contentType` is set on the new part.
    PartFileWriter(std::wstring key, std::wstring uri, const IID& partKind,
                   std::wstring contentType, std::vector<unsigned char> bytes);

    // Reads a whole file into `bytes`; false when it cannot be opened or read, is empty or
    // larger than `limit`.
    static bool ReadFile(const std::string& path, std::size_t limit,
                         std::vector<unsigned char>& bytes);

    HRESULT WriteData(IUnknown* newPart, IPrintWriteStream* stream) override;
    HRESULT GetKeyName(BSTR* key) override;
    HRESULT GetResourceUri(BSTR* uri) override;
    REFIID GetPartInterfaceId() override;

    const std::wstring& Uri() const { return m_uri; }
    // How many times WriteData ran (the cache writes a part once per job).
    int WriteCount() const { return m_writeCount; }

private:
    std::wstring m_key;
    std::wstring m_uri;
    IID m_partKind;
    std::wstring m_contentType;
    std::vector<unsigned char> m_bytes;
    int m_writeCount = 0;
};
