// BrelkinHandle.h - one open file of the engine's file layer
//
// Holds a system file handle or a C stream; every operation tries the handle
// first. Reads and writes report into a LogBase (null: no logging) and never
// throw. Writes go out in pieces of at most 10,000,000 bytes, so a 64-bit
// count never reaches the system in one call.
//
// Input:       a null buffer or a count of 0 is refused by read and accepted
//              (as nothing to do) by write.
// Diagnostics: bool results, or 0xFFFFFFFF / -1 for a size that failed; the
//              reasons go to the log in the words the rest of the engine expects.
// See also:    FileOps.h, ../../platform/FileIo.h
#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/FileIo.h"

namespace brelkin {

class LogBase;

class BrelkinHandle {
public:
    static constexpr uint32_t kWritePiece = 10000000;

    BrelkinHandle() = default;
    BrelkinHandle(const BrelkinHandle&) = delete;
    BrelkinHandle& operator=(const BrelkinHandle&) = delete;
    virtual ~BrelkinHandle();

    bool isOpen() const { return m_handle != platform::kNoFile || m_stream != nullptr; }
    void close();
    // Closes its own file and takes over the other's; the other is left empty.
    void takeFrom(BrelkinHandle& other);
    void adoptHandle(platform::FileHandle handle);
    void adoptStream(std::FILE* stream);

    // `eof` is set when the end of the file was reached (0 bytes, or a short
    // read of a stream); `bytesRead` may be null.
    bool read(void* buffer, uint32_t count, uint32_t* bytesRead, bool* eof, LogBase* log);
    // Writes the 64-bit count high:low; `bytesWritten` (may be null) is summed.
    bool write(const void* bytes, uint32_t low, uint32_t high, uint64_t* bytesWritten,
               LogBase* log);
    uint32_t getSize32(LogBase* log);
    int64_t getSize64(LogBase* log);

private:
    bool writePiece(const uint8_t* bytes, uint32_t count, uint64_t* bytesWritten, LogBase* log);

    platform::FileHandle m_handle = platform::kNoFile;
    std::FILE* m_stream = nullptr;
};

}  // namespace brelkin
