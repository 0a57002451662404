// Utf32.h - UTF-32 to and from UTF-8
//
// UTF-8 is read by the table of trailing bytes with the legality rules:
// lead bytes C2-F4, E0 followed by at least A0, F0 by at least 90, F4 by at
// most 8F. UTF-32 is written in the order asked for and read in the
// machine's order.
//
// Diagnostics: utf8ToUtf32* stop with false at a cut-off or illegal sequence,
//              keeping what was written; utf32ToUtf8 gives false for a length
//              that is not a whole number of units.
// Limits:      values above 0x1FFFFF come out as U+FFFD.
// See also:    EncodingConvert.h, Utf7.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

bool utf8ToUtf32Le(const uint8_t* utf8, uint32_t length, DataBuffer& out);
bool utf8ToUtf32Be(const uint8_t* utf8, uint32_t length, DataBuffer& out);
bool utf32ToUtf8(const uint8_t* utf32, uint32_t length, DataBuffer& out);

}  // namespace brelkin
