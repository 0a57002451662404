// NvMailDeliveryTest.cpp - real-world messages loaded, composed and sent to a real
// server; what arrives is read back with Python's email package
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

#include "mail/MailTestEnv.h"
#include "mail/NvMail.h"
#include "smtp/NvSmtp.h"
#include "support/SmtpTestServer.h"

namespace {

// The stored message as a producer writes it: control headers in front, in
// the message's own line ending.
std::string QueueFileOf(const std::string& message) {
    const std::string eol = message.find("\r\n") != std::string::npos ? "\r\n" : "\n";
    std::string text;
    for (const char* field : {"Host: 127.0.0.1", "Port: 25", "Account: nobody",
                              "Password: 0102030405", "Secure: FALSE"})
        text += "X-NvQueueService-RemoveBeforeSending-" + std::string(field) + eol;
    return text + message;
}

std::string Hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) out += {digits[c >> 4], digits[c & 15]};
    return out;
}

std::string Utf8(CNvcStringW& text) {
    CNvcString out;
    WideToUtf8(text.GetData(), out);
    return out.GetData();
}

// Only what a conforming server takes: plain addresses, at least one
// recipient, and no composed line over 998 bytes (an attachment copied as it
// was stored may hold one, or bare LF line ends that make one).
bool Deliverable(CNvMail& mail, std::string& recipients) {
    static const std::regex plain("[A-Za-z0-9._%+=-]+@[A-Za-z0-9.-]+");
    const auto IsPlainAddress = [](const std::string& address) { return std::regex_match(address, plain); };
    if (!IsPlainAddress(Utf8(mail.m_fromAddress))) return false;
    recipients.clear();
    for (auto* list : {&mail.m_to, &mail.m_cc, &mail.m_bcc}) {
        for (MailAddress* entry : *list) {
            const std::string address = Utf8(entry->m_address);
            if (!IsPlainAddress(address)) return false;
            recipients += (recipients.empty() ? "" : " ") + address;
        }
    }
    if (recipients.empty()) return false;
    mail.Compose();
    CNvcString text;
    mail.GetMimeText(text);
    // Lines as the server counts them: up to CR LF, bare LFs included.
    const std::string data = text.GetData();
    for (size_t at = 0, end; at < data.size(); at = end + 2) {
        end = data.find("\r\n", at);
        if (end == std::string::npos) end = data.size();
        if (end - at > 990) return false;
    }
    return true;
}

TEST(NvMailDelivery, CorpusMessagesArriveAsComposedWithoutControlHeaders) {
    SKIP_WITHOUT_SHARED_DIR();
    const std::vector<std::string> files = testsupport::CorpusFiles();
    if (files.empty()) GTEST_SKIP() << "no corpus under the shared workspace";
    mailtest::ScratchRegistry registry;
    testsupport::TempDir dir;
    testsupport::SmtpTestServer server(dir.file("maildir"));
    SKIP_WITHOUT_SMTP_SERVER(server);

    CNvSmtp client;
    client.SetHost("127.0.0.1");
    client.m_port = server.port();
    std::string manifest;
    size_t sent = 0, unloadable = 0, skipped = 0;
    for (const std::string& file : files) {
        const std::string queueFile = dir.file("q" + std::to_string(sent + skipped + unloadable));
        testsupport::WriteFile(queueFile, QueueFileOf(testsupport::ReadFile(file)));
        CNvMail mail("CNvMail");
        if (mail.LoadFromFile(queueFile.c_str()) != 0) {
            ++unloadable;
            continue;
        }
        std::string recipients;
        if (!Deliverable(mail, recipients)) {
            ++skipped;
            continue;
        }
        ASSERT_EQ(0, client.Connect()) << file;
        const int32_t result = client.SendMail(mail);
        client.Quit();
        EXPECT_EQ(0, result) << file << ": " << client.m_lastResponse.GetData();
        if (result != 0) continue;
        ++sent;
        manifest += queueFile + "\t" + Hex(Utf8(mail.m_fromAddress)) + "\t" + Hex(recipients) +
                    "\t" + Hex(Utf8(mail.m_plainBody)) + "\t" + Hex(Utf8(mail.m_htmlBody)) + "\t" +
                    std::to_string(mail.m_attachments.size()) + "\n";
    }
    std::printf("corpus: %zu sent, %zu not deliverable as they are, %zu not loadable\n", sent,
                skipped, unloadable);
    EXPECT_EQ(0u, unloadable);
    ASSERT_GT(sent, files.size() / 4);
    ASSERT_TRUE(server.waitForMessages(sent, 30000));
    const std::string manifestPath = dir.file("manifest.tsv");
    testsupport::WriteFile(manifestPath, manifest);
    const int status = std::system((std::string("/usr/bin/python3 ") + TELMORAQ_SOURCE_DIR +
                                    "/tests/mail/check_delivered.py " + manifestPath + " " +
                                    dir.file("maildir") + " > " + dir.file("report") + " 2>&1")
                                       .c_str());
    EXPECT_EQ(0, status) << testsupport::ReadFile(dir.file("report"));
}

}  // namespace
