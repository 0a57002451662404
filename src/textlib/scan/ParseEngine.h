// ParseEngine.h - a cursor over a copy of a zero-terminated string
//
// The engine's scanner for text it does not trust: headers, tags, parameter
// lists. The cursor is an offset into the text; the end is the terminating
// zero, and no operation moves the cursor past it.
//
// Input:       null texts are taken as empty; null or empty sets capture nothing.
// Diagnostics: none; operations report how far they got by their results.
// Limits:      32-bit offsets; case folding covers a-z only.
// See also:    ParamString.h, HtmlScan.h
#pragma once

#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class ParseEngine {
public:
    ParseEngine() = default;
    explicit ParseEngine(const char* text) { setString(text); }
    ParseEngine(const ParseEngine&) = delete;
    ParseEngine& operator=(const ParseEngine&) = delete;
    virtual ~ParseEngine() = default;

    void setString(const char* text);
    void appendText(const char* text);

    bool atEnd() const { return m_position >= m_text.getSize(); }
    char currentChar() const { return m_text.getAt(m_position); }
    int getPosition() const { return m_position; }
    // Moves by `count` bytes, stopping at the end.
    void advance(int count = 1);
    // Puts the cursor at an offset; clamped to the text.
    void setPosition(int position);
    // The text from the cursor on.
    const char* rest() const { return m_start + m_position; }

    void skipChars(const char* set);
    void skip4(char a, char b, char c, char d);
    void seekChar(char c);
    // To the next occurrence with a-z folded; false and no move when there is none.
    bool seekIgnoreCase(const char* text);

    // Each appends the bytes it passes over to `out` and returns their count.
    int captureUntilAnyOf(const char* set, StringBuffer& out);
    int captureUntil4(const char* fourChars, StringBuffer& out);
    // A byte of the set right behind a backslash does not stop the capture,
    // except at the cursor's own position.
    int captureUntilUnescaped(const char* set, StringBuffer& out);
    int captureToChar(char c, StringBuffer& out);
    // As captureToChar, but not inside '...' or "..."; when the quotes never
    // close, captures to the next c after all.
    int captureToCharOutsideQuotes(char c, StringBuffer& out);

    void removeCharAhead(char c);

private:
    void refreshStart() { m_start = m_text.getString(); }
    int captureTo(int end, StringBuffer& out);

    StringBuffer m_text;
    const char* m_start = m_text.getString();
    int m_position = 0;
};

// Finds `find` in `text` with a-z folded; null when absent or either is null.
const char* findIgnoreAsciiCase(const char* text, const char* find);

}  // namespace brelkin
