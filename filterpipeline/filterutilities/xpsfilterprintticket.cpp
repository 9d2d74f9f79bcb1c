// xpsfilterprintticket.cpp: the six typed getters of the ticket view: cache check against the
// change counter, lookup (ticket features or the driver's attributes), conversion to the record,
// cache stamp, status convention.
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"

#include <iterator>

#include "support/errorframe/errorframe.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/dimension.h"
#include "support/utilities/number.h"

namespace {

using namespace DataModelIds;

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
constexpr double kRounding = 0.499999;

// The orientation keywords; the position is the enumeration value.
constexpr const wchar_t* kOrientationNames[] = {L"Landscape", L"Portrait", L"ReverseLandscape",
                                                L"ReversePortrait"};

// The position of `name` in a keyword table (case-sensitive, whole string), or -1.
template <std::size_t N>
int FindKeyword(BSTR name, const wchar_t* const (&table)[N]) {
    for (std::size_t i = 0; i < N; ++i) {
        CComBSTR keyword(table[i]);
        if (VarBstrCmp(name, keyword, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

// A length in micrometres, converted and rounded (exact halves down).
LONG ConvertMicrons(long microns, Dimension::UnitsEnum unit) {
    return Dimension(static_cast<double>(microns), Dimension::Microns)
        .GetValue(unit)
        .GetIntValue(kRounding);
}

// The anchor of the driver's scaling-anchor value id (7460 + n).
LONG AnchorFromValueId(long valueId) {
    using namespace PrintSchema::PageScaling;
    switch (valueId - ValueScalingAnchorTopLeft) {
        case 0:
            return TopLeft;
        case 1:
            return LeftCenter;
        case 2:
            return BottomLeft;
        case 3:
            return TopRight;
        case 4:
            return RightCenter;
        case 5:
            return BottomRight;
        case 6:
            return TopCenter;
        case 7:
            return Center;
        case 8:
            return BottomCenter;
        default:
            return TopLeft;
    }
}

// Pages per sheet of the driver's n-up value id.
LONG PagesPerSheetFromValueId(long valueId) {
    switch (valueId) {
        case ValueNUp2:
            return 2;
        case ValueNUp4:
            return 4;
        case ValueNUp6:
            return 6;
        case ValueNUp9:
            return 9;
        case ValueNUp16:
            return 16;
        default:
            return 1;
    }
}

}  // namespace

XpsFilterPrintTicket::XpsFilterPrintTicket() {
    m_orientation.value = PrintSchema::PageOrientation::Portrait;
}

XpsFilterPrintTicket::~XpsFilterPrintTicket() = default;

PrintSchema::PageOrientation::EOrientationOption XpsFilterPrintTicket::GetOrientation(
    bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (!IsCacheCurrent(m_orientation.stamp)) {
        CComBSTR option;
        hr = XpsFilterGetFeatureOption(L"PageOrientation", &option, nullptr);
        if (SUCCEEDED(hr)) {
            int index = FindKeyword(option, kOrientationNames);
            if (index < 0) {
                hr = E_FAIL;
            } else {
                m_orientation.value =
                    static_cast<PrintSchema::PageOrientation::EOrientationOption>(index);
                Stamp(m_orientation, S_OK);
            }
        }
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetOrientation", "");
    // An absent or unknown orientation is not cached: the next call asks the tickets again.
    return SUCCEEDED(hr) ? m_orientation.value : PrintSchema::PageOrientation::Portrait;
}

const PrintSchema::PageMediaSize::PageMediaSizeData& XpsFilterPrintTicket::GetPageMediaSize(
    bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_pageMediaSize.stamp)) {
        hr = m_pageMediaSize.status;
    } else {
        m_pageMediaSize.value = PrintSchema::PageMediaSize::PageMediaSizeData();
        // The ticket's size is taken only when the tickets carry the driver's attributes.
        if (!GetAttributeBytesIndexedListRef().IsEmpty()) {
            int width = 0;
            hr = XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &width);
            if (SUCCEEDED(hr)) {
                m_pageMediaSize.value.width = width;
                int height = 0;
                hr = XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeHeight", &height);
                if (SUCCEEDED(hr)) m_pageMediaSize.value.height = height;
            }
        }
        // A failed lookup leaves the defaults; only an answer (found or absent) is cached.
        if (FAILED(hr) && hr != kNotFound) {
            m_pageMediaSize.value = PrintSchema::PageMediaSize::PageMediaSizeData();
        } else {
            Stamp(m_pageMediaSize, hr);
        }
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetPageMediaSize", "");
    return m_pageMediaSize.value;
}

LONG XpsFilterPrintTicket::ReadOutputPaperSize(AttributeBytesIndexedList& paper) {
    AttributeBytesIndexedList settings;
    GetCollection(FeatureOutputPaperSettings, settings);
    AttributeBytesReader::GetCollection(settings, FeatureOutputPaper, paper);
    return AttributeBytesReader::GetOptionValueOrNewId(paper, FeaturePaperSize, ValueAny);
}

const PrintSchema::PageScaling::PageScalingData& XpsFilterPrintTicket::GetPageScaling(
    bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_pageScaling.stamp)) {
        hr = m_pageScaling.status;
    } else {
        using namespace PrintSchema::PageScaling;
        PageScalingData& data = m_pageScaling.value;
        data = PageScalingData();
        long scale = 100;
        long anchorValue = ValueScalingAnchorCenter;
        if (GetAttributeBytesIndexedListRef().IsEmpty()) {
            hr = S_FALSE;
        } else {
            data.scalingMode =
                GetOptionValueFromAttributeBytes(FeatureScalingMode, ValueScalingModeNone);
            data.scalingRequested = data.scalingMode != ValueScalingModeNone ? TRUE : FALSE;
            scale = GetIntegerValueFromAttributeBytes(FeatureScalingPercentage, 100);
            anchorValue =
                GetOptionValueFromAttributeBytes(FeatureScalingAnchor, ValueScalingAnchorCenter);
        }
        data.anchor = AnchorFromValueId(anchorValue);

        // Fitting to an output paper takes the scaling over, unless that paper is the
        // document's own or any paper.
        if (GetOptionValueFromAttributeBytes(FeatureFitToOutputPaper, ValueFitToOutputPaperOff) ==
            ValueFitToOutputPaperOn) {
            AttributeBytesIndexedList paper;
            LONG code = ReadOutputPaperSize(paper);
            if (code == ValuePaperSizeSameAsDocument || code == ValueAny) {
                data.scalingRequested = FALSE;
            }
        }

        data.scaleWidth = scale;
        data.scaleHeight = scale;
        data.option = FitApplicationMediaSizeToPageMediaSize;
        data.fitBasis =
            GetOptionValueFromAttributeBytes(FeatureScalingFitBasis, ValueScalingFitBasisPaper);
        Stamp(m_pageScaling, hr);
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetPageScaling", "");
    return m_pageScaling.value;
}

const PrintSchema::Binding::BindingData& XpsFilterPrintTicket::GetBookletBinding(bool* found,
                                                                                 HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_binding.stamp)) {
        hr = m_binding.status;
    } else {
        using namespace PrintSchema::Binding;
        BindingData& data = m_binding.value;
        data = BindingData();
        bool specified = false;
        bool booklet = GetBooleanValueFromAttributeBytes(FeatureBooklet, false, &specified);
        long edge =
            GetOptionValueFromAttributeBytes(FeatureBookletBindingEdge, ValueBindingEdgeLeft);
        if (specified && booklet) {
            data.bindingOption = edge == ValueBindingEdgeRight ? BindRight : BindLeft;
        }
        // Gutter in hundredths of a millimetre, creep in thousandths of an inch.
        if (IsSpecifiedInAttributeBytes(FeatureBookletGutter)) {
            data.gutter = ConvertMicrons(GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0),
                                         Dimension::HundredthsOfMillimeter);
        }
        if (IsSpecifiedInAttributeBytes(FeatureBookletCreep)) {
            data.creep = ConvertMicrons(GetIntegerValueFromAttributeBytes(FeatureBookletCreep, 0),
                                        Dimension::ThousandthsOfInch);
        }
        Stamp(m_binding, hr);
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetBookletBinding", "");
    return m_binding.value;
}

