// SmtpTestServer.h - a real SMTP server (aiosmtpd) on loopback for tests
//
// Starts tests/support/smtp_server.py under /usr/bin/python3 and waits for its
// "PORT n" line. What the server accepts lands in a folder as <seq>.eml (the
// text as received, dot-unstuffed) and <seq>.env (envelope lines). The server
// stops when the object goes (its standard input is closed).
//
// Diagnostics: started() is false when python3 or aiosmtpd is missing or the
//              server did not come up within 20 seconds; tests skip then.
// See also:    smtp_server.py
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "PortedScript.h"

namespace testsupport {

class SmtpTestServer {
public:
    enum class Mode { Plain, StartTls, Tls };

    struct Options {
        Mode mode = Mode::Plain;
        std::vector<std::pair<std::string, std::string>> users;  // login, password
        bool authRequired = false;
    };

    struct Message {
        std::string data;  // the DATA text exactly as received
        std::string mailFrom;
        std::vector<std::string> rcptTo;
        std::string authLogin;  // empty without AUTH
    };

    // `maildir` is created if needed; it should be inside a TempDir.
    SmtpTestServer(const std::string& maildir, const Options& options);
    explicit SmtpTestServer(const std::string& maildir) : SmtpTestServer(maildir, Options()) {}
    ~SmtpTestServer();
    SmtpTestServer(const SmtpTestServer&) = delete;
    SmtpTestServer& operator=(const SmtpTestServer&) = delete;

    bool started() const { return process_.port() > 0; }
    int port() const { return process_.port(); }
    const std::string& error() const { return error_; }

    // Every message received so far, in the order of arrival.
    std::vector<Message> messages() const;

    // Waits until at least `count` messages are there; false at the time-out.
    bool waitForMessages(size_t count, int timeoutMs) const;

    // Stops the server now (also done by the destructor).
    void stop();

private:
    std::string maildir_;
    std::string error_;
    PortedScript process_;
};

}  // namespace testsupport

// Skips the current test when the server could not start.
#define SKIP_WITHOUT_SMTP_SERVER(server)                                           \
    do {                                                                           \
        if (!(server).started())                                                   \
            GTEST_SKIP() << "aiosmtpd test server unavailable: " << (server).error(); \
    } while (0)
