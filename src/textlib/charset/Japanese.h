// Japanese.h - ISO-2022-JP to and from Shift-JIS (code page 932)
//
// The encoder switches with ESC $ B / ESC ( B around double-byte text, folds
// half-width katakana into their full-width forms (taking in a following
// voiced or semi-voiced mark) and moves the IBM extension area (lead bytes
// FA-FC) into JIS rows 0x79-0x7C. The decoder knows ESC $ @, ESC $ B,
// ESC ( B, ESC ( J and ESC ( I, and maps rows 0x79-0x7C back through the
// IBM extension table. Neither sees Unicode.
//
// Input:       any bytes; unknown escapes are swallowed, a lead byte or a
//              pair cut off by the end of the input is dropped.
// Diagnostics: none; both directions always succeed.
// Limits:      no state outlives a call; output is staged in 200 bytes.
// See also:    EncodingConvert.h, Korean.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

class Japanese {
public:
    virtual ~Japanese() = default;
    static void iso2022ToShiftJis(const uint8_t* in, uint32_t length, DataBuffer& out);
    static void shiftJisToIso2022(const uint8_t* in, uint32_t length, DataBuffer& out);
};

}  // namespace brelkin
