// StoredTables.h - the packed conversion tables, as the generator wrote them
//
// Each table is one text constant ("c" + Base64 of magic, size and a bzip2
// stream) kept as a run of pieces of about 400 characters, because a whole
// multi-byte table is too long for one literal. The sources beside this header
// are written by tools/tablegen/tablegen.py and are not edited by hand.
//
// See also: ConversionTables.h (unpacking and the lookups)
#pragma once

#include <cstdint>

namespace textlib_tables {

struct StoredTable {
    const char* const* pieces;
    uint32_t pieceCount;
};

// The stored table of a code page, or null when the page has none. 51936 and
// 52936 share the constant of 936.
const StoredTable* storedTable(uint32_t codePage);

// The difference that turns 932's Unicode-to-charset table into 10001's.
extern const StoredTable kDiff10001;

// 376 Shift-JIS pairs in Base64: the IBM extension characters of JIS rows
// 0x79-0x7C, 94 cells a row, for the ISO-2022-JP decoder.
extern const char kIbmExtensionTable[];

}  // namespace textlib_tables
