// QueueSvc.h - the service entry: dispatcher step, service main, control handler, wait loop
//
// Builds the pickup worker, starts its thread, reports to the service manager
// and, on a stop, brings the thread down in bounded time. It holds no mail
// logic. The process-wide words live in one QueueSvcState shared by the thread
// of the service main and the control thread; each word is written by one side
// and read by the other, so single atomic words need no lock. Clock, sleep and
// status report are members so that the time rules can be tested without
// waiting.
//
// The wait loop (KeepRunning, one cycle every 2 seconds): for 20 seconds after
// its first cycle, both ends included, a stop is not looked at; then the first
// cycle that sees it notes the time and asks the worker to stop once more; the
// loop ends when the worker is STOPPED or 11 seconds have gone since.
//
// Input:       the command line; exactly "/NvDebug" is debug mode.
// Diagnostics: the six events under the source "TelmoraQ" (see EventText);
//              nothing else is reported.
// Known gaps:  when the wait gives up with the worker still inside a delivery,
//              the service reports stopped and the process ends at once: the
//              worker is never deleted under its own thread, and the file in
//              delivery, not yet deleted, goes out again at the next start.
//              A stop that arrives before the worker exists is only recorded.
// See also:    ThreadQueue.h, platform/ServiceControl.h
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "foundation/NvcBase.h"
#include "platform/ServiceControl.h"

class CNvcThread;

constexpr uint32_t kEventHandlerNotRegistered = 0xC000012C;
constexpr uint32_t kEventPickupDirMissing = 0xC0000130;
constexpr uint32_t kEventThreadNotStarted = 0xC0000132;
constexpr uint32_t kEventServiceRunning = 0x40000064;
constexpr uint32_t kEventWaitLoopLeft = 0x40000065;
constexpr uint32_t kEventLogDirMissing = 0x40000066;

class CQueueSvc : public CNvcBase {
public:
    explicit CQueueSvc(void* instance);
    void* m_instance;
};

struct QueueSvcState {
    std::atomic<int32_t> serviceMode{1};
    std::atomic<uint32_t> currentState{platform::kServiceStopped};
    std::atomic<platform::ServiceStatusHandle> statusHandle{nullptr};
    // Owned; the handler and the wait loop need only its thread interface.
    std::atomic<CNvcThread*> worker{nullptr};
    std::atomic<int32_t> stopRequested{0};
    int64_t stopWaitStart = 0;
    int64_t firstBeat = 0;

    std::function<int64_t()> now;
    std::function<void(uint32_t)> sleep;
    std::function<bool(platform::ServiceStatusHandle, const platform::ServiceStatus&)> setStatus;
    // What ends the process when the wait gives up on a busy worker.
    std::function<void()> abandonProcess;

    QueueSvcState();
};

// The process's one state.
QueueSvcState& TheQueueSvcState();

// The text of one of the six events ("" for another id).
const char* EventText(uint32_t eventId);

// Writes one of the six events with its text.
void ReportQueueSvcEvent(uint32_t eventId);

// Fills the status and sends it; 0 and the state recorded, or -1 and nothing changed.
int ReportStatus(QueueSvcState& state, platform::ServiceStatusHandle handle, uint32_t currentState,
                 uint32_t exitCode, uint32_t checkpoint);

// Acts on one control code.
void ControlHandler(QueueSvcState& state, uint32_t control);

// One cycle of the wait loop; false when the service main is to go on to its end.
bool KeepRunning(QueueSvcState& state);

// The service main: start, wait loop, stop.
void ServiceMain(QueueSvcState& state);

// Runs the service main under the dispatcher, or directly in debug mode.
void RunDispatcher(QueueSvcState& state);

// The whole program: `commandLine` is the arguments joined by single blanks.
int QueueSvcEntry(void* instance, const char* commandLine);
