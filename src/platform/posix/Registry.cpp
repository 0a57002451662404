// Registry.cpp - the registry hives in one REGEDIT4 text file
//
// See Registry.h
#include "platform/Registry.h"

#include "platform/SystemError.h"
#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {
namespace {

constexpr const char* kDefaultPath = "/etc/telmoraq/registry.reg";
constexpr size_t kMaxFileSize = 16u << 20;  // a registry file beyond this is refused as corrupt
constexpr int kUnfinishedRereads = 10;       // at 5 ms: an in-place save takes far less
constexpr int kUnfinishedRereadMs = 5;

// Our own writers hold the lock for one read and one flushed rewrite; a wait
// far beyond that means a process keeps it, and the settings write-back that
// the worker makes before its passes must not wait on that process for good.
constexpr auto kLockWait = std::chrono::seconds(3);
constexpr auto kLockPoll = std::chrono::milliseconds(5);
constexpr uint32_t kErrorLockViolation = 33;

// One line of a section: a value we understood, or a line kept as it was.
struct Line {
    bool isValue = false;
    std::string name;  // as written, without quotes or escapes
    RegistryValue value;
    std::string raw;
};

struct Section {
    std::string path;     // as written between the brackets
    std::string lookup;   // lower case, no trailing backslash
    std::vector<Line> lines;
};

struct Document {
    bool parsed = true;
    bool crlf = false;
    std::string header = "REGEDIT4";
    std::vector<std::string> preamble;  // unreadable lines before the first section
    std::vector<Section> sections;
};

std::mutex g_writeMutex;
// The file whose lock was not had within the wait last time, until it is had
// again: later writes try it once instead of waiting the whole time again.
std::string g_stuckPath;  // guarded by g_writeMutex

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string Trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

// Lower case, backslashes at either end dropped, so that "Software\X\" is "software\x".
std::string NormalizeKey(const std::string& path) {
    size_t begin = path.find_first_not_of('\\');
    if (begin == std::string::npos) return "";
    size_t end = path.find_last_not_of('\\');
    return Lower(path.substr(begin, end - begin + 1));
}

const char* HiveName(RegistryHive hive) {
    return hive == HKEY_CLASSES_ROOT ? "HKEY_CLASSES_ROOT" : "HKEY_LOCAL_MACHINE";
}

std::string FullPath(RegistryHive hive, const std::string& key) {
    std::string rest = key;
    while (!rest.empty() && rest.back() == '\\') rest.pop_back();
    size_t begin = rest.find_first_not_of('\\');
    rest = begin == std::string::npos ? "" : rest.substr(begin);
    return rest.empty() ? HiveName(hive) : std::string(HiveName(hive)) + "\\" + rest;
}

// Reads a quoted text starting at `pos` (on the opening quote); `pos` ends behind
// the closing quote. False when the quote is not closed.
bool ReadQuoted(const std::string& line, size_t& pos, std::string& out) {
    out.clear();
    if (pos >= line.size() || line[pos] != '"') return false;
    for (++pos; pos < line.size(); ++pos) {
        char c = line[pos];
        if (c == '"') {
            ++pos;
            return true;
        }
        if (c == '\\' && pos + 1 < line.size()) c = line[++pos];
        out += c;
    }
    return false;
}

bool ParseDword(const std::string& text, uint32_t& out) {
    if (text.empty() || text.size() > 8) return false;
    out = 0;
    for (char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
        out = out * 16 + static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(c))
                                                   ? c - '0'
                                                   : std::tolower(c) - 'a' + 10);
    }
    return true;
}

std::string DwordData(uint32_t number) {
    std::string data(4, '\0');
    for (int i = 0; i < 4; ++i) data[i] = static_cast<char>((number >> (8 * i)) & 0xFF);
    return data;
}

