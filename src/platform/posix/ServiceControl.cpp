// ServiceControl.cpp - systemd as the service manager: sd_notify and controls as signals
//
// See ServiceControl.h
#include "platform/ServiceControl.h"

#include <signal.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <thread>

#include "platform/SystemError.h"

namespace platform {

struct ServiceStatusTag {};

namespace {

struct ControlSignal {
    int signal;
    uint32_t control;
};

constexpr ControlSignal kControlSignals[] = {
    {SIGTERM, kServiceControlStop},      {SIGTSTP, kServiceControlPause},
    {SIGCONT, kServiceControlContinue},  {SIGUSR1, kServiceControlInterrogate},
    {SIGPWR, kServiceControlShutdown},
};

// How long one wait for a signal lasts before the control thread looks whether
// it should end.
constexpr long kControlPollNs = 100 * 1000 * 1000;

struct Dispatcher {
    std::mutex lock;
    bool running = false;
    std::function<void(uint32_t)> handler;
    std::thread controlThread;
    std::atomic<bool> ending{false};
    ServiceStatusTag handle;
};

Dispatcher& TheDispatcher() {
    static Dispatcher* dispatcher = new Dispatcher();  // outlives static destruction
    return *dispatcher;
}

sigset_t ControlSignalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const ControlSignal& entry : kControlSignals) sigaddset(&set, entry.signal);
    return set;
}

uint32_t ControlOf(int signal) {
    for (const ControlSignal& entry : kControlSignals)
        if (entry.signal == signal) return entry.control;
    return 0;
}

void ControlLoop(Dispatcher& dispatcher) {
    const sigset_t set = ControlSignalSet();
    const timespec wait{0, kControlPollNs};
    while (!dispatcher.ending.load()) {
        siginfo_t info;
        const int signal = ::sigtimedwait(&set, &info, &wait);
        if (signal <= 0) continue;
        std::function<void(uint32_t)> handler;
        {
            std::lock_guard<std::mutex> hold(dispatcher.lock);
            handler = dispatcher.handler;
        }
        if (handler) handler(ControlOf(signal));
    }
}

const char* StateWord(uint32_t state) {
    switch (state) {
        case kServiceStopped: return "stopped";
        case kServiceStartPending: return "start pending";
        case kServiceStopPending: return "stop pending";
        case kServiceRunning: return "running";
        case kServiceContinuePending: return "continue pending";
        case kServicePausePending: return "pause pending";
        case kServicePaused: return "paused";
        default: return "unknown";
    }
}

bool IsPending(uint32_t state) {
    return state == kServiceStartPending || state == kServiceStopPending ||
           state == kServiceContinuePending || state == kServicePausePending;
}

}  // namespace

bool StartServiceCtrlDispatcher(const char* serviceName, const std::function<void()>& serviceMain) {
    const char* socket = std::getenv("NOTIFY_SOCKET");
    if (socket == nullptr || *socket == '\0') {
        std::fprintf(stderr,
                     "%s: not started by the service manager (no NOTIFY_SOCKET); "
                     "run it by hand with /NvDebug\n",
                     serviceName != nullptr ? serviceName : "service");
        return false;
    }
    Dispatcher& dispatcher = TheDispatcher();
    {
        std::lock_guard<std::mutex> hold(dispatcher.lock);
        if (dispatcher.running) return false;
        dispatcher.running = true;
    }
    // Blocked before the service main makes any thread, so that only the
    // control thread ever takes these signals.
    const sigset_t set = ControlSignalSet();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    serviceMain();
    dispatcher.ending.store(true);
    if (dispatcher.controlThread.joinable()) dispatcher.controlThread.join();
    std::lock_guard<std::mutex> hold(dispatcher.lock);
    dispatcher.handler = nullptr;
    dispatcher.running = false;
    dispatcher.ending.store(false);
    return true;
}

ServiceStatusHandle RegisterServiceCtrlHandler(const char*, std::function<void(uint32_t)> handler) {
    Dispatcher& dispatcher = TheDispatcher();
    std::lock_guard<std::mutex> hold(dispatcher.lock);
    if (!dispatcher.running) return nullptr;
    dispatcher.handler = std::move(handler);
    if (!dispatcher.controlThread.joinable()) {
        try {
            dispatcher.controlThread = std::thread(ControlLoop, std::ref(dispatcher));
        } catch (...) {
            dispatcher.handler = nullptr;
            return nullptr;
        }
    }
    return &dispatcher.handle;
}

std::string ServiceStatusNotification(const ServiceStatus& status) {
    std::string text;
    if (status.currentState == kServiceRunning) text += "READY=1\n";
    if (status.currentState == kServiceStopPending) text += "STOPPING=1\n";
    char line[200];
    std::snprintf(line, sizeof line, "STATUS=%s, checkpoint %u, exit code %u/%u\n",
                  StateWord(status.currentState), status.checkPoint, status.win32ExitCode,
                  status.serviceSpecificExitCode);
    text += line;
    if (IsPending(status.currentState) && status.waitHint != 0) {
        std::snprintf(line, sizeof line, "EXTEND_TIMEOUT_USEC=%llu\n",
                      static_cast<unsigned long long>(status.waitHint) * 1000ULL);
        text += line;
    }
    return text;
}

bool SetServiceStatus(ServiceStatusHandle handle, const ServiceStatus& status) {
    if (handle == nullptr) return false;
    return ::sd_notify(0, ServiceStatusNotification(status).c_str()) > 0;
}

void MessageBeep(uint32_t) {}

void ExitProcessNow(int code) { std::_Exit(code); }

}  // namespace platform
