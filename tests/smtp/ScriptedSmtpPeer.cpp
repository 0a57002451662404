// ScriptedSmtpPeer.cpp - an SMTP server that plays a fixed script, for byte-exact dialogues
//
// See ScriptedSmtpPeer.h
#include "ScriptedSmtpPeer.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <mutex>

#include "support/SecurityTestPeer.h"

namespace scripted {

namespace {

constexpr int kWaitSeconds = 10;

// One self-signed certificate for every peer of the run, made in memory.
SSL_CTX* ServerContext() {
    static std::once_flag once;
    static SSL_CTX* context = nullptr;
    std::call_once(once, [] {
        const testsupport::TestCertificate made = testsupport::MakeCertificate({});
        X509* cert = testsupport::CertFromPem(made.certPem);
        EVP_PKEY* key = testsupport::KeyFromPem(made.keyPem);
        SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
        if (SSL_CTX_use_certificate(ctx, cert) == 1 && SSL_CTX_use_PrivateKey(ctx, key) == 1)
            context = ctx;
        else
            SSL_CTX_free(ctx);
        X509_free(cert);
        EVP_PKEY_free(key);
    });
    return context;
}

}  // namespace

struct Peer::Connection {
    int fd = -1;
    SSL* ssl = nullptr;
    std::string pending;  // received, not yet handed out

    ~Connection() {
        if (ssl != nullptr) SSL_free(ssl);
        if (fd >= 0) close(fd);
    }

    bool Write(const std::string& bytes) {
        if (bytes.empty()) return true;
        if (ssl != nullptr) return SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size())) > 0;
        return testsupport::SendAll(fd, bytes);
    }

    // More bytes into `pending`; false at the close, an error or the time limit.
    bool Fill() {
        char chunk[16384];
        const long n = ssl != nullptr ? SSL_read(ssl, chunk, sizeof chunk) : recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) return false;
        pending.append(chunk, static_cast<size_t>(n));
        return true;
    }

    // Everything up to and including `end`, taken out of `pending`.
    bool TakeUntil(const std::string& end, std::string& out) {
        for (;;) {
            const size_t at = pending.find(end);
            if (at != std::string::npos) {
                out = pending.substr(0, at + end.size());
                pending.erase(0, at + end.size());
                return true;
            }
            if (!Fill()) return false;
        }
    }

    bool Handshake() {
        SSL_CTX* context = ServerContext();
        if (context == nullptr) return false;
        ssl = SSL_new(context);
        SSL_set_fd(ssl, fd);
        return SSL_accept(ssl) == 1;
    }
};

Peer::Peer(std::vector<Step> script, bool tlsFromStart)
    : script_(std::move(script)), tlsFromStart_(tlsFromStart) {
    if (listener_.port() == 0) error_ = "cannot listen on loopback";
    else thread_ = std::thread(&Peer::Run, this);
}

Peer::~Peer() { Finish(); }

void Peer::Finish() {
    if (thread_.joinable()) thread_.join();
}

const std::vector<std::string>& Peer::lines() {
    Finish();
    return lines_;
}

const std::string& Peer::error() {
    Finish();
    return error_;
}

void Peer::Run() {
    if (!listener_.Accept(kWaitSeconds * 1000)) {
        error_ = "no client connected";
        return;
    }
    Connection connection;
    connection.fd = listener_.TakeConnection();
    timeval limit{kWaitSeconds, 0};
    setsockopt(connection.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(connection.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    Play(connection);
}

void Peer::Play(Connection& connection) {
    if (tlsFromStart_ && !PlayStep(connection, StartTls())) return;
    for (size_t i = 0; i < script_.size(); ++i) {
        if (PlayStep(connection, script_[i])) continue;
        if (error_.empty()) error_ = "step " + std::to_string(i) + " failed";
        return;
    }
    // Whatever else comes until the client closes was not in the script.
    std::string line;
    while (connection.TakeUntil("\r\n", line)) lines_.push_back(line.substr(0, line.size() - 2));
}

bool Peer::PlayStep(Connection& connection, const Step& step) {
    std::string got;
    switch (step.kind) {
        case Step::Kind::Say:
            return connection.Write(step.text);
        case Step::Kind::Hear:
            if (!connection.TakeUntil("\r\n", got)) return false;
            lines_.push_back(got.substr(0, got.size() - 2));
            return true;
        case Step::Kind::HearData:
            // The empty text arrives as "\r\n.\r\n" alone, so search from the
            // front with the terminator's leading CR LF included.
            if (!connection.TakeUntil("\r\n.\r\n", got)) return false;
            lines_.push_back(got);
            return true;
        case Step::Kind::StartTls:
            if (!connection.Handshake()) {
                error_ = "TLS handshake failed";
                return false;
            }
            lines_.push_back("[TLS]");
            return true;
        case Step::Kind::Pause:
            std::this_thread::sleep_for(std::chrono::milliseconds(step.ms));
            return true;
        case Step::Kind::Hangup:
            shutdown(connection.fd, SHUT_WR);
            return true;
    }
    return false;
}

}  // namespace scripted
