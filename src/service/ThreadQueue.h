// ThreadQueue.h - the pickup worker: one pass over the pickup folder each second
//
// A CNvcThread with a period of 1000 ms. Each pass looks for "*.nvq" in the
// pickup folder and, one file at a time on the worker thread, loads it into a
// CNvMail, takes host, port, account, password and secure flag from the five
// control headers and drops them, delivers through the one CNvSmtp client,
// archives the file if the settings ask for it, deletes it and appends a
// result line. A loaded file gets exactly one attempt; a file that does not
// load stays and is tried at every pass. The settings are read in the
// constructor and again on the first pass after 30 seconds, each value
// written back.
//
// Input:       any file that matches; the stored text is never sent.
// Diagnostics: the conversation and the pass's head lines go to the client's
//              trace (the Trace\QueueServer path), the thread's own steps to
//              trees.log in the debug folder, outcomes to the result log.
// Known gaps:  a file whose archive copies both failed is not deleted but
//              renamed to ".held" in the pickup folder, with one trace line and
//              one event, so that a copy the settings ask for is never lost.
//              Stop and pause are taken only between passes.
// See also:    QueueConfig.h, ResultLog.h, QueueFiles.h, QueueControlHeaders.h, mail/NvMail.h,
//              smtp/NvSmtp.h
#pragma once

#include <cstdint>
#include <functional>

#include "foundation/NvcString.h"
#include "foundation/NvcThread.h"
#include "service/QueueConfig.h"

class CNvMail;
class CNvSmtp;

class CThreadQueue : public CNvcThread {
public:
    CThreadQueue();
    ~CThreadQueue() override;

    void ReadConfig();
    int OnInit() override;
    int OnExit() override;
    int OnTimer(int32_t argument) override;

    void ProcessFile(CNvMail& mail, const char* path);
    // The base name under which the file was stored, in storage of the
    // worker's own (good until the next call).
    const char* ArchiveFile(const char* path, const char* directory);
    void WriteResultLog(CNvcString subject, CNvcString to, CNvcString storedName,
                        uint32_t elapsedMs, int32_t result, CNvcString lastResponse);

    // Seconds since 1970 and the millisecond tick; tests put their own in.
    void SetClock(std::function<int64_t()> now, std::function<uint32_t()> tick);

    CNvSmtp* m_smtp = nullptr;
    QueueConfig m_config;
    int64_t m_lastConfigRead = 0;
    CNvcString m_lastSeenPickupDir;

private:
    void ProcessEntry(CNvMail& mail, const CNvcString& path);
    void HoldUnarchived(const CNvcString& path);

    CNvcString m_archiveName;
    bool m_archiveFailed = false;
    std::function<int64_t()> m_now;
    std::function<uint32_t()> m_tick;
};
