// MimeHeaderTest.cpp - code page decision, unfolding, field rules, edits and assembly
#include "mime/MimeHeader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/MimeField.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/LogBase.h"
#include "textlib/log/LogNull.h"

using brelkin::_bkCharset;
using brelkin::LogBase;
using brelkin::MimeField;
using brelkin::MimeHeader;
using brelkin::StringBuffer;

namespace {

// Keeps the informational lines and named numbers, in order.
class RecordingLog : public LogBase {
  public:
    bool LogInfo(const char* text) override {
        lines.emplace_back(text);
        return true;
    }
    bool LogDataLong(const char* name, int32_t value) override {
        lines.push_back(std::string(name) + "=" + std::to_string(value));
        return true;
    }
    bool said(const std::string& line) const {
        for (const auto& l : lines)
            if (l == line) return true;
        return false;
    }
    std::vector<std::string> lines;
};

void parse(MimeHeader& h, const char* text) {
    brelkin::LogNull log;
    h.ParseMimeHeader(text, log, false);
}

std::string value(const MimeHeader& h, const char* name) {
    StringBuffer out;
    if (!h.getField(name, out)) return "<absent>";
    return out.getString();
}

// The field names in order, joined by commas.
std::string names(const MimeHeader& h) {
    std::string out;
    for (int i = 0; i < h.getNumFields(); ++i)
        out += (i ? "," : "") + std::string(h.getFieldAt(i)->getName());
    return out;
}

int parsedCodePage(const std::string& text, RecordingLog* log = nullptr) {
    MimeHeader h;
    RecordingLog local;
    h.ParseMimeHeader(text.c_str(), log ? *log : local, true);
    return h.getCodePage();
}

std::string assemble(MimeHeader& h, const char* charsetName = nullptr, const char* skip = nullptr,
                     bool contentOnly = false, const char* prefix = "") {
    _bkCharset cs;
    if (charsetName) cs.setByName(charsetName);
    StringBuffer out(prefix);
    brelkin::LogNull log;
    h.AssembleMimeHeader(out, skip, cs, contentOnly, log, false);
    return out.getString();
}

// ---- the code page decision, branch by branch and in its order

TEST(MimeHeaderCodePage, EachBranchInItsOrder) {
    const struct {
        const char* why;
        const char* text;
        int codePage;
    } cases[] = {
        {"B word names it", "Subject: =?koi8-r?B?8fn3?=\r\nX: \xC1\r\n\r\n", 20866},
        {"unknown charset", "Subject: =?x-unknown?Q?a?= \xE9\r\n\r\n", 0},
        {"no =? before ?Q?", "Subject: odd ?Q? text \xE9\r\n\r\n", 0},
        {"name only in a body part",
         "Subject: \xCF\xF0\r\n\r\n--b\r\nContent-Type: text/plain; "
         "charset=\"WINDOWS-1251\"\r\n\r\nx",
         1251},
        // "windows-1258" and "iso-8859-1" count through the header table only.
        {"1258 in the header",
         "Subject: \xD2\r\nContent-Type: text/plain; charset=windows-1258\r\n\r\n", 1258},
        {"iso-8859-1 in the header", "Subject: \xE9\r\nX: iso-8859-1\r\n\r\n", 28591},
        {"1258 only in the body falls to ANSI", "Subject: \xE9\r\n\r\ncharset=windows-1258", 1252},
        // The message table runs in its order: GB2312 before big5 wherever they stand.
        {"GB2312 before big5", "Subject: \xC4\xE3\r\n\r\nbig5 then GB2312", 936},
        {"KOI8-U", "Subject: \xC4\xE3\r\nX: KOI8-U\r\n\r\n", 21866},
        // Unlabelled UTF-8 other than a Latin-1 letter pair is read as ANSI.
        {"cyrillic UTF-8", "Subject: \xD0\x9F\r\n\r\n", 1252},
    };
    for (const auto& c : cases) EXPECT_EQ(parsedCodePage(c.text), c.codePage) << c.why;

    // Q is looked for before B, and its charset wins over a charset= name.
    RecordingLog rec;
    EXPECT_EQ(parsedCodePage("Subject: =?utf-8?B?w6Q=?= =?iso-8859-1?q?x?=\r\n"
                             "Content-Type: text/plain; charset=windows-1251\r\n\r\n",
                             &rec),
              0)
        << "the first \"=?\" to the first ?Q? spans both words: no known name";
    EXPECT_TRUE(rec.said("Header contains Q-encoding."));

    rec.lines.clear();
    EXPECT_EQ(parsedCodePage("Subject: plain\r\n\r\nbody in windows-1251 \xC0", &rec), 0);
    EXPECT_TRUE(rec.said("Header is entirely 7-bit"));

    // Only the first header name is tried: a "windows-125" with a digit that
    // leads nowhere hides the iso-8859-1 behind it.
    rec.lines.clear();
    EXPECT_EQ(parsedCodePage("Subject: \xE9\r\nX: windows-1259 iso-8859-1\r\n\r\n", &rec), 1252);
    EXPECT_TRUE(rec.said("Detecting windows-125* code page."));
    EXPECT_FALSE(rec.said("Detecting iso-8859-* code page."));
}

TEST(MimeHeaderCodePage, ValuesAreConvertedFromTheDecidedPage) {
    // Raw 0xB1 is "a ogonek" in iso-8859-2 and "plus-minus" in Latin-1.
    MimeHeader h;
    parse(h, "From: Micha\xB1 <m@x.pl>\r\nSubject: =?iso-8859-2?Q?Za=BF=F3=B3=E6?=\r\n\r\nbody");
    EXPECT_EQ(h.getCodePage(), 28592);
    EXPECT_EQ(value(h, "from"), "Micha\xC4\x85 <m@x.pl>");
    EXPECT_EQ(value(h, "subject"), "Za\xC5\xBC\xC3\xB3\xC5\x82\xC4\x87");

    // ISO-2022-JP escapes in a 7-bit header: the header is read as Japanese.
    parse(h, "Subject: \x1b$B$3$s$K$A$O\x1b(B\r\n\r\n");
    EXPECT_EQ(h.getCodePage(), 65001);
    EXPECT_EQ(value(h, "subject"), "\xE3\x81\x93\xE3\x82\x93\xE3\x81\xAB\xE3\x81\xA1\xE3\x81\xAF");

    // UTF-8 without any label: a Latin-1 letter pair is enough.
    RecordingLog rec;
    MimeHeader utf8;
    utf8.ParseMimeHeader("Subject: caf\xC3\xA9\r\n\r\n", rec, true);
    EXPECT_EQ(utf8.getCodePage(), 65001);
    EXPECT_TRUE(rec.said("Probably utf-8"));
    EXPECT_EQ(value(utf8, "subject"), "caf\xC3\xA9");

    // Bytes that no candidate maps: ANSI still "converts" (what it cannot
    // map is dropped), so the header is taken as ANSI and the bytes go.
    MimeHeader junk;
    rec.lines.clear();
    junk.ParseMimeHeader(
        "Subject: a\x81\x8D\x8F\x90\x9D"
        "b\r\n\r\n",
        rec, true);
    EXPECT_EQ(junk.getCodePage(), 1252);
    EXPECT_TRUE(rec.said("No code page detected yet, check to see if header is valid ANSI..."));
    EXPECT_EQ(value(junk, "subject"), "ab");
    EXPECT_TRUE(rec.said("FinalCodePageDecision=1252"));
}

// ---- the header's end and its lines

TEST(MimeHeaderLines, EndsLineEndsFoldsAndStrayLines) {
    // LF-only lines are normalised; the end may be any of the three forms;
    // without an end the whole text is the header.
    MimeHeader h;
    for (const char* text :
         {"A: 1\nB: 2\n\r\nC: body", "A: 1\r\nB: 2\r\n\rC: body", "A: 1\nB: 2\n"}) {
        parse(h, text);
        EXPECT_EQ(names(h), "A,B") << text;
    }
    parse(h, "A: 1\n\nC: 3");
    EXPECT_EQ(names(h), "A");
    parse(h, nullptr);
    EXPECT_EQ(h.getNumFields(), 0);

    parse(h,
          "From sender@x Mon Jan  1 00:00:00 2024\r\n"
          " X-Lead: continued first\r\n"
          "Subject: =?utf-8?Q?a?=\r\n \t=?utf-8?Q?b?=\r\n"
          "Comments: a\r\n b\r\n"
          "From someone in the middle\r\n"
          "not a field\r\n"
          "From: real@x\r\n\r\n");
    EXPECT_EQ(names(h), "X-Lead,Subject,Comments,From");
    EXPECT_EQ(value(h, "subject"), "ab");
    EXPECT_EQ(value(h, "comments"), "a b");
    EXPECT_EQ(value(h, "x-lead"), "continued first");
    EXPECT_EQ(value(h, "FROM"), "real@x");
}

TEST(MimeHeaderLines, LineLimit) {
    std::string text;
    for (int i = 0; i < 100003; ++i) text += "X-" + std::to_string(i) + ": v\r\n";
    MimeHeader h;
    parse(h, (text + "\r\n").c_str());
    ASSERT_EQ(h.getNumFields(), 100000);
    EXPECT_STREQ(h.getFieldAt(99999)->getName(), "X-99999");
}

// ---- field rules

TEST(MimeHeaderFields, ContentTypeReplacement) {
    MimeHeader h;
    parse(h, "Content-Type: text/plain\r\nX: 1\r\ncontent-type: text/html\r\nY: 2\r\n\r\n");
    EXPECT_EQ(names(h), "X,content-type,Y");
    EXPECT_EQ(value(h, "Content-Type"), "text/html");

    // As the last field the later one is only appended; lookups give the first.
    parse(h, "Content-Type: text/plain\r\nX: 1\r\nContent-Type: text/html\r\n\r\n");
    EXPECT_EQ(names(h), "Content-Type,X,Content-Type");
    EXPECT_EQ(value(h, "content-type"), "text/plain");

    // A blank later Content-Type takes the earlier one with it.
    parse(h, "Content-Type: text/plain\r\nContent-Type:\r\nX: 1\r\n\r\n");
    EXPECT_EQ(names(h), "X");
}

TEST(MimeHeaderFields, Parameters) {
    MimeHeader h;
    parse(h,
          "Content-Type: multipart/signed; micalg=sha1;\r\n protocol=\"application/pgp-signature\";"
          " boundary=\"a;b=c\"\r\nContent-Disposition: attachment; filename=x.txt\r\n\r\n");
    StringBuffer out("junk");
    EXPECT_TRUE(h.getHeaderParam("content-type", "PROTOCOL", out));
    EXPECT_STREQ(out.getString(), "application/pgp-signature");
    EXPECT_TRUE(h.getHeaderParam("content-type", "boundary", out));
    EXPECT_STREQ(out.getString(), "a;b=c");
    EXPECT_FALSE(h.getHeaderParam("content-disposition", "name", out))
        << "a name part must equal the parameter, not merely hold it";
    EXPECT_EQ(out.getSize(), 0);
    EXPECT_FALSE(h.getHeaderParam("content-type", "charset", out));
    EXPECT_FALSE(h.getHeaderParam("x-missing", "a", out));
    EXPECT_FALSE(h.getHeaderParam(nullptr, "a", out));
    EXPECT_FALSE(h.getField("", out));
}

TEST(MimeHeaderFields, Edits) {
    MimeHeader h;
    h.appendField("Received", "one");
    h.appendField("To", "a@x");
    h.appendField("received", "two");
    h.appendField("X-Blank", " \t");
    h.appendField("X-Empty", "");
    EXPECT_EQ(names(h), "Received,To,received,X-Empty");

    h.removeField("RECEIVED", false);
    EXPECT_EQ(value(h, "received"), "two");
    h.replaceField("to", "b@x");
    EXPECT_EQ(names(h), "received,X-Empty,to");
    h.replaceField("X-Empty", "  ");
    h.removeField("received", true);
    EXPECT_EQ(names(h), "to");

    auto* first = new MimeField();
    first->set("Return-Path", "<r@x>");
    h.insertFirst(first);
    auto* last = new MimeField();
    last->set("Subject", "=?utf-8?Q?caf=C3=A9?=");
    h.appendParsed(last);
    h.insertFirst(nullptr);
    h.appendParsed(nullptr);
    EXPECT_EQ(names(h), "Return-Path,to,Subject");
    EXPECT_EQ(value(h, "subject"), "caf\xC3\xA9");

    // replaceFromField with one of our own fields.
    h.replaceFromField(*h.findField("to"));
    EXPECT_EQ(names(h), "Return-Path,Subject,to");
}

// ---- assembly

TEST(MimeHeaderAssembly, Options) {
    const std::string content =
        "Content-Type: text/plain\r\ncontent-transfer-encoding: 7bit\r\n"
        "Content-Disposition: inline";
    MimeHeader h;
    parse(h, ("X-NvQueueService-RemoveBeforeSending-Host: h\r\nSubject: s\r\n" + content +
              "\r\nContent-ID: <c@x>\r\n\r\n")
                 .c_str());
    EXPECT_EQ(assemble(h, "us-ascii"),
              "X-NvQueueService-RemoveBeforeSending-Host: h\r\nSubject: s\r\n" + content +
                  "\r\nContent-ID: <c@x>");
    EXPECT_EQ(assemble(h, "us-ascii", "x-nvqueueservice-"),
              "Subject: s\r\n" + content + "\r\nContent-ID: <c@x>");
    EXPECT_EQ(assemble(h, "us-ascii", "", true), content);
    // Appended to what `out` holds; line ends at its end are cut, two bytes a time.
    EXPECT_EQ(assemble(h, "us-ascii", "", true, "Pre\r\n"), "Pre\r\n" + content);
    MimeHeader empty;
    EXPECT_EQ(assemble(empty, "us-ascii", nullptr, false, "Pre\r\n\r\n"), "Pre");
}

TEST(MimeHeaderAssembly, CharsetChoice) {
    MimeHeader h;
    parse(h, "Subject: =?iso-8859-2?Q?=B1?=\r\n\r\n");
    ASSERT_EQ(h.getCodePage(), 28592);
    // No charset of the node's own: back in what it came in.
    EXPECT_EQ(assemble(h), "Subject: =?iso-8859-2?Q?=B1?=");
    // A charset of its own wins; UTF-7 is never written: UTF-8 stands in for it.
    EXPECT_EQ(assemble(h, "utf-8"), "Subject: =?utf-8?B?xIU=?=");
    EXPECT_EQ(assemble(h, "utf-7"), "Subject: =?utf-8?B?xIU=?=");
    h.setCodePage(65000);
    EXPECT_EQ(assemble(h), "Subject: =?utf-8?B?xIU=?=");
}

}  // namespace
