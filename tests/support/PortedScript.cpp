// PortedScript.cpp - see PortedScript.h
#include "PortedScript.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace testsupport {

namespace {

// The first line from `fd` within `timeoutMs`; empty on time-out or end.
std::string FirstLine(int fd, int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string line;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              end - std::chrono::steady_clock::now()).count();
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

bool PortedScript::start(std::vector<std::string> args, int waitMs) {
    stop();
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return false;
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(in[0]);
        close(in[1]);
        return false;
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
    const std::string line = pid_ > 0 ? FirstLine(out[0], waitMs) : "";
    close(out[0]);
    if (line.rfind("PORT ", 0) == 0) port_ = std::stoi(line.substr(5));
    if (port_ == 0) stop();
    return port_ > 0;
}

void PortedScript::stop() {
    if (stdinFd_ >= 0) close(stdinFd_);
    stdinFd_ = -1;
    port_ = 0;
    if (pid_ <= 0) return;
    for (int i = 0; i < 100; ++i) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

}  // namespace testsupport
