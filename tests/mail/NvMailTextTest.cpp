// NvMailTextTest.cpp - text classes, the Date value, charset names and boundaries
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "mail/MailTestEnv.h"
#include "mail/NvMail.h"
#include "platform/CRand.h"

namespace {

TEST(NvMailText, ClassFollowsTheWidestCharacterAndTheSystemCodePage) {
    mailtest::ScratchRegistry registry(mailtest::AcpSection("1250"));
    const struct {
        const char16_t* text;
        int32_t expected;
    } cases[] = {
        {u"", 20127},
        {u"plain \x7f", 20127},
        {u"caf\u00e9", 1250},
        {u"\u00ff", 1250},
        {u"\u0100", 1200},
        // One wide character anywhere wins over the 8-bit ones before it.
        {u"\u00e9 then \u20ac", 1200},
        {u"\u20ac then \u00e9", 1200},
    };
    for (const auto& c : cases) EXPECT_EQ(c.expected, CNvMail::ClassifyText(c.text));
}

// The Date value for the zone in TZ, with the C library's own reading of the
// same moment as the oracle; retried when a second boundary falls between.
std::string ExpectedDatePrefix(time_t when) {
    static const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    tzset();
    struct tm tm {};
    localtime_r(&when, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%s, %d %s %04d %02d:%02d:%02d ", days[tm.tm_wday], tm.tm_mday,
                  months[tm.tm_mon], tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return text;
}

std::string DateUnder(const char* tz) {
    mailtest::ScopedEnv zone("TZ", tz);
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t before = std::time(nullptr);
        CNvcString out;
        CNvMail::FormatDateHeader(out);
        if (std::time(nullptr) != before) continue;
        const std::string text = out.GetData();
        const std::string prefix = ExpectedDatePrefix(before);
        EXPECT_EQ(prefix, text.substr(0, prefix.size())) << tz;
        return text.substr(std::min(prefix.size(), text.size()));
    }
    ADD_FAILURE() << "clock kept ticking over a second boundary";
    return "";
}

TEST(NvMailText, DateHeaderInEnglishWithTheOffsetInForceNow) {
    EXPECT_EQ("-0000\r\n", DateUnder("UTC0"));
    EXPECT_EQ("+0530\r\n", DateUnder("IST-5:30"));
    EXPECT_EQ("-0500\r\n", DateUnder("EST5"));
    EXPECT_EQ("+0545\r\n", DateUnder("NPT-5:45"));
    EXPECT_EQ("-0330\r\n", DateUnder("NST3:30"));
    // Daylight time all year round: one hour east of the standard offset.
    EXPECT_EQ("+0200\r\n", DateUnder("XST-1XDT,J1/0,J365/25"));
    EXPECT_EQ("-0400\r\n", DateUnder("QST5QDT,J1/0,J365/25"));
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
    } cases[] = {
        {1252, "iso-8859-1"},   // BodyCharset first
        {1251, "x-web-1251"},   // WebCharset when BodyCharset is empty
        {50221, "iso-2022-jp"}, // fixed, no look-up
        {1250, "windows-1250"}, // no key: the engine's name
        {65001, "utf-8"},
        {4242, ""},             // no name anywhere: an empty label
    };
    for (const auto& c : cases) {
        CNvcString out("stale");
        EXPECT_STREQ(c.name, GetCharsetName(c.codePage, out).GetData()) << c.codePage;
    }
}

TEST(NvMailText, BoundariesFromTheRuntimeRandSequence) {
    platform::srand(1);  // the sequence 41, 18467, 6334, 26500, 19169, ...
    CNvcString base;
    CNvMail::MakeBoundaryBase(base);
    EXPECT_STREQ("0A0133F8000B8D9B==", base.GetData());
    CNvcString boundary;
    CNvMail::FormatBoundary(1, base, boundary);
    EXPECT_STREQ("--==001_0A0133F8000B8D9B==", boundary.GetData());
    CNvMail::FormatBoundary(26, base, boundary);
    EXPECT_STREQ("--==01A_0A0133F8000B8D9B==", boundary.GetData());
    CNvMail::MakeBoundaryBase(base);
    EXPECT_STREQ("1415C57411F733EC==", base.GetData());
}

}  // namespace
