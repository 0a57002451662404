// MimeFieldTest.cpp - fields read in and written out: classes, roads, fold columns
#include "mime/MimeField.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MimeTestText.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/LogNull.h"

using brelkin::MimeField;
using brelkin::StringBuffer;
using mimetest::str;

namespace {

const char kUe[] = "\xC3\xBC";                                   // u umlaut
const char kNihongo[] = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";  // three CJK characters

MimeField parsed(const std::string& raw) {
    MimeField field;
    brelkin::LogNull log;
    StringBuffer text;
    text.appendN(raw.data(), static_cast<int>(raw.size()));
    EXPECT_TRUE(field.parse(text, log, false)) << raw;
    return field;
}

// The field read as a receiving program would: folds out, words decoded.
std::string value(const std::string& raw) {
    return str(parsed(raw).m_value);
}

std::string written(MimeField& field, const char* charset) {
    brelkin::_bkCharset cs;
    cs.setByName(charset);
    brelkin::LogNull log;
    StringBuffer out;
    field.assemble(out, cs, log, false);
    return str(out);
}

std::string written(const std::string& raw, const char* charset) {
    MimeField field = parsed(raw);
    return written(field, charset);
}

std::vector<std::string> lines(const std::string& s) {
    return mimetest::split(s, "\r\n");
}

struct Case {
    std::string input;
    std::string want;
};

}  // namespace

TEST(MimeFieldParse, NamesBlanksSeparatorsAndEncodedWords) {
    const Case cases[] = {
        {"X-Other:   a  ", "a"},
        {"To: a@b.c; d@e.f", "a@b.c, d@e.f"},
        {"From: a@b.c; d@e.f", "a@b.c; d@e.f"},
        {"Received: from a  \t by b;\r\n\t Mon", "from a by b; Mon"},
        {"Empty:", ""},
        {"Subject: =?utf-8?Q?caf=C3=A9?=\r\n\t=?utf-8?B?IGF1IGxhaXQ=?=", "caf\xC3\xA9 au lait"},
        {"Subject: long\r\n\tline", "longline"},       // unfolding takes the blank
        // A comma out of an encoded word is part of a name, not a separator.
        {"To: =?utf-8?Q?Doe=2C_John?= <j@x.org>", "\"Doe, John\" <j@x.org>"},
        {"Cc: =?utf-8?B?TcO8bGxlciwgQW5uYQ==?= <a@x.org>, Bob <b@y.org>",
         "\"M\xC3\xBCller, Anna\" <a@x.org>,Bob <b@y.org>"},
        // No comma decoded: the list stands as it was.
        {"To: =?utf-8?Q?Doe_John?= <j@x.org>, k@y.org", "Doe John <j@x.org>, k@y.org"},
        {"Subject: =?utf-8?Q?a=2Cb?=", "a,b"},
        // No address to rebuild from: the text is kept.
        {"To: =?utf-8?Q?undisclosed-recipients=2C_all?=:;", "undisclosed-recipients, all:,"},
    };
    for (const Case& c : cases) EXPECT_EQ(value(c.input), c.want) << c.input;

    MimeField subject = parsed("Subject:   a  ");
    EXPECT_EQ(str(subject.m_value), "  a  ") << "one blank behind the colon goes, no trim";
    EXPECT_EQ(written(subject, "us-ascii"), "Subject:   a  ");
    EXPECT_EQ(std::string(parsed(" X Foo <bar> : v").getName()), "X-Foo--bar-");

    MimeField field;
    brelkin::LogNull log;
    EXPECT_FALSE(field.parse(StringBuffer("no colon here"), log, true));
    EXPECT_FALSE(parsed("Accept: x").m_noFold) << "only set() marks Accept";
    MimeField set;
    set.set("Accept", "=?utf-8?Q?x?=\r\n\t=?utf-8?B?eQ==?=");
    EXPECT_EQ(str(set.m_value), "xy");
    EXPECT_TRUE(set.m_noFold);
}

