// UnicodeLookup.h - byte to UTF-16 unit for one single-byte code page
//
// 256 entries, 0 meaning that the byte has no mapping, so that converting a
// single-byte page to Unicode costs one array access a byte.
//
// See also: ConversionTables.h, HashConvert.h
#pragma once

#include <cstdint>

namespace brelkin {

class UnicodeLookup {
public:
    UnicodeLookup() : m_units{} {}
    virtual ~UnicodeLookup() = default;

    uint16_t get(uint8_t byte) const { return m_units[byte]; }
    void set(uint8_t byte, uint16_t unit) { m_units[byte] = unit; }

private:
    uint16_t m_units[256];
};

}  // namespace brelkin
