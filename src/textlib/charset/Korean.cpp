// Korean.cpp - ISO-2022-KR to and from code page 949
//
// See Korean.h
#include "textlib/charset/Korean.h"

#include "textlib/charset/OutputStage.h"

namespace brelkin {

namespace {

constexpr uint8_t kEsc = 0x1B;
constexpr uint8_t kShiftOut = 0x0E;
constexpr uint8_t kShiftIn = 0x0F;

bool isHeaderAt(const uint8_t* in, uint32_t length, uint32_t i) {
    return length - i >= 4 && in[i + 1] == '$' && in[i + 2] == ')' && in[i + 3] == 'C';
}

}  // namespace

void Korean::kscToIso2022(const uint8_t* in, uint32_t length, DataBuffer& out) {
    if (!in || length == 0)
        return;
    OutputStage<200> stage(out);
    stage.putBytes(reinterpret_cast<const uint8_t*>("\x1b$)C"), 4);
    bool shifted = false;
    for (uint32_t i = 0; i < length; ++i) {
        const uint8_t a = in[i];
        if (a < 0x80) {
            if (shifted)
                stage.put(kShiftIn);
            shifted = false;
            stage.put(a);
            continue;
        }
        if (i + 1 >= length)
            break;  // a lead byte at the very end is dropped
        if (!shifted)
            stage.put(kShiftOut);
        shifted = true;
        stage.put2(static_cast<uint8_t>(a - 0x80), static_cast<uint8_t>(in[++i] - 0x80));
    }
}

void Korean::iso2022ToKsc(const uint8_t* in, uint32_t length, DataBuffer& out) {
    if (!in || length == 0)
        return;
    OutputStage<200> stage(out);
    bool shifted = false;
    for (uint32_t i = 0; i < length; ++i) {
        const uint8_t a = in[i];
        if (a == kShiftOut) {
            shifted = true;
        } else if (a == kShiftIn) {
            shifted = false;
        } else if (a == kEsc) {
            if (isHeaderAt(in, length, i)) {
                shifted = false;
                i += 3;
            }
        } else if (shifted) {
            if (i + 1 >= length)
                break;
            stage.put2(static_cast<uint8_t>(a + 0x80), static_cast<uint8_t>(in[++i] + 0x80));
        } else {
            stage.put(a);
        }
    }
}

}  // namespace brelkin
