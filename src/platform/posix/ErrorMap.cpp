// ErrorMap.cpp - errno to Windows error numbers, and the per-thread last error
//
// See SystemError.h
#include "platform/SystemError.h"

#include <cerrno>
#include <cstddef>

namespace platform {
namespace {

struct ErrnoRow {
    int errnoValue;
    uint32_t code;
};

// The one mapping table of the seam for file and system errors.
constexpr ErrnoRow kErrnoRows[] = {
    {EPERM, 5},          // operation not permitted -> access denied
    {ENOENT, 2},         // file not found
    {ENOTDIR, 3},        // a directory part is a file -> path not found
    {ENAMETOOLONG, 206}, // file name too long
    {ELOOP, 1921},       // symbolic link cannot be followed
    {EACCES, 5},         // access denied
    {EROFS, 19},         // write protected
    {EBUSY, 32},         // sharing violation
    {ETXTBSY, 32},
    {EEXIST, 80},        // file exists
    {EISDIR, 5},         // Windows refuses a directory as a file with access denied
    {EINVAL, 87},        // invalid parameter
    {ENOSPC, 112},       // disk full
    {EDQUOT, 112},
    {EFBIG, 223},        // file too large
    {ENOMEM, 8},         // not enough memory
    {EMFILE, 4},         // too many open files
    {ENFILE, 4},
    {EBADF, 6},          // invalid handle
    {EIO, 1117},         // I/O device error
    {EXDEV, 17},         // cannot move to a different disk drive
    {ENOTEMPTY, 145},    // directory not empty
    {EAGAIN, 33},        // lock violation (a lock held elsewhere)
    {ENOLCK, 33},
    {ENOSYS, 50},        // not supported
    {EOPNOTSUPP, 50},
    {ENXIO, 21},         // device not ready
    {ENODEV, 21},
    {EPIPE, 109},        // broken pipe
    {EINTR, 1223},       // cancelled
};

thread_local uint32_t t_lastError = 0;

}  // namespace

uint32_t MapErrno(int errnoValue) {
    if (errnoValue == 0) return 0;
    for (const ErrnoRow& row : kErrnoRows)
        if (row.errnoValue == errnoValue) return row.code;
    return 31;  // a device attached to the system is not functioning: the general failure
}

uint32_t LastErrnoAsError() { return MapErrno(errno); }

uint32_t GetLastError() { return t_lastError; }

void SetLastError(uint32_t code) { t_lastError = code; }

}  // namespace platform
