// FileOps.cpp - the engine's file functions: names made legal, files opened with retries
//
// See FileOps.h
#include "textlib/sys/FileOps.h"

#include <cstring>
#include <new>
#include <string>

#include "platform/Clock.h"
#include "platform/FileIo.h"
#include "platform/SystemError.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/buffers/XString.h"
#include "textlib/log/LogBase.h"
#include "textlib/sys/BrelkinHandle.h"

namespace brelkin {

namespace {

constexpr int kMaxNarrowChars = 260;
constexpr int kSharingRetries = 3;
constexpr uint32_t kSharingPauseMs = 50;

enum class OpenMode { Read, Write };

// Characters before byte offset `end` of UTF-8 text (lead bytes only).
int charsBefore(const char* text, const char* end) {
    int count = 0;
    for (const char* p = text; p < end; ++p) {
        if ((static_cast<unsigned char>(*p) & 0xC0) != 0x80) ++count;
    }
    return count;
}

// The route by the Windows rule: the name's length in characters (16-bit
// units) and whether it fits the system's ANSI code page.
bool narrowRouteFor(const char* pathUtf8) {
    XString name;
    name.setUtf8(pathUtf8);
    int numChars = name.getNumChars();
    return takesNarrowRoute(numChars, name.isAnsiOk());
}

void logChange(LogBase* log, const char* message, const StringBuffer& before,
               const StringBuffer& after) {
    if (!log) return;
    log->LogInfo(message);
    log->LogData("filename", before.getString());
    log->LogData("modifiedFilename", after.getString());
}

// Steps 1 to 4: colons. A drive letter's colon (first colon within the first
// 7 characters) survives; every other becomes "_".
void cleanColons(StringBuffer& name, LogBase* log) {
    const char* colon = std::strchr(name.getString(), ':');
    if (!colon) return;
    int position = charsBefore(name.getString(), colon);
    if (position == 0) return;
    StringBuffer before(name);
    if (position >= 8) {
        name.replaceChar(':', '_');
        logChange(log, "The : character is not allowed in Windows filenames.", before, name);
        return;
    }
    if (!std::strchr(colon + 1, ':')) return;
    name.replaceFirst(":", "_COLON_");
    name.replaceChar(':', '_');
    // Kept: a name that already held "_COLON_" gets a colon there too.
    name.replaceAll("_COLON_", ":");
    logChange(log, "The : character is not allowed in Windows filenames..", before, name);
}

struct ForbiddenChar {
    char c;
    const char* message;
};

const ForbiddenChar kForbidden[] = {
    {'|', "The | character is not allowed in Windows filenames."},
    {'*', "The asterisk character is not allowed in Windows filenames."},
    {'<', "The open-angle-bracket character is not allowed in Windows filenames."},
    {'>', "The close-angle-bracket character is not allowed in Windows filenames."},
    {'"', "The double-quote character is not allowed in Windows filenames."},
};

// The path as the file layer uses it. The separator step of the Windows build
// ("/" to "\") has no counterpart here: "/" is the separator and stays.
std::string preparePath(const char* path) {
    StringBuffer name(path);
    cleanFilename(name, nullptr);
    return std::string(name.getString(), static_cast<size_t>(name.getSize()));
}

platform::FileHandle openOnce(const std::string& path, OpenMode mode, uint32_t& error) {
    return mode == OpenMode::Read ? platform::OpenFileForReading(path, error)
                                  : platform::CreateFileForWriting(path, error);
}

// A sharing violation is often brief (a scanner, a copy in progress): retry.
platform::FileHandle openWithRetries(const std::string& path, OpenMode mode, uint32_t& error) {
    platform::FileHandle file = openOnce(path, mode, error);
    for (int retry = 0; retry < kSharingRetries && file == platform::kNoFile &&
                        error == platform::kErrorSharingViolation;
         ++retry) {
        platform::Sleep(kSharingPauseMs);
        file = openOnce(path, mode, error);
    }
    return file;
}

bool isReadOnly(const std::string& path) {
    uint32_t attributes = 0;
    uint32_t error = 0;
    return platform::GetFileAttributes(path, attributes, error) &&
           (attributes & platform::kFileAttributeReadOnly);
}

void logRouteFailure(LogBase& log, bool narrow, const std::string& path, uint32_t error) {
    StringBuffer osText;
    osText.appendWindowsError(error);
    if (narrow) {
        log.LogError("Failed to open file (2)");
        log.LogData("filename", path.c_str());
        log.LogData("currentWorkingDirectory", platform::CurrentDirectory().c_str());
    } else {
        log.LogError("Failed to open file (3)");
        log.LogData("utf8Filename", path.c_str());
    }
    log.LogData("osErrorInfo", osText.getString());
}

uint32_t errorClass(uint32_t error) {
    if (error == platform::kErrorAccessDenied) return 1;
    if (error == platform::kErrorPathNotFound) return 2;
    return 3;
}

BrelkinHandle* openFile(const char* path, OpenMode mode, uint32_t* errorCode, LogBase* log) {
    if (errorCode) *errorCode = 0;
    if (!path || !*path) return nullptr;
    std::string name = preparePath(path);
    bool narrow = narrowRouteFor(name.c_str());
    uint32_t error = 0;
    platform::FileHandle file = openWithRetries(name, mode, error);
    if (file == platform::kNoFile && isReadOnly(name) &&
        platform::SetFileAttributes(name, platform::kFileAttributeNormal)) {
        file = openOnce(name, mode, error);
    }
    if (file == platform::kNoFile) {
        if (errorCode) *errorCode = error;
        if (!log) return nullptr;
        logRouteFailure(*log, narrow, name, error);
        if (errorCode) *errorCode = errorClass(error);
        log->LogData("Filename", path);
        return nullptr;
    }
    auto* handle = new (std::nothrow) BrelkinHandle();
    if (!handle) {
        platform::CloseFile(file);
        return nullptr;
    }
    handle->adoptHandle(file);
    return handle;
}

bool openInto(BrelkinHandle& handle, const char* path, OpenMode mode, uint32_t* errorCode,
              LogBase* log) {
    BrelkinHandle* opened = openFile(path, mode, errorCode, log);
    if (!opened) return false;
    handle.takeFrom(*opened);
    delete opened;
    return true;
}

}  // namespace

void cleanFilename(StringBuffer& name, LogBase* log) {
    cleanColons(name, log);
    for (const ForbiddenChar& forbidden : kForbidden) {
        if (!name.containsChar(forbidden.c)) continue;
        if (log) {
            log->LogInfo(forbidden.message);
            log->LogData("filename", name.getString());
        }
        name.replaceChar(forbidden.c, '_');
    }
}

bool takesNarrowRoute(int numChars, bool ansiOk) {
    // The Windows 4 rule (narrow route for everything) cannot apply here.
    return numChars < kMaxNarrowChars && ansiOk;
}

void longPathFormOf(const char* fullPath, StringBuffer& out) {
    StringBuffer full(fullPath ? fullPath : "");
    out.clear();
    if (full.beginsWith("\\\\?\\")) {
        out.appendBuffer(full);
    } else if (full.beginsWith("\\\\")) {
        out.append("\\\\?\\UNC");
        out.append(full.getString() + 1);
    } else {
        out.append("\\\\?\\");
        out.appendBuffer(full);
    }
}

void longPathForm(const char* path, StringBuffer& out) {
    StringBuffer full;
    fullPathName(path, full);
    longPathFormOf(full.getString(), out);
}

BrelkinHandle* openForRead(const char* path, uint32_t* errorCode, LogBase* log) {
    return openFile(path, OpenMode::Read, errorCode, log);
}

BrelkinHandle* createForWrite(const char* path, uint32_t* errorCode, LogBase* log) {
    return openFile(path, OpenMode::Write, errorCode, log);
}

bool openForReadInto(BrelkinHandle& handle, const char* path, uint32_t* errorCode, LogBase* log) {
    return openInto(handle, path, OpenMode::Read, errorCode, log);
}

bool createForWriteInto(BrelkinHandle& handle, const char* path, uint32_t* errorCode,
                        LogBase* log) {
    return openInto(handle, path, OpenMode::Write, errorCode, log);
}

bool writeWholeFile(const char* path, const void* bytes, uint32_t length, LogBase* log) {
    if (!path || !*path) return false;
    uint32_t errorCode = 0;
    BrelkinHandle* file = createForWrite(path, &errorCode, log);
    if (!file) {
        if (log) {
            log->LogData("filename", path);
            log->LogError("Failed to write complete file (7)");
        }
        return false;
    }
    bool ok = true;
    if (bytes && length) ok = file->write(bytes, length, 0, nullptr, log);
    if (!ok && log) {
        log->LogData("filename", path);
        log->LogError("Failed to write complete file (1)");
    }
    delete file;
    return ok;
}

bool getAttributes(const char* path, uint32_t* attributes, uint32_t* errorCode, LogBase* log) {
    if (!path || !*path) {
        if (log) log->LogError("GetAttributes: filename is empty");
        return false;
    }
    uint32_t found = 0;
    uint32_t error = 0;
    bool ok = platform::GetFileAttributes(path, found, error);
    if (attributes) *attributes = ok ? found : 0;
    if (errorCode) *errorCode = error;
    return ok;
}

bool setAttributes(const char* path, uint32_t attributes) {
    if (!path || !*path) return false;
    return platform::SetFileAttributes(preparePath(path), attributes);
}

BrelkinHandle* openForRead(XString& path, uint32_t* errorCode, LogBase* log) {
    return openForRead(path.getUtf8(), errorCode, log);
}

BrelkinHandle* createForWrite(XString& path, uint32_t* errorCode, LogBase* log) {
    return createForWrite(path.getUtf8(), errorCode, log);
}

bool writeWholeFile(XString& path, const void* bytes, uint32_t length, LogBase* log) {
    return writeWholeFile(path.getUtf8(), bytes, length, log);
}

void fullPathName(const char* path, StringBuffer& out) {
    std::string full;
    if (!platform::FullPathName(preparePath(path ? path : ""), full)) {
        out.setString(path ? path : "");
        return;
    }
    out.setString(full.c_str());
}

void currentDirectory(StringBuffer& out) { out.setString(platform::CurrentDirectory().c_str()); }

}  // namespace brelkin
