// ContentCoding.cpp - base64 and quoted-printable for bodies, and header encoded words
//
// See ContentCoding.h
#include "mime/ContentCoding.h"

#include <climits>
#include <cstring>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

namespace {

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kHexUpper[] = "0123456789ABCDEF";

// Base64 decoding table: 0-63 a digit, kSkip a byte to pass over, kStop the
// end of the data ("=" and the zero byte). Both markers have a bit above the
// six digit bits, so four lookups OR'ed together tell whether all were digits.
constexpr uint8_t kSkip = 0x40;
constexpr uint8_t kStop = 0x80;

// The tables are built at compile time, so that no static initializer of
// another file can find them empty.
struct Base64DecodeTable {
    uint8_t value[256] = {};
    constexpr Base64DecodeTable() {
        for (int c = 0; c < 256; ++c) value[c] = kSkip;
        for (int i = 0; i < 64; ++i) value[static_cast<uint8_t>(kBase64Alphabet[i])] = static_cast<uint8_t>(i);
        value[static_cast<uint8_t>('=')] = kStop;
        value[0] = kStop;
    }
};
constexpr Base64DecodeTable g_base64;

// Hex digit values of either case, -1 for anything else; callers mask to 7 bits.
struct HexTable {
    int8_t value[128] = {};
    constexpr HexTable() {
        for (int c = 0; c < 128; ++c) value[c] = -1;
        for (int i = 0; i < 10; ++i) value['0' + i] = static_cast<int8_t>(i);
        for (int i = 0; i < 6; ++i) {
            value['A' + i] = static_cast<int8_t>(10 + i);
            value['a' + i] = static_cast<int8_t>(10 + i);
        }
    }
};
constexpr HexTable g_hex;

// How quoted-printable writes a byte when nothing about its place matters:
// as it is, as a blank (literal unless it ends a line), or escaped. CR has a
// kind of its own since CR LF passes as it is. `text` holds the output, padded
// to four bytes so that it is copied in one move whatever its length.
enum QpOut : uint8_t { kQpLiteral, kQpOutBlank, kQpEscaped, kQpCr };
struct QpOutEntry {
    char text[4] = {};
    uint8_t length = 0;
    QpOut kind = kQpLiteral;
};
struct QpOutTable {
    QpOutEntry entry[256] = {};
    constexpr QpOutTable() {
        for (int c = 0; c < 256; ++c) {
            QpOutEntry& e = entry[c];
            e.kind = ((c >= 33 && c <= 60) || (c >= 62 && c <= 126)) ? kQpLiteral
                   : (c == ' ' || c == '\t') ? kQpOutBlank
                   : c == '\r' ? kQpCr
                   : kQpEscaped;
            bool escaped = e.kind == kQpEscaped || e.kind == kQpCr;
            e.text[0] = escaped ? '=' : static_cast<char>(c);
            e.text[1] = escaped ? kHexUpper[c >> 4] : 0;
            e.text[2] = escaped ? kHexUpper[c & 15] : 0;
            e.text[3] = 0;
            e.length = escaped ? 3 : 1;
        }
    }
};
constexpr QpOutTable g_qp;

int hexValue(const uint8_t* in, uint32_t at, uint32_t end) {
    return at < end ? g_hex.value[in[at] & 0x7F] : -1;
}

bool isCrlfAt(const uint8_t* in, uint32_t at, uint32_t count) {
    return at + 1 < count && in[at] == '\r' && in[at + 1] == '\n';
}

// Two base64 characters for each 12-bit value: a group of three bytes is two
// lookups instead of four.
struct Base64PairTable {
    char pair[4096][2] = {};
    constexpr Base64PairTable() {
        for (int v = 0; v < 4096; ++v) {
            pair[v][0] = kBase64Alphabet[v >> 6];
            pair[v][1] = kBase64Alphabet[v & 0x3F];
        }
    }
};
constexpr Base64PairTable g_base64Pairs;

char* writeEncodedGroup(char* o, const uint8_t* in) {
    uint32_t v = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
    std::memcpy(o, g_base64Pairs.pair[v >> 12], 2);
    std::memcpy(o + 2, g_base64Pairs.pair[v & 0xFFF], 2);
    return o + 4;
}

char* writeQpEscape(char* o, uint8_t b) {
    o[0] = '=';
    o[1] = kHexUpper[b >> 4];
    o[2] = kHexUpper[b & 0x0F];
    return o + 3;
}

char* writeSoftBreak(char* o) {
    o[0] = '=';
    o[1] = '\r';
    o[2] = '\n';
    return o + 3;
}


// Quoted-printable input bytes by their low 7 bits: 0xBD is an "=" and 0x8A a
// line feed as much as 0x3D and 0x0A are.
enum QpKind : uint8_t { kQpText, kQpBlank, kQpEquals, kQpLineFeed };
struct QpByteTable {
    QpKind kind[256] = {};
    constexpr QpByteTable() {
        for (int c = 0; c < 256; ++c) {
            int low = c & 0x7F;
            kind[c] = low == '=' ? kQpEquals
                    : low == '\n' ? kQpLineFeed
                    : (low == '\r' || low == ' ' || low == '\t') ? kQpBlank
                    : kQpText;
        }
    }
};
constexpr QpByteTable g_qpByte;

// Whether only trailing white space stands between `at` and the line's end.
bool onlyBlanksToLineEnd(const uint8_t* in, uint32_t at, uint32_t count) {
    for (; at < count; ++at) {
        QpKind kind = g_qpByte.kind[in[at]];
        if (kind == kQpLineFeed) return true;
        if (kind != kQpBlank) return false;
    }
    return true;
}

// One digit of the sign-extension repair: not a hex digit counts as 0, and
// the line's end is never consumed.
uint32_t repairDigit(const uint8_t* in, uint32_t& at, uint32_t count) {
    if (at >= count || g_qpByte.kind[in[at]] == kQpLineFeed) return 0;
    int value = g_hex.value[in[at++] & 0x7F];
    return value < 0 ? 0 : static_cast<uint32_t>(value);
}

// Decodes the "=" at `at`: an escape, a soft break or the "=" itself. Returns
// the position after what it consumed; sets `softBreak` for a soft break.
uint32_t decodeQpEquals(const uint8_t* in, uint32_t at, uint32_t count, uint8_t*& o,
                        bool& softBreak) {
    // The common case first: two hex digits that make anything but 0xFF.
    if (at + 2 < count) {
        int high = g_hex.value[in[at + 1] & 0x7F];
        int low = g_hex.value[in[at + 2] & 0x7F];
        if ((high | low) >= 0 && (high & low) != 15) {
            *o++ = static_cast<uint8_t>(high * 16 + low);
            return at + 3;
        }
    }
    if (onlyBlanksToLineEnd(in, at + 1, count)) {
        softBreak = true;
        return at + 1;
    }
    int high = hexValue(in, at + 1, count);
    int low = hexValue(in, at + 2, count);
    if (high < 0 || low < 0) {
        *o++ = in[at];  // the "=" as it stood; its would-be digits are read as text
        return at + 1;
    }
    uint32_t value = static_cast<uint32_t>(high * 16 + low);
    // A byte once written through a signed char: "=FFFFFFE4" is 0xE4.
    bool signExtended = value == 0xFF && at + 6 < count && (in[at + 3] & 0x7F) == 'F' &&
                        (in[at + 4] & 0x7F) == 'F' && (in[at + 5] & 0x7F) == 'F' &&
                        (in[at + 6] & 0x7F) == 'F';
    if (!signExtended) {
        *o++ = static_cast<uint8_t>(value);
        return at + 3;
    }
    uint32_t next = at + 7;
    uint32_t repairedHigh = repairDigit(in, next, count);
    uint32_t repairedLow = next == at + 8 ? repairDigit(in, next, count) : 0;
    *o++ = static_cast<uint8_t>(repairedHigh * 16 + repairedLow);
    return next;
}

// Decodes one line from `at` up to and including its LF; returns where the
// next line starts. Trailing white space of the line is written, then taken
// back: `keep` marks the output behind the last significant byte.
uint32_t decodeQpLine(const uint8_t* in, uint32_t at, uint32_t count, uint8_t*& o) {
    uint8_t* keep = o;
    bool softBreak = false;
    while (at < count) {
        uint8_t b = in[at];
        QpKind kind = g_qpByte.kind[b];
        if (kind <= kQpBlank) {
            // One path for text and blanks: blanks only leave `keep` behind.
            *o++ = b;
            ++at;
            keep = kind == kQpText ? o : keep;
        } else if (kind == kQpEquals) {
            at = decodeQpEquals(in, at, count, o, softBreak);
            keep = o;
        } else {
            o = keep;
            if (!softBreak) {
                *o++ = '\r';
                *o++ = '\n';
            }
            return at + 1;
        }
    }
    o = keep;
    return count;
}

// Quoted-printable output of one input block: the column of the current line
// decides escapes at a line start and the soft breaks that keep lines short.
struct QpWriter {
    const uint8_t* in;
    uint32_t count;
    int limit;  // the line length less the "=" of a soft break
    char* o;
    int col = 0;

