// NvSmtpInteropTest.cpp - the client against a real SMTP server (aiosmtpd on
// loopback): three ways of transport, three AUTH methods, the text arriving intact
#include <gtest/gtest.h>

#include <string>

#include "ScriptedSession.h"
#include "smtp/NvSmtp.h"
#include "mail/NvMail.h"
#include "support/SmtpTestServer.h"

using testsupport::SmtpTestServer;

namespace {

// Dot lines of every kind, and no CR LF at the end: the client adds the one
// line end that the server keeps.
const char kText[] =
    "From: <alice@example.test>\r\nTo: <bob@example.test>\r\nSubject: dots\r\n\r\n"
    ".\r\n..two\r\n.x\r\n...\r\nmiddle . line\r\nlast line";

struct Mode {
    const char* name;
    SmtpTestServer::Mode mode;
    uint8_t secureFlag;
};

const Mode kModes[] = {
    {"in the clear", SmtpTestServer::Mode::Plain, 0},
    {"STARTTLS", SmtpTestServer::Mode::StartTls, 0},
    {"TLS from the first byte", SmtpTestServer::Mode::Tls, 1},
};

// Connects and authenticates by `method`; PLAIN is what the server's offer
// picks, the other two are asked for after a connect without an account.
int32_t ConnectWith(CNvSmtp& client, int32_t method, const char* password) {
    if (method == CNvSmtp::kAuthPlain) {
        client.m_account = "alice";
        client.m_password = password;
        return client.Connect();
    }
    const int32_t connected = client.Connect();
    if (connected != 0) return connected;
    client.m_account = "alice";
    client.m_password = password;
    client.m_authMethod = method;
    return client.Authenticate();
}

}  // namespace

// A wrong password first, with each method: refused with a reply, nothing delivered.
TEST(NvSmtpInterop, EveryTransportAndMethodRefusesAWrongPasswordAndDeliversTheTextIntact) {
    for (const Mode& mode : kModes) {
        SCOPED_TRACE(mode.name);
        testsupport::TempDir dir;
        SmtpTestServer::Options options;
        options.mode = mode.mode;
        options.users = {{"alice", "s3cret"}};
        options.authRequired = true;
        SmtpTestServer server(dir.file("mail"), options);
        SKIP_WITHOUT_SMTP_SERVER(server);
        size_t delivered = 0;
        for (int32_t method : {CNvSmtp::kAuthPlain, CNvSmtp::kAuthLogin, CNvSmtp::kAuthCramMd5}) {
            SCOPED_TRACE("auth method " + std::to_string(method));
            {
                auto wrong = scripted::ClientFor(server.port());
                wrong->m_secure = mode.secureFlag;
                EXPECT_EQ(ConnectWith(*wrong, method, "wrong"), CNvSmtp::kAuthRefused);
                wrong->Quit();
            }
            auto client = scripted::ClientFor(server.port());
            client->m_secure = mode.secureFlag;
            ASSERT_EQ(ConnectWith(*client, method, "s3cret"), 0) << client->m_lastResponse.GetData();
            EXPECT_EQ(client->m_secure, mode.mode == SmtpTestServer::Mode::Plain ? 0 : 1);
            MailAddress bob, carol;
            bob.m_address.Assign("bob@example.test");
            carol.m_address.Assign("carol@example.test");
            ASSERT_EQ(client->MailFrom("alice@example.test"), 0);
            ASSERT_EQ(client->RcptTo({&bob, &carol}), 0);
            ASSERT_EQ(client->SendData(kText), 0) << client->m_lastResponse.GetData();
            client->Quit();
            EXPECT_EQ(client->m_lastCode, 221);
            ASSERT_TRUE(server.waitForMessages(++delivered, 10000));
            const SmtpTestServer::Message got = server.messages().back();
            EXPECT_EQ(got.data, std::string(kText) + "\r\n");
            EXPECT_EQ(got.mailFrom, "alice@example.test");
            EXPECT_EQ(got.rcptTo, (std::vector<std::string>{"bob@example.test", "carol@example.test"}));
            EXPECT_EQ(got.authLogin, "alice");
        }
        EXPECT_EQ(server.messages().size(), delivered) << "a refused login delivered";
    }
}
