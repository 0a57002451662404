// QueueSvc.cpp - status reports, the control handler and the wait loop
//
// See QueueSvc.h
#include "service/QueueSvc.h"

#include "foundation/NvcThread.h"
#include "foundation/SystemHelpers.h"
#include "platform/Clock.h"

namespace {

constexpr const char* kEventSource = "TelmoraQ";
constexpr uint32_t kServiceWin32OwnProcess = 16;
constexpr uint32_t kAcceptStopAndShutdown = 5;
constexpr uint32_t kServiceSpecificError = 1066;
constexpr uint32_t kWaitHintMs = 10000;

constexpr uint32_t kCycleMs = 2000;
constexpr int64_t kGraceSeconds = 20;
constexpr int64_t kStopWaitSeconds = 10;

struct EventRow {
    uint32_t id;
    const char* text;
};

// The message table of the event source: the entries carry no insertion
// strings, so these texts are all an administrator reads.
constexpr EventRow kEventTexts[] = {
    {kEventHandlerNotRegistered,
     "The service could not register its control handler and did not start."},
    {kEventPickupDirMissing,
     "The pickup directory (QueueServer\\PickupMailDir) is empty or not an existing "
     "directory; the service did not start."},
    {kEventThreadNotStarted, "The pickup worker thread could not be started; the service did not start."},
    {kEventServiceRunning, "The service is running and watches the pickup directory."},
    {kEventWaitLoopLeft, "The service has left its wait loop and is stopping."},
    {kEventLogDirMissing,
     "Result logging is on, but the log directory (QueueServer\\LogDir) is empty or not an "
     "existing directory; the service did not start."},
};

}  // namespace

CQueueSvc::CQueueSvc(void* instance) : CNvcBase("CQueueSvc"), m_instance(instance) {}

QueueSvcState::QueueSvcState()
    : now(platform::CurrentUnixTime),
      sleep(platform::Sleep),
      setStatus(platform::SetServiceStatus),
      abandonProcess([] { platform::ExitProcessNow(0); }) {}

QueueSvcState& TheQueueSvcState() {
    static QueueSvcState* state = new QueueSvcState();  // the control thread may outlive main
    return *state;
}

const char* EventText(uint32_t eventId) {
    for (const EventRow& row : kEventTexts)
        if (row.id == eventId) return row.text;
    return "";
}

void ReportQueueSvcEvent(uint32_t eventId) {
    ReportServiceEvent(kEventSource, eventId, "s", EventText(eventId));
}

int ReportStatus(QueueSvcState& state, platform::ServiceStatusHandle handle, uint32_t currentState,
                 uint32_t exitCode, uint32_t checkpoint) {
    platform::ServiceStatus status;
    status.serviceType = kServiceWin32OwnProcess;
    status.currentState = currentState;
    status.controlsAccepted = kAcceptStopAndShutdown;
    status.win32ExitCode = exitCode != 0 ? kServiceSpecificError : 0;
    status.serviceSpecificExitCode = exitCode;
    status.checkPoint = checkpoint;
    status.waitHint = kWaitHintMs;
    if (!state.setStatus(handle, status)) return -1;
    state.currentState = currentState;
    return 0;
}

void ControlHandler(QueueSvcState& state, uint32_t control) {
    const platform::ServiceStatusHandle handle = state.statusHandle;
    switch (control) {
        case platform::kServiceControlStop: {
            CNvcThread* worker = state.worker;
            // Before the worker exists there is no one to tell; the wait loop
            // passes the request on once it runs.
            if (worker != nullptr) {
                ReportStatus(state, handle, platform::kServiceStopPending, 0, 1);
                worker->Stop(0);
            }
            state.stopRequested = 1;
            break;
        }
        case platform::kServiceControlPause:
            ReportStatus(state, handle, platform::kServicePausePending, 0, 1);
            ReportStatus(state, handle, platform::kServicePaused, 0, 0);
            break;
        case platform::kServiceControlContinue:
            ReportStatus(state, handle, platform::kServiceContinuePending, 0, 1);
            ReportStatus(state, handle, platform::kServiceRunning, 0, 0);
            break;
        case platform::kServiceControlInterrogate:
            ReportStatus(state, handle, state.currentState, 0, 0);
            break;
        case platform::kServiceControlShutdown:
            // The system's shutdown ends the process; a file in delivery goes again.
            platform::MessageBeep(0);
            break;
        default:
            break;
    }
}

bool KeepRunning(QueueSvcState& state) {
    state.sleep(kCycleMs);
    if (state.firstBeat == 0) state.firstBeat = state.now();
    const int64_t now = state.now();
    // A clock set back before the first beat ends the grace early, on purpose.
    if (now >= state.firstBeat && now <= state.firstBeat + kGraceSeconds) return true;
    if (state.stopRequested == 0) return true;
    CNvcThread* worker = state.worker;
    if (state.stopWaitStart == 0) {
        state.stopWaitStart = now;
        // Does the work when the handler's post found no message queue yet,
        // or when the stop came before the worker existed.
        if (worker != nullptr) worker->Stop(0);
        return true;
    }
    if (worker == nullptr || worker->GetState() == CNvcThread::STOPPED) return false;
    return now - state.stopWaitStart <= kStopWaitSeconds;
}
