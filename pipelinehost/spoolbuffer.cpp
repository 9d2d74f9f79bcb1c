// spoolbuffer.cpp: memory-then-temporary-file part content.
#include "pipelinehost/spoolbuffer.h"

#include <unistd.h>

#include <cstring>

#include "pipelinehost/hosterror.h"

namespace pipelinehost {

SpoolBuffer::~SpoolBuffer() {
    if (m_file != nullptr) std::fclose(m_file);
}

void SpoolBuffer::Append(const void* data, std::size_t size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (size == 0) return;
    if (m_file == nullptr && m_memory.size() + size <= kMemoryThreshold) {
        m_memory.append(static_cast<const char*>(data), size);
        m_size += size;
        return;
    }
    if (m_file == nullptr) {
        m_file = std::tmpfile();
        if (m_file == nullptr) {
            throw JobError(ErrorKind::Output,
                           std::string("cannot create a temporary file: ") + std::strerror(errno));
        }
        if (!m_memory.empty() &&
            std::fwrite(m_memory.data(), 1, m_memory.size(), m_file) != m_memory.size()) {
            throw JobError(ErrorKind::Output, "cannot write a temporary file");
        }
        std::string().swap(m_memory);
    }
    if (std::fwrite(data, 1, size, m_file) != size || std::fflush(m_file) != 0) {
        throw JobError(ErrorKind::Output, "cannot write a temporary file");
    }
    m_size += size;
}

std::size_t SpoolBuffer::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (offset >= m_size) return 0;
    std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(size, m_size - offset));
    if (m_file == nullptr) {
        std::memcpy(buffer, m_memory.data() + offset, count);
        return count;
    }
    std::size_t done = 0;
    while (done < count) {
        ssize_t got = ::pread(fileno(m_file), static_cast<char*>(buffer) + done, count - done,
                              static_cast<off_t>(offset + done));
        if (got <= 0) throw JobError(ErrorKind::Output, "cannot read back a temporary file");
        done += static_cast<std::size_t>(got);
    }
    return count;
}

}  // namespace pipelinehost
