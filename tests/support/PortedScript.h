// PortedScript.h - a test peer run as a child process that announces its port
//
// The script (aiosmtpd server, fault proxy) prints "PORT n" as its first line
// and ends when its standard input closes; SIGKILL is the fallback for one that
// hangs, so no peer outlives its test.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

class PortedScript {
public:
    PortedScript() = default;
    ~PortedScript() { stop(); }
    PortedScript(const PortedScript&) = delete;
    PortedScript& operator=(const PortedScript&) = delete;

    // Runs args[0] with the rest; true when "PORT n" came within `waitMs`.
    bool start(std::vector<std::string> args, int waitMs);
    void stop();
    int port() const { return port_; }

private:
    int port_ = 0;
    int pid_ = -1;
    int stdinFd_ = -1;
};

}  // namespace testsupport
