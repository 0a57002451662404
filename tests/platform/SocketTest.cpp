// SocketTest.cpp - the socket seam against real loopback peers
#include "platform/Socket.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "support/SocketTestPeer.h"

namespace {

using platform::SocketHandle;
using testsupport::LoopbackPeer;

const uint32_t kLoopback = htonl(INADDR_LOOPBACK);

struct OpenSocket {
    SocketHandle handle = platform::kInvalidSocket;
    ~OpenSocket() { platform::CloseSocket(handle); }
};

int64_t MillisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start).count();
}

TEST(SocketErrors, MapsErrnoToWindowsSocketsNumbers) {
    struct Case {
        int errnoValue;
        int32_t want;
    } cases[] = {
        {0, 0},
        {EWOULDBLOCK, 10035},
        {ENOTSOCK, 10038},
        {EBADF, 10038},  // the secure channel tells a closed handle by this number
        {ECONNABORTED, 10053},
        {ECONNRESET, 10054},
        {EPIPE, 10054},  // a vanished peer must close the client's socket like a reset
        {ETIMEDOUT, 10060},
        {ECONNREFUSED, 10061},
        {EHOSTUNREACH, 10065},
        {EIO, platform::kWsaGeneralError},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.errnoValue);
        EXPECT_EQ(platform::MapSocketErrno(c.errnoValue), c.want);
    }
}

TEST(SocketResolve, DottedTextAndNames) {
    uint32_t address = 1;
    EXPECT_EQ(platform::ResolveHostIPv4("127.0.0.1", address), 0);
    EXPECT_EQ(address, kLoopback);
    EXPECT_EQ(platform::ResolveHostIPv4("localhost", address), 0);
    EXPECT_EQ(address, kLoopback);

    const int32_t missing = platform::ResolveHostIPv4("no-such-host.invalid", address);
    EXPECT_GE(missing, 11001);  // not found, or the resolver's siblings without a network
    EXPECT_LE(missing, 11004);
    EXPECT_EQ(platform::ResolveHostIPv4("", address), platform::kWsaHostNotFound);
}

TEST(SocketConnect, ConnectsSendsReceivesWithoutBlocking) {
    LoopbackPeer peer;
    ASSERT_GT(peer.port(), 0);
    OpenSocket s;
    int32_t error = -1;
    s.handle = platform::CreateTcpSocket(error);
    ASSERT_NE(s.handle, platform::kInvalidSocket);
    ASSERT_EQ(platform::ConnectWithin(s.handle, kLoopback, static_cast<uint16_t>(peer.port()), 5000), 0);
    ASSERT_TRUE(peer.Accept());

    char buffer[64];
    EXPECT_EQ(platform::ReceiveSome(s.handle, buffer, sizeof(buffer), error), -1);
    EXPECT_EQ(error, platform::kWsaEWouldBlock);

    EXPECT_EQ(platform::SendSome(s.handle, "ping", 4, error), 4);
    EXPECT_EQ(peer.Receive(4), "ping");

    ASSERT_TRUE(peer.Send("pong"));
    EXPECT_EQ(platform::ReceiveSome(s.handle, buffer, sizeof(buffer), error), 4);
    EXPECT_EQ(std::string(buffer, 4), "pong");

    peer.Close();
    EXPECT_EQ(platform::ReceiveSome(s.handle, buffer, sizeof(buffer), error), 0);
}

// A refused connect keeps trying until its limit; without a limit it ends at once.
TEST(SocketConnect, RefusedPortWaitsOutTheLimit) {
    int port;
    {
        LoopbackPeer closed;
        port = closed.port();
    }
    for (uint32_t limit : {0u, 300u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(limit);
        OpenSocket s;
        int32_t error = 0;
        s.handle = platform::CreateTcpSocket(error);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(platform::ConnectWithin(s.handle, kLoopback, static_cast<uint16_t>(port), limit), -1);
        if (limit == 0xFFFFFFFFu) EXPECT_LT(MillisecondsSince(start), 30000);
        else EXPECT_GE(MillisecondsSince(start) + 5, static_cast<int64_t>(limit));
    }
}

}  // namespace
