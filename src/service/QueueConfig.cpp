// QueueConfig.cpp - registry settings of the worker
//
// See QueueConfig.h
#include "service/QueueConfig.h"

#include "foundation/NvcBase.h"
#include "foundation/SystemHelpers.h"

namespace {

constexpr const char* kRootKey = "Software\\Norvane\\Telmora\\";
constexpr const char* kTraceKey = "Software\\Norvane\\Telmora\\Trace";
constexpr const char* kQueueKey = "Software\\Norvane\\Telmora\\QueueServer";

constexpr int32_t kConnectTimeoutFloor = 1000;
constexpr int64_t kConfigReadInterval = 30;

void SyncString(const char* key, const char* name, const char* def, CNvcString& member) {
    ReadRegistryString(HKEY_LOCAL_MACHINE, key, name, def, member, 0);
    WriteRegistryString(HKEY_LOCAL_MACHINE, key, name, member.GetData(), 0);
}

void SyncDword(const char* key, const char* name, uint32_t def, int32_t& member) {
    member = static_cast<int32_t>(ReadRegistryDword(HKEY_LOCAL_MACHINE, key, name, def, 0));
    WriteRegistryDword(HKEY_LOCAL_MACHINE, key, name, static_cast<uint32_t>(member), 0);
}

}  // namespace

void ReadQueueSettings(QueueConfig& config) {
    EnsureRegistryKey(HKEY_LOCAL_MACHINE, kRootKey, 0);
    EnsureRegistryKey(HKEY_LOCAL_MACHINE, kTraceKey, 0);
    EnsureRegistryKey(HKEY_LOCAL_MACHINE, kQueueKey, 0);

    // The order of reading is the administrator's order in the file; keep it.
    SyncString(kQueueKey, "PickupMailDir", "", config.pickupDir);
    SyncString(kQueueKey, "SentMailDir", "", config.sentDir);
    SyncString(kQueueKey, "FailedMailDir", "", config.failedDir);
    SyncString(kTraceKey, "QueueServer", "", config.traceFile);
    SyncDword(kQueueKey, "EnableLogging", 1, config.enableLogging);
    SyncString(kQueueKey, "LogDir", "", config.logDir);
    SyncString(kQueueKey, "LogSeparator", "|", config.logSeparator);
    SyncDword(kQueueKey, "KeepSentMails", 1, config.keepSent);
    SyncDword(kQueueKey, "KeepFailedMails", 1, config.keepFailed);

    config.connectTimeout =
        static_cast<int32_t>(ReadRegistryDword(HKEY_LOCAL_MACHINE, kRootKey, "ConnectTimeout", 10000, 0));
    if (config.connectTimeout < kConnectTimeoutFloor) config.connectTimeout = kConnectTimeoutFloor;
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kRootKey, "ConnectTimeout",
                       static_cast<uint32_t>(config.connectTimeout), 0);
}

void ApplyQueueSettings(const QueueConfig& config, CNvcBase* client, CNvcString& lastSeenPickup) {
    if (client == nullptr) return;
    client->SetTraceFile(config.traceFile.GetData());
    if (config.pickupDir.NotEquals(lastSeenPickup.GetData())) {
        Log(client, 3, "Mail pickup directory changed: %s", config.pickupDir.GetData());
        lastSeenPickup = config.pickupDir;
    }
}

bool ConfigReadDue(int64_t now, int64_t lastRead) { return now - lastRead > kConfigReadInterval; }
