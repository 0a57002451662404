// Logger.cpp - the engine's log: a tree of contexts, remarks and named values
//
// See Logger.h
#include "textlib/log/Logger.h"

#include <cinttypes>
#include <cstdio>
#include <string>

#include "platform/Clock.h"
#include "textlib/log/LogEntry2.h"
#include "textlib/sys/FileOps.h"

namespace brelkin {

namespace {

// The name as a tag: trimmed, each blank made "_". Empty when nothing is left.
StringBuffer cleanName(const char* name) {
    StringBuffer cleaned(name ? name : "");
    cleaned.trim();
    cleaned.replaceChar(' ', '_');
    return cleaned;
}

}  // namespace

void Logger::getXml(StringBuffer& out) {
    CritSecGuard guard(*this);
    m_log.renderXml(out);
}

void Logger::getHtml(StringBuffer& out) {
    CritSecGuard guard(*this);
    m_log.renderHtml(out);
}

void Logger::getText(StringBuffer& out) {
    CritSecGuard guard(*this);
    m_log.renderText(out);
}

bool Logger::logText(char type, const char* text) {
    if (!text) return true;
    CritSecGuard guard(*this);
    m_log.addEntry(type, nullptr, text);
    if (type != LogEntry2::kRaw) echo("%s%s\n", text);
    return true;
}

bool Logger::LogError(const char* text) { return logText(LogEntry2::kError, text); }
bool Logger::LogInfo(const char* text) { return logText(LogEntry2::kInfo, text); }
bool Logger::LogRaw(const char* text) { return logText(LogEntry2::kRaw, text); }

bool Logger::clearLog() {
    CritSecGuard guard(*this);
    m_log.reset();
    m_depth = 0;
    return true;
}

bool Logger::enterContext(const char* name, unsigned) {
    CritSecGuard guard(*this);
    m_log.pushContext(name);
    echo("%s%s:\n", name ? name : "");
    ++m_depth;
    return true;
}

bool Logger::leaveContext() {
    CritSecGuard guard(*this);
    m_log.popContext();
    echo("%s(leaveContext)\n", "");
    if (m_depth > 0) --m_depth;
    return true;
}

// Adds a "T" entry under a cleaned name; false, with nothing logged, when the
// name is empty after cleaning.
bool Logger::logValue(const char* name, const char* value) {
    StringBuffer cleaned = cleanName(name);
    if (cleaned.getSize() == 0) return false;
    CritSecGuard guard(*this);
    m_log.addEntry(LogEntry2::kTagged, cleaned.getString(), value);
    return true;
}

bool Logger::LogData(const char* name, const char* value) {
    if (!value) value = "(NULL)";
    CritSecGuard guard(*this);
    if (!logValue(name, value)) return false;
    echo("%s%s: %s\n", cleanName(name).getString(), value);
    return true;
}

bool Logger::LogDataLong(const char* name, int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    CritSecGuard guard(*this);
    if (!logValue(name, text)) return false;
    echo("%s%s: %s\n", cleanName(name).getString(), text);
    return true;
}

bool Logger::LogDataInt64(const char* name, int64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "%" PRId64, value);
    return logValue(name, text);
}

bool Logger::LogDataHex(const char* name, uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return logValue(name, text);
}

void Logger::LogTimestamp(const char* name) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", platform::GetTickCount());
    logValue(name, text);
}

bool Logger::saveToFile(const char* path) {
    StringBuffer xml;
    getXml(xml);
    return writeWholeFile(path, xml.getString(), static_cast<uint32_t>(xml.getSize()), nullptr);
}

void Logger::setEchoFile(const char* path) {
    CritSecGuard guard(*this);
    m_echoFilePath.setString(path ? path : "");
}

// One line to the echo file, indented by 4 blanks per depth; `format` takes
// the indent and then `a` (and `b`). A file that cannot be opened is skipped.
void Logger::echo(const char* format, const char* a, const char* b) {
    if (m_echoFilePath.getSize() == 0) return;
    std::FILE* file = std::fopen(m_echoFilePath.getString(), "a");
    if (!file) return;
    std::string indent(m_depth > 0 ? 4 * static_cast<size_t>(m_depth) : 0, ' ');
    std::fprintf(file, format, indent.c_str(), a, b);
    std::fclose(file);
}

}  // namespace brelkin
