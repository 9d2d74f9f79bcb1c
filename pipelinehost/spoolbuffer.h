// spoolbuffer.h: the content of a part that a filter writes (a new part, a page's new markup).
// Bytes stay in memory up to a threshold and then move to an unnamed temporary file, so that
// many large new parts in flight do not grow the process. Written by one thread, then, once
// closed, read by any number of readers, each with its own position.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "platform/com/wintypes.h"

namespace pipelinehost {

class SpoolBuffer {
public:
    // Large enough for the markup of nearly every page, so that a filter rewriting every page
    // does not write and read back a temporary file per page.
    static constexpr std::size_t kMemoryThreshold = 4 << 20;

    SpoolBuffer() = default;
    ~SpoolBuffer();
    SpoolBuffer(const SpoolBuffer&) = delete;
    SpoolBuffer& operator=(const SpoolBuffer&) = delete;

    // Appends bytes; throws JobError(Output) when the temporary file cannot be written.
    void Append(const void* data, std::size_t size);
    void Close() { m_closed = true; }
    bool Closed() const { return m_closed; }
    std::uint64_t Size() const { return m_size; }

    // Copies up to `size` bytes from `offset`; returns the count (0 at the end).
    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const;

private:
    std::string m_memory;
    std::FILE* m_file = nullptr;
    std::uint64_t m_size = 0;
    bool m_closed = false;
    mutable std::mutex m_mutex;
};

}  // namespace pipelinehost
