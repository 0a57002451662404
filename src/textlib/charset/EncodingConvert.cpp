// EncodingConvert.cpp - conversion of text between code pages through UTF-16
//
// See EncodingConvert.h
#include "textlib/charset/EncodingConvert.h"

#include <algorithm>
#include <cstring>

#include "platform/CodePage.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/ConversionTables.h"
#include "textlib/charset/DenseLookups.h"
#include "textlib/charset/HashConvert.h"
#include "textlib/charset/Japanese.h"
#include "textlib/charset/Korean.h"
#include "textlib/charset/UnicodeLookup.h"
#include "textlib/charset/Utf32.h"
#include "textlib/charset/Utf7.h"

namespace brelkin {

namespace {

constexpr int kUtf16Le = 1200;
constexpr int kUtf16Be = 1201;
constexpr int kUtf7 = 65000;
constexpr int kUtf8 = 65001;
constexpr int kUtf32Le = 65005;
constexpr int kUtf32Be = 65006;
constexpr int kMacArabic = 10004;
constexpr int kKorean2022 = 50225;

bool isJapanese2022(int codePage) { return codePage >= 50220 && codePage <= 50222; }

// Writes straight into the free room behind a buffer's content, reserving
// more as it goes, so that hot loops neither stage nor check per call.
class TailWriter {
public:
    TailWriter(DataBuffer& out, uint32_t expected) : m_out(out) { reserve(expected); }
    ~TailWriter() { commit(); }
    TailWriter(const TailWriter&) = delete;
    TailWriter& operator=(const TailWriter&) = delete;

    // Room for `count` more bytes; false when memory failed.
    bool room(uint32_t count) {
        if (static_cast<uint32_t>(m_end - m_at) >= count)
            return true;
        commit();
        return reserve(count < 4096 ? 4096 : count);
    }
    void put(uint8_t b) { *m_at++ = b; }
    void putUnit(uint16_t unit) {
        m_at[0] = static_cast<uint8_t>(unit);
        m_at[1] = static_cast<uint8_t>(unit >> 8);
        m_at += 2;
    }
    void putBytes(const uint8_t* bytes, uint32_t count) {
        std::memcpy(m_at, bytes, count);
        m_at += count;
    }
    // Raw access for loops that checked their room once.
    uint8_t* cursor() { return m_at; }
    void moveTo(uint8_t* at) { m_at = at; }

private:
    bool reserve(uint32_t count) {
        if (count == 0)
            count = 16;
        m_start = m_at = m_out.reserveTail(count);
        m_end = m_at ? m_at + count : nullptr;
        return m_at != nullptr;
    }
    void commit() {
        if (m_at)
            m_out.commitTail(static_cast<uint32_t>(m_at - m_start));
        m_start = m_at = m_end = nullptr;
    }

