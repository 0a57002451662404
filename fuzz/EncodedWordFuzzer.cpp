// EncodedWordFuzzer.cpp - untrusted header and HTML text through the engine's scanners
//
// The first byte picks the scanner, the rest is its input: the HTML/XML
// charset sniffer, the tag clean-up, quoted-string extraction (with and
// without backslash escapes) and URL decoding. Each must end, stay inside its
// input's bounds and never grow its output past what the rules allow.
#include <cstdint>
#include <cstring>
#include <string>

#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/Logger.h"
#include "textlib/scan/HtmlScan.h"
#include "textlib/scan/ParamString.h"

using brelkin::StringBuffer;

namespace {

void sniffCharset(const std::string& text) {
    StringBuffer out("UNTOUCHED");
    brelkin::getCharsetFromHtml(text.c_str(), out);
    // A charset name is a piece of the page, or the ">" a cut-off tag gets.
    if (out.getSize() > static_cast<int>(text.size()) + 1 && !out.equals("UNTOUCHED")) {
        __builtin_trap();
    }
}

void cleanTag(const std::string& text) {
    StringBuffer out;
    brelkin::Logger log;
    brelkin::cleanHtmlTag(text.c_str(), out, &log);
    // Each input byte becomes at most "&quot;" and each attribute adds a blank,
    // two quotes and a closing ">".
    if (out.getSize() > 6 * static_cast<int>(text.size()) + 8) __builtin_trap();
}

void extractParams(const std::string& text, bool useBackslash) {
    brelkin::ParamString params;
    params.parse(text.c_str(), useBackslash);
    // A placeholder "<[[n]]>" replaces at least the two quotes of its string.
    size_t bound = text.size() * 8 + 8;
    if (std::strlen(params.getString()) > bound) __builtin_trap();
    for (int i = 0; i < params.getNumParams(); ++i) {
        if (std::strlen(params.getParam(i)) > text.size()) __builtin_trap();
    }
}

void decodeUrl(const std::string& text) {
    StringBuffer buffer(text.c_str());
    int before = buffer.getSize();
    brelkin::urlDecode(buffer);
    if (buffer.getSize() > before) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 16)) return 0;
    // The scanners take zero-terminated text: cut at the first zero byte.
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text.resize(std::strlen(text.c_str()));
    switch (data[0] % 5) {
    case 0: sniffCharset(text); break;
    case 1: cleanTag(text); break;
    case 2: extractParams(text, false); break;
    case 3: extractParams(text, true); break;
    case 4: decodeUrl(text); break;
    }
    return 0;
}
