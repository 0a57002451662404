// ResultLogTest.cpp - the daily file, its head row, the columns and their clean-ups
// (a log folder gone or unwritable: tests/faults/test_storage.py)
#include "service/ResultLog.h"

#include <gtest/gtest.h>

#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

// 2026-03-14 15:09:26 UTC
constexpr int64_t kMoment = 1773500966;

class ResultLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        tz_.emplace("TZ", "UTC");
        ::tzset();
        logDir = dir.path().c_str();
    }
    void TearDown() override {
        tz_.reset();
        ::tzset();
    }

    void Write(int64_t when, const char* subject, const char* to, const char* response,
               const char* separator = "|") {
        AppendResultLine(logDir, separator, when, subject, to, "a.hst", 1234, 0, response);
    }
    std::vector<std::string> Lines(const std::string& name = "2026-03-14.LOG") const {
        std::istringstream in(ReadFile(dir.file(name)));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    TempDir dir;
    CNvcString logDir;

private:
    std::optional<testsupport::EnvSetting> tz_;
};

// To loses its angle brackets, the reply its line ends (one point each); a
// failure shows its catalogue text, a negative code the generic one.
TEST_F(ResultLogTest, TheHeadRowComesOncePerDayFileAndTheColumnsAreCleanedUp) {
    Write(kMoment, "one", "a@x", "250 OK");
    Write(kMoment + 60, "", "Bob <bob@x>, <c@y>", "250-first\r\n250 last\n\r");
    EXPECT_STREQ(logDir.GetData(), (dir.path() + "/").c_str());  // the folder gets its separator
    AppendResultLine(logDir, "|", kMoment, "s", "t", "", 7, 550, "550 no");
    AppendResultLine(logDir, "|", kMoment, "s", "t", "", 7, -2001, "");
    Write(kMoment + 86400, "next day", "a@x", "250 OK");

    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "Date and Time|Subject|To|StoredMimeFile|TimeElapsed|Result|LastSmtpResponse");
    EXPECT_EQ(lines[1], "03/14/2026 03:09:26 PM|one|a@x|a.hst|1234|Error #0: Success|250 OK");
    EXPECT_EQ(lines[2], "03/14/2026 03:10:26 PM||Bob bob@x, c@y|a.hst|1234|Error #0: Success|"
                        "250-first..250 last..");
    EXPECT_NE(lines[3].find("|t||7|Error #550: "), std::string::npos) << lines[3];
    EXPECT_NE(lines[4].find("|Error #-2001: Generic Error|"), std::string::npos) << lines[4];
    ASSERT_EQ(Lines("2026-03-15.LOG").size(), 2u);
    EXPECT_EQ(Lines("2026-03-15.LOG")[0].rfind("Date and Time|", 0), 0u);
}

TEST_F(ResultLogTest, AFileFromAnEarlierRunOfTheDayGetsNoSecondHeadRow) {
    ASSERT_TRUE(testsupport::WriteFile(dir.file("2026-03-14.LOG"), "earlier line\n"));
    Write(kMoment, "s", "t", "r");
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "earlier line");
}

TEST_F(ResultLogTest, SeparatorsOfSeveralCharactersAndNoneAreUsedAsGiven) {
    Write(kMoment, "s", "t", "r", " ;; ");
    Write(kMoment, "s", "t", "r", "");
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Date and Time ;; Subject ;; To ;; StoredMimeFile ;; TimeElapsed ;; Result ;; "
                        "LastSmtpResponse");
    EXPECT_EQ(lines[1], "03/14/2026 03:09:26 PM ;; s ;; t ;; a.hst ;; 1234 ;; Error #0: Success ;; r");
    EXPECT_EQ(lines[2], "03/14/2026 03:09:26 PMsta.hst1234Error #0: Successr");
}

}  // namespace