    // Most bytes stand inside a line, far from its limit: no line-start rule
    // and no soft break. One copy serves text and escapes alike, to spare the
    // branch that mixed text would mispredict. False when the byte's place
    // matters.
    bool writeInline(uint32_t i) {
        if (col == 0 || col > limit - 4) return false;
        const QpOutEntry& e = g_qp.entry[in[i]];
        uint32_t next = i + 1 < count ? i + 1 : i;
        bool blankAtLineEnd = (e.kind == kQpOutBlank) & ((i + 1 == count) | (in[next] == '\r'));
        if ((e.kind == kQpCr) | blankAtLineEnd) return false;
        std::memcpy(o, e.text, 4);
        o += e.length;
        col += e.length;
        return true;
    }

    // One byte, or a CR LF pair, by the full rules; returns the next position.
    uint32_t writePlaced(uint32_t i) {
        uint8_t b = in[i];
        if (col == 0 && startsLineEscape(i)) {
            escape(b);
        } else if (g_qp.entry[b].kind == kQpLiteral) {
            put(b);
        } else if (isCrlfAt(in, i, count)) {
            *o++ = '\r';
            *o++ = '\n';
            col = 0;
            return i + 2;
        } else if ((b == ' ' || b == '\t') && i + 1 < count && !isCrlfAt(in, i + 1, count)) {
            put(b);
        } else {
            if (col >= limit - 2) softBreak();
            escape(b);
        }
        // No soft break behind the last byte: the text adds no line end of its own.
        if (col >= limit && i + 1 < count && !isCrlfAt(in, i + 1, count)) softBreak();
        return i + 1;
    }

