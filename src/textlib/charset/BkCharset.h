// BkCharset.h - charset names to Windows code page numbers and back
//
// Names meet the engine at its edges (a charset= parameter, a META tag, an
// API argument); inside, code pages are numbers. charsetToCodePage turns a
// name into its number by exact lookup after trimming, lowering and turning
// "_" into "-"; codePageToName gives the one canonical name of a number.
// `_bkCharset` keeps a name and a number in step.
//
// Input:       any bytes; null, short (under 3 characters) and unknown names give 0.
// Diagnostics: none; 0 and false mean unknown.
// Limits:      pure lookups in fixed tables, but "ansi" asks the system's ANSI
//              code page, and _bkCharset "oem" the OEM one.
// Known gaps:  some code pages have names but no canonical name, and two have
//              a canonical name that no name leads to; both kept as listed.
// See also:    BkCharsetTable.cpp (the generated tables), EncodingConvert.h
#pragma once

#include <cstddef>

#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

// 0 when unknown; "ansi" gives the system's ANSI code page.
int charsetToCodePage(const char* name);
bool isKnownCharset(const char* name);
// The canonical name into `out`; false, with `out` cleared, when there is none.
bool codePageToName(int codePage, StringBuffer& out);

// A code page with its canonical name; unset is 0 and "".
class _bkCharset {
public:
    _bkCharset() = default;
    virtual ~_bkCharset() = default;

    // Unset when the code page has no canonical name.
    void setByCodePage(int codePage);
    // Aliases become the canonical name; "default", "x-user-defined" (exact)
    // and unknown names unset; "ansi" and "oem" (any case) are the system's.
    void setByName(const char* name);
    const char* getName() const { return m_name.getString(); }
    int getCodePage() const { return m_codePage; }
    void clear();
    void copyFrom(const _bkCharset& other);

private:
    StringBuffer m_name;
    int m_codePage = 0;
};

namespace charset_tables {

struct CharsetName {
    const char* name;
    int codePage;
};
struct CanonicalName {
    int codePage;
    const char* name;
};

extern const CharsetName kNames[];  // sorted by name
extern const size_t kNameCount;
extern const CanonicalName kCanonical[];  // sorted by code page
extern const size_t kCanonicalCount;

}  // namespace charset_tables

}  // namespace brelkin
