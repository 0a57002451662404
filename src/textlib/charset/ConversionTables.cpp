// ConversionTables.cpp - the process-wide store of unpacked conversion tables
//
// See ConversionTables.h
#include "textlib/charset/ConversionTables.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BrelkinBzip2.h"
#include "textlib/charset/DenseLookups.h"
#include "textlib/charset/HashConvert.h"
#include "textlib/charset/TableBase64.h"
#include "textlib/charset/UnicodeLookup.h"
#include "textlib/charset/tables/StoredTables.h"

namespace brelkin {

namespace {

constexpr int kPages[] = {
    37,    437,   500,   708,   720,   737,   775,   850,   852,   855,   857,   858,
    860,   861,   862,   863,   864,   865,   866,   869,   870,   874,   875,   932,
    936,   949,   950,   1026,  1047,  1140,  1141,  1142,  1143,  1144,  1145,  1146,
    1147,  1148,  1149,  1250,  1251,  1252,  1253,  1254,  1255,  1256,  1257,  1258,
    1361,  10000, 10001, 10004, 10005, 10006, 10007, 10010, 10017, 10021, 10029, 10079,
    10081, 10082, 20105, 20106, 20107, 20108, 20127, 20261, 20269, 20273, 20277, 20278,
    20280, 20284, 20285, 20290, 20297, 20420, 20423, 20424, 20838, 20866, 20871, 20880,
    20905, 20924, 21025, 21866, 28591, 28592, 28593, 28594, 28595, 28596, 28597, 28598,
    28599, 28603, 28605, 38598, 51932, 51936, 51949};
constexpr size_t kPageCount = std::size(kPages);

constexpr uint32_t kMagic = 0xB394A7E1;
constexpr uint32_t kSingleByteBuckets = 269;
constexpr uint32_t kSingleByteTempBuckets = 283;

struct Slots {
    std::atomic<UnicodeLookup*> lookup{nullptr};
    std::atomic<HashConvert*> toUnicode{nullptr};
    std::atomic<HashConvert*> fromUnicode{nullptr};
    std::atomic<DenseFromUnicode*> denseFrom{nullptr};
    std::atomic<DenseToUnicode*> denseTo{nullptr};
    std::atomic<bool> denseFromTried{false};
    std::atomic<bool> denseToTried{false};
};

Slots g_slots[kPageCount];

Slots* slotsOf(int codePage) {
    const int* end = kPages + kPageCount;
    const int* at = std::lower_bound(kPages, end, codePage);
    return (at == end || *at != codePage) ? nullptr : &g_slots[at - kPages];
}

uint32_t fromUnicodeBuckets(int codePage) {
    switch (codePage) {
    case 932: case 949: case 1361: case 51949: return 7669;
    case 936: case 950: case 51936: case 52936: return 7649;
    case 10001: case 51932: return 4919;
    default: return kSingleByteBuckets;
    }
}

uint32_t toUnicodeBuckets(int codePage) {
    switch (codePage) {
    case 932: case 10001: case 51932: return 4919;
    case 936: case 950: case 51936: case 52936: return 7649;
    default: return 7669;
    }
}

// Joins the pieces of a stored table into one text.
bool joinPieces(const textlib_tables::StoredTable* stored, StringBuffer& text) {
    if (!stored)
        return false;
    for (uint32_t i = 0; i < stored->pieceCount; ++i)
        text.append(stored->pieces[i]);
    return text.getSize() > 0;
}

bool loadStored(int codePage, HashConvert& table, bool fromUnicode) {
    StringBuffer text;
    const int source = codePage == 10001 ? 932 : codePage;
    if (!joinPieces(textlib_tables::storedTable(static_cast<uint32_t>(source)), text))
        return false;
    return ConversionTables::loadTableText(text.getString(), table, fromUnicode);
}

uint32_t readLe32(const uint8_t* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t readLe16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

// Base64, then for "c" the magic, the size and the bzip2 stream.
bool unpackText(const char* text, DataBuffer& table) {
    if (!text || (text[0] != 'c' && text[0] != 'x'))
        return false;
    DataBuffer decoded;
    if (!TableBase64::decode(text + 1, static_cast<uint32_t>(std::strlen(text + 1)), decoded))
        return false;
    if (text[0] == 'x')
        return table.append(decoded.getData(), decoded.getSize());
    if (decoded.getSize() < 8 || readLe32(decoded.getData()) != kMagic)
        return false;
    const uint32_t size = readLe32(decoded.getData() + 4);
    if (!table.ensureCapacity(size + 20))
        return false;
    if (!BrelkinBzip2::unpackInto(decoded.getData() + 8, decoded.getSize() - 8, table)) {
        table.clear();
        return false;
    }
    return table.getSize() > 0;
}

// Reads a table proper within its bounds; a cut-off section just ends.
class TableReader {
public:
    TableReader(const uint8_t* data, uint32_t size) : m_data(data), m_size(size), m_at(2) {}
    bool has(uint32_t bytes) const { return m_size - m_at >= bytes; }
    uint8_t byte() { return m_data[m_at++]; }
    uint16_t le16() {
        const uint16_t v = readLe16(m_data + m_at);
        m_at += 2;
        return v;
    }
    uint16_t be16() {
        const uint16_t v = static_cast<uint16_t>(m_data[m_at] << 8 | m_data[m_at + 1]);
        m_at += 2;
        return v;
    }

private:
    const uint8_t* m_data;
    uint32_t m_size;
    uint32_t m_at;
};

void insertPair(HashConvert& table, const uint8_t* code, uint32_t codeLen, uint16_t unicode,
                bool fromUnicode) {
    uint8_t unit[2];
    std::memcpy(unit, &unicode, 2);  // the machine's order
    if (fromUnicode)
        table.insert(unit, 2, code, codeLen);
    else
        table.insert(code, codeLen, unit, 2);
}

void readFullTable(TableReader& in, HashConvert& table, bool fromUnicode) {
    uint8_t code8 = 0;
    uint16_t unicode = 0;
    while (in.has(3)) {
        const uint8_t delta = in.byte();
        if (delta == 0)
            break;
        code8 = static_cast<uint8_t>(code8 + delta);
        unicode = static_cast<uint16_t>(unicode + in.le16());
        insertPair(table, &code8, 1, unicode, fromUnicode);
    }
    uint16_t code16 = 0;
    unicode = 0;
    while (in.has(4)) {
        const uint16_t delta = in.le16();
        if (delta == 0)
            break;
        code16 = static_cast<uint16_t>(code16 + delta);
        unicode = static_cast<uint16_t>(unicode + in.le16());
        const uint8_t code[2] = {static_cast<uint8_t>(code16 >> 8), static_cast<uint8_t>(code16)};
        insertPair(table, code, 2, unicode, fromUnicode);
    }
}

void removeUnicode(HashConvert& table, uint16_t unicode) {
    uint8_t unit[2];
    std::memcpy(unit, &unicode, 2);
    table.remove(unit, 2);
}

void readDifferenceTable(TableReader& in, HashConvert& table) {
    while (in.has(2)) {
        const uint16_t unicode = in.le16();
        if (unicode == 0)
            break;
        removeUnicode(table, unicode);
    }
    while (in.has(1)) {
        const uint8_t code = in.byte();
        if (code == 0 || !in.has(2))
            break;
        const uint16_t unicode = in.le16();
        removeUnicode(table, unicode);
        insertPair(table, &code, 1, unicode, true);
    }
    while (in.has(2)) {
        const uint16_t code16 = in.be16();
        if (code16 == 0 || !in.has(2))
            break;
        const uint16_t unicode = in.le16();
        const uint8_t code[2] = {static_cast<uint8_t>(code16 >> 8), static_cast<uint8_t>(code16)};
        removeUnicode(table, unicode);
        insertPair(table, code, 2, unicode, true);
    }
}

HashConvert* newTable(uint32_t buckets) {
    HashConvert* table = new HashConvert;
    table->initialize(buckets);
    return table;
}

// 10001's from-Unicode side: 932's table with the difference applied.
HashConvert* buildFromUnicode10001() {
    HashConvert* table = newTable(4919);
    loadStored(932, *table, true);
    StringBuffer diff;
    if (joinPieces(&textlib_tables::kDiff10001, diff))
        ConversionTables::loadTableText(diff.getString(), *table, true);
    return table;
}

HashConvert* buildToUnicode10001() {
    const HashConvert* from = ConversionTables::fromUnicode(10001);
    HashConvert* table = newTable(4919);
    if (from) {
        from->invertInto(*table);
        table->setAsciiCompatible(from->isAsciiCompatible());
    }
    return table;
}

UnicodeLookup* buildSingleByteLookup(int codePage) {
    UnicodeLookup* lookup = new UnicodeLookup;
    HashConvert temp;
    temp.initialize(kSingleByteTempBuckets);
    loadStored(codePage, temp, false);
    for (int b = 1; b < 256; ++b) {
        const uint8_t byte = static_cast<uint8_t>(b);
        if (temp.isAsciiCompatible() && byte < 0x80) {
            lookup->set(byte, byte);
            continue;
        }
        uint8_t value[256];
        uint32_t valueLen = 0;
        temp.lookup(&byte, 1, value, valueLen);
        if (valueLen == 2) {
            uint16_t unit;
            std::memcpy(&unit, value, 2);
            lookup->set(byte, unit);
        }
    }
    return lookup;
}

}  // namespace

bool ConversionTables::hasRoute(int codePage) { return slotsOf(codePage) != nullptr; }

bool ConversionTables::isMultiByte(int codePage) {
    switch (codePage) {
    case 932: case 936: case 949: case 950: case 1361:
    case 10001: case 51932: case 51936: case 51949:
        return true;
    default:
        return false;
    }
}

void ConversionTables::loadFromUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots || slots->fromUnicode.load(std::memory_order_acquire))
        return;
    HashConvert* table = nullptr;
    if (codePage == 10001) {
        table = buildFromUnicode10001();
    } else {
        table = newTable(fromUnicodeBuckets(codePage));
        loadStored(codePage, *table, true);
    }
    slots->fromUnicode.store(table, std::memory_order_release);
}

