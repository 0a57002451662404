// EncodedWordsTest.cpp - header encoded words: broken input, word splitting, round trips
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "MimeTestText.h"
#include "mime/ContentCoding.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"

using brelkin::ContentCoding;
using brelkin::DataBuffer;
using brelkin::StringBuffer;
using mimetest::str;

namespace {

std::string decode(const std::string& in) {
    StringBuffer text;
    text.appendN(in.data(), static_cast<int>(in.size()));
    ContentCoding::decodeEncodedWords(text);
    EXPECT_EQ(text.getMode(), 2);
    return str(text);
}

std::string convert(const std::string& in, const char* from, const char* to) {
    DataBuffer out;
    brelkin::EncodingConvert().convertByNames(from, to, in.data(), in.size(), out);
    return str(out);
}

// The words of an encoder's output, split at the separator it writes.
std::vector<std::string> words(const std::string& encoded) {
    return mimetest::split(encoded, "\r\n\t");
}

std::string encode(bool isB, const std::string& in, int codePage, const char* charset,
                   bool commas = false) {
    ContentCoding coder;
    coder.setEncodeCommas(commas);
    StringBuffer out;
    EXPECT_TRUE(isB ? coder.encodeBWords(in.data(), in.size(), codePage, charset, out)
                    : coder.encodeQWords(in.data(), in.size(), codePage, charset, out));
    return str(out);
}

// Texts of well over 60 bytes with a blank every few characters.
std::string repeated(const char* unit, int times) {
    std::string out;
    for (int i = 0; i < times; ++i) out += unit;
    return out;
}
const std::string kJapanese = repeated("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE ", 12);
const std::string kChinese = repeated("\xE4\xB8\xAD\xE6\x96\x87\xE9\x82\xAE\xE4\xBB\xB6 ", 12);

}  // namespace

