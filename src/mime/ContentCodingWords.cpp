// ContentCodingWords.cpp - encoded words of header fields, both ways
//
// See ContentCoding.h
#include <cctype>
#include <cstring>
#include <string>

#include "mime/ContentCoding.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"

namespace brelkin {

namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kHexUpper[] = "0123456789ABCDEF";
constexpr char kWordSeparator[] = "\r\n\t";
constexpr int kCodePageUtf16 = 1200;
constexpr int kCodePageUtf8 = 65001;
// Up to this many input bytes make one word without any splitting.
constexpr uint32_t kSingleWordLimit = 61;
// A piece of the text is at least this many UTF-16 units (30 characters).
constexpr uint32_t kPieceUnits = 30;

// Charsets whose words are written in B: texts in them are mostly 8-bit, or
// their Q form would be unreadable anyway.
const char* const kBCharsets[] = {
    "shift_jis",    "shift-jis",  "Windows-31J",  "iso-2022-jp", "euc-jp",      "euc-kr",
    "iso-2022-kr",  "gb2312",     "hz-gb-2312",   "euc-cn",      "cp-936",      "euc-tw",
    "big5",         "cp-950",     "cp-932",       "tis-620",     "windows-874", "iso-8859-9",
    "windows-1254", "iso-8859-6", "windows-1256", "cp-1256"};

// ASCII only: charset names are ASCII, and the C library's locale must not
// change which words are written in B.
bool namesEqual(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        if (std::tolower(static_cast<uint8_t>(*a)) != std::tolower(static_cast<uint8_t>(*b)))
            return false;
    }
    return *a == *b;
}

bool isBlankOrTab(uint8_t c) {
    return c == ' ' || c == '\t';
}

bool isQLiteral(uint8_t c) {
    return (c >= 33 && c <= 60) || c == 62 || (c >= 64 && c <= 94) || (c >= 96 && c <= 126);
}

bool isStatefulJapaneseOrKorean(int codePage) {
    return codePage >= 50220 && codePage <= 50225;
}

// Whether the B encoder must encode at all. Under the ISO-2022 pages a text
// of 7-bit bytes still carries escape sequences ("ESC $ B", "ESC ( B") that
// may not stand raw in a header.
bool needsEncoding(const uint8_t* in, uint32_t count, int codePage) {
    bool stateful = isStatefulJapaneseOrKorean(codePage);
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t c = in[i];
        if (c >= 0x80) return true;
        if (stateful && (c == 0x1B || c == '[' || c == '$')) return true;
    }
    return false;
}

bool allBlanksOrTabs(const uint8_t* in, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (!isBlankOrTab(in[i])) return false;
    }
    return true;
}

void appendBase64(const uint8_t* in, uint32_t count, StringBuffer& out) {
    char group[4];
    uint32_t i = 0;
    for (; i + 3 <= count; i += 3) {
        uint32_t v = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
        group[0] = kBase64Alphabet[v >> 18];
        group[1] = kBase64Alphabet[(v >> 12) & 63];
        group[2] = kBase64Alphabet[(v >> 6) & 63];
        group[3] = kBase64Alphabet[v & 63];
        out.appendN(group, 4);
    }
    if (i == count) return;
    uint32_t v = in[i] << 16;
    if (i + 1 < count) v |= in[i + 1] << 8;
    group[0] = kBase64Alphabet[v >> 18];
    group[1] = kBase64Alphabet[(v >> 12) & 63];
    group[2] = i + 1 < count ? kBase64Alphabet[(v >> 6) & 63] : '=';
    group[3] = '=';
    out.appendN(group, 4);
}

