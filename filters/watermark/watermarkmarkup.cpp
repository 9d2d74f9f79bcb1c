// watermarkmarkup.cpp: builds the watermark's markup and reads bitmap headers.
#include "filters/watermark/watermarkmarkup.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cwchar>

namespace watermark {

namespace {

constexpr double kPi = 3.14159265358979323846;

std::wstring Escape(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (const wchar_t c : text) {
        switch (c) {
            case L'&':
                out += L"&amp;";
                break;
            case L'<':
                out += L"&lt;";
                break;
            case L'>':
                out += L"&gt;";
                break;
            case L'"':
                out += L"&quot;";
                break;
            case L'\'':
                out += L"&apos;";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

unsigned Big16(const std::vector<unsigned char>& b, std::size_t at) {
    return (unsigned{b[at]} << 8) | b[at + 1];
}
unsigned Big32(const std::vector<unsigned char>& b, std::size_t at) {
    return (Big16(b, at) << 16) | Big16(b, at + 2);
}

bool ReadPng(const std::vector<unsigned char>& b, ImageInfo& info) {
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (b.size() < 33 || !std::equal(kSignature, kSignature + 8, b.begin())) return false;
    if (Big32(b, 8) != 13 || b[12] != 'I' || b[13] != 'H' || b[14] != 'D' || b[15] != 'R') {
        return false;
    }
    info.width = Big32(b, 16);
    info.height = Big32(b, 20);
    // A pHYs chunk in metres gives the resolution.
    std::size_t at = 33;
    while (at + 12 <= b.size()) {
        const unsigned length = Big32(b, at);
        if (length > b.size() - at - 12) break;
        if (b[at + 4] == 'p' && b[at + 5] == 'H' && b[at + 6] == 'Y' && b[at + 7] == 's' &&
            length == 9 && b[at + 16] == 1) {
            const unsigned x = Big32(b, at + 8);
            const unsigned y = Big32(b, at + 12);
            if (x > 0 && y > 0) {
                info.dpiX = x * 0.0254;
                info.dpiY = y * 0.0254;
            }
        }
        if (b[at + 4] == 'I' && b[at + 5] == 'D' && b[at + 6] == 'A' && b[at + 7] == 'T') break;
        at += 12 + std::size_t{length};
    }
    info.contentType = L"image/png";
    info.extension = L".png";
    return true;
}

bool ReadJpeg(const std::vector<unsigned char>& b, ImageInfo& info) {
    if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) return false;
    std::size_t at = 2;
    while (at + 4 <= b.size()) {
        if (b[at] != 0xFF) return false;
        const unsigned marker = b[at + 1];
        if (marker == 0xFF) {
            ++at;
            continue;
        }
        if (marker == 0xD8 || (marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {
            at += 2;
            continue;
        }
        const unsigned length = Big16(b, at + 2);
        if (length < 2 || at + 2 + length > b.size()) return false;
        if (marker == 0xE0 && length >= 16 && b[at + 4] == 'J' && b[at + 5] == 'F' &&
            b[at + 6] == 'I' && b[at + 7] == 'F' && b[at + 8] == 0) {
            const unsigned units = b[at + 11];
            const unsigned x = Big16(b, at + 12);
            const unsigned y = Big16(b, at + 14);
            if (x > 0 && y > 0 && (units == 1 || units == 2)) {
                info.dpiX = units == 1 ? x : x * 2.54;
                info.dpiY = units == 1 ? y : y * 2.54;
            }
        }
        const bool frame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (frame) {
            if (length < 7) return false;
            info.height = Big16(b, at + 5);
            info.width = Big16(b, at + 7);
            info.contentType = L"image/jpeg";
            info.extension = L".jpg";
            return true;
        }
        at += 2 + length;
    }
    return false;
}

bool ReadTiff(const std::vector<unsigned char>& b, ImageInfo& info) {
    if (b.size() < 8) return false;
    const bool little = b[0] == 'I' && b[1] == 'I';
    if (!little && !(b[0] == 'M' && b[1] == 'M')) return false;
    auto u16 = [&](std::size_t at) -> unsigned {
        return little ? (unsigned{b[at + 1]} << 8 | b[at]) : Big16(b, at);
    };
    auto u32 = [&](std::size_t at) -> unsigned {
        return little ? (u16(at + 2) << 16 | u16(at)) : Big32(b, at);
    };
    if (u16(2) != 42) return false;
    const std::size_t ifd = u32(4);
    if (ifd + 2 > b.size()) return false;
    const unsigned entries = u16(ifd);
    if (ifd + 2 + std::size_t{entries} * 12 > b.size()) return false;
    for (unsigned i = 0; i < entries; ++i) {
        const std::size_t entry = ifd + 2 + std::size_t{i} * 12;
        const unsigned tag = u16(entry);
        const unsigned type = u16(entry + 2);
        const unsigned value = type == 3 ? u16(entry + 8) : u32(entry + 8);
        if (tag == 256) info.width = value;
        if (tag == 257) info.height = value;
    }
    info.contentType = L"image/tiff";
    info.extension = L".tif";
    return info.width > 0 && info.height > 0;
}

}  // namespace

bool ReadImageInfo(const std::vector<unsigned char>& bytes, ImageInfo& info) {
    info = ImageInfo();
    const bool read = ReadPng(bytes, info) || ReadJpeg(bytes, info) || ReadTiff(bytes, info);
    return read && info.width > 0 && info.height > 0 && info.width < (1u << 24) &&
           info.height < (1u << 24);
}

std::wstring Number(double value) {
    if (!std::isfinite(value)) value = 0.0;
    wchar_t buffer[64];
    std::swprintf(buffer, 64, L"%.4f", value);
    std::wstring text(buffer);
    while (!text.empty() && text.back() == L'0') text.pop_back();
    if (!text.empty() && text.back() == L'.') text.pop_back();
    if (text == L"-0") text = L"0";
    return text;
}

std::wstring DrawableText(const wchar_t* text) {
    std::wstring out;
    if (text == nullptr) return out;
    for (const wchar_t* c = text; *c != L'\0'; ++c) {
        const auto code = static_cast<std::uint32_t>(*c);
        if (code == L'\t' || code == L'\n' || code == L'\r') {
            out += L' ';
        } else if (code < 0x20 || (code >= 0xD800 && code <= 0xDFFF) || code == 0xFFFE ||
                   code == 0xFFFF || code > 0x10FFFF) {
            continue;
        } else {
            out += *c;
        }
    }
    return out;
}

double EmSize(const PrintSchema::Watermark::WatermarkData& data) {
    const double points = data.text.fontSizePoints > 0 ? data.text.fontSizePoints : 72.0;
    return std::clamp(points * 96.0 / 72.0, 1.0, 4000.0);
}

std::wstring TextFill(const PrintSchema::Watermark::WatermarkData& data) {
    const long density = std::clamp<long>(data.density, 0, 100);
    const unsigned alpha = static_cast<unsigned>(std::lround(density * 255.0 / 100.0));
    std::wstring rgb = L"000000";
    const wchar_t* color = data.text.color;
    if (color != nullptr && color[0] == L'#' && std::wcslen(color) == 7 &&
        std::wcsspn(color + 1, L"0123456789abcdefABCDEF") == 6) {
        rgb = color + 1;
    }
    wchar_t buffer[16];
    std::swprintf(buffer, 16, L"#%02X", alpha);
    return buffer + rgb;
}

std::wstring TextMarkup(const PrintSchema::Watermark::WatermarkData& data, double pageWidth,
                        double pageHeight, const std::wstring& prefix,
                        const std::wstring& fontUri) {
    std::wstring text = DrawableText(data.text.text);
    if (text.empty() || text.find_first_not_of(L' ') == std::wstring::npos) return {};
    // A UnicodeString that starts with '{' needs the "{}" escape.
    if (text[0] == L'{') text.insert(0, L"{}");
    const double originX = pageWidth / 2.0 + data.xOffset;
    const double originY = pageHeight / 2.0 + data.yOffset;
    std::wstring markup = L"<" + prefix + L"Canvas><" + prefix + L"Glyphs FontUri=\"" +
                          Escape(fontUri) + L"\" FontRenderingEmSize=\"" + Number(EmSize(data)) +
                          L"\" OriginX=\"" + Number(originX) + L"\" OriginY=\"" + Number(originY) +
                          L"\" Fill=\"" + TextFill(data) + L"\"";
    const bool italic = data.text.font.lfItalic != 0;
    const bool bold = data.text.font.lfWeight >= 600;
    if (bold || italic) {
        markup += L" StyleSimulations=\"";
        markup += bold && italic ? L"BoldItalicSimulation"
                  : bold         ? L"BoldSimulation"
                                 : L"ItalicSimulation";
        markup += L"\"";
    }
    const int escapement = data.text.font.lfEscapement % 3600;
    if (escapement != 0) {
        // Escapement turns the baseline counter-clockwise; the page's y axis points down.
        const double angle = -escapement / 10.0 * kPi / 180.0;
        const double c = std::cos(angle);
        const double s = std::sin(angle);
        const double dx = originX - originX * c + originY * s;
        const double dy = originY - originX * s - originY * c;
        markup += L" RenderTransform=\"" + Number(c) + L"," + Number(s) + L"," + Number(-s) + L"," +
                  Number(c) + L"," + Number(dx) + L"," + Number(dy) + L"\"";
    }
    markup += L" UnicodeString=\"" + Escape(text) + L"\"/></" + prefix + L"Canvas>";
    return markup;
}

Box ImageBox(const PrintSchema::Watermark::WatermarkData& data, const ImageInfo& image,
             double pageWidth, double pageHeight) {
    const double scale = data.bitmapScale > 0.0f ? data.bitmapScale : 1.0;
    Box box;
    box.width = image.width * 96.0 / image.dpiX * scale;
    box.height = image.height * 96.0 / image.dpiY * scale;
    box.x = pageWidth / 2.0 + data.xOffset - box.width / 2.0;
    box.y = pageHeight / 2.0 + data.yOffset - box.height / 2.0;
    return box;
}

std::wstring ImageMarkup(const PrintSchema::Watermark::WatermarkData& data, const ImageInfo& image,
                         double pageWidth, double pageHeight, const std::wstring& prefix,
                         const std::wstring& imageUri) {
    const Box box = ImageBox(data, image, pageWidth, pageHeight);
    if (!(box.width > 0.0) || !(box.height > 0.0)) return {};
    const double opacity = std::clamp<long>(data.density, 0, 100) / 100.0;
    const std::wstring x0 = Number(box.x);
    const std::wstring y0 = Number(box.y);
    const std::wstring x1 = Number(box.x + box.width);
    const std::wstring y1 = Number(box.y + box.height);
    return L"<" + prefix + L"Canvas Opacity=\"" + Number(opacity) + L"\"><" + prefix +
           L"Path Data=\"M " + x0 + L"," + y0 + L" L " + x1 + L"," + y0 + L" " + x1 + L"," + y1 +
           L" " + x0 + L"," + y1 + L" Z\"><" + prefix + L"Path.Fill><" + prefix +
           L"ImageBrush ImageSource=\"" + Escape(imageUri) + L"\" Viewbox=\"0,0," +
           Number(image.width * 96.0 / image.dpiX) + L"," +
           Number(image.height * 96.0 / image.dpiY) + L"\" ViewboxUnits=\"Absolute\" Viewport=\"" +
           x0 + L"," + y0 + L"," + Number(box.width) + L"," + Number(box.height) +
           L"\" ViewportUnits=\"Absolute\" TileMode=\"None\"/></" + prefix + L"Path.Fill></" +
           prefix + L"Path></" + prefix + L"Canvas>";
}

}  // namespace watermark
