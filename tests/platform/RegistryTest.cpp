// RegistryTest.cpp - the registry file: reading, key rules, atomic locked writes
#include "platform/Registry.h"

#include "platform/SystemError.h"
#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"
#include "support/TinyFileSystem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace platform;
using namespace testsupport;

namespace {

const char kSample[] =
    "REGEDIT4\r\n"
    "\r\n"
    "[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\r\n"
    "\"PickupDir\"=\"C:\\\\Queue \\\"A\\\"\"\r\n"
    "\"Interval\"=dword:0000000a\r\n"
    "\"Broken\"=hex:01,02\r\n"
    "\r\n"
    "[HKEY_CLASSES_ROOT\\MIME\\Database\\CodePage\\1252]\r\n"
    "\"BodyCharset\"=\"iso-8859-1\"\r\n";

std::string Text(const RegistryValue& value) {
    return value.data.empty() ? "" : std::string(value.data.c_str());
}

}  // namespace

TEST(Registry, ReadsValuesWithTheirTypesAndKeyRules) {
    ScratchRegistry reg;
    ASSERT_TRUE(WriteFile(reg.path(), kSample));
    const char* server = "Software\\Norvane\\Telmora\\QueueServer";
    const std::string pickup("C:\\Queue \"A\"\0", 13);
    struct Case {
        const char* name;
        RegistryHive hive;
        const char* key;
        const char* value;
        uint32_t wantResult;
        uint32_t wantType;
        std::string wantData;
    } cases[] = {
        {"string with escapes", HKEY_LOCAL_MACHINE, server, "PickupDir", 0, kRegSz, pickup},
        {"dword", HKEY_LOCAL_MACHINE, server, "Interval", 0, kRegDword, std::string("\x0a\0\0\0", 4)},
        {"names without case, trailing backslash", HKEY_LOCAL_MACHINE,
         "SOFTWARE\\norvane\\TELMORA\\queueserver\\", "pickupdir", 0, kRegSz, pickup},
        {"other hive", HKEY_CLASSES_ROOT, "MIME\\Database\\CodePage\\1252", "BodyCharset", 0,
         kRegSz, std::string("iso-8859-1\0", 11)},
        {"hive is part of the key", HKEY_CLASSES_ROOT, server, "PickupDir", 2, 0, ""},
        {"unreadable line is no value", HKEY_LOCAL_MACHINE, server, "Broken", 2, 0, ""},
        {"missing value", HKEY_LOCAL_MACHINE, server, "Nope", 2, 0, ""},
        {"missing key", HKEY_LOCAL_MACHINE, "Software\\Nobody", "PickupDir", 2, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        RegistryValue value;
        EXPECT_EQ(c.wantResult, QueryRegistryValue(c.hive, c.key, c.value, value, true));
        if (c.wantResult != 0) continue;
        EXPECT_EQ(c.wantType, value.type);
        EXPECT_EQ(c.wantData, value.data);
    }
}

TEST(Registry, AKeyExistsThroughItsSectionOrOneBelowIt) {
    ScratchRegistry reg;
    ASSERT_TRUE(WriteFile(reg.path(), kSample));
    EXPECT_EQ(0u, ProbeRegistryKey(HKEY_LOCAL_MACHINE, "Software\\Norvane", true));
    EXPECT_EQ(0u, ProbeRegistryKey(HKEY_LOCAL_MACHINE, "software\\norvane\\telmora\\", true));
    EXPECT_EQ(2u, ProbeRegistryKey(HKEY_LOCAL_MACHINE, "Software\\Norv", true));  // no prefix match
    EXPECT_EQ(2u, ProbeRegistryKey(HKEY_CLASSES_ROOT, "Software\\Norvane", true));
    EXPECT_EQ(0u, ProbeRegistryKey(HKEY_CLASSES_ROOT, "", true)) << "a hive's root";
}

TEST(Registry, CreateAndSetWriteAFileThatReadsBack) {
    ScratchRegistry reg;
    const char* key = "Software\\Norvane\\Telmora\\Trace";
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, key, true));
    ASSERT_EQ(0u, SetRegistryString(HKEY_LOCAL_MACHINE, key, "QueueServer", "c:\\a \"b\"", true));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, key, "Level", 0xDEADBEEF, true));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, key, "level", 7, true));  // same value
    EXPECT_EQ(
        "REGEDIT4\n"
        "\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\Trace]\n"
        "\"QueueServer\"=\"c:\\\\a \\\"b\\\"\"\n"
        "\"Level\"=dword:00000007\n",
        ReadFile(reg.path()));
    RegistryValue value;
    ASSERT_EQ(0u, QueryRegistryValue(HKEY_LOCAL_MACHINE, key, "QueueServer", value, true));
    EXPECT_EQ("c:\\a \"b\"", Text(value));

    // Writing back what is there already leaves the file alone (a rewrite is a
    // rename, which gives the file a new inode).
    struct stat before {}, after {};
    ASSERT_EQ(0, ::stat(reg.path().c_str(), &before));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, key, "Level", 7, true));
    ASSERT_EQ(0, ::stat(reg.path().c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST(Registry, RewriteKeepsUnreadableLinesAndLineEnds) {
    ScratchRegistry reg;
    ASSERT_TRUE(WriteFile(reg.path(), kSample));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_CLASSES_ROOT, "MIME\\Database\\CodePage\\1252", "Family",
                                   1252, true));
    const std::string text = ReadFile(reg.path());
    EXPECT_NE(std::string::npos, text.find("\"Broken\"=hex:01,02\r\n"));
    EXPECT_NE(std::string::npos, text.find("\"Family\"=dword:000004e4\r\n"));
    EXPECT_NE(std::string::npos, text.find("\"PickupDir\"=\"C:\\\\Queue \\\"A\\\"\"\r\n"));
}

