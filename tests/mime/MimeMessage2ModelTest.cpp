// MimeMessage2ModelTest.cpp - cached values, their refresh, the setters and the tree
#include <gtest/gtest.h>

#include "MimeMessage2TestSupport.h"

using brelkin::_bkCharset;
using brelkin::MimeMessage2;
using brelkin::StringBuffer;
using mimetest::cached;
using mimetest::field;
using mimetest::parse;
using mimetest::str;

namespace {

// Twelve dashes, then twelve pairs of "0" and a digit.
bool hasBoundaryShape(const std::string& b) {
    if (b.size() != 36 || b.compare(0, 12, std::string(12, '-')) != 0) return false;
    for (size_t i = 12; i < 36; i += 2)
        if (b[i] != '0' || b[i + 1] < '0' || b[i + 1] > '9') return false;
    return true;
}

std::unique_ptr<MimeMessage2> withHeader(const std::string& header) {
    return parse(header + "\r\n\r\nx");
}

TEST(MimeMessage2Cached, ContentTypeParametersSurviveBlanksCaseAndQuotedSemicolons) {
    auto node = withHeader("Content-Type: TEXT/Plain ; charset = \"UTF-8\"");
    EXPECT_STREQ(node->getContentTypeText(), "text/plain");
    EXPECT_EQ(node->getCharset().getCodePage(), 65001);

    node = withHeader("Content-Type: text/plain; name=\"a;b.txt\"");
    EXPECT_EQ(cached(*node, &MimeMessage2::getName), "a;b.txt");

    node = withHeader(
        "Content-Type: multipart/signed; protocol=\"Application/PKCS7-Signature\";"
        " micalg=SHA-256; boundary=\"X y\"; type=Text/HTML; smime-type=Signed-Data");
    EXPECT_EQ(str(node->getProtocol()), "application/pkcs7-signature");
    EXPECT_EQ(str(node->getBoundary()), "X y") << "blanks inside quotes stay";
    EXPECT_EQ(str(node->getSmimeType()), "signed-data");
}

TEST(MimeMessage2Cached, ExtendedParameterSegmentsAddUp) {
    // Later segments are read in the charset the first one named.
    auto node = withHeader("Content-Type: text/plain; name*0*=iso-8859-1''%E4; name*1*=%F6");
    EXPECT_EQ(cached(*node, &MimeMessage2::getName), "\xC3\xA4\xC3\xB6");

    node = withHeader("Content-Type: text/plain; name=\"plain\"; name*0*=utf-8''seg");
    EXPECT_EQ(cached(*node, &MimeMessage2::getName), "seg")
        << "the first segment replaces the plain value";
}

TEST(MimeMessage2Cached, SignedNonPgpDependsOnProtocol) {
    const std::string signedBy = "Content-Type: multipart/signed; boundary=b; protocol=";
    EXPECT_TRUE(withHeader(signedBy + "\"application/pkcs7-signature\"")->isSignedNonPgp());
    EXPECT_FALSE(withHeader(signedBy + "\"application/PGP-signature\"")->isSignedNonPgp());
    EXPECT_TRUE(withHeader("Content-Type: Multipart/Signed; boundary=b")->isSignedNonPgp());
    EXPECT_FALSE(withHeader("Content-Type: multipart/mixed; boundary=b")->isSignedNonPgp());
}

TEST(MimeMessage2Setters, FieldChangesRefreshTheCachedValues) {
    auto node = withHeader("Content-Type: text/plain; charset=utf-8; name=a.txt");
    node->setHeaderField("content-type", "  ");
    EXPECT_STREQ(node->getContentTypeText(), "");
    EXPECT_EQ(node->getCharset().getCodePage(), 0);
    EXPECT_EQ(cached(*node, &MimeMessage2::getName), "");
    EXPECT_EQ(field(*node, "Content-Type"), "");

    node->addHeaderField(" Content-Disposition ", " attachment; filename=f.bin ");
    EXPECT_TRUE(node->isAttachment());
    EXPECT_EQ(cached(*node, &MimeMessage2::getFilename), "f.bin");

    node->setEncoding("");
    EXPECT_EQ(str(node->getEncoding()), "");
    EXPECT_EQ(field(*node, "Content-Transfer-Encoding"), "");
}

TEST(MimeMessage2Setters, ContentTypeFieldIsRebuiltFromCachedValuesInFixedOrder) {
    MimeMessage2 node;
    _bkCharset none;
    node.setContentTypeFields("text/plain", nullptr, nullptr, nullptr, none, nullptr, nullptr,
                              nullptr);
    EXPECT_NE(field(node, "Content-Type").find("charset=\"us-ascii\""), std::string::npos);
    EXPECT_EQ(node.getCharset().getCodePage(), 0) << "the node keeps no charset";

    node.setContentTypeFieldsNoDefault("text/plain", nullptr, nullptr, nullptr, none, nullptr,
                                       nullptr, nullptr);
    EXPECT_EQ(field(node, "Content-Type"), "text/plain");

    node.setContentTypeFields("multipart/related", "n", "p", "m", none, "b", "s", "text/html");
    std::string value = field(node, "Content-Type");
    EXPECT_EQ(value.find("type=\"text/html\""), std::string::npos) << value;
    size_t b = value.find("boundary=\"b\"");
    size_t n = value.find("name=\"n\"");
    size_t p = value.find("protocol=\"p\"");
    size_t m = value.find("micalg=m");
    size_t s = value.find("smime-type=s");
    ASSERT_NE(s, std::string::npos) << value;
    EXPECT_TRUE(b < n && n < p && p < m && m < s) << value;

    node.setContentTypeValue("text/x-odd; foo=bar");
    EXPECT_STREQ(node.getContentTypeText(), "text/x-odd; foo=bar") << "not reparsed";
}

TEST(MimeMessage2Setters, GeneratedBoundariesHaveTheFixedShapeAndVary) {
    StringBuffer a;
    StringBuffer b;
    MimeMessage2::generateBoundary(a);
    MimeMessage2::generateBoundary(b);
    EXPECT_TRUE(hasBoundaryShape(str(a))) << str(a);
    EXPECT_NE(str(a), str(b));

    MimeMessage2 node;
    node.setHeaderField("Subject", "kept? no");
    node.convertToMultipartMixed();
    EXPECT_TRUE(node.isMultipart());
    EXPECT_TRUE(hasBoundaryShape(str(node.getBoundary())));
    EXPECT_EQ(field(node, "Subject"), "") << "the node was cleared first";
}

TEST(MimeMessage2Tree, FindBySerialAndTotalCharsetSearchTheWholeTree) {
    auto root = parse(
        "Content-Type: multipart/mixed; boundary=o\r\n\r\n"
        "--o\r\nContent-Type: multipart/alternative; boundary=i\r\n\r\n"
        "--i\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nplain\r\n"
        "--i\r\nContent-Type: text/plain; charset=iso-8859-2\r\n"
        "Content-Transfer-Encoding: 8bit\r\n\r\n\xB1\r\n--i--\r\n"
        "--o--\r\n");
    ASSERT_EQ(root->numParts(), 1);
    MimeMessage2* inner = root->getPart(0)->getPart(1);
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(root->findBySerial(inner->getObjectSerial()), inner);
    StringBuffer charset;
    EXPECT_TRUE(root->getTotalCharset(charset));
    EXPECT_EQ(str(charset), "iso-8859-2");

    uint64_t serial = inner->getObjectSerial();
    root->clear();
    EXPECT_EQ(root->findBySerial(serial), nullptr);
    EXPECT_FALSE(root->getTotalCharset(charset));
}

TEST(MimeMessage2Tree, HundredThousandLevelsBuiltByHandAreSearchedAndFreedWithoutRecursion) {
    auto root = std::make_unique<MimeMessage2>();
    MimeMessage2* node = root.get();
    for (int i = 0; i < 100000; ++i) {
        auto* child = new MimeMessage2;
        node->addPart(child);
        node = child;
    }
    EXPECT_EQ(root->findBySerial(node->getObjectSerial()), node);
    root.reset();  // must not exhaust the stack
}

}  // namespace
