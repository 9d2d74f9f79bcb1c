// partqueue.h: the link between two filters. Filter N sends its parts into the link as its
// IXpsDocumentConsumer; filter N+1 pulls them out as its IXpsDocumentProvider. The queue holds
// at most `capacity` parts: a sender waits while it is full, a receiver while it is empty.
// CloseSender ends the stream (the receiver then gets S_OK and a null part); Cancel, used when
// the job stops, wakes both sides and makes every later call fail.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"

namespace pipelinehost {

// What a call on a cancelled link returns.
inline constexpr HRESULT kJobCancelled = HRESULT_FROM_WIN32(1223);  // ERROR_CANCELLED

class PartQueue final : public platform::ComObject<IXpsDocumentConsumer, IXpsDocumentProvider> {
public:
    explicit PartQueue(std::size_t capacity);

    HRESULT SendXpsUnknown(IUnknown* unknown) override { return Push(unknown); }
    HRESULT SendXpsDocument(IXpsDocument* document) override { return Push(document); }
    HRESULT SendFixedDocumentSequence(IFixedDocumentSequence* sequence) override {
        return Push(sequence);
    }
    HRESULT SendFixedDocument(IFixedDocument* document) override { return Push(document); }
    HRESULT SendFixedPage(IFixedPage* page) override { return Push(page); }
    HRESULT CloseSender() override;
    HRESULT GetNewEmptyPart(const wchar_t* uri, REFIID riid, void** part,
                            IPrintWriteStream** stream) override;

    HRESULT GetXpsPart(IUnknown** part) override;

    void Cancel();
    bool Closed() const;
    std::size_t HighWaterMark() const;

private:
    HRESULT Push(IUnknown* part);

    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<CComPtr<IUnknown>> m_parts;
    bool m_closed = false;
    bool m_cancelled = false;
    std::size_t m_highWater = 0;
};

}  // namespace pipelinehost
