// LogEntry2.h - one node of the engine's log tree
//
// A context ("C") has a name and children; an error ("E"), a remark ("I") or
// raw text ("X") has a value; a tagged value ("T") has both a name and a value.
// An entry owns its children and its strings.
//
// Input:       null texts are allowed; a string that could not be allocated
//              stays null and the entry prints nothing.
// See also:    ErrorLog.h, Logger.h
#pragma once

#include "textlib/buffers/BrelkinObject.h"

namespace brelkin {

class ExtPtrArray;
class StringBuffer;

class LogEntry2 : public BrelkinObject {
public:
    static constexpr char kContext = 'C';
    static constexpr char kError = 'E';
    static constexpr char kInfo = 'I';
    static constexpr char kRaw = 'X';
    static constexpr char kTagged = 'T';

    LogEntry2() = default;
    LogEntry2(const LogEntry2&) = delete;
    LogEntry2& operator=(const LogEntry2&) = delete;
    ~LogEntry2() override;

    // A new entry, or null when memory fails. A context gets its child array.
    static LogEntry2* create(char type, const char* name, const char* value);

    bool isContext() const { return m_type == kContext; }
    bool hasChildren() const;
    int childCount() const;
    LogEntry2* childAt(int index) const;
    void appendChild(LogEntry2* child);
    // Destroys the last child when it is a context that recorded nothing.
    void dropEmptyLastContext();

    char type() const { return m_type; }
    // Null when the entry has no such string.
    const char* name() const;
    const char* value() const;

private:
    ExtPtrArray* m_children = nullptr;
    char m_type = kInfo;
    StringBuffer* m_name = nullptr;
    StringBuffer* m_value = nullptr;
};

}  // namespace brelkin
