// NvSmtpAuthTest.cpp - the AUTH dialogues against scripted peers, and the CRAM-MD5
// digest against OpenSSL's HMAC
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <gtest/gtest.h>

#include <string>

#include "ScriptedSession.h"
#include "ScriptedSmtpPeer.h"
#include "foundation/NvcBase64.h"
#include "smtp/NvSmtp.h"

using namespace scripted;
using Lines = std::vector<std::string>;

namespace {

std::string Base64(const std::string& bytes) {
    CNvcBase64 codec;
    CNvcString out;
    codec.Encode(bytes.data(), bytes.size(), out);
    return out.GetData();
}

// Greeting and an EHLO reply offering `mechanisms`, then the AUTH steps, then QUIT.
std::vector<Step> Offering(const std::string& mechanisms, std::vector<Step> auth) {
    std::vector<Step> script = {Say("220 x"), Hear(), Say("250-x\r\n250 AUTH " + mechanisms)};
    script.insert(script.end(), auth.begin(), auth.end());
    script.push_back(Hear());
    script.push_back(Say("221 bye"));
    return script;
}

std::string HmacMd5Hex(const std::string& key, const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_md5(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(text.data()),
         text.size(), digest, &length);
    std::string hex;
    char pair[3];
    for (unsigned int i = 0; i < length; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}

struct Dialogue {
    const char* name;
    const char* account;
    std::string password;
    std::vector<Step> script;
    int32_t result;
    Lines lines;
};

void RunDialogues(const std::vector<Dialogue>& dialogues) {
    for (const Dialogue& d : dialogues) {
        SCOPED_TRACE(d.name);
        scripted::Peer peer(d.script);
        auto client = scripted::ClientFor(peer.port(), d.account, d.password.c_str());
        EXPECT_EQ(client->Connect(), d.result);
        client->Quit();
        EXPECT_EQ(peer.lines(), d.lines);
        EXPECT_EQ(peer.error(), "");
    }
}

const std::string kUsernamePrompt = "334 " + Base64("Username:");
const std::string kPasswordPrompt = "334 " + Base64("Password:");

}  // namespace

TEST(NvSmtpAuth, PlainDialogues) {
    const std::string block = "AUTH PLAIN " + Base64(std::string("\0user\0pass", 10));
    const std::string account(1000, 'a'), password(1046, 'p');  // a block of 2048 bytes
    RunDialogues({
        {"504 is not implemented", "user", "pass", Offering("PLAIN", {Hear(), Say("504 no")}),
         CNvSmtp::kAuthNotImplemented, {Ehlo(), block, "QUIT"}},
        {"empty password keeps both zero bytes", "user", "", Offering("PLAIN", {Hear(), Say("235 ok")}), 0,
         {Ehlo(), "AUTH PLAIN " + Base64(std::string("\0user\0", 6)), "QUIT"}},
        {"empty account: no AUTH line", "", "pass", Offering("PLAIN", {}), 0, {Ehlo(), "QUIT"}},
        {"a block of 2048 bytes passes", account.c_str(), password, Offering("PLAIN", {Hear(), Say("235 ok")}), 0,
         {Ehlo(), "AUTH PLAIN " + Base64('\0' + account + '\0' + password), "QUIT"}},
        {"one byte more gives -2 without a line", account.c_str(), password + "p", Offering("PLAIN", {}),
         CNvSmtp::kPlainTooLong, {Ehlo(), "QUIT"}},
    });
}

TEST(NvSmtpAuth, LoginDialogues) {
    const std::string user = Base64("user"), pass = Base64("pass");
    RunDialogues({
        {"prompts in another case and with more words pass", "user", "pass",
         Offering("LOGIN", {Hear(), Say("334 " + Base64("your USERNAME: please")), Hear(),
                            Say("334 " + Base64("password:")), Hear(), Say("235 ok")}),
         0, {Ehlo(), "AUTH LOGIN", user, pass, "QUIT"}},
        {"a prompt in other words ends it without a line", "user", "pass",
         Offering("LOGIN", {Hear(), Say("334 " + Base64("Who are you?"))}), CNvSmtp::kAuthRefused,
         {Ehlo(), "AUTH LOGIN", "QUIT"}},
        {"a wrong second prompt ends it after the account", "user", "pass",
         Offering("LOGIN", {Hear(), Say(kUsernamePrompt), Hear(), Say("334 " + Base64("Secret:"))}),
         CNvSmtp::kAuthRefused, {Ehlo(), "AUTH LOGIN", user, "QUIT"}},
        {"504 is not implemented", "user", "pass", Offering("LOGIN", {Hear(), Say("504 no")}),
         CNvSmtp::kAuthNotImplemented, {Ehlo(), "AUTH LOGIN", "QUIT"}},
    });
}

TEST(NvSmtpAuth, CramMd5Dialogues) {
    RunDialogues({
        {"535 to the command is handed up as it is", "tim", "x", Offering("CRAM-MD5", {Hear(), Say("535 no")}), 535,
         {Ehlo(), "AUTH CRAM-MD5", "QUIT"}},
        {"504 to the command is not implemented", "tim", "x", Offering("CRAM-MD5", {Hear(), Say("504 no")}),
         CNvSmtp::kAuthNotImplemented, {Ehlo(), "AUTH CRAM-MD5", "QUIT"}},
    });
}

TEST(NvSmtpAuth, CramMd5DigestMatchesHmacForEveryKeyLength) {
    const std::string challenge = "<4711.1234567890@example.test>";
    for (size_t length : {0, 1, 16, 63, 64, 65, 100, 300}) {
        SCOPED_TRACE("password of " + std::to_string(length) + " bytes");
        std::string password;
        for (size_t i = 0; i < length; ++i) password += static_cast<char>('!' + (i * 7) % 90);
        scripted::Peer peer(Offering("CRAM-MD5", {Hear(), Say("334 " + Base64(challenge)), Hear(), Say("235 ok")}));
        auto client = scripted::ClientFor(peer.port(), "me", password.c_str());
        EXPECT_EQ(client->Connect(), 0);
        client->Quit();
        ASSERT_EQ(peer.lines().size(), 4u);
        EXPECT_EQ(peer.lines()[2], Base64("me " + HmacMd5Hex(password, challenge)));
    }
}

TEST(NvSmtpAuth, MethodCarriesOverToTheNextConnection) {
    auto client = scripted::ClientFor(0, "", "x");
    {
        scripted::Peer first(Offering("CRAM-MD5", {}));
        client->m_port = first.port();
        ASSERT_EQ(client->Connect(), 0);
        client->Quit();
        first.lines();
    }
    const std::string challenge = "<1.2@x>";
    scripted::Peer second({Say("220 x"), Hear(), Say("250 nothing offered"), Hear(), Say("334 " + Base64(challenge)),
                           Hear(), Say("235 ok"), Hear(), Say("221 bye")});
    client->m_port = second.port();
    client->m_account = "me";
    EXPECT_EQ(client->Connect(), 0);
    client->Quit();
    EXPECT_EQ(second.lines(), (Lines{Ehlo(), "AUTH CRAM-MD5", Base64("me " + HmacMd5Hex("x", challenge)), "QUIT"}));
}

TEST(NvSmtpAuth, TraceNamesTheMethodAndTheSuccess) {
    struct Case {
        const char* name;
        std::vector<Step> script;
        Lines own;  // the trace without "Connect to", "Command" and "Response" lines
    };
    const Case cases[] = {
        {"PLAIN has no success line", Offering("PLAIN", {Hear(), Say("235 ok")}),
         {"Using 'AUTH-PLAIN' SMTP authentication.", "Disconnected"}},
        {"LOGIN", Offering("LOGIN", {Hear(), Say(kUsernamePrompt), Hear(), Say(kPasswordPrompt), Hear(), Say("235 ok")}),
         {"Using 'AUTH-LOGIN' SMTP authentication.",
          "Successfully authenticated using 'AUTH-LOGIN' SMTP authentication.", "Disconnected"}},
        {"CRAM-MD5", Offering("CRAM-MD5", {Hear(), Say("334 " + Base64("<1.2@x>")), Hear(), Say("235 ok")}),
         {"Using 'AUTH-CRAM-MD5' SMTP authentication.", "Successfully authenticated.", "Disconnected"}},
        {"refused: the failure line, then QUIT", Offering("PLAIN", {Hear(), Say("535 no")}),
         {"Using 'AUTH-PLAIN' SMTP authentication.", "Send authentication failed", "Disconnected"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testsupport::TempDir dir;
        scripted::Peer peer(c.script);
        auto client = scripted::ClientFor(peer.port(), "user", "pass");
        client->SetTraceFile(dir.file("trace.log").c_str());
        client->Connect();
        client->Quit();
        peer.lines();
        Lines own;
        for (const std::string& line : scripted::TraceLines(dir.file("trace.log")))
            if (line.rfind("Connect to: ", 0) != 0 && line.rfind("Command: ", 0) != 0 &&
                line.rfind("Response: ", 0) != 0)
                own.push_back(line);
        EXPECT_EQ(own, c.own);
    }
}
