// NvcBase.cpp - object base with name, recursive lock and per-object trace
//
// See NvcBase.h
#include "foundation/NvcBase.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "platform/Clock.h"
#include "platform/DebugDir.h"
#include "platform/EventLog.h"
#include "platform/ProfileFile.h"

namespace {

constexpr size_t kScratchSize = 65536;
constexpr size_t kSizedExtra = 2047;
constexpr size_t kJournalLineMax = 1023;
constexpr size_t kJournalLineCut = 1020;
constexpr int kJournalEntries = 100;
constexpr uint32_t kAssertionEventId = 1704;

// "[hh:mm:ss]  " into `buffer`; returns its length.
size_t PrintTimeStamp(char* buffer, size_t size) {
    platform::SystemTime now{};
    platform::GetLocalTime(now);
    const int n = std::snprintf(buffer, size, "[%02d:%02d:%02d]  ", now.wHour, now.wMinute,
                                now.wSecond);
    return n < 0 ? 0 : std::min(static_cast<size_t>(n), size - 1);
}

// The header and the formatted text, cut at the buffer's end.
void PrintLine(char* buffer, size_t size, const char* format, va_list args) {
    const size_t head = PrintTimeStamp(buffer, size);
    std::vsnprintf(buffer + head, size - head, format, args);
    buffer[size - 1] = '\0';
}

// Without the raw bit a line stays one line in the file whatever it carries.
void MarkLineEnds(CNvcString& line) {
    std::string text(line.GetData());
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.pop_back();
    line.Assign(text.c_str());
    line.Replace("\r\n", " <CRLF> ", 1);
    line.Replace("\r", " <CR> ", 1);
    line.Replace("\n", " <LF> ", 1);
}

void AppendToFile(const char* path, const char* line) {
    std::FILE* file = std::fopen(path, "a");
    if (file == nullptr) return;  // an unopenable trace only loses the line
    std::fputs(line, file);
    std::fputs("\n", file);
    std::fclose(file);
}

std::string FormatToString(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int needed = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (needed <= 0) return std::string();
    std::vector<char> buffer(static_cast<size_t>(needed) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
    return std::string(buffer.data(), static_cast<size_t>(needed));
}

}  // namespace

CNvcMultiString::CNvcMultiString() : m_buffer(1, '\0') {}

void CNvcMultiString::Assign(const char* block, size_t length) {
    m_buffer.assign(1, '\0');
    if (block == nullptr) return;
    size_t at = 0;
    while (at < length && block[at] != '\0') {
        const char* entry = block + at;
        const size_t entryLength = strnlen(entry, length - at);
        Add(std::string(entry, entryLength).c_str());
        at += entryLength + 1;
    }
}

void CNvcMultiString::Add(const char* text) {
    if (text == nullptr || *text == '\0') return;  // an empty entry would end the block
    m_buffer.insert(m_buffer.size() - 1, text, std::strlen(text) + 1);
}

void CNvcMultiString::AddNumbered(long number, const char* text) {
    char head[16];
    std::snprintf(head, sizeof head, "%08lX|", static_cast<unsigned long>(static_cast<uint32_t>(number)));
    Add((std::string(head) + (text == nullptr ? "" : text)).c_str());
}

int CNvcMultiString::Count() const {
    int count = 0;
    for (size_t at = 0; m_buffer[at] != '\0'; at += std::strlen(m_buffer.data() + at) + 1) ++count;
    return count;
}

void CNvcMultiString::KeepLast(int entries) {
    int surplus = Count() - (entries < 0 ? 0 : entries);
    size_t cut = 0;
    for (; surplus > 0; --surplus) cut += std::strlen(m_buffer.data() + cut) + 1;
    m_buffer.erase(0, cut);
}

CNvcBase::CNvcBase(const char* name, long number) {
    if (name == nullptr) return;
    m_name.Assign(name);
    if (number != 0) m_name.Append(number);
}

CNvcBase::CNvcBase(const CNvcBase& other)
    : m_traceFile(other.m_traceFile), m_journalFile(other.m_journalFile), m_name(other.m_name) {}

CNvcBase& CNvcBase::operator=(const CNvcBase& other) {
    if (this == &other) return *this;
    std::lock_guard<std::recursive_mutex> hold(m_lock);
    m_traceFile = other.m_traceFile;
    m_journalFile = other.m_journalFile;
    m_name = other.m_name;
    return *this;
}

CNvcBase::~CNvcBase() {
    delete[] m_scratch;
    m_scratch = nullptr;
}

void CNvcBase::SetTraceFile(const char* path) {
    std::lock_guard<std::recursive_mutex> hold(m_lock);
    m_traceFile.Assign(path);
}

void CNvcBase::SetJournalFile(const char* path) {
    std::lock_guard<std::recursive_mutex> hold(m_lock);
    m_journalFile.Assign(path);
}

bool CNvcBase::WantsLine(int level, const char* format) const {
    if (m_traceFile.IsEmpty() && m_journalFile.IsEmpty()) return false;
    return level != 0 && format != nullptr && *format != '\0';
}

void CNvcBase::WriteLine(int level, CNvcString& line) {
    if (!m_traceFile.IsEmpty() && (level & (kLevelFile | kLevelRaw)) != 0)
        AppendToFile(m_traceFile.GetData(), line.GetData());
    if (!m_journalFile.IsEmpty() && (level & kLevelJournal) != 0) WriteJournal(line);
}

// Keeps the last 100 lines in section "Log", numbered by "Init"/"NextEntry".
void CNvcBase::WriteJournal(const CNvcString& line) {
    if (m_scratch == nullptr) m_scratch = new (std::nothrow) char[kScratchSize];
    if (m_scratch == nullptr) return;
    std::string text(line.GetData());
    if (text.size() > kJournalLineMax) {
        text.resize(kJournalLineCut);
        text += "...";
    }
    const std::string file(m_journalFile.GetData());
    std::memset(m_scratch, 0, 2);
    const size_t got = platform::GetPrivateProfileSection("Log", m_scratch, kScratchSize - 1, file);
    const int next = platform::GetPrivateProfileInt("Init", "NextEntry", 0, file);
    m_journalLines.Assign(m_scratch, std::min(got + 1, kScratchSize - 1));
    m_journalLines.AddNumbered(next, text.c_str());
    m_journalLines.KeepLast(kJournalEntries);
    WriteProfileSectionRetry("Log", nullptr, file.c_str());
    platform::WritePrivateProfileSection("Log", m_journalLines.GetBlock(), file);
    WriteProfileNumber("Init", "NextEntry", next + 1, file.c_str());
}

void Log(CNvcBase* object, int level, const char* format, ...) {
    if (object == nullptr) return;
    std::lock_guard<std::recursive_mutex> hold(object->m_lock);
    if (!object->WantsLine(level, format)) return;
    if (object->m_scratch == nullptr) object->m_scratch = new (std::nothrow) char[kScratchSize];
    if (object->m_scratch == nullptr) return;
    va_list args;
    va_start(args, format);
    PrintLine(object->m_scratch, kScratchSize, format, args);
    va_end(args);
    CNvcString line(object->m_scratch);
    if ((level & CNvcBase::kLevelRaw) != 0) line.Replace("\r\n", "\n", 1);
    else MarkLineEnds(line);
    object->WriteLine(level, line);
}

void LogSized(CNvcBase* object, int level, size_t sizeHint, const char* format, ...) {
    Assert(sizeHint > 8, "NvcBase", 578);
    if (object == nullptr || sizeHint > SIZE_MAX - kSizedExtra) return;
    std::lock_guard<std::recursive_mutex> hold(object->m_lock);
    if (!object->WantsLine(level, format)) return;
    const size_t size = sizeHint + kSizedExtra;
    char* buffer = new (std::nothrow) char[size];
    if (buffer == nullptr) return;
    va_list args;
    va_start(args, format);
    PrintLine(buffer, size, format, args);
    va_end(args);
    CNvcString line(buffer);
    delete[] buffer;
    if ((level & CNvcBase::kLevelRaw) == 0) MarkLineEnds(line);
    object->WriteLine(level, line);
}

void Assert(int condition, const char* sourceFile, long line) {
    if (condition) return;
    platform::SystemTime now{};
    platform::GetLocalTime(now);
    CNvcString text;
    text.FormatShort("[%02d:%02d:%02d] NORVANE ASSERTION FAILURE, FILE: [%s]; LINE: %ld", now.wHour,
                     now.wMinute, now.wSecond, sourceFile == nullptr ? "" : sourceFile, line);
    AppendToFile(platform::DebugFile("assert.txt").c_str(), text.GetData());
    ReportAssertionEvent("%s", text.GetData());
}

int WriteProfileNumber(const char* section, const char* key, int number, const char* file) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", number);
    return platform::WritePrivateProfileString(section, key, text, file) ? 1 : 0;
}

int WriteProfileSectionRetry(const char* section, const char* text, const char* file) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (platform::WritePrivateProfileSection(section, text, file)) return 1;
        platform::Sleep(10);
    }
    return 0;
}

void ReportAssertionEvent(const char* format, ...) {
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    const std::string text = FormatToString(format, args);
    va_end(args);
    // An event source that is not there costs the entry, nothing else.
    platform::ReportEvent("SceCli", platform::EventType::Error, kAssertionEventId, {text});
}
