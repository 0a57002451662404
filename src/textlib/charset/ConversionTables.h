// ConversionTables.h - the process-wide store of unpacked conversion tables
//
// Every code page with a table has two slots, to Unicode and from Unicode,
// filled the first time a conversion needs that direction and never freed. A
// single-byte page unpacks into a 256-entry UnicodeLookup one way and a
// HashConvert the other; a multi-byte page into a HashConvert each way, keyed
// by the code or by the UTF-16 unit in the machine's order. 10001 has no table
// of its own: it is 932's table with a difference applied, and its
// to-Unicode side is that table inverted.
//
// Input:       the stored constants of tables/StoredTables.h.
// Diagnostics: a table that cannot be unpacked leaves an empty table in its
//              slot; every lookup through it then fails.
// Limits:      loading takes no lock; a slot is stored only when complete, so
//              two threads that load at once each build one and the later wins.
// Known gaps:  28600, 28601 and 52936 have stored tables, but no conversion
//              route reaches them: hasRoute() says no.
// See also:    HashConvert.h, UnicodeLookup.h, EncodingConvert.h
#pragma once

#include <cstdint>

namespace brelkin {

class HashConvert;
class UnicodeLookup;
struct DenseFromUnicode;
struct DenseToUnicode;

class ConversionTables {
public:
    // Whether a conversion route reaches the table of this page.
    static bool hasRoute(int codePage);
    static bool isMultiByte(int codePage);

    // Fill the slot of the page if it is empty.
    static void loadToUnicode(int codePage);
    static void loadFromUnicode(int codePage);

    // The slots, loaded on first use; null for a page without a route.
    static const UnicodeLookup* singleByteToUnicode(int codePage);
    static const HashConvert* multiByteToUnicode(int codePage);
    static const HashConvert* fromUnicode(int codePage);
    // Flat copies of those, made on first use; null where a table does not
    // fit the flat form (the hash table then serves).
    static const DenseFromUnicode* denseFromUnicode(int codePage);
    static const DenseToUnicode* denseToUnicode(int codePage);

    // Unpacks one stored constant into `table`; false when it gives nothing,
    // and then `table` stays as it was.
    static bool loadTableText(const char* text, HashConvert& table, bool fromUnicode);
};

}  // namespace brelkin
