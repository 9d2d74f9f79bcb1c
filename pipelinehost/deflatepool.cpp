// deflatepool.cpp: raw deflate of part chunks (zlib) on a small pool of worker threads.
#include "pipelinehost/deflatepool.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <exception>

#include <zlib.h>

namespace pipelinehost {
namespace {

// zlib's default memory level (its DEF_MEM_LEVEL), as minizip uses it.
constexpr int kMemLevel = 8;

const Bytef* Bytes(const std::string& text) {
    return reinterpret_cast<const Bytef*>(text.data());
}

void Compress(DeflateChunk& chunk) {
    const std::string& input = chunk.input;
    if (input.size() > UINT_MAX || chunk.dictionary.size() > DeflateChunk::kDictionarySize) {
        chunk.error = "chunk too large to deflate";
        return;
    }
    chunk.inputSize = input.size();
    chunk.crc =
        static_cast<std::uint32_t>(crc32_z(crc32_z(0, nullptr, 0), Bytes(input), input.size()));
    z_stream stream{};
    if (deflateInit2(&stream, chunk.level, Z_DEFLATED, -MAX_WBITS, kMemLevel, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        chunk.error = "cannot start deflate";
        return;
    }
    struct End {
        z_stream* stream;
        ~End() { deflateEnd(stream); }
    } end{&stream};
    if (!chunk.dictionary.empty() &&
        deflateSetDictionary(&stream, Bytes(chunk.dictionary),
                             static_cast<uInt>(chunk.dictionary.size())) != Z_OK) {
        chunk.error = "cannot set the deflate dictionary";
        return;
    }
    // deflateBound does not count the empty block a sync flush adds. The room is not cleared
    // first (a string's resize would write every byte of it); only what deflate produced is
    // copied into the chunk's output.
    std::size_t capacity = deflateBound(&stream, static_cast<uLong>(input.size())) + 16;
    std::unique_ptr<Bytef[]> room(new Bytef[capacity]);
    stream.next_in = const_cast<Bytef*>(Bytes(input));
    stream.avail_in = static_cast<uInt>(input.size());
    const int flush = chunk.final ? Z_FINISH : Z_SYNC_FLUSH;
    std::size_t produced = 0;
    for (;;) {
        if (produced == capacity) {
            std::unique_ptr<Bytef[]> larger(new Bytef[capacity * 2]);
            std::memcpy(larger.get(), room.get(), produced);
            room = std::move(larger);
            capacity *= 2;
        }
        stream.next_out = room.get() + produced;
        stream.avail_out = static_cast<uInt>(std::min<std::size_t>(capacity - produced, UINT_MAX));
        const uInt room = stream.avail_out;
        int result = deflate(&stream, flush);
        produced += room - stream.avail_out;
        if (result == Z_STREAM_END) break;
        if (result != Z_OK && result != Z_BUF_ERROR) {
            chunk.error = "deflate failed";
            return;
        }
        // A sync flush is complete once deflate leaves output space unused.
        if (!chunk.final && stream.avail_in == 0 && stream.avail_out != 0) break;
    }
    chunk.output.assign(reinterpret_cast<const char*>(room.get()), produced);
}

}  // namespace

void DeflateChunkNow(DeflateChunk& chunk) noexcept {
    try {
        Compress(chunk);
    } catch (const std::exception& error) {
        chunk.error = error.what();
    } catch (...) {
        chunk.error = "deflate failed";
    }
    if (!chunk.error.empty()) chunk.output.clear();
    std::string().swap(chunk.input);
    std::string().swap(chunk.dictionary);
}

unsigned DeflatePool::DefaultThreads() {
    return std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
}

DeflatePool::DeflatePool(unsigned threads) {
    try {
        for (unsigned i = 0; i < threads; ++i) m_threads.emplace_back([this] { Work(); });
    } catch (const std::exception&) {
        // Fewer workers than asked for; with none, Submit compresses on the caller's thread.
    }
}

DeflatePool::~DeflatePool() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_queue.clear();
    }
    m_work.notify_all();
    for (std::thread& thread : m_threads) thread.join();
}

void DeflatePool::Submit(std::shared_ptr<DeflateChunk> chunk) {
    if (m_threads.empty()) {
        DeflateChunkNow(*chunk);
        std::lock_guard<std::mutex> lock(m_mutex);
        chunk->ready = true;
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(std::move(chunk));
    }
    m_work.notify_one();
}

bool DeflatePool::Ready(const DeflateChunk& chunk) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return chunk.ready;
}

void DeflatePool::Wait(const DeflateChunk& chunk) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_done.wait(lock, [&] { return chunk.ready; });
}

void DeflatePool::Work() {
    for (;;) {
        std::shared_ptr<DeflateChunk> chunk;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_work.wait(lock, [&] { return m_stop || !m_queue.empty(); });
            if (m_stop) return;
            chunk = std::move(m_queue.front());
            m_queue.pop_front();
        }
        DeflateChunkNow(*chunk);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            chunk->ready = true;
        }
        m_done.notify_all();
    }
}

}  // namespace pipelinehost