uint32_t DwordOf(const std::string& data) {
    uint32_t number = 0;
    for (size_t i = 0; i < 4 && i < data.size(); ++i)
        number |= static_cast<uint32_t>(static_cast<unsigned char>(data[i])) << (8 * i);
    return number;
}

// "Name"="text", "Name"=dword:0000000a or @=...; false for anything else.
bool ParseValueLine(const std::string& line, Line& out) {
    size_t pos = 0;
    if (line[0] == '@') {
        out.name.clear();
        pos = 1;
    } else if (!ReadQuoted(line, pos, out.name)) {
        return false;
    }
    if (pos >= line.size() || line[pos] != '=') return false;
    ++pos;
    std::string text;
    if (pos < line.size() && line[pos] == '"') {
        if (!ReadQuoted(line, pos, text) || !Trim(line.substr(pos)).empty()) return false;
        out.value.type = kRegSz;
        out.value.data = text + '\0';
        return true;
    }
    uint32_t number = 0;
    const std::string rest = Trim(line.substr(pos));
    if (Lower(rest.substr(0, 6)) != "dword:" || !ParseDword(rest.substr(6), number)) return false;
    out.value.type = kRegDword;
    out.value.data = DwordData(number);
    return true;
}

void AddSectionLine(Document& doc, const std::string& line) {
    Line entry;
    entry.raw = line;
    if (!line.empty() && ParseValueLine(line, entry)) entry.isValue = true;
    if (doc.sections.empty()) {
        if (!Trim(line).empty()) doc.preamble.push_back(line);
        return;
    }
    if (!entry.isValue && Trim(line).empty()) return;  // blank lines are written anew
    doc.sections.back().lines.push_back(entry);
}

bool IsHeader(const std::string& line) {
    return line == "REGEDIT4" || line == "Windows Registry Editor Version 5.00";
}

Document Parse(std::string text) {
    Document doc;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    doc.crlf = text.find("\r\n") != std::string::npos;
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    if (lines.empty()) return doc;  // an empty file is an empty registry
    const std::string header = Trim(lines[0]);
    if (!IsHeader(header)) {
        doc.parsed = false;
        return doc;
    }
    doc.header = header;
    for (size_t i = 1; i < lines.size(); ++i) {
        const std::string trimmed = Trim(lines[i]);
        if (trimmed.size() > 2 && trimmed.front() == '[' && trimmed.back() == ']') {
            Section section;
            section.path = trimmed.substr(1, trimmed.size() - 2);
            section.lookup = NormalizeKey(section.path);
            doc.sections.push_back(section);
            continue;
        }
        AddSectionLine(doc, lines[i]);
    }
    return doc;
}

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out;
}

std::string FormatLine(const Line& line) {
    if (!line.isValue) return line.raw;
    std::string out = line.name.empty() ? "@=" : "\"" + Escape(line.name) + "\"=";
    if (line.value.type == kRegDword) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "dword:%08x", DwordOf(line.value.data));
        return out + hex;
    }
    std::string text = line.value.data;
    if (!text.empty() && text.back() == '\0') text.pop_back();
    return out + "\"" + Escape(text) + "\"";
}

std::string Serialize(const Document& doc) {
    const std::string eol = doc.crlf ? "\r\n" : "\n";
    std::string out = doc.header + eol;
    for (const std::string& line : doc.preamble) out += line + eol;
    for (const Section& section : doc.sections) {
        out += eol + "[" + section.path + "]" + eol;
        for (const Line& line : section.lines) out += FormatLine(line) + eol;
    }
    return out;
}

Section* FindSection(Document& doc, const std::string& fullPath) {
    const std::string lookup = NormalizeKey(fullPath);
    for (Section& section : doc.sections)
        if (section.lookup == lookup) return &section;
    return nullptr;
}

bool KeyExists(const Document& doc, const std::string& fullPath) {
    const std::string lookup = NormalizeKey(fullPath);
    if (lookup.find('\\') == std::string::npos) return true;  // a hive's root always exists
    for (const Section& section : doc.sections) {
        if (section.lookup == lookup) return true;
        if (section.lookup.compare(0, lookup.size() + 1, lookup + "\\") == 0) return true;
    }
    return false;
}

