// stampfilter.cpp: the stamp sample filter: its configuration, the PNG it draws by default, and
// the attachment of the resource to every page through the resource cache.
#include "filters/stamp/stampfilter.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>

#include "platform/com/unicode.h"
#include "support/errorframe/errorframe.h"

namespace {

constexpr wchar_t kFileParameter[] = L"File";
constexpr wchar_t kUriParameter[] = L"Uri";
constexpr wchar_t kDefaultUri[] = L"/Resources/Stamp/stamp.png";
constexpr ULONG kWriteBlock = 64 * 1024;

void Report(const std::string& message) {
    DbgPrint("stamp: %s\n", message.c_str());
}

// The text of a VT_BSTR parameter; false when the bag does not hold it.
bool ReadParameter(IPrintPipelinePropertyBag* bag, const wchar_t* name, std::wstring& value) {
    CComVariant variant;
    if (FAILED(bag->GetProperty(name, &variant))) return false;
    value = variant.vt == VT_BSTR && variant.bstrVal != nullptr ? variant.bstrVal : L"";
    return true;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return text;
}

// A part name this filter accepts: absolute, segments of printable ASCII other than the
// characters part names exclude, no empty, "." or ".." segment.
bool IsPartName(const std::wstring& uri) {
    if (uri.size() < 2 || uri[0] != L'/' || uri.back() == L'/') return false;
    std::wstring segment;
    for (std::size_t i = 1; i <= uri.size(); ++i) {
        const wchar_t c = i < uri.size() ? uri[i] : L'/';
        if (c == L'/') {
            if (segment.empty() || segment == L"." || segment == L".." || segment.back() == L'.') {
                return false;
            }
            segment.clear();
            continue;
        }
        if (c <= 0x20 || c >= 0x7F ||
            std::wstring_view(L"\\?#%\"<>|*:").find(c) != std::wstring_view::npos) {
            return false;
        }
        segment += c;
    }
    return true;
}

void AppendBigEndian(std::vector<unsigned char>& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

void AppendChunk(std::vector<unsigned char>& png, const char type[4],
                 const std::vector<unsigned char>& data) {
    AppendBigEndian(png, static_cast<std::uint32_t>(data.size()));
    const std::size_t typeAt = png.size();
    png.insert(png.end(), type, type + 4);
    png.insert(png.end(), data.begin(), data.end());
    const uLong crc = crc32(0L, png.data() + typeAt, static_cast<uInt>(4 + data.size()));
    AppendBigEndian(png, static_cast<std::uint32_t>(crc));
}

}  // namespace

StampFilter::StampFilter() = default;
StampFilter::~StampFilter() = default;

std::vector<unsigned char> StampFilter::MakeStampImage() {
    constexpr int kSize = 48;
    // Scanlines of RGBA pixels, each led by filter byte 0: a red ring on transparency.
    std::vector<unsigned char> raw;
    raw.reserve(kSize * (1 + kSize * 4));
    for (int y = 0; y < kSize; ++y) {
        raw.push_back(0);
        for (int x = 0; x < kSize; ++x) {
            const double dx = x + 0.5 - kSize / 2.0;
            const double dy = y + 0.5 - kSize / 2.0;
            const double distance = std::sqrt(dx * dx + dy * dy);
            const bool ring = distance >= kSize * 0.32 && distance <= kSize * 0.46;
            raw.insert(raw.end(), {200, 30, 30, static_cast<unsigned char>(ring ? 255 : 0)});
        }
    }
    uLongf packedSize = compressBound(static_cast<uLong>(raw.size()));
    std::vector<unsigned char> packed(packedSize);
    if (compress2(packed.data(), &packedSize, raw.data(), static_cast<uLong>(raw.size()),
                  Z_BEST_COMPRESSION) != Z_OK) {
        throw std::bad_alloc();
    }
    packed.resize(packedSize);

    std::vector<unsigned char> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<unsigned char> header;
    AppendBigEndian(header, kSize);
    AppendBigEndian(header, kSize);
    header.insert(header.end(), {8, 6, 0, 0, 0});  // 8 bits, RGBA, deflate, no filter, no interlace
    AppendChunk(png, "IHDR", header);
    AppendChunk(png, "IDAT", packed);
    AppendChunk(png, "IEND", {});
    return png;
}

HRESULT StampFilter::Configure(std::string& error) {
    std::wstring file;
    std::wstring uri;
    const bool hasFile = ReadParameter(m_pPropertyBag, kFileParameter, file) && !file.empty();
    const bool hasUri = ReadParameter(m_pPropertyBag, kUriParameter, uri) && !uri.empty();

    if (!hasFile) {
        m_bytes = MakeStampImage();
        m_isFont = false;
        m_uri = kDefaultUri;
    } else {
        const std::filesystem::path path(platform::WideToUtf8(file));
        const std::string extension = Lower(path.extension().string());
        if (extension == ".ttf" || extension == ".otf") {
            m_isFont = true;
        } else if (extension == ".png" || extension == ".jpg" || extension == ".jpeg" ||
                   extension == ".tif" || extension == ".tiff" || extension == ".wdp" ||
                   extension == ".jxr") {
            m_isFont = false;
        } else {
            error = "File " + path.string() +
                    " is neither an image (.png, .jpg, .tif, .wdp) nor a font (.ttf, .otf)";
            return E_INVALIDARG;
        }
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            error = "File " + path.string() + " cannot be opened";
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        }
        in.seekg(0, std::ios::end);
        const std::streamoff size = in.tellg();
        if (size < 0 || static_cast<std::uint64_t>(size) > kMaxResourceBytes) {
            error = "File " + path.string() + " is larger than 64 MiB";
            return E_INVALIDARG;
        }
        in.seekg(0, std::ios::beg);
        m_bytes.resize(static_cast<std::size_t>(size));
        if (size > 0 && !in.read(reinterpret_cast<char*>(m_bytes.data()), size)) {
            error = "File " + path.string() + " cannot be read";
            return STG_E_READFAULT;
        }
        if (m_bytes.empty()) {
            error = "File " + path.string() + " is empty";
            return E_INVALIDARG;
        }
        m_uri = L"/Resources/Stamp/" + path.filename().wstring();
    }
    if (hasUri) m_uri = uri;
    if (!IsPartName(m_uri)) {
        error = "Uri " + platform::WideToUtf8(m_uri) + " is not an absolute part name";
        return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT StampFilter::InitializeFilter(IInterFilterCommunicator* communicator,
                                      IPrintPipelinePropertyBag* propertyBag,
                                      IPrintPipelineManagerControl* managerControl) {
    HRESULT hr = XpsFilterBase::InitializeFilter(communicator, propertyBag, managerControl);
    if (FAILED(hr)) return hr;
    try {
        std::string error;
        hr = Configure(error);
        if (FAILED(hr)) Report(error);
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    } catch (const std::exception& e) {
        Report(e.what());
        hr = E_INVALIDARG;
    }
    return hr;
}

HRESULT StampFilter::WriteData(IUnknown*, IPrintWriteStream* stream) {
    if (stream == nullptr) return E_POINTER;
    std::size_t done = 0;
    while (done < m_bytes.size()) {
        const ULONG block =
            static_cast<ULONG>(std::min<std::size_t>(kWriteBlock, m_bytes.size() - done));
        ULONG written = 0;
        RETURN_IF_FAILED(stream->WriteBytes(m_bytes.data() + done, block, &written));
        if (written == 0) return STG_E_WRITEFAULT;
        done += written;
    }
    return S_OK;
}

HRESULT StampFilter::GetKeyName(BSTR* key) {
    if (key == nullptr) return E_POINTER;
    // One resource per filter: its part name identifies it within the job.
    return CComBSTR((L"stamp:" + m_uri).c_str()).CopyTo(key);
}

HRESULT StampFilter::GetResourceUri(BSTR* uri) {
    if (uri == nullptr) return E_POINTER;
    return CComBSTR(m_uri.c_str()).CopyTo(uri);
}

REFIID StampFilter::GetPartInterfaceId() {
    return m_isFont ? IID_IPartFont : IID_IPartImage;
}

HRESULT StampFilter::OnFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    RETURN_IF_FAILED(m_resourceCache.WriteResource(m_pXpsConsumer, page, this));
    return XpsFilterBase::OnFixedPage(page);
}

HRESULT CreateStampFilter(IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = nullptr;
    try {
        *filter = new StampFilter();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}
