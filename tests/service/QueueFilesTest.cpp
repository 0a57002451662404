// QueueFilesTest.cpp - archive names, the unique fallback, and holding a file aside
#include "service/QueueFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

class QueueFilesTest : public ::testing::Test {
protected:
    QueueFilesTest() {
        source = dir.file("msg.v1.nvq");
        WriteFile(source, "Subject: x\r\n\r\nbody\r\n");
        ::mkdir(dir.file("sent").c_str(), 0700);
    }
    TempDir dir;
    std::string source;
};

TEST_F(QueueFilesTest, TheCopyTakesTheHstNameWithOrWithoutATrailingSeparator) {
    CNvcString stored;
    EXPECT_TRUE(ArchiveQueueFile(source.c_str(), dir.file("sent").c_str(), stored));
    EXPECT_STREQ(stored.GetData(), "msg.v1.hst") << "only the last extension is replaced";
    EXPECT_EQ(ReadFile(dir.file("sent/msg.v1.hst")), ReadFile(source));

    WriteFile(dir.file("other"), "no extension");
    EXPECT_TRUE(ArchiveQueueFile(dir.file("other").c_str(), (dir.file("sent") + "/").c_str(), stored));
    EXPECT_STREQ(stored.GetData(), "other.hst");
}

// A taken name giving a unique .mim copy: tests/faults/test_pickup.py (odd names).
TEST_F(QueueFilesTest, WhenBothCopiesFailTheLastDestinationIsNamedAndNoCopyCounts) {
    CNvcString stored;
    EXPECT_FALSE(ArchiveQueueFile(source.c_str(), dir.file("missing").c_str(), stored));
    EXPECT_STREQ(stored.GetData() + stored.GetLength() - 4, ".mim");
}

TEST_F(QueueFilesTest, AnEmptyFolderMeansTheRootFolder) {
    const std::string name = "telmoraq-archive-test-" + std::to_string(::getpid());
    WriteFile(dir.file(name + ".nvq"), "x");
    CNvcString stored;
    const bool copied = ArchiveQueueFile(dir.file(name + ".nvq").c_str(), "", stored);
    EXPECT_EQ(copied, ::access("/", W_OK) == 0);  // only a writable root takes the copy
    EXPECT_EQ(ReadFile("/" + name + ".hst"), copied ? "x" : "");
    ::unlink(("/" + name + ".hst").c_str());
}

TEST_F(QueueFilesTest, AHeldFileLeavesTheQueueNameAndNeverReplacesAnother) {
    CNvcString held;
    ASSERT_TRUE(HoldQueueFile(source.c_str(), held));
    EXPECT_EQ(std::string(held.GetData()), dir.file("msg.v1.held"));
    EXPECT_EQ(ReadFile(source), "");

    WriteFile(source, "second");
    ASSERT_TRUE(HoldQueueFile(source.c_str(), held));
    EXPECT_NE(std::string(held.GetData()), dir.file("msg.v1.held"));
    EXPECT_EQ(ReadFile(held.GetData()), "second");
    EXPECT_EQ(ReadFile(dir.file("msg.v1.held")), "Subject: x\r\n\r\nbody\r\n");
}

}  // namespace
