// Rfc822AddressTest.cpp - names, angle addresses, lists and hostile texts
#include "mime/Rfc822Address.h"

#include <gtest/gtest.h>

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
    std::string name;  // decoded, as getName gives it
    std::string address;
};

Parsed parseOne(const std::string& text) {
    StringBuffer in;
    in.appendN(text.data(), static_cast<int>(text.size()));
    Rfc822Address a(&in);
    StringBuffer name, address;
    a.getName(name);
    a.getAddress(address);
    return {a.isValid(), name.getString(), address.getString()};
}

// "name|address" for each address of the list.
std::vector<std::string> parseList(const char* text, int* count) {
    ExtPtrArray out;
    *count = Rfc822Address::parseAddressList(text, out);
    std::vector<std::string> result;
    for (int i = 0; i < out.getSize(); ++i) {
        auto* a = static_cast<Rfc822Address*>(out.getAt(i));
        StringBuffer name, address;
        a->getName(name);
        a->getAddress(address);
        result.push_back(std::string(name.getString()) + "|" + address.getString());
    }
    out.deleteAll();
    return result;
}

TEST(Rfc822Address, NamesAddressesCommentsAndDirectoryForms) {
    const struct {
        const char* input;
        const char* name;
        const char* address;
    } cases[] = {
        {"John Doe <jd@example.com>", "John Doe", "jd@example.com"},
        {"\"Doe, John\" <jd@example.com>", "Doe, John", "jd@example.com"},
        {"'Single' <s@example.com>", "Single", "s@example.com"},
        {"  <only@example.com>\t", "", "only@example.com"},
        // The last "@" decides, and a name equal to the address goes.
        {"a@b.com <a@b.com>", "", "a@b.com"},
        // An escaped quote inside the name does not end it.
        {"\"Jo \\\"JJ\\\" Doe\" <jd@example.com>", "Jo \\\"JJ\\\" Doe", "jd@example.com"},
        {"bare@example.com", "", "bare@example.com"},
        // Nothing behind the blank behind the address is read: the comment is lost.
        {"bare@example.com (Bare Person)", "", "bare@example.com"},
        // A comment in front is taken for a name, parentheses and all.
        {"(Comment) bare@example.com", "(Comment)", "bare@example.com"},
        // Without "@" the walk starts on the second byte from the end.
        {"postmaster local", "postmaster", "local"},
        // Quotes never stay in an address.
        {"<\"odd\"@example.com>", "", "odd@example.com"},
        {"/O=Example/OU=Site/CN=Recipients/CN=jdoe", "",
         "/O=Example/OU=Site/CN=Recipients/CN=jdoe"},
        {"\"John Doe\" <C=US; P=Org; CN=jdoe>", "John Doe", "C=US; P=Org; CN=jdoe"},
        // The directory test looks anywhere, even in an ordinary address, and is case-sensitive.
        {"Ann <ann.O=x@example.com>", "Ann", "ann.O=x@example.com"},
        {"Ann Lee cn=x@example.com", "Ann Lee", "cn=x@example.com"},
        // Names are held encoded and decode on demand; "8bit" words give their raw bytes.
        {"J\xC3\xBCrgen M\xC3\xBCller <jm@example.de>", "J\xC3\xBCrgen M\xC3\xBCller",
         "jm@example.de"},
        {"=?iso-8859-1?Q?J=FCrgen?= <jm@example.de>", "J\xC3\xBCrgen", "jm@example.de"},
        {"=?8bit?Q?J=C3=BCrgen?= <jm@example.de>", "J\xC3\xBCrgen", "jm@example.de"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        Parsed p = parseOne(c.input);
        EXPECT_TRUE(p.valid);
        EXPECT_EQ(p.name, c.name);
        EXPECT_EQ(p.address, c.address);
    }
}

TEST(Rfc822Address, UndisclosedAndEmptyGiveNothing) {
    for (const char* text : {"undisclosed-recipients:;", "Undisclosed Recipients <x@y>", "", "   "})
        EXPECT_FALSE(parseOne(text).valid) << text;
    EXPECT_EQ(Rfc822Address::createAddress(nullptr), nullptr);
    StringBuffer nothing("undisclosed-recipient:;");
    EXPECT_EQ(Rfc822Address::createAddress(&nothing), nullptr);
    Rfc822Address fromNull(nullptr);
    EXPECT_FALSE(fromNull.isValid());
}

TEST(Rfc822Address, ListsSplitAtCommasOutsideQuotes) {
    const struct {
        const char* input;
        std::vector<std::string> want;
    } cases[] = {
        {"a@x.com, \"Doe, John\" <jd@x.com>,,B <b@x.com>",
         {"|a@x.com", "Doe, John|jd@x.com", "B|b@x.com"}},
        // A semicolon separates nothing: the last "@" wins, the rest is the name.
        {"a@x.com; b@y.com", {"a@x.com;|b@y.com"}},
        // Folds are undone; a tab continuing a line is a blank.
        {"Ann\r\n\tLee <al@x.com>,\r\n bob@y.com", {"Ann Lee|al@x.com", "|bob@y.com"}},
        // A group name is read as part of the first member's name; the end of
        // the group sticks to the last address.
        {"Team: a@x.com, b@x.com;", {"Team:|a@x.com", "|b@x.com;"}},
        // An encoded name holding a comma is one piece: the comma is inside the word.
        {"=?utf-8?Q?Doe=2C_J?= <jd@x.com>, c@x.com", {"Doe, J|jd@x.com", "|c@x.com"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        int count = 0;
        EXPECT_EQ(parseList(c.input, &count), c.want);
        EXPECT_EQ(count, static_cast<int>(c.want.size()));
    }
    ExtPtrArray out;
    EXPECT_EQ(Rfc822Address::parseAddressList(nullptr, out), 0);
    EXPECT_EQ(Rfc822Address::parseAddressList("undisclosed-recipients:;", out), 0);
    EXPECT_EQ(out.getSize(), 0);
}

TEST(Rfc822Address, LongHostileTextsStayInBounds) {
    const std::string angles = std::string(5000, '<') + "@";
    EXPECT_LE(parseOne(angles).address.size(), angles.size());
    std::string many;
    for (int i = 0; i < 2000; ++i) many += "\"q,\\\",\" <a" + std::to_string(i) + "@x>,";
    int count = 0;
    parseList(many.c_str(), &count);
    EXPECT_EQ(count, 2000);
}

}  // namespace
