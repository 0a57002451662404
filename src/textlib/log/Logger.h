// Logger.h - the engine's log: a tree of contexts, remarks and named values
//
// Each public engine object owns one. Operations enter and leave named
// contexts around their work, so the tree follows the call tree; a context
// that recorded nothing vanishes when left, unless it stands right under the
// root. Named values get cleaned names (trimmed, blanks to "_"); an empty
// name logs nothing. An optional echo file receives each event as one line
// as it happens, indented by context depth.
//
// Diagnostics: results are informational only; callers ignore them.
// Concurrency: every operation takes the logger's own recursive lock, which
//              also covers the echo file, so lines are never torn.
// Known gaps:  the echo file is opened and closed for every line: slow, but
//              nothing is lost when the process dies.
// See also:    LogBase.h, ErrorLog.h, LogEntry2.h
#pragma once

#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/ErrorLog.h"
#include "textlib/log/LogBase.h"
#include "textlib/sys/BrelkinCritSec.h"

namespace brelkin {

class Logger : public LogBase, public BrelkinCritSec {
public:
    Logger() = default;
    ~Logger() override = default;

    void getXml(StringBuffer& out) override;
    void getHtml(StringBuffer& out) override;
    void getText(StringBuffer& out) override;
    bool LogError(const char* text) override;
    bool LogInfo(const char* text) override;
    bool LogRaw(const char* text) override;
    bool clearLog() override;
    bool enterContext(const char* name, unsigned flag) override;
    bool leaveContext() override;
    bool LogData(const char* name, const char* value) override;
    bool LogDataLong(const char* name, int32_t value) override;
    bool LogDataInt64(const char* name, int64_t value) override;
    bool LogDataHex(const char* name, uint32_t value) override;
    void LogTimestamp(const char* name) override;
    // Writes the XML form as the whole file; the result of the write.
    bool saveToFile(const char* path) override;

    // A file to which every event is also appended; null or "" turns it off.
    void setEchoFile(const char* path);
    int getDepth() const { return m_depth; }

private:
    bool logText(char type, const char* text);
    bool logValue(const char* name, const char* value);
    void echo(const char* format, const char* a, const char* b = "");

    ErrorLog m_log;
    int m_depth = 0;
    StringBuffer m_echoFilePath;
};

}  // namespace brelkin
