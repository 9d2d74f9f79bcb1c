// datamodelnames.cpp: names of the data model's ids, as datamodelids.h spells its enumerators
// without the Feature and Value prefixes.
#include "datamodelnames.h"

#include <memory>

#include "platform/com/unicode.h"
#include "support/utilities/datamodelids.h"
#include "utilitiesstaticlib/pagesizedictionary.h"

namespace xpsfilter {

namespace {

using namespace DataModelIds;

struct Name {
    long id;
    const char* name;
};

constexpr Name kFeatures[] = {
    {FeatureBookletBindingEdge, "BookletBindingEdge"},
    {FeatureScalingFitBasis, "ScalingFitBasis"},
    {FeatureScalingPercentage, "ScalingPercentage"},
    {FeatureScalingAnchor, "ScalingAnchor"},
    {FeatureCustomPaperDimensions, "CustomPaperDimensions"},
    {FeaturePaperSize, "PaperSize"},
    {FeaturePaperWidth, "PaperWidth"},
    {FeaturePaperHeight, "PaperHeight"},
    {FeatureOutputPaper, "OutputPaper"},
    {FeatureNUpPagesPerSheet, "NUpPagesPerSheet"},
    {FeatureBooklet, "Booklet"},
    {FeatureNUpPageOrder, "NUpPageOrder"},
    {FeatureScalingMode, "ScalingMode"},
    {FeatureEdgeToEdge, "EdgeToEdge"},
    {FeatureBookletGutter, "BookletGutter"},
    {FeatureBookletCreep, "BookletCreep"},
    {FeatureOutputPaperSettings, "OutputPaperSettings"},
    {FeatureWatermark, "Watermark"},
    {FeatureWatermarkPlacement, "WatermarkPlacement"},
    {FeatureFitToOutputPaper, "FitToOutputPaper"},
};

constexpr Name kValues[] = {
    {ValueUnspecified, "Unspecified"},
    {ValueAny, "Any"},
    {ValueBindingEdgeLeft, "BindingEdgeLeft"},
    {ValueBindingEdgeRight, "BindingEdgeRight"},
    {ValueScalingFitBasisPaper, "ScalingFitBasisPaper"},
    {ValueScalingFitBasisPrintableArea, "ScalingFitBasisPrintableArea"},
    {ValuePaperSizeSameAsDocument, "PaperSizeSameAsDocument"},
    {ValueWatermarkBehindContent, "WatermarkBehindContent"},
    {ValueWatermarkOverContent, "WatermarkOverContent"},
    {ValueWatermarkOverContentTransparent, "WatermarkOverContentTransparent"},
    {ValueNUp1, "NUp1"},
    {ValueNUp2, "NUp2"},
    {ValueNUp4, "NUp4"},
    {ValueNUp6, "NUp6"},
    {ValueNUp9, "NUp9"},
    {ValueNUp16, "NUp16"},
    {ValueScalingModeNone, "ScalingModeNone"},
    {ValueScalingModeZoom, "ScalingModeZoom"},
    {ValueScalingModeFitToPaper, "ScalingModeFitToPaper"},
    {ValueScalingAnchorTopLeft, "ScalingAnchorTopLeft"},
    {ValueScalingAnchorLeftCenter, "ScalingAnchorLeftCenter"},
    {ValueScalingAnchorBottomLeft, "ScalingAnchorBottomLeft"},
    {ValueScalingAnchorTopRight, "ScalingAnchorTopRight"},
    {ValueScalingAnchorRightCenter, "ScalingAnchorRightCenter"},
    {ValueScalingAnchorBottomRight, "ScalingAnchorBottomRight"},
    {ValueScalingAnchorTopCenter, "ScalingAnchorTopCenter"},
    {ValueScalingAnchorCenter, "ScalingAnchorCenter"},
    {ValueScalingAnchorBottomCenter, "ScalingAnchorBottomCenter"},
    {ValueNUpOrderRightThenDown, "NUpOrderRightThenDown"},
    {ValueEdgeToEdgeOff, "EdgeToEdgeOff"},
    {ValueEdgeToEdgeOn, "EdgeToEdgeOn"},
    {ValueFitToOutputPaperOff, "FitToOutputPaperOff"},
    {ValueFitToOutputPaperOn, "FitToOutputPaperOn"},
};

std::string Find(const Name* table, std::size_t count, long id) {
    for (std::size_t i = 0; i < count; ++i) {
        if (table[i].id == id) return table[i].name;
    }
    return "";
}

// The dictionary, opened once; null when the core library cannot be loaded.
const PageSizeDictionary* Dictionary() {
    static const std::unique_ptr<PageSizeDictionary> dictionary =
        []() -> std::unique_ptr<PageSizeDictionary> {
        // The core library is opened by the delay loader; names are a convenience, so a
        // library that cannot be loaded (whatever it throws) only leaves page sizes unnamed.
        try {
            return std::make_unique<PageSizeDictionary>(nullptr);
        } catch (...) {
            return nullptr;
        }
    }();
    return dictionary.get();
}

}  // namespace

std::string FeatureName(long featureId) {
    return Find(kFeatures, std::size(kFeatures), featureId);
}

std::string ValueName(long valueId) {
    std::string name = Find(kValues, std::size(kValues), valueId);
    if (!name.empty()) return name;
    if (const PageSizeDictionary* dictionary = Dictionary()) {
        const PageSizeDictionaryEntry* entry =
            dictionary->GetPageSizeEntryRef(ValueId(static_cast<tagValueEnum>(valueId)));
        if (entry != nullptr) {
            const CXString option = entry->GetMsPageMediaSizeOptionName();
            return platform::WideToUtf8(static_cast<const wchar_t*>(option));
        }
    }
    return "";
}

}  // namespace xpsfilter
