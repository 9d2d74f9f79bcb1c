// packagewriter.h: the output ZIP, written as the job goes (ZipFileWriter). Items are either copied
// from a source package as their compressed bytes (no inflate, no deflate) or written from
// content the host inflated or a filter produced. Written content is cut into chunks that a
// DeflatePool compresses on every core. Compressed chunks, and the copies given after them, are
// queued in order and appended to the ZIP, as raw data, by one output thread, so that the thread
// sending parts goes on while they are compressed and written; a copy with nothing queued before
// it is made at once, on the calling thread. A bounded amount is in flight at a time.
// Everything goes to a temporary file beside the target (recorded in TemporaryFiles); Commit
// renames it over the target, keeping an existing target's mode, and a writer destroyed without
// Commit removes it, so a failed job leaves nothing behind. With SOURCE_DATE_EPOCH set (seconds
// since 1970, the reproducible-builds convention) every item is dated that moment, in UTC.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "pipelinehost/deflatepool.h"
#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

class DeflatePool;
struct DeflateChunk;
class ZipFileWriter;

class PackageWriter {
public:
    // Content is read and compressed in chunks of this size.
    static constexpr std::size_t kChunkSize = std::size_t{1} << 20;
    // Uncompressed bytes queued for compression or waiting for their turn in the ZIP at most
    // (plus the chunk being read); the writing thread waits for the oldest items beyond it.
    static constexpr std::size_t kMaxQueuedBytes = std::size_t{8} << 20;
    // Queued chunks and copies at most.
    static constexpr std::size_t kMaxQueuedRecords = 256;

    // Creates the temporary file; throws JobError(Output). compressionThreads: the workers that
    // deflate written content (DeflatePool::DefaultThreads() by default), started with the first
    // written item, and so does the output thread. 0 compresses and writes everything on the
    // calling thread.
    explicit PackageWriter(std::string target);
    PackageWriter(std::string target, unsigned compressionThreads);
    // Writes the package to an open stream (a pipe, a FIFO, a device) as it is made, with data
    // descriptors instead of headers filled in afterwards; `name` names it in messages. The
    // descriptor is duplicated: the caller keeps its own. Nothing can be taken back from a
    // stream, so a failed job leaves what was written so far.
    PackageWriter(int streamFd, std::string name,
                  unsigned compressionThreads = DeflatePool::DefaultThreads());
    ~PackageWriter();
    PackageWriter(const PackageWriter&) = delete;
    PackageWriter& operator=(const PackageWriter&) = delete;

    // Copies one ZIP item of the source as it is stored, under a new item name. The package is
    // kept until the copy is made (after the items queued before it).
    void CopyRaw(const std::string& itemName, std::shared_ptr<const SourcePackage> package,
                 const ZipItem& item);

    // Writes an item from a reader (returns bytes read, 0 at the end), read on the calling
    // thread. level: 0 stores, 1-9 deflates. sizeHint: the expected size when known (chooses
    // Zip64 for large items).
    using Reader = std::function<std::size_t(char* buffer, std::size_t size)>;
    void Write(const std::string& itemName, const Reader& read, int level, std::uint64_t sizeHint);
    void WriteBytes(const std::string& itemName, std::string_view bytes, int level);

    // Writes every queued item and the central directory; no more items after this.
    void Finish();
    // Renames the finished file over the target (a stream: finishes it).
    void Commit();

    const std::string& Target() const { return m_target; }
    // Items in the ZIP so far (queued ones not counted).
    std::uint64_t ItemCount() const { return m_items.load(); }
    unsigned CompressionThreads() const { return m_threads; }
    // The time SOURCE_DATE_EPOCH asks every item to carry, when it is set to a valid number.
    static std::optional<std::time_t> FixedEntryTime();

private:
    // One step of the output in order: a raw copy, or one compressed chunk of a written item.
    struct Record {
        std::string itemName;  // copies, and the first chunk of an item
        std::shared_ptr<const SourcePackage> package;
        ZipItem item;
        std::shared_ptr<DeflateChunk> chunk;  // null for a copy
        bool pooled = false;                  // given to the pool (else ready when queued)
        std::size_t bytes = 0;                // uncompressed bytes the chunk holds
        int method = 0;
        int level = 0;
        bool first = false;
        bool last = false;
        bool zip64 = false;
    };

    template <class Body>
    void Guarded(Body&& body);
    void CheckOpen() const;
    // Runs a ZipFileWriter call; its errors become JobError(Output) naming the target.
    template <class Call>
    void ZipCall(Call&& call);
    // Hands a record to the output thread (waiting while the queue is full), or writes it at
    // once without one. Rethrows an error the output thread met.
    void Queue(Record record);
    void StartOutput();
    // Ends the output thread, after it wrote every queued record (writeRest) or at once.
    void StopThreads(bool writeRest);
    bool OutputHasWork() const;
    // The output thread: writes the queued records in order.
    void Output();
    void WriteRecord(Record& record);
    void CopyNow(const std::string& itemName, const SourcePackage& package, const ZipItem& item);
    void Discard();

    std::string m_target;
    std::string m_temporary;
    std::optional<std::time_t> m_fixedTime;
    int m_fd = -1;
    std::unique_ptr<ZipFileWriter> m_zip;
    bool m_finished = false;
    bool m_committed = false;
    bool m_broken = false;
    std::atomic<std::uint64_t> m_items{0};
    unsigned m_threads = 0;
    std::unique_ptr<DeflatePool> m_pool;
    std::thread m_output;

    // Shared with the output thread.
    std::mutex m_mutex;
    std::condition_variable m_work;  // the output thread waits for records
    std::condition_variable m_room;  // the caller waits for room in the queue
    std::deque<Record> m_queue;      // the front one is being written
    std::size_t m_queuedBytes = 0;
    bool m_outputSleeping = false;
    bool m_callerWaiting = false;
    bool m_closing = false;  // no more records: write the rest and end
    bool m_stop = false;     // end without writing the rest
    std::exception_ptr m_error;

    // Used by whichever thread writes: the item open in the ZIP, and the copy buffer.
    std::uint32_t m_itemCrc = 0;
    std::uint64_t m_itemSize = 0;
    std::vector<char> m_copyBuffer;
    // Used by the calling thread to read written content.
    std::vector<char> m_readBuffer;
};

}  // namespace pipelinehost
