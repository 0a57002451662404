// QueueConfigTest.cpp - settings read with every value written back, the timeout floor,
// the pickup folder change in the client's trace, and the re-read interval
// (an unreadable settings file: tests/faults/test_settings.py)
#include "service/QueueConfig.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "foundation/NvcBase.h"
#include "platform/Registry.h"
#include "platform/RegistryTestEnv.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

const char kQueueKey[] = "Software\\Norvane\\Telmora\\QueueServer";

std::string StringValue(const char* key, const char* name) {
    platform::RegistryValue value;
    if (platform::QueryRegistryValue(platform::HKEY_LOCAL_MACHINE, key, name, value, false) != 0)
        return "<missing>";
    return value.data.c_str();
}

uint32_t DwordValue(const char* key, const char* name) {
    platform::RegistryValue value;
    uint32_t dword = 0xDEADBEEF;
    if (platform::QueryRegistryValue(platform::HKEY_LOCAL_MACHINE, key, name, value, false) == 0 &&
        value.type == platform::kRegDword && value.data.size() == 4)
        std::memcpy(&dword, value.data.data(), 4);  // little-endian hosts only
    return dword;
}

TEST(QueueConfig, AnEmptyRegistryGetsEveryValueWithItsDefault) {
    testsupport::ScratchRegistry registry;
    QueueConfig config;
    ReadQueueSettings(config);

    for (const char* name : {"PickupMailDir", "SentMailDir", "FailedMailDir", "LogDir"})
        EXPECT_EQ(StringValue(kQueueKey, name), "") << name;
    EXPECT_EQ(StringValue("Software\\Norvane\\Telmora\\Trace", "QueueServer"), "");
    EXPECT_EQ(StringValue(kQueueKey, "LogSeparator"), "|");
    for (const char* name : {"EnableLogging", "KeepSentMails", "KeepFailedMails"})
        EXPECT_EQ(DwordValue(kQueueKey, name), 1u) << name;
    EXPECT_EQ(DwordValue("Software\\Norvane\\Telmora", "ConnectTimeout"), 10000u);
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
        EXPECT_EQ(DwordValue("Software\\Norvane\\Telmora", "ConnectTimeout"), 1000u) << timeout;
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
