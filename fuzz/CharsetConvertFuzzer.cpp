// CharsetConvertFuzzer.cpp - conversion between code pages on untrusted bytes
//
// The first byte picks the source code page, the second the target, the rest
// is the text. Every route must end with a bounded result; where the source
// is valid UTF-8 of the first plane (without a leading byte order mark, which
// is dropped), UTF-8 -> UTF-16 -> UTF-8 must give it back, and text
// read from a table code page must read the same after a trip back into it.
#include <cstdint>
#include <cstring>
#include <string>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/EncodingConvert.h"

using brelkin::DataBuffer;
using brelkin::EncodingConvert;

namespace {

// Table pages, computed encodings and a few names the engine knows only by
// number; unknown numbers (0, 1) must fail cleanly.
const int kCodePages[] = {
    0,     1,     437,   850,   866,   874,   932,   936,   949,   950,   1200,  1201,
    1250,  1251,  1252,  1253,  1254,  1255,  1256,  1257,  1258,  10000, 10001, 10005,
    10021, 12000, 12001, 20127, 20866, 20932, 21866, 28591, 28592, 28595, 28597, 28598,
    28605, 50220, 50221, 50222, 50225, 51932, 51936, 51949, 52936, 54936, 65000, 65001,
    37,    500,   1026,  20838, 1047,  855,   857,   862,   864,   1361,  20000, 20949,
};
constexpr size_t kPageCount = sizeof(kCodePages) / sizeof(kCodePages[0]);

std::string bytesOf(const DataBuffer& buffer) {
    if (buffer.getSize() <= 0) return std::string();
    return std::string(reinterpret_cast<const char*>(buffer.getData()),
                       static_cast<size_t>(buffer.getSize()));
}

// Valid UTF-8 of the Basic Multilingual Plane: characters in four bytes vanish
// on the way into UTF-16 by design.
bool isBmpUtf8(const uint8_t* p, size_t n) {
    static const uint32_t kLeast[] = {0, 0x80, 0x800};
    for (size_t i = 0; i < n;) {
        const uint8_t c = p[i];
        const int extra = c < 0x80 ? 0 : (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : -1;
        if (extra < 0 || i + extra >= n + (extra == 0)) return false;
        uint32_t cp = c & (0x7F >> extra);
        for (int k = 1; k <= extra; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        if (cp < kLeast[extra] || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        i += extra + 1;
    }
    return true;
}

// Stateful and computed encodings read a broken sequence as something they
// would write differently; the byte tables map each character back to itself.
bool roundTrips(int codePage) {
    switch (codePage) {
        case 0: case 1: case 1200: case 1201: case 12000: case 12001:
        case 50220: case 50221: case 50222: case 50225: case 65000:
            return false;
        default:
            return true;
    }
}

void checkBounded(const DataBuffer& out, size_t inputSize) {
    // Worst cases: one byte to a four-byte sequence with shift escapes around it.
    if (static_cast<uint64_t>(out.getSize()) > 16ull * inputSize + 64) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 65536) return 0;
    const int from = kCodePages[data[0] % kPageCount];
    const int to = kCodePages[data[1] % kPageCount];
    const uint8_t* text = data + 2;
    const uint32_t length = static_cast<uint32_t>(size - 2);

    EncodingConvert convert;
    DataBuffer out;
    convert.convert(from, to, text, length, out);
    checkBounded(out, length);

    // A byte order mark at the start is dropped on the way in, by design.
    const bool leadingMark = length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
    if (isBmpUtf8(text, length) && std::memchr(text, 0, length) == nullptr && !leadingMark) {
        DataBuffer wide;
        DataBuffer back;
        if (convert.convert(65001, 1200, text, length, wide) &&
            convert.convert(1200, 65001, wide.getData(), static_cast<uint32_t>(wide.getSize()),
                            back) &&
            bytesOf(back) != std::string(reinterpret_cast<const char*>(text), length)) {
            __builtin_trap();
        }
    }

    // Unicode read from a page must survive a trip back into it and out again.
    DataBuffer first;
    if (!convert.convert(from, 65001, text, length, first)) return 0;
    DataBuffer there;
    DataBuffer again;
    if (convert.convert(65001, from, first.getData(), static_cast<uint32_t>(first.getSize()),
                        there) &&
        convert.convert(from, 65001, there.getData(), static_cast<uint32_t>(there.getSize()),
                        again)) {
        checkBounded(again, length);
        if (roundTrips(from) && bytesOf(again) != bytesOf(first)) __builtin_trap();
    }
    return 0;
}
