// packagewriter.cpp: streaming ZIP output: raw copies of source items, and written items
// compressed in chunks on a DeflatePool, appended in order by an output thread.
#include "pipelinehost/packagewriter.h"

#include <fcntl.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include <zlib.h>

#include "pipelinehost/deflatepool.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/temporaryfiles.h"
#include "pipelinehost/zipfilewriter.h"

namespace pipelinehost {
namespace {

constexpr std::uint64_t kZip64Threshold = 0xFFFFFFFFull;
// The sleeping output thread is woken when this many records or bytes wait, or when the caller
// needs room, not for every record: a pass-through queues thousands of small copies.
constexpr std::size_t kWakeRecords = 32;
constexpr std::size_t kWakeBytes = std::size_t{1} << 20;
constexpr std::size_t kCopyBufferSize = std::size_t{1} << 16;

[[noreturn]] void Fail(const std::string& what, const std::string& target) {
    throw JobError(ErrorKind::Output, "cannot write " + target + ": " + what);
}

}  // namespace

PackageWriter::PackageWriter(std::string target)
    : PackageWriter(std::move(target), DeflatePool::DefaultThreads()) {}

PackageWriter::PackageWriter(std::string target, unsigned compressionThreads)
    : m_target(std::move(target)), m_threads(compressionThreads) {
    std::filesystem::path path(m_target);
    std::filesystem::path dir = path.parent_path();
    if (dir.empty()) dir = ".";
    std::string pattern = (dir / ("." + path.filename().string() + ".XXXXXX")).string();
    int fd = TemporaryFiles::CreateFile(pattern);
    if (fd < 0)
        Fail(std::string("cannot create a temporary file in ") + dir.string() + " (" +
                 std::strerror(errno) + ")",
             m_target);
    m_fd = fd;
    m_temporary = pattern;
    m_fixedTime = FixedEntryTime();
    m_zip = std::make_unique<ZipFileWriter>(m_fd);
}

PackageWriter::PackageWriter(int streamFd, std::string name, unsigned compressionThreads)
    : m_target(std::move(name)), m_threads(compressionThreads) {
    m_fd = ::fcntl(streamFd, F_DUPFD_CLOEXEC, 0);
    if (m_fd < 0) {
        Fail(std::string("cannot write to the stream (") + std::strerror(errno) + ")", m_target);
    }
    m_fixedTime = FixedEntryTime();
    m_zip = std::make_unique<ZipFileWriter>(m_fd, true);
}

PackageWriter::~PackageWriter() {
    if (!m_committed) Discard();
}

void PackageWriter::Discard() {
    StopThreads(false);
    m_queue.clear();
    m_zip.reset();
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    if (!m_temporary.empty()) {
        TemporaryFiles::Remove(m_temporary);
        m_temporary.clear();
    }
}

// Runs one public operation; after a failure inside, the package may hold half an item, so
// every later operation fails too.
template <class Body>
void PackageWriter::Guarded(Body&& body) {
    if (m_broken) Fail("an earlier error stopped the package", m_target);
    try {
        body();
    } catch (...) {
        m_broken = true;
        throw;
    }
}

template <class Call>
void PackageWriter::ZipCall(Call&& call) {
    try {
        call();
    } catch (const std::exception& error) {
        Fail(error.what(), m_target);
    }
}

void PackageWriter::CheckOpen() const {
    if (m_zip == nullptr || m_finished) Fail("the package is already finished", m_target);
}

void PackageWriter::CopyRaw(const std::string& itemName,
                            std::shared_ptr<const SourcePackage> package, const ZipItem& item) {
    Guarded([&] {
        CheckOpen();
        if (!package) Fail("no source package to copy " + itemName + " from", m_target);
        Record record;
        record.itemName = itemName;
        record.package = std::move(package);
        record.item = item;
        Queue(std::move(record));
    });
}

void PackageWriter::CopyNow(const std::string& itemName, const SourcePackage& package,
                            const ZipItem& item) {
    ZipFileWriter::ItemInfo info;
    info.name = itemName;
    info.method = item.method == 0 ? 0 : Z_DEFLATED;
    info.level = Z_DEFAULT_COMPRESSION;
    info.mtime = m_fixedTime ? *m_fixedTime : item.mtime;
    info.utc = m_fixedTime.has_value();
    info.zip64 = item.size >= kZip64Threshold || item.compressedSize >= kZip64Threshold;
    ZipCall([&] { m_zip->Begin(info); });
    std::unique_ptr<SourcePackage::RawReader> raw = package.OpenRaw(item);
    m_copyBuffer.resize(kCopyBufferSize);
    std::uint64_t copied = 0;
    for (;;) {
        std::size_t got = raw->Read(m_copyBuffer.data(), m_copyBuffer.size());
        if (got == 0) break;
        copied += got;
        ZipCall([&] { m_zip->Append(m_copyBuffer.data(), got); });
    }
    if (copied != item.compressedSize) {
        throw JobError(ErrorKind::NotZip, "ZIP item " + item.name + " is truncated");
    }
    ZipCall([&] { m_zip->End(item.crc, item.size); });
    ++m_items;
}

void PackageWriter::Write(const std::string& itemName, const Reader& read, int level,
                          std::uint64_t sizeHint) {
    Guarded([&] {
        CheckOpen();
        if (level < 0 || level > 9) Fail("bad compression level for " + itemName, m_target);
        // Fills a chunk; true when it is full, so that more may follow. The chunk grows with
        // what is read: a small item costs no more than its size.
        m_readBuffer.resize(kCopyBufferSize);
        auto fill = [&](std::string& chunk) {
            chunk.clear();
            while (chunk.size() < kChunkSize) {
                std::size_t want = std::min(m_readBuffer.size(), kChunkSize - chunk.size());
                std::size_t n = read(m_readBuffer.data(), want);
                if (n == 0) break;
                chunk.append(m_readBuffer.data(), std::min(n, want));
            }
            return chunk.size() == kChunkSize;
        };
        std::string current;
        bool full = fill(current);
        std::string dictionary;
        for (bool first = true;; first = false) {
            // One chunk is read ahead to know whether the current one ends the item.
            std::string next;
            bool nextFull = false;
            if (full) nextFull = fill(next);
            auto chunk = std::make_shared<DeflateChunk>();
            chunk->level = level;
            chunk->final = next.empty();
            chunk->dictionary = std::move(dictionary);
            if (!chunk->final && level != 0) {
                std::size_t tail = std::min(current.size(), DeflateChunk::kDictionarySize);
                dictionary = current.substr(current.size() - tail);
            }
            Record record;
            record.itemName = itemName;
            record.method = level == 0 ? 0 : Z_DEFLATED;
            record.level = level;
            record.first = first;
            record.last = chunk->final;
            // A large item, or one of unknown size that spans chunks, gets Zip64 headers.
            record.zip64 = sizeHint >= kZip64Threshold || (!chunk->final && sizeHint == 0);
            record.bytes = current.size();
            chunk->input = std::move(current);
            if (level == 0) {
                chunk->inputSize = chunk->input.size();
                chunk->crc = static_cast<std::uint32_t>(crc32_z(
                    crc32_z(0, nullptr, 0), reinterpret_cast<const Bytef*>(chunk->input.data()),
                    chunk->input.size()));
                chunk->output = std::move(chunk->input);
                chunk->ready = true;
            } else if (m_threads == 0) {
                DeflateChunkNow(*chunk);
                chunk->ready = true;
            } else {
                // Made here, before the record that needs it is queued for the output thread.
                if (!m_pool) m_pool = std::make_unique<DeflatePool>(m_threads);
                m_pool->Submit(chunk);
                record.pooled = true;
            }
            record.chunk = std::move(chunk);
            bool last = record.last;
            Queue(std::move(record));
            if (last) break;
            current = std::move(next);
            full = nextFull;
        }
    });
}

void PackageWriter::StartOutput() {
    if (!m_output.joinable()) m_output = std::thread([this] { Output(); });
}

void PackageWriter::StopThreads(bool writeRest) {
    if (m_output.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            (writeRest ? m_closing : m_stop) = true;
        }
        m_work.notify_all();
        m_output.join();
    }
    m_pool.reset();
}

