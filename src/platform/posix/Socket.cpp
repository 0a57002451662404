// Socket.cpp - IPv4 stream sockets over POSIX, errors as Windows Sockets numbers
//
// See Socket.h
#include "platform/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace platform {
namespace {

struct SocketErrnoRow {
    int errnoValue;
    int32_t wsa;
};

// The one mapping table of the socket seam: the Windows Sockets number for
// each errno a socket call can leave.
constexpr SocketErrnoRow kSocketErrnoRows[] = {
    {EINTR, 10004},
    {EBADF, kWsaENotSock},  // a closed handle: Windows Sockets says "not a socket"
    {EACCES, 10013},
    {EPERM, 10013},          {EFAULT, 10014},         {EINVAL, 10022},
    {EMFILE, 10024},         {ENFILE, 10024},         {EWOULDBLOCK, kWsaEWouldBlock},
    {EINPROGRESS, 10036},    {EALREADY, 10037},       {ENOTSOCK, kWsaENotSock},
    {EDESTADDRREQ, 10039},   {EMSGSIZE, 10040},       {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},    {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},     {EPFNOSUPPORT, 10046},   {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},     {EADDRNOTAVAIL, 10049},  {ENETDOWN, 10050},
    {ENETUNREACH, 10051},    {ENETRESET, 10052},      {ECONNABORTED, kWsaEConnAborted},
    {ECONNRESET, kWsaEConnReset},
    {EPIPE, kWsaEConnReset},  // the peer is gone: Windows reports the write as reset
    {ENOBUFS, 10055},        {ENOMEM, 10055},         {EISCONN, 10056},
    {ENOTCONN, 10057},       {ESHUTDOWN, 10058},      {ETOOMANYREFS, 10059},
    {ETIMEDOUT, kWsaETimedOut}, {ECONNREFUSED, kWsaEConnRefused}, {ELOOP, 10062},
    {ENAMETOOLONG, 10063},   {EHOSTDOWN, 10064},      {EHOSTUNREACH, 10065},
    {ENOTEMPTY, 10066},      {EUSERS, 10068},         {EDQUOT, 10069},
    {ESTALE, 10070},         {EREMOTE, 10071},
};

// Resolver codes: host not found, try again, no recovery, no data.
int32_t MapResolverError(int code) {
    switch (code) {
    case EAI_NONAME: return kWsaHostNotFound;
    case EAI_AGAIN: return 11002;
    case EAI_FAIL: return 11003;
    case EAI_NODATA: return 11004;
    case EAI_ADDRFAMILY: return 11004;
    case EAI_MEMORY: return 10055;
    case EAI_SYSTEM: return MapSocketErrno(errno);
    default: return kWsaHostNotFound;
    }
}

bool SetNonBlocking(int fd) {
    const int flags = fcntl(fd, F_GETFL, 0);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

// Whether a connect under way has failed for good (refused, unreachable).
bool ConnectHasFailed(int fd) {
    int soError = 0;
    socklen_t length = sizeof(soError);
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &soError, &length) != 0) return true;
    return soError != 0;
}

// A connect that has failed for good still ends only at its limit, so that the
// caller sees a refusal exactly as a silent host. With no limit it ends at once.
int32_t WaitOutLimit(std::chrono::steady_clock::time_point deadline, bool unlimited) {
    if (!unlimited) std::this_thread::sleep_until(deadline);
    return -1;
}

// Waits for writability within the limit. A socket that turns writable with an
// error is no connection, since the client counts only a usable one as success.
int32_t WaitForConnection(int fd, uint32_t timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const bool unlimited = timeoutMs == 0xFFFFFFFFu;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int waitMs = -1;
        if (!unlimited) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - Clock::now()).count();
            if (left <= 0) return -1;
            waitMs = static_cast<int>(left);
        }
        pollfd entry{fd, POLLOUT, 0};
        const int ready = poll(&entry, 1, waitMs);
        if (ready < 0 && errno != EINTR) return WaitOutLimit(deadline, unlimited);
        if (ready <= 0) continue;
        if ((entry.revents & (POLLERR | POLLHUP)) != 0 || ConnectHasFailed(fd))
            return WaitOutLimit(deadline, unlimited);
        return 0;
    }
}

}  // namespace

int32_t MapSocketErrno(int errnoValue) {
    if (errnoValue == 0) return 0;
    for (const SocketErrnoRow& row : kSocketErrnoRows)
        if (row.errnoValue == errnoValue) return row.wsa;
    return kWsaGeneralError;
}

int32_t StartSockets() { return 0; }

void StopSockets() {}

SocketHandle CreateTcpSocket(int32_t& error) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    error = fd < 0 ? MapSocketErrno(errno) : 0;
    return fd < 0 ? kInvalidSocket : fd;
}

int32_t ResolveHostIPv4(const char* host, uint32_t& addressNetworkOrder) {
    addressNetworkOrder = 0;
    if (host == nullptr || *host == '\0') return kWsaHostNotFound;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int code = getaddrinfo(host, nullptr, &hints, &list);
    if (code != 0) return MapResolverError(code);
    if (list == nullptr) return kWsaHostNotFound;
    addressNetworkOrder = reinterpret_cast<const sockaddr_in*>(list->ai_addr)->sin_addr.s_addr;
    freeaddrinfo(list);
    return 0;
}

int32_t ConnectWithin(SocketHandle socket, uint32_t addressNetworkOrder, uint16_t port,
                      uint32_t timeoutMs) {
    const int fd = static_cast<int>(socket);
    if (!SetNonBlocking(fd)) return MapSocketErrno(errno);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = addressNetworkOrder;
    int result;
    do {
        result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    if (result == 0) return 0;
    // A refusal can be known at once; it still waits out the limit.
    if (errno == ECONNREFUSED) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        return WaitOutLimit(deadline, timeoutMs == 0xFFFFFFFFu);
    }
    if (errno != EINPROGRESS) return MapSocketErrno(errno);
    return WaitForConnection(fd, timeoutMs);
}

int64_t SendSome(SocketHandle socket, const void* data, size_t length, int32_t& error) {
    ssize_t sent;
    do {
        sent = send(static_cast<int>(socket), data, length, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    error = sent < 0 ? MapSocketErrno(errno) : 0;
    return sent;
}

int64_t ReceiveSome(SocketHandle socket, void* buffer, size_t size, int32_t& error) {
    ssize_t got;
    do {
        got = recv(static_cast<int>(socket), buffer, size, 0);
    } while (got < 0 && errno == EINTR);
    error = got < 0 ? MapSocketErrno(errno) : 0;
    return got;
}

void CloseSocket(SocketHandle socket) {
    if (socket == kInvalidSocket) return;
    close(static_cast<int>(socket));
}

}  // namespace platform
