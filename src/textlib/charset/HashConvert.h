// HashConvert.h - hash map from short byte strings to byte strings
//
// Holds one direction of a conversion table: keys of 1 to 4 bytes (a code or
// a UTF-16 unit) to values of a few bytes. Each bucket is one heap block of
// entries "key length, key, value length, value", closed by a zero byte where
// a key length would stand. The hash is the key read as a little-endian
// integer, modulo the bucket count.
//
// Input:       keys and values of 1 to 255 bytes; the first entry inserted
//              for a key is the one that lookups see.
// Diagnostics: a failed allocation drops that insert; the table stays usable.
// Limits:      every insert reallocates its bucket, so build once, read often.
// See also:    ConversionTables.h, UnicodeLookup.h
#pragma once

#include <cstdint>

namespace brelkin {

class HashConvert {
public:
    HashConvert();
    virtual ~HashConvert();
    HashConvert(const HashConvert&) = delete;
    HashConvert& operator=(const HashConvert&) = delete;

    // Frees all entries and makes `buckets` empty buckets.
    bool initialize(uint32_t buckets);
    // Appends at the end of the key's bucket; an existing key stays first.
    bool insert(const uint8_t* key, uint32_t keyLen, const uint8_t* value, uint32_t valueLen);
    // Copies the value into `out` (room for 255 bytes); `outLen` 0 when absent.
    bool lookup(const uint8_t* key, uint32_t keyLen, uint8_t* out, uint32_t& outLen) const;
    // The value of a two-byte key in place, or null; `valueLen` gets its length.
    const uint8_t* find2(uint8_t k0, uint8_t k1, uint32_t& valueLen) const;
    // Drops every entry of the key; an emptied bucket is freed.
    void remove(const uint8_t* key, uint32_t keyLen);
    // Adds each entry to `other` with key and value swapped, bucket by bucket.
    void invertInto(HashConvert& other) const;

    void setAsciiCompatible(bool on) { m_asciiCompatible = on; }
    bool isAsciiCompatible() const { return m_asciiCompatible; }
    uint32_t getBucketCount() const { return m_bucketCount; }
    // True when bucket `index` holds no block.
    bool isBucketEmpty(uint32_t index) const;
    // False when no key of that length was ever inserted, so a converter can
    // skip the lookup; removals do not clear it.
    bool mayHaveKeyLength(uint32_t keyLen) const {
        return keyLen < 8 && (m_keyLengths & (1u << keyLen)) != 0;
    }
    // False when no key of two or more bytes starts with `byte`.
    bool mayStartLongKey(uint8_t byte) const {
        return (m_longKeyLeads[byte >> 5] & (1u << (byte & 31))) != 0;
    }

private:
    uint32_t bucketOf(const uint8_t* key, uint32_t keyLen) const;
    void freeAll();

    bool m_asciiCompatible;
    uint32_t m_bucketCount;
    uint8_t** m_buckets;
    uint32_t m_keyLengths = 0;
    uint32_t m_longKeyLeads[8] = {};
};

}  // namespace brelkin
