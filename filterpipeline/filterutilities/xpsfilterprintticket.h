// xpsfilterprintticket.h: XpsFilterPrintTicket, the typed ticket view a filter asks for the
// settings it acts on: orientation and media size from the ticket's features, page scaling,
// booklet binding, n-up and output paper size from the driver's private attributes, and (from
// its base) the watermark. Each answer is cached until the next Initialize. docs/typedview.md
// describes the getters, what each reads and the status convention.
#pragma once

#include "filterpipeline/filterutilities/printschemarecords.h"
#include "filterpipeline/filterutilities/xpsfilterprintticketwatermarkimpl.h"

class XpsFilterPrintTicket : public XpsFilterPrintTicketWatermarkImpl {
public:
    XpsFilterPrintTicket();
    ~XpsFilterPrintTicket() override;

    // Every getter takes two optional out-pointers. `found` tells whether the setting was
    // present; `status` receives the HRESULT instead of a failure being thrown: an absent
    // setting gives the default with found false and status S_FALSE; a failure without a status
    // pointer is thrown as a ZorunComException. The records returned by reference are the
    // view's caches and stay valid until the next call of the same getter.

    // psk:PageOrientation; Portrait when absent. An option outside the orientation keywords is
    // E_FAIL.
    PrintSchema::PageOrientation::EOrientationOption GetOrientation(bool* found = nullptr,
                                                                    HRESULT* status = nullptr);
    // The driver's scaling settings (percentage, anchor, mode, fit basis). Without private data
    // the defaults, with status S_FALSE.
    const PrintSchema::PageScaling::PageScalingData& GetPageScaling(bool* found = nullptr,
                                                                    HRESULT* status = nullptr);
    // psk:PageMediaSize's MediaSizeWidth and MediaSizeHeight, read only when the tickets carry
    // the driver's private attributes; the letter size otherwise.
    const PrintSchema::PageMediaSize::PageMediaSizeData& GetPageMediaSize(
        bool* found = nullptr, HRESULT* status = nullptr);
    // The driver's booklet settings: binding edge, gutter and creep.
    const PrintSchema::Binding::BindingData& GetBookletBinding(bool* found = nullptr,
                                                               HRESULT* status = nullptr);
    // The driver's pages per sheet. Always found.
    const PrintSchema::NUp::NUpData& GetNUp(bool* found = nullptr, HRESULT* status = nullptr);
    // The driver's output paper, when fitting to an output paper is on.
    const PrintSchema::OutputPaperSize::OutputPaperSizeData& GetOutputPaperSize(
        bool* found = nullptr, HRESULT* status = nullptr);

private:
    // A cached answer: the change-counter value it was computed at (-1: none), the HRESULT it
    // reported and the value.
    template <class T>
    struct Cache {
        LONG stamp = -1;
        HRESULT status = S_OK;
        T value{};
    };

    // Stamps a cache with the current counter and the result it reports.
    template <class T>
    void Stamp(Cache<T>& cache, HRESULT hr) {
        cache.stamp = m_changeCounter.Get();
        cache.status = hr;
    }

    // The paper-size value id of the driver's output paper settings (feature 477, then 210,
    // then 168), 5001 when there is none; `paper` receives the output paper's attributes.
    LONG ReadOutputPaperSize(AttributeBytesIndexedList& paper);

    Cache<PrintSchema::PageOrientation::EOrientationOption> m_orientation;
    Cache<PrintSchema::PageScaling::PageScalingData> m_pageScaling;
    Cache<PrintSchema::Binding::BindingData> m_binding;
    Cache<PrintSchema::NUp::NUpData> m_nUp;
    Cache<PrintSchema::PageMediaSize::PageMediaSizeData> m_pageMediaSize;
    Cache<PrintSchema::OutputPaperSize::OutputPaperSizeData> m_outputPaperSize;
};
