// NvcBase64.h - the foundation's lenient Base64 codec
//
// Standard alphabet with "=" padding, encoded in one line without breaks.
// Decoding drops the bytes 7 to 13 and blanks, and refuses nothing else: a
// character outside the alphabet decodes with the value 254 in the usual bit
// formulas, a group with one "=" gives two bytes and with two "=" one byte,
// and a short group at the end is taken as far as it goes. Both top-bit
// variants of each alphabet character decode like the character itself.
//
// Input:       any bytes.
// Diagnostics: 0 on success, -1 when memory fails; bad input is no error.
// Limits:      working buffers of about twice the input, freed after each call.
// Known gaps:  DecodeString gives a zero-terminated text, so decoded binary
//              stops at its first zero byte; Decode gives all the bytes.
// See also:    NvcString.h
#pragma once

#include <cstddef>

#include "foundation/NvcBase.h"
#include "foundation/NvcString.h"

class CNvcBase64 : public CNvcBase {
public:
    CNvcBase64();
    CNvcBase64(const CNvcBase64& other);
    CNvcBase64& operator=(const CNvcBase64&) = delete;
    ~CNvcBase64() override;

    int Encode(const void* data, size_t length, CNvcString& out);
    int EncodeString(CNvcString& text);
    // With a null `buffer` only sets `length` to the decoded length; else copies
    // at most the incoming `length` bytes and sets it to the full length.
    int Decode(void* buffer, size_t& length, const CNvcString& text);
    int DecodeString(CNvcString& text);

private:
    void BuildDecodeTable();
    void FreeBuffers();
    void EncodeGroup(const unsigned char* in, size_t count);
    size_t DecodeInto(const char* text);
    void DecodeGroup(const unsigned char* group, int count);

    char m_alphabet[65];
    unsigned char m_decodeTable[256];
    char* m_textBuffer = nullptr;
    unsigned char* m_binaryBuffer = nullptr;
    size_t m_cursor = 0;
};
