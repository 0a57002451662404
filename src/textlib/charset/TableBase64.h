// TableBase64.h - Base64 decoding for the packed tables of the charset code
//
// The tables and the IBM extension block of ISO-2022-JP are stored as Base64
// text. The text library sits below the MIME engine, so it cannot borrow the
// engine's transfer decoder and keeps this small one: the standard alphabet,
// characters outside it skipped, decoding ended by the first "=".
//
// Input:       any text; a trailing group of one character gives no byte.
// See also:    ConversionTables.h, Japanese.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

class TableBase64 {
public:
    // Appends the decoded bytes; false when nothing could be decoded.
    static bool decode(const char* text, uint32_t length, DataBuffer& out);
};

}  // namespace brelkin
