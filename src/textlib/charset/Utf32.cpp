// Utf32.cpp - UTF-32 to and from UTF-8
//
// See Utf32.h
#include "textlib/charset/Utf32.h"

#include <cstring>

#include "textlib/charset/OutputStage.h"

namespace brelkin {

namespace {

int trailingBytes(uint8_t lead) {
    if (lead < 0x80) return 0;
    if (lead < 0xC2) return -1;
    if (lead < 0xE0) return 1;
    if (lead < 0xF0) return 2;
    if (lead <= 0xF4) return 3;
    return -1;
}

bool isLegal(const uint8_t* seq, int trail) {
    for (int i = 1; i <= trail; ++i) {
        if ((seq[i] & 0xC0) != 0x80)
            return false;
    }
    if (seq[0] == 0xE0 && seq[1] < 0xA0) return false;
    if (seq[0] == 0xF0 && seq[1] < 0x90) return false;
    if (seq[0] == 0xF4 && seq[1] > 0x8F) return false;
    return true;
}

bool utf8ToUtf32(const uint8_t* in, uint32_t length, DataBuffer& out, bool bigEndian) {
    if (!in || length == 0)
        return true;
    OutputStage<512> stage(out);
    for (uint32_t i = 0; i < length;) {
        const int trail = trailingBytes(in[i]);
        if (trail < 0 || length - i <= static_cast<uint32_t>(trail) || !isLegal(in + i, trail))
            return false;
        uint32_t value = trail == 0 ? in[i] : in[i] & (0x3F >> trail);
        for (int k = 1; k <= trail; ++k)
            value = (value << 6) | (in[i + k] & 0x3F);
        i += 1 + trail;
        uint8_t bytes[4];
        for (int k = 0; k < 4; ++k)
            bytes[bigEndian ? 3 - k : k] = static_cast<uint8_t>(value >> (8 * k));
        stage.putBytes(bytes, 4);
    }
    return true;
}

void putUtf8(uint32_t value, OutputStage<512>& out) {
    if (value > 0x1FFFFF)
        value = 0xFFFD;
    if (value < 0x80) {
        out.put(static_cast<uint8_t>(value));
    } else if (value < 0x800) {
        out.put2(static_cast<uint8_t>(0xC0 | (value >> 6)), static_cast<uint8_t>(0x80 | (value & 0x3F)));
    } else if (value < 0x10000) {
        out.put(static_cast<uint8_t>(0xE0 | (value >> 12)));
        out.put2(static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3F)),
                 static_cast<uint8_t>(0x80 | (value & 0x3F)));
    } else {
        out.put2(static_cast<uint8_t>(0xF0 | (value >> 18)),
                 static_cast<uint8_t>(0x80 | ((value >> 12) & 0x3F)));
        out.put2(static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3F)),
                 static_cast<uint8_t>(0x80 | (value & 0x3F)));
    }
}

}  // namespace

bool utf8ToUtf32Le(const uint8_t* utf8, uint32_t length, DataBuffer& out) {
    return utf8ToUtf32(utf8, length, out, false);
}

bool utf8ToUtf32Be(const uint8_t* utf8, uint32_t length, DataBuffer& out) {
    return utf8ToUtf32(utf8, length, out, true);
}

bool utf32ToUtf8(const uint8_t* utf32, uint32_t length, DataBuffer& out) {
    if (!utf32 || length == 0)
        return true;
    OutputStage<512> stage(out);
    for (uint32_t i = 0; i + 4 <= length; i += 4) {
        uint32_t value;
        std::memcpy(&value, utf32 + i, 4);  // the machine's order
        putUtf8(value, stage);
    }
    return length % 4 == 0;
}

}  // namespace brelkin
