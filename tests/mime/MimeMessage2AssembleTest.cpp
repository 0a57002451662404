// MimeMessage2AssembleTest.cpp - the shape of written MIME and the charset of written bodies
#include <gtest/gtest.h>

#include <string>

#include "MimeMessage2TestSupport.h"
#include "textlib/buffers/XString.h"

using brelkin::_bkCharset;
using brelkin::MimeMessage2;
using brelkin::XString;
using mimetest::bodyDb;
using mimetest::mime;
using mimetest::parse;
using mimetest::str;

namespace {

TEST(MimeMessage2Assemble, BareNodesAndEmptyMultiparts) {
    MimeMessage2 node;
    XString text;
    text.setUtf8("just a body");
    node.setBodyText(text);
    EXPECT_EQ(mime(node), "\r\n\r\njust a body");

    _bkCharset none;
    MimeMessage2 multi;
    multi.setContentTypeFields("multipart/mixed", nullptr, nullptr, nullptr, none, "zz", nullptr,
                               nullptr);
    EXPECT_EQ(bodyDb(multi), "--zz--\r\n");
    EXPECT_EQ(mime(multi).find("This is a multi-part"), std::string::npos)
        << "no preamble without parts";

    multi.setBoundary("");
    multi.addPart(new MimeMessage2);
    EXPECT_EQ(bodyDb(multi), "--\r\n\r\n\r\n\r\n----\r\n");
}

TEST(MimeMessage2Assemble, NestedMultipartLayoutIsExact) {
    auto root = parse(
        "Content-Type: multipart/mixed; boundary=OUT\r\n\r\n"
        "--OUT\r\nContent-Type: multipart/alternative; boundary=IN\r\n\r\n"
        "--IN\r\nX: 1\r\n\r\none\r\n--IN--\r\n"
        "--OUT\r\nX: 2\r\n\r\ntwo\r\n--OUT--\r\n");
    std::string written = mime(*root);
    size_t at =
        written.find("\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n--OUT\r\n");
    ASSERT_NE(at, std::string::npos) << written;
    EXPECT_EQ(written.find("This is a multi-part", at + 10), std::string::npos)
        << "nested multiparts have no preamble";
    EXPECT_NE(written.find("\r\n\r\n--IN\r\nX: 1\r\n\r\none\r\n--IN--\r\n\r\n--OUT\r\n"
                           "X: 2\r\n\r\ntwo\r\n--OUT--\r\n"),
              std::string::npos)
        << written;
}

TEST(MimeMessage2Assemble, TextBodiesGoBackToTheDeclaredCharset) {
    auto node = parse(
        "Content-Type: text/plain; charset=windows-1252\r\n"
        "Content-Transfer-Encoding: 8bit\r\n\r\n\x93q\x94 caf\xE9");
    EXPECT_EQ(mimetest::body(*node), "\xE2\x80\x9Cq\xE2\x80\x9D caf\xC3\xA9") << "UTF-8 inside";
    EXPECT_EQ(bodyDb(*node), "\x93q\x94 caf\xE9") << "windows-1252 on the way out";

    node = parse(
        "Content-Type: text/plain; charset=us-ascii\r\n"
        "Content-Transfer-Encoding: quoted-printable\r\n\r\ncaf=E9");
    EXPECT_EQ(bodyDb(*node), "caf=E9") << "us-ascii goes out as Latin-1";

    node = parse(
        "Content-Type: text/html; charset=iso-8859-1\r\n"
        "Content-Disposition: attachment\r\n\r\ncaf\xE9");
    EXPECT_EQ(node->getCharset().getCodePage(), 0);
    EXPECT_EQ(bodyDb(*node), "caf\xE9") << "an HTML attachment is written unconverted";
}

}  // namespace
