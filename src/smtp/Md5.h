// Md5.h - the MD5 message digest of RFC 1321, for CRAM-MD5
//
// Three steps: Init (the standard state words, count 0), Update with any
// number of byte ranges of any length, Final (padding, bit length, 16 bytes of
// digest in the standard order). Our own code rather than a library call, so
// the authentication path carries no dependency on a crypto library's
// deprecated digest interfaces.
//
// Input:       any bytes; a null pointer with length 0 is an empty range.
// Diagnostics: none; no call fails.
// See also:    NvSmtp.h (CRAM-MD5)
#pragma once

#include <cstddef>
#include <cstdint>

class Md5 {
public:
    static constexpr size_t kDigestSize = 16;

    Md5() { Init(); }

    void Init();
    void Update(const void* data, size_t length);
    // Writes the digest; the object must be Init-ed again before further use.
    void Final(uint8_t digest[kDigestSize]);

    // The digest of one byte range.
    static void Digest(const void* data, size_t length, uint8_t digest[kDigestSize]);

private:
    void Transform(const uint8_t block[64]);

    uint32_t state_[4];
    uint64_t bitCount_;
    uint8_t block_[64];
};
