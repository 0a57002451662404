// PosixFiles.cpp - file primitives shared by the POSIX implementations
//
// See PosixFiles.h
#include "platform/posix/PosixFiles.h"

#include "platform/SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace platform {
namespace posix {

bool ReadAll(int fd, std::string& out, size_t limit) {
    out.clear();
    char buffer[8192];
    for (;;) {
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        out.append(buffer, static_cast<size_t>(got));
        if (out.size() > limit) return false;
    }
}

bool WriteAll(int fd, const void* data, size_t size) {
    const char* bytes = static_cast<const char*>(data);
    size_t done = 0;
    while (done < size) {
        ssize_t put = ::write(fd, bytes + done, size - done);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return false;
        if (put == 0) {
            errno = ENOSPC;
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}

std::string DirectoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

uint32_t PathError(const std::string& path, int errnoValue) {
    if (errnoValue != ENOENT) return MapErrno(errnoValue);
    struct stat st {};
    const bool folderThere = ::stat(DirectoryOf(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    return folderThere ? kErrorFileNotFound : kErrorPathNotFound;
}

void SyncDirectoryOf(const std::string& path) {
    int dirFd = ::open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return;
    ::fsync(dirFd);
    ::close(dirFd);
}

uint32_t ReplaceFileAtomically(const std::string& path, const std::string& text, mode_t mode) {
    std::string temp = path + ".XXXXXX";
    int fd = ::mkstemp(&temp[0]);
    if (fd < 0) return LastErrnoAsError();
    uint32_t error = 0;
    if (::fchmod(fd, mode & 07777) != 0 || !WriteAll(fd, text.data(), text.size()) ||
        ::fsync(fd) != 0)
        error = LastErrnoAsError();
    if (::close(fd) != 0 && error == 0) error = LastErrnoAsError();
    if (error == 0 && ::rename(temp.c_str(), path.c_str()) != 0) error = LastErrnoAsError();
    if (error != 0) {
        ::unlink(temp.c_str());
        return error;
    }
    SyncDirectoryOf(path);
    return 0;
}

}  // namespace posix
}  // namespace platform
