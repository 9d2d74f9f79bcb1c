// iteminflater.h: ItemInflater, the inflated content of one ZIP item. The item's compressed
// bytes come from the package in blocks (the only step that holds the package's lock); the
// inflating and the CRC-32 check run on the reading thread, so pages read on different threads
// inflate at the same time.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

class ItemInflater {
public:
    // Opens the item's compressed bytes; throws JobError(NotZip) when the item cannot be opened
    // or uses a method other than stored or deflated.
    ItemInflater(const SourcePackage& package, const ZipItem& item);
    ~ItemInflater();
    ItemInflater(const ItemInflater&) = delete;
    ItemInflater& operator=(const ItemInflater&) = delete;

    // Up to `size` inflated bytes; 0 at the end of the item's data. Throws JobError(NotZip)
    // naming the item when its data is damaged, ends early or fails its CRC-32.
    std::size_t Read(void* buffer, std::size_t size);

private:
    // Refills the input block; false when the compressed bytes are used up.
    bool Refill();
    [[noreturn]] void Damaged(const char* why) const;

    static constexpr std::size_t kBlockSize = 64 * 1024;

    const ZipItem& m_item;
    std::unique_ptr<SourcePackage::RawReader> m_raw;
    std::unique_ptr<unsigned char[]> m_block;
    z_stream m_zlib{};
    bool m_zlibOpen = false;
    bool m_ended = false;
    bool m_inputEnded = false;
    std::uint32_t m_crc = 0;
};

}  // namespace pipelinehost
