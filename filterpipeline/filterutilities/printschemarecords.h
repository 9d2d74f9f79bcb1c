// printschemarecords.h: the plain value records the typed ticket view fills (orientation,
// media size, output paper size, imageable area, n-up, page scaling, binding, watermark) and the
// keyword enumerations their fields hold. Lengths are in micrometres unless a field says
// otherwise. Fields whose defaults are data-model value ids hold DataModelIds::tagValueEnum
// values (support/utilities/datamodelids.h), named in the comments.
#pragma once

#include "platform/com/atl.h"
#include "platform/com/wintypes.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/cxstring.h"

namespace PrintSchema {

namespace PageOrientation {

// The psk:PageOrientation options; the value is the option's position in the keyword table.
enum EOrientationOption : int {
    Landscape = 0,
    Portrait = 1,
    ReverseLandscape = 2,
    ReversePortrait = 3,
};

}  // namespace PageOrientation

namespace PageMediaSize {

struct PageMediaSizeData {
    LONG width = 215900;   // 8.5 inches
    LONG height = 279400;  // 11 inches
};

}  // namespace PageMediaSize

namespace OutputPaperSize {

struct OutputPaperSizeData {
    LONG width = 215900;
    LONG height = 279400;
    // The data-model value id of the output paper; 5001 (ValueAny) when none is chosen.
    LONG paperSize = 5001;
    // True when the driver's settings name an output paper other than "any": width and height
    // then are that paper's.
    bool fitToOutputPaper = false;
};

}  // namespace OutputPaperSize

namespace PageImageableSize {

struct PageImageableData {
    LONG imageableSizeWidth = 0;
    LONG imageableSizeHeight = 0;
    LONG originWidth = 0;
    LONG originHeight = 0;
    LONG extentWidth = 0;
    LONG extentHeight = 0;
};

}  // namespace PageImageableSize

namespace NUp {

// Which n-up feature a record describes.
enum ENUpFeature : int {
    JobNUpAllDocumentsContiguously = 0,
    DocumentNUp = 1,
};

// The psk:PresentationDirection options.
enum EPresentationDirection : int {
    RightBottom = 0,
    BottomRight = 1,
    LeftBottom = 2,
    BottomLeft = 3,
    RightTop = 4,
    TopRight = 5,
    LeftTop = 6,
    TopLeft = 7,
};

struct NUpData {
    LONG feature = JobNUpAllDocumentsContiguously;
    LONG pagesPerSheet = 1;
    LONG presentationDirection = RightBottom;
    // The driver's page order on a sheet: 7611 (ValueNUpOrderRightThenDown).
    LONG pageOrder = 7611;
    // The driver's edge-to-edge setting: 8010 (ValueEdgeToEdgeOff).
    LONG edgeToEdge = 8010;
};

}  // namespace NUp

namespace PageScaling {

// The psk:PageScaling options.
enum EScalingOption : int {
    Custom = 0,
    CustomSquare = 1,
    FitApplicationBleedSizeToPageImageableSize = 2,
    FitApplicationContentSizeToPageImageableSize = 3,
    FitApplicationMediaSizeToPageImageableSize = 4,
    FitApplicationMediaSizeToPageMediaSize = 5,
    None = 6,
};

// The psk:ScaleOffsetAlignment options (where a scaled page is anchored).
enum EScalingAnchor : int {
    BottomCenter = 0,
    BottomLeft = 1,
    BottomRight = 2,
    Center = 3,
    LeftCenter = 4,
    RightCenter = 5,
    TopCenter = 6,
    TopLeft = 7,
    TopRight = 8,
};

struct PageScalingData {
    LONG option = None;
    LONG offsetWidth = 0;
    LONG offsetHeight = 0;
    LONG scaleWidth = 100;  // percent
    LONG scaleHeight = 100;
    LONG anchor = Center;
    // TRUE when the driver's scaling mode asks for scaling (it is not 7261, ValueScalingModeNone)
    // and no output-paper setting takes it over.
    BOOL scalingRequested = FALSE;
    // The driver's scaling mode: 7261 (ValueScalingModeNone).
    LONG scalingMode = 7261;
    // What a fitted page is scaled to: 5600 (ValueScalingFitBasisPaper).
    LONG fitBasis = 5600;
};

}  // namespace PageScaling

namespace Binding {

// Which binding feature a record describes.
enum EBindingFeature : int {
    JobBindAllDocuments = 0,
    DocumentBinding = 1,
};

// The psk:JobBindAllDocuments / psk:DocumentBinding options.
enum EBindingOption : int {
    Bale = 0,
    BindBottom = 1,
    BindLeft = 2,
    BindRight = 3,
    BindTop = 4,
    Booklet = 5,
    EdgeStitchBottom = 6,
    EdgeStitchLeft = 7,
    EdgeStitchRight = 8,
    EdgeStitchTop = 9,
    Fold = 10,
    JogOffset = 11,
    Trim = 12,
    None = 13,
};

struct BindingData {
    LONG feature = JobBindAllDocuments;
    LONG bindingOption = None;
    LONG gutter = 0;  // hundredths of a millimetre
    LONG creep = 0;   // thousandths of an inch
};

}  // namespace Binding

namespace Watermark {

// The kinds of watermark ("Watermark Type" in the watermark settings file).
enum EWatermarkType : int {
    WatermarkTypeText = 0,              // the text of the "Text" key
    WatermarkTypeTextAndTimeStamp = 1,  // that text followed by the date and time of printing
    WatermarkTypeBitmap = 2,            // the bitmap file of the "BmpFile" key
    WatermarkTypeNone = 4,              // no watermark, or none read yet
};

// How the text of a watermark is drawn.
struct WatermarkTextData {
    WatermarkTextData();

