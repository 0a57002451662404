// NvSmtpFaultTest.cpp - the SMTP client under network faults: a server that
// hangs up or falls silent at each step, dripped replies,
// garbage replies, 421 and hang-up, broken TLS, hostile CRAM-MD5 challenges.
// Every case must end within the limits it was given with a failure code, and
// no credentials or text may leave in the clear after a failed handshake.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>

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
SmtpTestServer& PlainServer(const std::string& mode = "plain") {
    static testsupport::TempDir dir;
    static SmtpTestServer plain(dir.file("plain"), {SmtpTestServer::Mode::Plain, {{"user", "pass"}}, false});
    static SmtpTestServer tls(dir.file("tls"), {SmtpTestServer::Mode::Tls, {{"user", "pass"}}, false});
    return mode == "tls" ? tls : plain;
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

TEST(NvSmtpFaultNetwork, HangUpAtEachStepFailsThatStep) {
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
        {"after EHLO", Inject(server, Fault::CutAfterCommand, "EHLO"), "connect", {CNvSmtp::kNoCompleteReply}, false},
        {"after AUTH", Inject(server, Fault::CutAfterCommand, "AUTH"), "connect", {CNvSmtp::kNoCompleteReply}, false},
        {"after MAIL", Inject(server, Fault::CutAfterCommand, "MAIL"), "mail", {CNvSmtp::kNoCompleteReply}, false},
        {"after RCPT", Inject(server, Fault::CutAfterCommand, "RCPT"), "rcpt", {CNvSmtp::kNoCompleteReply}, false},
        {"after DATA", Inject(server, Fault::CutAfterCommand, "DATA"), "data", {CNvSmtp::kNoCompleteReply}, false},
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

TEST(NvSmtpFaultNetwork, SilenceAtEachStepEndsAtThatStepsLimit) {
    SmtpTestServer& server = PlainServer();
    SKIP_WITHOUT_SMTP_SERVER(server);
    struct Case {
        const char* command;
        const char* step;
        uint32_t limitMs;
    };
    const Case cases[] = {
        {"EHLO", "connect", kCommandMs}, {"AUTH", "connect", kAuthMs}, {"MAIL", "mail", kCommandMs},
        {"RCPT", "rcpt", kCommandMs},    {"DATA", "data", kCommandMs}, {".", "data", kDataMs},
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

TEST(NvSmtpFaultNetwork, DrippedRepliesAreTimedPerLine) {
    SmtpTestServer& server = PlainServer();
    SKIP_WITHOUT_SMTP_SERVER(server);
    {
        SCOPED_TRACE("each line within its limit: the slow session succeeds");
        auto options = Inject(server, Fault::Drip);
        options.intervalSeconds = 0.005;
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy, "");
        // Every line of the EHLO reply gets the whole limit again, so a reply
        // longer than one limit still comes through.
        client->m_connectTimeout = client->m_commandTimeout = 600;
        int32_t result = -1;
        const long ms = ElapsedMs([&] { result = client->Connect(); });
        EXPECT_EQ(result, 0);
        EXPECT_GT(ms, 600);
        client->Quit();
    }
    {
        SCOPED_TRACE("a greeting slower than its limit is lost, with no code");
        auto options = Inject(server, Fault::Drip);
        options.intervalSeconds = 0.05;
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy, "");
        int32_t result = 0;
        const long ms = ElapsedMs([&] { result = client->Connect(); });
        EXPECT_EQ(result, CNvSmtp::kNoReplyCode);
        EXPECT_LT(ms, static_cast<long>(2 * kCommandMs) + kSlackMs);
    }
}

TEST(NvSmtpFaultReplies, GarbageRepliesGiveTheirCodes) {
    struct Case {
        const char* name;
        std::string reply;
        int32_t result;  // of MAIL FROM
        int32_t code;
    };
    const std::string megabyte(1u << 20, '2');
    const Case cases[] = {
        {"a lone digit, then hang-up", "2\r\n", CNvSmtp::kNoCompleteReply, 0},
        {"an empty line, then hang-up", "\r\n", CNvSmtp::kNoCompleteReply, 0},
        {"a code above 599 is passed on as refusal", "600 what\r\n", 600, 600},
        {"a zero byte cuts the line; the rest is lost", std::string("25\0000 ok\r\n", 9), CNvSmtp::kNoCompleteReply, 0},
        {"CR CR LF ends no line", "250 ok\r\r\n", CNvSmtp::kNoCompleteReply, 0},
        {"a megabyte without line end", megabyte, CNvSmtp::kNoCompleteReply, 0},
        {"a two-digit code with a blank fourth character ends the reply", "25x ok\r\n", 25, 25},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer({Say("220 x"), Hear(), Say("250 x"), Hear(), SayRaw(c.reply), scripted::Pause(400),
                             scripted::Hangup()});
        auto client = scripted::ClientFor(peer.port());
        UseSmallLimits(*client);
        ASSERT_EQ(client->Connect(), 0);
        int32_t result = 0;
        const long ms = ElapsedMs([&] { result = client->MailFrom("s@x"); });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(client->m_lastCode, c.code);
        EXPECT_LT(ms, static_cast<long>(kCommandMs) + kSlackMs);
        client->Quit();
        peer.lines();
    }
}

TEST(NvSmtpFaultReplies, GarbageGreetingsAreRefused) {
    struct Case {
        const char* name;
        std::string greeting;
        int32_t result;
    };
    const Case cases[] = {
        {"600", "600 hello\r\n", CNvSmtp::kUnmappedGreeting},
        {"no digits", "hello\r\n", CNvSmtp::kNoReplyCode},
        {"continuation with another code ends on 421", "220-a\r\n421 b\r\n", -421},
        {"zero byte at the start", std::string("\000220 x\r\n", 8), CNvSmtp::kNoReplyCode},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer({SayRaw(c.greeting), Hear(), Say("221 bye")});
        auto client = scripted::ClientFor(peer.port());
        UseSmallLimits(*client);
        EXPECT_EQ(client->Connect(), c.result);
        EXPECT_FALSE(client->IsConnected());
        peer.lines();
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
    RecordProperty("line_buffer_kb", static_cast<int>(client.capacity() / 1024));
    EXPECT_GT(client.capacity(), 0u);
    EXPECT_LT(client.capacity(), 64u << 20);
    client.Quit();
    flood.clear();
    peer.lines();
}

TEST(NvSmtpFaultReplies, Reply421ThenHangUpAtEachCommand) {
    struct Case {
        const char* name;
        std::vector<Step> script;
        Outcome want;
    };
    // The whole dialogue up to the end of the text; each case cuts it after `steps`.
    const std::vector<Step> dialogue = {Say("220 x"), Hear(), Say("250 x"), Hear(), Say("250 ok"),
                                        Hear(), Say("250 ok"), Hear(), Say("354 go"), scripted::HearData()};
    auto after = [&](size_t steps) {
        std::vector<Step> script(dialogue.begin(), dialogue.begin() + steps);
        script.push_back(Say("421 closing"));
        script.push_back(scripted::Hangup());
        return script;
    };
    const Case cases[] = {
        {"greeting", after(0), {"connect", -421}},
        // HELO follows on the closed connection and finds nobody.
        {"EHLO", after(2), {"connect", CNvSmtp::kNoCompleteReply}},
        {"MAIL", after(4), {"mail", 421}},
        {"RCPT", after(6), {"rcpt", 421}},
        {"DATA", after(8), {"data", 421}},
        {"end of text", after(10), {"data", 421}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer(c.script);
        auto client = scripted::ClientFor(peer.port());
        UseSmallLimits(*client);
        const Outcome outcome = RunTransaction(*client);
        EXPECT_EQ(outcome.step, c.want.step);
        EXPECT_EQ(outcome.code, c.want.code);
        EXPECT_FALSE(client->IsConnected());
        peer.lines();
    }
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

TEST(NvSmtpFaultTls, HandshakeCutAtEachFlightFails) {
    SmtpTestServer& server = PlainServer("tls");
    SKIP_WITHOUT_SMTP_SERVER(server);
    testsupport::TempDir dir;
    // The server's first flight runs well past a kilobyte with its certificate.
    for (long long cut : {0LL, 5LL, 100LL, 600LL, 1200LL}) {
        SCOPED_TRACE("server bytes before the cut: " + std::to_string(cut));
        auto options = Inject(server, Fault::CutAfterBytes, "", cut);
        options.recordFile = dir.file("up" + std::to_string(cut));
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy);
        client->m_secure = 1;
        int32_t result = 0;
        const long ms = ElapsedMs([&] { result = client->Connect(); });
        EXPECT_EQ(result, CNvSmtp::kHandshakeFailed);
        EXPECT_LT(ms, static_cast<long>(kCommandMs) + kSlackMs);
        const std::string sent = testsupport::ReadFile(options.recordFile);
        EXPECT_EQ(sent.find("EHLO"), std::string::npos);
        EXPECT_EQ(sent.find("AUTH"), std::string::npos);
    }
}

TEST(NvSmtpFaultTls, CorruptRecordMidTransactionFails) {
    SmtpTestServer& server = PlainServer("tls");
    SKIP_WITHOUT_SMTP_SERVER(server);
    testsupport::TempDir dir;
    // A clean run measures where the answers to DATA and to the final dot
    // start in the server's stream and the text in the client's; sessions with one certificate and no
    // resumption repeat the same sizes.
    const std::string down = dir.file("down"), up = dir.file("up");
    long long beforeData = 0, beforeDot = 0, beforeText = 0;
    {
        auto options = Inject(server, Fault::None);
        options.recordDownFile = down;
        options.recordFile = up;
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy);
        client->m_secure = 1;
        MailAddress to;
        to.m_address.Assign("rcpt@example.org");
        ASSERT_EQ(client->Connect(), 0);
        ASSERT_EQ(client->MailFrom("s@example.org"), 0);
        ASSERT_EQ(client->RcptTo({&to}), 0);
        beforeData = static_cast<long long>(testsupport::ReadFile(down).size());
        ASSERT_EQ(client->SendCommand("DATA", 0), 0);
        ASSERT_EQ(client->m_lastCode, 354);
        beforeDot = static_cast<long long>(testsupport::ReadFile(down).size());
        beforeText = static_cast<long long>(testsupport::ReadFile(up).size());
        ASSERT_EQ(client->SendCommand("Subject: x\r\n\r\nbody\r\n.", 0), 0);
        client->Quit();
    }
    const size_t delivered = server.messages().size();
    struct Case {
        const char* name;
        long long offset;
        bool upstream;
    };
    const Case cases[] = {
        {"answer to DATA", beforeData + 8, false},
        {"answer to the final dot", beforeDot + 8, false},
        {"the text itself, on its way to the server", beforeText + 8, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto options = Inject(server, Fault::Corrupt, "", c.offset);
        options.upstream = c.upstream;
        FaultProxy proxy(options);
        SKIP_WITHOUT_FAULT_PROXY(proxy);
        auto client = ClientThrough(proxy);
        client->m_secure = 1;
        Outcome outcome;
        const long ms = ElapsedMs([&] { outcome = RunTransaction(*client); });
        EXPECT_EQ(outcome.step, "data");
        EXPECT_NE(outcome.code, 0);
        EXPECT_LT(ms, static_cast<long>(kCommandMs + kDataMs) + kSlackMs);
    }
    // Only the case that broke the answer to the final dot lost no text.
    EXPECT_TRUE(server.waitForMessages(delivered + 1, 3000));
    EXPECT_EQ(server.messages().size(), delivered + 1);
}

TEST(NvSmtpFaultAuth, HostileCramMd5ChallengesAreAnswered) {
    struct Case {
        const char* name;
        std::string challenge;
    };
    const Case cases[] = {
        {"not base64", "334 !!not*base64 at all"},
        {"empty", "334"},
        {"empty after the blank", "334 "},
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
