// ServiceEndToEndTest.cpp - the real telmoraq process against a real SMTP server on loopback
//
// The test plays the service manager: its own NOTIFY_SOCKET and the signals.
// Registry file, pickup, sent, failed and log folders, trace and event log live
// in a scratch folder. Waits are for files and notifications, with limits of
// many seconds; a slow machine makes the tests slower, never wrong.
// What the fault suite (tests/faults) walks already is not repeated here.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "QueueFileWriter.h"
#include "support/SmtpTestServer.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::SmtpTestServer;
using testsupport::TempDir;
using testsupport::WriteFile;
using Clock = std::chrono::steady_clock;

const std::string kProgram = std::string(TELMORAQ_BINARY_DIR) + "/telmoraq";

bool WaitFor(const std::function<bool()>& done, int seconds) {
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    while (!done()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

std::string Today() {
    char name[32];
    const std::time_t now = std::time(nullptr);
    std::tm local;
    ::localtime_r(&now, &local);
    std::strftime(name, sizeof name, "%Y-%m-%d.LOG", &local);
    return name;
}

std::string RegistryText(const TempDir& dir, int keepSent, int keepFailed) {
    char text[2048];
    std::snprintf(text, sizeof text,
                  "REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\r\n"
                  "\"PickupMailDir\"=\"%s\"\r\n\"SentMailDir\"=\"%s\"\r\n\"FailedMailDir\"=\"%s\"\r\n"
                  "\"LogDir\"=\"%s\"\r\n\"KeepSentMails\"=dword:%08x\r\n\"KeepFailedMails\"=dword:%08x\r\n"
                  "\r\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\Trace]\r\n\"QueueServer\"=\"%s\"\r\n",
                  dir.file("pickup").c_str(), dir.file("sent").c_str(), dir.file("failed").c_str(),
                  dir.file("log").c_str(), keepSent, keepFailed, dir.file("trace.log").c_str());
    return text;
}

// One telmoraq process with its scratch folder, and the manager's socket.
class Service {
public:
    Service() {
        for (const char* sub : {"pickup", "sent", "failed", "log", "debug"})
            ::mkdir(dir.file(sub).c_str(), 0700);
        notifyFd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        dir.file("notify").copy(address.sun_path, sizeof address.sun_path - 1);
        ::bind(notifyFd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    ~Service() {
        Kill(SIGKILL);
        ::close(notifyFd_);
    }

    void Start(bool serviceMode) {
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setenv("TELMORAQ_REGISTRY", dir.file("registry.reg").c_str(), 1);
            ::setenv("TELMORAQ_EVENTLOG", dir.file("events.log").c_str(), 1);
            ::setenv("TELMORAQ_DEBUG_DIR", dir.file("debug").c_str(), 1);
            serviceMode ? ::setenv("NOTIFY_SOCKET", dir.file("notify").c_str(), 1) : ::unsetenv("NOTIFY_SOCKET");
            ::execl(kProgram.c_str(), kProgram.c_str(), serviceMode ? nullptr : "/NvDebug", nullptr);
            ::_exit(127);
        }
    }
    // The exit status once the process has ended within `seconds`; -1 otherwise.
    int WaitExit(int seconds) {
        int status = -1;
        if (!WaitFor([&] { return pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) == pid_; }, seconds))
            return -1;
        pid_ = -1;
        return status;
    }
    void Kill(int signal) {
        if (pid_ <= 0) return;
        ::kill(pid_, signal);
        if (signal == SIGKILL) WaitExit(10);
    }
    // Every notification received so far, joined.
    const std::string& Notifications() {
        char buffer[4096];
        ssize_t got;
        while ((got = ::recv(notifyFd_, buffer, sizeof buffer, 0)) > 0) notes_.append(buffer, got);
        return notes_;
    }
    bool WaitForNote(const std::string& text, int seconds) {
        return WaitFor([&] { return Notifications().find(text) != std::string::npos; }, seconds);
    }

    // Drops a queue file for the local server.
    void Submit(const std::string& name, int port, const std::string& to, const std::string& subject,
                const std::string& portText = "", const std::string& secureText = "FALSE") {
        DeliverySettings settings;
        settings.host = "127.0.0.1";
        settings.port = port;
        settings.account = "alice";
        settings.password = "s3cret pw";
        const unsigned char key[3] = {0x5A, 0xC3, 0x11};
        std::string text = WithControlHeaders(
            "From: Alice <alice@example.test>\r\nTo: Bob <" + to + ">\r\nSubject: " + subject +
                "\r\n\r\nHello.\r\n",
            settings, key);
        const size_t at = text.find("Port: ") + 6;
        if (!portText.empty()) text.replace(at, text.find('\r', at) - at, portText);
        text.replace(text.find("Secure: FALSE") + 8, 5, secureText);
        std::string path, error;
        ASSERT_TRUE(WriteQueueFile(dir.file("pickup"), name, text, path, error)) << error;
    }
    std::string List(const std::string& sub) {
        std::string out;
        FILE* pipe = ::popen(("ls -1 " + dir.file(sub) + " 2>/dev/null").c_str(), "r");
        char buffer[512];
        while (pipe != nullptr && std::fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
        if (pipe != nullptr) ::pclose(pipe);
        return out;
    }
    std::string Log() { return ReadFile(dir.file("log/" + Today())); }
    long LogLines() {
        const std::string log = Log();
        return std::count(log.begin(), log.end(), '\n');
    }

    TempDir dir;

private:
    pid_t pid_ = -1;
    int notifyFd_ = -1;
    std::string notes_;
};

SmtpTestServer::Options WithAlice() {
    SmtpTestServer::Options options;
    options.users = {{"alice", "s3cret pw"}};
    return options;
}

TEST(ServiceEndToEnd, EveryFateWithCopiesKeptReadinessAndAnOrderlyStop) {
    Service service;
    WriteFile(service.dir.file("registry.reg"), RegistryText(service.dir, 1, 1));
    SmtpTestServer server(service.dir.file("mail"), WithAlice());
    SKIP_WITHOUT_SMTP_SERVER(server);

    service.Submit("good", server.port(), "bob@example.test", "good one");
    service.Submit("refused", server.port(), "refuse@example.test", "refused one");
    service.Submit("noport", server.port(), "bob@example.test", "no port", "x25");
    service.Submit("secure", server.port(), "bob@example.test", "secure one", "", "tRuE");

    const auto started = Clock::now();
    service.Start(true);
    ASSERT_TRUE(service.WaitForNote("READY=1", 20)) << service.Notifications();
    ASSERT_TRUE(WaitFor([&] { return service.List("pickup").empty(); }, 60)) << service.List("pickup");
    ASSERT_TRUE(server.waitForMessages(1, 10000));

    // Only the good one reached the server, authenticated, without control headers.
    const std::vector<SmtpTestServer::Message> got = server.messages();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_NE(got[0].data.find("Subject: good one"), std::string::npos);
    EXPECT_EQ(got[0].data.find("X-NvQueueService"), std::string::npos) << got[0].data;
    EXPECT_EQ(got[0].authLogin, "alice") << "the scrambled password must be unscrambled";

    EXPECT_EQ(service.List("sent") + service.List("failed"), "good.hst\nnoport.hst\nrefused.hst\nsecure.hst\n");

    // The last file's result line comes after its file is deleted.
    ASSERT_TRUE(WaitFor([&] { return service.LogLines() == 5; }, 10)) << service.Log();
    const std::string log = service.Log();
    for (const char* piece : {"bob@example.test|good.hst|", "|Error #0: Success|221 ",
                              "refuse@example.test|refused.hst|", "|Error #550: "})
        EXPECT_NE(log.find(piece), std::string::npos) << piece << "\n" << log;
    EXPECT_EQ(log.find("<"), std::string::npos) << log;

    const std::string trace = ReadFile(service.dir.file("trace.log"));
    EXPECT_NE(trace.find(std::string(118, '-') + "\n"), std::string::npos);
    EXPECT_NE(trace.find("File processed, result = Success."), std::string::npos);

    // Stop: not looked at before 20 seconds after the first cycle, then done
    // within the worker's wait.
    service.Kill(SIGTERM);
    EXPECT_TRUE(service.WaitForNote("STOPPING=1", 10));
    const int status = service.WaitExit(60);
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_GE(seconds, 20.0) << "the stop came inside the grace";
    EXPECT_NE(service.Notifications().find("STATUS=stopped, checkpoint 0, exit code 0/0"), std::string::npos)
        << service.Notifications();
    EXPECT_NE(ReadFile(service.dir.file("events.log")).find("TelmoraQ information 0x40000065 "),
              std::string::npos);
}

TEST(ServiceEndToEnd, WithoutCopiesTheLinesNameNoStoredFileAndDebugModeEndsOnTerm) {
    Service service;
    WriteFile(service.dir.file("registry.reg"), RegistryText(service.dir, 0, 0));
    SmtpTestServer server(service.dir.file("mail"), WithAlice());
    SKIP_WITHOUT_SMTP_SERVER(server);
    service.Submit("good", server.port(), "bob@example.test", "kept nowhere");
    service.Submit("refused", server.port(), "refuse@example.test", "refused nowhere");
    service.Start(false);
    ASSERT_TRUE(WaitFor([&] { return service.List("pickup").empty(); }, 30));
    EXPECT_EQ(service.List("sent") + service.List("failed"), "");
    ASSERT_TRUE(WaitFor([&] { return service.LogLines() == 3; }, 10));
    for (const char* to : {" bob@example.test||", " refuse@example.test||"})  // no stored name
        EXPECT_NE(service.Log().find(to), std::string::npos) << service.Log();

    service.Kill(SIGTERM);
    const int status = service.WaitExit(10);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "debug mode ends at once";
}

TEST(ServiceEndToEnd, BadSettingsStopTheStartWithTheirEventsAndExitCode) {
    // An empty pickup setting (the defaults of an unreadable file) takes the
    // missing folder's branch.
    const char* const cases[][2] = {{"pickup", "TelmoraQ error 0xC0000130 "},
                                    {"log", "TelmoraQ information 0x40000066 "}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        Service service;
        WriteFile(service.dir.file("registry.reg"), RegistryText(service.dir, 1, 1));
        ::rmdir(service.dir.file(c[0]).c_str());
        service.Start(true);
        const int status = service.WaitExit(20);
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_NE(ReadFile(service.dir.file("events.log")).find(c[1]), std::string::npos)
            << ReadFile(service.dir.file("events.log"));
        EXPECT_NE(service.Notifications().find("STATUS=stopped, checkpoint 1, exit code 1066/1"),
                  std::string::npos)
            << service.Notifications();
        EXPECT_EQ(service.Notifications().find("READY=1"), std::string::npos);
    }
}

}  // namespace
