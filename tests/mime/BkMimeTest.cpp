// BkMimeTest.cpp - the public handle: tree sharing, loading repairs, text rules
#include "mime/BkMime.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "mime/ClsMime.h"
#include "mime/MimeMessage2.h"
#include "support/TestPaths.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/LogBase.h"

namespace {

const char kTwoParts[] =
    "Subject: two parts\r\nContent-Type: multipart/mixed; boundary=\"b1\"\r\n\r\n"
    "--b1\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nfirst body\r\n"
    "--b1\r\nContent-Type: application/octet-stream; name=\"x.bin\"\r\n"
    "Content-Disposition: attachment; filename=\"x.bin\"\r\n"
    "Content-Transfer-Encoding: base64\r\n\r\nAAEC\r\n--b1--\r\n";

std::string logText(BkMime& mime) {
    brelkin::StringBuffer text;
    mime.getLog().getText(text);
    return text.getString();
}

class BkMimeFileTest : public ::testing::Test {
protected:
    bool load(BkMime& mime, const std::string& content) {
        const std::string path = dir_.file("m.eml");
        EXPECT_TRUE(testsupport::WriteFile(path, content));
        return mime.LoadMimeFile(path.c_str());
    }
    testsupport::TempDir dir_;
};

std::string str(const char* text) { return text ? text : "<null>"; }

}  // namespace

// ---- handles on one tree ----

TEST_F(BkMimeFileTest, PartHandlesOutliveTheRootHandle) {
    auto root = std::make_unique<BkMime>();
    ASSERT_TRUE(load(*root, kTwoParts));
    ASSERT_EQ(root->NumParts(), 2);
    std::unique_ptr<BkMime> text(root->GetPart(0));
    std::unique_ptr<BkMime> binary(root->GetPart(1));
    ASSERT_TRUE(text && binary);
    root.reset();

    EXPECT_EQ(str(text->contentType()), "text/plain");
    EXPECT_EQ(str(text->getBodyDecoded()), "first body");
    EXPECT_EQ(str(binary->filename()), "x.bin");
    text.reset();
    // The last handle still reaches its node; deleting it frees the tree.
    EXPECT_EQ(str(binary->name()), "x.bin");
}

TEST_F(BkMimeFileTest, OutOfRangePartsAndReloadingLeavePartHandlesOnTheOldTree) {
    BkMime root;
    ASSERT_TRUE(load(root, kTwoParts));
    EXPECT_EQ(root.GetPart(2), nullptr);
    EXPECT_EQ(root.GetPart(-1), nullptr);
    EXPECT_NE(logText(root).find("Failed to get MIME message part"), std::string::npos);
    std::unique_ptr<BkMime> part(root.GetPart(0));
    ASSERT_TRUE(load(root, "Subject: other\r\n\r\nbody\r\n"));
    EXPECT_EQ(root.NumParts(), 0);
    EXPECT_EQ(str(part->getBodyDecoded()), "first body");
}

TEST_F(BkMimeFileTest, LostNodeMovesTheHandleToANewEmptyTree) {
    BkMime root;
    ASSERT_TRUE(load(root, kTwoParts));
    std::unique_ptr<BkMime> part(root.GetPart(1));
    brelkin::ClsMime& impl = root.getImpl();
    impl.lockTreeAndFindNode()->clear();
    impl.unlockTree();

    EXPECT_EQ(str(part->contentType()), "");
    EXPECT_NE(logText(*part).find("Internal MIME part no longer exists within the MIME document."),
              std::string::npos);
    // Recovered, the handle works on its own tree from now on.
    EXPECT_TRUE(part->SetHeaderField("X-Test", "1"));
    EXPECT_EQ(str(part->header("X-Test")), "1");
    EXPECT_EQ(root.header("X-Test"), nullptr);
}

TEST(BkMimeRingTest, TenResultsStayValidAndTheEleventhTakesTheFirstSlot) {
    BkMime mime;
    for (int i = 0; i < 11; ++i) {
        const std::string name = "X-H" + std::to_string(i);
        mime.AddHeaderField(name.c_str(), std::to_string(i).c_str());
    }
    const char* results[11];
    for (int i = 0; i < 11; ++i) results[i] = mime.header(("X-H" + std::to_string(i)).c_str());
    // Under the address sanitizer a ring shorter than ten would show here as
    // a read of freed memory; the first result is the one given up.
    for (int i = 1; i < 11; ++i) EXPECT_EQ(str(results[i]), std::to_string(i)) << i;
    EXPECT_EQ(mime.header("X-Absent"), nullptr);
}

