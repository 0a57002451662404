// FaultProxy.cpp - see FaultProxy.h
#include "FaultProxy.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

namespace testsupport {

namespace {

const char* FaultName(FaultProxy::Fault fault) {
    switch (fault) {
        case FaultProxy::Fault::CutAfterCommand: return "cut-command";
        case FaultProxy::Fault::StallAfterCommand: return "stall-command";
        case FaultProxy::Fault::CutAfterBytes: return "cut-bytes";
        case FaultProxy::Fault::Drip: return "drip";
        case FaultProxy::Fault::Corrupt: return "corrupt";
        default: return "none";
    }
}

// The first line from `fd` within `timeoutMs`; empty on time-out or end.
std::string FirstLine(int fd, int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string line;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        if (left <= 0) return "";
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
        char c;
        if (read(fd, &c, 1) != 1) return "";
        if (c == '\n') return line;
        line += c;
    }
}

}  // namespace

FaultProxy::FaultProxy(const Options& options) {
    if (access("/usr/bin/python3", X_OK) != 0) {
        error_ = "/usr/bin/python3 missing";
        return;
    }
    std::vector<std::string> args = {"/usr/bin/python3",
                                     std::string(TELMORAQ_SOURCE_DIR) + "/tests/support/fault_proxy.py",
                                     "--target", std::to_string(options.targetPort),
                                     "--fault", FaultName(options.fault),
                                     "--bytes", std::to_string(options.bytes),
                                     "--direction", options.upstream ? "up" : "down",
                                     "--interval", std::to_string(options.intervalSeconds)};
    if (!options.command.empty()) args.insert(args.end(), {"--command", options.command});
    if (!options.recordFile.empty()) args.insert(args.end(), {"--record", options.recordFile});
    if (!options.recordDownFile.empty()) args.insert(args.end(), {"--record-down", options.recordDownFile});

    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        error_ = "pipe failed";
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    stdinFd_ = in[1];
    const std::string line = pid_ > 0 ? FirstLine(out[0], 10000) : "";
    if (line.rfind("PORT ", 0) == 0)
        port_ = std::stoi(line.substr(5));
    else
        error_ = "proxy did not start";
    close(out[0]);
    if (port_ == 0) stop();
}

FaultProxy::~FaultProxy() { stop(); }

void FaultProxy::stop() {
    if (stdinFd_ >= 0) close(stdinFd_);
    stdinFd_ = -1;
    if (pid_ > 0) {
        // Closing stdin ends the proxy; SIGKILL is the fallback if it hangs.
        for (int i = 0; i < 100; ++i) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

}  // namespace testsupport
