// DataBuffer.cpp - growable block of raw bytes that may borrow foreign memory
//
// See DataBuffer.h
#include "textlib/buffers/DataBuffer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

namespace {

constexpr uint8_t kLiveMagic = 0xDB;
constexpr uint32_t kByteStep = 10000;
constexpr uint32_t kMinStep = 20000;

// The first tier whose threshold the appended length stays below while the
// content has reached it decides the step; otherwise 20,000 or the length.
uint32_t tierStep(uint32_t size, uint32_t length) {
    static const uint32_t kTiers[] = {12000000, 8000000, 4000000, 3000000,
                                      2000000,  1000000, 100000,  50000};
    for (uint32_t tier : kTiers) {
        if (length < tier && size >= tier) return tier;
    }
    return length < kMinStep ? kMinStep : length;
}

bool addOverflows(uint32_t a, uint32_t b) { return a > UINT32_MAX - b; }

// Whether `p` points into the block [data, data + capacity).
bool pointsInto(const void* p, const uint8_t* data, uint32_t capacity) {
    auto addr = reinterpret_cast<uintptr_t>(p);
    auto base = reinterpret_cast<uintptr_t>(data);
    return data != nullptr && addr >= base && addr < base + capacity;
}

}  // namespace

inline void DataBuffer::checkMagic() const {
    if (m_magic == kLiveMagic) return;
    std::fputs("DataBuffer: bad magic byte: object destroyed or corrupted\n", stderr);
    std::abort();
}

DataBuffer::DataBuffer()
    : m_magic(kLiveMagic), m_borrowed(false), m_data(nullptr), m_size(0), m_capacity(0) {}

DataBuffer::~DataBuffer() {
    m_magic = 0;
    dropBlock();
}

// Frees an owned block and forgets any block.
void DataBuffer::dropBlock() {
    if (!m_borrowed) std::free(m_data);
    m_data = nullptr;
    m_size = 0;
    m_capacity = 0;
    m_borrowed = false;
}

// The one reallocation step: a borrowed block is copied, never freed. On
// failure the content is lost, as callers expect of an exhausted heap.
bool DataBuffer::growTo(uint32_t newCapacity) {
    uint8_t* block;
    if (m_borrowed) {
        block = static_cast<uint8_t*>(std::malloc(newCapacity ? newCapacity : 1));
        if (block && m_size) std::memcpy(block, m_data, m_size);
    } else {
        block = static_cast<uint8_t*>(std::realloc(m_data, newCapacity ? newCapacity : 1));
    }
    if (!block) {
        dropBlock();
        return false;
    }
    m_data = block;
    m_capacity = newCapacity;
    m_borrowed = false;
    return true;
}

bool DataBuffer::growForAppend(uint32_t length) {
    if (addOverflows(m_size, length)) {
        dropBlock();
        return false;
    }
    if (m_size + length <= m_capacity) return makeOwned();
    uint32_t step = tierStep(m_size, length);
    if (addOverflows(m_size, step)) {
        dropBlock();
        return false;
    }
    return growTo(m_size + step);
}

bool DataBuffer::makeOwned() {
    return !m_borrowed || m_data == nullptr || growTo(m_capacity);
}

bool DataBuffer::append(const void* bytes, uint32_t length) {
    checkMagic();
    if (!bytes || length == 0) return true;
    // Appending a piece of ourselves: find it again after a reallocation.
    bool inside = pointsInto(bytes, m_data, m_capacity);
    size_t offset = inside ? static_cast<const uint8_t*>(bytes) - m_data : 0;
    if (!growForAppend(length)) return false;
    const void* source = inside ? m_data + offset : bytes;
    std::memcpy(m_data + m_size, source, length);
    m_size += length;
    return true;
}

uint8_t* DataBuffer::reserveTail(uint32_t length) {
    checkMagic();
    if (!growForAppend(length)) return nullptr;
    return m_data ? m_data + m_size : nullptr;
}

void DataBuffer::commitTail(uint32_t written) {
    checkMagic();
    if (m_capacity - m_size < written) written = m_capacity - m_size;
    m_size += written;
}

bool DataBuffer::appendByte(uint8_t byte) {
    checkMagic();
    if (m_size >= m_capacity) {
        if (addOverflows(m_size, kByteStep)) return false;
        if (!growTo(m_size + kByteStep)) return false;
    } else if (!makeOwned()) {
        return false;
    }
    m_data[m_size++] = byte;
    return true;
}

bool DataBuffer::appendStr(const char* text) {
    checkMagic();
    if (!text) return true;
    return append(text, static_cast<uint32_t>(std::strlen(text)));
}

bool DataBuffer::appendBuffer(const DataBuffer& other) {
    checkMagic();
    return append(other.m_data, other.m_size);
}

