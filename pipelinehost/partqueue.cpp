// partqueue.cpp: the bounded part queue between two filters.
#include "pipelinehost/partqueue.h"

#include "pipelinehost/partobjects.h"

namespace pipelinehost {

PartQueue::PartQueue(std::size_t capacity) : m_capacity(capacity == 0 ? 1 : capacity) {}

HRESULT PartQueue::Push(IUnknown* part) {
    if (part == nullptr) return E_POINTER;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_cancelled || m_closed || m_parts.size() < m_capacity; });
    if (m_cancelled) return kJobCancelled;
    if (m_closed) return E_UNEXPECTED;
    m_parts.emplace_back(part);
    m_highWater = std::max(m_highWater, m_parts.size());
    m_changed.notify_all();
    return S_OK;
}

HRESULT PartQueue::CloseSender() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_cancelled) return kJobCancelled;
    m_closed = true;
    m_changed.notify_all();
    return S_OK;
}

HRESULT PartQueue::GetXpsPart(IUnknown** part) {
    if (part == nullptr) return E_POINTER;
    *part = nullptr;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_cancelled || m_closed || !m_parts.empty(); });
    if (m_cancelled) return kJobCancelled;
    if (m_parts.empty()) return S_OK;  // closed and drained: the end of the job
    *part = m_parts.front().Detach();
    m_parts.pop_front();
    m_changed.notify_all();
    return S_OK;
}

HRESULT PartQueue::GetNewEmptyPart(const wchar_t* uri, REFIID riid, void** part,
                                   IPrintWriteStream** stream) {
    return CreateNewPart(uri, riid, part, stream);
}

void PartQueue::Cancel() {
    std::deque<CComPtr<IUnknown>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelled = true;
        dropped.swap(m_parts);
        m_changed.notify_all();
    }
}

bool PartQueue::Closed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

std::size_t PartQueue::HighWaterMark() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_highWater;
}

}  // namespace pipelinehost
