// zipfilewriter.cpp: ZIP local headers, central directory and Zip64 records over a file
// descriptor, with the item data passed through as it is given.
#include "pipelinehost/zipfilewriter.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace pipelinehost {
namespace {

constexpr std::uint32_t kLocalHeader = 0x04034b50;
constexpr std::uint32_t kCentralHeader = 0x02014b50;
constexpr std::uint32_t kEndOfDirectory = 0x06054b50;
constexpr std::uint32_t kDataDescriptor = 0x08074b50;
constexpr std::uint32_t kZip64EndOfDirectory = 0x06064b50;
constexpr std::uint32_t kZip64Locator = 0x07064b50;
constexpr std::uint16_t kZip64Extra = 0x0001;
constexpr std::uint64_t kMax32 = 0xFFFFFFFFull;
constexpr std::uint16_t kMax16 = 0xFFFF;
constexpr std::size_t kBufferSize = std::size_t{256} << 10;
// Version needed to extract: 2.0 (deflate), 4.5 (Zip64). Made by: MS-DOS, 2.0.
constexpr std::uint16_t kVersion = 20;
constexpr std::uint16_t kVersionZip64 = 45;

class Bytes {
public:
    void U16(std::uint16_t v) {
        for (int i = 0; i < 2; ++i) m_bytes.push_back(static_cast<char>(v >> (8 * i)));
    }
    void U32(std::uint32_t v) {
        for (int i = 0; i < 4; ++i) m_bytes.push_back(static_cast<char>(v >> (8 * i)));
    }
    void U64(std::uint64_t v) {
        for (int i = 0; i < 8; ++i) m_bytes.push_back(static_cast<char>(v >> (8 * i)));
    }
    void Text(const std::string& text) { m_bytes += text; }
    const std::string& Data() const { return m_bytes; }

private:
    std::string m_bytes;
};

std::uint32_t Low32(std::uint64_t v) {
    return v >= kMax32 ? static_cast<std::uint32_t>(kMax32) : static_cast<std::uint32_t>(v);
}

// MS-DOS date and time in local time, as ZIP tools show them, or in UTC (reproducible output);
// 1980-01-01 for unknown or earlier times.
void DosTime(std::time_t when, bool utc, std::uint16_t& time, std::uint16_t& date) {
    std::tm local{};
    const bool converted =
        when > 0 && (utc ? gmtime_r(&when, &local) : localtime_r(&when, &local)) != nullptr;
    if (converted && local.tm_year >= 80) {
        time = static_cast<std::uint16_t>((local.tm_hour << 11) | (local.tm_min << 5) |
                                          (local.tm_sec / 2));
        date = static_cast<std::uint16_t>(((local.tm_year - 80) << 9) | ((local.tm_mon + 1) << 5) |
                                          local.tm_mday);
    } else {
        time = 0;
        date = static_cast<std::uint16_t>((1 << 5) | 1);
    }
}

[[noreturn]] void WriteFailed(const char* what) {
    throw std::runtime_error(std::string(what) + " (" + std::strerror(errno) + ")");
}

}  // namespace

ZipFileWriter::ZipFileWriter(int fd, bool streaming) : m_fd(fd), m_streaming(streaming) {
    m_buffer.reserve(kBufferSize);
}

void ZipFileWriter::Put(const void* data, std::size_t size) {
    if (m_buffer.size() + size > kBufferSize) Flush();
    if (size >= kBufferSize) {
        const char* bytes = static_cast<const char*>(data);
        while (size > 0) {
            ssize_t done = ::write(m_fd, bytes, size);
            if (done < 0 && errno == EINTR) continue;
            if (done <= 0) WriteFailed("write error");
            bytes += done;
            size -= static_cast<std::size_t>(done);
            m_flushed += static_cast<std::uint64_t>(done);
        }
        return;
    }
    m_buffer.insert(m_buffer.end(), static_cast<const char*>(data),
                    static_cast<const char*>(data) + size);
}

void ZipFileWriter::Flush() {
    std::size_t offset = 0;
    while (offset < m_buffer.size()) {
        ssize_t done = ::write(m_fd, m_buffer.data() + offset, m_buffer.size() - offset);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) WriteFailed("write error");
        offset += static_cast<std::size_t>(done);
    }
    m_flushed += m_buffer.size();
    m_buffer.clear();
}

void ZipFileWriter::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
    if (offset >= m_flushed) {
        std::memcpy(m_buffer.data() + (offset - m_flushed), data, size);
        return;
    }
    // A header is put whole, so it is either still buffered or entirely in the file.
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t done = ::pwrite(m_fd, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) WriteFailed("write error");
        bytes += done;
        size -= static_cast<std::size_t>(done);
        offset += static_cast<std::uint64_t>(done);
    }
}

