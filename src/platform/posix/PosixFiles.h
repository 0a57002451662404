// PosixFiles.h - file primitives shared by the POSIX implementations
//
// Internal to the seam: EINTR and short transfers are absorbed here, so the
// callers see only whole results.
//
// See also: PosixFiles.cpp
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {
namespace posix {

// Reads `fd` to its end; false on a read error or when more than `limit` bytes come.
bool ReadAll(int fd, std::string& out, size_t limit);

// Writes all of `data`; false on any error (errno tells which).
bool WriteAll(int fd, const void* data, size_t size);

// The folder part of `path` ("." when there is none).
std::string DirectoryOf(const std::string& path);

// The Windows error number for a failed operation on `path` with `errnoValue`:
// a missing entry is 3 (path not found) when its folder is missing too, else 2.
uint32_t PathError(const std::string& path, int errnoValue);

// Flushes the folder of `path`, so that a rename or a new name in it lasts.
void SyncDirectoryOf(const std::string& path);

// Replaces the file's contents at once: a temporary file beside it with `mode`,
// flushed, renamed over it. 0 or a Windows error number.
uint32_t ReplaceFileAtomically(const std::string& path, const std::string& text, mode_t mode);

}  // namespace posix
}  // namespace platform
