// DenseLookups.cpp - flat arrays over a page's hash tables, for the hot loops
//
// See DenseLookups.h
#include "textlib/charset/DenseLookups.h"

#include <cstring>
#include <memory>
#include <new>

#include "textlib/charset/HashConvert.h"

namespace brelkin {

DenseFromUnicode* DenseFromUnicode::build(const HashConvert& table) {
    std::unique_ptr<DenseFromUnicode> dense(new (std::nothrow) DenseFromUnicode);
    if (!dense)
        return nullptr;
    for (uint32_t unit = 0; unit < 65536; ++unit) {
        uint32_t valueLen = 0;
        // The key is the unit in the machine's order, little-endian here.
        const uint8_t* value = table.find2(static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8),
                                           valueLen);
        if (value && valueLen > 2)
            return nullptr;
        dense->length[unit] = value ? static_cast<uint8_t>(valueLen) : 0;
        dense->code[unit] = !value || valueLen == 0 ? 0
                            : valueLen == 1       ? value[0]
                                                  : static_cast<uint16_t>(value[0] << 8 | value[1]);
    }
    return dense.release();
}

DenseToUnicode* DenseToUnicode::build(const HashConvert& table) {
    if (table.mayHaveKeyLength(3) || table.mayHaveKeyLength(4))
        return nullptr;
    std::unique_ptr<DenseToUnicode> dense(new (std::nothrow) DenseToUnicode);
    if (!dense)
        return nullptr;
    std::memset(dense->pairPresent, 0, sizeof dense->pairPresent);
    for (uint32_t key = 0; key < 65536; ++key) {
        uint32_t valueLen = 0;
        const uint8_t* value = table.find2(static_cast<uint8_t>(key >> 8), static_cast<uint8_t>(key),
                                           valueLen);
        dense->pair[key] = 0;
        if (!value)
            continue;
        if (valueLen != 2)
            return nullptr;
        dense->pair[key] = static_cast<uint16_t>(value[0] | value[1] << 8);
        dense->pairPresent[key >> 6] |= uint64_t{1} << (key & 63);
    }
    for (uint32_t b = 0; b < 256; ++b) {
        uint8_t value[256];
        uint32_t valueLen = 0;
        const uint8_t byte = static_cast<uint8_t>(b);
        dense->singlePresent[b] = table.lookup(&byte, 1, value, valueLen);
        if (dense->singlePresent[b] && valueLen != 2)
            return nullptr;
        dense->single[b] = dense->singlePresent[b] ? static_cast<uint16_t>(value[0] | value[1] << 8) : 0;
    }
    return dense.release();
}

}  // namespace brelkin
