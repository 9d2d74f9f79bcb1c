// pageworkers.h: CPageWorkers, the threads on which a filter that opts in does its per-page
// work (parsing and rewriting page markup) while its own thread goes on pulling parts. Work is
// taken in the order it was handed over; each piece of work reports its result through the
// PageWork handle Run returned, which the filter thread waits on in its own order. With no
// threads, Run does the work at once on the calling thread, so a filter behaves exactly as a
// single-threaded one.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/com/com.h"

class CPageWorkers {
public:
    using Work = std::function<HRESULT()>;

    // The result of one piece of work, once it is done.
    class PageWork {
    public:
        // Blocks until the work has run; its HRESULT (E_OUTOFMEMORY or E_FAIL when it threw).
        HRESULT Wait();
        bool Done();

    private:
        friend class CPageWorkers;
        void Complete(HRESULT result);

        std::mutex m_mutex;
        std::condition_variable m_doneSignal;
        bool m_done = false;
        HRESULT m_result = E_PENDING;
    };

    // Up to `threads` workers, started with the first Run; 0 runs all work on the caller.
    explicit CPageWorkers(unsigned threads);
    // Runs the work still queued, then stops the workers.
    ~CPageWorkers();
    CPageWorkers(const CPageWorkers&) = delete;
    CPageWorkers& operator=(const CPageWorkers&) = delete;

    unsigned Threads() const { return m_wanted; }
    // Hands `work` to the next free worker (or runs it now when there are none). Throws
    // std::bad_alloc.
    std::shared_ptr<PageWork> Run(Work work);

    // The workers a filter gets when its pipeline does not say: one per core, at most 8.
    static unsigned DefaultThreads();

private:
    struct Queued {
        Work work;
        std::shared_ptr<PageWork> result;
    };
    static void Execute(Queued& item);
    void WorkerLoop();

    unsigned m_wanted;
    std::vector<std::thread> m_threads;
    std::mutex m_mutex;
    std::condition_variable m_workSignal;
    std::deque<Queued> m_queue;
    bool m_stopping = false;
};
