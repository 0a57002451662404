// FileIo.cpp - opening, reading and writing whole files with Windows sharing rules
//
// See FileIo.h
#include "platform/FileIo.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/SystemError.h"

namespace platform {

namespace {

bool fail(uint32_t code, uint32_t& error) {
    error = code;
    SetLastError(code);
    return false;
}

FileHandle failOpen(FileHandle fd, uint32_t code, uint32_t& error) {
    if (fd >= 0) ::close(fd);
    fail(code, error);
    return kNoFile;
}

// ENOENT for the whole path means the file is missing; for a directory part
// Windows says "path not found".
uint32_t openError(const std::string& path, int err) {
    if (err != ENOENT) return MapErrno(err);
    std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return kErrorFileNotFound;
    struct stat st;
    return ::stat(path.substr(0, slash).c_str(), &st) == 0 ? kErrorFileNotFound
                                                           : kErrorPathNotFound;
}

// Takes the sharing lock without waiting; 32 when someone holds a conflicting one.
uint32_t takeShareLock(FileHandle fd, int mode) {
    while (::flock(fd, mode | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        return errno == EWOULDBLOCK ? kErrorSharingViolation : MapErrno(errno);
    }
    return 0;
}

// Opened with O_NONBLOCK so that a FIFO cannot hang the open; regular files
// then go back to blocking mode.
uint32_t checkRegularAndBlock(FileHandle fd, struct stat& st) {
    if (::fstat(fd, &st) != 0) return MapErrno(errno);
    if (!S_ISREG(st.st_mode)) return kErrorAccessDenied;
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) return MapErrno(errno);
    return 0;
}

}  // namespace

FileHandle OpenFileForReading(const std::string& path, uint32_t& error) {
    FileHandle fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return failOpen(fd, openError(path, errno), error);
    struct stat st;
    if (uint32_t code = checkRegularAndBlock(fd, st)) return failOpen(fd, code, error);
    if (uint32_t code = takeShareLock(fd, LOCK_SH)) return failOpen(fd, code, error);
    error = 0;
    return fd;
}

FileHandle CreateFileForWriting(const std::string& path, uint32_t& error) {
    FileHandle fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0) return failOpen(fd, openError(path, errno), error);
    struct stat st;
    if (uint32_t code = checkRegularAndBlock(fd, st)) return failOpen(fd, code, error);
    if (!(st.st_mode & S_IWUSR)) return failOpen(fd, kErrorAccessDenied, error);
    if (uint32_t code = takeShareLock(fd, LOCK_EX)) return failOpen(fd, code, error);
    if (::ftruncate(fd, 0) != 0) return failOpen(fd, MapErrno(errno), error);
    error = 0;
    return fd;
}

bool ReadFromFile(FileHandle file, void* buffer, uint32_t count, uint32_t& got, uint32_t& error) {
    got = 0;
    auto* out = static_cast<char*>(buffer);
    while (got < count) {
        size_t want = count - got;
        if (want > SSIZE_MAX) want = SSIZE_MAX;
        ssize_t n = ::read(file, out + got, want);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(MapErrno(errno), error);
        if (n == 0) break;
        got += static_cast<uint32_t>(n);
    }
    error = 0;
    return true;
}

bool WriteToFile(FileHandle file, const void* bytes, uint32_t count, uint32_t& written,
                 uint32_t& error) {
    written = 0;
    const auto* in = static_cast<const char*>(bytes);
    while (written < count) {
        ssize_t n = ::write(file, in + written, count - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(MapErrno(errno), error);
        if (n == 0) return fail(kErrorDiskFull, error);
        written += static_cast<uint32_t>(n);
    }
    error = 0;
    return true;
}

bool FileSizeOf(FileHandle file, int64_t& size, uint32_t& error) {
    struct stat st;
    if (::fstat(file, &st) != 0) return fail(MapErrno(errno), error);
    size = static_cast<int64_t>(st.st_size);
    error = 0;
    return true;
}

void CloseFile(FileHandle file) {
    if (file >= 0) ::close(file);
}

bool GetFileAttributes(const std::string& path, uint32_t& attributes, uint32_t& error) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return fail(openError(path, errno), error);
    attributes = 0;
    if (S_ISDIR(st.st_mode)) attributes |= kFileAttributeDirectory;
    if (!(st.st_mode & S_IWUSR)) attributes |= kFileAttributeReadOnly;
    if (attributes == 0) attributes = kFileAttributeNormal;
    error = 0;
    return true;
}

bool SetFileAttributes(const std::string& path, uint32_t attributes) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        SetLastError(MapErrno(errno));
        return false;
    }
    mode_t mode = st.st_mode & 07777;
    if (attributes & kFileAttributeReadOnly) {
        mode &= ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH);
    } else {
        mode |= S_IWUSR;
    }
    if (::chmod(path.c_str(), mode) != 0) {
        SetLastError(MapErrno(errno));
        return false;
    }
    return true;
}

bool FullPathName(const std::string& path, std::string& out) {
    if (!path.empty() && path[0] == '/') {
        out = path;
        return true;
    }
    std::string cwd = CurrentDirectory();
    if (cwd.empty()) return false;
    out = cwd;
    if (out.back() != '/') out += '/';
    out += path;
    return true;
}

std::string CurrentDirectory() {
    char buffer[PATH_MAX];
    if (!::getcwd(buffer, sizeof buffer)) return std::string();
    return buffer;
}

}  // namespace platform
