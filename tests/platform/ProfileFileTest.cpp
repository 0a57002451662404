// ProfileFileTest.cpp - profile sections and keys: reads, limits, atomic edits
#include "platform/ProfileFile.h"

#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include <string>

using namespace platform;
using namespace testsupport;

namespace {

const char kJournal[] =
    "[Init]\r\n"
    "NextEntry=12\r\n"
    "Bad=twelve\r\n"
    "\r\n"
    "[Log]\r\n"
    "00000001=first\r\n"
    "; a comment\r\n"
    "  00000002=second  \r\n";

// The section read into a buffer pre-filled with junk.
std::string Section(const std::string& file, const char* name, size_t size, size_t& returned) {
    std::string buffer(size, 'J');
    returned = GetPrivateProfileSection(name, &buffer[0], size, file);
    return buffer;
}

// A scratch folder holding the journal above.
class ProfileFile : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(WriteFile(file, kJournal)); }
    testsupport::TempDir dir;
    const std::string file = dir.file("journal.ini");
};

}  // namespace

TEST_F(ProfileFile, SectionReadsAsZeroSeparatedBlock) {
    struct Case {
        const char* name;
        const char* section;
        size_t size;
        size_t wantReturn;
        std::string wantBlock;
    } cases[] = {
        {"whole section, names without case", "log", 64, 31,
         std::string("00000001=first\0" "00000002=second\0\0", 32)},
        {"too small: cut, closed, size - 2", "Log", 10, 8, std::string("00000001\0\0", 10)},
        {"missing section", "Nope", 8, 0, std::string("\0\0", 2)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        size_t returned = 0;
        const std::string got = Section(file, c.section, c.size, returned);
        EXPECT_EQ(c.wantReturn, returned);
        EXPECT_EQ(c.wantBlock, got.substr(0, c.wantBlock.size()));
    }
    size_t returned = 0;
    EXPECT_EQ(std::string("\0\0", 2), Section(dir.file("missing.ini"), "Log", 2, returned));
}

TEST_F(ProfileFile, IntegerFallsBackToTheDefault) {
    EXPECT_EQ(12, GetPrivateProfileInt("INIT", "nextentry", 5, file));
    EXPECT_EQ(5, GetPrivateProfileInt("Init", "Bad", 5, file));
    EXPECT_EQ(5, GetPrivateProfileInt("Init", "Missing", 5, file));
    EXPECT_EQ(5, GetPrivateProfileInt("Init", "NextEntry", 5, dir.file("missing.ini")));
}

TEST_F(ProfileFile, KeyWritesReplaceAddAndDeleteInPlace) {
    EXPECT_TRUE(WritePrivateProfileString("init", "NEXTENTRY", "13", file));
    EXPECT_TRUE(WritePrivateProfileString("Init", "Added", "1", file));
    EXPECT_TRUE(WritePrivateProfileString("Init", "Bad", nullptr, file));
    EXPECT_TRUE(WritePrivateProfileString("New", "Key", "v", file));
    EXPECT_EQ(
        "[Init]\r\n"
        "NEXTENTRY=13\r\n"
        "Added=1\r\n"
        "\r\n"
        "[Log]\r\n"
        "00000001=first\r\n"
        "; a comment\r\n"
        "  00000002=second  \r\n"
        "[New]\r\n"
        "Key=v\r\n",
        ReadFile(file));
}

TEST_F(ProfileFile, SectionWritesReplaceOrDeleteTheWholeSection) {
    const char block[] = "a=1\0b=2\0";
    EXPECT_TRUE(WritePrivateProfileSection("LOG", block, file));
    EXPECT_TRUE(WritePrivateProfileSection("Init", nullptr, file));
    EXPECT_EQ("[Log]\r\na=1\r\nb=2\r\n", ReadFile(file));

    const std::string fresh = dir.file("fresh.ini");
    EXPECT_TRUE(WritePrivateProfileSection("Log", block, fresh));
    EXPECT_EQ("[Log]\na=1\nb=2\n", ReadFile(fresh));
    EXPECT_FALSE(WritePrivateProfileString("Log", "a", "1", dir.file("no/dir/x.ini")));
}
