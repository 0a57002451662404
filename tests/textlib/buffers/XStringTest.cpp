// XStringTest.cpp - the three forms of XString and how they are made

#include <string>

#include <gtest/gtest.h>

#include "platform/CodePage.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/buffers/XString.h"

using brelkin::XString;

namespace {

// The tests spell ANSI text in windows-1252, the default system page.
#define REQUIRE_ANSI_1252()                                                     \
    do {                                                                        \
        if (platform::GetACP() != 1252)                                         \
            GTEST_SKIP() << "system ANSI code page is not 1252";                \
    } while (0)

std::u16string Units(const char16_t* p) { return p ? std::u16string(p) : u"<null>"; }

}  // namespace

TEST(XString, NewStringIsEmptyInEveryForm) {
    XString s;
    ASSERT_NE(s.getUnicode(), nullptr);
    EXPECT_EQ(s.getUnicode()[0], 0);
    EXPECT_STREQ(s.getAnsi(), "");
}

TEST(XString, MakesMissingFormsFromWhatIsCurrent) {
    REQUIRE_ANSI_1252();
    XString fromUtf8;
    fromUtf8.setUtf8("caf\xC3\xA9");
    EXPECT_STREQ(fromUtf8.getAnsi(), "caf\xE9");
    EXPECT_EQ(Units(fromUtf8.getUnicode()), u"caf\u00e9");

    XString fromAnsi;
    fromAnsi.setAnsi("caf\xE9");
    EXPECT_STREQ(fromAnsi.getUtf8(), "caf\xC3\xA9");
    EXPECT_EQ(fromAnsi.getSizeUtf8(), 5);

    XString fromUnicode;
    fromUnicode.setUnicode(u"\u20ac1");
    EXPECT_STREQ(fromUnicode.getUtf8(), "\xE2\x82\xAC" "1");
    EXPECT_STREQ(fromUnicode.getAnsi(), "\x80" "1");
    EXPECT_EQ(fromUnicode.getNumChars(), 2);  // ANSI form is current now: bytes
}

TEST(XString, Utf8MarkIsDropped) {
    XString s;
    s.setUtf8("\xEF\xBB\xBF" "abc");
    EXPECT_EQ(s.getSizeUtf8(), 3);
    s.setUtf8("x");
    s.appendUtf8("\xEF\xBB\xBF" "y");
    EXPECT_STREQ(s.getUtf8(), "xy");
    EXPECT_TRUE(s.beginsWithUtf8("\xEF\xBB\xBF" "x"));
}

// takeUtf8 is setUtf8 without the copy; a 7-bit text then changes form
// without a copy. Both must read exactly as before.
TEST(XString, TakenAndMovedTextsReadAsCopiedOnes) {
    REQUIRE_ANSI_1252();
    const std::string seven(100000, 'a');
    const char* const texts[] = {"plain", "caf\xC3\xA9", "\xEF\xBB\xBF" "marked", "", seven.c_str()};
    for (const char* text : texts) {
        SCOPED_TRACE(std::string(text).substr(0, 12));
        XString copied;
        copied.setUtf8(text);
        brelkin::StringBuffer buffer(text);
        XString taken;
        taken.takeUtf8(buffer);
        EXPECT_STREQ(taken.getAnsi(), copied.getAnsi());
        EXPECT_STREQ(taken.getUtf8(), copied.getUtf8());
        EXPECT_EQ(taken.getNumChars(), copied.getNumChars());
        EXPECT_TRUE(taken.isAnsiOk());
    }
    brelkin::StringBuffer zeroInside("ab");
    zeroInside.appendN("\0cd", 3);
    XString cut;
    cut.takeUtf8(zeroInside);
    EXPECT_STREQ(cut.getUtf8(), "ab");
    EXPECT_EQ(cut.getSizeUtf8(), 2);
}

TEST(XString, AppendsKeepTheWholeText) {
    REQUIRE_ANSI_1252();
    XString s;
    s.setUtf8("\xC3\xA9");
    s.appendAnsi("\xE8");  // builds the ANSI form first, so the UTF-8 text survives
    EXPECT_STREQ(s.getUtf8(), "\xC3\xA9\xC3\xA8");

    s.appendUnicode(u"\u00ea");
    EXPECT_STREQ(s.getUtf8(), "\xC3\xA9\xC3\xA8\xC3\xAA");
    EXPECT_EQ(s.getNumChars(), 3);

    XString t;
    t.setAnsi("a");
    t.appendString(s);
    t.appendString(t);
    EXPECT_STREQ(t.getUtf8(), "a\xC3\xA9\xC3\xA8\xC3\xAA" "a\xC3\xA9\xC3\xA8\xC3\xAA");
    t.appendUtf8(nullptr);
    EXPECT_EQ(t.getNumChars(), 8);
}

TEST(XString, AnsiStatus) {
    REQUIRE_ANSI_1252();
    XString han;
    han.setUtf8("a\xE4\xB8\x80");
    EXPECT_FALSE(han.isAnsiOk());
    EXPECT_STREQ(han.getUtf8(), "a\xE4\xB8\x80");

    XString fits;
    fits.setUnicode(u"\u00e9t\u00e9");
    EXPECT_TRUE(fits.isAnsiOk());
    EXPECT_STREQ(fits.getAnsi(), "\xE9t\xE9");

    fits.appendUtf8("\xE4\xB8\x80");  // new text: the verdict is open again
    EXPECT_FALSE(fits.isAnsiOk());

    XString cleared;
    cleared.setAnsi("");
    cleared.setUtf8("\xE4\xB8\x80");
    EXPECT_FALSE(cleared.isAnsiOk());
}

TEST(XString, SearchesCountUtf16Units) {
    XString s;
    s.setUtf8("\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80 end");
    // The 4-byte form vanishes on the way to UTF-16, so it counts nothing.
    EXPECT_EQ(s.indexOfUtf8("\xC3\xA9t"), 0);
    EXPECT_EQ(s.indexOfUtf8(" "), 3);
    EXPECT_EQ(s.indexOfUtf8("end"), 5);
    EXPECT_EQ(s.indexOfUtf8(nullptr), -1);
    EXPECT_TRUE(s.containsUtf8("t\xC3\xA9"));
    EXPECT_FALSE(s.containsUtf8(nullptr));
    EXPECT_FALSE(s.beginsWithUtf8("t"));
}

TEST(XString, ReplaceCharWorksOnTheUtf16Form) {
    REQUIRE_ANSI_1252();
    XString s;
    s.setUtf8("a\xC3\xA9" "a\xE4\xB8\x80");
    s.replaceChar('a', '\xE8');
    EXPECT_STREQ(s.getUtf8(), "\xC3\xA8\xC3\xA9\xC3\xA8\xE4\xB8\x80");
}

TEST(XString, AppendEncoded) {
    REQUIRE_ANSI_1252();
    auto appended = [](const char* text, const char* charset) {
        XString s;
        s.setUtf8("<");
        s.appendEncoded(text, charset);
        return std::string(s.getUtf8());
    };
    EXPECT_EQ(appended("\xC3\xA9", nullptr), "<\xC3\xA9") << "null charset is utf-8";
    EXPECT_EQ(appended("\xC3\xA9", "   "), "<\xC3\xA9") << "blank charset is utf-8";
    EXPECT_EQ(appended("\xE9", "Ansi"), "<\xC3\xA9");
    EXPECT_EQ(appended("\xE0", "iso-8859-7"), "<\xCE\xB0");
    EXPECT_EQ(appended("abc", "no-such-charset"), "<") << "unknown charset appends nothing";
    EXPECT_EQ(appended(nullptr, "utf-8"), "<");
}
