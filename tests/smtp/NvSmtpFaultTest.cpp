// NvSmtpFaultTest.cpp - the SMTP client under network faults: a server that
// hangs up in the greeting or the text or falls silent under each limit,
// dripped replies, a line without end, a broken STARTTLS handshake, hostile
// CRAM-MD5 challenges. Every case must end within the limits it was given with
// a failure code, and nothing may leave in the clear after a failed handshake.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <tuple>

#include "ScriptedSession.h"
#include "ScriptedSmtpPeer.h"
#include "mail/NvMail.h"
#include "smtp/NvSmtp.h"
#include "support/FaultProxy.h"
#include "support/SmtpTestServer.h"

using namespace scripted;
using namespace testsupport;
using Lines = std::vector<std::string>;
using Fault = FaultProxy::Fault;

namespace {

constexpr uint32_t kCommandMs = 300;
constexpr uint32_t kAuthMs = 400;
constexpr uint32_t kDataMs = 500;
// Scheduling slack on a loaded machine under the sanitizers.
constexpr long kSlackMs = 1500;

long ElapsedMs(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
}

void UseSmallLimits(CNvSmtp& client) {
    client.m_connectTimeout = kCommandMs;
    client.m_commandTimeout = kCommandMs;
    client.m_authTimeout = kAuthMs;
    client.m_dataTimeout = kDataMs;
}

// The first step of a whole transaction that failed, and its code.
struct Outcome {
    std::string step = "none";
    int32_t code = 0;
};

Outcome RunTransaction(CNvSmtp& client) {
    MailAddress to;
    to.m_address.Assign("rcpt@example.org");
    Outcome out;
    auto step = [&](const char* name, int32_t code) {
        if (out.code == 0 && code != 0) out = {name, code};
        return code == 0;
    };
    step("connect", client.Connect()) && step("mail", client.MailFrom("sender@example.org")) &&
        step("rcpt", client.RcptTo({&to})) && step("data", client.SendData("Subject: fault\r\n\r\nbody"));
    client.Quit();
    return out;
}

// One aiosmtpd for the whole file: starting it costs more than all cases.
SmtpTestServer& PlainServer() {
    static testsupport::TempDir dir;
    static SmtpTestServer plain(dir.file("plain"), {SmtpTestServer::Mode::Plain, {{"user", "pass"}}, false});
    return plain;
}

FaultProxy::Options Inject(SmtpTestServer& server, Fault fault, const std::string& command = "", long long bytes = 0) {
    FaultProxy::Options options;
    options.targetPort = server.port();
    options.fault = fault;
    options.command = command;
    options.bytes = bytes;
    return options;
}

std::unique_ptr<CNvSmtp> ClientThrough(const FaultProxy& proxy, const char* account = "user") {
    auto client = scripted::ClientFor(proxy.port(), account, "pass");
    UseSmallLimits(*client);
    return client;
}

}  // namespace

// A hang-up after a whole command: NvSmtpSession.LostConnectionGivesNotConnected.
TEST(NvSmtpFaultNetwork, HangUpInTheGreetingOrTheTextFailsThatStep) {
    SmtpTestServer& server = PlainServer();
    SKIP_WITHOUT_SMTP_SERVER(server);
    struct Case {
        const char* name;
        FaultProxy::Options options;
        const char* step;
        std::vector<int32_t> codes;
        bool delivered;
    };
    // Through the first bytes of the text, after every command before it.
    auto midText = Inject(server, Fault::CutAfterBytes);
    midText.upstream = true;
    for (const std::string& line : {Ehlo(), std::string("AUTH PLAIN AHVzZXIAcGFzcw=="),
                                     std::string("MAIL FROM: <sender@example.org>"),
                                     std::string("RCPT TO: <rcpt@example.org>"), std::string("DATA")})
        midText.bytes += static_cast<long long>(line.size() + 2);
    midText.bytes += 5;
    const Case cases[] = {
        {"after the greeting", Inject(server, Fault::CutAfterBytes, "", 10), "connect",
         {CNvSmtp::kNoReplyCode}, false},
        {"in the text", midText, "data", {CNvSmtp::kNoCompleteReply, CNvSmtp::kPlainWriteFailed}, false},
        // The server has the mail, the client cannot know: it must count as failed.
        {"after the final dot", Inject(server, Fault::CutAfterCommand, "."), "data", {CNvSmtp::kNoCompleteReply},
         true},
    };
    size_t delivered = server.messages().size();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FaultProxy proxy(c.options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy);
        Outcome outcome;
        const long ms = ElapsedMs([&] { outcome = RunTransaction(*client); });
        EXPECT_EQ(outcome.step, c.step);
        EXPECT_NE(std::find(c.codes.begin(), c.codes.end(), outcome.code), c.codes.end()) << outcome.code;
        EXPECT_FALSE(client->IsConnected());
        EXPECT_LT(ms, static_cast<long>(kCommandMs + kDataMs) + kSlackMs);
        if (c.delivered) ++delivered;
        EXPECT_EQ(server.waitForMessages(delivered, c.delivered ? 3000 : 0), true);
        EXPECT_EQ(server.messages().size(), delivered);
    }
}

