// QueueConfig.h - the worker's settings in the registry, read with every value written back
//
// The settings live under HKEY_LOCAL_MACHINE\Software\Norvane\Telmora\ and its
// QueueServer and Trace keys. Each read takes every value in a fixed order,
// falls back to its default on any failure and writes the value straight back,
// so that an administrator finds every setting in the registry after the first
// start. Only ConnectTimeout is validated: below 1000 (signed) it becomes 1000.
//
// Input:       whatever the registry file holds; a corrupt file reads as empty.
// Diagnostics: none; failed writes back are not reported.
// See also:    ThreadQueue.h, foundation/SystemHelpers.h
#pragma once

#include <cstdint>

#include "foundation/NvcString.h"

class CNvcBase;

struct QueueConfig {
    CNvcString pickupDir;
    CNvcString sentDir;
    CNvcString failedDir;
    CNvcString traceFile;  // the SMTP client's trace; empty means none
    int32_t enableLogging = 1;
    CNvcString logDir;
    CNvcString logSeparator = "|";
    int32_t keepSent = 1;
    int32_t keepFailed = 1;
    int32_t connectTimeout = 10000;
};

// Reads every setting into `config` and writes each one back.
void ReadQueueSettings(QueueConfig& config);

// The rest of a configuration read, once the values are in: the client (when
// there is one) gets its trace file, and a pickup folder that differs from
// `lastSeenPickup` is written to the client's trace once.
void ApplyQueueSettings(const QueueConfig& config, CNvcBase* client, CNvcString& lastSeenPickup);

// True when the settings are due for another read: more than 30 seconds
// after the last one (31 and up).
bool ConfigReadDue(int64_t now, int64_t lastRead);