Line* FindValue(Section& section, const std::string& name) {
    const std::string lookup = Lower(name);
    for (Line& line : section.lines)
        if (line.isValue && Lower(line.name) == lookup) return &line;
    return nullptr;
}

// Empty or ending inside a line: someone may be rewriting the file in place.
bool LooksUnfinished(const std::string& text) { return text.empty() || text.back() != '\n'; }

// The file's text; false when it cannot be read as a regular file.
bool ReadText(const std::string& path, std::string& text, bool& missing) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    missing = fd < 0 && errno == ENOENT;
    if (fd < 0) return false;
    struct stat st {};
    text.clear();
    const bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                    posix::ReadAll(fd, text, kMaxFileSize);
    ::close(fd);
    return ok;
}

// The registry as it stands; a missing file is empty, an unreadable one
// unparsed. A file caught in the middle of an in-place rewrite is looked at
// again a few times, so that a read between its truncation and its writes
// does not take defaults that a later write-back would make permanent.
Document Load(const std::string& path) {
    std::string text;
    bool missing = false;
    for (int attempt = 0;; ++attempt) {
        if (!ReadText(path, text, missing)) {
            Document doc;
            doc.parsed = missing;
            return doc;
        }
        if (!LooksUnfinished(text) || attempt == kUnfinishedRereads) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(kUnfinishedRereadMs));
    }
    return Parse(text);
}

// Takes the lock, polling until `deadline`; 33 when another process kept it.
uint32_t LockUntil(int fd, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
        if (errno != EWOULDBLOCK && errno != EINTR) return LastErrnoAsError();
        if (std::chrono::steady_clock::now() >= deadline) return kErrorLockViolation;
        std::this_thread::sleep_for(kLockPoll);
    }
}

// Opens and locks the file itself. A writer that renamed a new file over the
// path while we waited leaves us holding the old one, so look again until the
// locked file is the one the path names.
int OpenLocked(const std::string& path, bool create, uint32_t& error) {
    const auto deadline = std::chrono::steady_clock::now() +
                          (path == g_stuckPath ? std::chrono::seconds(0) : kLockWait);
    for (;;) {
        int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | (create ? O_CREAT : 0),
                        0644);
        if (fd < 0) {
            error = LastErrnoAsError();
            return -1;
        }
        error = LockUntil(fd, deadline);
        if (error == kErrorLockViolation) g_stuckPath = path;
        if (error != 0) {
            ::close(fd);
            return -1;
        }
        g_stuckPath.clear();
        struct stat held {}, named {};
        if (::fstat(fd, &held) == 0 && ::stat(path.c_str(), &named) == 0 &&
            held.st_ino == named.st_ino && held.st_dev == named.st_dev) {
            if (S_ISREG(held.st_mode)) return fd;
            error = kErrorBadDatabase;
            ::close(fd);
            return -1;
        }
        ::close(fd);
    }
}

using Change = std::function<uint32_t(Document&)>;

