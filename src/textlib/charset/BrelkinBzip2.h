// BrelkinBzip2.h - one-shot bzip2 unpacking from memory to memory
//
// A thin wrapper over libbz2 for the conversion tables: the whole stream is
// unpacked in one call into room the caller has reserved, with the
// small-memory mode off and no verbosity.
//
// Input:       any bytes; a truncated or broken stream is a failure.
// Diagnostics: false unless the decompressor reports the end of the stream;
//              then nothing is added to the output.
// Limits:      the output never grows: what does not fit is a failure.
// See also:    ConversionTables.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

class BrelkinBzip2 {
public:
    // Unpacks into the free capacity of `out`, behind its content.
    static bool unpackInto(const uint8_t* packed, uint32_t packedLen, DataBuffer& out);
};

}  // namespace brelkin
