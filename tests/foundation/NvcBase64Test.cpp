// NvcBase64Test.cpp - encoding, and lenient decoding of dirty input
#include "foundation/NvcBase64.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Decoded(const std::string& text) {
    CNvcBase64 codec;
    size_t length = 0;
    EXPECT_EQ(0, codec.Decode(nullptr, length, CNvcString(text.c_str())));
    std::string out(length, '\x5A');
    EXPECT_EQ(0, codec.Decode(&out[0], length, CNvcString(text.c_str())));
    out.resize(length);
    return out;
}

TEST(NvcBase64, EncodesStandardVectorsAndDecodesThemBack) {
    const struct {
        std::string plain;
        const char* encoded;
    } cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"},
        {std::string("\0\xFF\x80", 3), "AP+A"},
    };
    CNvcBase64 codec;  // one object serves many operations
    for (const auto& c : cases) {
        SCOPED_TRACE(c.encoded);
        CNvcString out("this junk should be replaced");
        ASSERT_EQ(0, codec.Encode(c.plain.data(), c.plain.size(), out));
        EXPECT_STREQ(c.encoded, out.GetData());
        EXPECT_EQ(c.plain, Decoded(c.encoded));
    }
}

TEST(NvcBase64, DecodesDirtyInputWithoutRefusing) {
    EXPECT_EQ(Decoded("Zm9v\r\nYm\tFy \x0b\x0c"), "foobar") << "CR LF, tabs and blanks vanish";
    EXPECT_EQ(Decoded("Zg==Zm8="), "ffo") << "padding in the middle";
    EXPECT_EQ(Decoded("Zm9="), "fo") << "one pad counts three";
    EXPECT_EQ(Decoded("Zm9vYg"), "foob") << "short rest of two";
    EXPECT_EQ(Decoded("Zm9vYmE"), "fooba") << "short rest of three";
    EXPECT_EQ(Decoded("Zm9vY="), "foo\x60") << "short rest with pad";
    EXPECT_EQ(Decoded("Z"), "d") << "lone character";
    EXPECT_EQ(Decoded("Zm9v!!!!"), "foo\xFB\xEF\xBE") << "outside the alphabet";
    EXPECT_EQ(Decoded("\xDAm9v"), "foo") << "top-bit twin of an alphabet letter";
    EXPECT_EQ(Decoded("Zm9v\x01\x01\x01\x01"), "foo\xFB\xEF\xBE") << "other control bytes stay";
}

TEST(NvcBase64, DecodeIntoShortBufferStillGivesFullLength) {
    CNvcBase64 codec;
    char buffer[4] = {'#', '#', '#', '#'};
    size_t length = 2;
    ASSERT_EQ(0, codec.Decode(buffer, length, CNvcString("Zm9vYmFy")));
    EXPECT_EQ(6u, length);
    EXPECT_EQ(std::string("fo##"), std::string(buffer, 4));
}

TEST(NvcBase64, StringFormsWorkInPlaceAndStopAtZero) {
    CNvcBase64 codec;
    CNvcString text("user\x01pass");
    ASSERT_EQ(0, codec.EncodeString(text));
    EXPECT_STREQ("dXNlcgFwYXNz", text.GetData());
    ASSERT_EQ(0, codec.DecodeString(text));
    EXPECT_STREQ("user\x01pass", text.GetData());

    const std::string embedded("ab\0cd", 5);
    CNvcString withZero;
    codec.Encode(embedded.data(), embedded.size(), withZero);
    codec.DecodeString(withZero);
    EXPECT_STREQ("ab", withZero.GetData());
}

}  // namespace