TEST(Registry, UnparsableFileIsReadAsEmptyAndNeverRewritten) {
    ScratchRegistry reg;
    const std::string garbage = "[HKEY_LOCAL_MACHINE\\Software]\n\"a\"=\"b\"\n";  // no header line
    ASSERT_TRUE(WriteFile(reg.path(), garbage));
    RegistryValue value;
    EXPECT_EQ(2u, QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software", "a", value, true));
    EXPECT_EQ(kErrorBadDatabase, CreateRegistryKey(HKEY_LOCAL_MACHINE, "Software\\B", true));
    EXPECT_EQ(garbage, ReadFile(reg.path()));
}

// Empty, or ending inside a line: someone may be writing the file in place,
// and a rewrite by rename would send the rest of their text to the old file.
TEST(Registry, AFileThatMayStillBeWrittenIsReadButNeverRewritten) {
    ScratchRegistry reg;
    const std::string cut = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\A]\n\"a\"=\"b\"\n\"c\"=dwo";
    for (const std::string& text : {std::string(), cut}) {
        ASSERT_TRUE(WriteFile(reg.path(), text));
        EXPECT_EQ(kErrorBadDatabase, SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", 1, true));
        EXPECT_EQ(text, ReadFile(reg.path()));
    }
    RegistryValue value;
    EXPECT_EQ(0u, QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", "a", value, true));
    ASSERT_TRUE(WriteFile(reg.path(), cut + "rd:00000001\n"));
    EXPECT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", 1, true));
}

// A read that finds the file truncated by an in-place save looks again
// rather than taking the defaults that the write-back would then make stay.
// It looks for 50 ms at least, so a save done within 40 ms of the start must
// be seen; a round whose saver was later (a busy machine) is run again.
TEST(Registry, AReadBetweenTruncationAndWriteWaitsForTheText) {
    ScratchRegistry reg;
    const std::string whole = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\A]\n\"a\"=\"b\"\n";
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(WriteFile(reg.path(), ""));
        const auto start = std::chrono::steady_clock::now();
        std::chrono::steady_clock::duration saved{};
        std::thread saver([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            WriteFile(reg.path(), whole);
            saved = std::chrono::steady_clock::now() - start;
        });
        RegistryValue value;
        const uint32_t result =
            QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", "a", value, true);
        saver.join();
        if (saved > std::chrono::milliseconds(40)) continue;
        EXPECT_EQ(0u, result);
        return;
    }
    GTEST_SKIP() << "the saver was never on time on this busy machine";
}

