// LoggerTest.cpp - the engine's log tree: vanishing contexts, renderings, echo file
#include "textlib/log/Logger.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/TestPaths.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::Logger;
using brelkin::StringBuffer;

namespace {

// Renders the log in one of its forms into a buffer holding junk first.
std::string render(Logger& log, void (Logger::*form)(StringBuffer&) = &Logger::getXml) {
    StringBuffer out("this junk should be ignored");
    (log.*form)(out);
    return out.getString();
}

std::string xmlOf(Logger& log) { return render(log); }

}  // namespace

TEST(Logger, EmptyContextVanishesExceptDirectlyUnderRoot) {
    Logger log;
    log.enterContext("a", 1);
    log.leaveContext();
    EXPECT_EQ(xmlOf(log), "<BrelkinLog>\r\n<a>\r\n</a>\r\n</BrelkinLog>\r\n");

    log.clearLog();
    log.enterContext("outer", 1);
    log.enterContext("empty", 1);
    log.leaveContext();
    log.enterContext("full", 1);
    log.LogInfo("kept");
    log.leaveContext();
    log.leaveContext();
    EXPECT_EQ(xmlOf(log),
              "<BrelkinLog>\r\n<outer>\r\n<full>\r\n<info>kept</info>\r\n</full>\r\n"
              "</outer>\r\n</BrelkinLog>\r\n");
}

TEST(Logger, DepthStopsAtTheRootAndClearStartsAfresh) {
    Logger log;
    log.LogInfo("x");
    log.leaveContext();
    log.leaveContext();
    log.LogInfo("y");
    EXPECT_EQ(xmlOf(log), "<BrelkinLog>\r\n<info>x</info>\r\n<info>y</info>\r\n</BrelkinLog>\r\n");

    log.enterContext("a", 1);
    log.enterContext("b", 1);
    log.clearLog();
    log.LogInfo("after");
    EXPECT_EQ(xmlOf(log), "<BrelkinLog>\r\n<info>after</info>\r\n</BrelkinLog>\r\n");
}

TEST(Logger, XmlOfEachEntryTypeCleanedNamesAndNullTexts) {
    Logger log;
    EXPECT_TRUE(log.LogError(nullptr));
    EXPECT_TRUE(log.LogInfo(nullptr));
    EXPECT_TRUE(log.LogRaw(nullptr));
    EXPECT_TRUE(log.LogData(" file name\t", "x"));
    EXPECT_FALSE(log.LogData("  ", "x"));
    EXPECT_FALSE(log.LogDataLong(nullptr, 1));
    EXPECT_TRUE(log.LogData("a", nullptr));
    EXPECT_TRUE(log.LogDataLong("n", -12));
    EXPECT_TRUE(log.LogDataInt64("big", 5000000000LL));
    EXPECT_TRUE(log.LogDataHex("h", 0xBEEF));
    log.LogError("bad\n");
    log.LogRaw("<raw & bare>");
    log.LogData("tag", "v<");
    EXPECT_EQ(xmlOf(log),
              "<BrelkinLog>\r\n<file_name>x</file_name>\r\n<a>(NULL)</a>\r\n<n>-12</n>\r\n"
              "<big>5000000000</big>\r\n<h>0xbeef</h>\r\n<error><![CDATA[bad\n]]></error>\r\n"
              "<raw & bare>\r\n<tag><![CDATA[v<]]></tag>\r\n</BrelkinLog>\r\n");
}

TEST(Logger, XmlWrapsValuesInCdataOnlyWhenNeeded) {
    auto entry = [](const char* value) {
        Logger log;
        log.LogInfo(value);
        return xmlOf(log);
    };
    auto wrapped = [](const std::string& line) { return "<BrelkinLog>\r\n" + line + "</BrelkinLog>\r\n"; };
    EXPECT_EQ(entry("abc"), wrapped("<info>abc</info>\r\n"));
    EXPECT_EQ(entry("a\nb"), wrapped("<info><![CDATA[a\nb]]></info>\r\n"));
    EXPECT_EQ(entry("a&b"), wrapped("<info><![CDATA[a&b]]></info>\r\n"));
    EXPECT_EQ(entry("a<b"), wrapped("<info><![CDATA[a<b]]></info>\r\n"));
    EXPECT_EQ(entry("a\rb"), wrapped("<info>a\rb</info>\r\n")) << "carriage return alone";
    EXPECT_EQ(entry("<![CDATA[x<y]]>"), wrapped("<info><![CDATA[x<y]]></info>\r\n")) << "both markers";
    EXPECT_EQ(entry("]]>"), wrapped("<info><![CDATA[]]>]]></info>\r\n")) << "one marker only";
}

TEST(Logger, HtmlEncodesEntitiesAndQuotesContexts) {
    Logger log;
    log.enterContext("ctx", 1);
    log.LogError("a<b");
    log.LogData("k", "\"&\"");
    log.leaveContext();
    EXPECT_EQ(render(log, &Logger::getHtml),
              "BrelkinLog:<blockquote>\r\nctx:<blockquote>\r\na&lt;b<br>\r\n"
              "k: &quot;&amp;&quot;<br>\r\n</blockquote>\r\n</blockquote>\r\n");
}

TEST(Logger, TextIndentsTwoBlanksPerLevel) {
    Logger log;
    log.LogInfo("top");
    log.enterContext("a", 1);
    log.enterContext("b", 1);
    log.LogData("k", "v");
    EXPECT_EQ(render(log, &Logger::getText), "BrelkinLog:\r\n  top\r\n  a:\r\n    b:\r\n      k: v\r\n");
}

TEST(Logger, EchoFileIndentsFourBlanksPerDepth) {
    testsupport::TempDir dir;
    const std::string path = dir.file("echo.txt");
    Logger log;
    log.setEchoFile(path.c_str());
    log.LogInfo("start");
    log.enterContext("outer", 1);
    log.LogData("name", "v");
    log.LogDataLong("n", 7);
    log.LogDataHex("notEchoed", 1);
    log.LogRaw("not echoed");
    log.enterContext("inner", 1);
    log.LogError("oops");
    log.leaveContext();
    log.leaveContext();
    log.leaveContext();
    EXPECT_EQ(testsupport::ReadFile(path),
              "start\n"
              "outer:\n"
              "    name: v\n"
              "    n: 7\n"
              "    inner:\n"
              "        oops\n"
              "        (leaveContext)\n"
              "    (leaveContext)\n"
              "(leaveContext)\n");
    EXPECT_EQ(log.getDepth(), 0);
}

TEST(Logger, SaveWritesTheXmlFormAndBadPathsAreSkipped) {
    testsupport::TempDir dir;
    Logger log;
    log.setEchoFile(dir.file("missing/echo.txt").c_str());
    EXPECT_TRUE(log.LogInfo("saved"));
    ASSERT_TRUE(log.saveToFile(dir.file("log.xml").c_str()));
    EXPECT_EQ(testsupport::ReadFile(dir.file("log.xml")),
              "<BrelkinLog>\r\n<info>saved</info>\r\n</BrelkinLog>\r\n");
    EXPECT_FALSE(log.saveToFile(dir.file("missing/log.xml").c_str()));
}

TEST(Logger, ConcurrentWritersLoseNoEntry) {
    Logger log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&log] {
            for (int i = 0; i < 250; ++i) {
                log.enterContext("w", 1);
                log.LogInfo("x");
                log.leaveContext();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    const std::string xml = xmlOf(log);
    size_t count = 0;
    for (size_t at = 0; (at = xml.find("<info>x</info>", at)) != std::string::npos; ++at) ++count;
    EXPECT_EQ(count, 1000u);
}
