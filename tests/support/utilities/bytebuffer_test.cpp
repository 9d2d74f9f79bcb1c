// Tests of ByteBuffer's helpers.
#include <gtest/gtest.h>

#include "support/utilities/bytebuffer.h"

TEST(ByteBuffer, DwordIsLittleEndianFirstFourBytes) {
    ByteBuffer buffer;
    const unsigned char bytes[] = {0x78, 0x56, 0x34, 0x12, 0xFF};
    buffer.appendLpbyte(bytes, 5);
    EXPECT_EQ(buffer.getDword(), 0x12345678u);
    const unsigned char negative[] = {0xFE, 0xFF, 0xFF, 0xFF};
    ByteBuffer signedBuffer;
    signedBuffer.appendLpbyte(negative, 4);
    EXPECT_EQ(signedBuffer.getAsLongValue(), -2);
    EXPECT_EQ(signedBuffer.getDword(), 0xFFFFFFFEu);
    ByteBuffer shortBuffer;
    shortBuffer.appendLpbyte(bytes, 2);
    EXPECT_EQ(shortBuffer.getDword(), 0x5678u);
    EXPECT_EQ(ByteBuffer().getDword(), 0u);
}

TEST(ByteBuffer, AppendIgnoresNullData) {
    ByteBuffer buffer;
    buffer.appendLpbyte(nullptr, 10).appendLpbyte(reinterpret_cast<const unsigned char*>("ab"), 0);
    EXPECT_TRUE(buffer.empty());
    buffer.appendLpbyte(reinterpret_cast<const unsigned char*>("ab"), 2);
    EXPECT_EQ(*buffer.getLpbyte(), 'a');
}

TEST(ByteBuffer, AnsiTextStopsAtTheFirstNul) {
    ByteBuffer buffer;
    const char text[] = "caf\xC3\xA9\0tail";
    buffer.appendLpbyte(reinterpret_cast<const unsigned char*>(text), sizeof text - 1);
    EXPECT_EQ(buffer.getAsStringValueFromAnsiBuffer(), L"caf\x00E9");
    ByteBuffer unterminated;
    unterminated.appendLpbyte(reinterpret_cast<const unsigned char*>("xyz"), 3);
    EXPECT_EQ(unterminated.getAsStringValueFromAnsiBuffer(), L"xyz");
}
