// DataBuffer.h - growable block of raw bytes that may borrow foreign memory
//
// The byte container under the MIME engine: assembly, every conversion and
// the transfer codecs append here. Growth follows a fixed tier rule so that a
// large buffer grows by a step of its own order. A buffer may borrow memory it
// does not own (never freed, copied at the first growth) or adopt a malloc'd
// block. The block is not terminated by the buffer.
//
// Input:       a null pointer or zero length appends nothing and succeeds.
// Diagnostics: bool results; out of memory frees the content, leaves the
//              buffer empty and returns false. A wrong magic byte (use after
//              destruction, corruption) aborts the process at once.
// Limits:      32-bit sizes; not thread-safe.
// Known gaps:  any write to a borrowed block (an edit, an append into room left
//              by shorten) first makes it an owned copy, so that memory lent
//              to us is never written.
// See also:    StringBuffer.h, ExtPtrArray.h
#pragma once

#include <cstdint>

#include "textlib/buffers/BrelkinObject.h"

namespace brelkin {

class LogBase;
class StringBuffer;

class DataBuffer : public BrelkinObject {
public:
    DataBuffer();
    ~DataBuffer() override;
    DataBuffer(const DataBuffer&) = delete;
    DataBuffer& operator=(const DataBuffer&) = delete;

    bool append(const void* bytes, uint32_t length);
    bool appendByte(uint8_t byte);
    bool appendStr(const char* text);
    bool appendBuffer(const DataBuffer& other);
    bool appendStringBuffer(const StringBuffer& other);
    // Appends the units and the two-byte terminator; null appends the terminator alone.
    bool appendWideZ(const char16_t* text);
    // Each unit alone: a surrogate half becomes its own 3-byte sequence.
    // Returns the bytes appended, 0 when memory failed.
    uint32_t appendUtf8Char(uint16_t unit);
    bool prepend(const void* bytes, uint32_t length);

    // Grows to exactly `wanted` bytes when smaller; never shrinks.
    bool ensureCapacity(uint32_t wanted);
    // Room for `length` more bytes by the tier rule of append; a pointer to the
    // first free byte or null when memory failed. Pair with commitTail.
    uint8_t* reserveTail(uint32_t length);
    // Adds `written` bytes written behind the content after reserveTail.
    void commitTail(uint32_t written);

    void clear() { m_size = 0; }
    void shorten(uint32_t count);
    void setSize(uint32_t size);

    uint32_t getSize() const { return m_size; }
    uint32_t getCapacity() const { return m_capacity; }
    uint8_t* getData() { return m_data; }
    const uint8_t* getData() const { return m_data; }
    // Null when empty or the index is outside the content.
    uint8_t* getDataAt(int index);
    bool isBorrowed() const { return m_borrowed; }

    // Drops the content, then points at memory that stays the lender's.
    void borrowData(const void* bytes, uint32_t length);
    // Drops the content, then owns `bytes`, which must come from malloc.
    void adoptData(void* bytes, uint32_t length);
    // Forgets the block without freeing it; the caller has taken it over.
    void releaseData();

    void replaceByte(uint8_t from, uint8_t to);
    // The block as 16-bit units; nothing when either unit is 0.
    void replaceWideChar(char16_t from, char16_t to);
    bool containsByte(uint8_t byte) const;
    bool is7bit() const;

    // Defined in DataBufferConvert.cpp: whether text declared in a single-byte
    // code page is really UTF-8.
    bool looksLikeMislabelledUtf8(int codePage);
    // Defined in DataBufferConvert.cpp: this block as UTF-16 converted to
    // UTF-8 into `dest`, which is cleared first.
    bool toUtf8(DataBuffer& dest);
    // Defined in DataBufferFile.cpp: loads a whole file; `pathUtf8` in UTF-8.
    bool loadFile(const char* pathUtf8, LogBase* log);

private:
    void checkMagic() const;
    bool growTo(uint32_t newCapacity);
    bool growForAppend(uint32_t length);
    bool makeOwned();
    void dropBlock();

    uint8_t m_magic;
    bool m_borrowed;
    uint8_t* m_data;
    uint32_t m_size;
    uint32_t m_capacity;
};

}  // namespace brelkin
