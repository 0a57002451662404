// ThreadQueue.cpp - the worker's life: settings, client, archive copies, result lines
//
// See ThreadQueue.h
#include "service/ThreadQueue.h"

#include "foundation/SystemHelpers.h"
#include "platform/Clock.h"
#include "platform/DebugDir.h"
#include "service/QueueFiles.h"
#include "service/ResultLog.h"
#include "smtp/NvSmtp.h"

namespace {
constexpr uint32_t kPeriodMs = 1000;
// Long enough for a pass of ordinary size; a worker still busy after it is
// left alone rather than have its client deleted under it.
constexpr uint32_t kDestructorWaitMs = 30000;
}  // namespace

CThreadQueue::CThreadQueue()
    : CNvcThread("CThreadQueue", kPeriodMs),
      m_now(platform::CurrentUnixTime),
      m_tick(platform::GetTickCount) {
    ReadConfig();
    SetTraceFile(platform::DebugFile("trees.log").c_str());
}

CThreadQueue::~CThreadQueue() {
    // The base destructor joins the thread after this one has run, and the
    // thread's OnExit needs the members here: bring it down first.
    if (GetState() != STOPPED) {
        Stop(0);
        if (!WaitForState(STOPPED, kDestructorWaitMs)) return;
    }
    delete m_smtp;
    m_smtp = nullptr;
}

void CThreadQueue::SetClock(std::function<int64_t()> now, std::function<uint32_t()> tick) {
    m_now = std::move(now);
    m_tick = std::move(tick);
}

void CThreadQueue::ReadConfig() {
    ReadQueueSettings(m_config);
    ApplyQueueSettings(m_config, m_smtp, m_lastSeenPickupDir);
    m_lastConfigRead = m_now();
}

int CThreadQueue::OnInit() {
    m_smtp = new CNvSmtp();
    m_lastConfigRead = 0;
    return CNvcThread::OnInit();
}

int CThreadQueue::OnExit() {
    if (m_smtp != nullptr) {
        m_smtp->Quit();
        delete m_smtp;
        m_smtp = nullptr;
    }
    return CNvcThread::OnExit();
}

const char* CThreadQueue::ArchiveFile(const char* path, const char* directory) {
    m_archiveFailed = !ArchiveQueueFile(path, directory, m_archiveName);
    return m_archiveName.GetData();
}

void CThreadQueue::WriteResultLog(CNvcString subject, CNvcString to, CNvcString storedName,
                                  uint32_t elapsedMs, int32_t result, CNvcString lastResponse) {
    AppendResultLine(m_config.logDir, m_config.logSeparator, m_now(), std::move(subject),
                     std::move(to), std::move(storedName), elapsedMs, result,
                     std::move(lastResponse));
}
