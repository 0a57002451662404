// FileOpsTest.cpp - file names, opening rules, sharing retries, reads, writes, loadFile
#include "textlib/sys/FileOps.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "SysCallSpy.h"
#include "platform/FileIo.h"
#include "support/TestPaths.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/Logger.h"
#include "textlib/sys/BrelkinHandle.h"

using brelkin::BrelkinHandle;
using brelkin::Logger;
using brelkin::StringBuffer;

namespace {

std::string xmlOf(Logger& log) {
    StringBuffer out;
    log.getXml(out);
    return out.getString();
}

mode_t modeOf(const std::string& path) {
    struct stat st {};
    stat(path.c_str(), &st);
    return st.st_mode & 0777;
}

// Another process holding an exclusive lock on a file, the POSIX meaning of a
// program that opened it without sharing. Released when the object goes.
struct LockHolder {
    LockHolder(const std::string& path, const std::string& marker) {
        const std::string command = "/usr/bin/python3 -c \"import fcntl,sys; f=open('" + path +
                                    "','a'); fcntl.flock(f, fcntl.LOCK_EX); open('" + marker +
                                    "','w').close(); sys.stdin.read()\"";
        pipe = popen(command.c_str(), "w");
        for (int i = 0; i < 500 && access(marker.c_str(), F_OK) != 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ~LockHolder() {
        if (pipe) pclose(pipe);
    }
    FILE* pipe = nullptr;
};

}  // namespace

TEST(CleanFilename, ReplacesForbiddenCharacters) {
    auto cleaned = [](const char* input) {
        StringBuffer name(input);
        brelkin::cleanFilename(name, nullptr);
        return std::string(name.getString());
    };
    EXPECT_EQ(cleaned("C:\\a:b"), "C:\\a_b");
    EXPECT_EQ(cleaned("abcdefgh:ij"), "abcdefgh_ij");
    EXPECT_EQ(cleaned(":a:b"), ":a:b") << "a colon first of all: the colon step does nothing";
    EXPECT_EQ(cleaned("a|b*c"), "a_b_c");
    EXPECT_EQ(cleaned("abcdefg:h:i"), "abcdefg:h_i") << "position 7 is still a drive colon";
    EXPECT_EQ(cleaned("x:_COLON_:y"), "x::_y") << "kept quirk: an existing _COLON_ comes back as \":\"";
    EXPECT_EQ(cleaned("<a>\"b\"?"), "_a__b_?") << "a question mark stays";
    EXPECT_EQ(cleaned("\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9:a:b"), "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9:a_b");
}

TEST(CleanFilename, LogsBeforeAndAfter) {
    Logger log;
    StringBuffer name("C:\\a:b|c");
    brelkin::cleanFilename(name, &log);
    std::string xml = xmlOf(log);
    EXPECT_NE(xml.find("<info>The : character is not allowed in Windows filenames..</info>\r\n"
                       "<filename>C:\\a:b|c</filename>\r\n"
                       "<modifiedFilename>C:\\a_b|c</modifiedFilename>"),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find("<info>The | character is not allowed in Windows filenames.</info>\r\n"
                       "<filename>C:\\a_b|c</filename>"),
              std::string::npos)
        << xml;
}

TEST(LongPathForm, PrefixesByKindOfPath) {
    auto form = [](const char* path) {
        StringBuffer out("junk");
        brelkin::longPathFormOf(path, out);
        return std::string(out.getString());
    };
    EXPECT_EQ(form("\\\\server\\share\\f"), "\\\\?\\UNC\\server\\share\\f");
    EXPECT_EQ(form("\\\\?\\C:\\x"), "\\\\?\\C:\\x");
    EXPECT_EQ(form("C:\\dir\\f"), "\\\\?\\C:\\dir\\f");
}

TEST(OpenRoute, NarrowBelow260CharactersWhenAnsiFits) {
    EXPECT_TRUE(brelkin::takesNarrowRoute(259, true));
    EXPECT_FALSE(brelkin::takesNarrowRoute(260, true));
    EXPECT_FALSE(brelkin::takesNarrowRoute(10, false));
}

TEST(FileOps, WritesAndReadsBack) {
    testsupport::TempDir dir;
    const std::string path = dir.file("data.bin");
    const std::string data = "hello\0world";
    ASSERT_TRUE(brelkin::writeWholeFile(path.c_str(), data.data(), 11, nullptr));

    uint32_t errorCode = 99;
    BrelkinHandle* file = brelkin::openForRead(path.c_str(), &errorCode, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->getSize32(nullptr), 11u);
    EXPECT_EQ(file->getSize64(nullptr), 11);
    char buffer[32] = {};
    uint32_t got = 0;
    bool eof = true;
    EXPECT_TRUE(file->read(buffer, sizeof buffer, &got, &eof, nullptr));
    EXPECT_EQ(std::string(buffer, got), std::string(data.data(), 11));
    EXPECT_FALSE(eof);
    EXPECT_TRUE(file->read(buffer, sizeof buffer, &got, &eof, nullptr));
    EXPECT_EQ(got, 0u);
    EXPECT_TRUE(eof);
    delete file;
}

TEST(FileOps, RefusesBadArguments) {
    testsupport::TempDir dir;
    Logger log;
    BrelkinHandle closed;
    EXPECT_FALSE(closed.write("x", 1, 0, nullptr, &log));
    EXPECT_TRUE(closed.getSize64(nullptr) < 0);
    BrelkinHandle* file = brelkin::createForWrite(dir.file("f").c_str(), nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(file->read(nullptr, 5, nullptr, nullptr, &log));
    EXPECT_TRUE(file->write("x", 0, 0, nullptr, &log));
    delete file;
    EXPECT_EQ(brelkin::openForRead("", nullptr, nullptr), nullptr);
    EXPECT_FALSE(brelkin::writeWholeFile("", "x", 1, nullptr));
    EXPECT_FALSE(brelkin::getAttributes("", nullptr, nullptr, &log));
    std::string xml = xmlOf(log);
    EXPECT_NE(xml.find("Failed to write because file is not open."), std::string::npos);
    EXPECT_NE(xml.find("NULL buf or bufSize"), std::string::npos);
    EXPECT_NE(xml.find("GetAttributes: filename is empty"), std::string::npos);
}

// Callers act on the code: the raw system code alone, the path class once a log is kept.
TEST(FileOps, MissingFileGivesPathClassWithLog) {
    testsupport::TempDir dir;
    auto check = [](const std::string& path, uint32_t rawCode, uint32_t classWithLog) {
        SCOPED_TRACE(path);
        uint32_t errorCode = 0;
        EXPECT_EQ(brelkin::openForRead(path.c_str(), &errorCode, nullptr), nullptr);
        EXPECT_EQ(errorCode, rawCode);
        Logger log;
        EXPECT_EQ(brelkin::openForRead(path.c_str(), &errorCode, &log), nullptr);
        EXPECT_EQ(errorCode, classWithLog);
        const std::string xml = xmlOf(log);
        EXPECT_NE(xml.find("<error>Failed to open file (2)</error>"), std::string::npos);
        EXPECT_NE(xml.find("<Filename>" + path + "</Filename>"), std::string::npos);
    };
    check(dir.file("none.txt"), 2, 3);
    check(dir.file("nodir/none.txt"), 3, 2);
}

TEST(FileOps, RouteFollowsAnsiFitAndLength) {
    testsupport::TempDir dir;
    struct Case {
        const char* name;
        std::string path;
        const char* wantTag;
    };
    const Case cases[] = {
        {"latin-1 fits the ANSI page", dir.file("f\xc3\xa9.txt"), "<currentWorkingDirectory>"},
        {"CJK does not", dir.file("f\xe6\x97\xa5.txt"), "<utf8Filename>"},
        {"260 characters or more", dir.file(std::string(250, 'a')), "<utf8Filename>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Logger log;
        EXPECT_EQ(brelkin::openForRead(c.path.c_str(), nullptr, &log), nullptr);
        EXPECT_NE(xmlOf(log).find(c.wantTag), std::string::npos) << xmlOf(log);
        // Either route opens the same UTF-8 name.
        ASSERT_TRUE(brelkin::writeWholeFile(c.path.c_str(), "ab", 2, nullptr));
        brelkin::DataBuffer buffer;
        ASSERT_TRUE(buffer.loadFile(c.path.c_str(), nullptr));
        EXPECT_EQ(buffer.getSize(), 2u);
        EXPECT_EQ(testsupport::ReadFile(c.path), "ab");
    }
}

TEST(FileOps, ReadOnlyFileOpenedForWritingLosesTheBit) {
    testsupport::TempDir dir;
    const std::string path = dir.file("ro.txt");
    ASSERT_TRUE(testsupport::WriteFile(path, "old"));
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    uint32_t attributes = 0;
    ASSERT_TRUE(brelkin::getAttributes(path.c_str(), &attributes, nullptr, nullptr));
    EXPECT_EQ(attributes & platform::kFileAttributeReadOnly, platform::kFileAttributeReadOnly);

    BrelkinHandle handle;
    ASSERT_TRUE(brelkin::createForWriteInto(handle, path.c_str(), nullptr, nullptr));
    EXPECT_TRUE(handle.write("new", 3, 0, nullptr, nullptr));
    handle.close();
    EXPECT_EQ(testsupport::ReadFile(path), "new");
    EXPECT_NE(modeOf(path) & 0200, 0u);
}

TEST(FileOps, FileLockedByAnotherProcessIsTriedFourTimes) {
    testsupport::TempDir dir;
    const std::string path = dir.file("locked.txt");
    const std::string marker = dir.file("locked.marker");
    ASSERT_TRUE(testsupport::WriteFile(path, "content"));
    LockHolder holder(path, marker);
    ASSERT_EQ(access(marker.c_str(), F_OK), 0) << "the helper process did not take its lock";

    syscallspy::reset();
    uint32_t errorCode = 0;
    Logger log;
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(brelkin::openForRead(path.c_str(), &errorCode, &log), nullptr);
    auto elapsed = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(syscallspy::nonBlockingLocks(), 4u);
    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    EXPECT_EQ(errorCode, 3u);

    // A writer is refused without touching the content.
    EXPECT_EQ(brelkin::createForWrite(path.c_str(), &errorCode, nullptr), nullptr);
    EXPECT_EQ(errorCode, platform::kErrorSharingViolation);
    EXPECT_EQ(testsupport::ReadFile(path), "content");
}

// Three pieces: the count written adds up across them.
TEST(FileOps, WriteLongerThanOnePieceArrivesWhole) {
    testsupport::TempDir dir;
    const std::string data(2 * BrelkinHandle::kWritePiece + 5, 'x');
    BrelkinHandle* file = brelkin::createForWrite(dir.file("big").c_str(), nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    uint64_t written = 0;
    EXPECT_TRUE(file->write(data.data(), static_cast<uint32_t>(data.size()), 0, &written, nullptr));
    EXPECT_EQ(written, data.size());
    EXPECT_EQ(file->getSize64(nullptr), static_cast<int64_t>(data.size()));
    delete file;
}

TEST(FileOps, StreamHandleReadsToEnd) {
    std::FILE* stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    std::fputs("abc", stream);
    std::rewind(stream);
    BrelkinHandle handle;
    handle.adoptStream(stream);
    EXPECT_EQ(handle.getSize32(nullptr), 3u);
    char buffer[8];
    uint32_t got = 0;
    bool eof = false;
    EXPECT_TRUE(handle.read(buffer, sizeof buffer, &got, &eof, nullptr));
    EXPECT_EQ(got, 3u);
    EXPECT_TRUE(eof);
}

TEST(DataBufferLoadFile, KeepsFourZeroBytesBehindTheDataAndClearsOnFailure) {
    testsupport::TempDir dir;
    ASSERT_TRUE(testsupport::WriteFile(dir.file("a"), "abcdef"));
    ASSERT_TRUE(testsupport::WriteFile(dir.file("empty"), ""));
    brelkin::DataBuffer buffer;
    buffer.append("stale", 5);
    ASSERT_TRUE(buffer.loadFile(dir.file("a").c_str(), nullptr));
    ASSERT_EQ(buffer.getSize(), 6u);
    EXPECT_EQ(buffer.getCapacity(), 10u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getData()), 10),
              std::string("abcdef\0\0\0\0", 10));

    EXPECT_TRUE(buffer.loadFile(dir.file("empty").c_str(), nullptr));
    EXPECT_EQ(buffer.getSize(), 0u);
    buffer.append("stale", 5);
    Logger log;
    EXPECT_FALSE(buffer.loadFile(dir.file("missing").c_str(), &log));
    EXPECT_EQ(buffer.getSize(), 0u);
    EXPECT_FALSE(buffer.loadFile(nullptr, nullptr));
}