// ---- loading repairs ----

TEST_F(BkMimeFileTest, Utf16leFileIsConvertedBeforeParsing) {
    const std::string latin1 = "Subject: Gr\xfc\xdf" "e\r\nContent-Type: text/plain\r\n\r\nHallo\r\n";
    std::string utf16 = "\xff\xfe";
    for (char c : latin1) utf16 += std::string{c, '\0'};
    BkMime mime;
    ASSERT_TRUE(load(mime, utf16));
    BkString subject;
    ASSERT_TRUE(mime.GetHeaderField("subject", subject));
    EXPECT_STREQ(subject.getUtf8(), "Gr\xc3\xbc\xc3\x9f" "e");
    EXPECT_EQ(str(mime.getBodyDecoded()), "Hallo\r\n");
}

TEST_F(BkMimeFileTest, HeaderlessMultipartGetsItsBoundaryFromTheFirstLine) {
    const std::string body = "--abc\r\nContent-Type: text/plain\r\n\r\none\r\n--abc--\r\n";
    for (const std::string lead : {"", "\n", "\r\n", " \t"}) {
        BkMime mime;
        ASSERT_TRUE(load(mime, lead + body));
        EXPECT_EQ(str(mime.contentType()), "multipart/mixed") << "lead " << lead.size();
        ASSERT_EQ(mime.NumParts(), 1) << "lead " << lead.size();
        std::unique_ptr<BkMime> part(mime.GetPart(0));
        EXPECT_EQ(str(part->getBodyDecoded()), "one");
    }
    BkMime noLineEnd;
    ASSERT_TRUE(load(noLineEnd, "--abc"));
    EXPECT_EQ(str(noLineEnd.contentType()), "");
}

TEST_F(BkMimeFileTest, EmptyFileLoadsAndMissingFileKeepsTheOldTree) {
    BkMime mime;
    ASSERT_TRUE(load(mime, kTwoParts));
    EXPECT_FALSE(mime.LoadMimeFile(dir_.file("absent.eml").c_str()));
    EXPECT_NE(logText(mime).find("Failed."), std::string::npos);
    EXPECT_EQ(mime.NumParts(), 2);
    ASSERT_TRUE(load(mime, ""));
    EXPECT_EQ(mime.NumParts(), 0);
    EXPECT_EQ(str(mime.contentType()), "");
}

// A directory listing gives names as the file system's bytes; a name with
// bytes above 127 must open as listed, not after a code page conversion.
TEST_F(BkMimeFileTest, FileNamesAreTheFileSystemsBytes) {
    BkMime mime;
    const std::string path = dir_.file("caf\xC3\xA9 \xE9.eml");
    ASSERT_TRUE(testsupport::WriteFile(path, kTwoParts));
    EXPECT_TRUE(mime.LoadMimeFile(path.c_str()));
    EXPECT_EQ(mime.NumParts(), 2);
}

// ---- text rules ----

TEST_F(BkMimeFileTest, DecodedTextBodyHasBlanksForZeroBytes) {
    const std::string base64 = "\r\nContent-Transfer-Encoding: base64\r\n\r\nYQBi\r\n";  // "a\0b"
    BkMime text, binary;
    ASSERT_TRUE(load(text, "Content-Type: text/plain" + base64));
    EXPECT_EQ(str(text.getBodyDecoded()), "a b");
    ASSERT_TRUE(load(binary, "Content-Type: application/octet-stream" + base64));
    EXPECT_EQ(str(binary.getBodyDecoded()), "a");
}

