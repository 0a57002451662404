// TlsTestServer.h - a real TLS server on loopback whose segments the test controls
//
// Accepts one connection and runs the server side of the handshake on its own
// thread (OpenSSL over memory BIOs, so every byte it sends is chosen here).
// After WaitHandshake the test drives the session from its own thread: it
// seals records, sends them in the segments it wants, reads what the client
// wrote and counts its records.
//
// Options: a greeting sealed behind the server's last handshake bytes in one
// segment; a byte count after which the server stops answering the handshake
// (and, if asked, closes the connection).
// See also: support/SecurityTestPeer.h, support/SocketTestPeer.h
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "support/SecurityTestPeer.h"
#include "support/SocketTestPeer.h"

namespace testsupport {

class TlsTestServer {
public:
    struct Options {
        ServerSetup setup;
        std::string greeting;
        size_t stallAfter = static_cast<size_t>(-1);  // handshake bytes sent before going silent
        bool closeWhenStalled = false;
    };

    explicit TlsTestServer(const Options& options);
    ~TlsTestServer();
    TlsTestServer(const TlsTestServer&) = delete;
    TlsTestServer& operator=(const TlsTestServer&) = delete;

    int port() const { return peer_.port(); }

    // Waits for the handshake thread; true when the handshake completed.
    bool WaitHandshake();

    TlsServerSession& session() { return session_; }
    bool Send(const std::string& bytes) { return peer_.Send(bytes); }
    std::string ReceiveSome(int timeoutMs = 5000) { return peer_.ReceiveSome(timeoutMs); }
    // Plaintext from the client until `count` bytes came or the time ran out.
    std::string ReceivePlain(size_t count, int timeoutMs = 5000);
    void Close(bool reset = false) { peer_.Close(reset); }

private:
    void Serve();
    bool SendHandshakeBytes(const std::string& bytes, size_t& sentSoFar);

    Options options_;
    LoopbackPeer peer_;
    TlsServerSession session_;
    std::thread thread_;
    std::atomic<bool> done_{false};
};

}  // namespace testsupport