void ConversionTables::loadToUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots)
        return;
    if (!isMultiByte(codePage)) {
        if (!slots->lookup.load(std::memory_order_acquire))
            slots->lookup.store(buildSingleByteLookup(codePage), std::memory_order_release);
        return;
    }
    if (slots->toUnicode.load(std::memory_order_acquire))
        return;
    HashConvert* table = nullptr;
    if (codePage == 10001) {
        table = buildToUnicode10001();
    } else {
        table = newTable(toUnicodeBuckets(codePage));
        loadStored(codePage, *table, false);
    }
    slots->toUnicode.store(table, std::memory_order_release);
}

const UnicodeLookup* ConversionTables::singleByteToUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots || isMultiByte(codePage))
        return nullptr;
    loadToUnicode(codePage);
    return slots->lookup.load(std::memory_order_acquire);
}

const HashConvert* ConversionTables::multiByteToUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots || !isMultiByte(codePage))
        return nullptr;
    loadToUnicode(codePage);
    return slots->toUnicode.load(std::memory_order_acquire);
}

const HashConvert* ConversionTables::fromUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots)
        return nullptr;
    loadFromUnicode(codePage);
    return slots->fromUnicode.load(std::memory_order_acquire);
}

const DenseFromUnicode* ConversionTables::denseFromUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots)
        return nullptr;
    if (!slots->denseFromTried.load(std::memory_order_acquire)) {
        if (const HashConvert* table = fromUnicode(codePage))
            slots->denseFrom.store(DenseFromUnicode::build(*table), std::memory_order_release);
        slots->denseFromTried.store(true, std::memory_order_release);
    }
    return slots->denseFrom.load(std::memory_order_acquire);
}

const DenseToUnicode* ConversionTables::denseToUnicode(int codePage) {
    Slots* slots = slotsOf(codePage);
    if (!slots || !isMultiByte(codePage))
        return nullptr;
    if (!slots->denseToTried.load(std::memory_order_acquire)) {
        if (const HashConvert* table = multiByteToUnicode(codePage))
            slots->denseTo.store(DenseToUnicode::build(*table), std::memory_order_release);
        slots->denseToTried.store(true, std::memory_order_release);
    }
    return slots->denseTo.load(std::memory_order_acquire);
}

bool ConversionTables::loadTableText(const char* text, HashConvert& table, bool fromUnicode) {
    DataBuffer unpacked;
    if (!unpackText(text, unpacked) || unpacked.getSize() < 2)
        return false;
    const uint8_t* data = unpacked.getData();
    table.setAsciiCompatible(data[0] == 'a');
    TableReader in(data, unpacked.getSize());
    if (data[1] == 'u')
        readFullTable(in, table, fromUnicode);
    else if (data[1] == 'd' && fromUnicode)
        readDifferenceTable(in, table);
    return true;
}

}  // namespace brelkin
