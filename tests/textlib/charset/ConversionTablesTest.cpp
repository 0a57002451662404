// ConversionTablesTest.cpp - the packed tables against their mapping sources

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/TestPaths.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/BrelkinBzip2.h"
#include "textlib/charset/ConversionTables.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/charset/HashConvert.h"
#include "textlib/charset/TableBase64.h"
#include "textlib/charset/UnicodeLookup.h"
#include "textlib/charset/tables/StoredTables.h"

using brelkin::ConversionTables;
using brelkin::DataBuffer;
using brelkin::EncodingConvert;
using brelkin::HashConvert;

namespace {

const char* PythonPath() {
    const char* env = std::getenv("TELMORAQ_PYTHON");
    return env && *env ? env : "/usr/bin/python3";
}

bool HavePython() {
    std::FILE* f = std::fopen(PythonPath(), "rb");
    if (f)
        std::fclose(f);
    return f != nullptr;
}

std::string Generator() { return std::string(TELMORAQ_SOURCE_DIR) + "/tools/tablegen/tablegen.py"; }

std::string Hex(const std::string& bytes) {
    std::string out;
    char buf[4];
    for (unsigned char c : bytes) {
        std::snprintf(buf, sizeof buf, "%02x", c);
        out += buf;
    }
    return out;
}

std::string FromHex(const std::string& hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return out;
}

std::string Unit(unsigned value) {
    return std::string{static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
}

std::string Convert(int from, int to, const std::string& in, bool* ok = nullptr) {
    DataBuffer out;
    EncodingConvert conv;
    const bool result = conv.convert(from, to, in.data(), static_cast<uint32_t>(in.size()), out);
    if (ok)
        *ok = result;
    return std::string(reinterpret_cast<const char*>(out.getData()), out.getSize());
}

std::string TableUnit(int codePage, const std::string& code, bool* ok) {
    const brelkin::UnicodeLookup* lookup = ConversionTables::singleByteToUnicode(codePage);
    const uint16_t unit = lookup ? lookup->get(static_cast<uint8_t>(code[0])) : 0;
    *ok = unit != 0;
    return unit ? Unit(unit) : "";
}

struct PageReference {
    std::vector<std::pair<std::string, unsigned>> decodes;  // code -> unit
    std::vector<std::pair<unsigned, std::string>> encodes;  // unit -> code
};

std::map<int, PageReference> LoadReference(const std::string& path) {
    std::map<int, PageReference> pages;
    std::istringstream in(testsupport::ReadFile(path));
    std::string kind, a, b;
    PageReference* page = nullptr;
    while (in >> kind >> a >> b) {
        if (kind == "page")
            page = &pages[std::stoi(a)];
        else if (kind == "d" && page)
            page->decodes.emplace_back(FromHex(a), std::stoul(b, nullptr, 16));
        else if (kind == "e" && page)
            page->encodes.emplace_back(std::stoul(a, nullptr, 16), FromHex(b));
    }
    return pages;
}

// Every mapping the source gives, both ways, through the real conversion.
std::vector<std::string> WalkPage(int codePage, const PageReference& ref) {
    std::vector<std::string> faults;
    for (const auto& [code, unit] : ref.decodes) {
        bool ok = false;
        // Mac Arabic reorders and remaps bytes before the table: ask the table.
        const std::string got = codePage == 10004 ? TableUnit(codePage, code, &ok)
                                                  : Convert(codePage, 1200, code, &ok);
        if (!ok || got != Unit(unit))
            faults.push_back("to UTF-16 " + Hex(code) + ": got " + Hex(got) + " want " + Hex(Unit(unit)));
    }
    for (const auto& [unit, code] : ref.encodes) {
        bool ok = false;
        const std::string got = Convert(1200, codePage, Unit(unit), &ok);
        if (!ok || got != code)
            faults.push_back("from UTF-16 " + Hex(Unit(unit)) + ": got " + Hex(got) + " want " + Hex(code));
    }
    return faults;
}

}  // namespace

TEST(ConversionTables, EveryPageMatchesItsSourceBothWays) {
    if (!HavePython())
        GTEST_SKIP() << PythonPath() << " not found: the mapping sources are unavailable";
    if (std::system("perl -MEncode -e 1 2>/dev/null") != 0)
        GTEST_SKIP() << "perl with Encode not found: the mapping sources are unavailable";
    testsupport::TempDir dir;
    const std::string refPath = dir.file("reference.txt");
    const std::string command = std::string(PythonPath()) + " " + Generator() + " --reference " + refPath;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    std::map<int, PageReference> pages = LoadReference(refPath);
    ASSERT_GE(pages.size(), 100u);
    pages[51936] = pages[936];  // 51936 holds the data of 936
    for (const auto& [codePage, ref] : pages) {
        if (!ConversionTables::hasRoute(codePage))
            continue;
        SCOPED_TRACE("code page " + std::to_string(codePage));
        const std::vector<std::string> faults = WalkPage(codePage, ref);
        EXPECT_TRUE(faults.empty()) << faults.size() << " faults, first: " << faults.front();
    }
}

TEST(ConversionTables, StoredFormOfLatin1) {
    // "c", then Base64 of magic, size and a bzip2 stream of the table proper.
    const textlib_tables::StoredTable* stored = textlib_tables::storedTable(28591);
    ASSERT_NE(stored, nullptr);
    std::string text;
    for (uint32_t i = 0; i < stored->pieceCount; ++i)
        text += stored->pieces[i];
    ASSERT_EQ(text.substr(0, 6), "c4aeUs");
    DataBuffer packed;
    ASSERT_TRUE(brelkin::TableBase64::decode(text.c_str() + 1, static_cast<uint32_t>(text.size() - 1), packed));
    const std::string head(reinterpret_cast<const char*>(packed.getData()), 8);
    ASSERT_EQ(Hex(head.substr(0, 4)), "e1a794b3");
    const uint32_t size = static_cast<uint8_t>(head[4]) | static_cast<uint8_t>(head[5]) << 8;
    DataBuffer table;
    table.ensureCapacity(size + 20);
    ASSERT_TRUE(brelkin::BrelkinBzip2::unpackInto(packed.getData() + 8, packed.getSize() - 8, table));
    ASSERT_EQ(table.getSize(), size);
    const std::string proper(reinterpret_cast<const char*>(table.getData()), 8);
    // Flags, then (code delta, Unicode delta): (0xA0, 0x00A0), (1, 1).
    EXPECT_EQ(Hex(proper), "6175a0a000010100");
}

TEST(ConversionTables, PagesWithoutRouteConvertToNothing) {
    for (int codePage : {28600, 28601, 52936}) {
        SCOPED_TRACE(codePage);
        bool ok = true;
        EXPECT_EQ(Convert(codePage, 65001, "\xE0", &ok), "");
        EXPECT_FALSE(ok);
        EXPECT_EQ(Convert(65001, codePage, "a", &ok), "");
        EXPECT_FALSE(ok);
    }
}

TEST(ConversionTables, ShiftJisTwoByteCodesWrapAtSixteenBits) {
    // 0x814E follows 0x8198 in rising Unicode order: a delta of 0xFFB6.
    EXPECT_EQ(Convert(932, 1200, "\x81\x4E"), Unit(0x00A8));
    EXPECT_EQ(Convert(932, 1200, "\x81\x98"), Unit(0x00A7));
    EXPECT_EQ(Convert(1200, 932, Unit(0x00A8)), "\x81\x4E");
}

TEST(ConversionTables, AsciiPassesAroundMultiByteTables) {
    const HashConvert* table = ConversionTables::multiByteToUnicode(932);
    ASSERT_NE(table, nullptr);
    uint8_t value[256];
    uint32_t valueLen = 99;
    const uint8_t key = 0x41;
    EXPECT_FALSE(table->lookup(&key, 1, value, valueLen));
    EXPECT_EQ(valueLen, 0u);
    EXPECT_EQ(Convert(932, 1200, "A"), Unit('A'));
}

TEST(ConversionTables, BestFitEntriesGoOneWayOnly) {
    EXPECT_EQ(Convert(1200, 932, Unit(0x00A5)), "\x5C");
    EXPECT_EQ(Convert(1200, 932, Unit(0x00A0)), " ");
    EXPECT_EQ(Convert(932, 1200, "\x5C"), Unit(0x5C));
}

TEST(ConversionTables, MacJapaneseIs932WithItsDifferences) {
    // Removed private-use characters are gone both ways; the overrides hold.
    bool ok = true;
    EXPECT_EQ(Convert(1200, 10001, Unit(0xF8F0), &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(Convert(10001, 1200, "\xA0"), Unit(0x00A0));
    EXPECT_EQ(Convert(10001, 1200, "\xFD"), Unit(0x00A9));
    EXPECT_EQ(Convert(1200, 10001, Unit(0x2122)), "\xFE");
    EXPECT_EQ(Convert(10001, 1200, "\x82\xA0"), Unit(0x3042));
    EXPECT_EQ(Convert(932, 1200, "\xA0"), Unit(0xF8F0));
}

TEST(ConversionTables, SingleByteLookupKeepsZeroForUnmappedBytes) {
    const brelkin::UnicodeLookup* lookup = ConversionTables::singleByteToUnicode(1252);
    ASSERT_NE(lookup, nullptr);
    EXPECT_EQ(lookup->get(0), 0);
    EXPECT_EQ(lookup->get(0x81), 0);  // unassigned in 1252
    EXPECT_EQ(lookup->get(0x80), 0x20AC);
    EXPECT_EQ(lookup->get(0x41), 0x41);
}

TEST(ConversionTables, BrokenConstantsLeaveTheTableAsItWas) {
    struct Case {
        const char* name;
        const char* text;
    } cases[] = {
        {"empty", ""},
        {"unknown layer", "zAAAA"},
        {"not base64", "c!!!!"},
        {"wrong magic", "cAAAAAAAAAAAAAAA"},
        {"magic, broken stream", "c4aeUsyAAAAAAAAAAAAA"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HashConvert table;
        table.initialize(7);
        EXPECT_FALSE(ConversionTables::loadTableText(c.text, table, true));
        for (uint32_t i = 0; i < 7; ++i)
            EXPECT_TRUE(table.isBucketEmpty(i));
    }
}

TEST(HashConvert, FirstInsertOfAKeyWins) {
    HashConvert table;
    table.initialize(5);
    const uint8_t key[2] = {0x12, 0x34};
    table.insert(key, 2, reinterpret_cast<const uint8_t*>("a"), 1);
    table.insert(key, 2, reinterpret_cast<const uint8_t*>("bb"), 2);
    uint8_t out[256];
    uint32_t outLen = 0;
    ASSERT_TRUE(table.lookup(key, 2, out, outLen));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), outLen), "a");
    // The same first byte with another length is another key.
    EXPECT_FALSE(table.lookup(key, 1, out, outLen));
    EXPECT_EQ(outLen, 0u);
}

TEST(HashConvert, RemovingTheLastEntryFreesTheBucket) {
    HashConvert table;
    table.initialize(3);
    const uint8_t a[1] = {3}, b[1] = {6}, value[1] = {9};  // both in bucket 0
    table.insert(a, 1, value, 1);
    table.insert(b, 1, value, 1);
    table.remove(a, 1);
    EXPECT_FALSE(table.isBucketEmpty(0));
    uint8_t out[256];
    uint32_t outLen = 0;
    EXPECT_TRUE(table.lookup(b, 1, out, outLen));
    table.remove(b, 1);
    EXPECT_TRUE(table.isBucketEmpty(0));
}

TEST(HashConvert, InvertKeepsTheFirstOfCollidingValues) {
    HashConvert forward, inverse;
    forward.initialize(1);
    inverse.initialize(4);
    const uint8_t u1[2] = {0xA5, 0x00}, u2[2] = {0x5C, 0x00}, code[1] = {0x5C};
    forward.insert(u1, 2, code, 1);
    forward.insert(u2, 2, code, 1);
    forward.invertInto(inverse);
    uint8_t out[256];
    uint32_t outLen = 0;
    ASSERT_TRUE(inverse.lookup(code, 1, out, outLen));
    EXPECT_EQ(Hex(std::string(reinterpret_cast<char*>(out), outLen)), "a500");
}
