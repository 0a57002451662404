// FilesTest.cpp - directory search, durable copy, delete, path kinds
#include "platform/Files.h"

#include "platform/SystemError.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include "support/TinyFileSystem.h"

#include <algorithm>
#include <iterator>
#include <filesystem>
#include <string>
#include <vector>

using namespace platform;
using namespace testsupport;

namespace {

std::vector<std::string> Search(const std::string& pattern, uint32_t& error) {
    DirectorySearch search(pattern);
    std::vector<std::string> names;
    DirectoryEntry entry;
    while (search.Next(entry)) names.push_back(entry.name + (entry.isDirectory ? "/" : ""));
    error = search.error();
    return names;
}

}  // namespace

TEST(FilePattern, MatchesLikeAWindowsSearch) {
    struct Case {
        const char* pattern;
        const char* name;
        bool want;
    } cases[] = {
        {"*.nvq", "a.nvq", true},       {"*.nvq", "A.NVQ", true},     {"*.nvq", ".nvq", true},
        {"*.nvq", "a.nvq.tmp", false},  {"*.nvq", "anvq", false},     {"*.*", "noext", true},
        {"?.txt", "a.txt", true},       {"?.txt", "ab.txt", false},   {"a*b*c", "aXbYbZc", true},
        {"a*b*c", "aXbYc_", false},     {"*", "", true},              {"x", "X", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.pattern) + " vs " + c.name);
        EXPECT_EQ(c.want, MatchesPattern(c.pattern, c.name));
    }
}

TEST(DirectorySearch, YieldsMatchesDotsFirstAndTellsWhyItEnded) {
    TempDir dir;
    ASSERT_TRUE(WriteFile(dir.file("one.nvq"), "1"));
    ASSERT_TRUE(WriteFile(dir.file("two.NVQ"), "2"));
    ASSERT_TRUE(WriteFile(dir.file("three.txt"), "3"));
    std::filesystem::create_directory(dir.file("sub.nvq"));

    uint32_t error = 0;
    std::vector<std::string> all = Search(dir.path() + "/*.*", error);
    ASSERT_GE(all.size(), 2u);
    EXPECT_EQ("./", all[0]);
    EXPECT_EQ("../", all[1]);
    EXPECT_EQ(6u, all.size());
    EXPECT_EQ(kErrorNoMoreFiles, error);

    std::vector<std::string> queue = Search(dir.path() + "/*.nvq", error);
    std::sort(queue.begin(), queue.end());
    EXPECT_EQ((std::vector<std::string>{"one.nvq", "sub.nvq/", "two.NVQ"}), queue);

    EXPECT_TRUE(Search(dir.path() + "/*.eml", error).empty());
    EXPECT_EQ(kErrorFileNotFound, error);
    EXPECT_TRUE(Search(dir.path() + "/gone/*.nvq", error).empty());
    EXPECT_EQ(kErrorPathNotFound, error);
    EXPECT_EQ((std::vector<std::string>{"three.txt"}), Search(dir.path() + "/three.txt", error));
}

TEST(CopyFileDurably, CopiesCompletelyAndNeverOverwritesWhenAsked) {
    TempDir dir;
    const std::string data(200000, 'x');
    ASSERT_TRUE(WriteFile(dir.file("src"), data));
    ASSERT_TRUE(WriteFile(dir.file("kept"), "old"));

    EXPECT_EQ(0u, CopyFileDurably(dir.file("src"), dir.file("copy"), true));
    EXPECT_EQ(data, ReadFile(dir.file("copy")));

    EXPECT_EQ(kErrorFileExists, CopyFileDurably(dir.file("src"), dir.file("kept"), true));
    EXPECT_EQ(kErrorFileExists, GetLastError());
    EXPECT_EQ("old", ReadFile(dir.file("kept")));
    EXPECT_EQ(0u, CopyFileDurably(dir.file("src"), dir.file("kept"), false));
    EXPECT_EQ(data, ReadFile(dir.file("kept")));

    EXPECT_EQ(kErrorFileNotFound, CopyFileDurably(dir.file("nope"), dir.file("x"), true));
    EXPECT_EQ(kErrorPathNotFound, CopyFileDurably(dir.file("src"), dir.file("no/x"), true));
    EXPECT_EQ(kErrorAccessDenied, CopyFileDurably(dir.path(), dir.file("x"), true));

    // No temporary file is left behind by any of these.
    EXPECT_EQ(3, std::distance(std::filesystem::directory_iterator(dir.path()),
                               std::filesystem::directory_iterator()));
}

