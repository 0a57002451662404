// StringBufferTest.cpp - capacities, growth, splitting, replacing and case rules
#include "textlib/buffers/StringBuffer.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/ExtPtrArray.h"

using brelkin::DataBuffer;
using brelkin::ExtPtrArray;
using brelkin::StringBuffer;

namespace {

std::string text(const StringBuffer& s) { return std::string(s.getString(), s.getSize()); }

// Splits and hands back the tokens as strings, deleting them.
std::vector<std::string> tokensOf(ExtPtrArray& out) {
    std::vector<std::string> tokens;
    for (int i = 0; i < out.getSize(); ++i)
        tokens.push_back(text(*static_cast<StringBuffer*>(out.getAt(i))));
    out.deleteAll();
    return tokens;
}

using Tokens = std::vector<std::string>;

}  // namespace

// The MIME tree finds its parts by serial: a copy must not share one.
TEST(StringBuffer, NullTextIsEmptyAndACopyHasItsOwnSerial) {
    EXPECT_EQ(text(StringBuffer(static_cast<const char*>(nullptr))), "");
    StringBuffer original("abc");
    StringBuffer copy(original);
    EXPECT_EQ(text(copy), "abc");
    EXPECT_NE(copy.getObjectSerial(), original.getObjectSerial());
}

TEST(StringBuffer, GrowsWhenTextReachesCapacityExactly) {
    // Each starts from 201 bytes in 202: one byte of room, which the terminator needs.
    void (*const grows[])(StringBuffer&) = {
        [](StringBuffer& s) { s.append("x"); }, [](StringBuffer& s) { s.appendN("x", 1); },
        [](StringBuffer& s) { s.appendChar('x'); }, [](StringBuffer& s) { s.prepend("x"); }};
    for (size_t i = 0; i < std::size(grows); ++i) {
        SCOPED_TRACE(i);
        StringBuffer s;
        s.appendCharN('a', 201);
        ASSERT_EQ(s.getCapacity(), 202);
        grows[i](s);
        EXPECT_EQ(s.getSize(), 202);
        EXPECT_GT(s.getCapacity(), 202);
        EXPECT_EQ(s.getString()[202], '\0');
    }
}

TEST(StringBuffer, SplitKeepsEmptyTokensQuotesAndBackslashes) {
    auto split = [](const char* input, bool quotes, bool backslash) {
        StringBuffer s(input);
        ExtPtrArray out;
        s.split(out, ',', quotes, backslash);
        return tokensOf(out);
    };
    EXPECT_EQ(split("a,,b", false, false), Tokens({"a", "", "b"}));
    EXPECT_EQ(split("", false, false), Tokens({}));
    EXPECT_EQ(split("\"a,b\",c", true, false), Tokens({"\"a,b\"", "c"}));
    EXPECT_EQ(split("\"a,b,c", true, false), Tokens({"\"a,b,c"}));
    EXPECT_EQ(split("a\\,b,c", false, true), Tokens({"a\\,b", "c"}));
    EXPECT_EQ(split("\"a\\\",b\",c", true, true), Tokens({"\"a\\\",b\"", "c"}));
    EXPECT_EQ(split("a,b\\", false, true), Tokens({"a", "b\\"}));
}

TEST(StringBuffer, SplitByStringSkipsEmptyPieces) {
    auto split = [](const char* input, const char* delimiter, int max) {
        StringBuffer s(input);
        ExtPtrArray out;
        s.splitByString(delimiter, out, max);
        return tokensOf(out);
    };
    EXPECT_EQ(split("a----b--", "--", 0), Tokens({"a", "b"}));
    EXPECT_EQ(split("a--b--c", "--", 2), Tokens({"a", "b"}));
    EXPECT_EQ(split("----", "--", 0), Tokens({}));
    EXPECT_EQ(split("abc", "", 0), Tokens({"abc"}));
}