TEST_F(BkMimeFileTest, EightBitMimeIsReadInTheCharsetOfItsTextPart) {
    BkMime latin;
    ASSERT_TRUE(load(latin,
                     "Content-Type: text/plain; charset=windows-1252\r\n"
                     "Content-Transfer-Encoding: 8bit\r\n\r\ncaf\xe9 \x80\r\n"));
    // Written out, the body is windows-1252 again; the text must still be right.
    BkString text;
    ASSERT_TRUE(latin.GetMime(text));
    EXPECT_NE(std::string(text.getUtf8()).find("caf\xc3\xa9 \xe2\x82\xac"), std::string::npos);
    EXPECT_NE(logText(latin).find("totalMimeCharset"), std::string::npos);

    BkMime utf8;
    ASSERT_TRUE(load(utf8,
                     "Content-Type: text/plain; charset=utf-8\r\n"
                     "Content-Transfer-Encoding: 8bit\r\n\r\ncaf\xc3\xa9\r\n"));
    ASSERT_TRUE(utf8.GetMime(text));
    EXPECT_NE(std::string(text.getUtf8()).find("caf\xc3\xa9"), std::string::npos);
    EXPECT_NE(logText(utf8).find("Interpreting character data as utf-8."), std::string::npos);
}

// ---- building ----

TEST(BkMimeBuildTest, AppendToTextTurnsTheOldBodyIntoTheFirstPart) {
    BkMime mime;
    mime.SetContentType("text/plain");
    mime.SetBody("former body");
    BkMime attachment;
    attachment.SetContentType("application/octet-stream");
    BkByteData bytes;
    bytes.append("\x01\x02\x03", 3);
    attachment.SetBodyFromBinary(bytes);

    ASSERT_TRUE(mime.AppendPart(&attachment));
    EXPECT_EQ(str(mime.contentType()), "multipart/mixed");
    ASSERT_EQ(mime.NumParts(), 2);
    std::unique_ptr<BkMime> first(mime.GetPart(0));
    std::unique_ptr<BkMime> second(mime.GetPart(1));
    EXPECT_EQ(str(first->contentType()), "text/plain");
    EXPECT_EQ(str(first->getBodyDecoded()), "former body");
    EXPECT_EQ(str(second->header("Content-Transfer-Encoding")), "base64");
    // The appended part is a copy: the caller's handle and tree stay as they were.
    EXPECT_EQ(attachment.NumParts(), 0);
    EXPECT_EQ(str(attachment.contentType()), "application/octet-stream");
    EXPECT_FALSE(mime.AppendPart(nullptr));
}

TEST_F(BkMimeFileTest, AppendedCopyOfAnUnclosedPartKeepsItsBodyAsParsed) {
    // The copy goes through the written text, which closes every multipart:
    // the re-parse must lose nothing beyond what the first parse took.
    BkMime source;
    ASSERT_TRUE(load(source,
                     "Content-Type: multipart/mixed; boundary=\"o\"\r\n\r\n--o\r\n"
                     "Content-Type: multipart/related; boundary=\"i\"\r\n\r\n--i\r\n"
                     "Content-Type: application/octet-stream\r\n"
                     "Content-Transfer-Encoding: base64\r\n\r\nQUJDREVGR0hJ\r\n"));
    std::unique_ptr<BkMime> inner(source.GetPart(0));
    ASSERT_TRUE(inner);
    std::unique_ptr<BkMime> leaf(inner->GetPart(0));
    ASSERT_TRUE(leaf);
    BkMime target;
    target.SetContentType("multipart/mixed");
    target.SetBoundary("t");
    ASSERT_TRUE(target.AppendPart(inner.get()));
    std::unique_ptr<BkMime> copy(target.GetPart(0));
    ASSERT_TRUE(copy);
    std::unique_ptr<BkMime> copiedLeaf(copy->GetPart(0));
    ASSERT_TRUE(copiedLeaf);
    const auto bytesOf = [](BkMime& mime) {
        BkString text;
        mime.GetBodyDecoded(text);
        return std::string(text.getUtf8());
    };
    EXPECT_EQ(bytesOf(*leaf), "ABCDEFG") << "the inner level took \"hJ\" for a line end";
    EXPECT_EQ(bytesOf(*copiedLeaf), bytesOf(*leaf));
}

TEST_F(BkMimeFileTest, ChildThatConvertsLeavesItsOldTree) {
    BkMime root;
    ASSERT_TRUE(load(root, kTwoParts));
    std::unique_ptr<BkMime> child(root.GetPart(0));
    BkMime extra;
    extra.SetContentType("text/html");
    ASSERT_TRUE(child->AppendPart(&extra));
    EXPECT_EQ(child->NumParts(), 2);
    EXPECT_EQ(root.NumParts(), 2);
    std::unique_ptr<BkMime> stillText(root.GetPart(0));
    EXPECT_EQ(str(stillText->contentType()), "text/plain");
}
