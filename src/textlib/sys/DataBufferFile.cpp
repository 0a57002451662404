// DataBufferFile.cpp - DataBuffer::loadFile: a whole file into a buffer
//
// See ../buffers/DataBuffer.h. Four zero bytes always stand behind the data,
// so that text scanners may run past the end without a length check.
#include <cstdlib>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/buffers/XString.h"
#include "textlib/log/LogBase.h"
#include "textlib/sys/BrelkinHandle.h"
#include "textlib/sys/FileOps.h"

namespace brelkin {

namespace {

constexpr uint32_t kZeroTail = 4;

bool fitsAnsi(const char* pathUtf8) {
    XString name;
    name.setUtf8(pathUtf8);
    return name.isAnsiOk();
}

void logReadFailure(LogBase* log, const char* path) {
    if (!log) return;
    log->LogData("filename", path);
    StringBuffer cwd;
    currentDirectory(cwd);
    log->LogData("current_dir", cwd.getString());
}

}  // namespace

bool DataBuffer::loadFile(const char* pathUtf8, LogBase* log) {
    dropBlock();
    if (!pathUtf8) return false;
    BrelkinHandle* file = openForRead(pathUtf8, nullptr, log);
    if (!file) return false;
    // The routes differ in their size query and messages; both open the
    // same UTF-8 name here.
    bool narrow = fitsAnsi(pathUtf8);
    uint64_t size = 0;
    if (narrow) {
        int64_t size64 = file->getSize64(log);
        if (size64 < 0) {
            delete file;
            return false;
        }
        size = static_cast<uint64_t>(size64);
    } else {
        uint32_t size32 = file->getSize32(log);
        if (size32 == 0xFFFFFFFFu) {
            delete file;
            return false;
        }
        size = size32;
    }
    if (size == 0) {
        delete file;
        return true;
    }
    if (size > 0xFFFFFFFFull - kZeroTail) {
        if (log) {
            log->LogError(narrow ? "Out of memory for data buffer"
                                 : "Out of memory when loading Unicode file into data buffer.");
            log->LogDataInt64("fileSize", static_cast<int64_t>(size));
        }
        delete file;
        return false;
    }
    uint32_t fileSize = static_cast<uint32_t>(size);
    auto* block = static_cast<uint8_t*>(std::calloc(fileSize + kZeroTail, 1));
    if (!block) {
        if (log) {
            log->LogError(narrow ? "Out of memory"
                                 : "Out of memory when loading Unicode file into data buffer.");
            log->LogDataInt64("fileSize", static_cast<int64_t>(size));
        }
        delete file;
        return false;
    }
    m_data = block;
    m_size = fileSize;
    // Kept: the wide route counts the four zero bytes out of the capacity.
    m_capacity = narrow ? fileSize + kZeroTail : fileSize;
    m_borrowed = false;

    uint32_t got = 0;
    bool eof = false;
    bool ok = file->read(m_data, fileSize, &got, &eof, log);
    delete file;
    if (!ok) {
        m_size = got;
        if (narrow) {
            logReadFailure(log, pathUtf8);
        } else if (log) {
            logLastWindowsError(*log);
        }
        return false;
    }
    if (got != fileSize) {
        m_size = got;
        if (log) log->LogError("Failed to read the entire file");
        return false;
    }
    return true;
}

}  // namespace brelkin
