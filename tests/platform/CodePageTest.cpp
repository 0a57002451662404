// CodePageTest.cpp - system code pages from the registry, conversions through iconv
#include "platform/CodePage.h"

#include "platform/Registry.h"
#include "platform/SystemError.h"
#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include <string>

using namespace platform;
using testsupport::ScratchRegistry;

namespace {

const char* kNls = "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage";

// Both calls of a conversion: the size asked first, then the text.
std::string Narrow(uint32_t codePage, const std::u16string& w) {
    const int n = static_cast<int>(w.size());
    const int need = WideCharToMultiByte(codePage, w.data(), n, nullptr, 0);
    std::string out(static_cast<size_t>(need), 'J');
    EXPECT_EQ(need, WideCharToMultiByte(codePage, w.data(), n, &out[0], need));
    return out;
}

std::u16string Wide(uint32_t codePage, const std::string& t) {
    const int n = static_cast<int>(t.size());
    const int need = MultiByteToWideChar(codePage, t.data(), n, nullptr, 0);
    std::u16string out(static_cast<size_t>(need), u'J');
    EXPECT_EQ(need, MultiByteToWideChar(codePage, t.data(), n, &out[0], need));
    return out;
}

// Reads the code pages anew from a scratch registry and forgets them after.
class CodePages : public ::testing::Test {
protected:
    void SetUp() override { ResetCodePageCacheForTest(); }
    void TearDown() override { ResetCodePageCacheForTest(); }
    ScratchRegistry reg;
};

}  // namespace

TEST_F(CodePages, ReadFromTheRegistryOncePerProcess) {
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, kNls, true));
    ASSERT_EQ(0u, SetRegistryString(HKEY_LOCAL_MACHINE, kNls, "ACP", "932", true));
    ASSERT_EQ(0u, SetRegistryString(HKEY_LOCAL_MACHINE, kNls, "OEMCP", "850", true));
    EXPECT_EQ(932u, GetACP());
    EXPECT_EQ(850u, GetOEMCP());
    ASSERT_EQ(0u, SetRegistryString(HKEY_LOCAL_MACHINE, kNls, "ACP", "1251", true));
    EXPECT_EQ(932u, GetACP()) << "read again although cached";
    // kCpAcp follows the registry's choice.
    EXPECT_EQ(std::string("\x93\xfa", 2), Narrow(kCpAcp, u"\u65e5"));
}

TEST_F(CodePages, MissingOrUnusableRegistryValuesFallBack) {
    EXPECT_EQ(1252u, GetACP());
    EXPECT_EQ(437u, GetOEMCP());
    ResetCodePageCacheForTest();
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, kNls, true));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, kNls, "ACP", 932, true));  // not a string
    ASSERT_EQ(0u, SetRegistryString(HKEY_LOCAL_MACHINE, kNls, "OEMCP", "oem", true));
    EXPECT_EQ(1252u, GetACP());
    EXPECT_EQ(437u, GetOEMCP());
}

TEST(CodePageConversion, UsesTheWindowsCodePagesBothWays) {
    struct Case {
        const char* name;
        uint32_t codePage;
        std::u16string wide;
        std::string bytes;
    } cases[] = {
        {"1252 euro and 0x9f", 1252, u"\u20ac\u0178", "\x80\x9f"},
        {"932 wave dash is the Windows one", 932, u"\uff5e\u65e5", "\x81\x60\x93\xfa"},
        {"936", 936, u"\u4e2d", "\xd6\xd0"},
        {"949", 949, u"\ud55c", "\xc7\xd1"},
        {"950", 950, u"\u4e2d", "\xa4\xa4"},
        {"utf-8 with a pair", kCpUtf8, u"a\u00e9\U0001F600", "a\xc3\xa9\xf0\x9f\x98\x80"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.bytes, Narrow(c.codePage, c.wide));
        EXPECT_EQ(c.wide, Wide(c.codePage, c.bytes));
    }
}

TEST(CodePageConversion, ReplacesWhatCannotBeConverted) {
    EXPECT_EQ("a?b", Narrow(1252, u"a\u4e00b"));
    EXPECT_EQ("a?b", Narrow(1252, std::u16string(u"a") + char16_t(0xD800) + u"b"));
    EXPECT_EQ(u"a\ufffdb", Wide(kCpUtf8, "a\xff" "b"));
    EXPECT_EQ(u"a\ufffd", Wide(kCpUtf8, "a\xe2\x82"));  // cut off at the end
}

TEST(CodePageConversion, LengthsBuffersAndFailures) {
    // -1 converts the terminating zero as well.
    char out[8] = "JJJJJJJ";
    EXPECT_EQ(3, WideCharToMultiByte(1252, u"ab", -1, out, sizeof out));
    EXPECT_EQ(std::string("ab\0", 3), std::string(out, 3));
    char16_t wide[8];
    EXPECT_EQ(3, MultiByteToWideChar(1252, "ab", -1, wide, 8));
    EXPECT_EQ(u'\0', wide[2]);

    SetLastError(0);
    EXPECT_EQ(0, WideCharToMultiByte(1252, u"abc", 3, out, 2));
    EXPECT_EQ(kErrorInsufficientBuffer, GetLastError());
    EXPECT_EQ(0, MultiByteToWideChar(1252, "abc", 3, wide, 2));
    EXPECT_EQ(kErrorInsufficientBuffer, GetLastError());

    SetLastError(0);
    EXPECT_EQ(0, WideCharToMultiByte(4242, u"a", 1, out, sizeof out));  // unknown code page
    EXPECT_EQ(kErrorInvalidParameter, GetLastError());
    EXPECT_EQ(0, MultiByteToWideChar(1252, "a", 0, wide, 8));
    EXPECT_EQ(0, MultiByteToWideChar(1252, nullptr, -1, wide, 8));
}
