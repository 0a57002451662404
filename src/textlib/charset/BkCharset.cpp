// BkCharset.cpp - charset names to Windows code page numbers and back
//
// See BkCharset.h
#include "textlib/charset/BkCharset.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/CodePage.h"

namespace brelkin {

namespace {

// Longer than any name in the table: what is longer cannot match.
constexpr size_t kMaxNameLength = 48;
constexpr size_t kMinNameLength = 3;

bool isTrimmed(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The lowering of StringBuffer::toLowerCase, byte for byte.
char lowerByte(char c) {
    auto u = static_cast<unsigned char>(c);
    if ((u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDF)) u += 0x20;
    return static_cast<char>(u);
}

int lookupName(std::string_view key) {
    using charset_tables::CharsetName;
    const CharsetName* begin = charset_tables::kNames;
    const CharsetName* end = begin + charset_tables::kNameCount;
    const CharsetName* at = std::lower_bound(
        begin, end, key, [](const CharsetName& row, std::string_view k) { return row.name < k; });
    return at != end && at->name == key ? at->codePage : 0;
}

const char* canonicalName(int codePage) {
    using charset_tables::CanonicalName;
    const CanonicalName* begin = charset_tables::kCanonical;
    const CanonicalName* end = begin + charset_tables::kCanonicalCount;
    const CanonicalName* at = std::lower_bound(
        begin, end, codePage, [](const CanonicalName& row, int cp) { return row.codePage < cp; });
    return at != end && at->codePage == codePage ? at->name : nullptr;
}

bool equalsIgnoreAsciiCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        if (lowerByte(*a) != lowerByte(*b)) return false;
    }
    return *a == *b;
}

}  // namespace

int charsetToCodePage(const char* name) {
    if (!name) return 0;
    const char* first = name;
    const char* last = name + std::strlen(name);
    while (first < last && isTrimmed(*first)) ++first;
    while (last > first && isTrimmed(last[-1])) --last;
    size_t length = static_cast<size_t>(last - first);
    if (length < kMinNameLength || length > kMaxNameLength) return 0;
    char key[kMaxNameLength];
    for (size_t i = 0; i < length; ++i) {
        char c = lowerByte(first[i]);
        key[i] = c == '_' ? '-' : c;
    }
    std::string_view normal(key, length);
    if (normal == "ansi") return static_cast<int>(platform::GetACP());
    return lookupName(normal);
}

bool isKnownCharset(const char* name) { return charsetToCodePage(name) != 0; }

bool codePageToName(int codePage, StringBuffer& out) {
    const char* name = canonicalName(codePage);
    if (!name) {
        out.clear();
        return false;
    }
    out.setString(name);
    return true;
}

void _bkCharset::setByCodePage(int codePage) {
    if (!codePageToName(codePage, m_name)) {
        clear();
        return;
    }
    m_codePage = codePage;
}

void _bkCharset::setByName(const char* name) {
    if (!name) return;
    if (std::strcmp(name, "default") == 0 || std::strcmp(name, "x-user-defined") == 0) {
        clear();
        return;
    }
    if (equalsIgnoreAsciiCase(name, "ansi")) {
        setByCodePage(static_cast<int>(platform::GetACP()));
        return;
    }
    if (equalsIgnoreAsciiCase(name, "oem")) {
        setByCodePage(static_cast<int>(platform::GetOEMCP()));
        return;
    }
    int codePage = charsetToCodePage(name);
    if (codePage == 0) {
        clear();
        return;
    }
    // A code page without a canonical name keeps its number and an empty name.
    m_codePage = codePage;
    codePageToName(codePage, m_name);
    m_name.minimize();
}

void _bkCharset::clear() {
    m_name.clear();
    m_codePage = 0;
}

void _bkCharset::copyFrom(const _bkCharset& other) {
    m_name.setFrom(other.m_name);
    m_codePage = other.m_codePage;
}

}  // namespace brelkin