    // "." and "From " at a line start would mean something to a mail transport.
    bool startsLineEscape(uint32_t i) const {
        return in[i] == '.' ||
               (in[i] == 'F' && count - i >= 5 && std::memcmp(in + i + 1, "rom ", 4) == 0);
    }
    void put(uint8_t b) {
        *o++ = static_cast<char>(b);
        ++col;
    }
    void escape(uint8_t b) {
        o = writeQpEscape(o, b);
        col += 3;
    }
    void softBreak() {
        o = writeSoftBreak(o);
        col = 0;
    }
};

// Four base64 digits to three bytes; false, writing nothing, when any of the
// four is not a digit.
bool decodeWholeGroup(const uint8_t* in, uint8_t*& o) {
    const uint8_t* table = g_base64.value;
    uint8_t a = table[in[0]], b = table[in[1]], c = table[in[2]], d = table[in[3]];
    if ((a | b | c | d) >= 64) return false;
    uint32_t v = (uint32_t{a} << 18) | (uint32_t{b} << 12) | (uint32_t{c} << 6) | d;
    o[0] = static_cast<uint8_t>(v >> 16);
    o[1] = static_cast<uint8_t>(v >> 8);
    o[2] = static_cast<uint8_t>(v);
    o += 3;
    return true;
}
}  // namespace

uint64_t ContentCoding::base64EncodedSize(uint64_t count, int lineLength) {
    uint64_t groups = (count + 2) / 3;
    uint64_t groupsPerLine = lineLength > 4 ? (static_cast<uint64_t>(lineLength) + 3) / 4 : 1;
    return groups * 4 + (groups / groupsPerLine + 2) * 2;
}

// At most three characters a byte, and a soft break at the latest after 25
// escapes; one in eight bytes covers the breaks, and the tail covers the
// padding of the encoder's four-byte copies.
uint64_t ContentCoding::quotedPrintableEncodedSize(uint64_t count) {
    return count * 3 + count / 8 + 16;
}

// ---- base64

bool ContentCoding::encodeBase64(const void* bytes, uint32_t count, StringBuffer& out) const {
    if (!bytes || count == 0) return true;
    uint64_t bound = base64EncodedSize(count, m_lineLength);
    if (bound > INT_MAX) return false;
    char* start = out.reserveTail(static_cast<int>(bound));
    if (!start) return false;
    char* end = writeBase64(static_cast<const uint8_t*>(bytes), count, start);
    out.commitTail(static_cast<int>(end - start));
    return true;
}

bool ContentCoding::encodeBase64(const void* bytes, uint32_t count, DataBuffer& out) const {
    if (!bytes || count == 0) return true;
    uint64_t bound = base64EncodedSize(count, m_lineLength);
    if (bound > INT_MAX) return false;
    char* start = reinterpret_cast<char*>(out.reserveTail(static_cast<uint32_t>(bound)));
    if (!start) return false;
    char* end = writeBase64(static_cast<const uint8_t*>(bytes), count, start);
    out.commitTail(static_cast<uint32_t>(end - start));
    return true;
}