TEST(MimeFieldWrite, FreeTextAndStructuredUnderUsAscii) {
    // "Subject: " is 9 bytes: a value of 69 fills the line to 78 and stays.
    const std::string fits = "Subject: " + std::string(30, 'a') + " " + std::string(38, 'b');
    const std::string agent = "User-Agent: " + std::string(60, 'x') + " " + std::string(60, 'y');
    const std::string received8 = "Received: from h\xC3\xB6st by mx; Mon, 23 Nov 2026";
    const std::string a40 = std::string(40, 'a'), b40 = std::string(40, 'b');
    const struct {
        const char* charset;
        std::string input;
        std::string want;
    } cases[] = {
        {"utf-8", "Empty:", "Empty:"},
        {"utf-8", "Subject:", "Subject: "},  // a subject keeps its blank
        {"us-ascii", fits, fits},
        // Longer than 78, but no blank at column 61 or behind: one line.
        {"us-ascii", fits + "c", fits + "c"},
        // The blank at column 61 carries the fold.
        {"us-ascii", "Subject: " + std::string(51, 'a') + " " + std::string(30, 'b'),
         "Subject: " + std::string(51, 'a') + "\r\n " + std::string(30, 'b')},
        {"us-ascii", agent, agent},
        {"us-ascii",
         "Received: from host.example.com by mx.example.com with ESMTP id 12345; Mon, 23 Nov 2026",
         "Received: from host.example.com by mx.example.com with ESMTP\r\n id 12345; Mon, 23 Nov "
         "2026"},
        {"utf-8", received8, received8},  // never encoded
        // Raw in the message charset.
        {"iso-8859-1", received8, "Received: from h\xF6st by mx; Mon, 23 Nov 2026"},
        // Structured text folds behind ";" from column 21, keeping the blank.
        {"us-ascii", "X-List: " + a40 + "; " + b40 + "; c",
         "X-List: " + a40 + ";\r\n " + b40 + ";\r\n c"},
        // An address list folds at the first "," behind column 20 of each line.
        {"us-ascii",
         "To: alpha@example.com, beta@example.com, gamma@example.com, delta@example.com, e@x.com",
         "To: alpha@example.com,\r\n beta@example.com, gamma@example.com,\r\n "
         "delta@example.com, e@x.com"},
    };
    for (const auto& c : cases) EXPECT_EQ(written(c.input, c.charset), c.want) << c.input;

    // A blank at column 60 stays.
    std::string at60 = "Subject: " + std::string(50, 'a') + " " + std::string(4, 'b') + " cc " +
                       std::string(20, 'd');
    EXPECT_EQ(lines(written(at60, "us-ascii"))[0], "Subject: " + std::string(50, 'a') + " bbbb");
    std::string quoted =
        "To: \"alpha, beta gamma delta epsilon zeta eta theta iota\" <alpha@example.com>, b@ex.com";
    EXPECT_EQ(lines(written(quoted, "us-ascii"))[0],
              "To: \"alpha, beta gamma delta epsilon zeta eta theta iota\" <alpha@example.com>,")
        << "no fold inside quotes";
}

TEST(MimeFieldWrite, ContentTypeParameters) {
    EXPECT_EQ(written("Content-Type: text/plain; charset=\"us-ascii\"", "utf-8"),
              "Content-Type: text/plain; charset=us-ascii");
    EXPECT_EQ(written("Content-Type: multipart/mixed;boundary=\"-abc\"", "iso-8859-1"),
              "Content-Type: multipart/mixed; boundary=\"-abc\"");
    std::string boundary = "------------" + std::string(24, 'Z');  // 36 characters
    EXPECT_EQ(written("Content-Type: multipart/mixed;boundary=\"" + boundary + "\"", "utf-8"),
              "Content-Type: multipart/mixed;\r\n\tboundary=\"" + boundary + "\"");
    EXPECT_EQ(written("Content-Type: text/plain; name=\"a b\"; x=1", "utf-8"),
              "Content-Type: text/plain; name=\"a b\"; x=1");

    // Parameters join a line while it stays under 65 bytes.
    const std::string head = "Content-Type: text/plain; a=" + std::string(27, 'x') + ";";
    const std::string line64 = head + " b=yyyy;";
    ASSERT_EQ(line64.size(), 64u);
    EXPECT_EQ(lines(written(line64 + " c=z", "utf-8"))[0], line64);
    EXPECT_EQ(lines(written(head + " b=yyyyy; c=z", "utf-8"))[0], head);

    std::string name8 = "Content-Disposition: attachment; filename=\"r\xC3\xA9sum\xC3\xA9.pdf\"";
    std::string out = written(name8, "utf-8");
    EXPECT_NE(out.find("filename=\"=?utf-8?B?csOpc3Vtw6kucGRm?=\""), std::string::npos) << out;
    EXPECT_EQ(value(out), "attachment; filename=\"r\xC3\xA9sum\xC3\xA9.pdf\"");

    // Under UTF-7 a subject is always encoded, but blanks alone stay as they are.
    MimeField blanks;
    blanks.set("Subject", "   ");
    EXPECT_EQ(written(blanks, "utf-7"), "Subject:    ");
}

