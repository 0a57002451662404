// SocketTestPeer.h - a plain TCP peer on loopback for socket tests
//
// Listens on 127.0.0.1 at a free port and accepts one connection; the test then
// sends and receives on it with blocking calls, so that it decides exactly
// which bytes leave in which segment (TCP_NODELAY, one send per segment).
// Header-only, so that the platform and the smtp tests can both use it.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace testsupport {

// Sends all of `data` on a blocking socket; false when the peer is gone.
inline bool SendAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

class LoopbackPeer {
public:
    LoopbackPeer() {
        listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(listenFd_, 4) != 0 ||
            getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        port_ = ntohs(address.sin_port);
    }
    ~LoopbackPeer() {
        Close();
        if (listenFd_ >= 0) close(listenFd_);
    }
    LoopbackPeer(const LoopbackPeer&) = delete;
    LoopbackPeer& operator=(const LoopbackPeer&) = delete;

    int port() const { return port_; }

    // Takes the pending connection; false when none came within the time.
    bool Accept(int timeoutMs = 5000) {
        pollfd entry{listenFd_, POLLIN, 0};
        if (poll(&entry, 1, timeoutMs) != 1) return false;
        fd_ = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        const int one = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        return fd_ >= 0;
    }

    // One send of all of `data` (loopback takes it whole).
    bool Send(const std::string& data) { return SendAll(fd_, data); }

    // Reads until `count` bytes came, the peer closed or the time ran out.
    std::string Receive(size_t count, int timeoutMs = 5000) {
        std::string got;
        char buffer[65536];
        while (got.size() < count) {
            pollfd entry{fd_, POLLIN, 0};
            if (poll(&entry, 1, timeoutMs) != 1) break;
            const ssize_t n = recv(fd_, buffer, sizeof(buffer), 0);
            if (n <= 0) break;
            got.append(buffer, static_cast<size_t>(n));
        }
        return got;
    }

    // What one receive brings: "" when the time ran out or the peer closed.
    std::string ReceiveSome(int timeoutMs = 5000) {
        pollfd entry{fd_, POLLIN, 0};
        if (poll(&entry, 1, timeoutMs) != 1) return "";
        char buffer[65536];
        const ssize_t n = recv(fd_, buffer, sizeof(buffer), 0);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
    }

    // Hands the accepted connection over; the caller closes it.
    int TakeConnection() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    // Closes the connection; with `reset` the peer sees a reset instead of a close.
    void Close(bool reset = false) {
        if (fd_ < 0) return;
        if (reset) {
            const linger hard{1, 0};
            setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
        }
        close(fd_);
        fd_ = -1;
    }

private:
    int listenFd_ = -1;
    int fd_ = -1;
    int port_ = 0;
};

}  // namespace testsupport
