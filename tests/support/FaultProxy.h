// FaultProxy.h - a loopback TCP proxy that injects one network fault, for tests
//
// Starts tests/support/fault_proxy.py under /usr/bin/python3 in front of a
// server port and waits for its "PORT n" line; clients connect to port()
// instead of the server. Every connection gets the same fault: a cut after a
// client command or after a byte count, a stall after a command (sockets kept
// open, nothing forwarded), the server's bytes dripped one at a time, or one
// byte of the server's stream flipped. The proxy stops when the object goes
// (its standard input is closed).
//
// Diagnostics: started() is false when python3 is missing or the proxy did not
//              come up within 10 seconds; tests skip then.
// See also:    fault_proxy.py, SmtpTestServer.h
#pragma once

#include <string>

#include "PortedScript.h"

namespace testsupport {

class FaultProxy {
public:
    enum class Fault { None, CutAfterCommand, StallAfterCommand, CutAfterBytes, Drip, Corrupt };

    struct Options {
        int targetPort = 0;
        Fault fault = Fault::None;
        std::string command;       // the client line that triggers a cut or stall
        long long bytes = 0;       // byte count for a cut, offset for a flip
        bool upstream = false;     // cut or flip in the client's bytes, not the server's
        double intervalSeconds = 1.0;  // between dripped bytes
        std::string recordFile;      // everything the client sent, if set
        std::string recordDownFile;  // everything the server sent, if set
    };

    explicit FaultProxy(const Options& options);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    bool started() const { return process_.port() > 0; }
    int port() const { return process_.port(); }
    const std::string& error() const { return error_; }

    // Stops the proxy now (also done by the destructor); open connections close.
    void stop();

private:
    std::string error_;
    PortedScript process_;
};

}  // namespace testsupport

#define SKIP_WITHOUT_FAULT_PROXY(proxy)                                               \
    do {                                                                              \
        if (!(proxy).started()) GTEST_SKIP() << "fault proxy unavailable: " << (proxy).error(); \
    } while (0)
