// QueueFileWriter.cpp - control headers, password scramble, a composed message, the durable hand-over
//
// See QueueFileWriter.h
#include "QueueFileWriter.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/Files.h"
#include "platform/RandomBytes.h"

namespace {

const char kControlPrefix[] = "X-NvQueueService-RemoveBeforeSending-";

bool StartsWithNoCase(const std::string& text, size_t at, const char* prefix) {
    const size_t length = std::strlen(prefix);
    return text.size() - at >= length && strncasecmp(text.c_str() + at, prefix, length) == 0;
}

std::string Base64Lines(const std::string& data) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t column = 0;
    for (size_t i = 0; i < data.size(); i += 3) {
        const size_t n = std::min<size_t>(3, data.size() - i);
        uint32_t group = static_cast<uint8_t>(data[i]) << 16;
        if (n > 1) group |= static_cast<uint8_t>(data[i + 1]) << 8;
        if (n > 2) group |= static_cast<uint8_t>(data[i + 2]);
        for (size_t k = 0; k < 4; ++k) out += k <= n ? kAlphabet[(group >> (18 - 6 * k)) & 63] : '=';
        if ((column += 4) == 76 && i + 3 < data.size()) out += "\r\n", column = 0;
    }
    return out + "\r\n";
}

bool IsAscii(const std::string& text) {
    for (unsigned char c : text)
        if (c >= 0x80) return false;
    return true;
}

// An encoded word for a non-ASCII header text, so that the reader gets UTF-8 back.
std::string HeaderText(const std::string& text) {
    if (IsAscii(text)) return text;
    std::string flat;
    for (char c : Base64Lines(text))
        if (c != '\r' && c != '\n') flat += c;
    return "=?UTF-8?B?" + flat + "?=";
}

std::string Joined(const std::vector<std::string>& list) {
    std::string out;
    for (const std::string& item : list) out += (out.empty() ? "" : ", ") + item;
    return out;
}

std::string CrLf(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
        out += text[i];
    }
    return out;
}

std::string BaseName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

const char* ContentTypeOf(const std::string& name) {
    static const struct {
        const char* extension;
        const char* type;
    } kTypes[] = {{".txt", "text/plain"},       {".html", "text/html"},  {".pdf", "application/pdf"},
                  {".png", "image/png"},        {".jpg", "image/jpeg"},  {".gif", "image/gif"},
                  {".zip", "application/zip"},  {".csv", "text/csv"},    {".xml", "application/xml"}};
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos)
        for (const auto& row : kTypes)
            if (strcasecmp(name.c_str() + dot, row.extension) == 0) return row.type;
    return "application/octet-stream";
}

bool ReadWhole(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream data;
    data << in.rdbuf();
    out = data.str();
    return !in.bad();
}

std::string Failure(const std::string& what, const std::string& path) {
    return what + " " + path + ": " + std::strerror(errno);
}

}  // namespace

std::string ScramblePassword(const std::string& password, const unsigned char key[3]) {
    if (password.empty()) return "";
    char pair[3];
    std::string out;
    for (int i = 0; i < 3; ++i) std::snprintf(pair, sizeof pair, "%02X", key[i]), out += pair;
    for (size_t n = 0; n < password.size(); ++n) {
        const unsigned byte = (static_cast<unsigned char>(password[n]) + key[n % 3]) % 256;
        std::snprintf(pair, sizeof pair, "%02X", byte);
        out += pair;
    }
    return out;
}

