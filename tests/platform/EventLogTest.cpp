// EventLogTest.cpp - entries in the file named by TELMORAQ_EVENTLOG
#include "platform/EventLog.h"

#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

using namespace platform;

namespace {

class EventFile : public ::testing::Test {
protected:
    testsupport::TempDir dir;
    std::string path = dir.file("events.log");
    testsupport::EnvSetting setting{"TELMORAQ_EVENTLOG", path.c_str()};
};

// The lines of `text` with their "YYYY-MM-DD hh:mm:ss " stamps checked and cut.
std::vector<std::string> Unstamped(const std::string& text) {
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "last line not closed";
    const std::regex stamped(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d ([\s\S]*))");
    std::istringstream in(text);
    std::vector<std::string> lines;
    std::smatch match;
    for (std::string line; std::getline(in, line);) {
        EXPECT_TRUE(std::regex_match(line, match, stamped)) << "bad stamp: " << line;
        lines.push_back(match.size() > 1 ? match[1].str() : line);
    }
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

TEST(EventLog, SystemMessageTextsAreTheSystemsWordsOrEmpty) {
    EXPECT_EQ("The system cannot find the file specified.", SystemMessageText(2));
    EXPECT_EQ("Access is denied.", SystemMessageText(5));
    EXPECT_EQ("", SystemMessageText(0xFFFF));
}
