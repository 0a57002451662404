// ContentCodingTest.cpp - line shapes, tolerant decoding and round trips
#include "mime/ContentCoding.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::ContentCoding;
using brelkin::DataBuffer;
using brelkin::StringBuffer;

namespace {

const char kJunk[] = "junk:";

// Both overloads, which must write the same lines behind what is there.
std::string encodeBase64(const std::string& in) {
    StringBuffer out(kJunk);
    EXPECT_TRUE(ContentCoding().encodeBase64(in.data(), in.size(), out));
    std::string s(out.getString(), out.getSize());
    EXPECT_EQ(s.compare(0, 5, kJunk), 0) << "output must be appended to";
    DataBuffer bytes;
    bytes.appendStr(kJunk);
    EXPECT_TRUE(ContentCoding().encodeBase64(in.data(), in.size(), bytes));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.getData()), bytes.getSize()), s);
    return s.substr(5);
}

std::string decodeBase64(const std::string& in) {
    DataBuffer out;
    out.append(kJunk, 5);
    EXPECT_TRUE(ContentCoding().decodeBase64(in.data(), in.size(), out));
    return std::string(reinterpret_cast<const char*>(out.getData()) + 5, out.getSize() - 5);
}

std::string encodeQp(const std::string& in) {
    StringBuffer out(kJunk);
    EXPECT_TRUE(ContentCoding().encodeQuotedPrintable(in.data(), in.size(), out));
    return std::string(out.getString() + 5, out.getSize() - 5);
}

std::string decodeQp(const std::string& in) {
    DataBuffer out;
    out.append(kJunk, 5);
    // False only for empty input, which decodes to nothing either way.
    EXPECT_EQ(ContentCoding().decodeQuotedPrintable(in.data(), in.size(), out), !in.empty());
    return std::string(reinterpret_cast<const char*>(out.getData()) + 5, out.getSize() - 5);
}

struct Case {
    const char* name;
    std::string input;
    std::string want;
};

}  // namespace

