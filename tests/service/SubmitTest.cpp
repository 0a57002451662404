// SubmitTest.cpp - the producer's queue file read back the way the service reads it
#include "QueueFileWriter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "foundation/NvcString.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

TEST(Submit, TheScrambleIsUndoneByTheServiceForEveryKeyAndByte) {
    std::string every;
    for (int c = 1; c < 256; ++c) every += static_cast<char>(c);
    const unsigned char keys[3][3] = {{0, 0, 0}, {0xFF, 0x80, 0x01}, {0x12, 0xAB, 0xFE}};
    for (const auto& key : keys) {
        for (const std::string& password : {std::string("p"), std::string("s3cr3t pw"), every}) {
            CNvcString text = ScramblePassword(password, key).c_str();
            EXPECT_EQ(std::string(text.Unscramble().GetData()), password);
        }
    }
    const unsigned char key[3] = {1, 2, 3};
    EXPECT_EQ(ScramblePassword("", key), "");
}

TEST(Submit, ControlHeadersReplaceEarlierOnesAndFollowTheMessagesLineEnds) {
    DeliverySettings settings;
    settings.host = "smtp.example.test";
    settings.port = 2525;
    settings.secure = true;
    const unsigned char key[3] = {9, 9, 9};
    const std::string message =
        "X-NvQueueService-RemoveBeforeSending-Host: old\n\tcontinued\nSubject: s\n"
        "x-nvqueueservice-removebeforesending-port: 1\n\nX-NvQueueService-RemoveBeforeSending-Host: body\n";
    const std::string out = WithControlHeaders(message, settings, key);
    EXPECT_EQ(out,
              "X-NvQueueService-RemoveBeforeSending-Host: smtp.example.test\n"
              "X-NvQueueService-RemoveBeforeSending-Port: 2525\n"
              "X-NvQueueService-RemoveBeforeSending-Account: \n"
              "X-NvQueueService-RemoveBeforeSending-Password: \n"
              "X-NvQueueService-RemoveBeforeSending-Secure: TRUE\n"
              "Subject: s\n\nX-NvQueueService-RemoveBeforeSending-Host: body\n");
    EXPECT_NE(WithControlHeaders("Subject: s\r\n\r\nb", settings, key).find("Secure: TRUE\r\nSubject"),
              std::string::npos);
}

TEST(Submit, TheFileAppearsOnlyUnderItsFinalNameAndNeverReplacesAnother) {
    TempDir dir;
    std::string path, error;
    ASSERT_TRUE(WriteQueueFile(dir.path(), "m1", "text", path, error)) << error;
    EXPECT_EQ(path, dir.file("m1.nvq"));
    EXPECT_EQ(ReadFile(path), "text");
    EXPECT_EQ(ReadFile(dir.file(".m1.nvq.tmp")), "");

    EXPECT_FALSE(WriteQueueFile(dir.path() + "/", "m1", "other", path, error));
    EXPECT_EQ(ReadFile(dir.file("m1.nvq")), "text");
    struct stat info;
    EXPECT_NE(::stat(dir.file(".m1.nvq.tmp").c_str(), &info), 0) << "no temporary file left";
    EXPECT_FALSE(WriteQueueFile(dir.file("missing"), "m2", "x", path, error));
}

TEST(Submit, AComposedMessageCarriesItsAttachmentsAndNonAsciiText) {
    TempDir dir;
    testsupport::WriteFile(dir.file("a.pdf"), std::string("%PDF\0\xff", 6));
    MessageParts parts;
    parts.from = "Alice <alice@example.test>";
    parts.to = {"bob@example.test", "carol@example.test"};
    parts.subject = "Gr\xc3\xbc\xc3\x9f" "e";
    parts.body = "line one\nline two";
    parts.attachments = {dir.file("a.pdf")};
    std::string out, error;
    ASSERT_TRUE(ComposeMessage(parts, out, error)) << error;
    EXPECT_NE(out.find("To: bob@example.test, carol@example.test\r\n"), std::string::npos);
    EXPECT_NE(out.find("Subject: =?UTF-8?B?R3LDvMOfZQ==?=\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("line one\r\nline two\r\n"), std::string::npos);
    EXPECT_NE(out.find("Content-Type: application/pdf; name=\"a.pdf\""), std::string::npos);
    EXPECT_NE(out.find("JVBERgD/\r\n"), std::string::npos);

    parts.attachments.push_back(dir.file("missing.bin"));
    EXPECT_FALSE(ComposeMessage(parts, out, error));
}

}  // namespace
