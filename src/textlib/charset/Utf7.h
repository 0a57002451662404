// Utf7.h - UTF-7 (RFC 2152) to and from UTF-16
//
// The encoder writes letters, digits, "'(),-./:?", blank, tab, CR and LF
// directly and everything else in shifted runs of modified Base64, each
// closed by "-"; a lone "+" becomes "+-". The decoder reads what the RFC
// allows and notes what it does not.
//
// Input:       UTF-16 in the machine's order (an odd last byte is ignored);
//              any bytes for the decoder.
// Diagnostics: utf7Decode returns false for a byte above 0x7F outside a run,
//              a run that gave no character, or non-zero bits left at the end
//              of a run; it decodes on in each case.
// See also:    EncodingConvert.h, Utf32.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

bool utf7Encode(const uint8_t* utf16, uint32_t length, DataBuffer& out);
bool utf7Decode(const uint8_t* utf7, uint32_t length, DataBuffer& out);

}  // namespace brelkin
