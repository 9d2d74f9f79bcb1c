// bytebuffer.h: ByteBuffer, a std::vector<unsigned char> with the helpers filter code reads
// driver data with. Multi-byte values are little-endian, as the driver writes them.
#pragma once

#include <memory>
#include <vector>

#include "support/utilities/cxstring.h"

class ByteBuffer : public std::vector<unsigned char> {
public:
    using std::vector<unsigned char>::vector;
    ByteBuffer() = default;
    explicit ByteBuffer(const std::allocator<unsigned char>& allocator);
    ByteBuffer(size_t count, const unsigned char& value,
               const std::allocator<unsigned char>& allocator = std::allocator<unsigned char>());
    ByteBuffer(const ByteBuffer&) = default;
    ByteBuffer(ByteBuffer&&) noexcept = default;
    ByteBuffer& operator=(const ByteBuffer&) = default;
    ByteBuffer& operator=(ByteBuffer&&) noexcept = default;
    ~ByteBuffer() = default;

    // The first byte, or null when the buffer is empty.
    unsigned char* getLpbyte() const;
    // Appends `count` bytes (nothing when data is null or count is 0).
    ByteBuffer& appendLpbyte(const unsigned char* data, unsigned long count);
    // The first four bytes as a little-endian unsigned 32-bit value. A buffer of fewer than four
    // bytes reads the bytes it has, the missing high bytes being zero (empty: 0).
    unsigned long getDword() const;
    // The same four bytes as a signed 32-bit value.
    long getAsLongValue() const;
    // The bytes as ANSI text (UTF-8 on this platform) up to the first NUL, widened.
    CXString getAsStringValueFromAnsiBuffer() const;
};