void ZipFileWriter::Begin(const ItemInfo& info) {
    if (m_open) throw std::logic_error("a ZIP item is already open");
    if (info.name.size() > kMax16) throw std::runtime_error("item name too long: " + info.name);
    Item item;
    item.name = info.name;
    item.method = info.method;
    if (info.method == 8) {
        // The deflate option bits ZIP tools show: maximum, fast, super fast.
        if (info.level == 8 || info.level == 9) item.flags = 2;
        if (info.level == 2) item.flags = 4;
        if (info.level == 1) item.flags = 6;
    }
    if (m_streaming) item.flags |= 8;  // CRC-32 and sizes in a data descriptor after the data
    DosTime(info.mtime, info.utc, item.time, item.date);
    item.offset = m_flushed + m_buffer.size();
    item.zip64Local = info.zip64;
    Bytes header;
    header.U32(kLocalHeader);
    header.U16(item.zip64Local ? kVersionZip64 : kVersion);
    header.U16(item.flags);
    header.U16(item.method);
    header.U16(item.time);
    header.U16(item.date);
    header.U32(0);  // CRC-32, compressed and uncompressed size: set by End
    header.U32(item.zip64Local ? static_cast<std::uint32_t>(kMax32) : 0);
    header.U32(item.zip64Local ? static_cast<std::uint32_t>(kMax32) : 0);
    header.U16(static_cast<std::uint16_t>(item.name.size()));
    header.U16(item.zip64Local ? 20 : 0);
    header.Text(item.name);
    if (item.zip64Local) {
        header.U16(kZip64Extra);
        header.U16(16);
        header.U64(0);
        header.U64(0);
    }
    Put(header.Data().data(), header.Data().size());
    m_items.push_back(std::move(item));
    m_dataStart = m_flushed + m_buffer.size();
    m_open = true;
}

void ZipFileWriter::Append(const void* data, std::size_t size) {
    if (!m_open) throw std::logic_error("no ZIP item is open");
    if (size != 0) Put(data, size);
}

void ZipFileWriter::End(std::uint32_t crc, std::uint64_t size) {
    if (!m_open) throw std::logic_error("no ZIP item is open");
    Item& item = m_items.back();
    item.crc = crc;
    item.size = size;
    item.compressedSize = m_flushed + m_buffer.size() - m_dataStart;
    if (!item.zip64Local && (item.size >= kMax32 || item.compressedSize >= kMax32)) {
        throw std::runtime_error("item " + item.name + " reaches 4 GiB without Zip64 headers");
    }
    if (m_streaming) {
        Bytes descriptor;
        descriptor.U32(kDataDescriptor);
        descriptor.U32(item.crc);
        if (item.zip64Local) {
            descriptor.U64(item.compressedSize);
            descriptor.U64(item.size);
        } else {
            descriptor.U32(static_cast<std::uint32_t>(item.compressedSize));
            descriptor.U32(static_cast<std::uint32_t>(item.size));
        }
        Put(descriptor.Data().data(), descriptor.Data().size());
        m_open = false;
        return;
    }
    Bytes fields;
    fields.U32(item.crc);
    if (item.zip64Local) {
        WriteAt(item.offset + 14, fields.Data().data(), 4);
        Bytes sizes;
        sizes.U64(item.size);
        sizes.U64(item.compressedSize);
        WriteAt(item.offset + 30 + item.name.size() + 4, sizes.Data().data(), 16);
    } else {
        fields.U32(static_cast<std::uint32_t>(item.compressedSize));
        fields.U32(static_cast<std::uint32_t>(item.size));
        WriteAt(item.offset + 14, fields.Data().data(), 12);
    }
    m_open = false;
}

void ZipFileWriter::Finish() {
    if (m_open) throw std::logic_error("a ZIP item is still open");
    const std::uint64_t directoryStart = m_flushed + m_buffer.size();
    for (const Item& item : m_items) {
        Bytes extra;
        if (item.size >= kMax32) extra.U64(item.size);
        if (item.compressedSize >= kMax32) extra.U64(item.compressedSize);
        if (item.offset >= kMax32) extra.U64(item.offset);
        const bool zip64 = !extra.Data().empty();
        Bytes entry;
        entry.U32(kCentralHeader);
        entry.U16(kVersion);
        entry.U16(zip64 || item.zip64Local ? kVersionZip64 : kVersion);
        entry.U16(item.flags);
        entry.U16(item.method);
        entry.U16(item.time);
        entry.U16(item.date);
        entry.U32(item.crc);
        entry.U32(Low32(item.compressedSize));
        entry.U32(Low32(item.size));
        entry.U16(static_cast<std::uint16_t>(item.name.size()));
        entry.U16(static_cast<std::uint16_t>(zip64 ? extra.Data().size() + 4 : 0));
        entry.U16(0);  // comment
        entry.U16(0);  // disk
        entry.U16(0);  // internal attributes
        entry.U32(0);  // external attributes
        entry.U32(Low32(item.offset));
        entry.Text(item.name);
        if (zip64) {
            entry.U16(kZip64Extra);
            entry.U16(static_cast<std::uint16_t>(extra.Data().size()));
            entry.Text(extra.Data());
        }
        Put(entry.Data().data(), entry.Data().size());
    }
    const std::uint64_t directoryEnd = m_flushed + m_buffer.size();
    const std::uint64_t directorySize = directoryEnd - directoryStart;
    const std::uint64_t count = m_items.size();
    Bytes end;
    if (count >= kMax16 || directoryStart >= kMax32 || directorySize >= kMax32) {
        end.U32(kZip64EndOfDirectory);
        end.U64(44);  // the size of the rest of this record
        end.U16(kVersionZip64);
        end.U16(kVersionZip64);
        end.U32(0);  // this disk
        end.U32(0);  // the directory's disk
        end.U64(count);
        end.U64(count);
        end.U64(directorySize);
        end.U64(directoryStart);
        end.U32(kZip64Locator);
        end.U32(0);
        end.U64(directoryEnd);
        end.U32(1);  // disks
    }
    end.U32(kEndOfDirectory);
    end.U16(0);
    end.U16(0);
    end.U16(static_cast<std::uint16_t>(count >= kMax16 ? kMax16 : count));
    end.U16(static_cast<std::uint16_t>(count >= kMax16 ? kMax16 : count));
    end.U32(Low32(directorySize));
    end.U32(Low32(directoryStart));
    end.U16(0);  // comment
    Put(end.Data().data(), end.Data().size());
    Flush();
}

}  // namespace pipelinehost
