// ParseEngineTest.cpp - the text cursor and quoted-string extraction
#include "textlib/scan/ParseEngine.h"

#include <gtest/gtest.h>

#include "textlib/scan/ParamString.h"

using brelkin::ParseEngine;
using brelkin::StringBuffer;

TEST(ParseEngine, CursorNeverPassesTheEnd) {
    ParseEngine parser("ab");
    parser.advance(5);
    EXPECT_TRUE(parser.atEnd());
    EXPECT_EQ(parser.currentChar(), 0);
    parser.seekChar('x');
    parser.skipChars("\0");
    StringBuffer out;
    EXPECT_EQ(parser.captureToChar('x', out), 0);

    ParseEngine empty(nullptr);
    EXPECT_TRUE(empty.atEnd());
    EXPECT_FALSE(empty.seekIgnoreCase("a"));
}

TEST(ParseEngine, SeekFoldsOnlyAsciiLetters) {
    ParseEngine parser("xx <MeTa \xc4 <meta");
    ASSERT_TRUE(parser.seekIgnoreCase("<meta"));
    EXPECT_EQ(parser.getPosition(), 3);
    parser.advance();
    ASSERT_TRUE(parser.seekIgnoreCase("<META"));
    EXPECT_EQ(parser.getPosition(), 11);
    parser.advance();
    EXPECT_FALSE(parser.seekIgnoreCase("<meta"));
    EXPECT_EQ(parser.getPosition(), 12);

    ParseEngine latin("\xe4");
    EXPECT_FALSE(latin.seekIgnoreCase("\xc4"));
}

TEST(ParseEngine, CapturesStopWhereTheyShould) {
    enum Kind { AnyOf, Four, Unescaped, ToChar, OutsideQuotes };
    struct Case {
        const char* name;
        const char* text;
        Kind kind;
        const char* arg;  // the set, or the character first in it
        const char* want;
        char stopsOn;
    };
    const Case cases[] = {
        {"any of", "ab;c,d", AnyOf, ",;", "ab", ';'},
        {"empty set", "abc", AnyOf, "", "", 'a'},
        {"four", "ab\tc", Four, " \t\r\n", "ab", '\t'},
        {"unescaped", "a\\\"b\"c", Unescaped, "\"", "a\\\"b", '"'},
        {"to end", "abc", ToChar, "x", "abc", 0},
        {"outside quotes", "a\">\"'>'b>c", OutsideQuotes, ">", "a\">\"'>'b", '>'},
        {"unclosed quote falls back", "a'b>c", OutsideQuotes, ">", "a'b", '>'},
        {"mixed quotes do not close", "a\"x'>y\">z", OutsideQuotes, ">", "a\"x'>y\"", '>'},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ParseEngine parser(c.text);
        StringBuffer out("pre:");
        int count = 0;
        switch (c.kind) {
            case AnyOf: count = parser.captureUntilAnyOf(c.arg, out); break;
            case Four: count = parser.captureUntil4(c.arg, out); break;
            case Unescaped: count = parser.captureUntilUnescaped(c.arg, out); break;
            case ToChar: count = parser.captureToChar(c.arg[0], out); break;
            case OutsideQuotes: count = parser.captureToCharOutsideQuotes(c.arg[0], out); break;
        }
        EXPECT_STREQ(out.getString(), (std::string("pre:") + c.want).c_str());
        EXPECT_EQ(count, static_cast<int>(std::string(c.want).size()));
        EXPECT_EQ(parser.currentChar(), c.stopsOn);
    }
}

TEST(ParseEngine, EscapeAtTheCursorDoesNotCount) {
    ParseEngine parser("\\\"x\"");
    parser.advance();
    StringBuffer out;
    EXPECT_EQ(parser.captureUntilUnescaped("\"", out), 0);
}

TEST(ParseEngine, EditsKeepTheCursor) {
    ParseEngine parser("a,b");
    parser.advance(2);
    parser.appendText(",c");
    parser.removeCharAhead(',');
    StringBuffer out;
    parser.captureToChar(0, out);
    EXPECT_STREQ(out.getString(), "bc");
    parser.setString("new");
    EXPECT_EQ(parser.getPosition(), 0);
    EXPECT_EQ(parser.currentChar(), 'n');
}

TEST(ParamString, ReplacesQuotedStringsByPlaceholders) {
    struct Case {
        const char* name;
        const char* input;
        bool useBackslash;
        const char* skeleton;
        std::vector<std::string> params;
    };
    const Case cases[] = {
        {"two strings", "a \"b\" c \"d\"", false, "a <[[0]]> c <[[1]]>", {"b", "d"}},
        {"escaped quote", "x=\"a\\\"b\\c\"", true, "x=<[[0]]>", {"a\"b\\c"}},
        {"backslash plain", "x=\"a\\\"b\"", false, "x=<[[0]]>b<[[", {"a\\"}},
        {"line end closes", "x=\"ab\r\ny", false, "x=<[[0]]>\ny", {"ab"}},
        {"unclosed dropped", "k=\"v", false, "k=<[[", {}},
        {"backslash at end", "k=\"v\\", true, "k=<[[", {}},
        {"empty string", "\"\"", false, "<[[0]]>", {""}},
        {"empty text", "", false, "", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        brelkin::ParamString params;
        params.parse("\"stale\"", false);
        params.parse(c.input, c.useBackslash);
        EXPECT_STREQ(params.getString(), c.skeleton);
        ASSERT_EQ(params.getNumParams(), static_cast<int>(c.params.size()));
        for (size_t i = 0; i < c.params.size(); ++i) {
            EXPECT_EQ(params.getParam(static_cast<int>(i)), c.params[i]);
        }
        EXPECT_EQ(params.getParam(static_cast<int>(c.params.size())), nullptr);
    }
}
