// HashConvert.cpp - hash map from short byte strings to byte strings
//
// See HashConvert.h
#include "textlib/charset/HashConvert.h"

#include <cstdlib>
#include <cstring>

namespace brelkin {

namespace {

uint32_t entrySize(const uint8_t* entry) {
    const uint32_t keyLen = entry[0];
    return 1 + keyLen + 1 + entry[1 + keyLen];
}

// Bytes in use by a bucket block, without its closing zero.
uint32_t blockLength(const uint8_t* block) {
    uint32_t length = 0;
    while (block[length] != 0)
        length += entrySize(block + length);
    return length;
}

bool keyMatches(const uint8_t* entry, const uint8_t* key, uint32_t keyLen) {
    return entry[0] == keyLen && std::memcmp(entry + 1, key, keyLen) == 0;
}

}  // namespace

HashConvert::HashConvert() : m_asciiCompatible(false), m_bucketCount(0), m_buckets(nullptr) {}

HashConvert::~HashConvert() { freeAll(); }

void HashConvert::freeAll() {
    for (uint32_t i = 0; i < m_bucketCount; ++i)
        std::free(m_buckets[i]);
    std::free(m_buckets);
    m_buckets = nullptr;
    m_bucketCount = 0;
}

bool HashConvert::initialize(uint32_t buckets) {
    freeAll();
    if (buckets == 0)
        return false;
    m_buckets = static_cast<uint8_t**>(std::calloc(buckets, sizeof(uint8_t*)));
    if (!m_buckets)
        return false;
    m_bucketCount = buckets;
    return true;
}

bool HashConvert::isBucketEmpty(uint32_t index) const {
    return index >= m_bucketCount || m_buckets[index] == nullptr;
}

uint32_t HashConvert::bucketOf(const uint8_t* key, uint32_t keyLen) const {
    uint32_t value = 0;
    for (uint32_t i = keyLen < 4 ? keyLen : 4; i-- > 0;)
        value = (value << 8) | key[i];
    return value % m_bucketCount;
}

bool HashConvert::insert(const uint8_t* key, uint32_t keyLen, const uint8_t* value,
                         uint32_t valueLen) {
    if (!m_buckets || !key || keyLen == 0 || keyLen > 255 || valueLen > 255)
        return false;
    uint8_t*& block = m_buckets[bucketOf(key, keyLen)];
    const uint32_t used = block ? blockLength(block) : 0;
    const uint32_t added = 2 + keyLen + valueLen;
    uint8_t* grown = static_cast<uint8_t*>(std::realloc(block, used + added + 1));
    if (!grown)
        return false;
    block = grown;
    uint8_t* entry = block + used;
    entry[0] = static_cast<uint8_t>(keyLen);
    std::memcpy(entry + 1, key, keyLen);
    entry[1 + keyLen] = static_cast<uint8_t>(valueLen);
    if (valueLen)
        std::memcpy(entry + 2 + keyLen, value, valueLen);
    block[used + added] = 0;
    if (keyLen < 8)
        m_keyLengths |= 1u << keyLen;
    if (keyLen >= 2)
        m_longKeyLeads[key[0] >> 5] |= 1u << (key[0] & 31);
    return true;
}

bool HashConvert::lookup(const uint8_t* key, uint32_t keyLen, uint8_t* out,
                         uint32_t& outLen) const {
    outLen = 0;
    if (!m_buckets || !key || keyLen == 0)
        return false;
    const uint8_t* entry = m_buckets[bucketOf(key, keyLen)];
    if (!entry)
        return false;
    for (; entry[0] != 0; entry += entrySize(entry)) {
        if (!keyMatches(entry, key, keyLen))
            continue;
        outLen = entry[1 + keyLen];
        std::memcpy(out, entry + 2 + keyLen, outLen);
        return true;
    }
    return false;
}

const uint8_t* HashConvert::find2(uint8_t k0, uint8_t k1, uint32_t& valueLen) const {
    if (!m_buckets)
        return nullptr;
    const uint8_t* entry = m_buckets[(static_cast<uint32_t>(k1) << 8 | k0) % m_bucketCount];
    if (!entry)
        return nullptr;
    for (; entry[0] != 0; entry += entrySize(entry)) {
        if (entry[0] == 2 && entry[1] == k0 && entry[2] == k1) {
            valueLen = entry[3];
            return entry + 4;
        }
    }
    return nullptr;
}

void HashConvert::remove(const uint8_t* key, uint32_t keyLen) {
    if (!m_buckets || !key || keyLen == 0)
        return;
    uint8_t*& block = m_buckets[bucketOf(key, keyLen)];
    if (!block)
        return;
    uint32_t kept = 0;
    for (uint32_t at = 0; block[at] != 0;) {
        const uint32_t size = entrySize(block + at);
        if (!keyMatches(block + at, key, keyLen)) {
            std::memmove(block + kept, block + at, size);
            kept += size;
        }
        at += size;
    }
    block[kept] = 0;
    if (kept == 0) {
        std::free(block);
        block = nullptr;
    }
}

void HashConvert::invertInto(HashConvert& other) const {
    for (uint32_t i = 0; i < m_bucketCount; ++i) {
        const uint8_t* entry = m_buckets[i];
        if (!entry)
            continue;
        for (; entry[0] != 0; entry += entrySize(entry)) {
            const uint32_t keyLen = entry[0];
            other.insert(entry + 2 + keyLen, entry[1 + keyLen], entry + 1, keyLen);
        }
    }
}

}  // namespace brelkin
