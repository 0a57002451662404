// BkByteData.h - public holder of raw bytes handed to the engine
//
// Carries a binary body from the mail classes to BkMime::SetBodyFromBinary.
//
// Input:       append with a null pointer or a zero count adds nothing.
// Diagnostics: append gives false when memory ran out; the content is then
//              empty (the buffer's rule).
// Limits:      32-bit sizes; not thread-safe.
// See also:    BkMime.h, textlib/buffers/DataBuffer.h
#pragma once

#include <cstdint>

#include "mime/BkObject.h"

namespace brelkin {
class DataBuffer;
}

class BkByteData : public BkObject {
public:
    BkByteData();
    ~BkByteData() override;

    bool append(const void* bytes, uint32_t count);
    uint32_t getSize() const;
    // Null when empty.
    const unsigned char* getData() const;
    void clear();

    // For the engine's own use: the bytes behind the handle.
    brelkin::DataBuffer& getDataBuffer() { return *m_data; }
    const brelkin::DataBuffer& getDataBuffer() const { return *m_data; }

private:
    brelkin::DataBuffer* m_data;  // owned, never null
};
