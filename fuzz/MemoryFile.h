// MemoryFile.h - fuzz input as a regular file by path, without touching a disk
//
// The mail object loads only from a path, so each input goes into an anonymous
// memory file reached through /proc/self/fd.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

class MemoryFile {
public:
    MemoryFile(const void* data, size_t size) : fd_(::memfd_create("fuzz-input", MFD_CLOEXEC)) {
        if (fd_ < 0) return;
        const char* bytes = static_cast<const char*>(data);
        for (size_t done = 0; done < size;) {
            const ssize_t wrote = ::write(fd_, bytes + done, size - done);
            if (wrote <= 0) break;
            done += static_cast<size_t>(wrote);
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~MemoryFile() {
        if (fd_ >= 0) ::close(fd_);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    bool ok() const { return fd_ >= 0; }
    const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};
