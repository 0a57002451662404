// EncodedWordFuzzer.cpp - untrusted header and HTML text through the engine's scanners
//
// The first byte picks the scanner, the rest is its input: the HTML/XML
// charset sniffer, the tag clean-up, quoted-string extraction (with and
// without backslash escapes), URL decoding, the three encoded-word decoders,
// encoded-word round trips, and a header field read and written under each
// kind of charset. Each must end and stay inside its input's bounds; quoted
// strings put back into their placeholders, percent-escaped bytes decoded,
// and text written as Q or B words and read back must give the text back
// exactly.
#include <cstdint>
#include <cstring>
#include <string>

#include "mime/ContentCoding.h"
#include "mime/MimeField.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogNull.h"
#include "textlib/log/Logger.h"
#include "textlib/scan/HtmlScan.h"
#include "textlib/scan/ParamString.h"

using brelkin::ContentCoding;
using brelkin::DataBuffer;
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

// A decoded word never grows by more than a factor of 7: one Q byte may turn
// into a 3-byte UTF-8 character, and a "," into "_COMMA_".
void decodeWords(const std::string& text) {
    StringBuffer buffer;
    buffer.appendN(text.data(), static_cast<int>(text.size()));
    ContentCoding::decodeEncodedWords(buffer);
    if (buffer.getSize() > 3 * static_cast<int>(text.size())) __builtin_trap();

    StringBuffer marked;
    marked.appendN(text.data(), static_cast<int>(text.size()));
    bool sawComma = false;
    ContentCoding::decodeEncodedWordsForAddresses(marked, sawComma);
    if (marked.getSize() > 7 * static_cast<int>(text.size())) __builtin_trap();
    if (sawComma && !marked.contains("_COMMA_")) __builtin_trap();

    DataBuffer raw;
    ContentCoding::decodeEncodedWordsRaw(StringBuffer(text.c_str()), raw);
    if (raw.getSize() > text.size()) __builtin_trap();
}

// UTF-8 that survives the trip through UTF-16 unchanged: well formed, no
// surrogates, nothing above U+FFFF (the converter drops those on purpose).
bool isBmpUtf8(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        unsigned char c = s[i];
        size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : 0;
        if (n == 0 || i + n > s.size()) return false;
        uint32_t cp = n == 1 ? c : n == 2 ? (c & 0x1F) : (c & 0x0F);
        for (size_t k = 1; k < n; ++k) {
            unsigned char t = s[i + k];
            if ((t >> 6) != 2) return false;
            cp = (cp << 6) | (t & 0x3F);
        }
        if ((n == 2 && cp < 0x80) || (n == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))))
            return false;
        i += n;
    }
    return true;
}

// The words joined without their separators, decoded. The separators go
// first: text that holds CR LF TAB itself must keep it.
std::string decodeJoined(const StringBuffer& encoded) {
    StringBuffer joined;
    joined.appendN(encoded.getString(), encoded.getSize());
    joined.replaceAll("\r\n\t", "");
    ContentCoding::decodeEncodedWords(joined);
    return std::string(joined.getString(), joined.getSize());
}

// Text written as words and read back is the text again, whatever the split.
void roundTripWords(const std::string& text, bool commas) {
    if (!isBmpUtf8(text)) return;
    ContentCoding coder;
    coder.setEncodeCommas(commas);
    StringBuffer q;
    coder.encodeQWords(text.data(), static_cast<uint32_t>(text.size()), 65001, "utf-8", q);
    if (decodeJoined(q) != text) __builtin_trap();

    // B leaves 7-bit text as it is; the decoder would then read any words in it.
    bool eightBit = false;
    for (char c : text) eightBit |= static_cast<unsigned char>(c) >= 0x80;
    if (!eightBit) return;
    StringBuffer b;
    coder.encodeBWords(text.data(), static_cast<uint32_t>(text.size()), 65001, "utf-8", b);
    if (decodeJoined(b) != text) __builtin_trap();
}

// Any bytes are Latin-1 text: Q words of them decode to their UTF-8 form.
void roundTripLatin1(const std::string& text) {
    StringBuffer q;
    ContentCoding().encodeQWords(text.data(), static_cast<uint32_t>(text.size()), 28591,
                                 "iso-8859-1", q);
    DataBuffer utf8;
    brelkin::EncodingConvert().convert(28591, 65001, text.data(),
                                       static_cast<uint32_t>(text.size()), utf8);
    std::string want(reinterpret_cast<const char*>(utf8.getData()), utf8.getSize());
    if (decodeJoined(q) != want) __builtin_trap();
}

// A header field read in and written out under each kind of charset road:
// it must end, and the written field begins with its cleaned name.
void writeField(const std::string& text) {
    static const char* const kCharsets[] = {"us-ascii", "utf-8",     "iso-8859-1",
                                            "shift_jis", "iso-2022-jp", "big5", ""};
    brelkin::LogNull log;
    brelkin::MimeField field;
    if (!field.parse(StringBuffer(text.c_str()), log, false)) return;
    for (const char* name : kCharsets) {
        brelkin::_bkCharset charset;
        charset.setByName(name);
        StringBuffer out;
        field.assemble(out, charset, log, false);
        if (!out.beginsWith(field.getName())) __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 16)) return 0;
    // The scanners take zero-terminated text: cut at the first zero byte.
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text.resize(std::strlen(text.c_str()));
    switch (data[0] % 10) {
    case 0: sniffCharset(text); break;
    case 1: cleanTag(text); break;
    case 2: extractParams(text, false); break;
    case 3: extractParams(text, true); break;
    case 4: decodeUrl(text); break;
    case 5: decodeWords(text); break;
    case 6: roundTripWords(text, false); break;
    case 7: roundTripWords(text, true); break;
    case 8: roundTripLatin1(text); break;
    case 9: writeField(text); break;
    }
    return 0;
}
