// FileIo.h - opening, reading and writing whole files with Windows sharing rules
//
// The engine's file layer opens files the way its Windows model does: a reader
// shares read and write with others, a writer shares nothing. On POSIX the
// sharing is an advisory whole-file lock (flock) taken without waiting: shared
// for readers, exclusive for writers. A conflict, within this process or with
// another that locks the same way, fails with 32 (sharing violation). The
// Windows read-only attribute is the owner's write bit: a file without it
// cannot be opened for writing, even by a privileged user, until the bit is set.
//
// Input:       paths are the system's bytes (UTF-8); only regular files open,
//              so a FIFO or a device can neither block nor stream for ever.
// Diagnostics: failures give false or kNoFile and a Windows error number in
//              `error` and in the thread's last error (SystemError.h).
// Limits:      one read or write moves at most 2^32 - 1 bytes.
// See also:    posix/FileIo.cpp, SystemError.h
#pragma once

#include <cstdint>
#include <string>

namespace platform {

using FileHandle = int;
constexpr FileHandle kNoFile = -1;

constexpr uint32_t kErrorSharingViolation = 32;
constexpr uint32_t kErrorHandleEof = 38;

constexpr uint32_t kFileAttributeReadOnly = 0x01;
constexpr uint32_t kFileAttributeDirectory = 0x10;
constexpr uint32_t kFileAttributeNormal = 0x80;

// An existing regular file for reading, sharing read and write.
// Errors: 2 not found, 3 path not found, 5 not a regular file or no access,
// 32 held by a writer.
FileHandle OpenFileForReading(const std::string& path, uint32_t& error);

// A regular file for writing, created or truncated, sharing nothing. The file
// is truncated only once the lock is held, so a refused open changes nothing.
// Errors: 3 path not found, 5 read-only, not a regular file or no access,
// 32 open elsewhere.
FileHandle CreateFileForWriting(const std::string& path, uint32_t& error);

// Reads up to `count` bytes; fewer only at the end of the file (then `got`
// may be 0). Interrupted and partial reads are resumed.
bool ReadFromFile(FileHandle file, void* buffer, uint32_t count, uint32_t& got, uint32_t& error);

// Writes `count` bytes with one system call, resuming only after a partial
// write; `written` counts what went out.
bool WriteToFile(FileHandle file, const void* bytes, uint32_t count, uint32_t& written,
                 uint32_t& error);

// The size of an open file.
bool FileSizeOf(FileHandle file, int64_t& size, uint32_t& error);

// Closes and releases the lock; kNoFile is ignored.
void CloseFile(FileHandle file);

// kFileAttributeDirectory, kFileAttributeReadOnly, or kFileAttributeNormal
// when neither applies.
bool GetFileAttributes(const std::string& path, uint32_t& attributes, uint32_t& error);

// Only the read-only bit has a meaning: set, every write bit goes; clear,
// the owner's write bit comes back.
bool SetFileAttributes(const std::string& path, uint32_t attributes);

// An absolute form of `path` (the working directory in front of a relative
// one), without touching the file system beyond the working directory.
bool FullPathName(const std::string& path, std::string& out);

// The working directory; "" when it cannot be read.
std::string CurrentDirectory();

}  // namespace platform
