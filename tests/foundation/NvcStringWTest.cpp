// NvcStringWTest.cpp - widening, the system code page and the UTF-8 bridges
#include "foundation/NvcStringW.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/CodePage.h"
#include "support/RegistryTestEnv.h"

namespace {

// Runs with no registry file, so the ANSI code page is the default 1252.
class NvcStringWTest : public ::testing::Test {
protected:
    void SetUp() override { platform::ResetCodePageCacheForTest(); }
    void TearDown() override { platform::ResetCodePageCacheForTest(); }
    testsupport::ScratchRegistry reg;
};

std::u16string Wide(const CNvcStringW& s) { return std::u16string(s.GetData()); }

TEST_F(NvcStringWTest, NarrowTextIsWidenedBytewiseAsSigned) {
    CNvcStringW s("A\xE9z");
    EXPECT_EQ(std::u16string(u"A\uFFE9z"), Wide(s));
    EXPECT_EQ(3, s.GetLength());
    s.Assign(static_cast<const char*>(nullptr));
    EXPECT_EQ(0, s.GetLength());
    s.Assign(u"copy me");
    s.Assign(s.GetData());
    EXPECT_EQ(std::u16string(u"copy me"), Wide(s));
}

TEST_F(NvcStringWTest, GetAnsiUsesTheSystemCodePage) {
    auto ansi = [](const char16_t* wide) {
        CNvcStringW s;
        s.Assign(wide);
        const char* first = s.GetAnsi();
        if (first == nullptr) return std::string("<null>");
        const std::string text = first;
        EXPECT_STREQ(text.c_str(), s.GetAnsi()) << "asked again";
        return text;
    };
    EXPECT_EQ(ansi(u"caf\u00e9 \u20ac"), "caf\xE9 \x80");
    EXPECT_EQ(ansi(u"\u4e2d"), "?");
    EXPECT_EQ(ansi(u""), "");
}

TEST_F(NvcStringWTest, Utf8BridgesRoundTripAndLeaveTargetOnEmpty) {
    const char* utf8 = "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80";
    CNvcStringW wide("untouched");
    Utf8ToWide(utf8, wide);
    EXPECT_EQ(std::u16string(u"h\u00e9llo \u20ac \U0001F600"), Wide(wide));
    CNvcString back("this junk should be replaced");
    WideToUtf8(wide.GetData(), back);
    EXPECT_STREQ(utf8, back.GetData());

    CNvcStringW kept("kept");
    Utf8ToWide("", kept);
    EXPECT_EQ(std::u16string(u"kept"), Wide(kept));
    CNvcString keptNarrow("kept");
    WideToUtf8(u"", keptNarrow);
    EXPECT_STREQ("kept", keptNarrow.GetData());
}

}  // namespace
