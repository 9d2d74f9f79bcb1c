// datamodelids.h: the driver data model's identifiers. A setting of the driver is an attribute
// named by a feature id (tagFeatureEnum); a setting whose value is one of a fixed set of choices
// holds a value id (tagValueEnum). Both are stored in the driver's private data (see
// persistentattributes.h) and in its form list, so their numbers never change.
//
// Both enumerations have a fixed 32-bit underlying type: a value id the driver creates at run
// time (a user-defined paper, a watermark number) is carried in the same type without being an
// enumerator.
#pragma once

#include <cstdint>

namespace DataModelIds {

enum tagFeatureEnum : std::int32_t {
    // Booklet: which edge the booklet is bound on (option: ValueBindingEdge...).
    FeatureBookletBindingEdge = 51,
    // What a fitted page is scaled to (option: ValueScalingFitBasis...).
    FeatureScalingFitBasis = 88,
    // The scaling percentage (integer, 100 = actual size).
    FeatureScalingPercentage = 160,
    // Where a scaled page is anchored on the sheet (option: ValueScalingAnchor...).
    FeatureScalingAnchor = 161,
    // A custom paper's dimensions (collection of FeaturePaperWidth and FeaturePaperHeight).
    FeatureCustomPaperDimensions = 164,
    // A paper size (option value, or a value id created for a user-defined paper).
    FeaturePaperSize = 168,
    // A custom paper's width and height (dimensions).
    FeaturePaperWidth = 172,
    FeaturePaperHeight = 173,
    // The paper a job is printed on (collection of FeaturePaperSize and
    // FeatureCustomPaperDimensions), inside FeatureOutputPaperSettings.
    FeatureOutputPaper = 210,
    // Pages printed on one sheet (option: ValueNUp...).
    FeatureNUpPagesPerSheet = 215,
    // Booklet printing on or off (boolean).
    FeatureBooklet = 216,
    // The order of the pages on an n-up sheet (option: ValueNUpOrder...).
    FeatureNUpPageOrder = 217,
    // How pages are scaled (option: ValueScalingMode...).
    FeatureScalingMode = 219,
    // Printing to the edge of the sheet (option: ValueEdgeToEdge...); on, the driver reports no
    // margins.
    FeatureEdgeToEdge = 311,
    // Booklet gutter and creep (integers, micrometres).
    FeatureBookletGutter = 312,
    FeatureBookletCreep = 313,
    // The output paper settings (collection holding FeatureOutputPaper).
    FeatureOutputPaperSettings = 477,
    // The watermark printed on the pages: its option value id is the watermark's number in the
    // user's watermark settings; no watermark is ValueUnspecified.
    FeatureWatermark = 620,
    // Where the watermark is drawn (option: ValueWatermark...).
    FeatureWatermarkPlacement = 621,
    // Fitting the job to the output paper (option: ValueFitToOutputPaper...).
    FeatureFitToOutputPaper = 751,
};

enum tagValueEnum : std::int32_t {
    // No value: what a read of an absent option gives when the caller has no better default.
    ValueUnspecified = 0,

    // Any page size: the paper-size code of "no particular paper".
    ValueAny = 5001,

// The page sizes of the core library's page size dictionary, from 5002 on:
// ValuePageSizeISOA4, ValuePageSizeNorthAmericaLetter, ... (generated).
#include "support/utilities/datamodelids_pagesizes.inc"

    // FeatureBookletBindingEdge.
    ValueBindingEdgeLeft = 5460,
    ValueBindingEdgeRight = 5461,

    // FeatureScalingFitBasis.
    ValueScalingFitBasisPaper = 5600,
    ValueScalingFitBasisPrintableArea = 5601,

    // FeaturePaperSize: the paper of the document itself (no output paper chosen).
    ValuePaperSizeSameAsDocument = 6732,

    // FeatureWatermarkPlacement: behind the page content, or drawn over it.
    ValueWatermarkBehindContent = 0x1c02,
    ValueWatermarkOverContent = 0x1c03,
    ValueWatermarkOverContentTransparent = 0x1c04,

    // FeatureNUpPagesPerSheet.
    ValueNUp1 = 7240,
    ValueNUp2 = 7241,
    ValueNUp4 = 7242,
    ValueNUp6 = 7243,
    ValueNUp9 = 7244,
    ValueNUp16 = 7245,

    // FeatureScalingMode.
    ValueScalingModeNone = 7261,
    ValueScalingModeZoom = 7262,
    ValueScalingModeFitToPaper = 7263,

    // FeatureScalingAnchor.
    ValueScalingAnchorTopLeft = 7460,
    ValueScalingAnchorLeftCenter = 7461,
    ValueScalingAnchorBottomLeft = 7462,
    ValueScalingAnchorTopRight = 7463,
    ValueScalingAnchorRightCenter = 7464,
    ValueScalingAnchorBottomRight = 7465,
    ValueScalingAnchorTopCenter = 7466,
    ValueScalingAnchorCenter = 7467,
    ValueScalingAnchorBottomCenter = 7468,

    // FeatureNUpPageOrder: left to right, then top to bottom.
    ValueNUpOrderRightThenDown = 7611,

    // FeatureEdgeToEdge.
    ValueEdgeToEdgeOff = 8010,
    ValueEdgeToEdgeOn = 8011,

    // FeatureFitToOutputPaper.
    ValueFitToOutputPaperOff = 9684,
    ValueFitToOutputPaperOn = 9685,
};

}  // namespace DataModelIds
