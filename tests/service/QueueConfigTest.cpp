// QueueConfigTest.cpp - settings read with every value written back, the timeout floor,
// the pickup folder change in the client's trace, and the re-read interval
// (an unreadable settings file: tests/faults/test_settings.py)
#include "service/QueueConfig.h"

#include <gtest/gtest.h>

#include <string>

#include "foundation/NvcBase.h"
#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

// Every value written back with its default, in the order of reading (the
// administrator's order in the file).
TEST(QueueConfig, AnEmptyRegistryGetsEveryValueWithItsDefault) {
    testsupport::ScratchRegistry registry;
    QueueConfig config;
    ReadQueueSettings(config);
    EXPECT_EQ(ReadFile(registry.path()),
              "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora]\n"
              "\"ConnectTimeout\"=dword:00002710\n\n"
              "[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\Trace]\n\"QueueServer\"=\"\"\n\n"
              "[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\n"
              "\"PickupMailDir\"=\"\"\n\"SentMailDir\"=\"\"\n\"FailedMailDir\"=\"\"\n"
              "\"EnableLogging\"=dword:00000001\n\"LogDir\"=\"\"\n\"LogSeparator\"=\"|\"\n"
              "\"KeepSentMails\"=dword:00000001\n\"KeepFailedMails\"=dword:00000001\n");
}

TEST(QueueConfig, SetValuesAreKeptAndTheTimeoutIsRaisedToItsFloorSignedCompare) {
    testsupport::ScratchRegistry registry;
    for (const char* timeout : {"000001f4", "ffffffff"}) {
        ASSERT_TRUE(WriteFile(registry.path(),
                              std::string("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora]\r\n"
                                          "\"ConnectTimeout\"=dword:") +
                                  timeout +
                                  "\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\r\n"
                                  "\"PickupMailDir\"=\"/q/in\"\r\n\"KeepSentMails\"=dword:00000000\r\n"
                                  "\"LogSeparator\"=\";;\"\r\n"));
        QueueConfig config;
        ReadQueueSettings(config);
        EXPECT_EQ(config.connectTimeout, 1000) << timeout;
        EXPECT_NE(ReadFile(registry.path()).find("\"ConnectTimeout\"=dword:000003e8\r\n"), std::string::npos);
        EXPECT_EQ(std::string(config.pickupDir.GetData()) + config.logSeparator.GetData(), "/q/in;;");
        EXPECT_EQ(config.keepSent, 0);
    }
}

// Traced once per change, and the first pass's line not lost to the read
// before the worker's client exists: tests/faults (test_settings.py
// PickupChange, and every fault test waiting for the line).
TEST(QueueConfig, APickupFolderChangeIsTracedWithACaseSensitiveCompare) {
    testsupport::TempDir dir;
    CNvcBase client("client");
    QueueConfig config;
    config.traceFile = dir.file("trace.log").c_str();
    CNvcString lastSeen;
    for (const char* pickup : {"/q/in", "/q/IN"}) {
        config.pickupDir = pickup;
        ApplyQueueSettings(config, &client, lastSeen);
    }
    const std::string trace = ReadFile(dir.file("trace.log"));
    EXPECT_NE(trace.find("Mail pickup directory changed: /q/in\n"), std::string::npos) << trace;
    EXPECT_NE(trace.find("Mail pickup directory changed: /q/IN\n"), std::string::npos) << trace;
}

TEST(QueueConfig, SettingsAreReadAgainOnlyAfterMoreThanThirtySeconds) {
    EXPECT_FALSE(ConfigReadDue(1030, 1000));
    EXPECT_TRUE(ConfigReadDue(1031, 1000));
    EXPECT_TRUE(ConfigReadDue(1773500966, 0)) << "a last read of 0 forces a read";
}

}  // namespace
