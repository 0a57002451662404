// BufferConvertTest.cpp - the conversion operations of DataBuffer and StringBuffer

#include <string>

#include <gtest/gtest.h>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::DataBuffer;
using brelkin::StringBuffer;

TEST(DataBufferConvert, LooksLikeMislabelledUtf8) {
    auto looks = [](const std::string& bytes, int codePage) {
        DataBuffer b;
        b.append(bytes.data(), static_cast<uint32_t>(bytes.size()));
        return b.looksLikeMislabelledUtf8(codePage);
    };
    EXPECT_FALSE(looks("caf\xE9", 1252)) << "plain latin-1 text";
    // Only the last stage of the conversion decides, and UTF-16 to UTF-8
    // of whole units never fails: a pair found still gives false.
    EXPECT_FALSE(looks("caf\xC3\xA9 \xC3\x81", 1253)) << "utf-8 in a page with holes";
    EXPECT_TRUE(looks("\xC3\xA9" "A", 1200)) << "odd byte count fails the conversion";
    EXPECT_FALSE(looks("abc\xC3", 1253)) << "pair at the very end is not a start";
}

TEST(DataBufferConvert, ToUtf8ReplacesTheDestination) {
    DataBuffer utf16, dest;
    utf16.append("\xE9\x00" "a\x00", 4);
    dest.append("junk", 4);
    EXPECT_TRUE(utf16.toUtf8(dest));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(dest.getData()), dest.getSize()), "\xC3\xA9" "a");
    DataBuffer empty;
    EXPECT_TRUE(empty.toUtf8(dest));
    EXPECT_EQ(dest.getSize(), 0u);
}

TEST(StringBufferConvert, ConvertEncodingInPlace) {
    struct Case {
        const char* name;
        const char* text;
        int from, to;
        std::string want;
        bool ok;
    } cases[] = {
        {"437 to utf-8", "\x82", 437, 65001, "\xC3\xA9", true},
        {"code page 0 leaves the text", "\xE9", 0, 65001, "\xE9", true},
        {"empty text", "", 1252, 65001, "", true},
        {"utf-8 to 1252", "\xC3\xA9\xE4\xB8\x80", 65001, 1252, "\xE9", false},
        {"to utf-16 keeps inner zeros", "a", 1252, 1200, std::string("a\0", 2), true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer s(c.text);
        EXPECT_EQ(s.convertEncoding(c.from, c.to), c.ok);
        EXPECT_EQ(std::string(s.getString(), s.getSize()), c.want);
    }
}

TEST(StringBufferConvert, ReplaceCharUtf8KeepsMultiByteCharacters) {
    auto replaced = [](const char* text) {
        StringBuffer s(text);
        s.replaceCharUtf8('/', '_');
        return std::string(s.getString());
    };
    EXPECT_EQ(replaced("a/b/c"), "a_b_c");
    EXPECT_EQ(replaced("\xC3\xA9/\xE4\xB8\x80/"), "\xC3\xA9_\xE4\xB8\x80_");
    EXPECT_EQ(replaced("\xC3\xA9"), "\xC3\xA9") << "byte absent";
}
