// NvcTcpSocket.h - the TCP client: connect with a limit, polled writes and line reads
//
// One IPv4 stream socket, non-blocking from the connect on. Writes and line
// reads poll with 1 ms sleeps under two CNvcTimeout timers, a total and an
// idle one (restarted by every byte that moves), and both are looked at last:
// a call whose timer ran out reports -2 (total) or -3 (idle) even when it got
// its work done, so a caller may hold a whole line and a time-out together.
// A receive buffer serves line reads and raw reads alike: ReadBytes hands out
// what ReadLine fetched before it touches the socket, so a protocol switch in
// mid-stream (STARTTLS) loses nothing. The buffer grows by 1024 bytes, only
// when a single line fills it.
//
// Input:       any bytes. A line ends only at "\r\n" found by one match counter:
//              a byte that breaks a match is not retried, so "\r\r\n" is no end.
//              A line is handed out up to its first zero byte.
// Diagnostics: 0, or -1 connect timed out, -2 total limit, -3 idle limit,
//              -4 closed, -8 buffer cannot grow, -9 closed or reset by the peer,
//              -10 aborted or reset (the socket is closed for -9 and -10);
//              other failures as Windows Sockets numbers (negative from SendBytes).
//              Writes no trace lines.
// Known gaps:  a refused connect is not told apart from a silent host: both
//              wait out the limit and give -1, kept so callers see one outcome.
// See also:    platform/Socket.h, NvSecureProtocol.h, foundation/NvcTimeout.h
#pragma once

#include <cstdint>

#include "foundation/NvcBase.h"
#include "foundation/NvcString.h"
#include "platform/Socket.h"

class ByteSource;
class CNvcTimeout;

class CNvcTcpSocket : public CNvcBase {
public:
    explicit CNvcTcpSocket(const char* name);
    ~CNvcTcpSocket() override;
    CNvcTcpSocket(const CNvcTcpSocket&) = delete;
    CNvcTcpSocket& operator=(const CNvcTcpSocket&) = delete;

    // Resolves, creates and connects; 0 when already open. The port's low 16
    // bits are used. 0, -1, or a Windows Sockets or system error number.
    int32_t TcpConnect(const char* host, int32_t port, uint32_t timeoutMs);
    // Frees the buffer and closes; always 0, safe to call twice.
    int32_t TcpClose();
    bool IsConnected() const { return m_socket != platform::kInvalidSocket; }

    int32_t SendBytes(const void* data, uint32_t length, uint32_t& sent, uint32_t totalMs, uint32_t idleMs);
    // Appends the line terminator to `text` (the caller sees it) and sends it
    // up to its first zero byte.
    int32_t SendLine(CNvcString& text, uint32_t totalMs, uint32_t idleMs);
    // All bytes of `source` as one write: the two timers run across all its
    // pieces, as they would for one block.
    int32_t SendFrom(ByteSource& source, uint32_t totalMs, uint32_t idleMs);
    // One line without its terminator; see the head comment for the timers.
    int32_t ReadLine(CNvcString& line, uint32_t totalMs, uint32_t idleMs);
    // Buffered bytes first; only with none buffered, one receive from the socket.
    int32_t ReadBytes(void* buffer, uint32_t size, uint32_t& got);
    // One receive: 0 with got 0 when nothing is there yet.
    int32_t ReceiveRaw(void* buffer, uint32_t size, uint32_t& got);

protected:
    int32_t StartSockets();
    void StopSockets();

    platform::SocketHandle m_socket = platform::kInvalidSocket;
    CNvcString m_terminator;
    uint8_t* m_receiveBuffer = nullptr;
    uint32_t m_readPosition = 0;
    uint32_t m_fillPosition = 0;
    uint32_t m_capacity = 0;
    int32_t m_socketsStarted = 0;

private:
    int32_t FailConnect(int32_t result);
    int32_t SendLoop(const uint8_t* data, uint32_t length, uint32_t& sent, CNvcTimeout& total,
                     CNvcTimeout& idle, bool& returnAtOnce);
    int32_t ReadLineLoop(CNvcString& line, CNvcTimeout& total, CNvcTimeout& idle);
    bool TakeBufferedLine(CNvcString& line);
    int32_t GrowReceiveBuffer();
    uint32_t CompactReceiveBuffer();
    void FreeReceiveBuffer();
};