// Applies `change` to the file under the lock and writes the result back when
// it differs.
uint32_t Modify(const Change& change) {
    const std::string path = RegistryFilePath();
    std::lock_guard<std::mutex> guard(g_writeMutex);
    const bool missing = ::access(path.c_str(), F_OK) != 0 && errno == ENOENT;
    if (missing) {
        Document empty;
        uint32_t dryRun = change(empty);  // a failing change must not leave an empty file behind
        if (dryRun != 0) return dryRun;
    }
    uint32_t error = 0;
    int fd = OpenLocked(path, true, error);
    if (fd < 0) return error;
    std::string text;
    struct stat st {};
    if (!posix::ReadAll(fd, text, kMaxFileSize) || ::fstat(fd, &st) != 0) {
        ::close(fd);
        return kErrorBadDatabase;
    }
    // A file that is empty or ends inside a line is being written in place by
    // someone without the lock: a rewrite by rename would take its name away,
    // and the writer's remaining bytes would go to the file replaced.
    const bool unfinished = !missing && LooksUnfinished(text);
    Document doc = Parse(text);
    uint32_t result = doc.parsed && !unfinished ? change(doc) : kErrorBadDatabase;
    if (result == 0) {
        // Settings are written back at every read: a file that would come out
        // the same is left alone, neither rewritten nor flushed.
        const std::string updated = Serialize(doc);
        if (updated != text) result = posix::ReplaceFileAtomically(path, updated, st.st_mode);
    }
    ::close(fd);  // releases the lock
    return result;
}

// A line end or a zero cannot be kept inside one line of the file.
bool HasLineEnd(const std::string& text) {
    return text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

uint32_t SetValue(RegistryHive hive, const std::string& key, const std::string& name,
                  const RegistryValue& value) {
    if (HasLineEnd(key) || HasLineEnd(name)) return kErrorInvalidParameter;
    const std::string fullPath = FullPath(hive, key);
    return Modify([&](Document& doc) -> uint32_t {
        Section* section = FindSection(doc, fullPath);
        if (section == nullptr) {
            if (!KeyExists(doc, fullPath)) return kErrorFileNotFound;
            doc.sections.push_back(Section{fullPath, NormalizeKey(fullPath), {}});
            section = &doc.sections.back();
        }
        Line* line = FindValue(*section, name);
        if (line == nullptr) {
            section->lines.push_back(Line{true, name, value, ""});
            return 0;
        }
        line->value = value;
        return 0;
    });
}

}  // namespace

std::string RegistryFilePath() {
    const char* path = std::getenv("TELMORAQ_REGISTRY");
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

uint32_t ProbeRegistryKey(RegistryHive hive, const std::string& key, bool /*wideView*/) {
    return KeyExists(Load(RegistryFilePath()), FullPath(hive, key)) ? 0 : kErrorFileNotFound;
}

uint32_t CreateRegistryKey(RegistryHive hive, const std::string& key, bool /*wideView*/) {
    if (HasLineEnd(key) || key.find_first_of("[]") != std::string::npos)
        return kErrorInvalidParameter;
    const std::string fullPath = FullPath(hive, key);
    if (KeyExists(Load(RegistryFilePath()), fullPath)) return 0;
    return Modify([&](Document& doc) -> uint32_t {
        if (!KeyExists(doc, fullPath))
            doc.sections.push_back(Section{fullPath, NormalizeKey(fullPath), {}});
        return 0;
    });
}

uint32_t QueryRegistryValue(RegistryHive hive, const std::string& key, const std::string& name,
                            RegistryValue& out, bool /*wideView*/) {
    Document doc = Load(RegistryFilePath());
    const std::string fullPath = FullPath(hive, key);
    if (!KeyExists(doc, fullPath)) return kErrorFileNotFound;
    Section* section = FindSection(doc, fullPath);
    Line* line = section == nullptr ? nullptr : FindValue(*section, name);
    if (line == nullptr) return kErrorFileNotFound;
    out = line->value;
    return 0;
}

uint32_t SetRegistryString(RegistryHive hive, const std::string& key, const std::string& name,
                           const std::string& text, bool /*wideView*/) {
    if (HasLineEnd(text)) return kErrorInvalidParameter;
    RegistryValue value;
    value.type = kRegSz;
    value.data = text + '\0';
    return SetValue(hive, key, name, value);
}

uint32_t SetRegistryDword(RegistryHive hive, const std::string& key, const std::string& name,
                          uint32_t number, bool /*wideView*/) {
    RegistryValue value;
    value.type = kRegDword;
    value.data = DwordData(number);
    return SetValue(hive, key, name, value);
}

}  // namespace platform
