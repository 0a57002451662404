// DataBufferTest.cpp - borrowed and adopted blocks, UTF-8 units
#include "textlib/buffers/DataBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

using brelkin::DataBuffer;

namespace {

// A buffer holding `size` bytes with no room left.
void fillToCapacity(DataBuffer& b, uint32_t size) {
    ASSERT_TRUE(b.ensureCapacity(size));
    b.setSize(size);
    ASSERT_EQ(b.getCapacity(), size);
}

std::string contentOf(const DataBuffer& b) {
    return std::string(reinterpret_cast<const char*>(b.getData()), b.getSize());
}

}  // namespace

TEST(DataBuffer, Utf8EncodesEachUnitByItself) {
    auto utf8 = [](uint16_t unit) {
        DataBuffer b;
        const uint32_t count = b.appendUtf8Char(unit);
        EXPECT_EQ(count, b.getSize()) << "unit " << unit;
        return contentOf(b);
    };
    EXPECT_EQ(utf8(0x007F), "\x7F");
    EXPECT_EQ(utf8(0x0080), "\xC2\x80");
    EXPECT_EQ(utf8(0x07FF), "\xDF\xBF");
    EXPECT_EQ(utf8(0x0800), "\xE0\xA0\x80");
    EXPECT_EQ(utf8(0xD83D), "\xED\xA0\xBD") << "a surrogate half stays a 3-byte sequence";
    EXPECT_EQ(utf8(0xFFFF), "\xEF\xBF\xBF");
}

TEST(DataBuffer, BorrowedMemoryIsCopiedAndNeverWritten) {
    // On the stack: freeing or writing it would show under ASan or in the check.
    char lent[8] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    {
        DataBuffer b;
        b.borrowData(lent, sizeof lent);
        EXPECT_TRUE(b.isBorrowed());
        EXPECT_EQ(b.getData(), reinterpret_cast<uint8_t*>(lent));
        ASSERT_TRUE(b.append("XY", 2));
        EXPECT_FALSE(b.isBorrowed());
        EXPECT_NE(b.getData(), reinterpret_cast<uint8_t*>(lent));
        EXPECT_EQ(contentOf(b), "abcdefghXY");
    }
    {
        DataBuffer b;
        b.borrowData(lent, sizeof lent);
        b.replaceByte('a', 'z');
        b.shorten(4);
        b.appendByte('!');
        EXPECT_EQ(contentOf(b), "zbcd!");
    }
    EXPECT_EQ(std::string(lent, sizeof lent), "abcdefgh");
}

TEST(DataBuffer, AdoptedBlockIsFreedReleasedBlockIsNot) {
    char* block = static_cast<char*>(std::malloc(4));
    std::memcpy(block, "abcd", 4);
    DataBuffer b;
    b.adoptData(block, 4);  // LeakSanitizer would report it if never freed
    EXPECT_EQ(contentOf(b), "abcd");

    DataBuffer c;
    c.append("xyz", 3);
    uint8_t* taken = c.getData();
    c.releaseData();
    EXPECT_EQ(c.getSize(), 0u);
    EXPECT_EQ(c.getData(), nullptr);
    std::free(taken);
}

TEST(DataBuffer, SizeEditsClampAndGrowthKeepsItsOwnBytes) {
    DataBuffer b;
    b.append("hello", 5);
    b.shorten(99);
    EXPECT_EQ(b.getSize(), 0u);
    b.setSize(b.getCapacity() + 5);
    EXPECT_EQ(b.getSize(), b.getCapacity());

    DataBuffer p;
    fillToCapacity(p, 3);
    std::memcpy(p.getData(), "def", 3);
    ASSERT_TRUE(p.prepend("abc", 3));
    EXPECT_EQ(p.getCapacity(), 6u);
    EXPECT_EQ(contentOf(p), "abcdef");
    ASSERT_TRUE(p.prepend(p.getData() + 3, 3));  // a piece of itself
    EXPECT_EQ(contentOf(p), "defabcdef");
    ASSERT_EQ(p.getCapacity(), p.getSize());  // full: the append below moves the block
    ASSERT_TRUE(p.append(p.getData() + 1, 3));
    EXPECT_EQ(contentOf(p), "defabcdefefa");
}

TEST(DataBuffer, WideTextAndUnits) {
    DataBuffer b;
    b.appendWideZ(u"a-b");
    ASSERT_EQ(b.getSize(), 8u);
    b.replaceWideChar(u'-', u'+');
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(b.getData())), u"a+b");
    b.replaceWideChar(u'a', 0);  // a zero unit is never written
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(b.getData())), u"a+b");
}

TEST(DataBuffer, QueriesOnEmptyAndFilledBuffers) {
    DataBuffer b;
    EXPECT_EQ(b.getDataAt(0), nullptr);
    EXPECT_TRUE(b.is7bit());
    b.append("ab\x80", 3);
    EXPECT_EQ(b.getDataAt(-1), nullptr);
    EXPECT_EQ(b.getDataAt(3), nullptr);
    ASSERT_NE(b.getDataAt(2), nullptr);
    EXPECT_EQ(*b.getDataAt(2), 0x80);
    EXPECT_FALSE(b.is7bit());
}

TEST(DataBufferDeathTest, UseAfterDestructionStopsTheProcess) {
    alignas(DataBuffer) unsigned char storage[sizeof(DataBuffer)];
    auto* b = new (storage) DataBuffer;
    b->~DataBuffer();
    EXPECT_DEATH(b->append("x", 1), "bad magic|not point to an object");
}
