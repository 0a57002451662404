// LogBase.h - the logging interface that every engine operation takes
//
// An operation opens named contexts, records errors, remarks and named values
// into the LogBase it was given and closes the contexts on each way out, so
// that a Logger's tree follows the call tree. This base does nothing: every
// operation with a result returns true. LogNull is this base under a name
// that says "nobody will look".
//
// Input:       texts are 8-bit, in practice UTF-8 or ASCII; null is allowed.
// Diagnostics: logging never fails the operation that logs.
// See also:    Logger.h, LogNull.h
#pragma once

#include <cstdint>

namespace brelkin {

class StringBuffer;

class LogBase {
public:
    virtual ~LogBase();

    virtual void getXml(StringBuffer& out);
    virtual void getHtml(StringBuffer& out);
    virtual void getText(StringBuffer& out);
    virtual bool LogError(const char* text);
    virtual bool LogInfo(const char* text);
    virtual bool LogRaw(const char* text);
    virtual bool clearLog();
    // The flag is accepted and not looked at; callers give 1.
    virtual bool enterContext(const char* name, unsigned flag);
    virtual bool leaveContext();
    virtual bool LogData(const char* name, const char* value);
    virtual bool LogDataLong(const char* name, int32_t value);
    virtual bool LogDataInt64(const char* name, int64_t value);
    virtual bool LogDataHex(const char* name, uint32_t value);
    virtual void LogTimestamp(const char* name);
    virtual bool saveToFile(const char* path);
};

// The calling thread's last system error: its text as "WindowsError" and the
// code in hex as "WindowsErrorCode".
void logLastWindowsError(LogBase& log);

// The text of `code` as "WindowsError"; 0 logs nothing.
void logWindowsError(LogBase& log, uint32_t code);

// Leaves the context entered by the constructor on every way out of a scope.
class LogContextExitor {
public:
    LogContextExitor(LogBase& log, const char* name) : m_log(log) { m_log.enterContext(name, 1); }
    ~LogContextExitor() { m_log.leaveContext(); }
    LogContextExitor(const LogContextExitor&) = delete;
    LogContextExitor& operator=(const LogContextExitor&) = delete;

private:
    LogBase& m_log;
};

}  // namespace brelkin
