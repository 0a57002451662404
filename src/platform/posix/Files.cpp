// Files.cpp - directory search over opendir, durable copy, delete, stat tests
//
// See Files.h
#include "platform/Files.h"

#include "platform/SystemError.h"
#include "platform/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <vector>

namespace platform {
namespace {

char Fold(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

// Records `code` as the thread's last error and returns it.
uint32_t Fail(uint32_t code) {
    SetLastError(code);
    return code;
}

bool FillEntry(int dirFd, const char* name, DirectoryEntry& out) {
    struct stat st {};
    if (::fstatat(dirFd, name, &st, 0) != 0 && ::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return false;  // gone since it was listed
    out.name = name;
    out.isDirectory = S_ISDIR(st.st_mode);
    out.size = S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
    return true;
}

bool CopyData(int in, int out) {
    std::vector<char> buffer(1 << 16);
    for (;;) {
        ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        if (!posix::WriteAll(out, buffer.data(), static_cast<size_t>(got))) return false;
    }
}

// Gives the finished temporary file its name; with `failIfExists` atomically
// refusing an existing one: rename without replace, or a hard link where the
// file system has no such rename.
uint32_t Publish(const std::string& temp, const std::string& to, bool failIfExists) {
    if (!failIfExists) return ::rename(temp.c_str(), to.c_str()) == 0 ? 0 : LastErrnoAsError();
    if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return LastErrnoAsError();
    if (::link(temp.c_str(), to.c_str()) != 0) return LastErrnoAsError();
    ::unlink(temp.c_str());
    return 0;
}

// Writes the whole of `in` to a new temporary file beside `to`, flushed, and
// names its path in `temp`. The temporary name is short and fixed in length:
// one derived from `to` would be too long for a name near the 255-byte limit.
uint32_t WriteTemporaryCopy(int in, mode_t mode, const std::string& to, std::string& temp) {
    const size_t slash = to.rfind('/');
    temp = (slash == std::string::npos ? std::string() : to.substr(0, slash + 1)) + ".copy-XXXXXX";
    int out = ::mkstemp(&temp[0]);
    if (out < 0) {
        const int err = errno;
        temp.clear();
        return posix::PathError(to, err);
    }
    uint32_t error = 0;
    if (::fchmod(out, mode & 0777) != 0 || !CopyData(in, out) || ::fsync(out) != 0)
        error = LastErrnoAsError();
    if (::close(out) != 0 && error == 0) error = LastErrnoAsError();
    return error;
}

}  // namespace

struct DirectorySearch::State {
    DIR* dir = nullptr;
    std::string namePattern;
    int dotsGiven = 0;  // "." and ".." come first, as on Windows
    bool single = false;
    std::string singlePath;
    size_t found = 0;
};

bool MatchesPattern(const std::string& pattern, const std::string& name) {
    if (pattern == "*" || pattern == "*.*") return true;
    size_t p = 0, n = 0, starP = std::string::npos, starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || Fold(pattern[p]) == Fold(name[n]))) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starN = n;
        } else if (starP != std::string::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

DirectorySearch::DirectorySearch(const std::string& pattern) : state_(new State) {
    const size_t slash = pattern.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : pattern.substr(0, slash);
    state_->namePattern = slash == std::string::npos ? pattern : pattern.substr(slash + 1);
    if (state_->namePattern.empty()) {
        error_ = Fail(kErrorFileNotFound);
        return;
    }
    if (!HasWildcard(state_->namePattern)) {  // a plain name is looked up, not searched for
        state_->single = true;
        state_->singlePath = pattern;
        return;
    }
    state_->dir = ::opendir(folder.c_str());
    if (state_->dir == nullptr) {
        const int err = errno;
        error_ = Fail(err == ENOENT || err == ENOTDIR ? kErrorPathNotFound : MapErrno(err));
    }
}

DirectorySearch::~DirectorySearch() {
    if (state_->dir != nullptr) ::closedir(state_->dir);
}

bool DirectorySearch::Next(DirectoryEntry& out) {
    if (state_->single) {
        state_->single = false;
        struct stat st {};
        if (::stat(state_->singlePath.c_str(), &st) != 0) {
            error_ = Fail(posix::PathError(state_->singlePath, errno));
            return false;
        }
        out.name = state_->namePattern;
        out.isDirectory = S_ISDIR(st.st_mode);
        out.size = S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
        ++state_->found;
        return true;
    }
    if (state_->dir == nullptr) {
        if (error_ == 0) error_ = Fail(state_->found ? kErrorNoMoreFiles : kErrorFileNotFound);
        return false;
    }
    const int dirFd = ::dirfd(state_->dir);
    while (state_->dotsGiven < 2) {
        const char* dot = state_->dotsGiven++ == 0 ? "." : "..";
        if (MatchesPattern(state_->namePattern, dot) && FillEntry(dirFd, dot, out)) {
            ++state_->found;
            return true;
        }
    }
    for (;;) {
        errno = 0;
        struct dirent* entry = ::readdir(state_->dir);
        if (entry == nullptr) {
            const uint32_t code = errno != 0 ? MapErrno(errno)
                                  : state_->found ? kErrorNoMoreFiles : kErrorFileNotFound;
            error_ = Fail(code);
            ::closedir(state_->dir);
            state_->dir = nullptr;
            return false;
        }
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (!MatchesPattern(state_->namePattern, name) || !FillEntry(dirFd, entry->d_name, out))
            continue;
        ++state_->found;
        return true;
    }
}

PathKind GetPathKind(const std::string& path) {
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return PathKind::Missing;
    return S_ISDIR(st.st_mode) ? PathKind::Directory : PathKind::File;
}

uint32_t CopyFileDurably(const std::string& from, const std::string& to, bool failIfExists) {
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (in < 0) return Fail(posix::PathError(from, errno));
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(in);
        return Fail(kErrorAccessDenied);
    }
    struct stat existing {};
    if (failIfExists && ::lstat(to.c_str(), &existing) == 0) {
        ::close(in);
        return Fail(kErrorFileExists);
    }
    std::string temp;
    uint32_t error = WriteTemporaryCopy(in, st.st_mode, to, temp);
    ::close(in);
    if (error == 0) error = Publish(temp, to, failIfExists);
    if (error != 0) {
        if (!temp.empty()) ::unlink(temp.c_str());
        return Fail(error);
    }
    // The name is only durable once the folder is flushed: a failed flush is
    // a failed copy, though the file now stands under its name.
    error = SyncParentDirectory(to);
    return error == 0 ? 0 : Fail(error);
}

uint32_t AppendToFile(const std::string& path, const std::string& data) {
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) return Fail(posix::PathError(path, errno));
    struct stat st {};
    uint32_t error = 0;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        error = kErrorAccessDenied;
    else if (!posix::WriteAll(fd, data.data(), data.size()))
        error = LastErrnoAsError();
    ::close(fd);
    return error == 0 ? 0 : Fail(error);
}

uint32_t DeleteFile(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return Fail(posix::PathError(path, errno));
    if (S_ISDIR(st.st_mode)) return Fail(kErrorAccessDenied);
    if (::unlink(path.c_str()) != 0) return Fail(posix::PathError(path, errno));
    return 0;
}

uint32_t SyncParentDirectory(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return LastErrnoAsError();
    const bool synced = ::fsync(fd) == 0;
    const uint32_t error = synced ? 0 : LastErrnoAsError();
    ::close(fd);
    return error;
}

uint32_t RenameFileNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
        if (errno != EINVAL && errno != ENOSYS) return LastErrnoAsError();
        // A file system without the flag: a link refuses an existing name too.
        if (::link(from.c_str(), to.c_str()) != 0) return LastErrnoAsError();
        ::unlink(from.c_str());
    }
    return SyncParentDirectory(to);
}

FileLock::FileLock(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644);
    if (fd_ >= 0 && ::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        busy_ = errno == EWOULDBLOCK;
        ::close(fd_);
        fd_ = -1;
    }
}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace platform
