// TlsTestServer.cpp - a real TLS server on loopback whose segments the test controls
//
// See TlsTestServer.h
#include "smtp/TlsTestServer.h"

namespace testsupport {

TlsTestServer::TlsTestServer(const Options& options)
    : options_(options), session_(options.setup), thread_([this] { Serve(); }) {}

// The handshake thread ends when the client closes or after its 10 s waits.
TlsTestServer::~TlsTestServer() {
    if (thread_.joinable()) thread_.join();
}

bool TlsTestServer::WaitHandshake() {
    if (thread_.joinable()) thread_.join();
    return done_;
}

void TlsTestServer::Serve() {
    if (!peer_.Accept(10000)) return;
    size_t sent = 0;
    for (;;) {
        const std::string in = peer_.ReceiveSome(10000);
        if (in.empty()) return;
        const bool done = session_.Feed(in);
        if (session_.failed()) return;
        std::string out = session_.TakeOutput();
        if (done && !options_.greeting.empty()) out += session_.Seal({options_.greeting});
        if (!SendHandshakeBytes(out, sent)) return;
        if (done) {
            done_ = true;
            return;
        }
    }
}

// One segment, cut short where the server is to fall silent.
bool TlsTestServer::SendHandshakeBytes(const std::string& bytes, size_t& sentSoFar) {
    const size_t room = options_.stallAfter - sentSoFar;
    if (bytes.size() <= room) {
        sentSoFar += bytes.size();
        return bytes.empty() || peer_.Send(bytes);
    }
    if (room > 0) peer_.Send(bytes.substr(0, room));
    sentSoFar = options_.stallAfter;
    if (options_.closeWhenStalled) peer_.Close();
    return false;
}

std::string TlsTestServer::ReceivePlain(size_t count, int timeoutMs) {
    std::string plain = session_.Receive();
    while (plain.size() < count) {
        const std::string bytes = peer_.ReceiveSome(timeoutMs);
        if (bytes.empty()) break;
        session_.Feed(bytes);
        plain += session_.Receive();
    }
    return plain;
}

}  // namespace testsupport
