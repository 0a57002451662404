// NvcBase.h - object base with name, recursive lock and per-object trace
//
// Every foundation and mail object has a name, one recursive lock and a trace
// that Log writes to: a text file per object, opened and closed for each line
// so that it can be moved away at any time, and an optional journal kept as a
// profile-file section of the last 100 lines. An object without a trace file
// or journal writes nothing. Level bits: 1 file (control characters shown as
// marks, one line per call), 2 journal, 4 raw (line ends kept).
// Assert writes a failed check to the debug folder's assert.txt and to the
// event log, and lets execution go on.
//
// Input:       any text; lines of Log are cut at the 64 KiB scratch buffer,
//              LogSized takes lines of any length.
// Diagnostics: none; a trace that cannot be written only loses lines.
// Concurrency: a whole Log call runs under the object's lock; two objects
//              sharing a path do not share a lock.
// See also:    NvcString.h, platform/ProfileFile.h, platform/DebugDir.h
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "foundation/NvcString.h"

// A sequence of zero-terminated strings closed by an extra zero: the block
// form of a profile-file section.
class CNvcMultiString {
public:
    CNvcMultiString();

    // Takes the entries of a block of that form, at most `length` bytes.
    void Assign(const char* block, size_t length);
    void Add(const char* text);
    // Adds "%08lX|text".
    void AddNumbered(long number, const char* text);
    int Count() const;
    void KeepLast(int entries);

    const char* GetBlock() const { return m_buffer.data(); }
    // Bytes without the final zero.
    size_t GetLength() const { return m_buffer.size() - 1; }

private:
    std::string m_buffer;  // entries with their zeros, then the closing zero
};

class CNvcBase {
public:
    enum : int { kLevelFile = 1, kLevelJournal = 2, kLevelRaw = 4 };

    explicit CNvcBase(const char* name = nullptr, long number = 0);
    // A copy gets the name and trace settings, and a lock of its own.
    CNvcBase(const CNvcBase& other);
    CNvcBase& operator=(const CNvcBase& other);
    virtual ~CNvcBase();

    // Reserved slots: never called, kept so every subclass has them.
    virtual int32_t Reserved1(int32_t) { return 0; }
    virtual int32_t Reserved2(int32_t) { return 0; }
    virtual int32_t Reserved3(int32_t) { return 0; }
    virtual CNvcBase* CreateInstance() const { return new CNvcBase(); }

    void Lock() const { m_lock.lock(); }
    void Unlock() const { m_lock.unlock(); }

    void SetTraceFile(const char* path);
    void SetJournalFile(const char* path);
    const char* GetName() const { return m_name.GetData(); }

    friend void Log(CNvcBase* object, int level, const char* format, ...)
        NVC_PRINTF_FORMAT(3, 4);
    friend void LogSized(CNvcBase* object, int level, size_t sizeHint, const char* format, ...)
        NVC_PRINTF_FORMAT(4, 5);

private:
    bool WantsLine(int level, const char* format) const;
    void WriteLine(int level, CNvcString& line);
    void WriteJournal(const CNvcString& line);

    CNvcString m_traceFile;
    CNvcString m_journalFile;
    CNvcMultiString m_journalLines;
    char* m_scratch = nullptr;
    mutable std::recursive_mutex m_lock;
    CNvcString m_name;
};

// Holds an object's lock for one scope.
class CNvcLock {
public:
    explicit CNvcLock(const CNvcBase& object) : m_object(object) { m_object.Lock(); }
    ~CNvcLock() { m_object.Unlock(); }
    CNvcLock(const CNvcLock&) = delete;
    CNvcLock& operator=(const CNvcLock&) = delete;

private:
    const CNvcBase& m_object;
};

// Writes one trace line of `object` (null writes nothing); see the head comment.
void Log(CNvcBase* object, int level, const char* format, ...) NVC_PRINTF_FORMAT(3, 4);
// The same for lines of any length: formats into a buffer of sizeHint + 2047
// bytes of its own; with the raw bit the text goes out unchanged.
void LogSized(CNvcBase* object, int level, size_t sizeHint, const char* format, ...)
    NVC_PRINTF_FORMAT(4, 5);

// A failed check: one line to assert.txt in the debug folder and one event.
void Assert(int condition, const char* sourceFile, long line);

// Profile-file helpers of the journal; 1 on success, 0 on failure.
int WriteProfileNumber(const char* section, const char* key, int number, const char* file);
// Up to 3 tries, 10 ms apart; a null text deletes the section.
int WriteProfileSectionRetry(const char* section, const char* text, const char* file);
// Reports the text as an error event 1704 under the source "SceCli".
void ReportAssertionEvent(const char* format, ...) NVC_PRINTF_FORMAT(1, 2);
