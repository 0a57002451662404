// TableBase64.cpp - Base64 decoding for the packed tables of the charset code
//
// See TableBase64.h
#include "textlib/charset/TableBase64.h"

#include "textlib/buffers/DataBuffer.h"

namespace brelkin {

namespace {

// 0-63 for the alphabet, 64 for "=", 255 for anything else.
struct DecodeTable {
    uint8_t value[256];
    DecodeTable() {
        const char* alphabet =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 256; ++i)
            value[i] = 255;
        for (int i = 0; i < 64; ++i)
            value[static_cast<uint8_t>(alphabet[i])] = static_cast<uint8_t>(i);
        value[static_cast<uint8_t>('=')] = 64;
    }
};

const DecodeTable kTable;

}  // namespace

bool TableBase64::decode(const char* text, uint32_t length, DataBuffer& out) {
    if (!text || length == 0)
        return false;
    uint8_t* dest = out.reserveTail(length / 4 * 3 + 3);
    if (!dest)
        return false;
    uint32_t written = 0;
    uint32_t bits = 0;
    int count = 0;
    for (uint32_t i = 0; i < length; ++i) {
        const uint8_t v = kTable.value[static_cast<uint8_t>(text[i])];
        if (v == 64)
            break;
        if (v == 255)
            continue;
        bits = (bits << 6) | v;
        if (++count == 4) {
            dest[written++] = static_cast<uint8_t>(bits >> 16);
            dest[written++] = static_cast<uint8_t>(bits >> 8);
            dest[written++] = static_cast<uint8_t>(bits);
            bits = 0;
            count = 0;
        }
    }
    if (count == 2) {
        dest[written++] = static_cast<uint8_t>(bits >> 4);
    } else if (count == 3) {
        dest[written++] = static_cast<uint8_t>(bits >> 10);
        dest[written++] = static_cast<uint8_t>(bits >> 2);
    }
    out.commitTail(written);
    return written > 0;
}

}  // namespace brelkin