    DataBuffer& m_out;
    uint8_t* m_start = nullptr;
    uint8_t* m_at = nullptr;
    uint8_t* m_end = nullptr;
};

uint16_t readUnit(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

void swapPairs(const uint8_t* in, uint32_t length, DataBuffer& out) {
    TailWriter writer(out, length);
    if (!writer.room(length))
        return;
    for (uint32_t i = 0; i + 1 < length; i += 2) {
        writer.put(in[i + 1]);
        writer.put(in[i]);
    }
}

void swapQuads(const uint8_t* in, uint32_t length, DataBuffer& out) {
    TailWriter writer(out, length);
    if (!writer.room(length))
        return;
    for (uint32_t i = 0; i + 3 < length; i += 4) {
        const uint8_t quad[4] = {in[i + 3], in[i + 2], in[i + 1], in[i]};
        writer.putBytes(quad, 4);
    }
}

// Mac Arabic bytes that the pre-pass reverses in runs.
bool isMacArabicRunByte(uint8_t b) {
    return b == 0x81 || b == 0x8C || b == 0x93 || b == 0x98 || b == 0x9B ||
           (b >= 0xA0 && b <= 0xA4) || (b >= 0xA6 && b <= 0xAB) || (b >= 0xAD && b <= 0xBA) ||
           (b >= 0xBC && b <= 0xBE) || b == 0xC0 || (b >= 0xDB && b <= 0xDF) ||
           (b >= 0xFB && b <= 0xFD);
}

uint8_t mapMacArabicByte(uint8_t b) {
    if (b == 0x81)
        return 0xA0;
    const bool loses80 = (b >= 0xA0 && b <= 0xBE && b != 0xA5 && b != 0xAC && b != 0xBB) ||
                         (b >= 0xDB && b <= 0xDF) || (b >= 0xFB && b <= 0xFD);
    return loses80 ? static_cast<uint8_t>(b - 0x80) : b;
}

void reverse(uint8_t* first, uint8_t* last) {
    while (first < --last) {
        const uint8_t t = *first;
        *first++ = *last;
        *last = t;
    }
}

// Reverses runs of the directional bytes and maps them, in place.
void macArabicPrePass(uint8_t* text, uint32_t length) {
    int64_t runStart = -1;
    for (uint32_t i = 0; i < length; ++i) {
        const bool inRun = isMacArabicRunByte(text[i]);
        text[i] = mapMacArabicByte(text[i]);
        if (inRun) {
            if (runStart < 0)
                runStart = i;
            continue;
        }
        if (runStart >= 0 && i - runStart > 1)
            reverse(text + runStart, text + i);
        runStart = -1;
    }
    if (runStart >= 0 && length - runStart > 1)
        reverse(text + runStart, text + length);
}

bool isArabicDigitPage(int codePage) { return codePage == 28596 || codePage == 1256; }

struct MarkResult {
    int from;
    uint32_t skip;
};

// Looks at and drops a byte order mark; the mark overrides the number.
MarkResult readByteOrderMark(int from, const uint8_t* in, uint32_t length) {
    if (from == kUtf8 && length >= 3 && in[0] == 0xEF && in[1] == 0xBB && in[2] == 0xBF)
        return {from, 3};
    if ((from == kUtf16Le || from == kUtf16Be) && length >= 2) {
        if (in[0] == 0xFE && in[1] == 0xFF)
            return {kUtf16Be, 2};
        if (in[0] == 0xFF && in[1] == 0xFE)
            return {kUtf16Le, 2};
    }
    if ((from == kUtf32Le || from == kUtf32Be) && length >= 4) {
        if (in[0] == 0 && in[1] == 0 && in[2] == 0xFE && in[3] == 0xFF)
            return {kUtf32Be, 4};
        if (in[0] == 0xFF && in[1] == 0xFE && in[2] == 0 && in[3] == 0)
            return {kUtf32Le, 4};
    }
    return {from, 0};
}

// The 2-, 3- and 4-byte keys at a position, in that order; the length of
// the first that hits, or 0. Lengths and leads the table never had are skipped.
uint32_t lookupLongKey(const HashConvert& table, const uint8_t* in, uint32_t left,
                       uint8_t* value, uint32_t& valueLen) {
    if (left < 2 || !table.mayStartLongKey(in[0]))
        return 0;
    for (uint32_t keyLen = 2; keyLen <= 4 && keyLen <= left; ++keyLen) {
        if (table.mayHaveKeyLength(keyLen) && table.lookup(in, keyLen, value, valueLen))
            return keyLen;
    }
    return 0;
}

bool copyBytes(const uint8_t* in, uint32_t length, DataBuffer& out) {
    out.append(in, length);
    return true;
}

// Writes UTF-16 units in the machine's order.
class Utf16Sink {
public:
    explicit Utf16Sink(TailWriter& out) : m_out(out) {}
    void operator()(uint16_t unit) {
        if (m_out.room(2))
            m_out.putUnit(unit);
    }

private:
    TailWriter& m_out;
};

// Writes each unit by itself as UTF-8; zero units are dropped.
class Utf8Sink {
public:
    explicit Utf8Sink(TailWriter& out) : m_out(out) {}
    void operator()(uint16_t unit) {
        if (unit == 0 || !m_out.room(3))
            return;
        if (unit < 0x80) {
            m_out.put(static_cast<uint8_t>(unit));
        } else if (unit < 0x800) {
            m_out.put(static_cast<uint8_t>(0xC0 | (unit >> 6)));
            m_out.put(static_cast<uint8_t>(0x80 | (unit & 0x3F)));
        } else {
            m_out.put(static_cast<uint8_t>(0xE0 | (unit >> 12)));
            m_out.put(static_cast<uint8_t>(0x80 | ((unit >> 6) & 0x3F)));
            m_out.put(static_cast<uint8_t>(0x80 | (unit & 0x3F)));
        }
    }

private:
    TailWriter& m_out;
};

uint16_t foldArabicDigit(uint16_t unit) {
    if ((unit >= 0x0660 && unit <= 0x0669) || (unit >= 0x06F0 && unit <= 0x06F9))
        return static_cast<uint16_t>('0' + (unit & 0x0F));
    return unit;
}

// Writes units in a table page; a unit without a mapping is dropped and
// makes the result false, but U+0000 becomes one zero byte.
class TableSink {
public:
    TableSink(int codePage, TailWriter& out)
        : m_out(out),
          m_table(ConversionTables::fromUnicode(codePage)),
          m_dense(ConversionTables::denseFromUnicode(codePage)),
          m_ascii(m_table && m_table->isAsciiCompatible()),
          m_foldDigits(isArabicDigitPage(codePage)) {}

    bool usable() const { return m_table != nullptr; }
    bool ok() const { return m_ok; }

    void operator()(uint16_t unit) {
        if (m_foldDigits)
            unit = foldArabicDigit(unit);
        if (!m_out.room(2))
            return;
        if (m_ascii && unit < 0x80) {
            m_out.put(static_cast<uint8_t>(unit));
        } else if (m_dense) {
            putDense(unit);
        } else {
            putHashed(unit);
        }
    }

private:
    void putDense(uint16_t unit) {
        const uint8_t length = m_dense->length[unit];
        const uint16_t code = m_dense->code[unit];
        if (length == 1) {
            m_out.put(static_cast<uint8_t>(code));
        } else if (length == 2) {
            m_out.put(static_cast<uint8_t>(code >> 8));
            m_out.put(static_cast<uint8_t>(code));
        } else {
            missing(unit);
        }
    }
    void putHashed(uint16_t unit) {
        uint32_t valueLen = 0;
        const uint8_t* value =
            m_table->find2(static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8), valueLen);
        if (!value)
            missing(unit);
        else if (m_out.room(valueLen))
            m_out.putBytes(value, valueLen);
    }
    void missing(uint16_t unit) {
        if (unit == 0)
            m_out.put(0);
        else
            m_ok = false;
    }

    TailWriter& m_out;
    const HashConvert* m_table;
    const DenseFromUnicode* m_dense;
    bool m_ascii;
    bool m_foldDigits;
    bool m_ok = true;
};

// Feeds each UTF-16 unit of the input; an odd last byte is ignored.
template <typename Sink>
void utf16Units(const uint8_t* in, uint32_t length, Sink& sink) {
    for (uint32_t i = 0; i + 1 < length; i += 2)
        sink(readUnit(in + i));
}

// Reads one UTF-8 sequence of 1 to 3 bytes and feeds its unit; anything
// else skips exactly one byte, so 4-byte forms vanish byte by byte. Returns
// the bytes consumed.
template <typename Sink>
uint32_t utf8Step(const uint8_t* in, uint32_t left, Sink& sink) {
    const uint8_t a = in[0];
    if (a < 0x80) {
        sink(a);
        return 1;
    }
    if (a >= 0xC2 && a <= 0xDF && left >= 2 && (in[1] & 0xC0) == 0x80) {
        sink(static_cast<uint16_t>((a & 0x1F) << 6 | (in[1] & 0x3F)));
        return 2;
    }
    if (a >= 0xE0 && a <= 0xEF && left >= 3 && (in[1] & 0xC0) == 0x80 && (in[2] & 0xC0) == 0x80 &&
        (a != 0xE0 || in[1] >= 0xA0)) {
        sink(static_cast<uint16_t>((a & 0x0F) << 12 | (in[1] & 0x3F) << 6 | (in[2] & 0x3F)));
        return 3;
    }
    return 1;
}

template <typename Sink>
void utf8Units(const uint8_t* in, uint32_t length, Sink& sink) {
    for (uint32_t i = 0; i < length;)
        i += utf8Step(in + i, length - i, sink);
}

// Feeds the units of a single-byte page; a byte without a mapping gives
// nothing and makes the result false, a zero byte gives U+0000.
template <typename Sink>
bool singleByteUnits(const UnicodeLookup& lookup, const uint8_t* in, uint32_t length, Sink& sink) {
    bool ok = true;
    for (uint32_t i = 0; i < length; ++i) {
        const uint16_t unit = lookup.get(in[i]);
        if (unit != 0 || in[i] == 0)
            sink(unit);
        else
            ok = false;
    }
    return ok;
}

// Feeds the units of a multi-byte page through its flat lookup: the pair at
// a position first, then the single byte.
template <typename Sink>
bool multiByteUnits(const DenseToUnicode& dense, bool ascii, const uint8_t* in, uint32_t length,
                    Sink& sink) {
    bool ok = true;
    for (uint32_t i = 0; i < length;) {
        const uint8_t b = in[i];
        if (i + 1 < length && dense.hasPair(b, in[i + 1])) {
            sink(dense.pair[static_cast<uint32_t>(b) << 8 | in[i + 1]]);
            i += 2;
            continue;
        }
        ++i;
        if (b == 0 || (ascii && b < 0x80))
            sink(b);
        else if (dense.singlePresent[b])
            sink(dense.single[b]);
        else
            ok = false;
    }
    return ok;
}

// The units of a table page, when it can be read without the hash tables;
// `handled` false means the caller must take the general path.
template <typename Sink>
bool tableUnits(int codePage, const uint8_t* in, uint32_t length, Sink& sink, bool& handled) {
    handled = true;
    if (!ConversionTables::isMultiByte(codePage)) {
        const UnicodeLookup* lookup = ConversionTables::singleByteToUnicode(codePage);
        return lookup ? singleByteUnits(*lookup, in, length, sink) : false;
    }
    const DenseToUnicode* dense = ConversionTables::denseToUnicode(codePage);
    const HashConvert* table = ConversionTables::multiByteToUnicode(codePage);
    if (!dense || !table) {
        handled = false;
        return false;
    }
    return multiByteUnits(*dense, table->isAsciiCompatible(), in, length, sink);
}

// UTF-8 into a page with a flat lookup. No code is longer than the UTF-8
// form it stands for, so the room is checked once for the whole input.
bool utf8ToDenseTable(const DenseFromUnicode& dense, bool ascii, const uint8_t* in,
                      uint32_t length, TailWriter& writer) {
    if (!writer.room(length))
        return false;
    uint8_t* out = writer.cursor();
    bool ok = true;
    auto put = [&](uint16_t unit) {
        if (ascii && unit < 0x80) {
            *out++ = static_cast<uint8_t>(unit);
            return;
        }
        const uint8_t size = dense.length[unit];
        const uint16_t code = dense.code[unit];
        if (size == 2)
            *out++ = static_cast<uint8_t>(code >> 8);
        if (size != 0)
            *out++ = static_cast<uint8_t>(code);
        else if (unit == 0)
            *out++ = 0;
        else
            ok = false;
    };
    for (uint32_t i = 0; i < length;) {
        while (ascii && i < length && in[i] < 0x80)
            *out++ = in[i++];
        if (i < length)
            i += utf8Step(in + i, length - i, put);
    }
    writer.moveTo(out);
    return ok;
}

}  // namespace

bool EncodingConvert::convert(int from, int to, const void* bytes, uint32_t length,
                              DataBuffer& out) {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    if (!in || length == 0)
        return true;
    if (to == 0)
        to = from;
    if (from == 0)
        from = to;
    if (from == to)
        return copyBytes(in, length, out);
    if (from == kMacArabic) {
        DataBuffer copy;
        copy.append(in, length);
        if (copy.getSize() != length)
            return false;
        macArabicPrePass(copy.getData(), length);
        return convertTarget(from, to, copy.getData(), length, out);
    }
    if (isJapanese2022(from) || from == kKorean2022) {
        DataBuffer table;
        if (from == kKorean2022)
            Korean::iso2022ToKsc(in, length, table);
        else
            Japanese::iso2022ToShiftJis(in, length, table);
        if (table.getSize() == 0)
            return true;
        return convert(from == kKorean2022 ? 949 : 932, to, table.getData(), table.getSize(), out);
    }
    return convertTarget(from, to, in, length, out);
}

// Step 5 of convert: the computed targets wrap the core.
bool EncodingConvert::convertTarget(int from, int to, const uint8_t* in, uint32_t length,
                                    DataBuffer& out) {
    if (to != kUtf7 && to != kUtf32Le && to != kUtf32Be && to != kUtf16Be &&
        !isJapanese2022(to) && to != kKorean2022)
        return core(from, to, in, length, out);
    DataBuffer temp;
    if (to == kUtf7) {
        if (!core(from, kUtf16Le, in, length, temp))
            return false;
        return utf7Encode(temp.getData(), temp.getSize(), out);
    }
    if (to == kUtf32Le || to == kUtf32Be) {
        if (!core(from, kUtf8, in, length, temp))
            return false;
        return to == kUtf32Le ? utf8ToUtf32Le(temp.getData(), temp.getSize(), out)
                              : utf8ToUtf32Be(temp.getData(), temp.getSize(), out);
    }
    if (to == kUtf16Be) {
        const bool ok = core(from, kUtf16Le, in, length, temp);
        swapPairs(temp.getData(), temp.getSize(), out);
        return ok;
    }
    const bool japanese = isJapanese2022(to);
    const bool ok = core(from, japanese ? 932 : 949, in, length, temp);
    if (temp.getSize() == 0)
        return ok;
    if (japanese)
        Japanese::shiftJisToIso2022(temp.getData(), temp.getSize(), out);
    else
        Korean::kscToIso2022(temp.getData(), temp.getSize(), out);
    return ok;
}

bool EncodingConvert::core(int from, int to, const uint8_t* in, uint32_t length,
                           DataBuffer& out) {
    const MarkResult mark = readByteOrderMark(from, in, length);
    from = mark.from;
    in += mark.skip;
    length -= mark.skip;
    if (length == 0)
        return true;
    if (from == to)
        return copyBytes(in, length, out);
    DataBuffer temp;
    if (from == kUtf16Be) {
        swapPairs(in, length, temp);
        return route(kUtf16Le, to, temp.getData(), temp.getSize(), out);
    }
    if (from == kUtf32Le || from == kUtf32Be) {
        if (length < 4)
            return true;
        if (from == kUtf32Be) {
            DataBuffer swapped;
            swapQuads(in, length, swapped);
            utf32ToUtf8(swapped.getData(), swapped.getSize(), temp);
        } else {
            utf32ToUtf8(in, length, temp);
        }
        return route(kUtf8, to, temp.getData(), temp.getSize(), out);
    }
    if (from == kUtf7) {
        utf7Decode(in, length, temp);
        return route(kUtf16Le, to, temp.getData(), temp.getSize(), out);
    }
    return route(from, to, in, length, out);
}

// Step 4 of the core: the source is 1200, 65001 or a table page. Two-stage
// routes stream the units of the first stage into the second; only the
// second decides the result.
bool EncodingConvert::route(int from, int to, const uint8_t* in, uint32_t length,
                            DataBuffer& out) {
    if (from == to && (from == kUtf16Le || from == kUtf8))
        return copyBytes(in, length, out);
    if (from == kUtf16Le && to == kUtf8)
        return utf16ToUtf8(in, length, out);
    if (from == kUtf8 && to == kUtf16Le)
        return utf8ToUtf16(in, length, out);
    if (from == kUtf16Le || from == kUtf8)
        return unicodeToTable(from, to, in, length, out);
    if (!ConversionTables::hasRoute(from))
        return false;
    if (to == kUtf16Le)
        return tableToUtf16(from, in, length, out);
    if (to != kUtf8 && !ConversionTables::fromUnicode(to))
        return false;
    return tableToOther(from, to, in, length, out);
}

bool EncodingConvert::unicodeToTable(int from, int to, const uint8_t* in, uint32_t length,
                                     DataBuffer& out) {
    TailWriter writer(out, from == kUtf16Le ? length / 2 + 4 : length + 4);
    TableSink sink(to, writer);
    if (!sink.usable() || (from == kUtf16Le && length == 1))
        return false;
    const DenseFromUnicode* dense = ConversionTables::denseFromUnicode(to);
    if (from == kUtf8 && dense && !isArabicDigitPage(to))
        return utf8ToDenseTable(*dense, ConversionTables::fromUnicode(to)->isAsciiCompatible(), in,
                                length, writer);
    if (from == kUtf16Le)
        utf16Units(in, length, sink);
    else
        utf8Units(in, length, sink);
    return sink.ok();
}

// A table page to UTF-8 or another table page.
bool EncodingConvert::tableToOther(int from, int to, const uint8_t* in, uint32_t length,
                                   DataBuffer& out) {
    bool handled = false;
    if (to == kUtf8) {
        TailWriter writer(out, length + length / 2 + 4);
        Utf8Sink sink(writer);
        tableUnits(from, in, length, sink, handled);
        if (handled)
            return true;  // whole units never fail on the way to UTF-8
    } else {
        TailWriter writer(out, length + 4);
        TableSink sink(to, writer);
        tableUnits(from, in, length, sink, handled);
        if (handled)
            return sink.ok();
    }
    DataBuffer pivot;
    pivot.ensureCapacity(length * 2 + 4);
    tableToUtf16(from, in, length, pivot);
    if (to == kUtf8)
        return utf16ToUtf8(pivot.getData(), pivot.getSize(), out);
    return unicodeToTable(kUtf16Le, to, pivot.getData(), pivot.getSize(), out);
}

bool EncodingConvert::tableToUtf16(int codePage, const uint8_t* in, uint32_t length,
                                   DataBuffer& out) {
    if (!ConversionTables::hasRoute(codePage))
        return false;
    TailWriter writer(out, length * 2);
    {
        bool handled = false;
        Utf16Sink sink(writer);
        const bool ok = tableUnits(codePage, in, length, sink, handled);
        if (handled)
            return ok;
    }
    bool ok = true;
    const HashConvert* table = ConversionTables::multiByteToUnicode(codePage);
    if (!table)
        return false;
    const bool ascii = table->isAsciiCompatible();
    for (uint32_t i = 0; i < length;) {
        uint8_t value[256];
        uint32_t valueLen = 0;
        const uint32_t keyLen = lookupLongKey(*table, in + i, length - i, value, valueLen);
        if (keyLen) {
            if (writer.room(valueLen))
                writer.putBytes(value, valueLen);
            i += keyLen;
            continue;
        }
        const uint8_t b = in[i++];
        if (b == 0 || (ascii && b < 0x80)) {
            if (writer.room(2))
                writer.putUnit(b);
        } else if (table->lookup(&b, 1, value, valueLen)) {
            if (writer.room(valueLen))
                writer.putBytes(value, valueLen);
        } else {
            ok = false;
        }
    }
    return ok;
}

bool EncodingConvert::utf16ToUtf8(const uint8_t* in, uint32_t length, DataBuffer& out) {
    if (length == 1)
        return false;
    TailWriter writer(out, length / 2 + 4);
    for (uint32_t i = 0; i + 1 < length; i += 2) {
        const uint16_t unit = readUnit(in + i);
        if (!writer.room(3))
            return false;
        if (unit == 0)
            continue;
        if (unit < 0x80) {
            writer.put(static_cast<uint8_t>(unit));
        } else if (unit < 0x800) {
            writer.put(static_cast<uint8_t>(0xC0 | (unit >> 6)));
            writer.put(static_cast<uint8_t>(0x80 | (unit & 0x3F)));
        } else {
            writer.put(static_cast<uint8_t>(0xE0 | (unit >> 12)));
            writer.put(static_cast<uint8_t>(0x80 | ((unit >> 6) & 0x3F)));
            writer.put(static_cast<uint8_t>(0x80 | (unit & 0x3F)));
        }
    }
    return length % 2 == 0;
}

bool EncodingConvert::utf8ToUtf16(const uint8_t* in, uint32_t length, DataBuffer& out) {
    TailWriter writer(out, length * 2);
    if (!writer.room(length * 2))
        return true;
    for (uint32_t i = 0; i < length;) {
        const uint8_t a = in[i];
        if (a < 0x80) {
            writer.putUnit(a);
            ++i;
        } else if (a >= 0xC2 && a <= 0xDF && i + 1 < length && (in[i + 1] & 0xC0) == 0x80) {
            writer.putUnit(static_cast<uint16_t>((a & 0x1F) << 6 | (in[i + 1] & 0x3F)));
            i += 2;
        } else if (a >= 0xE0 && a <= 0xEF && i + 2 < length && (in[i + 1] & 0xC0) == 0x80 &&
                   (in[i + 2] & 0xC0) == 0x80 && (a != 0xE0 || in[i + 1] >= 0xA0)) {
            writer.putUnit(static_cast<uint16_t>((a & 0x0F) << 12 | (in[i + 1] & 0x3F) << 6 |
                                                 (in[i + 2] & 0x3F)));
            i += 3;
        } else {
            ++i;  // skips exactly one byte; 4-byte forms vanish byte by byte
        }
    }
    return true;
}

bool EncodingConvert::convertByNames(const char* fromName, const char* toName,
                                     const void* bytes, uint32_t length, DataBuffer& out) {
    const int from = charsetToCodePage(fromName);
    const int to = charsetToCodePage(toName);
    if (from == 0 || to == 0)
        return false;
    return convert(from, to, bytes, length, out);
}

bool EncodingConvert::convertFromName(const char* fromName, int toCodePage, const void* bytes,
                                      uint32_t length, DataBuffer& out) {
    const int from = charsetToCodePage(fromName);
    if (from == 0)
        return false;
    return convert(from, toCodePage, bytes, length, out);
}

bool EncodingConvert::ansiToCodePage(int toCodePage, const void* bytes, uint32_t length,
                                     DataBuffer& out) {
    return convert(static_cast<int>(platform::GetACP()), toCodePage, bytes, length, out);
}

bool EncodingConvert::codePageToAnsi(int fromCodePage, const void* bytes, uint32_t length,
                                     DataBuffer& out) {
    return convert(fromCodePage, static_cast<int>(platform::GetACP()), bytes, length, out);
}

}  // namespace brelkin
