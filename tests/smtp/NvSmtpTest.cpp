// NvSmtpTest.cpp - the SMTP session against scripted peers: replies, hello, STARTTLS
// choice, transaction steps, trace wording
#include "smtp/NvSmtp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "ScriptedSession.h"
#include "ScriptedSmtpPeer.h"
#include "mail/NvMail.h"
#include "support/SocketTestPeer.h"

using namespace scripted;
using Lines = std::vector<std::string>;

namespace {

std::vector<Step> Join(std::vector<Step> a, const std::vector<Step>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const std::vector<Step> kQuit = {Hear(), Say("221 bye")};

// A greeting, `ehlo` as the answer to EHLO, `rest`, then QUIT.
std::vector<Step> Opened(const std::vector<Step>& rest, const std::string& ehlo = "250 hi") {
    return Join(Join({Say("220 ready"), Hear(), Say(ehlo)}, rest), kQuit);
}

}  // namespace

// Rows that never end their reply run to the 300 ms limit of the command.
TEST(NvSmtpReply, ReadReplyKeepsEveryLineWithOneBlank) {
    struct Case {
        const char* name;
        std::string reply;
        const char* response;
        int32_t code;
        int32_t result;
    };
    const Case cases[] = {
        {"three digits", "250\r\n", "250 ", 250, 0},
        {"two-character line continues", "25\r\n250 ok\r\n", "25 250 ok ", 250, 0},
        {"codes of one reply are not compared", "550-a\r\n250 b\r\n", "550-a 250 b ", 250, 0},
        {"four characters without blank continue", "250x\r\n250 y\r\n", "250x 250 y ", 250, 0},
        {"two digits and a blank fourth character end it", "25x ok\r\n", "25x ok ", 25, 0},
        {"a code above 599 is taken", "600 what\r\n", "600 what ", 600, 0},
        {"no number", "abc def\r\n", "abc def ", 0, CNvSmtp::kNoCompleteReply},
        {"a cut reply", "250-first\r\n", "250-first ", 0, CNvSmtp::kNoCompleteReply},
        {"a zero byte cuts the line, the rest is lost", std::string("25\0000 ok\r\n", 9), "25 ", 0,
         CNvSmtp::kNoCompleteReply},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer(Opened({Hear(), SayRaw(c.reply)}));
        auto client = scripted::ClientFor(peer.port());
        ASSERT_EQ(client->Connect(), 0);
        EXPECT_EQ(client->SendCommand("NOOP", 300), c.result);
        EXPECT_STREQ(client->m_lastResponse.GetData(), c.response);
        EXPECT_EQ(client->m_lastCode, c.code);
        client->Quit();
        EXPECT_EQ(peer.lines(), (Lines{Ehlo(), "NOOP", "QUIT"}));
    }
}

TEST(NvSmtpReply, EndlessReplyStopsAtItsLimit) {
    std::string flood;
    while (flood.size() < (3u << 19)) flood += "250-" + std::string(16 * 1024, 'x') + "\r\n";
    scripted::Peer peer(Opened({Hear(), SayRaw(flood), scripted::Hangup()}));
    auto client = scripted::ClientFor(peer.port());
    ASSERT_EQ(client->Connect(), 0);
    EXPECT_EQ(client->SendCommand("NOOP", 0), CNvSmtp::kNoCompleteReply);
    EXPECT_LE(client->m_lastResponse.GetLength(), (1u << 20) + 16 * 1024 + 8);
    client->Quit();
    peer.lines();
}

TEST(NvSmtpConnect, DialoguesUpToAuthentication) {
    struct Case {
        const char* name;
        const char* account;
        std::vector<Step> script;
        int32_t result;
        Lines lines;
        int32_t method;
    };
    const std::string plainUserPass = "AUTH PLAIN AHVzZXIAcGFzcw==";
    const Case cases[] = {
        {"greeting 554 is refused without EHLO", "", Join({Say("554 no")}, kQuit), -554, {"QUIT"}, 0},
        {"greeting outside the map", "", Join({Say("299 odd")}, kQuit), CNvSmtp::kUnmappedGreeting, {"QUIT"}, 0},
        {"EHLO refused, HELO taken: PLAIN", "", Opened({Hear(), Say("250 ok")}, "500 what"), 0,
         {Ehlo(), Helo(), "QUIT"}, CNvSmtp::kAuthPlain},
        {"421 and hang-up after EHLO: HELO finds nobody, no QUIT", "",
         {Say("220 x"), Hear(), Say("421 closing"), scripted::Hangup()}, CNvSmtp::kNoCompleteReply, {Ehlo(), Helo()}, 0},
        {"EHLO and HELO refused", "", Opened({Hear(), Say("421 busy")}, "421 busy"), CNvSmtp::kHelloRefused,
         {Ehlo(), Helo(), "QUIT"}, 0},
        {"all three offered: PLAIN wins", "", Opened({}, "250-x\r\n250-AUTH LOGIN CRAM-MD5 PLAIN\r\n250 OK"), 0,
         {Ehlo(), "QUIT"}, CNvSmtp::kAuthPlain},
        {"CRAM-MD5 beats LOGIN", "", Opened({}, "250-x\r\n250 AUTH LOGIN CRAM-MD5"), 0, {Ehlo(), "QUIT"},
         CNvSmtp::kAuthCramMd5},
        {"login inside a host name counts", "", Opened({}, "250-mx.BlogIn.example\r\n250 SIZE 1000"), 0,
         {Ehlo(), "QUIT"}, CNvSmtp::kAuthLogin},
        {"STARTTLS on the last line is not seen", "", Opened({}, "250-x\r\n250 STARTTLS"), 0, {Ehlo(), "QUIT"}, 0},
        {"STARTTLS refused with 454: on in the clear, no EHLO", "user",
         Opened({Hear(), Say("454 not now"), Hear(), Say("235 ok")}, "250-x\r\n250-STARTTLS\r\n250 AUTH PLAIN"), 0,
         {Ehlo(), "STARTTLS", plainUserPass, "QUIT"}, CNvSmtp::kAuthPlain},
        {"nothing offered, account set: PLAIN", "user", Opened({Hear(), Say("235 ok")}, "250 x"), 0,
         {Ehlo(), plainUserPass, "QUIT"}, CNvSmtp::kAuthPlain},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        scripted::Peer peer(c.script);
        auto client = scripted::ClientFor(peer.port(), c.account, "pass");
        EXPECT_EQ(client->Connect(), c.result);
        EXPECT_EQ(client->IsConnected(), c.result == 0);
        client->Quit();
        EXPECT_EQ(peer.lines(), c.lines);
        EXPECT_EQ(peer.error(), "");
        EXPECT_EQ(client->m_authMethod, c.method);
    }
}

TEST(NvSmtpConnect, BadSettingsOrNoServerFailWithinTheConnectLimit) {
    testsupport::TempDir dir;
    const int closedPort = testsupport::LoopbackPeer().port();  // closed again at once
    struct Case {
        const char* name;
        const char* host;
        int32_t port;
        int32_t result;
        const char* line;
    };
    const Case cases[] = {
        {"no host", "", 25, CNvSmtp::kNoHost, "Invalid hostname"},
        {"negative port", "127.0.0.1", -1, CNvSmtp::kBadPort, "Invalid hostname"},
        {"port above 65536", "127.0.0.1", 65537, CNvSmtp::kBadPort, "Invalid hostname"},
        {"port 0 passes the check and fails at the connect", "127.0.0.1", 0, CNvSmtp::kConnectFailed,
         "Connect failed"},
        {"refused port", "127.0.0.1", closedPort, CNvSmtp::kConnectFailed, "Connect failed"},
        {"unknown host", "no-such-host.invalid", 25, CNvSmtp::kConnectFailed, "Connect failed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string trace = dir.file(std::string(c.name) + ".log");
        CNvSmtp client;
        client.SetTraceFile(trace.c_str());
        client.SetHost(c.host);
        client.m_port = c.port;
        client.m_connectTimeout = 300;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(client.Connect(), c.result);
        // Name resolution is outside the connect limit; with .invalid it still answers at once.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300 + 1500));
        EXPECT_FALSE(client.IsConnected());
        const Lines lines = scripted::TraceLines(trace);
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0], "Connect to: [" + std::string(c.host) + ":" + std::to_string(c.port) + "]");
        EXPECT_EQ(lines[1], c.line);
    }
}