bool PackageWriter::OutputHasWork() const {
    if (m_stop || m_closing) return true;
    return !m_queue.empty() &&
           (m_callerWaiting || m_queue.size() >= kWakeRecords || m_queuedBytes >= kWakeBytes);
}

void PackageWriter::Queue(Record record) {
    if (m_threads == 0) {
        WriteRecord(record);
        return;
    }
    if (!record.chunk) {
        // A copy with nothing queued before it is made here and now: a pass-through starts no
        // thread, and its thousands of small copies cost no hand-off and no contention for the
        // source package. The output thread is idle while the queue is empty, and only this
        // thread adds to it.
        bool idle = !m_output.joinable();
        if (!idle) {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_error) std::rethrow_exception(m_error);
            idle = m_queue.empty();
        }
        if (idle) {
            WriteRecord(record);
            return;
        }
    }
    StartOutput();
    std::unique_lock<std::mutex> lock(m_mutex);
    auto full = [&] {
        return !m_queue.empty() && (m_queuedBytes + record.bytes > kMaxQueuedBytes ||
                                    m_queue.size() >= kMaxQueuedRecords);
    };
    if (!m_error && full()) {
        m_callerWaiting = true;
        m_work.notify_one();
        m_room.wait(lock, [&] { return m_error || !full(); });
        m_callerWaiting = false;
    }
    if (m_error) std::rethrow_exception(m_error);
    m_queuedBytes += record.bytes;
    m_queue.push_back(std::move(record));
    if (m_outputSleeping && OutputHasWork()) m_work.notify_one();
}

