// NvMailAddressTest.cpp - address headers into display names and addresses
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/NvMail.h"

namespace {

std::u16string Wide(const CNvcStringW& s) { return std::u16string(s.GetData()); }

struct Entry {
    std::u16string name;
    std::u16string address;
    bool operator==(const Entry& o) const { return name == o.name && address == o.address; }
};

std::ostream& operator<<(std::ostream& os, const Entry& e) {
    CNvcStringW name, address;
    name.Assign(e.name.c_str());
    address.Assign(e.address.c_str());
    CNvcString n, a;
    WideToUtf8(name.GetData(), n);
    WideToUtf8(address.GetData(), a);
    return os << "{\"" << n.GetData() << "\", \"" << a.GetData() << "\"}";
}

std::vector<Entry> Parse(const char* text) {
    std::vector<MailAddress*> list;
    CNvMail::AppendAddresses(text, list);
    std::vector<Entry> entries;
    for (MailAddress* a : list) {
        entries.push_back({Wide(a->m_name), Wide(a->m_address)});
        delete a;
    }
    return entries;
}

TEST(NvMailAddressList, SplitsOnCommasOutsideQuotesAndDropsTheQuotes) {
    std::vector<CNvcString> pieces;
    CNvMail::SplitAddressList("a,\"b,c\" <x>,,d,", pieces);
    const std::vector<std::string> expected = {"a", "b,c <x>", "", "d"};
    ASSERT_EQ(expected.size(), pieces.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_STREQ(expected[i].c_str(), pieces[i].GetData());
    pieces.clear();
    CNvMail::SplitAddressList("\"open, never closed", pieces);
    ASSERT_EQ(1u, pieces.size());
    EXPECT_STREQ("open, never closed", pieces[0].GetData());
}

TEST(NvMailAddressList, NamesAndAddressesOfTheUsualForms) {
    const struct {
        const char* header;
        std::vector<Entry> entries;
    } cases[] = {
        {"bare@example.com", {{u"", u"bare@example.com"}}},
        {"<angle@example.com>", {{u"", u"angle@example.com"}}},
        // The blank before the address stays at the end of the name.
        {"John Smith <js@example.com>, <two@example.com>",
         {{u"John Smith ", u"js@example.com"}, {u"", u"two@example.com"}}},
        {"\"Smith, John\" <js@example.com>", {{u"Smith, John ", u"js@example.com"}}},
        {"J\xC3\xBCrgen M\xC3\xBCller <jm@example.de>", {{u"J\u00fcrgen M\u00fcller ", u"jm@example.de"}}},
        {"a@example.com,,b@example.com", {{u"", u"a@example.com"}, {u"", u"b@example.com"}}},
        // A piece of blanks alone is an entry with an empty address.
        {"a@example.com, ,b@example.com",
         {{u"", u"a@example.com"}, {u"", u""}, {u"", u"b@example.com"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.header);
        EXPECT_EQ(c.entries, Parse(c.header));
    }
}

TEST(NvMailAddressList, HostileTextsGiveTheirFixedReading) {
    const struct {
        const char* header;
        std::vector<Entry> entries;
    } cases[] = {
        {"", {}},
        {",,,", {}},
        {"   ", {{u"", u""}}},
        {"\t", {{u"", u""}}},
        // An unbalanced quote swallows every comma behind it.
        {"\"Smith, John <js@x.org>, b@x.org", {{u"Smith, John <js@x.org>, ", u"b@x.org"}}},
        // A decoded name with a comma splits in two: the engine hands us the
        // decoded text, and the split knows no encoded words.
        {"Doe, John <jd@x.org>", {{u"", u"Doe"}, {u"John ", u"jd@x.org"}}},
        // Removal of the address token ignores case in a list.
        {"<A@B.ORG> x <a@b.org>", {{u" x ", u"a@b.org"}}},
        {"<<a@b.org>>>", {{u"", u"<a@b.org"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.header);
        EXPECT_EQ(c.entries, Parse(c.header));
    }
}

TEST(NvMailAddressList, FromAndReplyToRules) {
    const struct {
        const char* header;
        std::u16string name;
        std::u16string address;
        std::u16string replyTo;
    } cases[] = {
        {"\"John Doe\" <jd@x.org>", u"John Doe", u"jd@x.org", u"jd@x.org"},
        {"jd@x.org", u"", u"jd@x.org", u"jd@x.org"},
        {"<jd@x.org>", u"", u"jd@x.org", u"jd@x.org"},
        {"", u"", u"", u""},
        // Two blanks in a row end the token count: the name is taken for the address.
        {"John  <jd@x.org>", u"<jd@x.org>", u"John", u"John"},
        // A lone blank has no tokens at all.
        {" ", u"", u"", u""},
        // Removal of the address token in From keeps case.
        {"<A@B.ORG> x <a@b.org>", u"<A@B.ORG> x", u"a@b.org", u"a@b.org"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.header);
        CNvcStringW name, address, replyTo;
        CNvMail::SplitFromText(c.header, name, address);
        CNvMail::ReplyToAddressOf(c.header, replyTo);
        EXPECT_EQ(c.name, Wide(name));
        EXPECT_EQ(c.address, Wide(address));
        EXPECT_EQ(c.replyTo, Wide(replyTo));
    }
}

}  // namespace
