// MimeLoadFuzzer.cpp - untrusted message bytes through the whole engine
//
// One input is one stored message: it is parsed into a tree, written out
// again, and the written text parsed once more and written. Each step must end
// without a crash, a leak or a sanitizer report, whatever the input; the text
// the engine writes must itself be readable by the engine.
#include <cstdint>
#include <cstring>

#include "mime/MimeMessage2.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/log/LogNull.h"
#include "textlib/log/Logger.h"

using brelkin::DataBuffer;
using brelkin::MimeMessage2;

namespace {

// Appends the terminator that the parser needs behind the bytes.
void parse(MimeMessage2& node, DataBuffer& bytes, brelkin::LogBase& log, bool verbose) {
    const uint32_t size = bytes.getSize();
    bytes.appendByte(0);
    node.LoadMimeComplete2(reinterpret_cast<const char*>(bytes.getData()), size, false, log,
                           false, verbose);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 22)) return 0;
    // The first byte decides whether the informational log paths run too.
    const bool verbose = size > 0 && (data[0] & 1);
    brelkin::Logger logger;
    brelkin::LogNull quiet;
    brelkin::LogBase& log = verbose ? static_cast<brelkin::LogBase&>(logger) : quiet;

    DataBuffer input;
    input.append(data, static_cast<uint32_t>(size));
    MimeMessage2 first;
    parse(first, input, log, verbose);

    DataBuffer written;
    first.getMimeDb(written, log, verbose);
    MimeMessage2 second;
    parse(second, written, log, verbose);
    DataBuffer rewritten;
    second.getMimeDb(rewritten, log, verbose);
    return 0;
}
