// NvcTcpSocket.cpp - the TCP client: connect with a limit, polled writes and line reads
//
// See NvcTcpSocket.h
#include "smtp/NvcTcpSocket.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/NvcTimeout.h"
#include "platform/Clock.h"
#include "smtp/ByteSource.h"

namespace {

constexpr uint32_t kGrowth = 1024;
constexpr uint32_t kWrappedCapacity = 0xFFFFFC00u;  // what a wrapped growth leaves behind
constexpr uint32_t kSendPieceSize = 64 * 1024;       // a piece of a streamed write

// The timers decide last: a run-out limit overrides any result, success included.
int32_t TimersLast(int32_t result, const CNvcTimeout& total, const CNvcTimeout& idle) {
    if (total.IsExpired()) return -2;
    if (idle.IsExpired()) return -3;
    return result;
}

}  // namespace

CNvcTcpSocket::CNvcTcpSocket(const char* name) : CNvcBase(name), m_terminator("\r\n") {}

CNvcTcpSocket::~CNvcTcpSocket() { TcpClose(); }

int32_t CNvcTcpSocket::StartSockets() {
    if (m_socketsStarted) return 0;
    const int32_t result = platform::StartSockets();
    if (result != 0) return result;
    m_socketsStarted = 1;
    return 0;
}

void CNvcTcpSocket::StopSockets() {
    if (!m_socketsStarted) return;
    platform::StopSockets();
    m_socketsStarted = 0;
}

int32_t CNvcTcpSocket::TcpConnect(const char* host, int32_t port, uint32_t timeoutMs) {
    if (IsConnected()) return 0;
    const int32_t started = StartSockets();
    if (started != 0) return FailConnect(started);
    int32_t createError = 0;
    m_socket = platform::CreateTcpSocket(createError);
    uint32_t address = 0;
    const int32_t resolveError = platform::ResolveHostIPv4(host, address);
    if (resolveError != 0) return FailConnect(resolveError);
    if (!IsConnected()) return FailConnect(createError);
    const int32_t result =
        platform::ConnectWithin(m_socket, address, static_cast<uint16_t>(port), timeoutMs);
    return result == 0 ? 0 : FailConnect(result);
}

// Leaves nothing behind of a connect that did not succeed.
int32_t CNvcTcpSocket::FailConnect(int32_t result) {
    if (IsConnected()) {
        platform::CloseSocket(m_socket);
        m_socket = platform::kInvalidSocket;
    }
    StopSockets();
    return result;
}

int32_t CNvcTcpSocket::TcpClose() {
    FreeReceiveBuffer();
    if (IsConnected()) {
        platform::CloseSocket(m_socket);
        m_socket = platform::kInvalidSocket;
    }
    StopSockets();
    return 0;
}

// Bytes of one connection never reach the next.
void CNvcTcpSocket::FreeReceiveBuffer() {
    std::free(m_receiveBuffer);
    m_receiveBuffer = nullptr;
    m_readPosition = 0;
    m_fillPosition = 0;
    m_capacity = 0;
}

int32_t CNvcTcpSocket::SendBytes(const void* data, uint32_t length, uint32_t& sent, uint32_t totalMs,
                                 uint32_t idleMs) {
    CNvcTimeout total;
    CNvcTimeout idle;
    total.Set(totalMs);
    idle.Set(idleMs);
    sent = 0;
    int32_t result = -4;
    if (IsConnected()) {
        bool returnAtOnce = false;
        result = SendLoop(static_cast<const uint8_t*>(data), length, sent, total, idle, returnAtOnce);
        if (returnAtOnce) return result;
    }
    return TimersLast(result, total, idle);
}

// Writes until all is sent, a timer runs out or the connection fails. An
// unexpected error is returned at once, without a look at the timers.
int32_t CNvcTcpSocket::SendLoop(const uint8_t* data, uint32_t length, uint32_t& sent, CNvcTimeout& total,
                                CNvcTimeout& idle, bool& returnAtOnce) {
    while (sent < length) {
        if (total.IsExpired() || idle.IsExpired()) return 0;
        int32_t error = 0;
        const int64_t count = platform::SendSome(m_socket, data + sent, length - sent, error);
        if (count < 0) {
            if (error == platform::kWsaEWouldBlock) {
                platform::Sleep(1);
            } else if (error == platform::kWsaEConnAborted) {
                TcpClose();
                return -10;
            } else if (error == platform::kWsaEConnReset) {
                TcpClose();
                return -9;
            } else if (error != 0) {
                returnAtOnce = true;
                return -error;
            }
            continue;
        }
        if (count > 0) {
            idle.Restart();
            sent += static_cast<uint32_t>(count);
        }
    }
    return 0;
}

int32_t CNvcTcpSocket::SendLine(CNvcString& text, uint32_t totalMs, uint32_t idleMs) {
    if (!IsConnected()) return -4;
    text.Append(m_terminator);
    uint32_t sent = 0;
    return SendBytes(text.GetData(), static_cast<uint32_t>(std::strlen(text.GetData())), sent, totalMs,
                     idleMs);
}