TEST(NvSmtpTransaction, RecipientsAndData) {
    MailAddress a, b, c;
    a.m_address.Assign("a@x");
    b.m_address.Assign("b@x");
    c.m_address.Assign("c@x");
    struct Case {
        const char* name;
        std::vector<Step> steps;
        std::function<void(CNvSmtp&)> run;
        Lines lines;
    };
    const Case cases[] = {
        {"second of three refused: 550, no third, reset needed",
         {Hear(), Say("250 ok"), Hear(), Say("250 ok"), Hear(), Say("550 no such")},
         [&](CNvSmtp& client) {
             EXPECT_EQ(client.MailFrom("s@x"), 0);
             EXPECT_EQ(client.RcptTo({&a, &b, &c}), 550);
             EXPECT_EQ(client.m_resetNeeded, 1);
         },
         {Ehlo(), "MAIL FROM: <s@x>", "RCPT TO: <a@x>", "RCPT TO: <b@x>", "QUIT"}},
        {"empty list sends nothing; refused sender sets reset needed", {Hear(), Say("501 bad sender")},
         [](CNvSmtp& client) {
             EXPECT_EQ(client.RcptTo({}), 0);
             EXPECT_EQ(client.m_resetNeeded, 0);
             EXPECT_EQ(client.MailFrom("s@x"), 501);
             EXPECT_EQ(client.m_resetNeeded, 1);
         },
         {Ehlo(), "MAIL FROM: <s@x>", "QUIT"}},
        {"a 3xx reply counts as accepted; RSET clears",
         {Hear(), Say("399 odd but fine"), Hear(), Say("250 ok"), Hear(), Say("500 no")},
         [](CNvSmtp& client) {
             EXPECT_EQ(client.MailFrom("s@x"), 0);
             EXPECT_EQ(client.ResetSession(), 0);
             EXPECT_EQ(client.ResetSession(), 500);
         },
         {Ehlo(), "MAIL FROM: <s@x>", "RSET", "RSET", "QUIT"}},
        {"DATA refused", {Hear(), Say("554 no data")},
         [](CNvSmtp& client) {
             EXPECT_EQ(client.SendData("x"), 554);
             EXPECT_EQ(client.m_resetNeeded, 1);
         },
         {Ehlo(), "DATA", "QUIT"}},
        {"text refused: the code, reset needed unchanged", {Hear(), Say("354 go"), HearData(), Say("452 full")},
         [](CNvSmtp& client) {
             EXPECT_EQ(client.SendData("x"), 452);
             EXPECT_EQ(client.m_resetNeeded, 0);
         },
         {Ehlo(), "DATA", "x\r\n.\r\n", "QUIT"}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        scripted::Peer peer(Opened(k.steps));
        auto client = scripted::ClientFor(peer.port());
        ASSERT_EQ(client->Connect(), 0);
        k.run(*client);
        client->Quit();
        EXPECT_EQ(peer.lines(), k.lines);
    }
}

TEST(NvSmtpSession, ClosedSessionSendsAndTracesNothing) {
    testsupport::TempDir dir;
    CNvSmtp client;
    client.SetTraceFile(dir.file("trace.log").c_str());
    client.Quit();
    EXPECT_EQ(client.SendCommand("NOOP", 0), CNvSmtp::kNotConnected);
    EXPECT_EQ(client.ResetSession(), CNvSmtp::kNotConnected);
    EXPECT_EQ(testsupport::ReadFile(dir.file("trace.log")), "");
}

TEST(NvSmtpSession, LostConnectionGivesNotConnected) {
    scripted::Peer peer({Say("220 x"), Hear(), Say("250 x"), scripted::Hangup()});
    auto client = scripted::ClientFor(peer.port());
    ASSERT_EQ(client->Connect(), 0);
    EXPECT_EQ(client->SendCommand("NOOP", 0), CNvSmtp::kNoCompleteReply);
    EXPECT_EQ(client->SendCommand("NOOP", 0), CNvSmtp::kNotConnected);
    client->Quit();
}

// The text is long and full of dots, so it leaves in many pieces: a dot at a
// piece edge must be stuffed once, and the trace still shows one command.
TEST(NvSmtpSession, FullSessionWireAndTraceLineForLine) {
    testsupport::TempDir dir;
    const std::string trace = dir.file("trace.log");
    const std::string text = scripted::LongTextWithDots();
    scripted::Peer peer({Say("220 ready"), Hear(), Say("250-x\r\n250 AUTH PLAIN"), Hear(), Say("235 ok"), Hear(),
                         Say("250 ok"), Hear(), Say("250 ok"), Hear(), Say("354 go"), HearData(), Say("250 queued"),
                         Hear(), Say("221 bye")});
    auto client = scripted::ClientFor(peer.port(), "user", "pass");
    client->SetTraceFile(trace.c_str());
    ASSERT_EQ(client->Connect(), 0);
    ASSERT_EQ(client->MailFrom("s@x"), 0);
    MailAddress to;
    to.m_address.Assign("r@x");
    ASSERT_EQ(client->RcptTo({&to}), 0);
    ASSERT_EQ(client->SendData(text.c_str()), 0);
    client->Quit();
    Lines lines = peer.lines();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_TRUE(lines[5] == scripted::StuffedData(text)) << "the data differ";
    lines[5] = "<data>";
    EXPECT_EQ(lines, (Lines{Ehlo(), "AUTH PLAIN AHVzZXIAcGFzcw==", "MAIL FROM: <s@x>", "RCPT TO: <r@x>", "DATA",
                            "<data>", "QUIT"}));
    const std::string port = std::to_string(peer.port());
    EXPECT_EQ(scripted::TraceLines(trace),
              (Lines{"Connect to: [127.0.0.1:" + port + "]", "Response: [220 ready ]",
                     "Command: [" + Ehlo() + "]", "Response: [250-x 250 AUTH PLAIN ]",
                     "Using 'AUTH-PLAIN' SMTP authentication.", "Command: [AUTH PLAIN AHVzZXIAcGFzcw==]",
                     "Response: [235 ok ]", "Command: [MAIL FROM: <s@x>]", "Response: [250 ok ]",
                     "Command: [RCPT TO: <r@x>]", "Response: [250 ok ]", "Command: [DATA]", "Response: [354 go ]",
                     "Command: [<Message data>]", "Response: [250 queued ]", "Command: [QUIT]",
                     "Response: [221 bye ]", "Disconnected"}));
}
