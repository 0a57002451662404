// NvcBase64.cpp - the foundation's lenient Base64 codec
//
// See NvcBase64.h
#include "foundation/NvcBase64.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kNotInAlphabet = 254;
constexpr unsigned char kPad = 255;

// Bytes 7 to 13 (BEL, BS, TAB, LF, VT, FF, CR) and the blank.
bool IsSkipped(unsigned char c) { return (c >= 7 && c <= 13) || c == 32; }

}  // namespace

CNvcBase64::CNvcBase64() : CNvcBase("CNvcBase64") { BuildDecodeTable(); }

CNvcBase64::CNvcBase64(const CNvcBase64& other) : CNvcBase(other) { BuildDecodeTable(); }

CNvcBase64::~CNvcBase64() { FreeBuffers(); }

void CNvcBase64::BuildDecodeTable() {
    std::memcpy(m_alphabet, kAlphabet, sizeof m_alphabet);
    std::memset(m_decodeTable, kNotInAlphabet, sizeof m_decodeTable);
    for (unsigned char value = 0; value < 64; ++value) {
        const unsigned char c = static_cast<unsigned char>(m_alphabet[value]);
        m_decodeTable[c] = value;
        m_decodeTable[c | 0x80] = value;
    }
    constexpr unsigned char kPadChar = '=';
    m_decodeTable[kPadChar] = kPad;
    m_decodeTable[kPadChar | 0x80] = kPad;
}

void CNvcBase64::FreeBuffers() {
    delete[] m_textBuffer;
    m_textBuffer = nullptr;
    delete[] m_binaryBuffer;
    m_binaryBuffer = nullptr;
    m_cursor = 0;
}

// Up to 3 bytes to 4 characters, "=" standing for the missing ones.
void CNvcBase64::EncodeGroup(const unsigned char* in, size_t count) {
    const unsigned b0 = in[0];
    const unsigned b1 = count > 1 ? in[1] : 0;
    const unsigned b2 = count > 2 ? in[2] : 0;
    char* out = m_textBuffer + m_cursor;
    out[0] = m_alphabet[b0 >> 2];
    out[1] = m_alphabet[((b0 & 3) << 4) | (b1 >> 4)];
    out[2] = count > 1 ? m_alphabet[((b1 & 15) << 2) | (b2 >> 6)] : '=';
    out[3] = count > 2 ? m_alphabet[b2 & 63] : '=';
    m_cursor += 4;
}

int CNvcBase64::Encode(const void* data, size_t length, CNvcString& out) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    m_textBuffer = new (std::nothrow) char[2 * length + 5]();
    if (m_textBuffer == nullptr) return -1;
    m_cursor = 0;
    for (size_t at = 0; at < length; at += 3) EncodeGroup(bytes + at, std::min<size_t>(3, length - at));
    out.Assign(m_textBuffer);
    FreeBuffers();
    return 0;
}

int CNvcBase64::EncodeString(CNvcString& text) {
    const CNvcString plain(text);
    return Encode(plain.GetData(), plain.GetLength(), text);
}

// One group through the table: `count` is 4, or 3 and 2 for one and two "=",
// or the length of a short rest. Values outside the alphabet (254) go into
// the formulas as they are; that is the codec's leniency, kept on purpose.
void CNvcBase64::DecodeGroup(const unsigned char* group, int count) {
    const unsigned a = group[0], b = group[1], c = group[2], d = group[3];
    unsigned char* out = m_binaryBuffer + m_cursor;
    out[0] = static_cast<unsigned char>(((a << 2) & 0xFF) | ((b >> 4) & 3));
    ++m_cursor;
    if (count >= 3) {
        out[1] = static_cast<unsigned char>(((b & 15) << 4) | ((c >> 2) & 15));
        ++m_cursor;
    }
    if (count == 4) {
        out[2] = static_cast<unsigned char>(((c << 6) & 0xFF) | (d & 63));
        ++m_cursor;
    }
}

// Decodes `text` into the binary buffer; returns the number of bytes.
size_t CNvcBase64::DecodeInto(const char* text) {
    size_t kept = 0;
    for (const char* p = text; *p != '\0'; ++p)
        if (!IsSkipped(static_cast<unsigned char>(*p))) m_textBuffer[kept++] = *p;
    m_cursor = 0;
    size_t at = 0;
    for (; at + 4 <= kept; at += 4) {
        unsigned char v[4];
        for (int i = 0; i < 4; ++i) v[i] = m_decodeTable[static_cast<unsigned char>(m_textBuffer[at + i])];
        int count = 4;
        if (v[2] == kPad) {
            v[2] = 0;
            count = 3;
        }
        if (v[3] == kPad) {
            v[3] = 0;
            --count;
        }
        DecodeGroup(v, count);
    }
    if (at < kept) {
        unsigned char v[4] = {0, 0, 0, 0};
        const int rest = static_cast<int>(kept - at);
        for (int i = 0; i < rest; ++i) {
            v[i] = m_decodeTable[static_cast<unsigned char>(m_textBuffer[at + i])];
            if (v[i] == kPad) v[i] = 0;
        }
        DecodeGroup(v, rest);
    }
    return m_cursor;
}

int CNvcBase64::Decode(void* buffer, size_t& length, const CNvcString& text) {
    const size_t textLength = text.GetLength();
    m_textBuffer = new (std::nothrow) char[2 * textLength + 5];
    m_binaryBuffer = new (std::nothrow) unsigned char[textLength + 4];
    if (m_textBuffer == nullptr || m_binaryBuffer == nullptr) {
        FreeBuffers();
        return -1;
    }
    const size_t decoded = DecodeInto(text.GetData());
    if (buffer != nullptr) std::memcpy(buffer, m_binaryBuffer, std::min(length, decoded));
    length = decoded;
    FreeBuffers();
    return 0;
}

int CNvcBase64::DecodeString(CNvcString& text) {
    const size_t size = 2 * text.GetLength() + 1;
    char* plain = new (std::nothrow) char[size];
    if (plain == nullptr) return 0;
    size_t length = size - 1;
    const int result = Decode(plain, length, text);
    if (result == 0) {
        plain[std::min(length, size - 1)] = '\0';
        text.Assign(plain);
    }
    delete[] plain;
    return result;
}
