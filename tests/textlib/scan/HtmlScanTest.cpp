// HtmlScanTest.cpp - charset sniffing, tag attributes, tag clean-up, URL decoding
#include "textlib/scan/HtmlScan.h"

#include <gtest/gtest.h>

#include <string>

#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/Logger.h"

using brelkin::StringBuffer;

TEST(GetCharsetFromHtml, FindsTheDeclaredCharset) {
    struct Case {
        const char* name;
        const char* page;
        const char* want;  // "UNTOUCHED" when out must keep its old value
    };
    const Case cases[] = {
        {"classic meta",
         "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=iso-8859-1\">", "iso-8859-1"},
        {"unquoted attributes, quoted by the clean-up",
         "<meta http-equiv=Content-Type content=text/html;charset=koi8-r>", "koi8-r"},
        {"gt inside quoted value",
         "<meta name=\"x\" content=\"a>b\"><meta http-equiv=\"Content-Type\" "
         "content=\"text/html; charset=windows-1252\">",
         "windows-1252"},
        {"charset then more parameters",
         "<meta http-equiv=\"content-type\" content=\"text/html; charset=shift_jis; x=y\">",
         "shift_jis"},
        {"charset attribute beside http-equiv",
         "<meta http-equiv=\"Content-Type\" content=\"text/html\" charset=\"gb2312\">", "gb2312"},
        {"meta charset alone", "<meta charset=\"utf-8\">", "UNTOUCHED"},
        {"xml declaration", "<?xml version=\"1.0\" encoding=\"utf-8\"?><root/>", "utf-8"},
        {"xml declaration single quotes", "<?xml version='1.0' encoding='utf-8'?>", "UNTOUCHED"},
        {"xml declaration unclosed", "<?xml version=\"1.0\" encoding=\"utf-8", "UNTOUCHED"},
        {"meta wins over xml",
         "<?xml version=\"1.0\" encoding=\"utf-8\"?><meta http-equiv=\"Content-Type\" "
         "content=\"text/html; charset=euc-kr\">",
         "euc-kr"},
        {"unclosed meta tag reads the added close",
         "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=", ">"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer out("UNTOUCHED");
        brelkin::getCharsetFromHtml(c.page, out);
        EXPECT_STREQ(out.getString(), c.want);
    }
}

TEST(GetTagAttribute, ReadsQuotedValues) {
    auto attribute = [](const char* tag, const char* name) {
        StringBuffer out("junk");
        brelkin::getTagAttribute(tag, name, out);
        return std::string(out.getString());
    };
    EXPECT_EQ(attribute("<a HREF=\" x\\y \">", "href"), "x/y");
    EXPECT_EQ(attribute("<a href='v'>", "HREF"), "v");
    EXPECT_EQ(attribute("<a href=\"unclosed>", "href"), "");
    EXPECT_EQ(attribute("<a href=v>", "href"), "");
}

TEST(CleanHtmlTag, RebuildsTagsInRegularForm) {
    struct Case {
        const char* input;
        const char* want;
        const char* label;
    };
    const Case cases[] = {
        {"no tag at all", "", "clean_tag_1"},
        {"<br >", "<br>", "clean_tag_2"},
        {"<a href=x>", "<a href=\"x\">", "clean_tag_4"},
        {"<a title=x\"y>", "<a title='x\"y'>", "clean_tag_4"},
        {"<a  b=\"1\"\r\n c='2'>", "<a b=\"1\" c='2'>", "clean_tag_4"},
        {"<input checked name=\"n\">", "<input checked name=\"n\">", "clean_tag_4"},
        {"<a x:y=\"1\" >", "<a xy=\"1\">", "clean_tag_4"},
        {"<a href=\"q\\\"q\">", "<a href=\"q&quot;q\">", "clean_tag_4"},
        {"<img src=\"a\" />", "<img src=\"a\" />", "clean_tag_6"},
        {"<a b \"c\">", "<a>", "clean_tag_3"},
        {"<a b=\"1\"", "<a b=\"1\">", "clean_tag_3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        StringBuffer out("junk");
        brelkin::Logger log;
        brelkin::cleanHtmlTag(c.input, out, &log);
        EXPECT_STREQ(out.getString(), c.want);
        StringBuffer text;
        log.getText(text);
        EXPECT_NE(std::string(text.getString()).find(std::string(c.label) + ": "),
                  std::string::npos)
            << text.getString();
    }
}

TEST(CleanHtmlTag, StopsAfter101Attributes) {
    std::string tag = "<a";
    for (int i = 0; i < 300; ++i) tag += " k=v";
    tag += ">";
    StringBuffer out;
    brelkin::Logger log;
    brelkin::cleanHtmlTag(tag.c_str(), out, &log);
    EXPECT_EQ(std::string(out.getString()).size(), 2 + 101 * std::string(" k=\"v\"").size());
    StringBuffer text;
    log.getText(text);
    EXPECT_NE(std::string(text.getString()).find("clean_tag_5"), std::string::npos);
}

TEST(UrlDecode, DecodesPlusAndPercent) {
    auto decoded = [](const char* text) {
        StringBuffer s(text);
        brelkin::urlDecode(s);
        return std::string(s.getString(), s.getSize());
    };
    EXPECT_EQ(decoded("a+b%41%7a"), "a bAz");
    EXPECT_EQ(decoded("a%"), "a");
    EXPECT_EQ(decoded("%zz1"), "%zz1");
    EXPECT_EQ(decoded("x%00y"), std::string("x\0y", 3));
}
