// Korean.h - ISO-2022-KR to and from code page 949
//
// The encoder writes the header ESC $ ) C in front of any non-empty text and
// shifts with SO/SI around double-byte characters, which lose their high
// bits; the decoder undoes that.
//
// Input:       any bytes; a lone last byte of a pair is dropped.
// Diagnostics: none; both directions always succeed.
// Known gaps:  kept as the wire has it: nothing closes a shifted run at the end.
// See also:    EncodingConvert.h, Japanese.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

class Korean {
public:
    virtual ~Korean() = default;
    static void iso2022ToKsc(const uint8_t* in, uint32_t length, DataBuffer& out);
    static void kscToIso2022(const uint8_t* in, uint32_t length, DataBuffer& out);
};

}  // namespace brelkin