TEST(StringBuffer, ReplaceAllCountsEveryOccurrenceReplaceFirstNeedsBoth) {
    using Result = std::pair<int, std::string>;  // count, text after
    auto replaced = [](const char* input, const char* find, const char* with) {
        StringBuffer s(input);
        const int count = s.replaceAll(find, with);
        return Result(count, text(s));
    };
    EXPECT_EQ(replaced("abcab", "ab", "X"), Result(2, "XcX"));
    EXPECT_EQ(replaced("aaa", "aa", "b"), Result(1, "ba"));
    EXPECT_EQ(replaced("aaa", "a", "aa"), Result(3, "aaaaaa"));
    EXPECT_EQ(replaced("a.b.", ".", nullptr), Result(2, "ab"));
    EXPECT_EQ(replaced("abc", "", "x"), Result(0, "abc"));
    StringBuffer self("a-b");
    EXPECT_EQ(self.replaceAll("-", self.getString()), 1);  // argument in its own block
    EXPECT_EQ(text(self), "aa-bb");

    StringBuffer s("a-b-c");
    EXPECT_TRUE(s.replaceFirst("-", "+"));
    EXPECT_EQ(text(s), "a+b-c");
    EXPECT_FALSE(s.replaceFirst("-", nullptr));
    EXPECT_FALSE(s.replaceFirst("", "x"));
    EXPECT_EQ(text(s), "a+b-c");
}

TEST(StringBuffer, NameValuePairs) {
    using Pair = std::pair<std::string, std::string>;
    auto split = [](const char* input) {
        StringBuffer name("junk"), value("junk");
        StringBuffer(input).getNameValue(name, value);
        return Pair(text(name), text(value));
    };
    EXPECT_EQ(split("x = \"a b\""), Pair("x", "a b"));
    EXPECT_EQ(split("  \r\nname  "), Pair("name", ""));
    EXPECT_EQ(split("a=\""), Pair("a", ""));
    EXPECT_EQ(split("a=b=c"), Pair("a", "b=c"));
    EXPECT_EQ(split("a=\"\"q\"\""), Pair("a", "\"q\""));
}

TEST(StringBuffer, CaseFoldingIncludesTheLatin1Ranges) {
    StringBuffer lower("AbZ\xC9\xD7\xDF\xE9");
    lower.toLowerCase();
    EXPECT_EQ(text(lower), "abz\xE9\xF7\xFF\xE9");  // 0xD7 and 0xDF go too, on purpose
    StringBuffer upper("aBz\xE9\xFF\xC9");
    upper.toUpperCase();
    EXPECT_EQ(text(upper), "ABZ\xC9\xDF\xC9");
    StringBuffer s("Stra\xC9");
    EXPECT_TRUE(s.equalsIgnoreCase("sTRA\xC9"));
    EXPECT_FALSE(s.equalsIgnoreCase("stra\xE9"));  // only a-z fold in comparisons
    const char* hello = "Hello";
    EXPECT_EQ(StringBuffer::searchIgnoreCase(hello, "LL"), hello + 2);
    EXPECT_EQ(StringBuffer::searchIgnoreCase(hello, nullptr), nullptr);
}

TEST(StringBuffer, ComparisonsWithNullAndEmpty) {
    StringBuffer empty;
    EXPECT_TRUE(empty.equals(nullptr));
    EXPECT_FALSE(empty.beginsWith(nullptr));
    StringBuffer s("abc");
    EXPECT_FALSE(s.equals(nullptr));
    EXPECT_FALSE(s.endsWith("xabc"));
    EXPECT_LT(s.compare("abd"), 0);
    EXPECT_GT(StringBuffer("\xE9").compare("a"), 0);  // bytes compare unsigned
    const char bytes[] = {'x', '\0', 'a', 'b', 'c', 'a', 'b'};
    EXPECT_EQ(StringBuffer::searchBytes(bytes, sizeof bytes, "ab"), bytes + 2);
    EXPECT_EQ(StringBuffer::searchBytes(bytes, 3, "ab"), nullptr);
    EXPECT_EQ(StringBuffer::searchBytes(bytes, 0, "x"), nullptr);
}

