// EncodingConvert.h - conversion of text between code pages through UTF-16
//
// Every conversion pivots on UTF-16 in the machine's order (code page 1200).
// Table pages go through the tables of ConversionTables.h; UTF-7, UTF-32,
// ISO-2022-JP (50220-50222) and ISO-2022-KR (50225) are computed. Nothing is
// asked of the operating system but the numbers of its ANSI and OEM pages,
// so the output is the same on every machine.
//
// Input:       any bytes; a null pointer or length 0 converts to nothing and
//              succeeds. A code page of 0 takes the other side's number.
// Diagnostics: false when at least one character could not be converted;
//              the output then holds what could. Only the last stage of a
//              two-stage route decides the result. An unknown page gives false
//              with nothing written, unless both numbers are the same.
// Limits:      output appends to the caller's buffer; no state outlives a call.
// Known gaps:  characters above U+FFFF in 4-byte UTF-8 vanish on the way to
//              UTF-16, and surrogate pairs come out of UTF-16 as two 3-byte
//              sequences; both are kept as the engine has always done it.
// See also:    ConversionTables.h, Japanese.h, Korean.h, Utf7.h, Utf32.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;

class EncodingConvert {
public:
    EncodingConvert() = default;
    virtual ~EncodingConvert() = default;

    bool convert(int fromCodePage, int toCodePage, const void* bytes, uint32_t length,
                 DataBuffer& out);
    // Unknown names give false with nothing written.
    bool convertByNames(const char* fromName, const char* toName, const void* bytes,
                        uint32_t length, DataBuffer& out);
    bool convertFromName(const char* fromName, int toCodePage, const void* bytes,
                         uint32_t length, DataBuffer& out);
    // From and to the system's ANSI code page (GetACP).
    bool ansiToCodePage(int toCodePage, const void* bytes, uint32_t length, DataBuffer& out);
    bool codePageToAnsi(int fromCodePage, const void* bytes, uint32_t length, DataBuffer& out);

private:
    bool convertTarget(int from, int to, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool core(int from, int to, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool route(int from, int to, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool unicodeToTable(int from, int to, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool tableToOther(int from, int to, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool tableToUtf16(int codePage, const uint8_t* in, uint32_t length, DataBuffer& out);
    bool utf16ToUtf8(const uint8_t* in, uint32_t length, DataBuffer& out);
    bool utf8ToUtf16(const uint8_t* in, uint32_t length, DataBuffer& out);
};

}  // namespace brelkin