TEST(EncodedWordDecode, BrokenAndOddWords) {
    struct Case {
        const char* name;
        std::string input;
        std::string want;
    } cases[] = {
        {"cut off keeps what stood before", "x =?utf-8?Q?a", "x "},
        {"cut off after the encoding byte", "ab=?utf-8?Q", "ab"},
        {"no ? behind the encoding byte", "ab=?utf-8?QQa?=", "ab"},
        {"nothing behind the ?", "ab=?utf-8?Q?", "ab"},
        {"cut off second word drops only it", "=?utf-8?Q?a?= =?utf-8?Q?b", "a "},
        {"8bit read as utf-8", "=?8bit?B?w6Q=?=", "\xC3\xA4"},
        {"unknown charset keeps the bytes", "=?x-nothing?Q?=E4?=", "\xE4"},
        {"known charset converted", "=?iso-8859-1?Q?=E4?=", "\xC3\xA4"},
        {"any other encoding byte means Q", "=?utf-8?X?a_b?=", "a b"},
        {"empty text gives nothing", "a=?utf-8?Q?\?=b", "ab"},
        {"blanks between words kept", "=?utf-8?Q?a?= \t=?utf-8?Q?b?=", "a \tb"},
        {"? = inside the text ends the word", "=?utf-8?Q?a?=b?=", "ab?="},
        {"text begins with =XX, not with ?=", "=?utf-8?Q?=41?=", "A"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(decode(c.input), c.want);
    }
}

TEST(EncodedWordDecode, QTextRules) {
    // "?" and controls cannot stand in a word and go; a lone "=" stays.
    const char* const cases[][2] = {{"a?b", "ab"},          {"a_b c", "a b c"},
                                    {"=c3=A4", "\xC3\xA4"}, {"=G1=", "=G1="},
                                    {"a=4", "a=4"},         {"a\x01\t\x7F\x9F\xA0", "a\xA0"}};
    for (const auto& c : cases) {
        DataBuffer out;
        ContentCoding::decodeQText(c[0], static_cast<int>(std::strlen(c[0])), out);
        EXPECT_EQ(str(out), c[1]) << c[0];
    }
}

TEST(EncodedWordDecode, AddressCommasAndRawBytes) {
    StringBuffer text("=?utf-8?Q?Doe=2C_John?= <j@x.org>, a@b.c");
    bool sawComma = false;
    ContentCoding::decodeEncodedWordsForAddresses(text, sawComma);
    EXPECT_TRUE(sawComma);
    EXPECT_EQ(str(text), "Doe_COMMA_ John <j@x.org>, a@b.c");

    StringBuffer noComma("=?utf-8?Q?Doe?= <j@x.org>, a@b.c");
    sawComma = true;
    ContentCoding::decodeEncodedWordsForAddresses(noComma, sawComma);
    EXPECT_FALSE(sawComma) << "commas of the plain text are not the decoder's";

    DataBuffer raw;
    raw.append("<", 1);
    ContentCoding::decodeEncodedWordsRaw(StringBuffer("a =?iso-8859-1?Q?=E4?= =?8bit?B?w6Q=?= =?x"),
                                         raw);
    EXPECT_EQ(str(raw), "<a \xE4 \xC3\xA4 ") << "no conversion, stops with what it has";
}

TEST(EncodedWordEncode, SingleWordsAndTextLeftAsItIs) {
    EXPECT_EQ(encode(false, "a b=?_,\xC3\xA9", 0, nullptr), "=?utf-8?Q?a_b=3D=3F=5F,=C3=A9?=");
    EXPECT_EQ(encode(false, "a,b", 65001, "utf-8", true), "=?utf-8?Q?a=2Cb?=");
    EXPECT_EQ(encode(true, "caf\xC3\xA9", 65001, "utf-8"), "=?utf-8?B?Y2Fmw6k=?=");
    EXPECT_EQ(encode(true, "caf\xC3\xA9", 65001, nullptr), "") << "B needs a charset name";
    EXPECT_EQ(encode(true, "plain text", 65001, "utf-8"), "plain text");
    EXPECT_EQ(encode(false, " \t ", 65001, "utf-8"), " \t ");
    // Under ISO-2022-JP 7-bit text may hold shift sequences: encoded all the same.
    EXPECT_EQ(encode(true, "\x1B$B$\"\x1B(B", 50220, "iso-2022-jp"),
              "=?iso-2022-jp?B?GyRCJCIbKEI=?=");

    auto byCharset = [](const std::string& in, const char* charset) {
        StringBuffer out;
        ContentCoding().encodeWordByCharset(in.data(), in.size(), charset, out);
        return str(out);
    };
    EXPECT_EQ(byCharset("\xA4", "SHIFT_JIS"), "=?SHIFT_JIS?B?pA==?=");
    EXPECT_EQ(byCharset("\xA4", "iso-8859-1"), "=?iso-8859-1?Q?=A4?=");
    std::string already = std::string(90, 'x') + "=?a?q?b?=";
    EXPECT_EQ(byCharset(already, "utf-8"), already);
    std::string late = std::string(100, 'x') + "?Q?";
    EXPECT_EQ(byCharset(late, "utf-8"), "=?utf-8?Q?" + std::string(100, 'x') + "=3FQ=3F?=")
        << "a marker counts in the first 100 bytes only; never split";
}

// Each word must hold whole characters: converted alone, it gives the same
// characters as its share of the text; the pieces join up to the text, and
// every piece after the first starts with the blank it was cut at.
TEST(EncodedWordEncode, LongTextsSplitIntoWholeCharacters) {
    struct Case {
        const char* charset;
        int codePage;
        std::string utf8;
    } cases[] = {
        {"shift_jis", 932, kJapanese},
        {"gb2312", 936, kChinese},
        {"utf-8", 65001, kJapanese},
        {"iso-2022-jp", 50220, kJapanese},
    };
    for (const Case& c : cases) {
        for (bool isB : {false, true}) {
            SCOPED_TRACE(std::string(c.charset) + (isB ? " B" : " Q"));
            std::string bytes = convert(c.utf8, "utf-8", c.charset);
            ASSERT_FALSE(bytes.empty());
            std::vector<std::string> list = words(encode(isB, bytes, c.codePage, c.charset));
            EXPECT_GT(list.size(), 1u);
            std::string joined;
            for (size_t i = 0; i < list.size(); ++i) {
                std::string piece = decode(list[i]);
                EXPECT_TRUE(mimetest::isUtf8(piece)) << "word " << i << ": " << list[i];
                if (i > 0) {
                    EXPECT_EQ(piece[0], ' ') << "word " << i;
                }
                joined += piece;
            }
            EXPECT_EQ(joined, c.utf8);
        }
    }
    // Without blanks nothing can be cut: one word, however long.
    std::string noBlanks = repeated("\xE6\x97\xA5", 40);
    EXPECT_EQ(words(encode(false, noBlanks, 65001, "utf-8")).size(), 1u);
    EXPECT_EQ(words(encode(true, noBlanks, 65001, "utf-8")).size(), 1u);
    // A code page nobody knows gives nothing to split: nothing is written.
    StringBuffer out;
    std::string text(80, 'a');
    EXPECT_FALSE(ContentCoding().encodeQWords(text.data(), text.size(), 99999, "x-none", out));
    EXPECT_EQ(out.getSize(), 0);
}
