// OutputStage.h - a small local block that collects output bytes
//
// Converters write a byte or a few at a time; appending each to a DataBuffer
// would check and grow it every time. The stage collects them and appends in
// one go when full and at the end.
//
// See also: EncodingConvert.h, Japanese.h, Korean.h
#pragma once

#include <cstdint>

#include "textlib/buffers/DataBuffer.h"

namespace brelkin {

template <uint32_t N>
class OutputStage {
public:
    explicit OutputStage(DataBuffer& out) : m_out(out), m_used(0) {}
    ~OutputStage() { flush(); }
    OutputStage(const OutputStage&) = delete;
    OutputStage& operator=(const OutputStage&) = delete;

    void put(uint8_t byte) {
        if (m_used == N)
            flush();
        m_block[m_used++] = byte;
    }
    void put2(uint8_t first, uint8_t second) {
        if (m_used + 2 > N)
            flush();
        m_block[m_used++] = first;
        m_block[m_used++] = second;
    }
    void putUnit(uint16_t unit) {  // UTF-16 in the machine's order, little-endian here
        put2(static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8));
    }
    void putBytes(const uint8_t* bytes, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i)
            put(bytes[i]);
    }
    void flush() {
        if (m_used)
            m_out.append(m_block, m_used);
        m_used = 0;
    }
    DataBuffer& target() {
        flush();
        return m_out;
    }

private:
    DataBuffer& m_out;
    uint32_t m_used;
    uint8_t m_block[N];
};

}  // namespace brelkin