char* ContentCoding::writeBase64(const uint8_t* in, uint32_t count, char* o) const {
    const uint32_t groupsPerLine = m_lineLength > 4 ? (m_lineLength + 3) / 4 : 1;
    uint32_t whole = count / 3;
    uint32_t group = 0;
    while (group < whole) {
        uint32_t lineGroups = whole - group < groupsPerLine ? whole - group : groupsPerLine;
        for (uint32_t k = 0; k < lineGroups; ++k, ++group) o = writeEncodedGroup(o, in + group * 3);
        if (lineGroups < groupsPerLine) break;
        *o++ = '\r';
        *o++ = '\n';
    }
    uint32_t rest = count - whole * 3;
    if (rest > 0) {
        uint8_t last[3] = {in[whole * 3], rest == 2 ? in[whole * 3 + 1] : uint8_t{0}, 0};
        o = writeEncodedGroup(o, last);
        o[-1] = '=';
        if (rest == 1) o[-2] = '=';
    }
    // The output always ends in a line end, even right behind a full line
    // (kept: a multiple of 57 bytes ends in an empty line); a padded group
    // that fills a line gets just the one.
    *o++ = '\r';
    *o++ = '\n';
    return o;
}

bool ContentCoding::decodeBase64(const char* text, uint32_t count, DataBuffer& out) const {
    if (!text || count == 0) return true;
    uint8_t* start = out.reserveTail(count / 4 * 3 + 3);
    if (!start) return false;
    const auto* in = reinterpret_cast<const uint8_t*>(text);
    uint8_t* o = start;
    uint32_t bits = 0;
    int digits = 0;
    uint32_t i = 0;
    while (i < count) {
        // Whole groups of four digits, the common case, go in one step.
        if (digits == 0 && i + 4 <= count && decodeWholeGroup(in + i, o)) {
            i += 4;
            continue;
        }
        uint8_t v = g_base64.value[in[i++]];
        if (v == kStop) break;
        if (v == kSkip) continue;
        bits = (bits << 6) | v;
        if (++digits < 4) continue;
        o[0] = static_cast<uint8_t>(bits >> 16);
        o[1] = static_cast<uint8_t>(bits >> 8);
        o[2] = static_cast<uint8_t>(bits);
        o += 3;
        bits = 0;
        digits = 0;
    }
    // Only whole bytes count: two digits make one, three make two.
    if (digits == 2) *o++ = static_cast<uint8_t>(bits >> 4);
    if (digits == 3) {
        *o++ = static_cast<uint8_t>(bits >> 10);
        *o++ = static_cast<uint8_t>(bits >> 2);
    }
    out.commitTail(static_cast<uint32_t>(o - start));
    return true;
}

// ---- quoted-printable

bool ContentCoding::encodeQuotedPrintable(const void* bytes, uint32_t count,
                                          StringBuffer& out) const {
    if (!bytes || count == 0) return true;
    uint64_t bound = quotedPrintableEncodedSize(count);
    if (bound > INT_MAX) return false;
    char* start = out.reserveTail(static_cast<int>(bound));
    if (!start) return false;
    QpWriter writer{static_cast<const uint8_t*>(bytes), count, m_lineLength - 1, start};
    for (uint32_t i = 0; i < count;) {
        i = writer.writeInline(i) ? i + 1 : writer.writePlaced(i);
    }
    out.commitTail(static_cast<int>(writer.o - start));
    return true;
}

bool ContentCoding::decodeQuotedPrintable(const char* text, uint32_t count,
                                          DataBuffer& out) const {
    if (!text || count == 0) return false;
    const auto* in = reinterpret_cast<const uint8_t*>(text);
    if (const void* zero = std::memchr(in, 0, count)) count = static_cast<const uint8_t*>(zero) - in;
    if (count == 0) return false;
    // A bare LF grows by one byte; nothing else grows.
    uint32_t lineFeeds = 0;
    for (uint32_t i = 0; i < count; ++i) lineFeeds += g_qpByte.kind[in[i]] == kQpLineFeed;
    if (count > UINT32_MAX - lineFeeds) return false;
    uint8_t* start = out.reserveTail(count + lineFeeds);
    if (!start) return false;
    uint8_t* o = start;
    uint32_t i = 0;
    while (i < count) {
        i = decodeQpLine(in, i, count, o);
    }
    out.commitTail(static_cast<uint32_t>(o - start));
    return true;
}

}  // namespace brelkin
