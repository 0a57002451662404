// ServiceControlTest.cpp - the dispatcher under a stand-in service manager: notifications
// on our own NOTIFY_SOCKET, signals turned into control codes, and the durable rename
#include "platform/ServiceControl.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "support/TestPaths.h"

namespace {

using namespace testsupport;

// A datagram socket bound where NOTIFY_SOCKET points.
class NotifyListener {
public:
    explicit NotifyListener(const std::string& path) {
        fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        timeval limit{10, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~NotifyListener() { ::close(fd_); }
    std::string Receive() {
        char buffer[4096];
        const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
        return got > 0 ? std::string(buffer, static_cast<size_t>(got)) : std::string();
    }

private:
    int fd_ = -1;
};

// Runs `body` in a child process (signal masks and the one dispatcher stay
// there); the child's exit code is the result.
template <typename Body>
int InChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST(ServiceControl, WithoutTheServiceManagerTheDispatcherFailsAndRunsNothing) {
    const int result = InChild([] {
        ::unsetenv("NOTIFY_SOCKET");
        bool ran = false;
        const bool dispatched = platform::StartServiceCtrlDispatcher("x", [&ran] { ran = true; });
        return dispatched || ran ? 1 : 0;
    });
    EXPECT_EQ(result, 0);
}

TEST(ServiceControl, ReportsReachTheManagerAndSignalsReachTheHandlerAsControls) {
    TempDir dir;
    const std::string socketPath = dir.file("notify");
    NotifyListener listener(socketPath);
    const int result = InChild([&] {
        ::setenv("NOTIFY_SOCKET", socketPath.c_str(), 1);
        std::mutex lock;
        std::string seen;
        auto seenSize = [&] {
            std::lock_guard<std::mutex> hold(lock);
            return seen.size();
        };
        const bool dispatched = platform::StartServiceCtrlDispatcher("x", [&] {
            platform::ServiceStatusHandle handle = platform::RegisterServiceCtrlHandler(
                "x", [&](uint32_t control) {
                    std::lock_guard<std::mutex> hold(lock);
                    seen += static_cast<char>('0' + control);
                });
            if (handle == nullptr) return;
            platform::ServiceStatus status;
            status.currentState = platform::kServiceRunning;
            platform::SetServiceStatus(handle, status);
            size_t sent = 0;
            for (int sig : {SIGUSR1, SIGTSTP, SIGCONT, SIGPWR, SIGTERM}) {
                ::kill(::getpid(), sig);
                ++sent;
                for (int i = 0; i < 5000 && seenSize() < sent; ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        return dispatched && seen == "42351" ? 0 : 1;
    });
    EXPECT_EQ(result, 0) << "handler saw the wrong controls, or the dispatcher failed";
    EXPECT_NE(listener.Receive().find("READY=1\n"), std::string::npos);
}

TEST(ServiceControl, NotificationsSayReadyStoppingAndExtendOnlyPendingStates) {
    platform::ServiceStatus status;
    status.waitHint = 10000;
    status.currentState = platform::kServiceStopPending;
    status.checkPoint = 1;
    const std::string stopping = platform::ServiceStatusNotification(status);
    EXPECT_NE(stopping.find("STOPPING=1\n"), std::string::npos);
    EXPECT_NE(stopping.find("EXTEND_TIMEOUT_USEC=10000000\n"), std::string::npos);
    EXPECT_EQ(stopping.find("READY=1"), std::string::npos);

    status.currentState = platform::kServiceStopped;
    status.win32ExitCode = 1066;
    status.serviceSpecificExitCode = 1;
    const std::string stopped = platform::ServiceStatusNotification(status);
    EXPECT_EQ(stopped.find("EXTEND_TIMEOUT_USEC"), std::string::npos);
    EXPECT_NE(stopped.find("exit code 1066/1"), std::string::npos) << stopped;
    EXPECT_FALSE(platform::SetServiceStatus(nullptr, status));
}

}  // namespace
