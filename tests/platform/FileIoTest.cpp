// FileIoTest.cpp - sharing rules, read-only files and error numbers of the file seam
#include "platform/FileIo.h"
#include "platform/SystemError.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "support/TestPaths.h"

using namespace platform;

TEST(FileIo, OpenErrorsAreWindowsNumbers) {
    testsupport::TempDir dir;
    ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
    struct Case {
        const char* name;
        std::string path;
        uint32_t want;
    };
    const Case cases[] = {
        {"missing file", dir.file("none"), 2},
        {"missing folder", dir.file("none/f"), 3},
        {"a folder", dir.path(), 5},
        {"a fifo, without blocking", dir.file("fifo"), 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint32_t error = 0;
        EXPECT_EQ(OpenFileForReading(c.path, error), kNoFile);
        EXPECT_EQ(error, c.want);
    }
}

TEST(FileIo, ReadersShareAndWritersShareNothing) {
    testsupport::TempDir dir;
    const std::string path = dir.file("f");
    ASSERT_TRUE(testsupport::WriteFile(path, "keep"));
    uint32_t error = 0;
    FileHandle reader1 = OpenFileForReading(path, error);
    FileHandle reader2 = OpenFileForReading(path, error);
    ASSERT_NE(reader1, kNoFile);
    ASSERT_NE(reader2, kNoFile);
    EXPECT_EQ(CreateFileForWriting(path, error), kNoFile);
    EXPECT_EQ(error, kErrorSharingViolation);
    EXPECT_EQ(testsupport::ReadFile(path), "keep");  // a refused writer truncates nothing
    CloseFile(reader1);
    CloseFile(reader2);

    FileHandle writer = CreateFileForWriting(path, error);
    ASSERT_NE(writer, kNoFile);
    EXPECT_EQ(OpenFileForReading(path, error), kNoFile);
    EXPECT_EQ(error, kErrorSharingViolation);
    CloseFile(writer);
    EXPECT_EQ(testsupport::ReadFile(path), "");
}

TEST(FileIo, ReadOnlyBitRefusesWritersWhateverTheUser) {
    testsupport::TempDir dir;
    const std::string path = dir.file("ro");
    ASSERT_TRUE(testsupport::WriteFile(path, "x"));
    ASSERT_TRUE(SetFileAttributes(path, kFileAttributeReadOnly));
    uint32_t error = 0;
    EXPECT_EQ(CreateFileForWriting(path, error), kNoFile);
    EXPECT_EQ(error, kErrorAccessDenied);
    uint32_t attributes = 0;
    ASSERT_TRUE(GetFileAttributes(path, attributes, error));
    EXPECT_EQ(attributes, kFileAttributeReadOnly);

    ASSERT_TRUE(SetFileAttributes(path, kFileAttributeNormal));
    FileHandle writer = CreateFileForWriting(path, error);
    EXPECT_NE(writer, kNoFile);
    CloseFile(writer);
}
