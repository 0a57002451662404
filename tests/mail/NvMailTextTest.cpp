// NvMailTextTest.cpp - text classes, the Date value, charset names and the boundary counter
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "mail/MailTestEnv.h"
#include "mail/NvMail.h"

namespace {

TEST(NvMailText, ClassFollowsTheWidestCharacterAndTheSystemCodePage) {
    mailtest::ScratchRegistry registry(mailtest::AcpSection("1250"));
    EXPECT_EQ(20127, CNvMail::ClassifyText(u"plain \x7f"));
    EXPECT_EQ(1250, CNvMail::ClassifyText(u"caf\u00e9 \u00ff"));
    EXPECT_EQ(1200, CNvMail::ClassifyText(u"\u00e9 \u0100"));
}

// The offset part of the Date value under `tz`; the date and time in front
// must be the C library's reading of the same second (English: the test
// runs in the "C" locale).
std::string OffsetUnder(const char* tz) {
    mailtest::EnvSetting zone("TZ", tz);
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t now = std::time(nullptr);
        CNvcString out;
        CNvMail::FormatDateHeader(out);
        if (std::time(nullptr) != now) continue;  // a second boundary fell between
        tzset();
        struct tm tm {};
        localtime_r(&now, &tm);
        char expected[64];
        std::strftime(expected, sizeof expected, "%a, %-d %b %Y %H:%M:%S ", &tm);
        const std::string text = out.GetData();
        EXPECT_EQ(0u, text.rfind(expected, 0)) << tz << ": " << text;
        return text.substr(std::min(text.size(), std::strlen(expected)));
    }
    return "clock kept ticking";
}

TEST(NvMailText, DateHeaderWithTheOffsetInForceNow) {
    EXPECT_EQ("-0000\r\n", OffsetUnder("UTC0"));  // a plus only above zero
    EXPECT_EQ("+0530\r\n", OffsetUnder("IST-5:30"));
    EXPECT_EQ("-0330\r\n", OffsetUnder("NST3:30"));
    // Daylight time all year round: one hour east of the standard offset.
    EXPECT_EQ("+0200\r\n", OffsetUnder("XST-1XDT,J1/0,J365/25"));
}

TEST(NvMailText, CharsetNameFromTheMimeDatabaseThenTheEngine) {
    mailtest::ScratchRegistry registry(
        "[HKEY_CLASSES_ROOT\\MIME\\Database\\CodePage\\1252]\r\n"
        "\"BodyCharset\"=\"iso-8859-1\"\r\n\"WebCharset\"=\"windows-1252\"\r\n\r\n"
        "[HKEY_CLASSES_ROOT\\MIME\\Database\\CodePage\\1251]\r\n"
        "\"BodyCharset\"=\"\"\r\n\"WebCharset\"=\"x-web-1251\"\r\n\r\n"
        "[HKEY_CLASSES_ROOT\\MIME\\Database\\CodePage\\50221]\r\n"
        "\"BodyCharset\"=\"not-this\"\r\n\r\n");
    const struct {
        long codePage;
        const char* name;
    } cases[] = {{1252, "iso-8859-1"},   {1251, "x-web-1251"}, {50221, "iso-2022-jp"},
                 {1250, "windows-1250"}, {4242, ""}};
    for (const auto& c : cases) {
        CNvcString out("stale");
        EXPECT_STREQ(c.name, GetCharsetName(c.codePage, out).GetData()) << c.codePage;
    }
}

// The bases drawn from the rand sequence: NvMail.BoundariesAndAttachmentsOfComposesInARow.
TEST(NvMailText, TheBoundaryCounterIsHex) {
    CNvcString boundary;
    CNvMail::FormatBoundary(26, CNvcString("B=="), boundary);
    EXPECT_STREQ("--==01A_B==", boundary.GetData());
}

}  // namespace
