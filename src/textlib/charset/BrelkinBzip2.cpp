// BrelkinBzip2.cpp - one-shot bzip2 unpacking from memory to memory
//
// See BrelkinBzip2.h
#include "textlib/charset/BrelkinBzip2.h"

#include <bzlib.h>

#include "textlib/buffers/DataBuffer.h"

namespace brelkin {

bool BrelkinBzip2::unpackInto(const uint8_t* packed, uint32_t packedLen, DataBuffer& out) {
    if (!packed || packedLen == 0 || out.getCapacity() <= out.getSize())
        return false;
    bz_stream stream{};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK)
        return false;
    stream.next_in = reinterpret_cast<char*>(const_cast<uint8_t*>(packed));
    stream.avail_in = packedLen;
    stream.next_out = reinterpret_cast<char*>(out.getData() + out.getSize());
    stream.avail_out = out.getCapacity() - out.getSize();
    const uint32_t room = stream.avail_out;
    const int rc = BZ2_bzDecompress(&stream);
    const uint32_t written = room - stream.avail_out;
    BZ2_bzDecompressEnd(&stream);
    if (rc != BZ_STREAM_END)
        return false;
    out.setSize(out.getSize() + written);
    return true;
}

}  // namespace brelkin
