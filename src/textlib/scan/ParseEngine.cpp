// ParseEngine.cpp - a cursor over a copy of a zero-terminated string
//
// See ParseEngine.h
#include "textlib/scan/ParseEngine.h"

#include <cstring>

namespace brelkin {

namespace {

char foldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool inSet(char c, const char* set) { return c != 0 && std::strchr(set, c) != nullptr; }

}  // namespace

const char* findIgnoreAsciiCase(const char* text, const char* find) {
    if (!text || !find) return nullptr;
    size_t length = std::strlen(find);
    for (const char* p = text; *p; ++p) {
        size_t i = 0;
        while (i < length && p[i] && foldAscii(p[i]) == foldAscii(find[i])) ++i;
        if (i == length) return p;
    }
    return length == 0 ? text : nullptr;
}

void ParseEngine::setString(const char* text) {
    m_text.setString(text ? text : "");
    refreshStart();
    m_position = 0;
}

void ParseEngine::appendText(const char* text) {
    if (!text) return;
    m_text.append(text);
    refreshStart();
}

void ParseEngine::advance(int count) { setPosition(m_position + count); }

void ParseEngine::setPosition(int position) {
    if (position < 0) position = 0;
    if (position > m_text.getSize()) position = m_text.getSize();
    m_position = position;
}

void ParseEngine::skipChars(const char* set) {
    if (!set) return;
    while (!atEnd() && inSet(currentChar(), set)) ++m_position;
}

void ParseEngine::skip4(char a, char b, char c, char d) {
    while (!atEnd()) {
        char here = currentChar();
        if (here != a && here != b && here != c && here != d) return;
        ++m_position;
    }
}

void ParseEngine::seekChar(char c) {
    while (!atEnd() && currentChar() != c) ++m_position;
}

bool ParseEngine::seekIgnoreCase(const char* text) {
    const char* found = findIgnoreAsciiCase(rest(), text);
    if (!found) return false;
    m_position = static_cast<int>(found - m_start);
    return true;
}

int ParseEngine::captureTo(int end, StringBuffer& out) {
    int count = end - m_position;
    out.appendN(rest(), count);
    m_position = end;
    return count;
}

int ParseEngine::captureUntilAnyOf(const char* set, StringBuffer& out) {
    if (!set || !*set) return 0;
    int end = m_position;
    while (end < m_text.getSize() && !inSet(m_start[end], set)) ++end;
    return captureTo(end, out);
}

int ParseEngine::captureUntil4(const char* fourChars, StringBuffer& out) {
    char set[5] = {fourChars[0], fourChars[1], fourChars[2], fourChars[3], 0};
    int end = m_position;
    while (end < m_text.getSize() && std::memchr(set, m_start[end], 4) == nullptr) ++end;
    return captureTo(end, out);
}

int ParseEngine::captureUntilUnescaped(const char* set, StringBuffer& out) {
    if (!set || !*set) return 0;
    int end = m_position;
    while (end < m_text.getSize()) {
        bool escaped = end > m_position && m_start[end - 1] == '\\';
        if (inSet(m_start[end], set) && !escaped) break;
        ++end;
    }
    return captureTo(end, out);
}

int ParseEngine::captureToChar(char c, StringBuffer& out) {
    int end = m_position;
    while (end < m_text.getSize() && m_start[end] != c) ++end;
    return captureTo(end, out);
}

int ParseEngine::captureToCharOutsideQuotes(char c, StringBuffer& out) {
    char openQuote = 0;
    int end = m_position;
    for (; end < m_text.getSize(); ++end) {
        char here = m_start[end];
        if (openQuote) {
            if (here == openQuote) openQuote = 0;
            continue;
        }
        if (here == c) return captureTo(end, out);
        if (here == '"' || here == '\'') openQuote = here;
    }
    return captureToChar(c, out);
}

void ParseEngine::removeCharAhead(char c) {
    m_text.removeCharFrom(c, m_position);
    refreshStart();
}

}  // namespace brelkin
