// Md5.cpp - the MD5 message digest of RFC 1321. See Md5.h
#include "smtp/Md5.h"

#include <cstring>

namespace {

// Per-round shift amounts and the sine-derived constants of RFC 1321.
constexpr uint32_t kShift[64] = {
    7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
    5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
    4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
    6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613,
    0xfd469501, 0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193,
    0xa679438e, 0x49b40821, 0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d,
    0x02441453, 0xd8a1e681, 0xe7d3fbc8, 0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed,
    0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a, 0xfffa3942, 0x8771f681, 0x6d9d6122,
    0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70, 0x289b7ec6, 0xeaa127fa,
    0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665, 0xf4292244,
    0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb,
    0xeb86d391};

inline uint32_t RotateLeft(uint32_t x, uint32_t n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t LoadLittleEndian(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline void StoreLittleEndian(uint32_t v, uint8_t* p) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

}  // namespace

void Md5::Init() {
    state_[0] = 0x67452301;
    state_[1] = 0xefcdab89;
    state_[2] = 0x98badcfe;
    state_[3] = 0x10325476;
    bitCount_ = 0;
}

void Md5::Update(const void* data, size_t length) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    size_t filled = size_t(bitCount_ / 8 % 64);
    bitCount_ += uint64_t(length) * 8;
    while (length > 0) {
        const size_t take = length < 64 - filled ? length : 64 - filled;
        std::memcpy(block_ + filled, bytes, take);
        filled += take;
        bytes += take;
        length -= take;
        if (filled == 64) {
            Transform(block_);
            filled = 0;
        }
    }
}

void Md5::Final(uint8_t digest[kDigestSize]) {
    uint8_t lengthBytes[8];
    for (int i = 0; i < 8; ++i) lengthBytes[i] = uint8_t(bitCount_ >> (8 * i));
    // Pad with 0x80 and zeros to 56 bytes modulo 64, then the original bit length.
    static const uint8_t kPadding[64] = {0x80};
    const size_t filled = size_t(bitCount_ / 8 % 64);
    Update(kPadding, filled < 56 ? 56 - filled : 120 - filled);
    Update(lengthBytes, 8);
    for (int i = 0; i < 4; ++i) StoreLittleEndian(state_[i], digest + 4 * i);
}

void Md5::Digest(const void* data, size_t length, uint8_t digest[kDigestSize]) {
    Md5 md5;
    md5.Update(data, length);
    md5.Final(digest);
}

void Md5::Transform(const uint8_t block[64]) {
    uint32_t word[16];
    for (int i = 0; i < 16; ++i) word[i] = LoadLittleEndian(block + 4 * i);
    uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
    for (uint32_t i = 0; i < 64; ++i) {
        uint32_t f, g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        const uint32_t next = b + RotateLeft(a + f + kSine[i] + word[g], kShift[i]);
        a = d;
        d = c;
        c = b;
        b = next;
    }
    state_[0] += a;
    state_[1] += b;
    state_[2] += c;
    state_[3] += d;
}
