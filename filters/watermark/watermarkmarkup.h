// watermarkmarkup.h: the fixed-page markup that draws a watermark — a Canvas holding a Glyphs
// element for a text watermark or a Path filled with an ImageBrush for a bitmap — built from
// the watermark settings and the page's size, and the size of the bitmap files it can place.
// docs/watermarkfilter.md describes how each setting becomes markup.
#pragma once

#include <string>
#include <vector>

#include "filterpipeline/filterutilities/printschemarecords.h"

namespace watermark {

// Where the watermark is drawn, in the page's units (1/96 inch).
struct Box {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;
};

// A bitmap file's format and size, read from its header.
struct ImageInfo {
    std::wstring contentType;  // image/png, image/jpeg or image/tiff
    std::wstring extension;    // .png, .jpg, .tif
    unsigned width = 0;        // pixels
    unsigned height = 0;
    double dpiX = 96.0;  // resolution the file states (96 when it states none)
    double dpiY = 96.0;
};

// Reads the header of a PNG, JPEG or TIFF file; false for anything else or a damaged header.
bool ReadImageInfo(const std::vector<unsigned char>& bytes, ImageInfo& info);

// The text to draw: characters XML cannot carry (controls other than tab, unpaired
// surrogates, U+FFFE, U+FFFF) are dropped; tabs and line breaks become spaces.
std::wstring DrawableText(const wchar_t* text);

// The font size in page units for a text watermark: the settings' points at 96/72, at least 1.
double EmSize(const PrintSchema::Watermark::WatermarkData& data);

// The Fill of a text watermark: "#AARRGGBB" with the density (0..100 percent) as alpha.
std::wstring TextFill(const PrintSchema::Watermark::WatermarkData& data);

// The text watermark: <Canvas><Glyphs .../></Canvas> with element names prefixed by `prefix`
// ("" or "x:"). The baseline starts at the page centre moved by the offsets, turned by the
// escapement around that point. Empty when there is nothing to draw.
std::wstring TextMarkup(const PrintSchema::Watermark::WatermarkData& data, double pageWidth,
                        double pageHeight, const std::wstring& prefix, const std::wstring& fontUri);

// The rectangle a bitmap watermark covers: the image at its own resolution times the scale,
// centred on the page centre moved by the offsets.
Box ImageBox(const PrintSchema::Watermark::WatermarkData& data, const ImageInfo& image,
             double pageWidth, double pageHeight);

// The bitmap watermark: <Canvas Opacity=density><Path Data=box><Path.Fill><ImageBrush .../>.
std::wstring ImageMarkup(const PrintSchema::Watermark::WatermarkData& data, const ImageInfo& image,
                         double pageWidth, double pageHeight, const std::wstring& prefix,
                         const std::wstring& imageUri);

// A number as XPS markup writes it: fixed notation, at most 4 decimals, no trailing zeros.
std::wstring Number(double value);

}  // namespace watermark
