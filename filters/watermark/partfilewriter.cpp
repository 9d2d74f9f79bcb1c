// partfilewriter.cpp: writes an in-memory resource into a new font or image part.
#include "filters/watermark/partfilewriter.h"

#include <algorithm>
#include <fstream>

#include "platform/com/atl.h"
#include "platform/printpipeline/filterpipeline.h"
#include "support/errorframe/errorframe.h"

namespace {
constexpr std::size_t kWriteBlock = 64 * 1024;
}

PartFileWriter::PartFileWriter(std::wstring key, std::wstring uri, const IID& partKind,
                               std::wstring contentType, std::vector<unsigned char> bytes)
    : m_key(std::move(key)),
      m_uri(std::move(uri)),
      m_partKind(partKind),
      m_contentType(std::move(contentType)),
      m_bytes(std::move(bytes)) {}

bool PartFileWriter::ReadFile(const std::string& path, std::size_t limit,
                              std::vector<unsigned char>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size <= 0 || static_cast<std::uint64_t>(size) > limit) return false;
    in.seekg(0, std::ios::beg);
    bytes.resize(static_cast<std::size_t>(size));
    return static_cast<bool>(in.read(reinterpret_cast<char*>(bytes.data()), size));
}

HRESULT PartFileWriter::WriteData(IUnknown* newPart, IPrintWriteStream* stream) {
    if (newPart == nullptr || stream == nullptr) return E_POINTER;
    ++m_writeCount;
    if (m_partKind == IID_IPartFont) {
        CComQIPtr<IPartFont> font(newPart);
        if (font == nullptr) return E_NOINTERFACE;
        RETURN_IF_FAILED(font->SetFontContent(m_contentType.c_str()));
        RETURN_IF_FAILED(font->SetFontOptions(Font_Normal));
    } else if (m_partKind == IID_IPartImage) {
        CComQIPtr<IPartImage> image(newPart);
        if (image == nullptr) return E_NOINTERFACE;
        RETURN_IF_FAILED(image->SetImageContent(m_contentType.c_str()));
    }
    std::size_t done = 0;
    while (done < m_bytes.size()) {
        const ULONG block = static_cast<ULONG>(std::min(kWriteBlock, m_bytes.size() - done));
        ULONG written = 0;
        RETURN_IF_FAILED(stream->WriteBytes(m_bytes.data() + done, block, &written));
        if (written == 0) return STG_E_WRITEFAULT;
        done += written;
    }
    return S_OK;
}

HRESULT PartFileWriter::GetKeyName(BSTR* key) {
    if (key == nullptr) return E_POINTER;
    return CComBSTR(m_key.c_str()).CopyTo(key);
}

HRESULT PartFileWriter::GetResourceUri(BSTR* uri) {
    if (uri == nullptr) return E_POINTER;
    return CComBSTR(m_uri.c_str()).CopyTo(uri);
}

REFIID PartFileWriter::GetPartInterfaceId() {
    return m_partKind;
}
