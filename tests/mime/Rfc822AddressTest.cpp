// Rfc822AddressTest.cpp - names, angle addresses, lists and hostile texts
#include "mime/Rfc822Address.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::ExtPtrArray;
using brelkin::Rfc822Address;
using brelkin::StringBuffer;

namespace {

struct Parsed {
    bool valid;
    std::string name;     // decoded, as getName gives it
    std::string rawName;  // as held
    std::string address;
};

Parsed parseOne(const std::string& text) {
    StringBuffer in;
    in.appendN(text.data(), static_cast<int>(text.size()));
    Rfc822Address a(&in);
    StringBuffer name, address;
    a.getName(name);
    a.getAddress(address);
    return {a.isValid(), name.getString(), a.m_name.getString(), address.getString()};
}

std::vector<std::pair<std::string, std::string>> parseList(const char* text, int* count) {
    ExtPtrArray out;
    *count = Rfc822Address::parseAddressList(text, out);
    std::vector<std::pair<std::string, std::string>> result;
    for (int i = 0; i < out.getSize(); ++i) {
        auto* a = static_cast<Rfc822Address*>(out.getAt(i));
        StringBuffer name, address;
        a->getName(name);
        a->getAddress(address);
        result.emplace_back(name.getString(), address.getString());
    }
    out.deleteAll();
    return result;
}

TEST(Rfc822Address, NamesAndAngleAddresses) {
    Parsed p = parseOne("John Doe <jd@example.com>");
    EXPECT_TRUE(p.valid);
    EXPECT_EQ(p.name, "John Doe");
    EXPECT_EQ(p.address, "jd@example.com");

    p = parseOne("\"Doe, John\" <jd@example.com>");
    EXPECT_EQ(p.name, "Doe, John");
    EXPECT_EQ(p.address, "jd@example.com");

    p = parseOne("'Single' <s@example.com>");
    EXPECT_EQ(p.name, "Single");

    p = parseOne("  <only@example.com>\t");
    EXPECT_TRUE(p.valid);
    EXPECT_EQ(p.name, "");
    EXPECT_EQ(p.address, "only@example.com");

    // The last "@" decides, and a name equal to the address goes.
    p = parseOne("a@b.com <a@b.com>");
    EXPECT_EQ(p.name, "");
    EXPECT_EQ(p.address, "a@b.com");

    // An escaped quote inside the name does not end it.
    p = parseOne("\"Jo \\\"JJ\\\" Doe\" <jd@example.com>");
    EXPECT_EQ(p.name, "Jo \\\"JJ\\\" Doe");
    EXPECT_EQ(p.address, "jd@example.com");
}

TEST(Rfc822Address, BareAddressesAndComments) {
    Parsed p = parseOne("bare@example.com");
    EXPECT_TRUE(p.valid);
    EXPECT_EQ(p.name, "");
    EXPECT_EQ(p.address, "bare@example.com");

    // Nothing behind the blank behind the address is read: the comment is lost.
    p = parseOne("bare@example.com (Bare Person)");
    EXPECT_EQ(p.address, "bare@example.com");
    EXPECT_EQ(p.name, "");

    // A comment in front is taken for a name, parentheses and all.
    p = parseOne("(Comment) bare@example.com");
    EXPECT_EQ(p.name, "(Comment)");
    EXPECT_EQ(p.address, "bare@example.com");

    // Without "@" the walk starts on the second byte from the end.
    p = parseOne("mailer");
    EXPECT_TRUE(p.valid);
    EXPECT_EQ(p.address, "mailer");
    p = parseOne("postmaster local");
    EXPECT_EQ(p.address, "local");
    EXPECT_EQ(p.name, "postmaster");

    // Quotes never stay in an address.
    p = parseOne("<\"odd\"@example.com>");
    EXPECT_EQ(p.address, "odd@example.com");
}

TEST(Rfc822Address, DirectoryForms) {
    Parsed p = parseOne("/O=Example/OU=Site/CN=Recipients/CN=jdoe");
    EXPECT_TRUE(p.valid);
    EXPECT_EQ(p.name, "");
    EXPECT_EQ(p.address, "/O=Example/OU=Site/CN=Recipients/CN=jdoe");

    p = parseOne("\"John Doe\" <C=US; P=Org; CN=jdoe>");
    EXPECT_EQ(p.name, "John Doe");
    EXPECT_EQ(p.address, "C=US; P=Org; CN=jdoe");

    // The directory test looks anywhere, even in an ordinary address.
    p = parseOne("Ann <ann.O=x@example.com>");
    EXPECT_EQ(p.name, "Ann");
    EXPECT_EQ(p.address, "ann.O=x@example.com");
    // ...and is case-sensitive.
    p = parseOne("Ann Lee cn=x@example.com");
    EXPECT_EQ(p.address, "cn=x@example.com");
    EXPECT_EQ(p.name, "Ann Lee");
}

TEST(Rfc822Address, UndisclosedAndEmptyGiveNothing) {
    EXPECT_FALSE(parseOne("undisclosed-recipients:;").valid);
    EXPECT_FALSE(parseOne("Undisclosed Recipients <x@y>").valid);
    EXPECT_FALSE(parseOne("").valid);
    EXPECT_FALSE(parseOne("   ").valid);
    EXPECT_EQ(Rfc822Address::createAddress(nullptr), nullptr);
    StringBuffer nothing("undisclosed-recipient:;");
    EXPECT_EQ(Rfc822Address::createAddress(&nothing), nullptr);
    Rfc822Address fromNull(nullptr);
    EXPECT_FALSE(fromNull.isValid());
}

TEST(Rfc822Address, NonAsciiNamesAreHeldEncoded) {
    Parsed p = parseOne("J\xC3\xBCrgen M\xC3\xBCller <jm@example.de>");
    EXPECT_EQ(p.address, "jm@example.de");
    EXPECT_EQ(p.rawName.rfind("=?utf-8?", 0), 0u) << p.rawName;
    EXPECT_EQ(p.name, "J\xC3\xBCrgen M\xC3\xBCller");

    // An encoded name as read stays as read and decodes on demand.
    p = parseOne("=?iso-8859-1?Q?J=FCrgen?= <jm@example.de>");
    EXPECT_EQ(p.rawName, "=?iso-8859-1?Q?J=FCrgen?=");
    EXPECT_EQ(p.name, "J\xC3\xBCrgen");

    // "8bit" words give their raw bytes, which are then held as UTF-8 words.
    p = parseOne("=?8bit?Q?J=C3=BCrgen?= <jm@example.de>");
    EXPECT_EQ(p.name, "J\xC3\xBCrgen");

    // A raw ISO-2022-JP name is wrapped in B words of that charset.
    p = parseOne("\x1b$B$3$s\x1b(B <jp@example.jp>");
    EXPECT_EQ(p.rawName.rfind("=?iso-2022-jp?B?", 0), 0u) << p.rawName;
}

TEST(Rfc822Address, ListsSplitAtCommasOutsideQuotes) {
    int count = 0;
    auto list = parseList("a@x.com, \"Doe, John\" <jd@x.com>,,B <b@x.com>", &count);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(list[0], std::make_pair(std::string(""), std::string("a@x.com")));
    EXPECT_EQ(list[1], std::make_pair(std::string("Doe, John"), std::string("jd@x.com")));
    EXPECT_EQ(list[2], std::make_pair(std::string("B"), std::string("b@x.com")));

    // A semicolon separates nothing: the last "@" wins.
    list = parseList("a@x.com; b@y.com", &count);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(list[0].second, "b@y.com");

    // Folds are undone; a tab continuing a line is a blank.
    list = parseList("Ann\r\n\tLee <al@x.com>,\r\n bob@y.com", &count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(list[0].first, "Ann Lee");
    EXPECT_EQ(list[1].second, "bob@y.com");

    // A group name is read as part of the first member's name; the end of
    // the group sticks to the last address.
    list = parseList("Team: a@x.com, b@x.com;", &count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(list[0].first, "Team:");
    EXPECT_EQ(list[1].second, "b@x.com;");

    // An encoded name holding a comma is one piece: the comma is inside the word.
    list = parseList("=?utf-8?Q?Doe=2C_J?= <jd@x.com>, c@x.com", &count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(list[0].first, "Doe, J");

    ExtPtrArray out;
    EXPECT_EQ(Rfc822Address::parseAddressList(nullptr, out), 0);
    EXPECT_EQ(Rfc822Address::parseAddressList("undisclosed-recipients:;", out), 0);
    EXPECT_EQ(out.getSize(), 0);
}

TEST(Rfc822Address, HostileTextsStayInBounds) {
    const std::vector<std::string> texts = {"@",
                                            "<",
                                            ">",
                                            "\"",
                                            "'",
                                            "\\",
                                            "<>",
                                            "@@@",
                                            "\"\"\"",
                                            "a\"",
                                            "\"a",
                                            " @ ",
                                            "<@>",
                                            "\\\"@",
                                            "x <",
                                            "\"unterminated <a@b>",
                                            "'\"' <q@x>",
                                            "a@b\"",
                                            std::string(5000, '<') + "@",
                                            std::string("a\0b@c", 5),
                                            "\x80\xff@\xfe",
                                            "=?utf-8?Q?",
                                            "=?8bit?B?",
                                            "C=",
                                            "<C=",
                                            "x<C=>y"};
    for (const auto& t : texts) {
        Parsed p = parseOne(t);
        EXPECT_LE(p.address.size(), t.size()) << t;
    }
    std::string many;
    for (int i = 0; i < 2000; ++i) many += "\"q,\\\",\" <a" + std::to_string(i) + "@x>,";
    int count = 0;
    parseList(many.c_str(), &count);
    EXPECT_EQ(count, 2000);
}

}  // namespace
