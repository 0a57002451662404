// NvcBaseTest.cpp - trace line rules, the journal window and assertion output
#include "foundation/NvcBase.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/ProfileFile.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

// True when `text` starts with "[hh:mm:ss]" and then `tail`.
bool HasStamp(const std::string& text, const std::string& tail) {
    static const std::regex stamp(R"(\[\d\d:\d\d:\d\d\])");
    return text.size() >= 10 + tail.size() && std::regex_match(text.substr(0, 10), stamp) &&
           text.compare(10, tail.size(), tail) == 0;
}

// Lines of a trace file with their "[hh:mm:ss]  " stamps checked and removed.
std::vector<std::string> StampedLines(const std::string& content) {
    std::vector<std::string> lines;
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);) {
        if (HasStamp(line, "  ")) line.erase(0, 12);
        else line = "<no stamp>" + line;
        lines.push_back(line);
    }
    return lines;
}

TEST(NvcBaseTrace, LineRulesPerLevel) {
    const struct {
        const char* name;
        int level;
        const char* text;
        const char* wantFile;  // what follows the stamps, null: no file at all
        const char* format = nullptr;  // "%s" unless given
    } cases[] = {
        {"trailing CR LF gets no mark", 1, "EHLO host\r\n", "EHLO host\n"},
        {"marks inside the line", 1, "a\r\nb\rc\nd", "a <CRLF> b <CR> c <LF> d\n"},
        {"only line ends leaves the stamp", 1, "\r\n\n\r", "\n"},
        {"LF CR in the middle", 1, "x\n\ry", "x <LF>  <CR> y\n"},
        {"raw keeps ends, adds its own", 4, "250 ok\r\n", "250 ok\n\n"},
        {"raw lone CR stays", 4, "a\rb", "a\rb\n"},
        {"file and raw is raw", 5, "a\r\nb", "a\nb\n"},
        {"journal bit alone and no journal", 2, "silent", nullptr},
        {"level zero", 0, "silent", nullptr},
        {"empty format", 1, "ignored", nullptr, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        CNvcBase object("Tracer");
        object.SetTraceFile(dir.file("trace.log").c_str());
        Log(&object, c.level, c.format == nullptr ? "%s" : c.format, c.text);
        const std::string content = ReadFile(dir.file("trace.log"));
        if (c.wantFile == nullptr) {
            EXPECT_EQ("", content);
            continue;
        }
        ASSERT_GE(content.size(), 12u);
        EXPECT_TRUE(HasStamp(content, "  "));
        EXPECT_EQ(c.wantFile, content.substr(12));
    }
}

TEST(NvcBaseTrace, AppendsAndSurvivesMovedFile) {
    TempDir dir;
    CNvcBase object("Mover");
    object.SetTraceFile(dir.file("t.log").c_str());
    Log(&object, 1, "first %d", 1);
    std::rename(dir.file("t.log").c_str(), dir.file("old.log").c_str());
    Log(&object, 1, "second %d", 2);
    Log(&object, 3, "third %d", 3);
    EXPECT_EQ(std::vector<std::string>({"first 1"}), StampedLines(ReadFile(dir.file("old.log"))));
    EXPECT_EQ(std::vector<std::string>({"second 2", "third 3"}),
              StampedLines(ReadFile(dir.file("t.log"))));

    CNvcBase unwritable("Nowhere");
    unwritable.SetTraceFile(dir.file("missing/dir/t.log").c_str());
    Log(&unwritable, 1, "lost");
}

TEST(NvcBaseTrace, SizedLinesOfAnyLength) {
    TempDir dir;
    CNvcBase object("Sized");
    object.SetTraceFile(dir.file("t.log").c_str());
    const std::string reply(200000, 'r');
    LogSized(&object, 1, reply.size() + 256, "Response: [%s]\r\n", reply.c_str());
    LogSized(&object, 4, 256, "raw\r\nkept");
    const std::string content = ReadFile(dir.file("t.log"));
    const std::vector<std::string> lines = StampedLines(content);
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("Response: [" + reply + "]", lines[0]);
    EXPECT_EQ("raw\r\nkept\n", content.substr(content.size() - 10)) << "raw keeps CR LF";
}

TEST(NvcBaseTrace, LinesOfTwoThreadsNeverMix) {
    TempDir dir;
    CNvcBase object("Shared");
    object.SetTraceFile(dir.file("t.log").c_str());
    auto writer = [&object](char mark) {
        const std::string body(300, mark);
        for (int i = 0; i < 200; ++i) Log(&object, 1, "%s", body.c_str());
    };
    std::thread a(writer, 'a');
    std::thread b(writer, 'b');
    a.join();
    b.join();
    const std::vector<std::string> lines = StampedLines(ReadFile(dir.file("t.log")));
    ASSERT_EQ(400u, lines.size());
    for (const std::string& line : lines)
        ASSERT_TRUE(line == std::string(300, 'a') || line == std::string(300, 'b')) << line;
}

TEST(NvcBase, NameTakesNumberUnlessZero) {
    EXPECT_STREQ("Worker7", CNvcBase("Worker", 7).GetName());
    EXPECT_STREQ("Worker", CNvcBase("Worker", 0).GetName());
    EXPECT_STREQ("", CNvcBase(nullptr, 7).GetName());
}

std::vector<std::string> SectionLines(const std::string& section, const std::string& file) {
    std::vector<char> block(1 << 17);
    const size_t got = platform::GetPrivateProfileSection(section, block.data(), block.size(), file);
    std::vector<std::string> lines;
    for (size_t at = 0; at < got && block[at] != '\0'; at += lines.back().size() + 1)
        lines.emplace_back(block.data() + at);
    return lines;
}

TEST(NvcBaseJournal, KeepsHundredEntriesAndCountsOn) {
    TempDir dir;
    const std::string journal = dir.file("journal.ini");
    CNvcBase object("Journal");
    object.SetJournalFile(journal.c_str());
    for (int i = 0; i < 101; ++i) Log(&object, 2, "entry %d", i);
    std::vector<std::string> lines = SectionLines("Log", journal);
    ASSERT_EQ(100u, lines.size());
    EXPECT_EQ("00000001|", lines.front().substr(0, 9));
    EXPECT_NE(std::string::npos, lines.front().find("entry 1"));
    EXPECT_NE(std::string::npos, lines.back().find("entry 100"));
    EXPECT_EQ(101, platform::GetPrivateProfileInt("Init", "NextEntry", 0, journal));

    const std::string longText(1500, 'L');
    Log(&object, 2, "%s", longText.c_str());
    lines = SectionLines("Log", journal);
    ASSERT_EQ(100u, lines.size());
    EXPECT_EQ(9u + 1023u, lines.back().size()) << "cut to 1020 characters and \"...\"";
    EXPECT_EQ("...", lines.back().substr(lines.back().size() - 3));
}

TEST(NvcBaseAssert, WritesDebugFileAndEventAndGoesOn) {
    TempDir dir;
    const std::string events = dir.file("events.log");
    setenv("TELMORAQ_DEBUG_DIR", dir.path().c_str(), 1);
    setenv("TELMORAQ_EVENTLOG", events.c_str(), 1);
    Assert(1, "NvcThread", 34);
    Assert(0, "NvcThread", 695);
    CNvcBase object("Sized");
    LogSized(&object, 1, 8, "hint too small");
    unsetenv("TELMORAQ_EVENTLOG");
    unsetenv("TELMORAQ_DEBUG_DIR");

    const std::string kHead = " NORVANE ASSERTION FAILURE, FILE: [";
    std::vector<std::string> seen;
    std::istringstream in(ReadFile(dir.file("assert.txt")));
    for (std::string line; std::getline(in, line);) {
        ASSERT_TRUE(HasStamp(line, kHead)) << line;
        seen.push_back(line.substr(10 + kHead.size()));
    }
    EXPECT_EQ(std::vector<std::string>({"NvcThread]; LINE: 695", "NvcBase]; LINE: 578"}), seen);
    const std::string logged = ReadFile(events);
    EXPECT_NE(std::string::npos, logged.find("SceCli error 0x000006A8")) << logged;
    EXPECT_NE(std::string::npos, logged.find("FILE: [NvcBase]; LINE: 578")) << logged;
}

}  // namespace
