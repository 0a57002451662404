// ThreadQueuePass.cpp - one pass over the pickup folder, and the delivery of one file
//
// See ThreadQueue.h
#include <memory>
#include <string>

#include "foundation/SystemHelpers.h"
#include "mail/NvMail.h"
#include "platform/Files.h"
#include "service/QueueControlHeaders.h"
#include "service/QueueFiles.h"
#include "service/ThreadQueue.h"
#include "smtp/NvSmtp.h"

namespace {

constexpr const char* kEventSource = "TelmoraQ";
constexpr const char* kPickupLockName = ".telmoraq.lock";
constexpr uint32_t kEventFileHeld = 0x80000067;

const std::string kRuler(118, '-');

CNvcString& JoinPath(const CNvcString& folder, const char* name, CNvcString& out) {
    out = folder;
    return out.AppendIfMissing('/').Append(name);
}

}  // namespace

int CThreadQueue::OnTimer(int32_t argument) {
    auto mail = std::make_unique<CNvMail>("CNvMail");
    if (ConfigReadDue(m_now(), m_lastConfigRead)) ReadConfig();
    if (m_smtp == nullptr) return CNvcThread::OnTimer(argument);
    if (!IsInitialised()) {
        Log(this, 1, "Thread not initialized yet.\n");
        return CNvcThread::OnTimer(argument);
    }

    // A second instance on the same folder sits its passes out rather than
    // delivering, archiving or deleting the files the first one is working on.
    CNvcString lockPath;
    platform::FileLock passLock(JoinPath(m_config.pickupDir, kPickupLockName, lockPath).GetData());
    if (passLock.Busy()) return CNvcThread::OnTimer(argument);

    CNvcString mask;
    platform::DirectorySearch search(JoinPath(m_config.pickupDir, "*.nvq", mask).GetData());
    platform::DirectoryEntry entry;
    while (search.Next(entry)) {
        CNvcString path;
        JoinPath(m_config.pickupDir, entry.name.c_str(), path);
        ProcessEntry(*mail, path);
    }
    return CNvcThread::OnTimer(argument);
}

void CThreadQueue::ProcessEntry(CNvMail& mail, const CNvcString& path) {
    Log(m_smtp, 3, "%s", kRuler.c_str());
    Log(m_smtp, 3, "Processing file %s...", path.GetData());
    Log(m_smtp, 3, "%s", kRuler.c_str());
    if (mail.LoadFromFile(path.GetData()) != 0) return;

    m_archiveFailed = false;
    ProcessFile(mail, path.GetData());
    if (m_archiveFailed)
        HoldUnarchived(path);
    else
        platform::DeleteFile(path.GetData());

    // Written for every loaded file, failed deliveries too: the real outcome
    // is in the result log and the conversation above.
    Log(m_smtp, 3, "%s", kRuler.c_str());
    Log(m_smtp, 3, "File processed, result = Success.");
    Log(m_smtp, 3, "%s", kRuler.c_str());
}

void CThreadQueue::ProcessFile(CNvMail& mail, const char* path) {
    const uint32_t started = m_tick();

    QueueControlHeaders control;
    control.TakeFrom(mail);
    m_smtp->SetHost(control.host.GetData());
    m_smtp->m_port = control.port;
    m_smtp->m_account = control.account;
    m_smtp->m_password = control.password;
    m_smtp->m_secure = control.secure;

    int32_t result = m_smtp->Connect();
    if (result == 0) result = m_smtp->SendMail(mail);
    m_smtp->Quit();

    CNvcString storedName;
    if (result == 0 && m_config.keepSent != 0)
        storedName = ArchiveFile(path, m_config.sentDir.GetData());
    else if (result != 0 && m_config.keepFailed != 0)
        storedName = ArchiveFile(path, m_config.failedDir.GetData());

    if (m_config.enableLogging != 0) {
        const CNvcString lastResponse = m_smtp->m_lastResponse;
        const uint32_t elapsed = m_tick() - started;
        CNvcString to, subject;
        mail.GetHeader("To", to);
        mail.GetHeader("Subject", subject);
        WriteResultLog(subject, to, storedName, elapsed, result, lastResponse);
    }
}

// The settings asked for a copy and none could be made: deleting the source
// would lose the message, so it leaves the queue under a name that no pass
// takes, for the administrator.
void CThreadQueue::HoldUnarchived(const CNvcString& path) {
    CNvcString held;
    if (HoldQueueFile(path.GetData(), held)) {
        Log(m_smtp, 3, "Archive copy failed, file kept as %s.", held.GetData());
        ReportServiceEvent(kEventSource, kEventFileHeld, "s",
                           (std::string("A queue file could not be archived and was kept as ") +
                            held.GetData())
                               .c_str());
        return;
    }
    Log(m_smtp, 3, "Archive copy failed, file left in the queue: %s.", path.GetData());
    ReportServiceEvent(kEventSource, kEventFileHeld, "s",
                       (std::string("A queue file could not be archived nor set aside: ") +
                        path.GetData())
                           .c_str());
}
