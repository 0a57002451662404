// EncodedWordFuzzer.cpp - untrusted header and HTML text through the engine's scanners
//
// The first byte picks the scanner, the rest is its input: the HTML/XML
// charset sniffer, the tag clean-up, quoted-string extraction (with and
// without backslash escapes) and URL decoding. Each must end and stay inside
// its input's bounds; quoted strings put back into their placeholders and
// percent-escaped bytes decoded must give the text back exactly.
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

// Puts each parameter back in quotes where its placeholder stands.
std::string rebuild(const brelkin::ParamString& params) {
    std::string skeleton = params.getString();
    for (int i = 0; i < params.getNumParams(); ++i) {
        std::string placeholder = "<[[" + std::to_string(i) + "]]>";
        size_t at = skeleton.find(placeholder);
        if (at == std::string::npos) __builtin_trap();
        skeleton.replace(at, placeholder.size(), "\"" + std::string(params.getParam(i)) + "\"");
    }
    return skeleton;
}

void extractParams(const std::string& text, bool useBackslash) {
    brelkin::ParamString params;
    params.parse(text.c_str(), useBackslash);
    for (int i = 0; i < params.getNumParams(); ++i) {
        if (std::strlen(params.getParam(i)) > text.size()) __builtin_trap();
    }
    // Without line ends, escapes, placeholder look-alikes and unclosed
    // strings, nothing is lost: the text comes back whole.
    bool plain = text.find_first_of("\r\n\\") == std::string::npos &&
                 text.find("<[[") == std::string::npos;
    size_t quotes = 0;
    for (char c : text) quotes += c == '"';
    if (plain && quotes % 2 == 0 && rebuild(params) != text) __builtin_trap();
}

void decodeUrl(const std::string& text) {
    StringBuffer buffer(text.c_str());
    int before = buffer.getSize();
    brelkin::urlDecode(buffer);
    if (buffer.getSize() > before) __builtin_trap();

    // Every byte escaped (blanks as "+", hex digits in either case) must come
    // back exactly.
    static const char kHex[] = "0123456789abcdef0123456789ABCDEF";
    std::string encoded;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == ' ') {
            encoded += '+';
            continue;
        }
        int upper = (i & 1) ? 16 : 0;
        encoded += '%';
        encoded += kHex[upper + (c >> 4)];
        encoded += kHex[upper + (c & 15)];
    }
    StringBuffer roundTrip(encoded.c_str());
    brelkin::urlDecode(roundTrip);
    if (std::string(roundTrip.getString(), roundTrip.getSize()) != text) __builtin_trap();
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
