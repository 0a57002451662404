// QueueSvcEntry.cpp - the program's entry, the dispatcher step and the service main
//
// See QueueSvc.h
#include <cstring>

#include "foundation/NvcThread.h"
#include "foundation/SystemHelpers.h"
#include "platform/ServiceControl.h"
#include "service/QueueSvc.h"
#include "service/ThreadQueue.h"

namespace {

constexpr const char* kServiceName = "TelmoraQ";
constexpr const char* kDisplayName = "Telmora Queue Service";
constexpr const char* kDebugSwitch = "/NvDebug";

bool StartChecksPass(const CThreadQueue& worker) {
    const QueueConfig& config = worker.m_config;
    if (config.pickupDir.IsEmpty() || !DirectoryExists(config.pickupDir.GetData())) {
        ReportQueueSvcEvent(kEventPickupDirMissing);
        return false;
    }
    if (config.enableLogging != 0 &&
        (config.logDir.IsEmpty() || !DirectoryExists(config.logDir.GetData()))) {
        ReportQueueSvcEvent(kEventLogDirMissing);
        return false;
    }
    return true;
}

}  // namespace

void ServiceMain(QueueSvcState& state) {
    if (state.serviceMode != 0) {
        state.statusHandle = platform::RegisterServiceCtrlHandler(
            kServiceName, [&state](uint32_t control) { ControlHandler(state, control); });
        if (state.statusHandle == nullptr) {
            ReportQueueSvcEvent(kEventHandlerNotRegistered);
            return;
        }
    }
    const platform::ServiceStatusHandle handle = state.statusHandle;
    state.currentState = platform::kServiceStartPending;
    ReportStatus(state, handle, platform::kServiceStartPending, 0, 1);

    // A failed start leaves the worker to the end of the process, as its
    // thread may be half-way up.
    auto* worker = new CThreadQueue();
    state.worker = worker;
    bool started = StartChecksPass(*worker);
    if (started && worker->Start(0) < 0) {
        ReportQueueSvcEvent(kEventThreadNotStarted);
        started = false;
    }
    if (!started) {
        ReportStatus(state, handle, platform::kServiceStopped, 1, 1);
        return;
    }

    ReportStatus(state, handle, platform::kServiceStartPending, 0, 2);
    ReportStatus(state, handle, platform::kServiceStartPending, 0, 3);
    ReportStatus(state, handle, platform::kServiceRunning, 0, 0);
    ReportQueueSvcEvent(kEventServiceRunning);

    while (KeepRunning(state)) {
    }
    ReportQueueSvcEvent(kEventWaitLoopLeft);

    if (worker->GetState() != CNvcThread::STOPPED) {
        // Still inside a delivery: its file has not been deleted and goes out
        // again at the next start. Deleting the worker would wait for the
        // delivery, and ending its thread from outside is not safe.
        ReportStatus(state, handle, platform::kServiceStopped, 0, 0);
        state.abandonProcess();
        return;
    }
    state.worker = nullptr;
    delete worker;
    ReportStatus(state, handle, platform::kServiceStopped, 0, 0);
}

void RunDispatcher(QueueSvcState& state) {
    if (state.serviceMode != 0) {
        // The result is not looked at: outside the service manager the process
        // simply ends.
        platform::StartServiceCtrlDispatcher(kDisplayName, [&state] { ServiceMain(state); });
        return;
    }
    ServiceMain(state);
}

int QueueSvcEntry(void* instance, const char* commandLine) {
    CQueueSvc service(instance);
    QueueSvcState& state = TheQueueSvcState();
    state.serviceMode = std::strcmp(commandLine != nullptr ? commandLine : "", kDebugSwitch) == 0 ? 0 : 1;
    RunDispatcher(state);
    return 0;
}