TEST(Base64Encode, LineShapeAndFinalLineEnd) {
    std::string line76;
    for (int i = 0; i < 19; ++i) line76 += "YWFh";
    const Case cases[] = {
        {"empty", "", ""},
        {"one byte", "a", "YQ==\r\n"},
        {"two bytes", "ab", "YWI=\r\n"},
        {"one group", "abc", "YWJj\r\n"},
        {"57 bytes end in an empty line", std::string(57, 'a'), line76 + "\r\n\r\n"},
        {"56 bytes: padded group fills the line", std::string(56, 'a'),
         std::string(line76, 0, 72) + "YWE=\r\n"},
        {"58 bytes", std::string(58, 'a'), line76 + "\r\nYQ==\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(encodeBase64(c.input), c.want);
    }
}

TEST(Base64Decode, ReadsBrokenInputAsFarAsItGoes) {
    const Case cases[] = {
        {"padding ends the data", "QUJD=ignored", "ABC"},
        {"blanks and line ends skipped", "QU JD\r\n", "ABC"},
        {"foreign and 8-bit bytes skipped", "Q!U\x80J\xFF" "D", "ABC"},
        {"zero byte ends the data", std::string("QUJD\0QUJD", 9), "ABC"},
        {"three digits give two bytes", "QUJ", "AB"},
        {"two digits give one byte", "QU", "A"},
        {"a lone digit gives nothing", "Q", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(decodeBase64(c.input), c.want);
    }
    DataBuffer out;
    EXPECT_TRUE(ContentCoding().decodeBase64(nullptr, 5, out));
    EXPECT_EQ(out.getSize(), 0u);
}

TEST(QuotedPrintableDecode, RepairsAndLineEnds) {
    const Case cases[] = {
        {"soft break", "a=\r\nb", "ab"},
        {"trailing blanks dropped", "a  \r\nb", "a\r\nb"},
        {"bad digits kept as text", "a=zz", "a=zz"},
        {"one bad digit", "=4g", "=4g"},
        {"escape at the very end", "a=4", "a=4"},
        {"soft break at the end", "a=", "a"},
        {"escapes of either case", "=C3=a4", "\xC3\xA4"},
        {"bare LF becomes CR LF", "a\nb", "a\r\nb"},
        {"last line gets no line end", "a\r\nb  ", "a\r\nb"},
        {"sign-extended byte", "=FFFFFFE4x", "\xE4x"},
        {"sign-extended, digits missing", "=FFFFFF", std::string(1, '\0')},
        {"0xFF alone", "=FFx", "\xFFx"},
        {"0xBD counts as =", "\xBD" "41", "A"},
        {"0x8A ends a line", "a\x8A" "b", "a\r\nb"},
        {"zero byte ends the input", std::string("a\0b", 3), "a"},
        {"soft break then trailing blanks", "a= \t\r\nb", "ab"},
        {"equals runs", "==\r\nx", "=x"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(decodeQp(c.input), c.want);
    }
    DataBuffer out;
    EXPECT_FALSE(ContentCoding().decodeQuotedPrintable("", 0, out));
    EXPECT_FALSE(ContentCoding().decodeQuotedPrintable(nullptr, 3, out));
}

TEST(QuotedPrintableEncode, EscapesAndSoftBreaks) {
    const std::string a75(75, 'a');
    const Case cases[] = {
        {"empty", "", ""},
        {"From at a line start", "From me", "=46rom me"},
        {"From after CR LF", "a\r\nFrom x", "a\r\n=46rom x"},
        {"From elsewhere", "xFrom me", "xFrom me"},
        {"From without blank", "Fromage", "Fromage"},
        {"single dot", ".", "=2E"},
        {"dot after CR LF", "a\r\n.\r\n", "a\r\n=2E\r\n"},
        {"blank before CR LF", "a \r\nb", "a=20\r\nb"},
        {"blank at the end", "a\t", "a=09"},
        {"inner blank", "a b", "a b"},
        {"equals and 8-bit", "=\xE4\x7F", "=3D=E4=7F"},
        {"lone CR and LF", "a\rb\nc", "a=0Db=0Ac"},
        {"long line breaks at 75", std::string(80, 'a'), a75 + "=\r\naaaaa"},
        {"75 at the end: no break", a75, a75},
        {"75 before CR LF: no break", a75 + "\r\nb", a75 + "\r\nb"},
        {"escape near the limit", std::string(73, 'a') + "\xE4", std::string(73, 'a') + "=\r\n=E4"},
        {"escape just fits", std::string(72, 'a') + "\xE4" "b", std::string(72, 'a') + "=E4=\r\nb"},
        {"dot after a soft break", std::string(75, 'a') + ".", a75 + "=\r\n=2E"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(encodeQp(c.input), c.want);
    }
}

TEST(QuotedPrintable, SignExtensionRepairBreaksOneRoundTrip) {
    // Kept on purpose: 0xFF followed by "FFFF" reads back as the repair.
    const std::string data = "\xFF" "FFFF41";
    EXPECT_EQ(encodeQp(data), "=FFFFFF41");
    EXPECT_EQ(decodeQp(encodeQp(data)), "A");
}

// Outputs are written through raw pointers into space reserved from the
// published bounds. Exact-size buffers make any write past a bound an
// AddressSanitizer report instead of a silent use of slack.
TEST(ContentCoding, HostileInputStaysWithinTheReservedBounds) {
    const std::string alphabet =
        std::string("=\r\n \t.FromABCDEF0123456789abc\xBD\x8A\x8D\xA0\xFF") + std::string(1, '\0');
    std::mt19937 rng(99);
    ContentCoding coding;
    for (int round = 0; round < 2000; ++round) {
        std::string input(rng() % 300, '\xFF');  // every tenth: escapes only, the worst case
        if (round % 10 != 0)
            for (char& c : input) c = alphabet[rng() % alphabet.size()];
        SCOPED_TRACE(testing::PrintToString(input));
        auto count = static_cast<uint32_t>(input.size());

        uint32_t lineFeeds = 0;
        for (unsigned char c : input) lineFeeds += (c & 0x7F) == '\n';
        DataBuffer qp;
        ASSERT_TRUE(qp.ensureCapacity(count + lineFeeds + 1));
        coding.decodeQuotedPrintable(input.data(), count, qp);
        EXPECT_LE(qp.getSize(), count + lineFeeds);

        DataBuffer b64;
        ASSERT_TRUE(b64.ensureCapacity(count / 4 * 3 + 3));
        coding.decodeBase64(input.data(), count, b64);

        auto qpBound = static_cast<int>(ContentCoding::quotedPrintableEncodedSize(count));
        StringBuffer qpText(qpBound + 1);
        coding.encodeQuotedPrintable(input.data(), count, qpText);
        EXPECT_EQ(qpText.getCapacity(), qpBound + 1) << "grew: the bound was too small";

        auto b64Bound = static_cast<int>(ContentCoding::base64EncodedSize(count, 76));
        StringBuffer b64Text(b64Bound + 1);
        coding.encodeBase64(input.data(), count, b64Text);
        EXPECT_EQ(b64Text.getCapacity(), b64Bound + 1);
    }
}
