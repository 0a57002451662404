// MimeMessage2ParseTest.cpp - line-end ladder, multipart splitting, leaf stores, depth
#include <gtest/gtest.h>

#include <pthread.h>

#include <string>

#include "MimeMessage2TestSupport.h"

using brelkin::Logger;
using brelkin::LogNull;
using brelkin::MimeMessage2;
using mimetest::body;
using mimetest::field;
using mimetest::logged;
using mimetest::parse;
using mimetest::str;

namespace {

// ---- the header end and its line-end repairs

TEST(MimeMessage2Ladder, EachLineEndingFindsItsHeaderEnd) {
    Logger log;
    auto node = parse("\r\n\r\nbody", &log);
    EXPECT_TRUE(logged(log, "MIME is missing initial header because it begins with CRLF"));
    EXPECT_EQ(node->getHeader().getNumFields(), 0);
    EXPECT_EQ(body(*node), "body") << "one or two CR LF pairs are skipped";

    Logger lf;
    node = parse("Subject: s\nX: y\n\nline1\nline2\n", &lf);
    EXPECT_TRUE(logged(lf, "Found LFLF, converting to CRLF"));
    EXPECT_EQ(field(*node, "X"), "y");
    EXPECT_EQ(body(*node), "line1\r\nline2\r\n") << "the body is repaired too";

    node = parse("Subject: s\r\n\r\na\n\nb");
    EXPECT_EQ(body(*node), "a\n\nb") << "without the mixed flag nothing is converted";

    Logger mixed;
    node = parse("Subject: s\r\n\r\na\n\nb", &mixed, true);
    EXPECT_TRUE(logged(mixed, "Converting all line endings to CRLF."));
    EXPECT_EQ(body(*node), "a\r\n\r\nb");

    Logger cr;
    node = parse("Subject: s\r\n\rbody", &cr);
    EXPECT_TRUE(logged(cr, "Found CRLFCR."));
    EXPECT_EQ(body(*node), "\rbody") << "the lone CR stays";

    node = parse("Subject: s\n\r\nbody");
    EXPECT_EQ(field(*node, "Subject"), "s");
    EXPECT_EQ(body(*node), "\n\r\nbody") << "after LF CR LF the body begins with the LF";

    Logger crcr;
    node = parse("Subject: s\rX: y\r\rbody", &crcr);
    EXPECT_TRUE(logged(crcr, "Found CRCRLF. Fixing.."));
    EXPECT_TRUE(logged(crcr, "Found CRCR."));
    EXPECT_EQ(field(*node, "X"), "y");
    EXPECT_EQ(body(*node), "body");
}

TEST(MimeMessage2Ladder, InputWithoutHeaderEndIsAllHeaderUpToTwentyMillionBytes) {
    std::string header = "X-Big: " + std::string(20000000 - 7, 'a');
    ASSERT_EQ(header.size(), 20000000u);
    auto node = std::make_unique<MimeMessage2>();
    Logger quiet;  // the error line is written even without verbose
    EXPECT_TRUE(node->LoadMimeComplete2(header.c_str(), header.size(), false, quiet, false, false));
    EXPECT_EQ(node->getHeader().getNumFields(), 1);

    header += 'a';  // the error line is written even without verbose
    EXPECT_FALSE(
        node->LoadMimeComplete2(header.c_str(), header.size(), false, quiet, false, false));
    EXPECT_TRUE(logged(quiet, "Header larger than 20MB?  This cannot be MIME..."));
    EXPECT_EQ(node->getHeader().getNumFields(), 0);

    LogNull none;
    EXPECT_FALSE(node->LoadMimeComplete2(nullptr, 0, false, none, false, false));
    EXPECT_TRUE(node->LoadMimeComplete2("", 0, false, none, false, false));
}

// ---- the multipart road

std::string multipart(const std::string& boundaryParam, const std::string& content) {
    return "Content-Type: multipart/mixed; boundary=\"" + boundaryParam + "\"\r\n\r\n" + content;
}

TEST(MimeMessage2Multipart, DelimitersClosersAndWhatLiesAroundThem) {
    auto node = parse(multipart("b",
                                "preamble\r\n--b\r\n\r\none\r\n--b \r\nnot a delimiter\r\n"
                                "--b\r\n--b\r\n\r\ntwo\r\n--b--\r\nepilogue"));
    ASSERT_EQ(node->numParts(), 2) << "the empty part makes no node";
    EXPECT_EQ(body(*node->getPart(0)), "one\r\n--b \r\nnot a delimiter");
    EXPECT_EQ(body(*node->getPart(1)), "two");
    EXPECT_EQ(node->getBody().getSize(), 0u) << "preamble and epilogue are dropped";

    node = parse(multipart("b", "--b\r\n\r\none\r\n--b--\r\n--b\r\n\r\nlate\r\n--b--\r\n"));
    ASSERT_EQ(node->numParts(), 2) << "a delimiter behind the closer still counts";
    EXPECT_EQ(body(*node->getPart(0)), "one\r\n--b--");
    EXPECT_EQ(body(*node->getPart(1)), "late");

    node = parse(multipart("b", "--b\r\n\r\nno closer at all\r\n"));
    ASSERT_EQ(node->numParts(), 1);
    EXPECT_EQ(body(*node->getPart(0)), "no closer at all");

    node = parse(multipart("b", "b\r\n\r\nbare\r\n--b--"));
    ASSERT_EQ(node->numParts(), 1) << "the dashes are not searched";

    node = parse(multipart("b", "--b\nX: 1\n\nlf one\n--b\nX: 2\n\nlf two\n--b--\n"));
    ASSERT_EQ(node->numParts(), 2);
    EXPECT_EQ(body(*node->getPart(0)), "lf one\r\n") << "under bare LF the last line end stays";
    EXPECT_EQ(field(*node->getPart(1), "X"), "2");

    node = parse("Content-Type: multipart/mixed; boundary=\"\"\r\n\r\n--\r\n\r\nx\r\n");
    EXPECT_EQ(node->numParts(), 0);
    EXPECT_EQ(body(*node), "--\r\n\r\nx\r\n") << "no boundary: a leaf";

    // Nested unclosed multiparts: each level takes the last two bytes of its
    // body for a line end, so the inner levels eat text (kept on purpose).
    node = parse(multipart("o",
                           "--o\r\nContent-Type: multipart/mixed; boundary=\"i\"\r\n\r\n"
                           "--i\r\nContent-Type: text/plain\r\n\r\nabcdef\r\n"));
    ASSERT_EQ(node->numParts(), 1);
    ASSERT_EQ(node->getPart(0)->numParts(), 1);
    EXPECT_EQ(body(*node->getPart(0)->getPart(0)), "abcd");

    node = parse(multipart("b", "no delimiter \xE4 here"));
    EXPECT_EQ(node->numParts(), 0);
    EXPECT_EQ(body(*node), "no delimiter \xC3\xA4 here") << "stored as text, converted";
}

TEST(MimeMessage2Multipart, MangledBoundariesAreRepaired) {
    // An unquoted boundary loses its blank to parameter parsing; the body kept it.
    auto node = parse(
        "Content-Type: multipart/alternative; boundary==_alternative 0042\r\n\r\n"
        "--=_alternative 0042\r\n\r\nx\r\n--=_alternative 0042--\r\n");
    ASSERT_EQ(node->numParts(), 1);
    EXPECT_EQ(str(node->getBoundary()), "=_alternative 0042");

    // A Latin-1 boundary: UTF-8 in the tree, 8-bit ANSI in the body.
    node = parse(multipart("b\xE9", "--b\xE9\r\n\r\nx\r\n--b\xE9--\r\n"));
    ASSERT_EQ(node->numParts(), 1);
    EXPECT_EQ(body(*node->getPart(0)), "x");
    EXPECT_TRUE(node->getBoundary().is7bit(0)) << str(node->getBoundary());
}

TEST(MimeMessage2Multipart, SignedContentIsWrittenBackBitExact) {
    const std::string signedPart =
        "Content-Type: text/plain;  charset=us-ascii\r\n"
        "X-Odd:   folded\r\n   oddly\r\n\r\nsigned\ttext \r\nwith LF\nline";
    const std::string message =
        "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\";"
        " boundary=\"s\"\r\n\r\n--s\r\n" +
        signedPart +
        "\r\n--s\r\nContent-Type: application/pkcs7-signature\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\nAAEC\r\n--s\r\n\r\nthird\r\n--s--\r\n";
    auto node = parse(message);
    ASSERT_EQ(node->numParts(), 3);
    EXPECT_EQ(str(node->getPart(0)->getSignedRaw()), signedPart);
    EXPECT_EQ(node->getPart(1)->getSignedRaw().getSize(), 0u) << "only the first part";
    std::string written = mimetest::bodyDb(*node);
    EXPECT_EQ(written.rfind("--s\r\n" + signedPart + "\r\n--s\r\n", 0), 0u) << written;
    EXPECT_EQ(written.find("third"), std::string::npos) << "a third part is not written";
    EXPECT_NE(written.find("AAEC"), std::string::npos);
}

// ---- the leaf road

TEST(MimeMessage2Leaf, StoresAndCharsetDecisions) {
    const char* qpUsAscii =
        "Content-Type: text/plain; charset=us-ascii\r\nContent-Transfer-Encoding: quoted-printable";
    const struct {
        const char* why;
        std::string header, content, body;
        int codePage;  // -1: not looked at
    } cases[] = {
        {"binary by type: the charset is cleared",
         "Content-Type: application/pdf; charset=utf-8\r\nContent-Transfer-Encoding: base64",
         "5OT/AA==", std::string("\xE4\xE4\xFF\x00", 4), 0},
        {"an attachment is raw whatever its charset says",
         "Content-Type: text/plain; charset=iso-8859-1\r\nContent-Disposition: attachment",
         "caf\xE9", "caf\xE9", -1},
        {"text with a zero byte is binary", "Content-Type: text/plain", std::string("a\0\xE9", 3),
         std::string("a\0\xE9", 3), -1},
        {"EDIFACT keeps its charset, and the quoted-printable store converts",
         "Content-Type: application/EDIFACT; charset=iso-8859-1\r\n"
         "Content-Disposition: attachment\r\nContent-Transfer-Encoding: quoted-printable",
         "=E9", "\xC3\xA9", 28591},
        {"us-ascii is read as Latin-1, and the node keeps us-ascii", qpUsAscii, "K=E4se",
         "K\xC3\xA4se", 20127},
        {"us-ascii with C1 bytes becomes windows-1252", qpUsAscii, "=93K=E4se=94",
         "\xE2\x80\x9CK\xC3\xA4se\xE2\x80\x9D", 1252},
        {"untyped 8-bit text is Latin-1", "Content-Type: text/plain", "caf\xE9", "caf\xC3\xA9", -1},
        {"unless it is UTF-8", "Content-Type: text/plain", "caf\xC3\xA9", "caf\xC3\xA9", -1},
        {"a declared charset is believed", "Content-Type: text/plain; charset=windows-1252",
         "caf\xC3\xA9", "caf\xC3\x83\xC2\xA9", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        auto node = parse(c.header + "\r\n\r\n" + c.content);
        EXPECT_EQ(body(*node), c.body);
        if (c.codePage >= 0) {
            EXPECT_EQ(node->getCharset().getCodePage(), c.codePage);
        }
    }
    auto node = parse(std::string(qpUsAscii) + "\r\n\r\n=93K=E4se=94");
    EXPECT_NE(field(*node, "Content-Type").find("windows-1252"), std::string::npos);

    node = parse(
        "Content-Type: message/rfc822\r\nContent-Transfer-Encoding: binary\r\n\r\n"
        "Subject: inner\r\n\r\nx");
    EXPECT_EQ(str(node->getEncoding()), "8bit");

    node = parse(
        "Content-Type: text/html\r\n\r\n<meta http-equiv=\"Content-Type\" "
        "content=\"text/html; charset=utf-16\">\xE9");
    EXPECT_EQ(node->getCharset().getCodePage(), 1252) << "utf-16 without zero bytes";
    EXPECT_NE(body(*node).find("\xC3\xA9"), std::string::npos);

    node = parse("Content-Type: text/plain; charset=iso-8859-1\r\n\r\n \r\n\t<X-HTML><b>bold</b>");
    EXPECT_STREQ(node->getContentTypeText(), "text/html");
    EXPECT_EQ(node->getCharset().getCodePage(), 0);
    EXPECT_NE(field(*node, "Content-Type").find("us-ascii"), std::string::npos);
}

// ---- depth

std::string nested(int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) {
        std::string b = "b" + std::to_string(i);
        text += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\r\n\r\n--" + b + "\r\n";
    }
    text += "Content-Type: text/plain\r\n\r\ncore";
    for (int i = levels - 1; i >= 0; --i) text += "\r\n--b" + std::to_string(i) + "--";
    return text;
}

// Runs `work` on a thread whose stack is 1 MB, as under `ulimit -s 1024`.
template <typename Work>
void onSmallStack(Work work) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 1024 * 1024);
    pthread_t thread;
    auto run = [](void* w) -> void* {
        (*static_cast<Work*>(w))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

TEST(MimeMessage2Depth, HundredThousandLevelsKeepTheSaneLevelsAndTheRestUnsplit) {
    const std::string text = nested(100000);
    std::unique_ptr<MimeMessage2> root;
    onSmallStack([&] { root = parse(text); });
    MimeMessage2* node = root.get();
    int depth = 0;
    while (node->numParts() == 1) {
        node = node->getPart(0);
        ++depth;
    }
    EXPECT_EQ(depth, MimeMessage2::kMaxNestingDepth);
    EXPECT_EQ(node->numParts(), 0);
    EXPECT_EQ(body(*node).rfind("--b100\r\n", 0), 0u) << "the rest stays as bytes";
    EXPECT_NE(mimetest::mime(*root).find(body(*node)), std::string::npos)
        << "and is written back unchanged";
}

}  // namespace
