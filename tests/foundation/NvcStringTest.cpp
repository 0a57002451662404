// NvcStringTest.cpp - replacing, tokens, trimming, formatting and unscrambling
#include "foundation/NvcString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Replaced(const char* text, const char* find, const char* with, int caseSensitive) {
    CNvcString s(text);
    s.Replace(find, with, caseSensitive);
    return s.GetData();
}

TEST(NvcString, ReplaceSweepsOnceAndKeepsOriginalCase) {
    EXPECT_EQ(Replaced("plain line", "\r\n", " <CRLF> ", 0), "plain line") << "no CR leaves text alone";
    EXPECT_EQ(Replaced("a\r\nb\r\n", "\r\n", " <CRLF> ", 0), "a <CRLF> b <CRLF> ");
    EXPECT_EQ(Replaced("aXa", "a", "aa", 1), "aaXaa") << "find inside replacement ends";
    EXPECT_EQ(Replaced("MiXeD abc", "ABC", "Q", 0), "MiXeD Q") << "folded search keeps unmatched case";
    EXPECT_EQ(Replaced("Hello hello", "hello", "x", 1), "Hello x");
    EXPECT_EQ(Replaced("abc", "", "x", 1), "abc") << "empty find does nothing";
    EXPECT_EQ(Replaced("<a>", "<", "", 1), "a>") << "match at both ends";
}

TEST(NvcString, GetTokenGivesDefaultForMissingAndEmptyPieces) {
    CNvcString s("alpha,,gamma");
    CNvcString out("this junk should be replaced");
    EXPECT_STREQ("alpha", s.GetToken(",", "def", out, 0).GetData());
    EXPECT_STREQ("def", s.GetToken(",", "def", out, 1).GetData());
    EXPECT_STREQ("gamma", s.GetToken(",", "def", out, 2).GetData());
    EXPECT_STREQ("def", s.GetToken(",", "def", out, 3).GetData());
}

TEST(NvcString, GetTokenShortcutMatchesDirectLookup) {
    CNvcString s("a b c d");
    CNvcString viaShortcut;
    CNvcString direct;
    s.GetToken(" ", "", viaShortcut, 1);
    s.GetToken(" ", "", viaShortcut, 2);
    CNvcString fresh("a b c d");
    fresh.GetToken(" ", "", direct, 2);
    EXPECT_STREQ(direct.GetData(), viaShortcut.GetData());

    // An assignment moves the buffer; the cached position must not be used.
    s.GetToken(" ", "", viaShortcut, 1);
    s.Assign("one two three four five");
    s.GetToken(" ", "", viaShortcut, 2);
    EXPECT_STREQ("three", viaShortcut.GetData());
    s.GetToken(" ", "", viaShortcut, 3);
    EXPECT_STREQ("four", viaShortcut.GetData());
}

TEST(NvcString, TokenCountAndNumbers) {
    EXPECT_EQ(0, CNvcString("").GetTokenCount(" "));
    EXPECT_EQ(3, CNvcString("a b c").GetTokenCount(" "));
    EXPECT_EQ(1, CNvcString("name  addr").GetTokenCount(" "));
    EXPECT_EQ(0, CNvcString(" lead").GetTokenCount(" "));
    CNvcString numbers("25;abc;;-7");
    EXPECT_EQ(25, numbers.GetTokenInt(";", 99, 0));
    EXPECT_EQ(0, numbers.GetTokenInt(";", 99, 1)) << "no digits converts to 0, not the default";
    EXPECT_EQ(99, numbers.GetTokenInt(";", 99, 2));
    EXPECT_EQ(-7, numbers.GetTokenInt(";", 99, 3));
    EXPECT_EQ(99, numbers.GetTokenInt(";", 99, 4));
}

std::string Scramble(const std::string& plain, int k0, int k1, int k2) {
    const int keys[3] = {k0, k1, k2};
    char hex[3];
    std::string out;
    for (int k : keys) {
        std::snprintf(hex, sizeof hex, "%02X", k);
        out += hex;
    }
    for (size_t i = 0; i < plain.size(); ++i) {
        std::snprintf(hex, sizeof hex, "%02X",
                      (static_cast<unsigned char>(plain[i]) + keys[i % 3]) % 256);
        out += hex;
    }
    return out;
}

