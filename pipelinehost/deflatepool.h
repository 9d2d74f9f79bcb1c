// deflatepool.h: worker threads that deflate chunks of part content for the package writer, so
// that rewritten parts are compressed on every core while the writer appends finished items to
// the ZIP in their order. The chunks of one part form one raw deflate stream: every chunk but the
// last ends on a byte boundary (sync flush), and each one after the first starts with the tail of
// the previous chunk as its dictionary, so that splitting costs almost no compression.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pipelinehost {

struct DeflateChunk {
    // Deflate's window: the most of the previous chunk that can serve as a dictionary.
    static constexpr std::size_t kDictionarySize = 32 * 1024;

    std::string input;       // bytes to compress; released once compressed
    std::string dictionary;  // the tail of the part's previous chunk (empty for the first)
    int level = 6;           // 1..9
    bool final = true;       // the last chunk of its part: ends the deflate stream

    // Results, valid once the chunk is ready.
    std::string output;
    std::uint32_t crc = 0;  // CRC-32 of the input alone
    std::uint64_t inputSize = 0;
    std::string error;  // what went wrong, empty on success
    bool ready = false;
};

// Compresses one chunk on the calling thread: fills output, crc and inputSize (or error) and
// releases the input. Never throws.
void DeflateChunkNow(DeflateChunk& chunk) noexcept;

class DeflatePool {
public:
    // The number of workers the writer uses by default: one per core.
    static unsigned DefaultThreads();

    // Starts up to `threads` workers. When no thread can be started, Submit compresses on the
    // caller's thread.
    explicit DeflatePool(unsigned threads);
    // Drops the chunks no worker has started and waits for the running ones.
    ~DeflatePool();
    DeflatePool(const DeflatePool&) = delete;
    DeflatePool& operator=(const DeflatePool&) = delete;

    unsigned Threads() const { return static_cast<unsigned>(m_threads.size()); }

    void Submit(std::shared_ptr<DeflateChunk> chunk);
    bool Ready(const DeflateChunk& chunk);
    // Blocks until the chunk is compressed (or failed).
    void Wait(const DeflateChunk& chunk);

private:
    void Work();

    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_done;
    std::deque<std::shared_ptr<DeflateChunk>> m_queue;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};

}  // namespace pipelinehost
