// NvcTcpSocketTest.cpp - line and buffer rules of the TCP client against a loopback peer
#include "smtp/NvcTcpSocket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "support/SocketTestPeer.h"

namespace {

using testsupport::LoopbackPeer;

constexpr uint32_t kLong = 5000;

// A client connected to a fresh peer.
struct Connected {
    LoopbackPeer peer;
    CNvcTcpSocket socket{"CNvcTcpSocketTest"};
    Connected() {
        EXPECT_EQ(socket.TcpConnect("127.0.0.1", peer.port(), kLong), 0);
        EXPECT_TRUE(peer.Accept());
    }
};

struct ReadResult {
    int32_t code;
    std::string line;
};

ReadResult Read(CNvcTcpSocket& socket, uint32_t total = kLong, uint32_t idle = kLong) {
    CNvcString line("this junk should be replaced");
    const int32_t code = socket.ReadLine(line, total, idle);
    return {code, line.GetData()};
}

TEST(NvcTcpSocketReadLine, BufferedLinesNeedNoFurtherReceive) {
    Connected c;
    ASSERT_TRUE(c.peer.Send("220-one\r\n220-two\r\n220 three\r\n"));
    c.peer.Close();
    // After the first receive the peer is gone: a second receive would give -9.
    for (const char* want : {"220-one", "220-two", "220 three"}) {
        const ReadResult r = Read(c.socket);
        EXPECT_EQ(r.code, 0);
        EXPECT_EQ(r.line, want);
    }
    EXPECT_EQ(Read(c.socket).code, -9);
    EXPECT_FALSE(c.socket.IsConnected());
    EXPECT_EQ(Read(c.socket).code, -4);
}

TEST(NvcTcpSocketReadLine, LongLinesComeWholeAndBrokenMatchesAreNotRetried) {
    const std::string longLine(3000, 'x');  // beyond the first receive buffer
    struct Case {
        const char* name;
        std::string sent;
        std::vector<ReadResult> want;
    } cases[] = {
        {"a long line, then a short one", longLine + "\r\n250 short\r\n", {{0, longLine}, {0, "250 short"}}},
        {"CR CR LF ends nothing; a later CR LF does", "a\r\r\nb\r\n", {{0, "a\r\r\nb"}}},
        {"CR CR LF alone runs to the limit", "a\r\r\n", {{-2, ""}}},
        {"LF alone is no end", "a\nb\r\n", {{0, "a\nb"}}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Connected c;
        ASSERT_TRUE(c.peer.Send(k.sent));
        for (const ReadResult& want : k.want) {
            const ReadResult r = Read(c.socket, 300, 300);
            EXPECT_EQ(r.code, want.code);
            EXPECT_EQ(r.line, want.line);
        }
    }
}

TEST(NvcTcpSocketReadLine, TimersDecideLast) {
    Connected c;
    EXPECT_EQ(Read(c.socket, 0, kLong).code, -2);
    EXPECT_EQ(Read(c.socket, kLong, 0).code, -3);
    // Silence: the idle limit runs out before the total one.
    const ReadResult r = Read(c.socket, kLong, 200);
    EXPECT_EQ(r.code, -3);
    EXPECT_EQ(r.line, "");
}

// A timer may run out between taking a line and the final look at the timers.
// The tick count is pushed on from another thread until that has happened;
// whatever the code, no line may be lost or handed out twice.
TEST(NvcTcpSocketReadLine, LineTakenAsTimerRunsOutIsKept) {
    Connected c;
    std::atomic<bool> started{false};
    std::atomic<bool> stop{false};
    std::thread pusher([&] {
        started = true;
        while (!stop) {
            platform::ShiftTickCountForTest(1000);
            std::this_thread::yield();
        }
    });
    while (!started) std::this_thread::yield();
    constexpr int kBatch = 1000;
    int withTimerCode = 0;
    const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(60);  // usually well under a second
    for (int batch = 0; withTimerCode == 0 && std::chrono::steady_clock::now() < bound; ++batch) {
        std::string lines;
        for (int i = 0; i < kBatch; ++i) lines += std::to_string(batch) + "-" + std::to_string(i) + "\r\n";
        ASSERT_TRUE(c.peer.Send(lines));
        for (int next = 0; next < kBatch;) {
            const ReadResult r = Read(c.socket, 500, 0xFFFFFFFFu);
            ASSERT_TRUE(r.code == 0 || r.code == -2) << r.code;
            if (r.line.empty()) continue;
            ASSERT_EQ(r.line, std::to_string(batch) + "-" + std::to_string(next));
            ++next;
            if (r.code == -2) ++withTimerCode;
        }
    }
    stop = true;
    pusher.join();
    EXPECT_GT(withTimerCode, 0);
}

TEST(NvcTcpSocketReadLine, ResetByPeerClosesTheSocket) {
    Connected c;
    c.peer.Close(true);
    EXPECT_EQ(Read(c.socket).code, -10);
    EXPECT_FALSE(c.socket.IsConnected());
}

TEST(NvcTcpSocketReadBytes, BufferedBytesComeBeforeTheSocket) {
    Connected c;
    ASSERT_TRUE(c.peer.Send("220 hi\r\nTLSBYTES"));
    EXPECT_EQ(Read(c.socket).line, "220 hi");
    char buffer[5];
    uint32_t got = 0;
    EXPECT_EQ(c.socket.ReadBytes(buffer, sizeof(buffer), got), 0);
    EXPECT_EQ(std::string(buffer, got), "TLSBY");
    EXPECT_EQ(c.socket.ReadBytes(buffer, sizeof(buffer), got), 0);
    EXPECT_EQ(std::string(buffer, got), "TES");
    // Nothing buffered, nothing on the socket: 0 bytes, no error.
    EXPECT_EQ(c.socket.ReadBytes(buffer, sizeof(buffer), got), 0);
    EXPECT_EQ(got, 0u);
    c.socket.TcpClose();
    EXPECT_EQ(c.socket.ReadBytes(buffer, sizeof(buffer), got), -4);
    EXPECT_EQ(c.socket.SendBytes("x", 1, got, kLong, kLong), -4);
}

TEST(NvcTcpSocketSend, LimitsAndResults) {
    struct Case {
        const char* name;
        uint32_t length;
        uint32_t total;
        uint32_t idle;
        int32_t want;
    } cases[] = {
        {"nothing to send", 0, kLong, kLong, 0},
        {"total limit 0 wins even over success", 4, 0, kLong, -2},
        {"idle limit 0", 4, kLong, 0, -3},
        {"both 0: total first", 4, 0, 0, -2},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Connected c;
        uint32_t sent = 99;
        EXPECT_EQ(c.socket.SendBytes("data", k.length, sent, k.total, k.idle), k.want);
        EXPECT_EQ(sent, 0u);
    }
}

TEST(NvcTcpSocketSend, LargeWriteToASlowReaderStallsOnIdle) {
    Connected c;
    const std::string big(32u << 20, 'm');  // far more than the socket buffers hold
    uint32_t sent = 0;
    EXPECT_EQ(c.socket.SendBytes(big.data(), static_cast<uint32_t>(big.size()), sent, 0xFFFFFFFFu, 300), -3);
    EXPECT_GT(sent, 0u);
    EXPECT_LT(sent, big.size());
    EXPECT_TRUE(c.socket.IsConnected());
}

TEST(NvcTcpSocketConnect, FailuresLeaveTheObjectClosed) {
    const int port = LoopbackPeer().port();  // closed again at once
    CNvcTcpSocket socket("CNvcTcpSocketTest");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.TcpConnect("127.0.0.1", port, 300), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(295));
    EXPECT_FALSE(socket.IsConnected());

    const int32_t unresolved = socket.TcpConnect("no-such-host.invalid", 25, 300);
    EXPECT_GE(unresolved, 11001);
    EXPECT_LE(unresolved, 11004);
    EXPECT_FALSE(socket.IsConnected());
    EXPECT_EQ(socket.TcpClose(), 0);
    EXPECT_EQ(socket.TcpClose(), 0);
}

TEST(NvcTcpSocketConnect, ReconnectStartsWithAnEmptyBuffer) {
    LoopbackPeer first;
    CNvcTcpSocket socket("CNvcTcpSocketTest");
    ASSERT_EQ(socket.TcpConnect("localhost", first.port(), kLong), 0);
    ASSERT_TRUE(first.Accept());
    EXPECT_EQ(socket.TcpConnect("localhost", first.port(), kLong), 0);  // already open: nothing happens
    ASSERT_TRUE(first.Send("220 a\r\nleft over"));
    EXPECT_EQ(Read(socket).line, "220 a");
    socket.TcpClose();

    LoopbackPeer second;
    ASSERT_EQ(socket.TcpConnect("localhost", second.port(), kLong), 0);
    ASSERT_TRUE(second.Accept());
    ASSERT_TRUE(second.Send("220 b\r\n"));
    EXPECT_EQ(Read(socket).line, "220 b");
}

}  // namespace
