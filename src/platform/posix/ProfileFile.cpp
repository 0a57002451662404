// ProfileFile.cpp - sections and keys of INI-style profile files
//
// See ProfileFile.h
#include "platform/ProfileFile.h"

#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace platform {
namespace {

constexpr size_t kMaxProfileSize = 16u << 20;

std::mutex g_writeMutex;

struct Profile {
    std::vector<std::string> lines;
    bool crlf = false;
};

std::string Trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

bool SameName(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// The section name of a "[name]" line, or false.
bool SectionName(const std::string& line, std::string& name) {
    const std::string trimmed = Trim(line);
    if (trimmed.size() < 2 || trimmed.front() != '[') return false;
    size_t close = trimmed.find(']');
    if (close == std::string::npos) return false;
    name = Trim(trimmed.substr(1, close - 1));
    return true;
}

std::string KeyOf(const std::string& line) {
    size_t equals = line.find('=');
    return equals == std::string::npos ? Trim(line) : Trim(line.substr(0, equals));
}

bool IsEntry(const std::string& line) {
    const std::string trimmed = Trim(line);
    return !trimmed.empty() && trimmed[0] != ';';
}

bool Load(const std::string& file, Profile& out) {
    out = Profile();
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return errno == ENOENT;  // a missing file is an empty profile
    struct stat st {};
    std::string text;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
              posix::ReadAll(fd, text, kMaxProfileSize);
    ::close(fd);
    if (!ok) return false;
    out.crlf = text.find("\r\n") != std::string::npos;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        out.lines.push_back(line);
        start = end + 1;
    }
    return true;
}

bool Save(const std::string& file, const Profile& profile) {
    const std::string eol = profile.crlf ? "\r\n" : "\n";
    std::string text;
    for (const std::string& line : profile.lines) text += line + eol;
    struct stat st {};
    const mode_t mode = ::stat(file.c_str(), &st) == 0 ? st.st_mode : 0644;
    return posix::ReplaceFileAtomically(file, text, mode) == 0;
}

// The range of lines of the section, header excluded: [first, last). The
// header's index is `header`; false when the section is missing.
bool FindSection(const Profile& profile, const std::string& section, size_t& header,
                 size_t& first, size_t& last) {
    std::string name;
    for (size_t i = 0; i < profile.lines.size(); ++i) {
        if (!SectionName(profile.lines[i], name) || !SameName(name, section)) continue;
        header = i;
        first = i + 1;
        last = first;
        while (last < profile.lines.size() && !SectionName(profile.lines[last], name)) ++last;
        return true;
    }
    return false;
}

// The lines of a zero-separated block closed by a zero pair.
std::vector<std::string> BlockLines(const char* block) {
    std::vector<std::string> lines;
    while (*block != '\0') {
        lines.emplace_back(block);
        block += std::strlen(block) + 1;
    }
    return lines;
}

// Appends a new section at the end of the profile and returns its line range end.
size_t AppendSection(Profile& profile, const std::string& section) {
    profile.lines.push_back("[" + section + "]");
    return profile.lines.size();
}

using Edit = bool (*)(Profile&, const std::string&, const std::string&, const char*);

bool Change(const std::string& file, const std::string& section, const std::string& key,
            const char* value, Edit edit) {
    if (file.empty() || section.empty()) return false;
    std::lock_guard<std::mutex> guard(g_writeMutex);
    Profile profile;
    if (!Load(file, profile)) return false;
    return edit(profile, section, key, value) && Save(file, profile);
}

bool ReplaceSection(Profile& profile, const std::string& section, const std::string&,
                    const char* block) {
    size_t header = 0, first = 0, last = 0;
    const bool found = FindSection(profile, section, header, first, last);
    if (block == nullptr) {
        if (found) profile.lines.erase(profile.lines.begin() + header, profile.lines.begin() + last);
        return true;
    }
    const std::vector<std::string> lines = BlockLines(block);
    if (!found) {
        AppendSection(profile, section);
        profile.lines.insert(profile.lines.end(), lines.begin(), lines.end());
        return true;
    }
    profile.lines.erase(profile.lines.begin() + first, profile.lines.begin() + last);
    profile.lines.insert(profile.lines.begin() + first, lines.begin(), lines.end());
    return true;
}

bool SetKey(Profile& profile, const std::string& section, const std::string& key,
            const char* value) {
    if (key.empty()) return false;
    size_t header = 0, first = 0, last = 0;
    if (!FindSection(profile, section, header, first, last)) {
        if (value == nullptr) return true;
        first = last = AppendSection(profile, section);
    }
    for (size_t i = first; i < last; ++i) {
        if (!IsEntry(profile.lines[i]) || !SameName(KeyOf(profile.lines[i]), key)) continue;
        if (value == nullptr)
            profile.lines.erase(profile.lines.begin() + i);
        else
            profile.lines[i] = key + "=" + value;
        return true;
    }
    if (value == nullptr) return true;
    size_t at = last;
    while (at > first && Trim(profile.lines[at - 1]).empty()) --at;  // before trailing blanks
    profile.lines.insert(profile.lines.begin() + at, key + "=" + value);
    return true;
}

}  // namespace

size_t GetPrivateProfileSection(const std::string& section, char* out, size_t size,
                                const std::string& file) {
    if (out == nullptr || size == 0) return 0;
    out[0] = '\0';
    if (size == 1) return 0;
    out[1] = '\0';
    Profile profile;
    size_t header = 0, first = 0, last = 0;
    if (!Load(file, profile) || !FindSection(profile, section, header, first, last)) return 0;
    size_t used = 0;
    for (size_t i = first; i < last; ++i) {
        if (!IsEntry(profile.lines[i])) continue;
        const std::string line = Trim(profile.lines[i]);
        if (used + line.size() + 2 > size) {
            // Too small: as much as fits, closed by the zero pair, and size - 2.
            const size_t room = size - 2 - used;
            std::memcpy(out + used, line.data(), room);
            out[size - 2] = '\0';
            out[size - 1] = '\0';
            return size - 2;
        }
        std::memcpy(out + used, line.data(), line.size());
        used += line.size();
        out[used++] = '\0';
    }
    out[used] = '\0';
    if (used == 0) out[1] = '\0';
    return used;
}

int GetPrivateProfileInt(const std::string& section, const std::string& key, int defaultValue,
                         const std::string& file) {
    Profile profile;
    size_t header = 0, first = 0, last = 0;
    if (!Load(file, profile) || !FindSection(profile, section, header, first, last))
        return defaultValue;
    for (size_t i = first; i < last; ++i) {
        const std::string& line = profile.lines[i];
        if (!IsEntry(line) || line.find('=') == std::string::npos || !SameName(KeyOf(line), key))
            continue;
        const std::string value = Trim(line.substr(line.find('=') + 1));
        char* end = nullptr;
        errno = 0;
        const long number = std::strtol(value.c_str(), &end, 10);
        if (end == value.c_str() || errno == ERANGE || number < INT_MIN || number > INT_MAX)
            return defaultValue;
        return static_cast<int>(number);
    }
    return defaultValue;
}

bool WritePrivateProfileSection(const std::string& section, const char* block,
                                const std::string& file) {
    return Change(file, section, "", block, ReplaceSection);
}

bool WritePrivateProfileString(const std::string& section, const std::string& key,
                               const char* value, const std::string& file) {
    return Change(file, section, key, value, SetKey);
}

}  // namespace platform
