// ScriptedSession.h - what the SMTP client tests share: a client aimed at a peer,
// the hello lines it will send, a trace file read back without time stamps
#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/HostInfo.h"
#include "smtp/NvSmtp.h"
#include "support/TestPaths.h"

namespace scripted {

inline std::string LocalName() {
    std::string name = platform::ComputerName();
    if (name.size() > 255) name.resize(255);
    return name;
}
inline std::string Ehlo() { return "EHLO " + LocalName(); }
inline std::string Helo() { return "HELO " + LocalName(); }

inline std::unique_ptr<CNvSmtp> ClientFor(int port, const char* account = "", const char* password = "") {
    auto client = std::make_unique<CNvSmtp>();
    client->SetHost("127.0.0.1");
    client->m_port = port;
    client->m_account = account;
    client->m_password = password;
    return client;
}

// The trace lines with their "[hh:mm:ss]  " stamps cut off.
inline std::vector<std::string> TraceLines(const std::string& path) {
    std::istringstream text(testsupport::ReadFile(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.size() >= 12 && line[0] == '[' ? line.substr(12) : line);
    return lines;
}

// A text of several hundred KB with lines of every length from 0 to 199
// bytes, a third of them starting with a dot, bare LFs among the CR LFs: dots
// land on every offset of the client's pieces and records.
inline std::string LongTextWithDots() {
    std::string text;
    for (int i = 0; text.size() < 300 * 1024; ++i) {
        if (i % 3 == 0) text += '.';
        text.append(static_cast<size_t>(i % 200), static_cast<char>('a' + i % 26));
        text += i % 7 == 0 ? "\n" : "\r\n";
    }
    return text;
}

// What the wire must carry for `text` after DATA: stuffed, then the final dot.
inline std::string StuffedData(const std::string& text) {
    std::string wire;
    bool lineStart = true;
    for (char c : text) {
        if (lineStart && c == '.') wire += '.';
        wire += c;
        lineStart = c == '\n';
    }
    return wire + "\r\n.\r\n";
}

}  // namespace scripted