bool DataBuffer::appendStringBuffer(const StringBuffer& other) {
    checkMagic();
    return append(other.getString(), static_cast<uint32_t>(other.getSize()));
}

bool DataBuffer::appendWideZ(const char16_t* text) {
    checkMagic();
    uint32_t units = 0;
    if (text) {
        while (text[units] != 0) ++units;
    }
    static const char16_t kTerminator = 0;
    if (units && !append(text, units * 2)) return false;
    return append(&kTerminator, 2);
}

uint32_t DataBuffer::appendUtf8Char(uint16_t unit) {
    checkMagic();
    uint8_t bytes[3];
    uint32_t count;
    if (unit < 0x80) {
        bytes[0] = static_cast<uint8_t>(unit);
        count = 1;
    } else if (unit < 0x800) {
        bytes[0] = static_cast<uint8_t>(0xC0 | (unit >> 6));
        bytes[1] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
        count = 2;
    } else {
        bytes[0] = static_cast<uint8_t>(0xE0 | (unit >> 12));
        bytes[1] = static_cast<uint8_t>(0x80 | ((unit >> 6) & 0x3F));
        bytes[2] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
        count = 3;
    }
    if (m_size + count > m_capacity) {
        if (addOverflows(m_size, kMinStep)) return 0;
        if (!growTo(m_size + kMinStep)) return 0;
    } else if (!makeOwned()) {
        return 0;
    }
    std::memcpy(m_data + m_size, bytes, count);
    m_size += count;
    return count;
}

bool DataBuffer::prepend(const void* bytes, uint32_t length) {
    checkMagic();
    if (!bytes || length == 0) return true;
    if (addOverflows(m_size, length)) {
        dropBlock();
        return false;
    }
    bool inside = pointsInto(bytes, m_data, m_capacity);
    size_t offset = inside ? static_cast<const uint8_t*>(bytes) - m_data : 0;
    if (m_size + length > m_capacity && !growTo(m_size + length)) return false;
    if (!makeOwned()) return false;
    std::memmove(m_data + length, m_data, m_size);
    // A source inside the content has moved up with it.
    const void* source = inside ? m_data + length + offset : bytes;
    std::memcpy(m_data, source, length);
    m_size += length;
    return true;
}

bool DataBuffer::ensureCapacity(uint32_t wanted) {
    checkMagic();
    if (m_capacity < wanted) growTo(wanted);
    return m_data != nullptr;
}

void DataBuffer::shorten(uint32_t count) {
    checkMagic();
    m_size = count >= m_size ? 0 : m_size - count;
}

void DataBuffer::setSize(uint32_t size) {
    checkMagic();
    m_size = size > m_capacity ? m_capacity : size;
}

uint8_t* DataBuffer::getDataAt(int index) {
    checkMagic();
    if (!m_data || index < 0 || static_cast<uint32_t>(index) >= m_size) return nullptr;
    return m_data + index;
}

void DataBuffer::borrowData(const void* bytes, uint32_t length) {
    checkMagic();
    dropBlock();
    if (!bytes) return;
    m_data = static_cast<uint8_t*>(const_cast<void*>(bytes));
    m_size = m_capacity = length;
    m_borrowed = true;
}

void DataBuffer::adoptData(void* bytes, uint32_t length) {
    checkMagic();
    dropBlock();
    if (!bytes) return;
    m_data = static_cast<uint8_t*>(bytes);
    m_size = m_capacity = length;
}

void DataBuffer::releaseData() {
    checkMagic();
    m_data = nullptr;
    m_size = 0;
    m_capacity = 0;
    m_borrowed = false;
}

void DataBuffer::replaceByte(uint8_t from, uint8_t to) {
    checkMagic();
    if (!m_data || !std::memchr(m_data, from, m_size)) return;
    if (!makeOwned()) return;
    for (uint32_t i = 0; i < m_size; ++i) {
        if (m_data[i] == from) m_data[i] = to;
    }
}

void DataBuffer::replaceWideChar(char16_t from, char16_t to) {
    checkMagic();
    if (!m_data || from == 0 || to == 0) return;
    if (!makeOwned()) return;
    for (uint32_t i = 0; i + 1 < m_size; i += 2) {
        char16_t unit;
        std::memcpy(&unit, m_data + i, 2);
        if (unit == from) std::memcpy(m_data + i, &to, 2);
    }
}

bool DataBuffer::containsByte(uint8_t byte) const {
    checkMagic();
    return m_data && std::memchr(m_data, byte, m_size) != nullptr;
}

bool DataBuffer::is7bit() const {
    checkMagic();
    for (uint32_t i = 0; i < m_size; ++i) {
        if (m_data[i] & 0x80) return false;
    }
    return true;
}

}  // namespace brelkin
