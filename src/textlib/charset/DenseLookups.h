// DenseLookups.h - flat arrays over a page's hash tables, for the hot loops
//
// A HashConvert walks a bucket per character. For converting megabytes the
// two-byte keys of a page are copied once into flat arrays indexed by the
// key, built by looking every key up in the hash table, so that both give the
// same answer for every key.
//
// Limits:      192 KB from Unicode and 136 KB to Unicode per page in use, kept
//              for the life of the process like the tables themselves.
// See also:    ConversionTables.h, HashConvert.h
#pragma once

#include <cstdint>

namespace brelkin {

class HashConvert;

// UTF-16 unit to code of 1 or 2 bytes; length 0 means no mapping.
struct DenseFromUnicode {
    uint16_t code[65536];
    uint8_t length[65536];

    // Null when some value is longer than two bytes.
    static DenseFromUnicode* build(const HashConvert& table);
};

// Multi-byte code to UTF-16 unit, for tables whose keys are 1 or 2 bytes
// and whose values are single units.
struct DenseToUnicode {
    uint16_t pair[65536];        // by lead << 8 | trail
    uint64_t pairPresent[1024];  // one bit per pair
    uint16_t single[256];
    bool singlePresent[256];

    bool hasPair(uint8_t lead, uint8_t trail) const {
        const uint32_t key = static_cast<uint32_t>(lead) << 8 | trail;
        return (pairPresent[key >> 6] >> (key & 63)) & 1;
    }
    // Null when the table has longer keys or values that are not one unit.
    static DenseToUnicode* build(const HashConvert& table);
};

}  // namespace brelkin
