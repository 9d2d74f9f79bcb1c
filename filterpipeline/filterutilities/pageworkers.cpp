// pageworkers.cpp: the page worker threads of a filter.
#include "filterpipeline/filterutilities/pageworkers.h"

#include <algorithm>
#include <exception>
#include <new>
#include <system_error>

HRESULT CPageWorkers::PageWork::Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_doneSignal.wait(lock, [this] { return m_done; });
    return m_result;
}

bool CPageWorkers::PageWork::Done() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_done;
}

void CPageWorkers::PageWork::Complete(HRESULT result) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_result = result;
        m_done = true;
    }
    m_doneSignal.notify_all();
}

CPageWorkers::CPageWorkers(unsigned threads) : m_wanted(threads) {}

CPageWorkers::~CPageWorkers() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_workSignal.notify_all();
    for (std::thread& thread : m_threads) thread.join();
}

unsigned CPageWorkers::DefaultThreads() {
    return std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
}

void CPageWorkers::Execute(Queued& item) {
    HRESULT result = E_FAIL;
    try {
        result = item.work();
    } catch (const std::bad_alloc&) {
        result = E_OUTOFMEMORY;
    } catch (...) {
        result = E_FAIL;
    }
    item.work = nullptr;  // what the work holds goes before the filter thread hears of it
    item.result->Complete(result);
}

std::shared_ptr<CPageWorkers::PageWork> CPageWorkers::Run(Work work) {
    Queued item{std::move(work), std::make_shared<PageWork>()};
    std::shared_ptr<PageWork> result = item.result;
    if (m_wanted == 0) {
        Execute(item);
        return result;
    }
    bool noThread = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(std::move(item));
        // One more worker while fewer run than wanted.
        if (m_threads.size() < m_wanted) {
            try {
                m_threads.emplace_back(&CPageWorkers::WorkerLoop, this);
            } catch (const std::system_error&) {
                // No more threads: those running do the work; with none, it is done here.
                m_wanted = static_cast<unsigned>(m_threads.size());
                noThread = m_threads.empty();
            }
        }
        if (noThread) {
            item = std::move(m_queue.back());
            m_queue.pop_back();
        }
    }
    if (noThread) {
        Execute(item);
        return result;
    }
    m_workSignal.notify_one();
    return result;
}

void CPageWorkers::WorkerLoop() {
    // Page work reads markup through the COM stand-ins, which expect an initialised thread.
    const HRESULT com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (;;) {
        Queued item;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_workSignal.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            if (m_queue.empty()) break;
            item = std::move(m_queue.front());
            m_queue.pop_front();
        }
        Execute(item);
    }
    if (SUCCEEDED(com)) CoUninitialize();
}
