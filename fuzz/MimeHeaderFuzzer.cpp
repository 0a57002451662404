// MimeHeaderFuzzer.cpp - untrusted header text parsed, assembled and parsed again
//
// The input is a header (or a whole message). It is parsed, assembled in the
// code page it was read in and in UTF-8, and the first assembly is parsed
// again. Beyond ending without a fault, the oracle is the fixpoint of one
// round, as far as the field rules let it hold:
// - the second parse has the fields of the first, by name and in order,
//   where every name is plain ASCII and every value is UTF-8 text without
//   line ends, control bytes or encoded-word openers (which a second read
//   would split or decode again);
// - a value without ";", "=", quotes or 8-bit text reads back the same but
//   for white space, which folds may add;
// - neither holds for a header whose code page writes ASCII as other bytes
//   (UTF-32, EBCDIC pages named by an encoded word).
#include <cstdint>
#include <cstring>
#include <string>

#include "mime/MimeField.h"
#include "mime/MimeHeader.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogNull.h"

using brelkin::MimeHeader;
using brelkin::StringBuffer;

namespace {

std::string valueOf(const MimeHeader& h, int i) {
    StringBuffer v;
    h.getFieldAt(i)->getValue(v);
    return std::string(v.getString(), v.getSize());
}

std::string assemble(MimeHeader& h, const char* charsetName) {
    brelkin::LogNull log;
    brelkin::_bkCharset charset;
    if (charsetName) charset.setByName(charsetName);
    StringBuffer out;
    h.AssembleMimeHeader(out, nullptr, charset, false, log, false);
    return std::string(out.getString(), out.getSize());
}

bool isPlainName(const char* name) {
    if (!*name) return false;
    for (const char* p = name; *p; ++p) {
        const unsigned char c = *p;
        if (c <= 0x20 || c >= 0x7F) return false;
    }
    return true;
}

// Well-formed UTF-8 of the basic plane without controls (tab aside).
bool isCleanText(const std::string& s) {
    if (s.find("=?") != std::string::npos) return false;
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = s[i];
        if (c < 0x80) {
            if ((c < 0x20 && c != '\t') || c == 0x7F) return false;
            ++i;
            continue;
        }
        const size_t n = (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : 0;
        if (n == 0 || i + n > s.size()) return false;
        uint32_t cp = n == 2 ? (c & 0x1F) : (c & 0x0F);
        for (size_t k = 1; k < n; ++k) {
            const unsigned char t = s[i + k];
            if ((t >> 6) != 2) return false;
            cp = (cp << 6) | (t & 0x3F);
        }
        if (cp < 0x80 || (n == 3 && cp < 0x800) || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        if (cp >= 0x80 && cp < 0xA0) return false;
        i += n;
    }
    return true;
}

bool isSimpleValue(const std::string& s) {
    for (char c : s) {
        const unsigned char u = c;
        if (u >= 0x80 || c == ';' || c == '=' || c == '"' || c == '\'') return false;
    }
    return true;
}

std::string withoutWhiteSpace(const std::string& s) {
    std::string out;
    for (char c : s)
        if (c != ' ' && c != '\t') out += c;
    return out;
}

// A header is written back in the code page it was read in, which an encoded
// word may name: in UTF-32 or an EBCDIC page even the ASCII text comes out as
// other bytes (zero bytes, for UTF-32), and there is no round to compare.
bool writesAsciiAsItself(int codePage) {
    if (codePage == 0) return true;
    char ascii[95];
    for (int i = 0; i < 95; ++i) ascii[i] = static_cast<char>(' ' + i);
    brelkin::DataBuffer converted;
    brelkin::EncodingConvert().convert(65001, codePage, ascii, sizeof ascii, converted);
    return converted.getSize() == sizeof ascii &&
           std::memcmp(converted.getData(), ascii, sizeof ascii) == 0;
}

// In an ISO-2022 header the writer splits parameters at the bytes ";" and "="
// even inside a double-byte run, and the blank it adds there shifts the pairs
// the reader takes, so that a line end can vanish into a pair: no round either.
bool isIso2022(int codePage) { return codePage >= 50220 && codePage <= 50230; }

bool isCleanHeader(const MimeHeader& h) {
    for (int i = 0; i < h.getNumFields(); ++i) {
        if (!isPlainName(h.getFieldAt(i)->getName()) || !isCleanText(valueOf(h, i))) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 16)) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    brelkin::LogNull log;

    MimeHeader first;
    first.ParseMimeHeader(text.c_str(), log, true);
    assemble(first, "utf-8");
    const std::string once = assemble(first, nullptr);

    MimeHeader second;
    second.ParseMimeHeader((once + "\r\n\r\n").c_str(), log, false);
    assemble(second, nullptr);

    if (!isCleanHeader(first)) return 0;
    if (!writesAsciiAsItself(first.getCodePage())) return 0;
    if (isIso2022(first.getCodePage())) return 0;
    if (second.getNumFields() != first.getNumFields()) __builtin_trap();
    for (int i = 0; i < first.getNumFields(); ++i) {
        if (std::strcmp(first.getFieldAt(i)->getName(), second.getFieldAt(i)->getName()) != 0)
            __builtin_trap();
        const std::string a = valueOf(first, i);
        if (isSimpleValue(a) && withoutWhiteSpace(a) != withoutWhiteSpace(valueOf(second, i)))
            __builtin_trap();
    }
    return 0;
}
