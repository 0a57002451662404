// SmtpTestServer.cpp - see SmtpTestServer.h
#include "SmtpTestServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "TestPaths.h"

namespace fs = std::filesystem;

namespace testsupport {

namespace {

const char* ModeName(SmtpTestServer::Mode mode) {
    switch (mode) {
        case SmtpTestServer::Mode::StartTls: return "starttls";
        case SmtpTestServer::Mode::Tls: return "tls";
        default: return "plain";
    }
}

// Reads one line from `fd` within `timeoutMs`; false on time-out or end.
bool ReadLineWithin(int fd, std::string& line, int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    line.clear();
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              end - std::chrono::steady_clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
        char c;
        if (read(fd, &c, 1) != 1) return false;
        if (c == '\n') return true;
        line += c;
    }
}

std::vector<std::string> MessageStems(const std::string& dir) {
    std::vector<std::string> stems;
    std::error_code ec;
    for (auto& entry : fs::directory_iterator(dir, ec))
        if (entry.path().extension() == ".eml")
            stems.push_back((entry.path().parent_path() / entry.path().stem()).string());
    std::sort(stems.begin(), stems.end());
    return stems;
}

}  // namespace

SmtpTestServer::SmtpTestServer(const std::string& maildir, const Options& options)
    : maildir_(maildir) {
    std::error_code ec;
    fs::create_directories(maildir, ec);
    const std::string script = std::string(TELMORAQ_SOURCE_DIR) + "/tests/support/smtp_server.py";
    if (access("/usr/bin/python3", X_OK) != 0) {
        error_ = "/usr/bin/python3 missing";
        return;
    }
    std::vector<std::string> args = {"/usr/bin/python3", script, "--maildir", maildir,
                                     "--mode", ModeName(options.mode)};
    for (auto& [login, password] : options.users) {
        args.push_back("--user");
        args.push_back(login + ":" + password);
    }
    if (options.authRequired) args.push_back("--auth-required");

    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        error_ = "pipe failed";
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    stdinFd_ = in[1];
    std::string line;
    if (pid_ > 0 && ReadLineWithin(out[0], line, 20000) && line.rfind("PORT ", 0) == 0)
        port_ = std::stoi(line.substr(5));
    else
        error_ = "server did not start (is python3-aiosmtpd installed?)";
    close(out[0]);
    if (port_ == 0) stop();
}

SmtpTestServer::~SmtpTestServer() { stop(); }

void SmtpTestServer::stop() {
    if (stdinFd_ >= 0) close(stdinFd_);
    stdinFd_ = -1;
    if (pid_ > 0) {
        // Closing stdin ends the server; SIGTERM is the fallback if it hangs.
        for (int i = 0; i < 100; ++i) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

std::vector<SmtpTestServer::Message> SmtpTestServer::messages() const {
    std::vector<Message> result;
    for (const std::string& stem : MessageStems(maildir_)) {
        Message m;
        m.data = ReadFile(stem + ".eml");
        std::istringstream env(ReadFile(stem + ".env"));
        std::string line;
        while (std::getline(env, line)) {
            const auto blank = line.find(' ');
            const std::string key = line.substr(0, blank);
            const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
            if (key == "mail_from") m.mailFrom = value;
            if (key == "rcpt_to") m.rcptTo.push_back(value);
            if (key == "auth_login") m.authLogin = value;
        }
        result.push_back(std::move(m));
    }
    return result;
}

bool SmtpTestServer::waitForMessages(size_t count, int timeoutMs) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (MessageStems(maildir_).size() < count) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace testsupport
