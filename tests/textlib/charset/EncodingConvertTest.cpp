// EncodingConvertTest.cpp - routes, byte order marks and results of conversion

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/EncodingConvert.h"

using brelkin::DataBuffer;
using brelkin::EncodingConvert;

namespace {

std::string B(const char* bytes, size_t n) { return std::string(bytes, n); }

std::string Unit(unsigned value) {
    return std::string{static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
}

std::string BytesOf(const DataBuffer& out) {
    return std::string(reinterpret_cast<const char*>(out.getData()), out.getSize());
}

struct Case {
    const char* name;
    int from;
    int to;
    std::string in;
    std::string want;
    bool ok;
};

void RunCases(const Case* cases, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.name);
        DataBuffer out;
        out.append("junk", 4);
        EncodingConvert conv;
        const bool ok = conv.convert(c.from, c.to, c.in.data(), static_cast<uint32_t>(c.in.size()), out);
        EXPECT_EQ(BytesOf(out).substr(4), c.want);
        EXPECT_EQ(ok, c.ok);
    }
}

}  // namespace

TEST(EncodingConvert, ByteOrderMarks) {
    const Case cases[] = {
        {"utf-8 to itself keeps the mark", 65001, 65001, "\xEF\xBB\xBF" "a", "\xEF\xBB\xBF" "a", true},
        {"utf-8 to utf-16 drops it", 65001, 1200, "\xEF\xBB\xBF" "a", B("a\0", 2), true},
        {"big-endian mark beats the number", 1200, 65001, B("\xFE\xFF\0a", 4), "a", true},
        {"little-endian mark beats 1201", 1201, 65001, B("\xFF\xFE" "a\0", 4), "a", true},
        {"1201 without mark is big-endian", 1201, 1200, B("\0a\0b", 4), B("a\0b\0", 4), true},
        {"nothing but a mark", 1200, 65001, "\xFF\xFE", "", true},
        {"utf-32 big-endian mark", 65005, 65001, B("\0\0\xFE\xFF\0\0\0a", 8), "a", true},
        {"65006 without mark is big-endian", 65006, 65001, B("\0\0\0a", 4), "a", true},
        {"65005 little-endian", 65005, 1200, B("\xE9\0\0\0", 4), B("\xE9\0", 2), true},
        {"utf-32 shorter than a unit", 65005, 65001, "ab", "", true},
        {"to 1201 swaps", 65001, 1201, "ab", B("\0a\0b", 4), true},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, Utf16AndUtf8Edges) {
    const Case cases[] = {
        {"odd length to utf-8", 1200, 65001, B("a\0b\0c", 5), "ab", false},
        {"zero unit vanishes in utf-8", 1200, 65001, B("a\0\0\0b\0", 6), "ab", true},
        {"zero unit stays on a table page", 1200, 1252, B("a\0\0\0b\0", 6), B("a\0b", 3), true},
        {"four-byte utf-8 vanishes", 65001, 1200, "\xF0\x9F\x98\x80", "", true},
        {"surrogates come out as two 3-byte forms", 1200, 65001, B("\x3D\xD8\x00\xDE", 4),
         "\xED\xA0\xBD\xED\xB8\x80", true},
        {"3-byte surrogate passes to utf-16", 65001, 1200, "\xED\xA0\xBD", B("\x3D\xD8", 2), true},
        {"bad continuation skips one byte", 65001, 1200, "\xC3" "a", B("a\0", 2), true},
        {"overlong E0 skipped byte by byte", 65001, 1200, "\xE0\x80\x80" "b", B("b\0", 2), true},
        {"zero byte from utf-8", 65001, 1200, B("\0", 1), B("\0\0", 2), true},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, TableRoutesAndResults) {
    const Case cases[] = {
        {"1252 to utf-8", 1252, 65001, "caf\xE9 \x80", "caf\xC3\xA9 \xE2\x82\xAC", true},
        {"missing character dropped, rest arrives", 65001, 1252, "a\xE4\xB8\x80" "b", "ab", false},
        {"first stage does not decide", 1253, 65001, "a\xAA" "b", "ab", true},
        {"latin-1 C1 byte is no character", 28591, 1252, "a\x93", "a", true},
        {"latin-1 C1 byte to utf-16 decides", 28591, 1200, "\x93", "", false},
        {"arabic-indic digit folds", 1200, 1256, B("\x63\x06", 2), "3", true},
        {"extended arabic digit folds", 1200, 28596, B("\xF9\x06", 2), "9", true},
        {"same number copies anything", 4711, 4711, "\xFF", "\xFF", true},
        {"zero takes the other side", 0, 65001, "\xC3", "\xC3", true},
        {"unknown source", 4711, 65001, "a", "", false},
        {"unknown target", 65001, 4711, "a", "", false},
        {"shift-jis to utf-8", 932, 65001, "\x82\xA0" "A", "\xE3\x81\x82" "A", true},
        {"big5 lone lead byte", 950, 1200, "\xA4", "", false},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, UnusualTableEntriesAndPagesWithoutRoute) {
    const Case cases[] = {
        // 0x814E follows 0x8198 in rising Unicode order: a delta of 0xFFB6.
        {"shift-jis delta wraps at 16 bits", 932, 1200, "\x81\x4E", Unit(0x00A8), true},
        {"shift-jis code before the wrap", 932, 1200, "\x81\x98", Unit(0x00A7), true},
        {"shift-jis wrapped code back", 1200, 932, Unit(0x00A8), "\x81\x4E", true},
        {"ascii passes around the multi-byte table", 932, 1200, "A", Unit('A'), true},
        // Best-fit entries go one way only.
        {"best fit yen", 1200, 932, Unit(0x00A5), "\x5C", true},
        {"best-fit target reads as itself", 932, 1200, "\x5C", Unit(0x5C), true},
        // Mac Japanese is 932 with its differences: removed private-use
        // characters are gone both ways, the overrides hold.
        {"mac japanese private use removed", 1200, 10001, Unit(0xF8F0), "", false},
        {"mac japanese A0", 10001, 1200, "\xA0", Unit(0x00A0), true},
        {"mac japanese trade mark", 1200, 10001, Unit(0x2122), "\xFE", true},
        {"mac japanese hiragana", 10001, 1200, "\x82\xA0", Unit(0x3042), true},
        {"932 A0 is private use", 932, 1200, "\xA0", Unit(0xF8F0), true},
        {"52936 from", 52936, 65001, "\xE0", "", false},
        {"52936 to", 65001, 52936, "a", "", false},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, ComputedOuterStages) {
    const Case cases[] = {
        {"utf-8 to iso-2022-jp", 65001, 50221, "\xE3\x81\x82", "\x1b$B\x24\x22\x1b(B", true},
        {"iso-2022-jp to utf-8", 50222, 65001, "\x1b$B\x24\x22\x1b(B", "\xE3\x81\x82", true},
        {"iso-2022-jp of only escapes", 50220, 65001, "\x1b(B", "", true},
        {"utf-8 to iso-2022-kr", 65001, 50225, "\xEA\xB0\x80", "\x1b$)C\x0e\x30\x21", true},
        {"iso-2022-kr to utf-8", 50225, 65001, "\x1b$)C\x0e\x30\x21\x0f", "\xEA\xB0\x80", true},
        {"utf-7 out", 65001, 65000, "a+b!", "a+-b+ACE-", true},
        {"utf-7 out with failed core writes nothing", 1253, 65000, "a\xAA", "", false},
        {"utf-7 in", 65000, 65001, "+AOk-", "\xC3\xA9", true},
        {"utf-32 out", 65001, 65006, "a", B("\0\0\0a", 4), true},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, MacArabicPrePassReversesRuns) {
    // 0xB0 0xB1 (digits, in the run set) are reversed and lose 0x80; 0x81
    // becomes 0xA0 (no-break space) and 'a' ends the run.
    const Case cases[] = {
        {"digit run reversed", 10004, 65001, "\xB1\xB2" "a", "21a", true},
        {"run open at the end reversed", 10004, 65001, "a\xB1\xB2\xB3", "a321", true},
        {"letters untouched", 10004, 1200, "\xC7", B("\x27\x06", 2), true},
    };
    RunCases(cases, std::size(cases));
}

TEST(EncodingConvert, NullOrEmptyInputConvertsToNothing) {
    DataBuffer out;
    EncodingConvert conv;
    EXPECT_TRUE(conv.convert(1252, 65001, nullptr, 5, out));
    EXPECT_TRUE(conv.convert(1252, 65001, "abc", 0, out));
    EXPECT_EQ(out.getSize(), 0u);
}

TEST(EncodingConvert, Utf8AndUtf16SourcesGiveTheSameBytes) {
    // Every BMP character but the surrogates, from UTF-16 and from UTF-8:
    // the streamed UTF-8 route must agree with the unit-by-unit one.
    std::string utf16;
    for (unsigned u = 1; u < 0x10000; ++u) {
        if (u >= 0xD800 && u <= 0xDFFF)
            continue;
        utf16 += static_cast<char>(u & 0xFF);
        utf16 += static_cast<char>(u >> 8);
    }
    EncodingConvert conv;
    DataBuffer utf8;
    ASSERT_TRUE(conv.convert(1200, 65001, utf16.data(), static_cast<uint32_t>(utf16.size()), utf8));
    // One page per kind of table (single-byte, EBCDIC, double-byte, derived,
    // EUC), and 1256, whose digit folding keeps UTF-8 off the streamed route.
    for (int codePage : {1252, 1256, 37, 932, 10001, 51932}) {
        SCOPED_TRACE(codePage);
        DataBuffer fromUtf16, fromUtf8;
        const bool ok16 = conv.convert(1200, codePage, utf16.data(), static_cast<uint32_t>(utf16.size()), fromUtf16);
        const bool ok8 = conv.convert(65001, codePage, utf8.getData(), utf8.getSize(), fromUtf8);
        EXPECT_FALSE(ok16);
        EXPECT_EQ(ok8, ok16);
        ASSERT_EQ(fromUtf8.getSize(), fromUtf16.getSize());
        EXPECT_EQ(0, std::memcmp(fromUtf8.getData(), fromUtf16.getData(), fromUtf8.getSize()));
        EXPECT_GT(fromUtf16.getSize(), 120u);
    }
}

TEST(EncodingConvert, AnyBytesThroughEveryKindOfRoute) {
    // Hostile input must only ever give a result: under the sanitizers this
    // catches reads past the end in the stateful decoders and the lookups.
    const int pages[] = {1200, 1201, 65000, 65001, 65005, 65006, 50220, 50225,
                         1252, 10004, 1256, 37, 932, 936, 949, 950, 1361, 10001, 51932};
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    for (int round = 0; round < 40; ++round) {
        std::string in(next() % 64 + 1, '\0');
        for (char& c : in)
            c = static_cast<char>(next() >> 16);
        if (round % 4 == 0)
            in = "\x1b$B" + in + "\x1b(I+-+AG" + in;
        for (int from : pages) {
            for (int to : pages) {
                DataBuffer out;
                EncodingConvert conv;
                conv.convert(from, to, in.data(), static_cast<uint32_t>(in.size()), out);
                EXPECT_LT(out.getSize(), in.size() * 8 + 64) << from << " -> " << to;
            }
        }
    }
}

TEST(EncodingConvert, ByNames) {
    EncodingConvert conv;
    DataBuffer out;
    EXPECT_TRUE(conv.convertByNames("ISO-8859-7", "utf-8", "\xE0", 1, out));
    EXPECT_EQ(BytesOf(out), "\xCE\xB0");
    EXPECT_FALSE(conv.convertByNames("utf-8", "no-such-charset", "\xE0", 1, out));
    EXPECT_FALSE(conv.convertFromName("no-such-charset", 65001, "\xE0", 1, out));
    EXPECT_EQ(BytesOf(out), "\xCE\xB0") << "a refused name appends nothing";
    EXPECT_TRUE(conv.convertFromName("windows-1252", 65001, "\x80", 1, out));
    EXPECT_EQ(BytesOf(out), "\xCE\xB0\xE2\x82\xAC");
}