TEST(MimeFieldWrite, QOrBByCharset) {
    std::string kuehl = std::string("K") + kUe + "hlschrank";
    struct Case {
        const char* charset;
        std::string value;
        std::string want;
    } cases[] = {
        {"utf-8", kuehl, "=?utf-8?B?S8O8aGxzY2hyYW5r?="},
        {"us-ascii", kuehl, "=?utf-8?B?S8O8aGxzY2hyYW5r?="},
        {"iso-8859-1", kuehl, "=?iso-8859-1?Q?K=FChlschrank?="},
        {"iso-8859-1",
         "Gr\xC5\x91"
         "ber",
         "=?iso-8859-2?Q?Gr=F5ber?="},
        {"windows-1252", kNihongo, "=?utf-8?Q?=E6=97=A5=E6=9C=AC=E8=AA=9E?="},
        {"shift_jis", kNihongo, "=?shift_jis?B?k/qWe4zq?="},
        {"iso-2022-jp", kNihongo, "=?iso-2022-jp?B?GyRCRnxLXDhsGyhC?="},
        {"iso-2022-jp", "plain", "plain"},
        {"big5", "\xED\x95\x9C", "=?utf-8?B?7ZWc?="},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.charset) + " " + c.value);
        EXPECT_EQ(written("Subject: " + c.value, c.charset), "Subject: " + c.want);
    }
}

TEST(MimeFieldWrite, AddressLists) {
    const struct {
        const char* why;
        const char* charset;
        const char* input;
        const char* want;
    } cases[] = {
        {"one address a line; quotes go into the word", "utf-8",
         "To: J\xC3\xBCrgen <j@x.de>, Anna <a@b.c>, \"M\xC3\xBCller, Jo\" <m@x.de>",
         "To: =?utf-8?B?SsO8cmdlbg==?= <j@x.de>, \r\n\tAnna <a@b.c>, \r\n\t"
         "=?utf-8?B?TcO8bGxlciwgSm8=?= <m@x.de>"},
        // A plain quoted name loses its quotes all the same: its comma then
        // splits the list when the field is read again.
        {"plain quoted name", "utf-8", "Cc: \"Doe, John\" <j@x.org>, J\xC3\xBCrg <g@y.de>",
         "Cc: Doe, John <j@x.org>, \r\n\t=?utf-8?B?SsO8cmc=?= <g@y.de>"},
        {"single-byte charset: Q words, the first escapes its comma", "iso-8859-1",
         "To: \"M\xC3\xBCller, A\" <a@x.de>, \"Z\xC3\xBCge, B\" <b@x.de>",
         "To: =?iso-8859-1?Q?M=FCller=2C_A?= <a@x.de>, \r\n\t=?iso-8859-1?Q?Z=FCge,_B?= <b@x.de>"},
        // No angle address: an address field's bytes go raw, others are encoded.
        {"address field, no angle address", "utf-8", "To: J\xC3\xBCrg", "To: J\xC3\xBCrg"},
        {"other field, no angle address", "utf-8", "Reply-To: J\xC3\xBCrg",
         "Reply-To: =?utf-8?B?SsO8cmc=?="},
        {"bare addresses before the first angle address pass as they are", "utf-8",
         "To: a@b.c, J\xC3\xBCrg <j@x.de>", "To: a@b.c, \r\n\t=?utf-8?B?SsO8cmc=?= <j@x.de>"},
        {"ISO-2022-JP: the 7-bit name still becomes a word", "iso-2022-jp",
         "To: \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E <j@x.jp>",
         "To: =?iso-2022-jp?B?GyRCRnxLXDhsGyhC?= <j@x.jp>"},
    };
    for (const auto& c : cases) EXPECT_EQ(written(c.input, c.charset), c.want) << c.why;

    // Groups and comments: not cut apart, read back the same.
    EXPECT_EQ(value(written("To: Team: J\xC3\xBCrg <j@x.de>, Ann <a@b.c>;", "utf-8")),
              "Team: J\xC3\xBCrg <j@x.de>, Ann <a@b.c>,")
        << "the group's ; became , on reading";
}
