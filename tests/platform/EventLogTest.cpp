// EventLogTest.cpp - entries in the file named by TELMORAQ_EVENTLOG
#include "platform/EventLog.h"

#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>
#include <string>

using namespace platform;

namespace {

class EventFile : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("TELMORAQ_EVENTLOG", path.c_str(), 1); }
    void TearDown() override { ::unsetenv("TELMORAQ_EVENTLOG"); }
    testsupport::TempDir dir;
    std::string path = dir.file("events.log");
};

// The lines of `text` with their "YYYY-MM-DD hh:mm:ss " stamps checked and cut.
std::vector<std::string> Unstamped(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        std::string line = text.substr(start, end - start);
        const std::string stamp = line.substr(0, 20);
        for (size_t i = 0; i < stamp.size(); ++i) {
            const char want = "0000-00-00 00:00:00 "[i];
            const bool ok = want == '0' ? stamp[i] >= '0' && stamp[i] <= '9' : stamp[i] == want;
            EXPECT_TRUE(ok) << "bad stamp: " << line;
        }
        lines.push_back(line.size() > 20 ? line.substr(20) : "");
    }
    EXPECT_EQ(text.size(), start) << "last line not closed";
    return lines;
}

}  // namespace

TEST_F(EventFile, AppendsOneLinePerEntryInTheFixedShape) {
    ASSERT_EQ(0, ReportEvent("TelmoraQ", EventType::Error, 0xC0000064, {"one", "two"}));
    ASSERT_EQ(0, ReportEvent("SceCli", EventType::Warning, 0x6A8, {"multi\r\nline"}));
    ASSERT_EQ(0, ReportEvent("TelmoraQ", EventType::Information, 0x4000000A, {}));
    const std::string text = testsupport::ReadFile(path);
    const std::vector<std::string> want = {
        "TelmoraQ error 0xC0000064 one two",
        "SceCli warning 0x000006A8 multi  line",
        "TelmoraQ information 0x4000000A ",
    };
    EXPECT_EQ(want, Unstamped(text));
}

TEST_F(EventFile, UnwritableFileGivesASystemErrorNumber) {
    ::setenv("TELMORAQ_EVENTLOG", dir.file("no/such/dir/events.log").c_str(), 1);
    EXPECT_EQ(3, ReportEvent("TelmoraQ", EventType::Error, 1, {"x"}));
}

TEST(EventLog, SystemMessageTextsAreTheSystemsWordsOrEmpty) {
    EXPECT_EQ("The system cannot find the file specified.", SystemMessageText(2));
    EXPECT_EQ("Access is denied.", SystemMessageText(5));
    EXPECT_EQ("", SystemMessageText(0xFFFF));
}