TEST(StringBuffer, WhitespaceAndLineEndEdits) {
    struct Case {
        const char* name;
        void (*edit)(StringBuffer&);
        const char* input;
        const char* want;
    };
    const Case cases[] = {
        {"trim", [](StringBuffer& s) { s.trim(); }, " \t\r\n ", ""},
        {"trimSpacesTabs", [](StringBuffer& s) { s.trimSpacesTabs(); }, " \r\na\r\n\t", "\r\na\r\n"},
        {"collapse", [](StringBuffer& s) { s.collapseWhitespace(); }, " a \t\r\n b ", " a b "},
        {"toCrlf", [](StringBuffer& s) { s.toCrlf(); }, "a\rb\nc\r\nd", "ab\r\nc\r\nd"},
        {"toLf", [](StringBuffer& s) { s.toLf(); }, "a\r\nb\rc\r", "a\nb\rc\r"},
        {"xml", [](StringBuffer& s) { s.encodeXmlEntities(); }, "<a b=\"&\">",
         "&lt;a b=&quot;&amp;&quot;&gt;"},
        {"removeChar", [](StringBuffer& s) { s.removeChar('-'); }, "-a-b-", "ab"},
        {"removeCharFrom", [](StringBuffer& s) { s.removeCharFrom('-', 2); }, "-a-b-", "-ab"},
        {"truncateAtChar", [](StringBuffer& s) { s.truncateAtChar(';'); }, "a;b;c", "a"},
        {"shorten past start", [](StringBuffer& s) { s.shorten(9); }, "abc", ""},
        {"replaceAnyOf5", [](StringBuffer& s) { s.replaceAnyOf5("<>:\"|", '_'); }, "a<b>:c|\"",
         "a_b__c__"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer s(c.input);
        c.edit(s);
        EXPECT_EQ(text(s), c.want);
        EXPECT_EQ(s.getString()[s.getSize()], '\0');
    }
}

TEST(StringBuffer, BinaryBytesAndOwnTextAsArgument) {
    StringBuffer s;
    s.appendN("a\0b", 3);
    EXPECT_EQ(s.getSize(), 3);
    EXPECT_TRUE(s.containsChar('b'));
    s.appendN(nullptr, 5);
    EXPECT_EQ(s.getSize(), 3);

    StringBuffer own("prefix-tail");
    own.setString(own.getString() + 7);
    EXPECT_EQ(text(own), "tail");
    own.append(own.getString());
    EXPECT_EQ(text(own), "tailtail");
    own.prepend(own.getString() + 4);
    EXPECT_EQ(text(own), "tailtailtail");
}

TEST(StringBuffer, TakeDataAndDetachHandOverBlocks) {
    DataBuffer source;
    source.append("abc", 4);  // with its terminator
    const uint8_t* block = source.getData();
    StringBuffer s("old");
    ASSERT_TRUE(s.takeData(source));
    EXPECT_EQ(text(s), "abc");
    EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.getString()), block);
    EXPECT_EQ(source.getData(), nullptr);

    DataBuffer tiny;
    tiny.append("", 1);
    s.takeData(tiny);
    EXPECT_EQ(text(s), "");
    EXPECT_EQ(tiny.getSize(), 1u);

    StringBuffer d("detached");
    int length = -1;
    char* taken = d.detach(&length);
    EXPECT_EQ(length, 8);
    EXPECT_STREQ(taken, "detached");
    std::free(taken);
    d.append("again");
    EXPECT_EQ(text(d), "again");
}

TEST(StringBuffer, SecureClearBlanksTheOldText) {
    StringBuffer s("secret");
    const char* block = s.getString();
    s.secureClear();
    EXPECT_EQ(s.getSize(), 0);
    EXPECT_EQ(std::string(block + 1, 5), "     ");
}

TEST(StringBuffer, SystemErrorTextIsTrimmedOrAbsent) {
    StringBuffer s("[");
    s.appendWindowsError(5);  // access denied: every system has a text for it
    EXPECT_GT(s.getSize(), 1);
    EXPECT_FALSE(std::isspace(static_cast<unsigned char>(s.lastChar())));
    EXPECT_FALSE(std::isspace(static_cast<unsigned char>(s.getAt(1))));
    StringBuffer none("[");
    none.appendWindowsError(0x7FFFFFF0u);
    EXPECT_EQ(text(none), "[");
}
