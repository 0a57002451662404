// NvSecureProtocolTest.cpp - the TLS channel against a real TLS server on loopback
#include "smtp/NvSecureProtocol.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "smtp/TlsTestServer.h"
#include "support/TestPaths.h"

namespace {

using namespace testsupport;

// One client channel connected to one test server, with the certificate store
// at `store` (null: unset) for its life.
struct Session {
    explicit Session(const TlsTestServer::Options& options, const char* store = nullptr)
        : storeFolder(store), server(options) {
        channel.SetHost("localhost");
        EXPECT_EQ(channel.TcpConnect("127.0.0.1", server.port(), 5000), 0);
    }
    // Both ends of the handshake done.
    bool Up() { return channel.Handshake() == 0 && server.WaitHandshake(); }
    std::string ReadLine(uint32_t timeoutMs = 5000, int32_t want = 0) {
        CNvcString line("junk that must go");
        EXPECT_EQ(channel.SecureReadLine(line, timeoutMs), want);
        return line.GetData();
    }
    // Sends `text` as a line; the server must read it whole with its CR LF.
    void SendLine(const std::string& text) {
        CNvcString command(text.c_str());
        ASSERT_EQ(channel.SecureSendLine(command), 0);
        EXPECT_EQ(server.ReceivePlain(text.size() + 2), text + "\r\n");
    }

