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

    if (!process_.start(std::move(args), 20000))
        error_ = "server did not start (is python3-aiosmtpd installed?)";
}

SmtpTestServer::~SmtpTestServer() { stop(); }

void SmtpTestServer::stop() { process_.stop(); }

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
