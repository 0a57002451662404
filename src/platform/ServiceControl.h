// ServiceControl.h - the service manager's side of a service: dispatcher, control handler, status
//
// The service manager is systemd. A process that it started (NOTIFY_SOCKET set)
// runs its service main through StartServiceCtrlDispatcher; anywhere else the
// call fails at once, as the Windows call does outside the control manager.
// Controls arrive as signals, taken by one thread of their own (sigwait) that
// calls the registered handler: SIGTERM stop, SIGTSTP pause, SIGCONT continue,
// SIGUSR1 interrogate, SIGPWR shutdown. Status reports go out through
// sd_notify: READY=1 when running, STOPPING=1 when stop pending, STATUS= with
// state, checkpoint and exit codes, EXTEND_TIMEOUT_USEC= from the wait hint of
// a pending state.
//
// Input:       the dispatcher blocks the control signals in the calling thread
//              before the service main runs, so it must be called before any
//              other thread exists; threads made later inherit the mask.
// Diagnostics: false or null on failure.
// Limits:      one service per process; a second registration replaces the
//              handler.
// See also:    posix/ServiceControl.cpp
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace platform {

// Control codes, as the handler receives them.
constexpr uint32_t kServiceControlStop = 1;
constexpr uint32_t kServiceControlPause = 2;
constexpr uint32_t kServiceControlContinue = 3;
constexpr uint32_t kServiceControlInterrogate = 4;
constexpr uint32_t kServiceControlShutdown = 5;

// Reported states.
constexpr uint32_t kServiceStopped = 1;
constexpr uint32_t kServiceStartPending = 2;
constexpr uint32_t kServiceStopPending = 3;
constexpr uint32_t kServiceRunning = 4;
constexpr uint32_t kServiceContinuePending = 5;
constexpr uint32_t kServicePausePending = 6;
constexpr uint32_t kServicePaused = 7;

struct ServiceStatus {
    uint32_t serviceType = 0;
    uint32_t currentState = 0;
    uint32_t controlsAccepted = 0;
    uint32_t win32ExitCode = 0;
    uint32_t serviceSpecificExitCode = 0;
    uint32_t checkPoint = 0;
    uint32_t waitHint = 0;
};

struct ServiceStatusTag;
using ServiceStatusHandle = ServiceStatusTag*;

// Runs `serviceMain` on the calling thread when the process was started by the
// service manager, and returns true when it has returned; false at once
// otherwise. The control thread, if one was registered, ends before it returns.
bool StartServiceCtrlDispatcher(const char* serviceName, const std::function<void()>& serviceMain);

// Starts the control thread that calls `handler` for each control signal;
// null when no dispatcher runs or the thread cannot be made.
ServiceStatusHandle RegisterServiceCtrlHandler(const char* serviceName,
                                               std::function<void(uint32_t)> handler);

// Sends the report to the service manager; false for a null handle or when the
// notification could not be sent.
bool SetServiceStatus(ServiceStatusHandle handle, const ServiceStatus& status);

// The notification text of a report, as SetServiceStatus sends it.
std::string ServiceStatusNotification(const ServiceStatus& status);

// A sound on Windows; nothing here.
void MessageBeep(uint32_t type);

// Ends the process at once with `code`: no destructors, no waiting for threads.
[[noreturn]] void ExitProcessNow(int code);

}  // namespace platform
