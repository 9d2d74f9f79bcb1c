// zipfilewriter.h: the ZIP container of the output package, written as a stream of items whose
// data the caller hands over already in its stored form (copied from a source ZIP, or deflated
// by the package writer): local headers, data, the central directory, Zip64 records where sizes,
// offsets or the item count need them. It never looks at the data: no copy into a staging buffer
// byte by byte and no second CRC-32 over bytes whose CRC is already known, which is what a
// pass-through spends most of its time on otherwise.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace pipelinehost {

class ZipFileWriter {
public:
    // Writes to the open file descriptor (owned by the caller; not closed here). A streaming
    // writer never goes back: each item's CRC-32 and sizes follow its data in a data descriptor
    // (general-purpose flag 3), so that the package can go to a pipe, a FIFO or a device as it
    // is made; otherwise they are written into the item's local header.
    explicit ZipFileWriter(int fd, bool streaming = false);
    ZipFileWriter(const ZipFileWriter&) = delete;
    ZipFileWriter& operator=(const ZipFileWriter&) = delete;

    struct ItemInfo {
        std::string name;
        std::uint16_t method = 0;  // 0 stored, 8 deflated
        int level = 6;             // the deflate level, recorded in the general-purpose flags
        std::time_t mtime = 0;     // 0: 1980-01-01
        bool utc = false;          // the date in UTC rather than local time
        // A Zip64 local header, for items that may reach 4 GiB.
        bool zip64 = false;
    };
    // Starts an item. Its CRC-32 and sizes go into the local header when End is called.
    void Begin(const ItemInfo& info);
    void Append(const void* data, std::size_t size);
    void End(std::uint32_t crc, std::uint64_t size);
    // Writes the central directory and flushes. Throws std::runtime_error on a write error,
    // here and in the other operations.
    void Finish();

    std::uint64_t ItemCount() const { return m_items.size(); }

private:
    struct Item {
        std::string name;
        std::uint16_t flags = 0;
        std::uint16_t method = 0;
        std::uint16_t time = 0;
        std::uint16_t date = 0;
        std::uint32_t crc = 0;
        std::uint64_t compressedSize = 0;
        std::uint64_t size = 0;
        std::uint64_t offset = 0;
        bool zip64Local = false;
    };

    void Put(const void* data, std::size_t size);
    void Flush();
    void WriteAt(std::uint64_t offset, const void* data, std::size_t size);

    int m_fd;
    bool m_streaming = false;
    std::vector<char> m_buffer;   // bytes not yet written, starting at m_flushed
    std::uint64_t m_flushed = 0;  // file offset of m_buffer's first byte
    std::vector<Item> m_items;
    bool m_open = false;  // an item is begun and not ended
    std::uint64_t m_dataStart = 0;
};

}  // namespace pipelinehost