int hexDigit(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Position of `find` (two bytes) in [from, end) of `text`, or -1.
int findPair(const char* text, int from, int end, char first, char second) {
    for (int i = from; i + 1 < end; ++i) {
        if (text[i] == first && text[i + 1] == second) return i;
    }
    return -1;
}

bool hasWordMarkerNear(const uint8_t* in, uint32_t count) {
    uint32_t end = count < 100 ? count : 100;
    for (uint32_t i = 0; i + 3 <= end; ++i) {
        if (in[i] != '?' || in[i + 2] != '?') continue;
        uint8_t kind = static_cast<uint8_t>(std::toupper(in[i + 1]));
        if (kind == 'Q' || kind == 'B') return true;
    }
    return false;
}

bool isBCharset(const char* name) {
    for (const char* candidate : kBCharsets) {
        if (namesEqual(name, candidate)) return true;
    }
    return false;
}

// What the walk over a text hands to its caller for each word and each run
// of plain text between words.
class WordSink {
  public:
    virtual ~WordSink() = default;
    virtual void plain(const char* bytes, int count) = 0;
    virtual void word(const char* charset, bool isB, const char* text, int count) = 0;
};

// Walks `text`, decoding word by word. Returns when the text is used up or
// at a word that is cut off; what stood from its "=?" on is then left out,
// since a half-read word would only show the reader rubbish.
void walkEncodedWords(const char* text, int length, WordSink& sink) {
    int at = 0;
    std::string charset;
    while (at < length) {
        int open = findPair(text, at, length, '=', '?');
        if (open < 0) {
            sink.plain(text + at, length - at);
            return;
        }
        sink.plain(text + at, open - at);
        int nameStart = open + 2;
        const void* question = std::memchr(text + nameStart, '?', length - nameStart);
        if (!question) return;
        int nameEnd = static_cast<int>(static_cast<const char*>(question) - text);
        int kindAt = nameEnd + 1;
        if (kindAt >= length) return;
        bool isB = text[kindAt] == 'B' || text[kindAt] == 'b';
        int textStart = kindAt + 2;
        if (kindAt + 1 >= length || text[kindAt + 1] != '?' || textStart >= length) return;
        int close = findPair(text, textStart, length, '?', '=');
        if (close < 0) return;
        charset.assign(text + nameStart, nameEnd - nameStart);
        sink.word(charset.c_str(), isB, text + textStart, close - textStart);
        at = close + 2;
    }
}

void decodeWordText(bool isB, const char* text, int count, DataBuffer& out) {
    if (isB) {
        ContentCoding().decodeBase64(text, static_cast<uint32_t>(count), out);
    } else {
        ContentCoding::decodeQText(text, count, out);
    }
}

// Decodes into UTF-8; with `commas`, a "," a word gives becomes "_COMMA_"
// so that an address list can still be cut at its own commas.
class Utf8Sink : public WordSink {
  public:
    Utf8Sink(StringBuffer& result, bool markCommas) : m_result(result), m_markCommas(markCommas) {}

    void plain(const char* bytes, int count) override { m_result.appendN(bytes, count); }

    void word(const char* charset, bool isB, const char* text, int count) override {
        if (count == 0) return;
        DataBuffer decoded;
        decodeWordText(isB, text, count, decoded);
        if (namesEqual(charset, "8bit")) charset = "utf-8";
        StringBuffer piece;
        if (!namesEqual(charset, "utf-8") && isKnownCharset(charset)) {
            DataBuffer utf8;
            EncodingConvert().convertFromName(charset, kCodePageUtf8, decoded.getData(),
                                              decoded.getSize(), utf8);
            piece.appendData(utf8);
        } else {
            piece.appendData(decoded);
        }
        if (m_markCommas && piece.replaceAll(",", "_COMMA_") > 0) m_sawComma = true;
        m_result.appendBuffer(piece);
    }

    bool sawComma() const { return m_sawComma; }

  private:
    StringBuffer& m_result;
    bool m_markCommas;
    bool m_sawComma = false;
};

class RawSink : public WordSink {
  public:
    explicit RawSink(DataBuffer& out) : m_out(out) {}
    void plain(const char* bytes, int count) override {
        m_out.append(bytes, static_cast<uint32_t>(count));
    }
    void word(const char*, bool isB, const char* text, int count) override {
        if (count > 0) decodeWordText(isB, text, count, m_out);
    }

  private:
    DataBuffer& m_out;
};

void decodeToUtf8(StringBuffer& text, bool markCommas, bool& sawComma) {
    StringBuffer result;
    Utf8Sink sink(result, markCommas);
    walkEncodedWords(text.getString(), text.getSize(), sink);
    text.setFrom(result);
    text.setMode(2);
    sawComma = sink.sawComma();
}

}  // namespace

void ContentCoding::encodeQText(const void* bytes, uint32_t count, StringBuffer& out) const {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (!in) return;
    char* o = out.reserveTail(static_cast<int>(count) * 3);
    if (!o) return;
    char* start = o;
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t c = in[i];
        if (isQLiteral(c) && !(c == ',' && m_encodeCommas)) {
            *o++ = static_cast<char>(c);
        } else if (c == ' ') {
            *o++ = '_';
        } else {
            *o++ = '=';
            *o++ = kHexUpper[c >> 4];
            *o++ = kHexUpper[c & 15];
        }
    }
    out.commitTail(static_cast<int>(o - start));
}

void ContentCoding::decodeQText(const char* text, int count, DataBuffer& out) {
    if (!text) return;
    if (count < 1) count = static_cast<int>(std::strlen(text));
    const uint8_t* in = reinterpret_cast<const uint8_t*>(text);
    for (int i = 0; i < count; ++i) {
        uint8_t c = in[i];
        if (c == '=') {
            int high = i + 2 < count ? hexDigit(in[i + 1]) : -1;
            int low = i + 2 < count ? hexDigit(in[i + 2]) : -1;
            if (high >= 0 && low >= 0) {
                out.appendByte(static_cast<uint8_t>(high * 16 + low));
                i += 2;
            } else {
                out.appendByte(c);
            }
        } else if (c == '_' || c == ' ') {
            out.appendByte(' ');
        } else if (isQLiteral(c) || c >= 160) {
            out.appendByte(c);
        }
        // Control bytes, "?" and 127-159 cannot stand in a word: dropped.
    }
}

