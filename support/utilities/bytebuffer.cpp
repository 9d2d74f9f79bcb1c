// bytebuffer.cpp: ByteBuffer's helpers.
#include "support/utilities/bytebuffer.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/com/unicode.h"

ByteBuffer::ByteBuffer(const std::allocator<unsigned char>& allocator)
    : std::vector<unsigned char>(allocator) {}

ByteBuffer::ByteBuffer(size_t count, const unsigned char& value,
                       const std::allocator<unsigned char>& allocator)
    : std::vector<unsigned char>(count, value, allocator) {}

unsigned char* ByteBuffer::getLpbyte() const {
    return empty() ? nullptr : const_cast<unsigned char*>(data());
}

ByteBuffer& ByteBuffer::appendLpbyte(const unsigned char* bytes, unsigned long count) {
    if (bytes != nullptr && count > 0) insert(end(), bytes, bytes + count);
    return *this;
}

unsigned long ByteBuffer::getDword() const {
    std::uint32_t value = 0;
    std::size_t n = size() < 4 ? size() : 4;
    for (std::size_t i = 0; i < n; ++i) value |= static_cast<std::uint32_t>((*this)[i]) << (8 * i);
    return value;
}

long ByteBuffer::getAsLongValue() const {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(getDword()));
}

CXString ByteBuffer::getAsStringValueFromAnsiBuffer() const {
    if (empty()) return CXString();
    const char* text = reinterpret_cast<const char*>(data());
    std::size_t length = 0;
    while (length < size() && text[length] != '\0') ++length;
    return CXString(platform::Utf8ToWide(std::string_view(text, length)));
}
