// packagewriter.h: the output ZIP, written as the job goes (minizip). Items are either copied
// from a source package as their compressed bytes (no inflate, no deflate) or written from
// content the host inflated or a filter produced. Written content is cut into chunks that a
// DeflatePool compresses on every core; the items go into the ZIP strictly in the order they
// were given, as raw pre-compressed data. A bounded number of bytes is in flight at a time.
// Everything goes to a temporary file beside the target; Commit renames it over the target,
// and a writer destroyed without Commit removes it, so a failed job leaves nothing behind.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

class DeflatePool;
struct DeflateChunk;

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
    // deflate written content (DeflatePool::DefaultThreads() by default, started with the first
    // written item); 0 compresses on the writing thread.
    explicit PackageWriter(std::string target);
    PackageWriter(std::string target, unsigned compressionThreads);
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
    // Renames the finished file over the target.
    void Commit();

    const std::string& Target() const { return m_target; }
    // Items in the ZIP so far (queued ones not counted).
    std::uint64_t ItemCount() const { return m_items; }
    unsigned CompressionThreads() const { return m_threads; }

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
    void CopyNow(const std::string& itemName, const SourcePackage& package, const ZipItem& item);
    void Queue(Record record);
    void Submit(const std::shared_ptr<DeflateChunk>& chunk);
    // Writes the queued records that are ready; with wait, also waits for the oldest one.
    void WriteReady(bool wait);
    void WriteRecord(Record& record);
    void MakeRoom();
    void Discard();

    std::string m_target;
    std::string m_temporary;
    void* m_zip = nullptr;
    bool m_finished = false;
    bool m_committed = false;
    bool m_broken = false;
    std::uint64_t m_items = 0;
    unsigned m_threads = 0;
    std::unique_ptr<DeflatePool> m_pool;
    std::deque<Record> m_queue;
    std::size_t m_queuedBytes = 0;
    // The written item that is open in the ZIP.
    std::uint32_t m_itemCrc = 0;
    std::uint64_t m_itemSize = 0;
};

}  // namespace pipelinehost