    StoreFolder storeFolder;
    TlsTestServer server;
    CNvSecureProtocol channel{"CNvSecureProtocolTest"};
};

// maxVersion 0: the highest; tickets -1: as many as the library sends.
TlsTestServer::Options Server(int maxVersion = 0, int tickets = -1) {
    TlsTestServer::Options options;
    options.setup.maxVersion = maxVersion;
    options.setup.tickets = tickets;
    return options;
}

struct VersionCase {
    const char* name;
    int maxVersion;
};
const VersionCase kVersions[] = {{"TLS 1.2", TLS1_2_VERSION}, {"TLS 1.3", 0}};

TEST(SecureChannelHandshake, AcceptsAnyServerCertificate) {
    struct Case {
        const char* name;
        CertificateShape certificate;
    } cases[] = {
        {"expired", {"localhost", -30, -1}},
        {"made out for another host", {"mail.other.invalid"}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        TlsTestServer::Options options = Server();
        options.setup.certificate = MakeCertificate(k.certificate);
        Session s(options);
        ASSERT_TRUE(s.Up());
        s.server.Send(s.server.session().Seal({"220 ready\r\n"}));
        EXPECT_EQ(s.ReadLine(), "220 ready");
    }
}

TEST(SecureChannelHandshake, GreetingBehindTheLastHandshakeRecordNeedsNoWait) {
    TlsTestServer::Options options = Server(TLS1_2_VERSION);  // the server's flight ends the handshake
    options.greeting = "220 ready\r\n";
    Session s(options);
    ASSERT_TRUE(s.Up());
    EXPECT_EQ(s.ReadLine(), "220 ready");  // no more comes: lost here, it would time out
}

TEST(SecureChannelHandshake, ClientCertificateOnlyWhenAskedAndFound) {
    const TestCertificate ca = MakeCertificate({"Client CA", -1, 30, nullptr, nullptr, true});
    const TestCertificate mine = MakeCertificate({"our-client", -1, 30, &ca, "clientAuth"});
    struct Case {
        const char* name;
        bool storeHoldsOne;
        std::string wantName;
    } cases[] = {{"empty store: on without one", false, ""}, {"store holds one", true, "our-client"}};
    for (const Case& k : cases) {
        for (const VersionCase& v : kVersions) {
            SCOPED_TRACE(std::string(k.name) + ", " + v.name);
            testsupport::TempDir dir;
            if (k.storeHoldsOne) testsupport::WriteFile(dir.file("mine.pem"), mine.certPem + mine.keyPem);
            TlsTestServer::Options options = Server(v.maxVersion);
            options.setup.requestClientCertificate = true;
            options.setup.clientCas = {ca};
            Session s(options, dir.path().c_str());
            ASSERT_TRUE(s.Up());
            EXPECT_EQ(s.server.session().ClientCommonName(), k.wantName);
        }
    }
}

TEST(SecureChannelHandshake, FailuresAndTheirCodes) {
    {
        SCOPED_TRACE("store folder missing");
        Session s(Server(), "/nonexistent/telmoraq-store");
        EXPECT_EQ(s.channel.Handshake(), -1006);
        s.channel.SecureClose();
    }
    {
        SCOPED_TRACE("server closes in the handshake");
        TlsTestServer::Options options;
        options.stallAfter = 20;
        options.closeWhenStalled = true;
        Session s(options);
        EXPECT_EQ(s.channel.Handshake(), -1005);
    }
}

// A server that falls silent halfway through its flight: the loop's bound ends
// the handshake. The tick count is pushed past the bound instead of waiting.
TEST(SecureChannelHandshake, SilentServerEndsAtTheBound) {
    TlsTestServer::Options options;
    options.stallAfter = 20;
    Session s(options);
    std::atomic<bool> finished{false};
    std::thread pusher([&] {
        while (!finished) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            platform::ShiftTickCountForTest(CNvSecureProtocol::kHandshakeLimitMs + 1);
        }
    });
    const auto start = std::chrono::steady_clock::now();
    const int32_t result = s.channel.Handshake();
    finished = true;
    pusher.join();
    EXPECT_EQ(result, -1007);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    CNvcString text("NOOP");
    EXPECT_EQ(s.channel.SecureSendLine(text), -1009);
}

TEST(SecureChannelRead, LinesAcrossRecords) {
    struct Case {
        const char* name;
        std::vector<std::string> records;
        std::vector<std::string> want;
        bool closeAfter;  // then a read from the socket gives -9 at once
    } cases[] = {
        {"two lines in one record: the second needs no read", {"250-first\r\n250 second\r\n"},
         {"250-first", "250 second"}, true},
        {"a line split over records", {"250 hel", "lo world\r\n"}, {"250 hello world"}, false},
        {"CR and LF in two records", {"250 split\r", "\n221 next\r\n"}, {"250 split", "221 next"}, false},
        {"a lone CR cuts the line", {"250 a\rb\r\n"}, {"250 a"}, false},
        {"zero bytes are dropped", {std::string("25\0000 z\r\n", 9)}, {"250 z"}, false},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Session s(Server(0, 0));
        ASSERT_TRUE(s.Up());
        s.server.Send(s.server.session().Seal(k.records));
        if (k.closeAfter) s.server.Close();
        for (const std::string& want : k.want) EXPECT_EQ(s.ReadLine(), want);
        if (k.closeAfter) s.ReadLine(5000, -9);
        else s.ReadLine(100, -1014);
    }
}

// Half a record is no error, only no line yet; a tampered record is refused.
TEST(SecureChannelRead, RecordSplitOverTwoSegmentsAndTamperedRecord) {
    Session s(Server(0, 0));
    ASSERT_TRUE(s.Up());
    const std::string record = s.server.session().Seal({"250 whole\r\n"});
    s.server.Send(record.substr(0, record.size() / 2));
    s.ReadLine(200, -1014);
    s.server.Send(record.substr(record.size() / 2));
    EXPECT_EQ(s.ReadLine(), "250 whole");
    std::string tampered = s.server.session().Seal({"250 tampered\r\n"});
    tampered[tampered.size() - 4] ^= 1;
    s.server.Send(tampered);
    s.ReadLine(5000, -1011);
}

TEST(SecureChannelRead, CloseNotifyIsNoErrorUntilTheSocketCloses) {
    Session s(Server());
    ASSERT_TRUE(s.Up());
    const std::string bye = s.server.session().Seal({"221 bye\r\n"});
    s.server.Send(bye + s.server.session().SealCloseNotify());
    EXPECT_EQ(s.ReadLine(), "221 bye");
    EXPECT_EQ(s.ReadLine(300, -1014), "");
    s.server.Close();
    s.ReadLine(5000, -9);
}

TEST(SecureChannelRead, KeyUpdateFromTheServerIsAnsweredOnTheWay) {
    Session s(Server(0, 0));
    ASSERT_TRUE(s.Up());
    s.server.Send(s.server.session().SealAfterKeyUpdate({"250 after update\r\n"}));
    EXPECT_EQ(s.ReadLine(), "250 after update");
    s.SendLine("NOOP");
}

TEST(SecureChannelRead, RenegotiationRunsThroughTheHandshakeLoop) {
    Session s(Server(TLS1_2_VERSION));
    ASSERT_TRUE(s.Up());
    s.server.Send(s.server.session().StartRenegotiation());
    std::thread serverSide([&] {
        for (int round = 0; round < 10; ++round) {
            const std::string bytes = s.server.ReceiveSome();
            if (bytes.empty()) return;
            const bool done = s.server.session().FeedRenegotiation(bytes);
            s.server.Send(s.server.session().TakeOutput());
            if (done) break;
        }
        s.server.Send(s.server.session().Seal({"250 renegotiated\r\n"}));
    });
    EXPECT_EQ(s.ReadLine(), "250 renegotiated");
    serverSide.join();
    s.SendLine("NOOP");
}

TEST(SecureChannelWrite, LongLineLeavesAsSeveralRecords) {
    Session s(Server(0, 0));
    ASSERT_TRUE(s.Up());
    const std::string body(40000, 'd');
    CNvcString text(body.c_str());
    ASSERT_EQ(s.channel.SecureSendLine(text), 0);
    EXPECT_EQ(s.server.ReceivePlain(body.size() + 2), body + "\r\n");
    EXPECT_EQ(s.server.session().recordsReceived(), 3);  // records of a little under 16 KiB
}

TEST(SecureChannelReport, TracesTheConnection) {
    testsupport::TempDir dir;
    Session s(Server());
    s.channel.SetTraceFile(dir.file("trace.log").c_str());
    ASSERT_TRUE(s.Up());
    const std::string trace = testsupport::ReadFile(dir.file("trace.log"));
    for (const char* want : {"]  Secure connection details:\n", "]  \tProtocol: [0x304]\n", "]  \tCipher: [0x",
                             "]  \tCipher strength: [", "]  \tHash: [0x", "]  \tKey exchange: [0x",
                             "]  \tKey exchange: [253]\n"}) {
        EXPECT_NE(trace.find(want), std::string::npos) << want << " in\n" << trace;
    }
}

TEST(SecureChannelReport, NamesTheValuesItKnows) {
    auto report = [](const platform::SecPkgContext_ConnectionInfo& info) {
        std::vector<std::string> lines;
        for (const CNvcString& line : CNvSecureProtocol::FormatConnectionReport(info)) lines.push_back(line.GetData());
        return lines;
    };
    EXPECT_EQ(report({0x20, 0x660C, 56, 0x8004, 160, 0xAA02, 1024}),
              (std::vector<std::string>{"\tProtocol: [SS3]", "\tCipher: [DES]", "\tCipher strength: [56]",
                                        "\tHash: [SHA]", "\tKey exchange: [DH Ephemeral]", "\tKey exchange: [1024]"}));
    EXPECT_EQ(report({0x304, 0x385, 256, 0x2A0, 384, 0x40E, 253}),
              (std::vector<std::string>{"\tProtocol: [0x304]", "\tCipher: [0x385]", "\tCipher strength: [256]",
                                        "\tHash: [0x2a0]", "\tKey exchange: [0x40e]", "\tKey exchange: [253]"}));
}

}  // namespace
