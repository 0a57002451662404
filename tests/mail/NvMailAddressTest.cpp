// NvMailAddressTest.cpp - address headers into display names and addresses
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/NvMail.h"

namespace {

std::string Utf8(const CNvcStringW& s) {
    CNvcString out;
    WideToUtf8(s.GetData(), out);
    return out.GetData();
}

// "name|address" per entry, joined by "; ".
std::string Parse(const char* text) {
    std::vector<MailAddress*> list;
    CNvMail::AppendAddresses(text, list);
    std::string out;
    for (MailAddress* a : list) {
        out += (out.empty() ? "" : "; ") + Utf8(a->m_name) + "|" + Utf8(a->m_address);
        delete a;
    }
    return out;
}

TEST(NvMailAddress, RecipientListsOnUsualAndHostileTexts) {
    const char* const cases[][2] = {
        {"bare@x.org", "|bare@x.org"},
        // The blank before the address stays at the end of the name.
        {"John Smith <js@x.org>, <two@x.org>", "John Smith |js@x.org; |two@x.org"},
        {"\"Smith, John\" <js@x.org>", "Smith, John |js@x.org"},
        {"a@x.org,,b@x.org", "|a@x.org; |b@x.org"},
        {"a@x.org, ,b@x.org", "|a@x.org; |; |b@x.org"},  // blanks alone: an empty address
        // An unbalanced quote swallows every comma behind it.
        {"\"Smith, John <js@x.org>, b@x.org", "Smith, John <js@x.org>, |b@x.org"},
        // Decoded text without quotes splits at a comma in a name.
        {"Doe, John <jd@x.org>", "|Doe; John |jd@x.org"},
        // The address token is removed from the name ignoring case.
        {"<A@B.ORG> x <a@b.org>", " x |a@b.org"},
        {"<<a@b.org>>>", "|<a@b.org"},
    };
    for (const auto& c : cases) EXPECT_EQ(c[1], Parse(c[0])) << c[0];
}

TEST(NvMailAddress, FromAndReplyToRules) {
    const char* const cases[][4] = {
        // header, From name, From address, Reply-To address
        {"\"John Doe\" <jd@x.org>", "John Doe", "jd@x.org", "jd@x.org"},
        {"<jd@x.org>", "", "jd@x.org", "jd@x.org"},
        {" ", "", "", ""},
        // Two blanks in a row end the token count: the name becomes the address.
        {"John  <jd@x.org>", "<jd@x.org>", "John", "John"},
        // Here the address token is removed keeping case.
        {"<A@B.ORG> x <a@b.org>", "<A@B.ORG> x", "a@b.org", "a@b.org"},
    };
    for (const auto& c : cases) {
        CNvcStringW name, address, replyTo;
        CNvMail::SplitFromText(c[0], name, address);
        CNvMail::ReplyToAddressOf(c[0], replyTo);
        EXPECT_EQ(c[1], Utf8(name)) << c[0];
        EXPECT_EQ(c[2], Utf8(address)) << c[0];
        EXPECT_EQ(c[3], Utf8(replyTo)) << c[0];
    }
}

}  // namespace
