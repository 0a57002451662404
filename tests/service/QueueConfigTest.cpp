// QueueConfigTest.cpp - settings read with every value written back, the timeout floor,
// the pickup folder change in the client's trace, and the re-read interval
#include "service/QueueConfig.h"

#include <gtest/gtest.h>

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
    if (platform::QueryRegistryValue(platform::HKEY_LOCAL_MACHINE, key, name, value, false) != 0 ||
        value.type != platform::kRegDword || value.data.size() != 4)
        return 0xDEADBEEF;
    return static_cast<uint8_t>(value.data[0]) | static_cast<uint8_t>(value.data[1]) << 8 |
           static_cast<uint8_t>(value.data[2]) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(value.data[3])) << 24;
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
    EXPECT_STREQ(config.logSeparator.GetData(), "|");
    EXPECT_EQ(config.keepFailed, 1);
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
        EXPECT_STREQ(config.pickupDir.GetData(), "/q/in");
        EXPECT_EQ(config.keepSent, 0);
        EXPECT_STREQ(config.logSeparator.GetData(), ";;");
        EXPECT_EQ(StringValue(kQueueKey, "PickupMailDir"), "/q/in");
    }
}

TEST(QueueConfig, ACorruptRegistryFileReadsAsDefaultsAndIsLeftAlone) {
    testsupport::ScratchRegistry registry;
    const std::string garbage = "not a registry\n\"PickupMailDir\"=\"/x\"\n";
    ASSERT_TRUE(WriteFile(registry.path(), garbage));
    QueueConfig config;
    ReadQueueSettings(config);
    EXPECT_STREQ(config.pickupDir.GetData(), "");
    EXPECT_EQ(config.connectTimeout, 10000);
    EXPECT_EQ(ReadFile(registry.path()), garbage);
}

TEST(QueueConfig, APickupFolderChangeIsTracedOnceAndOnlyWithAClient) {
    testsupport::TempDir dir;
    CNvcBase client("client");
    client.SetTraceFile(dir.file("trace.log").c_str());
    QueueConfig config;
    config.pickupDir = "/q/in";
    config.traceFile = dir.file("trace.log").c_str();
    CNvcString lastSeen;

    ApplyQueueSettings(config, nullptr, lastSeen);
    EXPECT_STREQ(lastSeen.GetData(), "") << "without a client nothing is noted";
    ApplyQueueSettings(config, &client, lastSeen);
    ApplyQueueSettings(config, &client, lastSeen);
    config.pickupDir = "/q/IN";
    ApplyQueueSettings(config, &client, lastSeen);

    const std::string trace = ReadFile(dir.file("trace.log"));
    EXPECT_NE(trace.find("Mail pickup directory changed: /q/in\n"), std::string::npos) << trace;
    EXPECT_EQ(trace.find("changed: /q/in", trace.find("changed: /q/in") + 1), std::string::npos)
        << "traced once: " << trace;
    EXPECT_NE(trace.find("Mail pickup directory changed: /q/IN"), std::string::npos)
        << "the compare is case-sensitive";
}

TEST(QueueConfig, SettingsAreReadAgainOnlyAfterMoreThanThirtySeconds) {
    EXPECT_FALSE(ConfigReadDue(1030, 1000));
    EXPECT_TRUE(ConfigReadDue(1031, 1000));
    EXPECT_TRUE(ConfigReadDue(1773500966, 0)) << "a last read of 0 forces a read";
}

}  // namespace