namespace {

// One word around already encoded text.
void appendWord(const char* charset, bool isB, const StringBuffer& encoded, StringBuffer& out) {
    out.append("=?");
    out.append(charset);
    out.append(isB ? "?B?" : "?Q?");
    out.appendBuffer(encoded);
    out.append("?=");
}

// The shared frame of both encoders: long texts are split, through UTF-16,
// into pieces of whole characters, each prolonged to the next blank so that
// no word ends inside a word of the text. Returns false only when the text
// could not be split at all.
bool encodeWords(const ContentCoding& coder, bool isB, const uint8_t* in, uint32_t count,
                 int codePage, const char* charset, StringBuffer& out) {
    auto oneWord = [&](const uint8_t* bytes, uint32_t n) {
        StringBuffer encoded;
        if (isB) {
            appendBase64(bytes, n, encoded);
        } else {
            coder.encodeQText(bytes, n, encoded);
        }
        appendWord(charset, isB, encoded, out);
    };
    if (allBlanksOrTabs(in, count)) {
        out.appendN(reinterpret_cast<const char*>(in), static_cast<int>(count));
        return true;
    }
    if (count < kSingleWordLimit) {
        oneWord(in, count);
        return true;
    }
    EncodingConvert convert;
    DataBuffer wide;
    convert.convert(codePage, kCodePageUtf16, in, count, wide);
    uint32_t units = wide.getSize() / 2;
    if (units == 0) return false;
    const uint8_t* w = wide.getData();
    auto unitAt = [w](uint32_t i) { return static_cast<uint16_t>(w[2 * i] | (w[2 * i + 1] << 8)); };
    bool first = true;
    for (uint32_t start = 0; start < units;) {
        uint32_t end = start + kPieceUnits < units ? start + kPieceUnits : units;
        while (end < units && unitAt(end) != ' ') ++end;
        DataBuffer piece;
        convert.convert(kCodePageUtf16, codePage, w + 2 * start, 2 * (end - start), piece);
        if (!first) out.append(kWordSeparator);
        first = false;
        oneWord(piece.getData(), piece.getSize());
        start = end;
    }
    return true;
}

}  // namespace

bool ContentCoding::encodeQWords(const void* bytes, uint32_t count, int codePage,
                                 const char* charsetName, StringBuffer& out) const {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (!in || count == 0) return true;
    if (codePage == 0) codePage = kCodePageUtf8;
    const char* charset = charsetName && *charsetName ? charsetName : "utf-8";
    return encodeWords(*this, false, in, count, codePage, charset, out);
}

bool ContentCoding::encodeBWords(const void* bytes, uint32_t count, int codePage,
                                 const char* charsetName, StringBuffer& out) const {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (!in || count == 0 || !charsetName) return true;
    if (codePage == 0) codePage = kCodePageUtf8;
    if (!needsEncoding(in, count, codePage)) {
        out.appendN(reinterpret_cast<const char*>(in), static_cast<int>(count));
        return true;
    }
    return encodeWords(*this, true, in, count, codePage, charsetName, out);
}

bool ContentCoding::encodeWordByCharset(const void* bytes, uint32_t count, const char* charsetName,
                                        StringBuffer& out) const {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (!in || count == 0) return true;
    if (hasWordMarkerNear(in, count)) {
        out.appendN(reinterpret_cast<const char*>(in), static_cast<int>(count));
        return true;
    }
    const char* charset = charsetName && *charsetName ? charsetName : "utf-8";
    bool isB = charsetName && isBCharset(charsetName);
    StringBuffer encoded;
    if (isB) {
        appendBase64(in, count, encoded);
    } else {
        encodeQText(in, count, encoded);
    }
    appendWord(charset, isB, encoded, out);
    return true;
}

void ContentCoding::decodeEncodedWords(StringBuffer& text) {
    bool unused = false;
    decodeToUtf8(text, false, unused);
}

void ContentCoding::decodeEncodedWordsForAddresses(StringBuffer& text, bool& sawComma) {
    decodeToUtf8(text, true, sawComma);
}

void ContentCoding::decodeEncodedWordsRaw(const StringBuffer& text, DataBuffer& out) {
    RawSink sink(out);
    walkEncodedWords(text.getString(), text.getSize(), sink);
}

}  // namespace brelkin