TEST(NvSmtpFaultNetwork, SilenceUnderEachLimitEndsAtThatLimit) {
    SmtpTestServer& server = PlainServer();
    SKIP_WITHOUT_SMTP_SERVER(server);
    struct Case {
        const char* command;
        const char* step;
        uint32_t limitMs;
    };
    const Case cases[] = {
        {"MAIL", "mail", kCommandMs}, {"AUTH", "connect", kAuthMs}, {".", "data", kDataMs},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        FaultProxy proxy(Inject(server, Fault::StallAfterCommand, c.command));
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy);
        Outcome outcome;
        const long ms = ElapsedMs([&] { outcome = RunTransaction(*client); });
        EXPECT_EQ(outcome.step, c.step);
        EXPECT_EQ(outcome.code, CNvSmtp::kNoCompleteReply);
        // The stalled step waits out its own limit, then QUIT waits out one
        // command limit: the pass never takes longer than the limits add up to.
        EXPECT_GE(ms, static_cast<long>(c.limitMs));
        EXPECT_LT(ms, static_cast<long>(c.limitMs + kCommandMs) + kSlackMs);
    }
}

// 5 ms a byte: every line of the EHLO reply gets the whole 600 ms limit again,
// so a reply longer than one limit still comes through. 50 ms a byte: the
// greeting alone is slower than its 300 ms and is lost, with no code.
TEST(NvSmtpFaultNetwork, DrippedRepliesAreTimedPerLine) {
    SmtpTestServer& server = PlainServer();
    SKIP_WITHOUT_SMTP_SERVER(server);
    for (const auto& [interval, limitMs, want] :
         {std::tuple{0.005, 600u, 0}, std::tuple{0.05, kCommandMs, int(CNvSmtp::kNoReplyCode)}}) {
        SCOPED_TRACE(interval);
        auto options = Inject(server, Fault::Drip);
        options.intervalSeconds = interval;
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy, "");
        client->m_connectTimeout = client->m_commandTimeout = limitMs;
        int32_t result = -1;
        const long ms = ElapsedMs([&] { result = client->Connect(); });
        EXPECT_EQ(result, want);
        if (want == 0) EXPECT_GT(ms, static_cast<long>(limitMs));
        else EXPECT_LT(ms, static_cast<long>(2 * limitMs) + kSlackMs);
        client->Quit();
    }
}

TEST(NvSmtpFaultReplies, EndlessLineWithoutEndKeepsMemoryBounded) {
    // The read buffer is what a line without end makes grow.
    struct Client : CNvSmtp {
        uint32_t capacity() const { return m_capacity; }
    };
    // Bytes without a line end for the whole limit: the buffer grows by 1 KiB
    // steps, each a copy, so the limit bounds the memory as well as the time.
    std::string flood(32u << 20, 'x');
    scripted::Peer peer({Say("220 x"), Hear(), Say("250 x"), Hear(), SayRaw(flood), scripted::Hangup()});
    Client client;
    client.SetHost("127.0.0.1");
    client.m_port = peer.port();
    UseSmallLimits(client);
    ASSERT_EQ(client.Connect(), 0);
    const long ms = ElapsedMs([&] { EXPECT_EQ(client.MailFrom("s@x"), CNvSmtp::kNoCompleteReply); });
    EXPECT_LT(ms, static_cast<long>(kCommandMs) + kSlackMs);
    EXPECT_GT(client.capacity(), 0u);
    EXPECT_LT(client.capacity(), 64u << 20);
    client.Quit();
    peer.lines();
}

// A broken handshake from the first byte: NvSmtpTls.FailedHandshakeClosesTheSessionAndSendsNothingInTheClear.
TEST(NvSmtpFaultTls, BrokenHandshakeAfterStartTlsSendsNothingInTheClear) {
    scripted::Peer peer({Say("220 x"), Hear(), Say("250-x\r\n250-STARTTLS\r\n250 AUTH PLAIN"), Hear(),
                         Say("220 go"), SayRaw("this is no handshake\r\n"), scripted::Pause(300),
                         scripted::Hangup()});
    auto client = scripted::ClientFor(peer.port(), "user", "pass");
    UseSmallLimits(*client);
    EXPECT_EQ(client->Connect(), CNvSmtp::kHandshakeFailed);
    EXPECT_EQ(client->m_secure, 1);
    const Lines lines = peer.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 2), (Lines{Ehlo(), "STARTTLS"}));
    for (const std::string& line : lines) {
        EXPECT_EQ(line.find("AUTH"), std::string::npos) << line;
        EXPECT_NE(line, "QUIT");
    }
}

TEST(NvSmtpFaultAuth, HostileCramMd5ChallengesAreAnswered) {
    struct Case {
        const char* name;
        std::string challenge;
    };
    const Case cases[] = {
        {"not base64", "334 !!not*base64 at all"},
        {"empty", "334"},
        {"64 KB", "334 " + std::string(64 * 1024, 'Q')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer({Say("220 x"), Hear(), Say("250 AUTH CRAM-MD5"), Hear(), Say(c.challenge), Hear(),
                             Say("535 no"), Hear(), Say("221 bye")});
        auto client = scripted::ClientFor(peer.port(), "user", "pass");
        UseSmallLimits(*client);
        EXPECT_EQ(client->Connect(), CNvSmtp::kAuthRefused);
        const Lines lines = peer.lines();
        ASSERT_EQ(lines.size(), 4u);
        // One answer of the fixed form: base64 of the account, a blank and 32 hex digits.
        EXPECT_EQ(lines[2].size(), 52u) << lines[2];
        EXPECT_EQ(lines[3], "QUIT");
    }
}