const PrintSchema::NUp::NUpData& XpsFilterPrintTicket::GetNUp(bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_nUp.stamp)) {
        hr = m_nUp.status;
    } else {
        m_nUp.value = PrintSchema::NUp::NUpData();
        m_nUp.value.pagesPerSheet = PagesPerSheetFromValueId(
            GetOptionValueFromAttributeBytes(FeatureNUpPagesPerSheet, ValueNUp1));
        // The page order and edge-to-edge fields keep their defaults (7611, 8010) whatever the
        // driver's settings say: filters lay n-up sheets out right then down, never edge to
        // edge.
        Stamp(m_nUp, hr);
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetNUp", "");
    return m_nUp.value;
}

const PrintSchema::OutputPaperSize::OutputPaperSizeData& XpsFilterPrintTicket::GetOutputPaperSize(
    bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_outputPaperSize.stamp)) {
        hr = m_outputPaperSize.status;
    } else {
        using PrintSchema::OutputPaperSize::OutputPaperSizeData;
        OutputPaperSizeData& data = m_outputPaperSize.value;
        data = OutputPaperSizeData();
        if (!GetAttributeBytesIndexedListRef().IsEmpty() &&
            GetOptionValueFromAttributeBytes(FeatureFitToOutputPaper, ValueFitToOutputPaperOff) ==
                ValueFitToOutputPaperOn) {
            AttributeBytesIndexedList paper;
            LONG code = ReadOutputPaperSize(paper);
            if (code != ValueAny) {
                AttributeBytesIndexedList dimensions;
                AttributeBytesReader::GetCollection(paper, FeatureCustomPaperDimensions,
                                                    dimensions);
                Dimension defaultWidth(data.width, Dimension::Microns);
                Dimension defaultHeight(data.height, Dimension::Microns);
                data.width = AttributeBytesReader::GetDimensionValue(dimensions, FeaturePaperWidth,
                                                                     defaultWidth)
                                 .GetValue(Dimension::Microns)
                                 .GetIntValue(kRounding);
                data.height = AttributeBytesReader::GetDimensionValue(
                                  dimensions, FeaturePaperHeight, defaultHeight)
                                  .GetValue(Dimension::Microns)
                                  .GetIntValue(kRounding);
                data.paperSize = code;
                data.fitToOutputPaper = true;
            }
        }
        Stamp(m_outputPaperSize, hr);
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetOutputPaperSize", "");
    return m_outputPaperSize.value;
}