std::string WithControlHeaders(const std::string& message, const DeliverySettings& settings,
                               const unsigned char key[3]) {
    const size_t firstLf = message.find('\n');
    const std::string eol = firstLf != std::string::npos && (firstLf == 0 || message[firstLf - 1] != '\r')
                                ? "\n"
                                : "\r\n";
    std::string out;
    out += kControlPrefix + std::string("Host: ") + settings.host + eol;
    out += kControlPrefix + std::string("Port: ") + std::to_string(settings.port) + eol;
    out += kControlPrefix + std::string("Account: ") + settings.account + eol;
    out += kControlPrefix + std::string("Password: ") + ScramblePassword(settings.password, key) + eol;
    out += kControlPrefix + std::string("Secure: ") + (settings.secure ? "TRUE" : "FALSE") + eol;

    // The message's own header lines, without earlier control headers (and
    // their continuation lines); the body as it is.
    size_t at = 0;
    bool dropping = false;
    while (at < message.size()) {
        size_t end = message.find('\n', at);
        end = end == std::string::npos ? message.size() : end + 1;
        const bool blank = message[at] == '\n' || (message[at] == '\r' && at + 1 < message.size() &&
                                                   message[at + 1] == '\n');
        if (blank) break;
        const bool continuation = message[at] == ' ' || message[at] == '\t';
        if (!continuation) dropping = StartsWithNoCase(message, at, kControlPrefix);
        if (!dropping) out.append(message, at, end - at);
        at = end;
    }
    return out.append(message, at, std::string::npos);
}

bool ComposeMessage(const MessageParts& parts, std::string& out, std::string& error) {
    std::string head;
    head += "From: " + parts.from + "\r\n";
    if (!parts.to.empty()) head += "To: " + Joined(parts.to) + "\r\n";
    if (!parts.cc.empty()) head += "Cc: " + Joined(parts.cc) + "\r\n";
    if (!parts.bcc.empty()) head += "Bcc: " + Joined(parts.bcc) + "\r\n";
    head += "Subject: " + HeaderText(parts.subject) + "\r\nMIME-Version: 1.0\r\n";

    const std::string body = CrLf(parts.body);
    const std::string textHead = IsAscii(body)
                                     ? "Content-Type: text/plain; charset=us-ascii\r\n"
                                       "Content-Transfer-Encoding: 7bit\r\n\r\n"
                                     : "Content-Type: text/plain; charset=utf-8\r\n"
                                       "Content-Transfer-Encoding: base64\r\n\r\n";
    const std::string textBody = IsAscii(body) ? body + "\r\n" : Base64Lines(body);
    if (parts.attachments.empty()) {
        out = head + textHead + textBody;
        return true;
    }

    unsigned char random[8] = {};
    platform::RandomBytes(random, sizeof random);
    char boundary[64];
    std::snprintf(boundary, sizeof boundary, "=_submit_%02x%02x%02x%02x%02x%02x%02x%02x", random[0],
                  random[1], random[2], random[3], random[4], random[5], random[6], random[7]);
    out = head + "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
    out += std::string("--") + boundary + "\r\n" + textHead + textBody;
    for (const std::string& path : parts.attachments) {
        std::string data;
        if (!ReadWhole(path, data)) {
            error = Failure("cannot read attachment", path);
            return false;
        }
        const std::string name = BaseName(path);
        out += std::string("--") + boundary + "\r\n";
        out += std::string("Content-Type: ") + ContentTypeOf(name) + "; name=\"" + name + "\"\r\n";
        out += "Content-Transfer-Encoding: base64\r\n";
        out += "Content-Disposition: attachment; filename=\"" + name + "\"\r\n\r\n";
        out += Base64Lines(data);
    }
    out += std::string("--") + boundary + "--\r\n";
    return true;
}

bool WriteQueueFile(const std::string& folder, const std::string& name, const std::string& text,
                    std::string& path, std::string& error) {
    const std::string base = folder.empty() || folder.back() == '/' ? folder : folder + "/";
    // The temporary name does not end in ".nvq": no pass takes it.
    const std::string temp = base + "." + name + ".nvq.tmp";
    path = base + name + ".nvq";
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = Failure("cannot create", temp);
        return false;
    }
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) break;
        done += static_cast<size_t>(wrote);
    }
    const bool written = done == text.size() && ::fsync(fd) == 0;
    if (!written) error = Failure("cannot write", temp);
    if (::close(fd) != 0 && written) error = Failure("cannot write", temp);
    if (!error.empty()) {
        ::unlink(temp.c_str());
        return false;
    }
    const uint32_t renamed = platform::RenameFileNoReplace(temp, path);
    if (renamed != 0) {
        ::unlink(temp.c_str());
        error = "cannot rename " + temp + " to " + path + " (error " + std::to_string(renamed) + ")";
        return false;
    }
    return true;
}
