// Files.h - directory search, durable copy and rename, delete, existence tests, file locks
//
// The search takes a path whose last component may hold "*" and "?" (the folder
// part is taken literally) and yields the matching entries in the order the
// file system gives, "." and ".." first where they match, as a Windows search
// does. Patterns match without regard to ASCII case, "*.*" matching every name.
//
// Input:       paths are the system's bytes; "/" separates components.
// Diagnostics: failures give a Windows error number (2 not found, 3 path not
//              found, 5 access denied, 80 file exists, 112 disk full, ...) and
//              leave it in the thread's last error (SystemError.h).
// Known gaps:  no short (8.3) names, so "*.nvq" does not match "a.nvqx" as it
//              can on Windows. Opening a file for reading is FileIo.h's.
// See also:    posix/Files.cpp, FileIo.h, SystemError.h
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

struct DirectoryEntry {
    std::string name;  // the entry's name alone, without its folder
    bool isDirectory = false;
    uint64_t size = 0;
};

// One search over a folder. Entries that vanish while it runs are passed over.
class DirectorySearch {
public:
    explicit DirectorySearch(const std::string& pattern);
    ~DirectorySearch();
    DirectorySearch(const DirectorySearch&) = delete;
    DirectorySearch& operator=(const DirectorySearch&) = delete;

    // The next match; false at the end or when the folder could not be read
    // (then error() tells why: 2, 3, 5; 18 at a plain end).
    bool Next(DirectoryEntry& out);
    uint32_t error() const { return error_; }

private:
    struct State;
    std::unique_ptr<State> state_;
    uint32_t error_ = 0;
};

// True when `name` matches `pattern` by the rules above.
bool MatchesPattern(const std::string& pattern, const std::string& name);

enum class PathKind { Missing, File, Directory };

// What stands at `path` (links followed). Anything that is not a folder, a FIFO
// or a device included, is a File, as Windows would list it.
PathKind GetPathKind(const std::string& path);

// Copies `from` (a regular file) to `to`. The data goes to a temporary name
// beside `to`, is flushed, and only then gets the name `to`, so that a copy
// that exists is complete; the folder is flushed last, and a failure there
// fails the copy. With `failIfExists` an existing `to` is never touched and
// gives 80. Returns 0 or an error number.
uint32_t CopyFileDurably(const std::string& from, const std::string& to, bool failIfExists);

// Appends `data` with one write to a regular file, created when missing (its
// folder is not). Anything else at `path` (a FIFO, a device) fails at once,
// never blocking. Returns 0 or an error number.
uint32_t AppendToFile(const std::string& path, const std::string& data);

// Deletes a file (not a folder: 5). Returns 0 or an error number.
uint32_t DeleteFile(const std::string& path);

// Flushes the folder that holds `path`, so that an entry made or removed in it
// survives a crash. 0 or an error number.
uint32_t SyncParentDirectory(const std::string& path);

// Renames `from` to `to` in the same file system, never replacing an existing
// `to` (80), and flushes the folder. 0 or an error number.
uint32_t RenameFileNoReplace(const std::string& from, const std::string& to);

// An advisory lock on a file, created when missing, taken without waiting and
// held until the object goes. Busy() tells that another holder has it; a file
// that could not be opened is neither held nor busy.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool Held() const { return fd_ >= 0; }
    bool Busy() const { return busy_; }

private:
    int fd_ = -1;
    bool busy_ = false;
};

}  // namespace platform
