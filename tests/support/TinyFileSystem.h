// TinyFileSystem.h - a 64 KiB file system for disk-full tests, in a forked child
//
// Call only in a child made by fork(): it makes the process root of a new user
// and mount namespace (which needs a single-threaded process) and mounts a
// tmpfs there, invisible to everyone else.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace testsupport {

// Becomes root of a new user and mount namespace (this process only) and
// mounts a 64 KiB file system at `where`; false where the system forbids it.
inline bool MountTinyFileSystem(const std::string& where) {
    const unsigned uid = ::getuid(), gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    auto put = [](const char* file, const std::string& text) {
        int fd = ::open(file, O_WRONLY);
        bool ok = fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (fd >= 0) ::close(fd);
        return ok;
    };
    put("/proc/self/setgroups", "deny");
    if (!put("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !put("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
        return false;
    return ::mount("none", where.c_str(), "tmpfs", 0, "size=64k") == 0;
}

// Runs `body` in a forked child on a tiny file system at `where`: 0 when it
// returned true, 1 when false, 77 where the mount is forbidden, -1 when lost.
template <typename Body>
int OnTinyFileSystem(const std::string& where, Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(!MountTinyFileSystem(where) ? 77 : body() ? 0 : 1);
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace testsupport
