// pageimageablepchandler.cpp: the driver's margins for the view's device mode, and the imageable
// record they make in each orientation.
#include "filterpipeline/filterutilities/pageimageablepchandler.h"

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "platform/win32/printers.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/exceptions.h"

namespace {

using PrintSchema::PageImageableSize::PageImageableData;
using PrintSchema::PageMediaSize::PageMediaSizeData;
namespace Orientation = PrintSchema::PageOrientation;

// The dmSize a device mode built here carries.
constexpr WORD kBuiltDevmodeSize = 256;

enum Margin { kLeft = 0, kTop = 1, kRight = 2, kBottom = 3 };

// a - b - c without overflow (hostile margins wrap instead of being undefined).
LONG Less(LONG a, LONG b, LONG c) {
    return static_cast<LONG>(static_cast<long long>(a) - b - c);
}

}  // namespace

CPageImageablePCHandler::CPageImageablePCHandler(XpsFilterPrintTicket* ticket) : m_ticket(ticket) {}

CPageImageablePCHandler::~CPageImageablePCHandler() = default;

HRESULT CPageImageablePCHandler::GetData(const wchar_t* printerName, const PageMediaSizeData* media,
                                         PageImageableData* imageable) {
    if (m_ticket == nullptr || media == nullptr || imageable == nullptr) return E_POINTER;
    Orientation::EOrientationOption orientation = Orientation::Portrait;
    LONG margins[4] = {0, 0, 0, 0};  // left, top, right, bottom
    try {
        orientation = m_ticket->GetOrientation();
        if (m_ticket->GetOptionValueFromAttributeBytes(DataModelIds::FeatureEdgeToEdge,
                                                       DataModelIds::ValueUnspecified) !=
            DataModelIds::ValueEdgeToEdgeOn) {
            // The view's device mode when it has one (changed in place), else one of the media
            // size.
            DEVMODEW built{};
            DEVMODEW* devmode = m_ticket->GetPublicDevmodePtr();
            if (devmode == nullptr) {
                built.dmSize = kBuiltDevmodeSize;
                built.dmPaperWidth = static_cast<short>(media->width / 100);
                built.dmPaperLength = static_cast<short>(media->height / 100);
                built.dmFields = DM_PAPERWIDTH | DM_PAPERLENGTH;
                devmode = &built;
            }
            devmode->dmMediaType = kDriverQueryMarker;
            DeviceCapabilitiesW(printerName, nullptr, DC_PRIVATE_MARGINS,
                                reinterpret_cast<LPWSTR>(margins), devmode);
        }
    } catch (const ZorunComException& exception) {
        return exception.GetHresult();
    }

    const LONG width = media->width;
    const LONG height = media->height;
    switch (orientation) {
        case Orientation::Landscape:
        case Orientation::ReverseLandscape:
            imageable->imageableSizeWidth = height;
            imageable->imageableSizeHeight = width;
            imageable->extentWidth = Less(height, margins[kBottom], margins[kTop]);
            imageable->extentHeight = Less(width, margins[kRight], margins[kLeft]);
            if (orientation == Orientation::ReverseLandscape) {
                imageable->originWidth = margins[kTop];
                imageable->originHeight = margins[kRight];
            } else {
                imageable->originWidth = margins[kBottom];
                imageable->originHeight = margins[kLeft];
            }
            break;
        default:
            imageable->imageableSizeWidth = width;
            imageable->imageableSizeHeight = height;
            imageable->extentWidth = Less(width, margins[kRight], margins[kLeft]);
            imageable->extentHeight = Less(height, margins[kBottom], margins[kTop]);
            if (orientation == Orientation::ReversePortrait) {
                imageable->originWidth = margins[kRight];
                imageable->originHeight = margins[kBottom];
            } else {
                imageable->originWidth = margins[kLeft];
                imageable->originHeight = margins[kTop];
            }
            break;
    }
    return S_OK;
}

HRESULT CPageImageablePCHandler::GetData(
    const wchar_t* printerName, const PrintSchema::OutputPaperSize::OutputPaperSizeData* output,
    PageImageableData* imageable) {
    if (output == nullptr) return E_POINTER;
    PageMediaSizeData media;
    media.width = output->width;
    media.height = output->height;
    return GetData(printerName, &media, imageable);
}
