// NvSmtpTlsTest.cpp - the session through TLS against scripted peers: from the
// first byte, after STARTTLS, and a handshake that fails
#include <gtest/gtest.h>

#include <algorithm>

#include "ScriptedSession.h"
#include "ScriptedSmtpPeer.h"
#include "smtp/NvSmtp.h"

using namespace scripted;
using Lines = std::vector<std::string>;

namespace {

std::vector<Step> UpgradedThen(const std::string& secondReply, std::vector<Step> rest) {
    std::vector<Step> script = {Say("220 x"), Hear(), Say("250-x\r\n250-STARTTLS\r\n250 AUTH CRAM-MD5"), Hear(),
                                Say("220 go ahead"), scripted::StartTls(), Hear(), Say(secondReply)};
    script.insert(script.end(), rest.begin(), rest.end());
    script.push_back(Hear());
    script.push_back(Say("221 bye"));
    return script;
}

}  // namespace

// A long text with dots at every offset of the records, ending without a line
// end: stuffed once across records, and the line end added before the final dot.
TEST(NvSmtpTls, FromTheFirstByteNoStartTlsGoesOut) {
    const std::string text = scripted::LongTextWithDots() + "end";
    scripted::Peer peer({Say("220 x"), Hear(), Say("250-x\r\n250-STARTTLS\r\n250 AUTH PLAIN"), Hear(), Say("235 ok"),
                         Hear(), Say("354 go"), HearData(), Say("250 queued"), Hear(), Say("221 bye")},
                        true);
    auto client = scripted::ClientFor(peer.port(), "user", "pass");
    client->m_secure = 1;
    ASSERT_EQ(client->Connect(), 0);
    EXPECT_EQ(client->SendData(text.c_str()), 0);
    client->Quit();
    Lines lines = peer.lines();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(lines[4] == scripted::StuffedData(text)) << "the data differ";
    lines[4] = "<data>";
    EXPECT_EQ(lines, (Lines{"[TLS]", Ehlo(), "AUTH PLAIN AHVzZXIAcGFzcw==", "DATA", "<data>", "QUIT"}));
    EXPECT_EQ(client->m_secure, 1);
}

TEST(NvSmtpTls, StartTlsUpgradesAndHelloRunsAgain) {
    struct Case {
        const char* name;
        std::string secondReply;
        std::vector<Step> more;
        Lines afterTls;
        int32_t method;
    };
    const Case cases[] = {
        {"no method in the second reply keeps the first", "250 x", {}, {Ehlo(), "QUIT"}, CNvSmtp::kAuthCramMd5},
        {"a method in the second reply overwrites", "250-x\r\n250 AUTH LOGIN", {}, {Ehlo(), "QUIT"},
         CNvSmtp::kAuthLogin},
        {"EHLO refused inside TLS falls back to HELO", "500 no", {Hear(), Say("250 ok")}, {Ehlo(), Helo(), "QUIT"},
         CNvSmtp::kAuthPlain},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testsupport::TempDir dir;
        scripted::Peer peer(UpgradedThen(c.secondReply, c.more));
        auto client = scripted::ClientFor(peer.port());
        client->SetTraceFile(dir.file("trace.log").c_str());
        ASSERT_EQ(client->Connect(), 0);
        EXPECT_EQ(client->m_secure, 1);
        EXPECT_EQ(client->m_authMethod, c.method);
        client->Quit();
        Lines want = {Ehlo(), "STARTTLS", "[TLS]"};
        want.insert(want.end(), c.afterTls.begin(), c.afterTls.end());
        EXPECT_EQ(peer.lines(), want);
        const Lines trace = scripted::TraceLines(dir.file("trace.log"));
        const auto reinit = std::find(trace.begin(), trace.end(), "Re-initialize session");
        ASSERT_NE(reinit, trace.end());
        EXPECT_EQ(*(reinit + 1), "Command: [" + Ehlo() + "]");
    }
}

TEST(NvSmtpTls, FailedHandshakeClosesTheSessionAndSendsNothingInTheClear) {
    struct Case {
        const char* name;
        std::vector<Step> script;
        bool disconnectedLine;  // only a socket still open is closed with its trace line
    };
    const std::string fatalAlert("\x15\x03\x03\x00\x02\x02\x28", 7);
    const Case cases[] = {
        {"server refuses the handshake: QUIT cannot go out, the session closes", {scripted::SayRaw(fatalAlert)}, true},
        {"server hangs up: the socket is gone already, no QUIT, no line", {scripted::Hangup()}, false},
        // Read as the head of a huge record: the handshake waits for the rest until the hang-up.
        {"plain greeting where the server's hello belongs",
         {Say("220 plain text"), scripted::Pause(200), scripted::Hangup()}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testsupport::TempDir dir;
        scripted::Peer peer(c.script);
        auto client = scripted::ClientFor(peer.port(), "user", "pass");
        client->SetTraceFile(dir.file("trace.log").c_str());
        client->m_secure = 1;
        EXPECT_EQ(client->Connect(), CNvSmtp::kHandshakeFailed);
        EXPECT_FALSE(client->IsConnected());
        // Whatever left was handshake bytes: no line of the dialogue.
        for (const std::string& line : peer.lines()) EXPECT_EQ(line.find("AUTH"), std::string::npos) << line;
        const Lines trace = scripted::TraceLines(dir.file("trace.log"));
        ASSERT_GE(trace.size(), 2u);
        const std::string connectLine = "Connect to: [127.0.0.1:" + std::to_string(peer.port()) + "]";
        const Lines want = c.disconnectedLine ? Lines{"Perform secure handshake failed", "Disconnected"}
                                              : Lines{connectLine, "Perform secure handshake failed"};
        EXPECT_EQ(Lines(trace.end() - 2, trace.end()), want);
    }
}
