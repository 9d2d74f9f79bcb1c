// pageimageablepchandler.h: CPageImageablePCHandler, the imageable area of a media size: the
// margins the driver reports for the job's device mode (DeviceCapabilitiesW index 65518) laid out
// for the ticket's orientation. docs/mediasize.md describes the rules.
#pragma once

#include "filterpipeline/filterutilities/printschemarecords.h"
#include "platform/com/wintypes.h"

class XpsFilterPrintTicket;

class CPageImageablePCHandler {
public:
    // The typed ticket view the orientation, the driver's attributes and its device mode come
    // from; not owned, it must outlive the handler's calls.
    explicit CPageImageablePCHandler(XpsFilterPrintTicket* ticket);
    CPageImageablePCHandler(const CPageImageablePCHandler&) = default;
    CPageImageablePCHandler& operator=(const CPageImageablePCHandler&) = default;
    virtual ~CPageImageablePCHandler();

    // The imageable area of the media (microns) on the named printer, in the ticket's
    // orientation. The view's device mode is marked for the driver (dmMediaType 0xBAADF00D) in
    // place. S_OK; E_POINTER for a null record or view; a failure of the view (an orientation it
    // does not know, a broken ticket) is returned, not thrown.
    HRESULT GetData(const wchar_t* printerName,
                    const PrintSchema::PageMediaSize::PageMediaSizeData* media,
                    PrintSchema::PageImageableSize::PageImageableData* imageable);
    // The same for an output paper size (its width and height).
    HRESULT GetData(const wchar_t* printerName,
                    const PrintSchema::OutputPaperSize::OutputPaperSizeData* output,
                    PrintSchema::PageImageableSize::PageImageableData* imageable);

    // The value written into dmMediaType of the device mode given to the driver.
    static constexpr DWORD kDriverQueryMarker = 0xBAADF00D;

private:
    XpsFilterPrintTicket* m_ticket;
};
