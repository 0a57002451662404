// NvMailTest.cpp - a stored message into fields and a new message out of them:
// the walk's shapes, bodies, headers byte for byte, boundaries, attachments
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/MailTestEnv.h"
#include "mail/NvMail.h"
#include "mime/BkMime.h"
#include "platform/CRand.h"

namespace {

std::string Utf8(const CNvcStringW& s) {
    CNvcString out;
    WideToUtf8(s.GetData(), out);
    return out.GetData();
}

MailAddress* Address(const char16_t* name, const char16_t* address) {
    MailAddress* entry = new MailAddress;
    entry->m_name.Assign(name);
    entry->m_address.Assign(address);
    return entry;
}

// System code page 1252 and no MIME database, whatever the machine has.
class NvMail : public ::testing::Test {
protected:
    int32_t Load(const std::string& text) {
        const std::string path = m_dir.file("m" + std::to_string(++m_files) + ".nvq");
        testsupport::WriteFile(path, text);
        return m_mail.LoadFromFile(path.c_str());
    }
    // A body in the system code page, without the line end that closes it.
    static std::string Ansi(CNvcStringW& text) {
        std::string ansi = text.GetAnsi();
        while (!ansi.empty() && (ansi.back() == '\n' || ansi.back() == '\r')) ansi.pop_back();
        return ansi;
    }
    std::string Composed() {
        m_mail.Compose();
        CNvcString text;
        m_mail.GetMimeText(text);
        return text.GetData();
    }
    std::string Header(const char* name) {
        CNvcString value;
        m_mail.GetHeader(name, value);
        return value.GetData();
    }
    // The field as the tree holds it (UTF-8, encoded words decoded): what the
    // mail handed over, byte for byte, wherever that was ASCII.
    std::string Field(const char* name) {
        BkString value;
        m_mail.m_mime->GetHeaderField(name, value);
        return value.getUtf8();
    }
    // Header names of the composed text in order, but those the engine places.
    static std::string Names(const std::string& text) {
        std::string names;
        const std::string head = text.substr(0, text.find("\r\n\r\n") + 2);
        for (size_t at = 0; at < head.size(); at = head.find("\r\n", at) + 2) {
            const std::string name = head.substr(at, head.find(':', at) - at);
            if (name.empty() || name[0] == ' ' || name[0] == '\t') continue;  // a fold
            if (name.rfind("Content-", 0) != 0 && name != "Date") names += name + " ";
        }
        return names;
    }

