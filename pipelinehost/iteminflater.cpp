// iteminflater.cpp: inflating one ZIP item outside the package's lock.
#include "pipelinehost/iteminflater.h"

#include <algorithm>
#include <string>

#include "pipelinehost/hosterror.h"

namespace pipelinehost {

ItemInflater::ItemInflater(const SourcePackage& package, const ZipItem& item)
    : m_item(item), m_block(new unsigned char[kBlockSize]) {
    if (item.method != 0 && item.method != Z_DEFLATED) {
        throw JobError(ErrorKind::NotZip, "ZIP item " + item.name +
                                              " uses compression method " +
                                              std::to_string(item.method) +
                                              " (only stored and deflated items are read)");
    }
    m_raw = package.OpenRaw(item);
    if (item.method == Z_DEFLATED) {
        // Raw deflate data: a negative window size tells zlib there is no zlib header.
        if (inflateInit2(&m_zlib, -MAX_WBITS) != Z_OK) Damaged("cannot start inflating");
        m_zlibOpen = true;
    }
}

ItemInflater::~ItemInflater() {
    if (m_zlibOpen) inflateEnd(&m_zlib);
}

void ItemInflater::Damaged(const char* why) const {
    throw JobError(ErrorKind::NotZip, "ZIP item " + m_item.name + " is damaged: " + why);
}

bool ItemInflater::Refill() {
    if (m_inputEnded) return false;
    const std::size_t got = m_raw->Read(m_block.get(), kBlockSize);
    if (got == 0) {
        m_inputEnded = true;
        return false;
    }
    m_zlib.next_in = m_block.get();
    m_zlib.avail_in = static_cast<uInt>(got);
    return true;
}

std::size_t ItemInflater::Read(void* buffer, std::size_t size) {
    if (m_ended || size == 0) return 0;
    auto* out = static_cast<unsigned char*>(buffer);
    std::size_t produced = 0;
    if (!m_zlibOpen) {
        produced = m_raw->Read(out, size);
        if (produced == 0) m_ended = true;
    } else {
        m_zlib.next_out = out;
        m_zlib.avail_out = static_cast<uInt>(std::min<std::size_t>(size, 1u << 30));
        while (m_zlib.avail_out > 0) {
            if (m_zlib.avail_in == 0 && !Refill()) {
                // Compressed bytes used up before the end of the deflate stream.
                if (m_zlib.next_out == out) Damaged("Zlib error: unexpected end of data");
                break;
            }
            const int status = inflate(&m_zlib, Z_NO_FLUSH);
            if (status == Z_STREAM_END) {
                m_ended = true;
                break;
            }
            if (status == Z_NEED_DICT || status == Z_DATA_ERROR) Damaged("Zlib error: data error");
            if (status == Z_MEM_ERROR) Damaged("Zlib error: out of memory");
            if (status != Z_OK && status != Z_BUF_ERROR) Damaged("Zlib error");
        }
        produced = static_cast<std::size_t>(m_zlib.next_out - out);
    }
    m_crc = static_cast<std::uint32_t>(crc32_z(m_crc, out, produced));
    if (m_ended && m_crc != m_item.crc) Damaged("CRC error");
    return produced;
}

}  // namespace pipelinehost