TEST(Registry, RefusesTextsThatCannotStayOnOneLine) {
    ScratchRegistry reg;
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, "Software\\A", true));
    EXPECT_EQ(87u, SetRegistryString(HKEY_LOCAL_MACHINE, "Software\\A", "x", "one\ntwo", true));
    EXPECT_EQ(87u, SetRegistryString(HKEY_LOCAL_MACHINE, "Software\\A", "x\r", "y", true));
    EXPECT_EQ(87u, CreateRegistryKey(HKEY_LOCAL_MACHINE, "Software\\]", true));
}

// Separate processes share no mutex: only the file lock and the check that
// the locked file is still the one the path names keep their updates apart.
TEST(Registry, WritersInSeparateProcessesLoseNoUpdate) {
    ScratchRegistry reg;
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, "Software\\A", true));
    constexpr int kWriters = 4, kEach = 25;
    std::vector<pid_t> children;
    for (int t = 0; t < kWriters; ++t) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int failures = 0;
            for (int i = 0; i < kEach; ++i)
                failures += SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A",
                                             "v" + std::to_string(t) + "_" + std::to_string(i),
                                             static_cast<uint32_t>(i), true) != 0;
            ::_exit(failures == 0 ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int t = 0; t < kWriters; ++t)
        for (int i = 0; i < kEach; ++i) {
            RegistryValue value;
            const std::string name = "v" + std::to_string(t) + "_" + std::to_string(i);
            EXPECT_EQ(0u, QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", name, value, true))
                << name << " lost";
        }
}

// A process that keeps the lock must not stop the writer for good: the write
// gives up after a bounded wait, the next one at once, and reads go on.
TEST(Registry, ALockKeptByAnotherProcessBoundsTheWriteAndLeavesReads) {
    ScratchRegistry reg;
    ASSERT_EQ(0u, CreateRegistryKey(HKEY_LOCAL_MACHINE, "Software\\A", true));
    ASSERT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", 1, true));
    const std::string before = ReadFile(reg.path());
    const int holder = ::open(reg.path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    ASSERT_EQ(0, ::flock(holder, LOCK_EX));  // its own open file: conflicts like another process

    auto timed = [](uint32_t number, uint32_t& error) {
        const auto start = std::chrono::steady_clock::now();
        error = SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", number, true);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    uint32_t error = 0;
    const double first = timed(2, error);
    EXPECT_EQ(33u, error);
    EXPECT_GE(first, 2.5) << "gave up before a slow writer could have finished";
    EXPECT_LT(first, 30.0);
    const double second = timed(3, error);
    EXPECT_EQ(33u, error);
    EXPECT_LT(second, 2.0) << "a lock that stayed kept is waited for again";
    EXPECT_EQ(before, ReadFile(reg.path()));
    RegistryValue value;
    EXPECT_EQ(0u, QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", "n", value, true));

    ::close(holder);
    EXPECT_EQ(0u, SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", 4, true));
    ASSERT_EQ(0u, QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", "n", value, true));
    EXPECT_EQ(std::string("\x04\0\0\0", 4), value.data);
}

// A full disk during a rewrite: the old file must stay whole and readable.
TEST(Registry, FullDiskLeavesTheOldFileWhole) {
    ScratchRegistry reg;
    const std::string tiny = reg.dir().file("tiny");
    std::filesystem::create_directory(tiny);
    const std::string path = tiny + "/registry.reg";
    std::string big = "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\A]\n";
    for (int i = 0; big.size() < 40000; ++i)
        big += "\"v" + std::to_string(i) + "\"=\"" + std::string(60, 'x') + "\"\n";
    const int result = testsupport::OnTinyFileSystem(tiny, [&] {
        ::setenv("TELMORAQ_REGISTRY", path.c_str(), 1);
        if (!WriteFile(path, big)) return false;
        const uint32_t error = SetRegistryDword(HKEY_LOCAL_MACHINE, "Software\\A", "n", 1, true);
        RegistryValue value;
        const bool intact = ReadFile(path) == big &&
                            QueryRegistryValue(HKEY_LOCAL_MACHINE, "Software\\A", "v0", value, true) == 0;
        std::error_code ec;
        const auto entries = std::distance(std::filesystem::directory_iterator(tiny, ec),
                                           std::filesystem::directory_iterator());
        return error == kErrorDiskFull && intact && entries == 1;
    });
    if (result == 77) GTEST_SKIP() << "no user namespaces here: disk-full case skipped";
    EXPECT_EQ(0, result) << "old file damaged, wrong error or a temporary file left";
}
