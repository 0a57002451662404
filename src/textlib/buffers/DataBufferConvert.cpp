// DataBufferConvert.cpp - the DataBuffer operations that need charset conversion
//
// See DataBuffer.h
#include "textlib/buffers/DataBuffer.h"

#include "textlib/charset/EncodingConvert.h"

namespace brelkin {

namespace {

// A UTF-8 lead byte of Latin-1 letters followed by a continuation-range byte.
bool hasLatinUtf8Pair(const uint8_t* data, uint32_t size) {
    for (uint32_t i = 0; i + 1 < size; ++i) {
        if ((data[i] == 0xC2 || data[i] == 0xC3) && data[i + 1] >= 0x80)
            return true;
    }
    return false;
}

}  // namespace

bool DataBuffer::looksLikeMislabelledUtf8(int codePage) {
    if (is7bit() || !hasLatinUtf8Pair(m_data, m_size))  // is7bit checks the magic first
        return false;
    // Kept on purpose: only the last stage of a conversion decides its result,
    // so for a table page this is false unless UTF-16 to UTF-8 itself fails.
    DataBuffer discarded;
    EncodingConvert conv;
    return !conv.convert(codePage, 65001, m_data, m_size, discarded);
}

bool DataBuffer::toUtf8(DataBuffer& dest) {
    dest.clear();
    if (!m_data || m_size == 0)
        return true;
    (void)containsByte(0);  // checks the magic of this buffer
    EncodingConvert conv;
    return conv.convert(1200, 65001, m_data, m_size, dest);
}

}  // namespace brelkin
