// BrelkinHandle.cpp - one open file of the engine's file layer
//
// See BrelkinHandle.h
#include "textlib/sys/BrelkinHandle.h"

#include "platform/SystemError.h"
#include "textlib/log/LogBase.h"

namespace brelkin {

namespace {

// A stream's length, leaving its position as it was; -1 when it cannot seek.
int64_t streamLength(std::FILE* stream) {
    long here = std::ftell(stream);
    if (here < 0 || std::fseek(stream, 0, SEEK_END) != 0) return -1;
    long end = std::ftell(stream);
    std::fseek(stream, here, SEEK_SET);
    return end;
}

}  // namespace

BrelkinHandle::~BrelkinHandle() { close(); }

void BrelkinHandle::close() {
    if (m_handle != platform::kNoFile) platform::CloseFile(m_handle);
    if (m_stream) std::fclose(m_stream);
    m_handle = platform::kNoFile;
    m_stream = nullptr;
}

void BrelkinHandle::takeFrom(BrelkinHandle& other) {
    if (&other == this) return;
    close();
    m_handle = other.m_handle;
    m_stream = other.m_stream;
    other.m_handle = platform::kNoFile;
    other.m_stream = nullptr;
}

void BrelkinHandle::adoptHandle(platform::FileHandle handle) {
    close();
    m_handle = handle;
}

void BrelkinHandle::adoptStream(std::FILE* stream) {
    close();
    m_stream = stream;
}

bool BrelkinHandle::read(void* buffer, uint32_t count, uint32_t* bytesRead, bool* eof,
                         LogBase* log) {
    if (bytesRead) *bytesRead = 0;
    if (eof) *eof = false;
    if (!buffer || count == 0) {
        if (log) log->LogError("NULL buf or bufSize");
        return false;
    }
    if (m_handle != platform::kNoFile) {
        uint32_t got = 0;
        uint32_t error = 0;
        bool ok = platform::ReadFromFile(m_handle, buffer, count, got, error);
        if (bytesRead) *bytesRead = got;
        if (ok && got == 0 && eof) *eof = true;
        if (ok) return true;
        if (error == platform::kErrorHandleEof) {
            if (eof) *eof = true;
            return true;
        }
        if (log) logWindowsError(*log, error);
        return false;
    }
    if (!m_stream) return false;
    size_t got = std::fread(buffer, 1, count, m_stream);
    if (bytesRead) *bytesRead = static_cast<uint32_t>(got);
    if (got == count) return true;
    if (std::ferror(m_stream)) return false;
    if (eof) *eof = true;
    return true;
}

bool BrelkinHandle::write(const void* bytes, uint32_t low, uint32_t high, uint64_t* bytesWritten,
                          LogBase* log) {
    if (bytesWritten) *bytesWritten = 0;
    if (!isOpen()) {
        if (log) log->LogError("Failed to write because file is not open.");
        return false;
    }
    uint64_t remaining = (static_cast<uint64_t>(high) << 32) | low;
    if (remaining == 0) return true;
    if (!bytes) return false;
    const auto* next = static_cast<const uint8_t*>(bytes);
    while (remaining > 0) {
        uint32_t piece = remaining > kWritePiece ? kWritePiece : static_cast<uint32_t>(remaining);
        if (!writePiece(next, piece, bytesWritten, log)) return false;
        next += piece;
        remaining -= piece;
    }
    return true;
}

bool BrelkinHandle::writePiece(const uint8_t* bytes, uint32_t count, uint64_t* bytesWritten,
                               LogBase* log) {
    if (m_handle != platform::kNoFile) {
        uint32_t written = 0;
        uint32_t error = 0;
        bool ok = platform::WriteToFile(m_handle, bytes, count, written, error);
        if (bytesWritten) *bytesWritten += written;
        if (ok && written == count) return true;
        if (log) {
            log->LogError("WriteFileError");
            logWindowsError(*log, error ? error : platform::kErrorDiskFull);
        }
        return false;
    }
    size_t written = std::fwrite(bytes, 1, count, m_stream);
    if (bytesWritten) *bytesWritten += written;
    if (written == count) return true;
    if (log) log->LogError("fwrite failed.");
    return false;
}

uint32_t BrelkinHandle::getSize32(LogBase* log) {
    int64_t size = -1;
    if (m_handle != platform::kNoFile) {
        uint32_t error = 0;
        if (!platform::FileSizeOf(m_handle, size, error)) {
            if (log) {
                logWindowsError(*log, error);
                log->LogError("Failed to get file size (32)");
            }
            return 0xFFFFFFFFu;
        }
    } else if (m_stream) {
        size = streamLength(m_stream);
    }
    // A size that does not fit is as useless to a 32-bit caller as a failure.
    if (size < 0 || size >= 0xFFFFFFFFll) return 0xFFFFFFFFu;
    return static_cast<uint32_t>(size);
}

int64_t BrelkinHandle::getSize64(LogBase* log) {
    if (m_handle != platform::kNoFile) {
        int64_t size = -1;
        uint32_t error = 0;
        if (platform::FileSizeOf(m_handle, size, error)) return size;
        if (log) {
            logWindowsError(*log, error);
            log->LogError("Failed to get file size (64)");
        }
        return -1;
    }
    if (m_stream) return streamLength(m_stream);
    return -1;
}

}  // namespace brelkin
