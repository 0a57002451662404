// ConversionTablesTest.cpp - the packed tables against their mapping sources

#include <cstdlib>
#include <filesystem>
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

std::string PythonPath() {
    const char* env = std::getenv("TELMORAQ_PYTHON");
    return env && *env ? env : "/usr/bin/python3";
}

std::string Hex(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes)
        out += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
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

void Put(HashConvert& table, const std::string& key, const std::string& value) {
    table.insert(reinterpret_cast<const uint8_t*>(key.data()), static_cast<uint32_t>(key.size()),
                 reinterpret_cast<const uint8_t*>(value.data()), static_cast<uint32_t>(value.size()));
}

std::string Find(const HashConvert& table, const std::string& key) {
    uint8_t out[256];
    uint32_t outLen = 0;
    table.lookup(reinterpret_cast<const uint8_t*>(key.data()), static_cast<uint32_t>(key.size()), out, outLen);
    return std::string(reinterpret_cast<const char*>(out), outLen);
}

}  // namespace

TEST(ConversionTables, EveryPageMatchesItsSourceBothWays) {
    if (!std::filesystem::exists(PythonPath()))
        GTEST_SKIP() << PythonPath() << " not found: the mapping sources are unavailable";
    if (std::system("perl -MEncode -e 1 2>/dev/null") != 0)
        GTEST_SKIP() << "perl with Encode not found: the mapping sources are unavailable";
    testsupport::TempDir dir;
    const std::string refPath = dir.file("reference.txt");
    const std::string command =
        PythonPath() + " " + TELMORAQ_SOURCE_DIR + "/tools/tablegen/tablegen.py --reference " + refPath;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    // Every mapping the source gives, both ways, through the real conversion.
    std::istringstream in(testsupport::ReadFile(refPath));
    std::map<int, std::vector<std::string>> faults;
    std::vector<int> routed;  // the pages the lines that follow belong to
    size_t pages = 0;
    for (std::string kind, a, b; in >> kind >> a >> b;) {
        if (kind == "page") {
            const int page = std::stoi(a);
            ++pages;
            routed.clear();
            for (int codePage : {page, page == 936 ? 51936 : 0})  // 51936 holds the data of 936
                if (codePage && ConversionTables::hasRoute(codePage)) routed.push_back(codePage);
            continue;
        }
        for (int codePage : routed) {
            bool ok = false;
            std::string got, want;
            if (kind == "d") {
                want = Unit(std::stoul(b, nullptr, 16));
                // Mac Arabic reorders and remaps bytes before the table: ask the table.
                got = codePage == 10004 ? TableUnit(codePage, FromHex(a), &ok) : Convert(codePage, 1200, FromHex(a), &ok);
            } else if (kind == "e") {
                want = FromHex(b);
                got = Convert(1200, codePage, Unit(std::stoul(a, nullptr, 16)), &ok);
            }
            if (!ok || got != want) faults[codePage].push_back(kind + " " + a + " " + b + ": got " + Hex(got));
        }
    }
    EXPECT_GE(pages, 100u);
    for (const auto& [codePage, list] : faults)
        ADD_FAILURE() << "code page " << codePage << ": " << list.size() << " faults, first: " << list.front();
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HashConvert table;
        table.initialize(7);
        EXPECT_FALSE(ConversionTables::loadTableText(c.text, table, true));
        for (uint32_t i = 0; i < 7; ++i)
            EXPECT_TRUE(table.isBucketEmpty(i));
    }
}

// First insert winning is what makes best-fit entries one-way; the best-fit
// conversion cases pin that, this pins it for the inverted Mac Japanese table.
TEST(HashConvert, InvertKeepsTheFirstOfCollidingValues) {
    HashConvert forward, inverse;
    forward.initialize(1);
    inverse.initialize(4);
    Put(forward, std::string("\xA5\x00", 2), "\x5C");
    Put(forward, std::string("\x5C\x00", 2), "\x5C");
    forward.invertInto(inverse);
    EXPECT_EQ(Find(inverse, "\x5C"), std::string("\xA5\x00", 2));
}