    mailtest::ScratchRegistry m_registry;
    testsupport::TempDir m_dir;
    int m_files = 0;
    CNvMail m_mail{"CNvMail"};
};

// Address texts into names: NvMailAddressTest.
TEST_F(NvMail, EightHeadersBecomeFieldsAndNothingOfAFirstLoadStays) {
    ASSERT_EQ(0, Load("From: \"Fred Foo\" <fred@x.org>\r\nReply-To: Desk <help@x.org>\r\n"
                      "To: John Smith <js@x.com>, <two@x.com>\r\n"
                      "Cc: =?utf-8?Q?Doe=2C_John?= <jd@x.com>\r\nBcc: hidden@x.com\r\n"
                      "Subject: =?utf-8?B?w5xiZXIg4oKs?=\r\nOrganization: Acme\r\n"
                      "Disposition-Notification-To: Fred <fred@x.org>\r\n"
                      "X-NvQueueService-RemoveBeforeSending-Host: smtp.x.org\r\n"
                      "Content-Type: multipart/mixed; boundary=\"o\"\r\n\r\n"
                      "--o\r\nContent-Type: text/html\r\n\r\n<p>h</p>\r\n"
                      "--o\r\nContent-Type: image/png; name=\"p.png\"\r\n\r\nPNG\r\n--o--\r\n"));
    EXPECT_EQ("Über €", Utf8(m_mail.m_subject));
    EXPECT_EQ("Fred Foo|fred@x.org|help@x.org|Fred <fred@x.org>|Acme",
              Utf8(m_mail.m_fromName) + "|" + Utf8(m_mail.m_fromAddress) + "|" +
                  Utf8(m_mail.m_replyToAddress) + "|" + Utf8(m_mail.m_receiptAddress) + "|" +
                  Utf8(m_mail.m_organization));
    EXPECT_EQ(2u, m_mail.m_to.size());
    // The tree gives a decoded name with a comma back in quotes: one recipient.
    ASSERT_EQ(1u, m_mail.m_cc.size());
    EXPECT_EQ("Doe, John ", Utf8(m_mail.m_cc[0]->m_name));
    EXPECT_EQ(1u, m_mail.m_bcc.size());
    EXPECT_EQ(1u, m_mail.m_attachments.size());
    EXPECT_EQ("smtp.x.org", Header("X-NvQueueService-RemoveBeforeSending-Host"));

    ASSERT_EQ(0, Load("To: only@x.com\r\n\r\njust text\r\n"));
    EXPECT_EQ("||", Utf8(m_mail.m_subject) + "|" + Utf8(m_mail.m_fromAddress) + "|" +
                        Utf8(m_mail.m_htmlBody));
    EXPECT_TRUE(m_mail.m_cc.empty() && m_mail.m_bcc.empty() && m_mail.m_attachments.empty());
    EXPECT_EQ("", Header("X-NvQueueService-RemoveBeforeSending-Host"));
    EXPECT_EQ(CNvMail::kLoadFailed, m_mail.LoadFromFile(m_dir.file("absent").c_str()));
    EXPECT_TRUE(m_mail.m_to.empty() && m_mail.m_plainBody.GetLength() == 0);
}

TEST_F(NvMail, WalkShapes) {
    const char* const cases[][4] = {
        // stored text, plain body, HTML body, attachments as "name type;"
        {"Content-Type: multipart/mixed; boundary=o\r\n\r\n"
         "--o\r\nContent-Type: multipart/alternative; boundary=i\r\n\r\n"
         "--i\r\nContent-Type: text/plain\r\n\r\nplain\r\n--i\r\nContent-Type: "
         "text/html\r\n\r\nhtml\r\n"
         "--i--\r\n--o\r\nContent-Type: application/pdf; name=a.pdf\r\n\r\n%PDF\r\n--o--\r\n",
         "plain", "html", "a.pdf application/pdf;"},
        {"Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\nContent-Type: text/plain\r\n\r\n"
         "first\r\n--o\r\nContent-Type: text/plain\r\n\r\nsecond\r\n--o--\r\n",
         "second", "", ""},
        {"Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\nContent-Type: text/plain\r\n\r\n"
         "body\r\n--o\r\nContent-Type: text/plain\r\nContent-Disposition: attachment; "
         "filename=n.txt\r\n\r\nnotes\r\n--o\r\nContent-Type: text/html; "
         "name=p.htm\r\n\r\nx\r\n--o--\r\n",
         "body", "", "n.txt text/plain;p.htm text/html;"},
        // Five multiparts nested: the leaves at depth 5 are not seen.
        {"Content-Type: multipart/mixed; boundary=b0\r\n\r\n--b0\r\n"
         "Content-Type: multipart/mixed; boundary=b1\r\n\r\n--b1\r\n"
         "Content-Type: multipart/mixed; boundary=b2\r\n\r\n--b2\r\n"
         "Content-Type: multipart/mixed; boundary=b3\r\n\r\n--b3\r\n"
         "Content-Type: text/html\r\n\r\ndepth four\r\n--b3\r\n"
         "Content-Type: multipart/mixed; boundary=b4\r\n\r\n--b4\r\nContent-Type: "
         "text/plain\r\n\r\n"
         "depth five\r\n--b4\r\nContent-Type: image/gif; name=d.gif\r\n\r\nGIF\r\n--b4--\r\n"
         "--b3--\r\n--b2--\r\n--b1--\r\n--b0--\r\n",
         "", "depth four", ""},
        {"Content-Type: image/gif; name=pic.gif\r\nContent-Transfer-Encoding: base64\r\n\r\n"
         "R0lGODlhLWFzY2lpLW9ubHk=\r\n",
         "GIF89a-ascii-only", "", ""},
        // Eight-bit bodies come back through GetAnsi unchanged.
        {"Content-Type: text/plain; charset=windows-1252\r\nContent-Transfer-Encoding: 8bit\r\n\r\n"
         "caf\xE9 \x80 \xFC\xDF",
         "caf\xE9 \x80 \xFC\xDF", "", ""},
        {"Content-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\n"
         "PGI+R3LDvMOfZTwvYj4=\r\n",
         "", "<b>Gr\xFC\xDF" "e</b>", ""},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(0, Load(c[0]));
        EXPECT_EQ(c[1], Ansi(m_mail.m_plainBody)) << c[0];
        EXPECT_EQ(c[2], Ansi(m_mail.m_htmlBody)) << c[0];
        std::string attachments;
        for (MailAttachment* a : m_mail.m_attachments)
            attachments +=
                std::string(a->m_fileName.GetData()) + " " + a->m_contentType.GetData() + ";";
        EXPECT_EQ(c[3], attachments) << c[0];
    }
}

TEST_F(NvMail, ComposedHeadersInOrderByteForByte) {
    m_mail.m_fromName.Assign(u"Fred Foo");
    m_mail.m_fromAddress.Assign(u"fred@x.org");
    m_mail.m_replyToAddress.Assign(u"help@x.org");
    m_mail.m_to = {Address(u"A One", u"a@x.com"), Address(u"", u"b@x.com"),
                   Address(u"\u00c7a Va", u"c@x.com")};
    m_mail.m_cc.push_back(Address(u"", u"cc@x.com"));
    m_mail.m_bcc.push_back(Address(u"Hidden", u"bcc@x.com"));
    m_mail.m_subject.Assign(u"Hello world");
    m_mail.m_organization.Assign(u"Gr\u00fc\u00dfe");
    m_mail.m_receiptAddress.Assign(u"fred@x.org");
    m_mail.SetPriority(1);
    m_mail.SetXMailer("Mailer 1.0");
    m_mail.SetCustomHeader("X-B", u"second");
    m_mail.SetCustomHeader("X-A", u"first");
    const std::string text = Composed();
    EXPECT_EQ(
        "Reply-To From To Cc Bcc Subject Organization MIME-Version X-Priority "
        "X-MSMail-Priority X-Mailer Disposition-Notification-To X-A X-B ",
        Names(text))
        << text;
    const char* const fields[][2] = {
        {"Reply-To", "<help@x.org>"},
        {"From", "\"Fred Foo\" <fred@x.org>"},
        {"To", "\"A One\" <a@x.com>, <b@x.com>, \"Ça Va\" <c@x.com>"},
        {"Cc", "<cc@x.com>"},
        {"Bcc", "\"Hidden\" <bcc@x.com>"},
        {"Subject", "Hello world"},
        {"Organization", "Grüße"},
        {"X-Priority", "1 (Highest)"},
        {"X-Mailer", "Mailer 1.0"},
        {"Disposition-Notification-To", "fred@x.org"},
        {"X-B", "second"},
    };
    for (const auto& f : fields) EXPECT_EQ(f[1], Field(f[0])) << f[0];
    m_mail.RemoveHeader("X-A");
    m_mail.RemoveHeader("x-b");  // names match exactly: this one stays
    m_mail.RemoveHeader("X-None");
    const std::string names = Names(Composed());
    EXPECT_EQ("X-B ", names.substr(names.rfind("X-")));

    // Neither Reply-To nor names: the quoted empty name stands in Reply-To.
    // The X-Mailer text outlives Clear.
    m_mail.Clear();
    m_mail.m_fromAddress.Assign(u"fred@x.org");
    EXPECT_EQ("Reply-To From MIME-Version X-Priority X-MSMail-Priority X-Mailer ",
              Names(Composed()));
    EXPECT_EQ("\"\" <fred@x.org>|<fred@x.org>", Field("Reply-To") + "|" + Field("From"));
}

TEST_F(NvMail, HeaderTextsPriorityRowsAndBodyClasses) {
    const struct {
        const char16_t* text;
        int32_t codePage;
        bool quoted;
        const char* out;
    } words[] = {
        {u"Plain ASCII", 0, false, "Plain ASCII"},
        {u"Gr\u00fc\u00dfe", 0, false, "=?windows-1252?B?R3L832U=?="},
        {u"Gr\u00fc\u00dfe", 1250, true, "\"=?windows-1250?B?R3L832U=?=\""},  // relabelled only
        {u"\u01c4\u20ac", 1250, false, "=?utf-8?B?x4Tigqw=?="},
        {u"say \"hi\"", 0, true, "\"say \"hi\"\""},  // nothing escaped
    };
    for (const auto& w : words) {
        m_mail.SetCodePage(w.codePage);
        CNvcStringW text;
        text.Assign(w.text);
        CNvcString out;
        m_mail.EncodeHeaderText(text, out, w.quoted);
        EXPECT_STREQ(w.out, out.GetData());
    }
    m_mail.SetCodePage(932);  // becomes ISO-2022-JP at the first compose
    m_mail.m_subject.Assign(u"\u00e8");
    Composed();
    EXPECT_EQ(50220, m_mail.m_codePage);
    m_mail.SetCodePage(1250);
    Composed();
    EXPECT_EQ("\xC4\x8D", Field("Subject"));  // 0xE8 read as the label says

    const char* const rows[][2] = {{"3 (Normal)", "Normal"}, {"1 (Highest)", "High"},
                                   {"2 (High)", "High"},     {"3 (Normal)", "Normal"},
                                   {"4 (Low)", "Low"},       {"5 (Lowest)", "Low"},
                                   {"3 (Normal)", "Normal"}};
    for (int priority = 0; priority <= 6; ++priority) {
        m_mail.SetPriority(priority);
        Composed();
        EXPECT_EQ(std::string(rows[priority][0]) + "|" + rows[priority][1],
                  Header("X-Priority") + "|" + Header("X-MSMail-Priority"));
    }

    m_mail.m_plainBody.Assign(u"ascii only");
    Composed();
    EXPECT_EQ("text/plain|7bit",
              Header("Content-Type") + "|" + Header("Content-Transfer-Encoding"));
    m_mail.m_plainBody.Assign(u"\u01c4\u20ac");
    EXPECT_NE(std::string::npos, Composed().find("\r\n\r\nx4Tigqw="));
    EXPECT_EQ("text/plain;charset=utf-8|base64",
              Header("Content-Type") + "|" + Header("Content-Transfer-Encoding"));
    m_mail.m_plainBody.Assign(u"");
    m_mail.m_htmlBody.Assign(u"Gr\u00fc\u00dfe");
    m_mail.SetCodePage(0);
    EXPECT_NE(std::string::npos, Composed().find("\r\n\r\nR3L832U="));
    EXPECT_EQ("text/html;charset=windows-1252", Header("Content-Type"));
}

TEST_F(NvMail, BoundariesAndAttachmentsOfComposesInARow) {
    const std::string part =
        "Content-Type: application/octet-stream; name=\"blob.bin\"\r\n"
        "Content-Transfer-Encoding: base64\r\nContent-ID: <blob@x.org>\r\nX-Part-Note: kept\r\n\r\n"
        "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\r\n";
    ASSERT_EQ(0, Load("From: <fred@x.org>\r\nTo: a@x.com\r\n"
                      "X-NvQueueService-RemoveBeforeSending-Host: smtp.x.org\r\n"
                      "Content-Type: multipart/mixed; boundary=o\r\n\r\n"
                      "--o\r\nContent-Type: multipart/alternative; boundary=i\r\n\r\n"
                      "--i\r\nContent-Type: text/plain\r\n\r\nplain\r\n"
                      "--i\r\nContent-Type: text/html\r\n\r\nhtml\r\n--i--\r\n--o\r\n" +
                      part + "--o--\r\n"));
    EXPECT_EQ("a@x.com", Header("To"));
    platform::srand(1);  // 41, 18467, 6334, 26500, 19169, 15724, 11478, 29358
    std::string text = Composed();
    EXPECT_EQ("<a@x.com>", Header("To"));  // GetHeader reads the new tree now
    EXPECT_EQ(std::string::npos, text.find("X-NvQueueService")) << text;
    EXPECT_EQ(0u, Header("Content-Type").rfind("multipart/mixed", 0));
    for (const char* piece :
         {"\r\n----==001_0A0133F8000B8D9B==\r\n", "\r\n----==002_0A0133F8000B8D9B==\r\n",
          "Content-ID: <blob@x.org>", "X-Part-Note: kept", part.c_str() + part.find("AAEC")})
        EXPECT_NE(std::string::npos, text.find(piece)) << piece << "\n" << text;

    m_mail.m_plainBody.Assign(u"");
    m_mail.m_htmlBody.Assign(u"");
    text = Composed();  // an attachment alone; the sequence goes on
    EXPECT_STREQ("1415C57411F733EC==", m_mail.m_boundaryBase.GetData());
    EXPECT_EQ(0u, Header("Content-Type").rfind("multipart/mixed", 0));
    EXPECT_EQ(std::string::npos, text.find("text/plain")) << text;
    EXPECT_NE(std::string::npos, text.find("X-Part-Note: kept"));

    m_mail.m_plainBody.Assign(u"plain");
    m_mail.m_htmlBody.Assign(u"<p>html</p>");
    for (MailAttachment* a : m_mail.m_attachments) delete a->m_part, delete a;
    m_mail.m_attachments.clear();
    text = Composed();
    EXPECT_EQ(1, m_mail.m_boundaryCounter);
    EXPECT_EQ(0u, Header("Content-Type").rfind("multipart/alternative", 0));
    EXPECT_NE(std::string::npos,
              text.find("----==001_" + std::string(m_mail.m_boundaryBase.GetData()) + "--"));
}

}  // namespace