int32_t CNvcTcpSocket::SendFrom(ByteSource& source, uint32_t totalMs, uint32_t idleMs) {
    if (!IsConnected()) return -4;
    CNvcTimeout total;
    CNvcTimeout idle;
    total.Set(totalMs);
    idle.Set(idleMs);
    std::vector<uint8_t> piece(kSendPieceSize);
    int32_t result = 0;
    for (;;) {
        const uint32_t length = source.Fill(piece.data(), kSendPieceSize);
        if (length == 0) break;
        uint32_t sent = 0;
        bool returnAtOnce = false;
        result = SendLoop(piece.data(), length, sent, total, idle, returnAtOnce);
        if (returnAtOnce) return result;
        if (result != 0 || sent < length) break;  // closed, or a timer ran out
    }
    return TimersLast(result, total, idle);
}

int32_t CNvcTcpSocket::ReceiveRaw(void* buffer, uint32_t size, uint32_t& got) {
    got = 0;
    int32_t error = 0;
    const int64_t count = platform::ReceiveSome(m_socket, buffer, size, error);
    if (count > 0) {
        got = static_cast<uint32_t>(count);
        return 0;
    }
    if (count == 0) {
        TcpClose();
        return -9;
    }
    if (error == platform::kWsaEWouldBlock || error == 0) return 0;
    if (error == platform::kWsaEConnAborted || error == platform::kWsaEConnReset) {
        TcpClose();
        return -10;
    }
    return error;
}

int32_t CNvcTcpSocket::ReadBytes(void* buffer, uint32_t size, uint32_t& got) {
    got = 0;
    if (!IsConnected()) return -4;
    const uint32_t unread = m_fillPosition - m_readPosition;
    if (unread == 0) return ReceiveRaw(buffer, size, got);
    got = unread < size ? unread : size;
    std::memcpy(buffer, m_receiveBuffer + m_readPosition, got);
    m_readPosition += got;
    return 0;
}

int32_t CNvcTcpSocket::ReadLine(CNvcString& line, uint32_t totalMs, uint32_t idleMs) {
    line.Clear();
    CNvcTimeout total;
    CNvcTimeout idle;
    total.Set(totalMs);
    idle.Set(idleMs);
    int32_t result = -4;
    if (IsConnected()) result = total.IsExpired() ? 0 : ReadLineLoop(line, total, idle);
    return TimersLast(result, total, idle);
}

// Scans the buffer, fetches more, sleeps 1 ms, until a line or a timer.
int32_t CNvcTcpSocket::ReadLineLoop(CNvcString& line, CNvcTimeout& total, CNvcTimeout& idle) {
    for (;;) {
        if (idle.IsExpired()) return 0;
        if (TakeBufferedLine(line)) return 0;
        if (m_readPosition == 0 && m_fillPosition == m_capacity) {
            const int32_t grown = GrowReceiveBuffer();
            if (grown != 0) return grown;
        }
        const uint32_t kept = CompactReceiveBuffer();
        uint32_t got = 0;
        const int32_t received = ReceiveRaw(m_receiveBuffer + kept, m_capacity - kept, got);
        if (received != 0) return received;
        m_fillPosition = kept + got;
        if (got > 0) idle.Restart();
        platform::Sleep(1);
        if (total.IsExpired()) return 0;
    }
}

// One match counter over the unread bytes: a byte that breaks a partial match
// is not tried again as a first byte, so "\r\r\n" is no line end (kept on
// purpose: the rule is part of the client's contract with its callers).
bool CNvcTcpSocket::TakeBufferedLine(CNvcString& line) {
    const char* terminator = m_terminator.GetData();
    const uint32_t terminatorLength = static_cast<uint32_t>(std::strlen(terminator));
    if (m_fillPosition - m_readPosition < terminatorLength || terminatorLength == 0) return false;
    uint32_t match = 0;
    for (uint32_t i = m_readPosition; i < m_fillPosition; ++i) {
        if (m_receiveBuffer[i] != static_cast<uint8_t>(terminator[match])) {
            match = 0;
            continue;
        }
        if (++match < terminatorLength) continue;
        m_receiveBuffer[i + 1 - terminatorLength] = 0;
        line.Assign(reinterpret_cast<const char*>(m_receiveBuffer + m_readPosition));
        m_readPosition = i + 1;
        return true;
    }
    return false;
}

int32_t CNvcTcpSocket::GrowReceiveBuffer() {
    const uint32_t capacity = m_capacity + kGrowth;
    if (capacity == 0) {
        m_capacity = kWrappedCapacity;
        return -8;
    }
    void* grown = std::realloc(m_receiveBuffer, capacity);
    if (grown == nullptr) return -8;
    m_receiveBuffer = static_cast<uint8_t*>(grown);
    m_capacity = capacity;
    return 0;
}

// Moves the unread bytes to the front and the positions with them, so that a
// failed receive after it leaves the buffer consistent; returns their number.
uint32_t CNvcTcpSocket::CompactReceiveBuffer() {
    const uint32_t unread = m_fillPosition - m_readPosition;
    if (unread > 0 && m_readPosition > 0)
        std::memmove(m_receiveBuffer, m_receiveBuffer + m_readPosition, unread);
    m_readPosition = 0;
    m_fillPosition = unread;
    return unread;
}