TEST(NvcString, UnscrambleDecodesRotatingKeys) {
    auto unscrambled = [](const std::string& text) {
        CNvcString s(text.c_str());
        return std::string(s.Unscramble().GetData());
    };
    EXPECT_EQ(unscrambled(Scramble("s3cr\xE9t pass!", 0x11, 0xF0, 0x7F)), "s3cr\xE9t pass!")
        << "round trip with wrap-around";
    EXPECT_EQ(unscrambled("A1B2C3"), "") << "six key digits only";
    EXPECT_EQ(unscrambled("A1B2C3F"), "") << "seven characters";
    EXPECT_EQ(unscrambled(Scramble("ab", 1, 2, 3) + "7"), "ab") << "odd last character ignored";
    EXPECT_EQ(unscrambled(Scramble(std::string("ab\0cd", 5), 5, 6, 7)), "ab") << "zero byte ends the text";
    EXPECT_EQ(unscrambled("000000" "6a"), "`") << "lower-case hex counts as 0";
}

TEST(NvcString, TrimAffixesAndBars) {
    CNvcString s(" \t\r\n value \r\n\t ");
    EXPECT_STREQ("value", s.Trim().GetData());
    CNvcString blank(" \r\n ");
    EXPECT_STREQ("", blank.Trim().GetData());

    CNvcString pad("abc==");
    EXPECT_STREQ("abc", pad.RemoveSuffix("=").GetData());
    EXPECT_STREQ("abc", pad.RemoveSuffix("").GetData());
    CNvcString angle("<<x>");
    EXPECT_STREQ("<x>", angle.RemovePrefix("<").GetData());

    CNvcString path("dir");
    EXPECT_STREQ("\\dir", path.Prepend("\\", 0).GetData());
    EXPECT_STREQ("\\dir", path.Prepend("\\", 0).GetData());
    EXPECT_STREQ("\\\\dir", path.Prepend("\\", 1).GetData());

    CNvcString empty;
    EXPECT_STREQ("\\", empty.AddBackslash().GetData());
    EXPECT_STREQ("\\", empty.AddBackslash().GetData());

    CNvcString lines("a\r\nb\n\r\r\n");
    EXPECT_STREQ("a||b\n\r||", lines.CrLfToBars().GetData());
}

TEST(NvcString, ComparisonsHonourCaseFlag) {
    CNvcString t("true");
    EXPECT_EQ(1, t.EqualNoCase("TRUE"));
    EXPECT_EQ(0, t.EqualNoCase("TRUE "));
    CNvcString hdr("Content-Type: text");
    EXPECT_EQ(1, hdr.StartsWith("content-type", 0));
    EXPECT_EQ(0, hdr.StartsWith("content-type", 1));
    EXPECT_EQ(1, hdr.Contains("TEXT", 0));
    EXPECT_EQ(0, hdr.Contains("TEXT", 1));
    EXPECT_EQ(0, hdr.Contains("", 0));
}

TEST(NvcString, AssignAndAppendSurviveAliasingAndNull) {
    CNvcString s("abcdef");
    s.Assign(s.GetData() + 3);
    EXPECT_STREQ("def", s.GetData());
    s.Append(s);
    EXPECT_STREQ("defdef", s.GetData());
    s.Assign(static_cast<const char*>(nullptr));
    EXPECT_STREQ("", s.GetData());
    s.Append(static_cast<unsigned char>(0xE9)).Append('x').Append(-12L);
    EXPECT_STREQ("\xE9x-12", s.GetData());
}

TEST(NvcString, FormatShortCutsAtLimitAndFormatDoesNot) {
    const std::string long3000(3000, 'q');
    CNvcString s;
    s.FormatShort("%s!", long3000.c_str());
    EXPECT_EQ(2047u, s.GetLength());
    s.Format("<%s> %d %5.2f %ld %%", long3000.c_str(), 42, 3.14159, 1234567890123L);
    EXPECT_EQ("<" + long3000 + "> 42  3.14 1234567890123 %", std::string(s.GetData()));
    const char* volatile nothing = nullptr;  // hidden from the compiler's format check
    s.Format("%-*d|%.*s|%s", 6, 7, 2, "abcdef", nothing);
    EXPECT_STREQ("7     |ab|(null)", s.GetData());
    s.Format("%f", 1e300);  // the estimate allows 30 per conversion: cut, never overrun
    EXPECT_EQ(32u, s.GetLength());
    s.Assign("own");
    s.Format("%s!", s.GetData());
    EXPECT_STREQ("own!", s.GetData());
}

}  // namespace
