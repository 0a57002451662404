// Socket.h - IPv4 stream sockets for the TCP client, with Windows Sockets error numbers
//
// The client above this seam was written for Windows Sockets, so every failure
// comes back as the Windows Sockets number it compares against (10035 would
// block, 10038 not a socket, 10053 aborted, 10054 reset, 10060 timed out,
// 10061 refused, 11001 host not found, ...). The mapping from errno and from
// the resolver's codes is one table in posix/Socket.cpp; numbers without a row
// become 11999, the general socket error.
//
// A socket is non-blocking from ConnectWithin on, so SendSome and ReceiveSome
// never wait: "nothing yet" is -1 with kWsaEWouldBlock. EINTR is retried inside
// the seam, and a write to a closed peer never raises SIGPIPE.
//
// Diagnostics: each call returns or fills in a Windows Sockets number; none throws.
// Known gaps:  IPv4 only, first address only, as the client expects.
// See also:    posix/Socket.cpp, smtp/NvcTcpSocket.h
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

using SocketHandle = intptr_t;
constexpr SocketHandle kInvalidSocket = -1;

// Windows Sockets error numbers the client tests for by value.
constexpr int32_t kWsaEWouldBlock = 10035;
constexpr int32_t kWsaENotSock = 10038;
constexpr int32_t kWsaEConnAborted = 10053;
constexpr int32_t kWsaEConnReset = 10054;
constexpr int32_t kWsaETimedOut = 10060;
constexpr int32_t kWsaEConnRefused = 10061;
constexpr int32_t kWsaHostNotFound = 11001;
constexpr int32_t kWsaGeneralError = 11999;

// The Windows Sockets number of an errno value; 0 for 0, kWsaGeneralError for
// values without a row.
int32_t MapSocketErrno(int errnoValue);

// Library start and release around a socket's life. Nothing to do on POSIX:
// StartSockets always gives 0, StopSockets does nothing.
int32_t StartSockets();
void StopSockets();

// A new IPv4 TCP socket, still blocking; kInvalidSocket with `error` set on failure.
SocketHandle CreateTcpSocket(int32_t& error);

// The first IPv4 address of a host name or dotted text, in network order.
// 0, or kWsaHostNotFound (and its siblings 11002-11004) when there is none.
int32_t ResolveHostIPv4(const char* host, uint32_t& addressNetworkOrder);

// Makes the socket non-blocking, starts the connect and waits for it to become
// usable. 0: connected. -1: the limit ran out first; a refused or failed
// connect is never reported early, it waits out the limit like a silent one.
// A positive number: the connect call itself failed at once (not "in progress").
// timeoutMs 0xFFFFFFFF waits without limit for a connection, but a connect
// that has already failed then gives -1 at once rather than waiting for ever.
int32_t ConnectWithin(SocketHandle socket, uint32_t addressNetworkOrder, uint16_t port,
                      uint32_t timeoutMs);

// One send of at most `length` bytes: the count, or -1 with `error` set
// (kWsaEWouldBlock when the send queue is full; a vanished peer is kWsaEConnReset).
int64_t SendSome(SocketHandle socket, const void* data, size_t length, int32_t& error);

// One receive: the count, 0 when the peer has closed, or -1 with `error` set
// (kWsaEWouldBlock when nothing is there yet).
int64_t ReceiveSome(SocketHandle socket, void* buffer, size_t size, int32_t& error);

// Closes the socket; an invalid handle is ignored.
void CloseSocket(SocketHandle socket);

}  // namespace platform
