// StringBuffer.h - the engine's growable, always terminated 8-bit string
//
// Holds whatever bytes the caller says it holds (ANSI, UTF-8, raw header
// text) and knows nothing of charsets by itself. The text may contain zero
// bytes (appendN); the block behind it always ends in one. Growth adds a slack
// (growBy) that rises with the buffer to 500,000 bytes; minimize gives it back.
//
// Input:       a null text argument is ignored unless an operation says otherwise.
// Diagnostics: out of memory leaves the text as it was and drops the append;
//              only ensureFree reports it. A wrong magic byte aborts at once.
// Limits:      32-bit signed lengths; not thread-safe.
// Known gaps:  case operations are ASCII plus two fixed Latin-1 byte ranges;
//              they do not know the charset of the text.
// See also:    DataBuffer.h, ExtPtrArray.h, XString.h
#pragma once

#include <cstdint>

#include "textlib/buffers/BrelkinObject.h"

namespace brelkin {

class DataBuffer;
class ExtPtrArray;

class StringBuffer : public BrelkinObject {
public:
    StringBuffer();
    explicit StringBuffer(const char* text);
    // n of 0 or less is taken as 200.
    explicit StringBuffer(int initialSize);
    StringBuffer(const StringBuffer& other);
    StringBuffer& operator=(const StringBuffer& other);
    ~StringBuffer() override;

    // Appending and setting.
    bool append(const char* text);
    bool appendN(const char* bytes, int count);
    bool appendChar(char c);
    bool appendCharN(char c, int count);
    bool appendBuffer(const StringBuffer& other);
    bool appendData(const DataBuffer& data);
    void appendLastWindowsError();
    void appendWindowsError(uint32_t code);
    bool prepend(const char* text);
    bool setString(const char* text);
    bool setFrom(const StringBuffer& other);
    // Takes over a block whose last byte is a terminator; the source forgets it.
    bool takeData(DataBuffer& source);
    // Exchanges blocks with `other`: a text changes hands without a copy.
    void swapWith(StringBuffer& other);
    bool ensureFree(int count, int unused = 0);
    // Room for `count` more bytes; a pointer to the first free byte or null.
    // Write at most `count` bytes, then commitTail with the number written.
    char* reserveTail(int count);
    void commitTail(int written);

    // Reading.
    const char* getString() const { return m_data; }
    int getSize() const { return m_length; }
    int getCapacity() const { return m_capacity; }
    int getGrowBy() const { return m_growBy; }
    bool isValid() const;
    char getAt(int index) const;
    char lastChar() const;
    bool contains(const char* find) const;
    bool containsChar(char c) const;
    bool containsIgnoreCase(const char* find) const;
    bool beginsWith(const char* prefix) const;
    bool beginsWithIgnoreCase(const char* prefix) const;
    bool endsWith(const char* suffix) const;
    bool equals(const char* text) const;
    bool equalsIgnoreCase(const char* text) const;
    int compare(const char* text) const;
    // The first `count` bytes, or all with 0, have no high bit set.
    bool is7bit(int count) const;
    void setMode(int mode);
    int getMode() const { return m_mode; }

    // Editing in place.
    void clear();
    void secureClear();
    void shorten(int count);
    void truncateAtChar(char c);
    void minimize();
    void trim();
    void trimSpacesTabs();
    void removeChar(char c);
    void removeCharFrom(char c, int start);
    void replaceChar(char from, char to);
    // `set` holds exactly five bytes.
    void replaceAnyOf5(const char* set, char to);
    bool replaceFirst(const char* find, const char* with);
    int replaceAll(const char* find, const char* with);
    void toLowerCase();
    void toUpperCase();
    void collapseWhitespace();
    void encodeXmlEntities();
    void toCrlf();
    void toLf();
    // Hands the block (malloc'd) to the caller and starts afresh; null when
    // memory fails.
    char* detach(int* lengthOut);

    // Search on plain terminated strings.
    static const char* searchIgnoreCase(const char* text, const char* find);
    static const char* searchBytes(const char* bytes, int length, const char* find);

    // Splitting and parsing; tokens are new StringBuffers owned by `out`.
    void split(ExtPtrArray& out, char delimiter, bool useQuotes, bool useBackslash) const;
    void splitByString(const char* delimiter, ExtPtrArray& out, int max) const;
    void getNameValue(StringBuffer& name, StringBuffer& value) const;

    // Defined in StringBufferConvert.cpp: conversions in place between code pages.
    bool convertEncoding(int fromCodePage, int toCodePage);
    bool utf8ToAnsi();
    bool ansiToCodePage(int toCodePage);
    // Defined in StringBufferConvert.cpp: replaceChar that keeps UTF-8 intact.
    void replaceCharUtf8(char from, char to);

private:
    void checkMagic() const;
    void initBlock(int capacity, int fallbackCapacity);
    bool growTo(int newCapacity);
    bool appendBytes(const char* bytes, int count, int extra);
    bool growFor(int added, int extra = 1, bool adjustGrowBy = true);
    void terminate();
    void releaseBlock();
    void trimWhere(bool (*blank)(unsigned char));

    uint8_t m_magic;
    uint8_t m_mode;
    char* m_data;
    int m_capacity;
    int m_length;
    int m_growBy;
};

}  // namespace brelkin