void PackageWriter::Output() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_queue.empty() && !m_stop && !m_closing) {
            m_outputSleeping = true;
            m_work.wait(lock, [&] { return OutputHasWork(); });
            m_outputSleeping = false;
        }
        if (m_stop || m_queue.empty()) {
            if (m_stop || m_closing) return;
            continue;
        }
        // The caller only appends, which leaves references to queued records valid.
        Record& record = m_queue.front();
        lock.unlock();
        try {
            if (record.pooled) m_pool->Wait(*record.chunk);
            WriteRecord(record);
        } catch (...) {
            lock.lock();
            m_error = std::current_exception();
            m_room.notify_all();
            return;
        }
        lock.lock();
        m_queuedBytes -= record.bytes;
        m_queue.pop_front();
        if (m_callerWaiting) m_room.notify_one();
    }
}

void PackageWriter::WriteRecord(Record& record) {
    if (!record.chunk) {
        CopyNow(record.itemName, *record.package, record.item);
        return;
    }
    const DeflateChunk& chunk = *record.chunk;
    if (!chunk.error.empty()) {
        Fail("cannot compress " + record.itemName + " (" + chunk.error + ")", m_target);
    }
    if (record.first) {
        ZipFileWriter::ItemInfo info;
        info.name = record.itemName;
        info.method = static_cast<std::uint16_t>(record.method);
        info.level = record.level;
        if (m_fixedTime) {
            info.mtime = *m_fixedTime;
            info.utc = true;
        }
        info.zip64 = record.zip64 || (record.last && (chunk.inputSize >= kZip64Threshold ||
                                                      chunk.output.size() >= kZip64Threshold));
        ZipCall([&] { m_zip->Begin(info); });
        m_itemCrc = chunk.crc;
        m_itemSize = chunk.inputSize;
    } else {
        m_itemCrc = static_cast<std::uint32_t>(
            crc32_combine64(m_itemCrc, chunk.crc, static_cast<z_off64_t>(chunk.inputSize)));
        m_itemSize += chunk.inputSize;
    }
    ZipCall([&] { m_zip->Append(chunk.output.data(), chunk.output.size()); });
    if (record.last) {
        ZipCall([&] { m_zip->End(m_itemCrc, m_itemSize); });
        ++m_items;
    }
}

void PackageWriter::WriteBytes(const std::string& itemName, std::string_view bytes, int level) {
    std::size_t offset = 0;
    Write(
        itemName,
        [&](char* buffer, std::size_t size) {
            std::size_t count = std::min(size, bytes.size() - offset);
            std::memcpy(buffer, bytes.data() + offset, count);
            offset += count;
            return count;
        },
        level, bytes.size());
}

void PackageWriter::Finish() {
    if (m_finished) return;
    Guarded([&] {
        if (m_zip == nullptr) Fail("the package is already closed", m_target);
        StopThreads(true);
        if (m_error) std::rethrow_exception(m_error);
        ZipCall([&] { m_zip->Finish(); });
        m_zip.reset();
        int result = ::close(m_fd);
        m_fd = -1;
        if (result != 0) {
            Fail(std::string("cannot close the file (") + std::strerror(errno) + ")", m_target);
        }
        m_finished = true;
    });
}

void PackageWriter::Commit() {
    if (!m_finished) Finish();
    if (m_temporary.empty()) {  // a stream: nothing to put in place
        m_committed = true;
        return;
    }
    // mkstemp creates the file 0600: an existing regular target keeps its mode, a new one gets
    // the usual 0666 less the umask. Set before the rename, so the target never has another.
    mode_t mode = 0;
    struct stat existing {};
    if (::stat(m_target.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        mode = existing.st_mode & 07777;
    } else {
        mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    ::chmod(m_temporary.c_str(), mode);
    if (!TemporaryFiles::RenameOver(m_temporary, m_target)) {
        Fail(std::string("cannot rename the finished package into place (") + std::strerror(errno) +
                 ")",
             m_target);
    }
    m_temporary.clear();
    m_committed = true;
}

std::optional<std::time_t> PackageWriter::FixedEntryTime() {
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch == nullptr || *epoch == '\0') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long seconds = std::strtoll(epoch, &end, 10);
    if (errno != 0 || *end != '\0' || seconds < 0) return std::nullopt;
    return static_cast<std::time_t>(seconds);
}

}  // namespace pipelinehost