    // Height in device units (negative: character height), escapement in tenths of a degree,
    // weight, italic, underline, strike-out, character set and face name from the settings.
    LOGFONTW font;
    LONG fontSizePoints = 72;  // the height as the settings give it, in points
    CComBSTR text;             // what is drawn
    CXString color = L"#000000";
};

// The bitmap of a bitmap watermark.
struct WatermarkImageData {
    CComBSTR bitmapPath;  // the file, as the settings name it
    // The bitmap's size in pixels and its resolution, for whoever loads it (this library does
    // not open the file).
    LONG pixelWidth = 0;
    LONG pixelHeight = 0;
    float dpiX = 96.0f;
    float dpiY = 96.0f;
};

// Which watermark is printed and how. Lengths are in device-independent pixels (1/96 inch).
struct WatermarkData {
    LONG type = WatermarkTypeNone;  // EWatermarkType
    LONG number = 0;                // the watermark's number: its section in the settings file
    BOOL overContent = FALSE;       // drawn over the page content rather than behind it
    // The paper the watermark was designed on ("PaperX_in10thMm", "PaperY_in10thMm").
    float referencePaperWidth = 816.0f;
    float referencePaperHeight = 1056.0f;
    // Offset of the watermark from the centre of the page ("XOffset", "YOffset").
    double xOffset = 0.0;
    double yOffset = 0.0;
    // The page the watermark is drawn on: the view's page media size.
    double pageWidth = 816.0;
    double pageHeight = 1056.0;
    LONG density = 25;  // percent of full colour ("DENSITY")
    // The printer resolution the font height was converted with (dots per inch; 0 until read).
    LONG resolutionX = 0;
    LONG resolutionY = 0;
    // The date and time format of a time-stamp watermark ("TimeStampFormat", an
    // XpsFilterPrintTicketWatermarkImpl::ETimeStampFormat).
    LONG timeStampFormat = 1;
    WatermarkTextData text;
    WatermarkImageData image;
    // The bitmap's scale factor ("Scale"; a value of 0 in the settings means 1.0); 0 until a
    // bitmap watermark is read.
    float bitmapScale = 0.0f;
};

inline WatermarkTextData::WatermarkTextData() : font{} {
    font.lfWeight = FW_NORMAL;
    font.lfOutPrecision = OUT_TT_ONLY_PRECIS;
    font.lfQuality = CLEARTYPE_QUALITY;
    const char16_t face[] = u"Arial";
    for (int i = 0; face[i] != u'\0'; ++i) font.lfFaceName[i] = face[i];
}

}  // namespace Watermark

}  // namespace PrintSchema
