// LogBase.cpp - the logging interface that every engine operation takes
//
// See LogBase.h
#include "textlib/log/LogBase.h"

#include "platform/SystemError.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

LogBase::~LogBase() = default;

void LogBase::getXml(StringBuffer&) {}
void LogBase::getHtml(StringBuffer&) {}
void LogBase::getText(StringBuffer&) {}
bool LogBase::LogError(const char*) { return true; }
bool LogBase::LogInfo(const char*) { return true; }
bool LogBase::LogRaw(const char*) { return true; }
bool LogBase::clearLog() { return true; }
bool LogBase::enterContext(const char*, unsigned) { return true; }
bool LogBase::leaveContext() { return true; }
bool LogBase::LogData(const char*, const char*) { return true; }
bool LogBase::LogDataLong(const char*, int32_t) { return true; }
bool LogBase::LogDataInt64(const char*, int64_t) { return true; }
bool LogBase::LogDataHex(const char*, uint32_t) { return true; }
void LogBase::LogTimestamp(const char*) {}
bool LogBase::saveToFile(const char*) { return true; }

void logLastWindowsError(LogBase& log) {
    // Read the code first: building the text may touch the last error.
    uint32_t code = platform::GetLastError();
    StringBuffer text;
    text.appendWindowsError(code);
    log.LogData("WindowsError", text.getString());
    log.LogDataHex("WindowsErrorCode", code);
}

void logWindowsError(LogBase& log, uint32_t code) {
    if (code == 0) return;
    StringBuffer text;
    text.appendWindowsError(code);
    log.LogData("WindowsError", text.getString());
}

}  // namespace brelkin