TEST(Files, DeleteAndPathKinds) {
    TempDir dir;
    ASSERT_TRUE(WriteFile(dir.file("f"), "x"));
    EXPECT_EQ(PathKind::File, GetPathKind(dir.file("f")));
    EXPECT_EQ(PathKind::Directory, GetPathKind(dir.path()));
    EXPECT_EQ(PathKind::Missing, GetPathKind(dir.file("nope")));
    EXPECT_EQ(PathKind::Missing, GetPathKind(""));

    EXPECT_EQ(kErrorAccessDenied, DeleteFile(dir.path()));
    EXPECT_EQ(0u, DeleteFile(dir.file("f")));
    EXPECT_EQ(PathKind::Missing, GetPathKind(dir.file("f")));
    EXPECT_EQ(kErrorFileNotFound, DeleteFile(dir.file("f")));
    EXPECT_EQ(kErrorPathNotFound, DeleteFile(dir.file("no/f")));
}

TEST(Files, AppendToFileCreatesOnlyFilesAndRefusesOtherKinds) {
    TempDir dir;
    EXPECT_EQ(0u, AppendToFile(dir.file("log"), "a\n"));
    EXPECT_EQ(0u, AppendToFile(dir.file("log"), "b\n"));
    EXPECT_EQ("a\nb\n", ReadFile(dir.file("log")));
    EXPECT_EQ(kErrorPathNotFound, AppendToFile(dir.file("no/log"), "x"));
    EXPECT_EQ(kErrorAccessDenied, AppendToFile(dir.path(), "x"));
}

// A full disk below the seam: the copy must fail with 112 and leave nothing,
// neither a partial target nor its temporary file.
TEST(CopyFileDurably, DiskFullLeavesNoPartialCopy) {
    TempDir dir;
    ASSERT_TRUE(WriteFile(dir.file("big"), std::string(200000, 'x')));
    std::filesystem::create_directory(dir.file("tiny"));
    const int result = testsupport::OnTinyFileSystem(dir.file("tiny"), [&] {
        std::error_code ec;
        return CopyFileDurably(dir.file("big"), dir.file("tiny/big"), true) == kErrorDiskFull &&
               std::filesystem::is_empty(dir.file("tiny"), ec);
    });
    if (result == 77) GTEST_SKIP() << "no user namespaces here: disk-full case skipped";
    EXPECT_EQ(0, result) << "wrong error or a leftover file on the full disk";
}

TEST(Files, TheRenameNeverReplacesAnExistingFile) {
    TempDir dir;
    WriteFile(dir.file("a"), "a");
    WriteFile(dir.file("b"), "b");
    EXPECT_EQ(RenameFileNoReplace(dir.file("a"), dir.file("b")), 80u);
    EXPECT_EQ(ReadFile(dir.file("b")), "b");
    EXPECT_EQ(RenameFileNoReplace(dir.file("a"), dir.file("c")), 0u);
    EXPECT_EQ(ReadFile(dir.file("c")), "a");
    EXPECT_NE(SyncParentDirectory(dir.file("nowhere/x")), 0u);
}

// flock belongs to the open file, so a second lock object fails even in the
// same process, as it would in a second instance.
TEST(FileLock, OneHolderAtATimeAndFreedWithTheObject) {
    TempDir dir;
    {
        FileLock first(dir.file("lock"));
        ASSERT_TRUE(first.Held());
        FileLock second(dir.file("lock"));
        EXPECT_FALSE(second.Held());
        EXPECT_TRUE(second.Busy());
    }
    FileLock again(dir.file("lock"));
    EXPECT_TRUE(again.Held());
    FileLock nowhere(dir.file("no/lock"));
    EXPECT_FALSE(nowhere.Held());
    EXPECT_FALSE(nowhere.Busy());
}
