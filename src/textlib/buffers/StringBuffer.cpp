// StringBuffer.cpp - the engine's growable, always terminated 8-bit string
//
// See StringBuffer.h
#include "textlib/buffers/StringBuffer.h"

#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "platform/EventLog.h"
#include "platform/SystemError.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/ExtPtrArray.h"

namespace brelkin {

namespace {

constexpr uint8_t kLiveMagic = 0xAA;
constexpr int kDefaultCapacity = 202;
constexpr int kFallbackCapacity = 4;
constexpr int kDefaultGrowBy = 200;
constexpr int kMaxGrowBy = 500000;
constexpr int kTakenGrowBy = 1024;

// Where every buffer points when no memory could be had. Never written, never freed.
char g_sharedEmpty[1] = {0};

bool isBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool isSpaceOrTab(unsigned char c) { return c == ' ' || c == '\t'; }

// Only a-z fold to A-Z: bytes above 0x7F compare exactly.
unsigned char foldAscii(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - 0x20 : c; }

bool equalFolded(const char* a, const char* b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (foldAscii(a[i]) != foldAscii(b[i])) return false;
    }
    return true;
}

// First index of `find` in `text` with a-z folded; -1 when absent.
long findFolded(const char* text, size_t textLen, const char* find, size_t findLen) {
    if (findLen > textLen) return -1;
    for (size_t i = 0; i + findLen <= textLen; ++i) {
        if (equalFolded(text + i, find, findLen)) return static_cast<long>(i);
    }
    return -1;
}

// Case tables: ASCII, plus 0xC0-0xDF down and 0xE0-0xFF up by 0x20. That
// pairs 0xD7 with 0xF7 and 0xDF with 0xFF, which are no letter pair; kept,
// since stored names and keys were compared in this form.
struct CaseTables {
    unsigned char lower[256] = {};
    unsigned char upper[256] = {};
    constexpr CaseTables() {
        for (int c = 0; c < 256; ++c) {
            lower[c] = static_cast<unsigned char>(
                (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDF) ? c + 0x20 : c);
            upper[c] = static_cast<unsigned char>(
                (c >= 'a' && c <= 'z') || c >= 0xE0 ? c - 0x20 : c);
        }
    }
};
constexpr CaseTables g_case;  // built at compile time: safe in static initializers

StringBuffer* makeToken(const char* bytes, int length) {
    auto* token = new StringBuffer(length + 1);
    token->appendN(bytes, length);
    token->minimize();
    return token;
}

}  // namespace

inline void StringBuffer::checkMagic() const {
    if (m_magic == kLiveMagic) return;
    std::fputs("StringBuffer: bad magic byte: object destroyed or corrupted\n", stderr);
    std::abort();
}

// Allocates the first block, trying a small one and then the shared empty.
void StringBuffer::initBlock(int capacity, int fallbackCapacity) {
    m_length = 0;
    m_data = static_cast<char*>(std::malloc(capacity));
    if (!m_data && fallbackCapacity > 0) {
        capacity = fallbackCapacity;
        m_data = static_cast<char*>(std::malloc(capacity));
    }
    if (!m_data) {
        m_data = g_sharedEmpty;
        capacity = 1;
    }
    m_capacity = capacity;
    m_data[0] = 0;
}

StringBuffer::StringBuffer() : m_magic(kLiveMagic), m_mode(0), m_growBy(kDefaultCapacity) {
    initBlock(kDefaultCapacity, kFallbackCapacity);
}

StringBuffer::StringBuffer(const char* text)
    : m_magic(kLiveMagic), m_mode(0), m_growBy(kDefaultGrowBy) {
    if (!text) {
        initBlock(kFallbackCapacity, 0);
        return;
    }
    size_t length = std::strlen(text);
    initBlock(length < INT_MAX ? static_cast<int>(length) + 1 : 1, 0);
    if (m_data != g_sharedEmpty) {
        std::memcpy(m_data, text, length + 1);
        m_length = static_cast<int>(length);
    }
}

StringBuffer::StringBuffer(int initialSize)
    : m_magic(kLiveMagic), m_mode(0), m_growBy(initialSize > 0 ? initialSize : kDefaultGrowBy) {
    initBlock(m_growBy, 0);
}

StringBuffer::StringBuffer(const StringBuffer& other)
    : BrelkinObject(other), m_magic(kLiveMagic), m_mode(other.m_mode), m_growBy(kDefaultGrowBy) {
    other.checkMagic();
    initBlock(other.m_length + 1, 0);
    if (m_data != g_sharedEmpty) {
        std::memcpy(m_data, other.m_data, other.m_length + 1);
        m_length = other.m_length;
    }
}

StringBuffer& StringBuffer::operator=(const StringBuffer& other) {
    setFrom(other);
    m_mode = other.m_mode;
    return *this;
}

StringBuffer::~StringBuffer() {
    m_magic = 0;
    releaseBlock();
    // Poison: a use after destruction shows as an obviously bad pointer.
    m_data = reinterpret_cast<char*>(static_cast<uintptr_t>(0xDDDDDDDDu));
    m_capacity = m_length = m_growBy = static_cast<int>(0xDDDDDDDDu);
}

void StringBuffer::releaseBlock() {
    if (m_data != g_sharedEmpty) std::free(m_data);
    m_data = g_sharedEmpty;
    m_capacity = 1;
    m_length = 0;
}

void StringBuffer::terminate() {
    if (m_data != g_sharedEmpty) m_data[m_length] = 0;
}

// Moves the text into a block of exactly `newCapacity` bytes; the text stays
// as it was when memory fails.
bool StringBuffer::growTo(int newCapacity) {
    char* block;
    if (m_data == g_sharedEmpty) {
        block = static_cast<char*>(std::malloc(newCapacity));
        if (block) block[0] = 0;
    } else {
        block = static_cast<char*>(std::realloc(m_data, newCapacity));
    }
    if (!block) return false;
    m_data = block;
    m_capacity = newCapacity;
    return true;
}

// The growth rule. Full means no room left for the terminator, so text that
// reaches the capacity exactly grows. The new block holds the text, the
// addition, the slack and `extra`: 1 for most appends, 0 for appendN and
// appendChar, whose blocks are one byte smaller (kept as the rule has it; the
// slack still leaves room for the terminator). The slack then follows the
// capacity, halved, up to its cap; prepend leaves it alone.
bool StringBuffer::growFor(int added, int extra, bool adjustGrowBy) {
    if (static_cast<int64_t>(m_length) + added < m_capacity) return true;
    int64_t wanted = static_cast<int64_t>(m_length) + added + m_growBy + extra;
    int64_t least = static_cast<int64_t>(m_length) + added + 1;
    if (wanted < least) wanted = least;
    if (wanted > INT_MAX) return false;
    if (!growTo(static_cast<int>(wanted))) return false;
    if (adjustGrowBy && m_growBy < m_capacity && m_growBy < kMaxGrowBy) {
        m_growBy = m_capacity / 2 < kMaxGrowBy ? m_capacity / 2 : kMaxGrowBy;
    }
    return true;
}

// ---- appending and setting

bool StringBuffer::append(const char* text) {
    checkMagic();
    if (!text) return true;
    size_t length = std::strlen(text);
    if (length == 0) {
        terminate();
        return true;
    }
    if (length > INT_MAX) return false;
    return appendBytes(text, static_cast<int>(length), 1);
}

bool StringBuffer::appendN(const char* bytes, int count) {
    checkMagic();
    if (!bytes || count < 1) return true;
    return appendBytes(bytes, count, 0);
}

// `extra` as in growFor. The bytes may be a piece of our own text: they are
// found again after the block moved.
bool StringBuffer::appendBytes(const char* bytes, int count, int extra) {
    bool inside = bytes >= m_data && bytes < m_data + m_capacity;
    std::ptrdiff_t offset = inside ? bytes - m_data : 0;
    if (!growFor(count, extra)) return false;
    std::memcpy(m_data + m_length, inside ? m_data + offset : bytes, count);
    m_length += count;
    m_data[m_length] = 0;
    return true;
}

bool StringBuffer::appendChar(char c) {
    checkMagic();
    if (!growFor(1, 0)) return false;
    m_data[m_length++] = c;
    m_data[m_length] = 0;
    return true;
}

bool StringBuffer::appendCharN(char c, int count) {
    checkMagic();
    if (count < 1) return true;
    if (!growFor(count)) return false;
    std::memset(m_data + m_length, static_cast<unsigned char>(c), count);
    m_length += count;
    m_data[m_length] = 0;
    return true;
}

bool StringBuffer::appendBuffer(const StringBuffer& other) {
    checkMagic();
    return appendN(other.m_data, other.m_length);
}

bool StringBuffer::appendData(const DataBuffer& data) {
    checkMagic();
    if (data.getSize() > INT_MAX) return false;
    return appendN(reinterpret_cast<const char*>(data.getData()), static_cast<int>(data.getSize()));
}

void StringBuffer::appendLastWindowsError() {
    appendWindowsError(platform::GetLastError());
}

// The system's own text, trimmed; nothing when it has none.
void StringBuffer::appendWindowsError(uint32_t code) {
    checkMagic();
    std::string text = platform::SystemMessageText(code);
    size_t first = 0;
    size_t last = text.size();
    while (first < last && std::isspace(static_cast<unsigned char>(text[first]))) ++first;
    while (last > first && std::isspace(static_cast<unsigned char>(text[last - 1]))) --last;
    appendN(text.data() + first, static_cast<int>(last - first));
}

bool StringBuffer::prepend(const char* text) {
    checkMagic();
    if (!text) return true;
    std::string copy(text);  // the text may lie in our own block
    if (copy.empty()) {
        terminate();
        return true;
    }
    if (copy.size() > INT_MAX) return false;
    int count = static_cast<int>(copy.size());
    if (!growFor(count, 1, false)) return false;
    std::memmove(m_data + count, m_data, m_length + 1);
    std::memcpy(m_data, copy.data(), count);
    m_length += count;
    return true;
}

bool StringBuffer::setString(const char* text) {
    checkMagic();
    if (!text) return true;
    if (text >= m_data && text < m_data + m_capacity) {
        size_t length = std::strlen(text);
        std::memmove(m_data, text, length + 1);
        m_length = static_cast<int>(length);
        return true;
    }
    clear();
    return append(text);
}

bool StringBuffer::setFrom(const StringBuffer& other) {
    checkMagic();
    if (&other == this) return true;
    clear();
    return appendN(other.m_data, other.m_length);
}

bool StringBuffer::takeData(DataBuffer& source) {
    checkMagic();
    clear();
    uint32_t size = source.getSize();
    if (size < 2) return true;
    if (size > static_cast<uint32_t>(INT_MAX) || source.getCapacity() > static_cast<uint32_t>(INT_MAX))
        return false;
    // A borrowed block is not the source's to give away: copy it.
    if (source.isBorrowed()) return appendN(reinterpret_cast<const char*>(source.getData()), size - 1);
    releaseBlock();
    m_data = reinterpret_cast<char*>(source.getData());
    m_capacity = static_cast<int>(source.getCapacity());
    m_length = static_cast<int>(size) - 1;
    m_data[m_length] = 0;
    m_growBy = kTakenGrowBy;
    source.releaseData();
    return true;
}

void StringBuffer::swapWith(StringBuffer& other) {
    checkMagic();
    other.checkMagic();
    std::swap(m_mode, other.m_mode);
    std::swap(m_data, other.m_data);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_length, other.m_length);
    std::swap(m_growBy, other.m_growBy);
}

bool StringBuffer::ensureFree(int count, int /*unused*/) {
    checkMagic();
    if (count < 1) return true;
    return growFor(count);
}

char* StringBuffer::reserveTail(int count) {
    checkMagic();
    if (count < 0 || !growFor(count) || m_data == g_sharedEmpty) return nullptr;
    return m_data + m_length;
}

void StringBuffer::commitTail(int written) {
    checkMagic();
    if (written < 0) written = 0;
    if (written > m_capacity - 1 - m_length) written = m_capacity - 1 - m_length;
    m_length += written;
    terminate();
}

// ---- reading

bool StringBuffer::isValid() const { return m_magic == kLiveMagic; }

char StringBuffer::getAt(int index) const {
    checkMagic();
    return index >= 0 && index < m_length ? m_data[index] : 0;
}

char StringBuffer::lastChar() const {
    checkMagic();
    return m_length > 0 ? m_data[m_length - 1] : 0;
}

bool StringBuffer::contains(const char* find) const {
    checkMagic();
    if (!find) return false;
    return std::string_view(m_data, m_length).find(find) != std::string_view::npos;
}

bool StringBuffer::containsChar(char c) const {
    checkMagic();
    return std::memchr(m_data, static_cast<unsigned char>(c), m_length) != nullptr;
}

bool StringBuffer::containsIgnoreCase(const char* find) const {
    checkMagic();
    if (!find) return false;
    return findFolded(m_data, m_length, find, std::strlen(find)) >= 0;
}

bool StringBuffer::beginsWith(const char* prefix) const {
    checkMagic();
    if (!prefix) return false;
    size_t n = std::strlen(prefix);
    return n <= static_cast<size_t>(m_length) && std::memcmp(m_data, prefix, n) == 0;
}

bool StringBuffer::beginsWithIgnoreCase(const char* prefix) const {
    checkMagic();
    if (!prefix) return false;
    size_t n = std::strlen(prefix);
    return n <= static_cast<size_t>(m_length) && equalFolded(m_data, prefix, n);
}

bool StringBuffer::endsWith(const char* suffix) const {
    checkMagic();
    if (!suffix) return false;
    size_t n = std::strlen(suffix);
    return n <= static_cast<size_t>(m_length) &&
           std::memcmp(m_data + m_length - n, suffix, n) == 0;
}

bool StringBuffer::equals(const char* text) const {
    checkMagic();
    if (!text) return m_length == 0;
    size_t n = std::strlen(text);
    return n == static_cast<size_t>(m_length) && std::memcmp(m_data, text, n) == 0;
}

bool StringBuffer::equalsIgnoreCase(const char* text) const {
    checkMagic();
    if (!text) return m_length == 0;
    size_t n = std::strlen(text);
    return n == static_cast<size_t>(m_length) && equalFolded(m_data, text, n);
}

int StringBuffer::compare(const char* text) const {
    checkMagic();
    return std::strcmp(m_data, text ? text : "");
}

bool StringBuffer::is7bit(int count) const {
    checkMagic();
    int n = (count <= 0 || count > m_length) ? m_length : count;
    for (int i = 0; i < n; ++i) {
        if (static_cast<unsigned char>(m_data[i]) & 0x80) return false;
    }
    return true;
}

void StringBuffer::setMode(int mode) {
    checkMagic();
    m_mode = static_cast<uint8_t>(mode >= 0 && mode <= 2 ? mode : 0);
}

// ---- editing in place

void StringBuffer::clear() {
    checkMagic();
    m_length = 0;
    terminate();
}

void StringBuffer::secureClear() {
    checkMagic();
    std::memset(m_data, ' ', m_length);
    clear();
}

void StringBuffer::shorten(int count) {
    checkMagic();
    if (count <= 0) return;
    m_length = count >= m_length ? 0 : m_length - count;
    terminate();
}

void StringBuffer::truncateAtChar(char c) {
    checkMagic();
    const void* at = std::memchr(m_data, static_cast<unsigned char>(c), m_length);
    if (!at) return;
    m_length = static_cast<int>(static_cast<const char*>(at) - m_data);
    terminate();
}

void StringBuffer::minimize() {
    checkMagic();
    if (m_capacity <= m_length + 4) return;
    growTo(m_length + 1);
}

void StringBuffer::trimWhere(bool (*blank)(unsigned char)) {
    int end = m_length;
    while (end > 0 && blank(static_cast<unsigned char>(m_data[end - 1]))) --end;
    int start = 0;
    while (start < end && blank(static_cast<unsigned char>(m_data[start]))) ++start;
    if (start > 0) std::memmove(m_data, m_data + start, end - start);
    m_length = end - start;
    terminate();
}

void StringBuffer::trim() {
    checkMagic();
    trimWhere(isBlank);
}

void StringBuffer::trimSpacesTabs() {
    checkMagic();
    trimWhere(isSpaceOrTab);
}

void StringBuffer::removeChar(char c) { removeCharFrom(c, 0); }

void StringBuffer::removeCharFrom(char c, int start) {
    checkMagic();
    if (start < 0) start = 0;
    int out = start;
    for (int i = start; i < m_length; ++i) {
        if (m_data[i] != c) m_data[out++] = m_data[i];
    }
    if (out >= m_length) return;
    m_length = out;
    terminate();
}

void StringBuffer::replaceChar(char from, char to) {
    checkMagic();
    for (int i = 0; i < m_length; ++i) {
        if (m_data[i] == from) m_data[i] = to;
    }
}

void StringBuffer::replaceAnyOf5(const char* set, char to) {
    checkMagic();
    if (!set) return;
    for (int i = 0; i < m_length; ++i) {
        char c = m_data[i];
        if (c == set[0] || c == set[1] || c == set[2] || c == set[3] || c == set[4]) m_data[i] = to;
    }
}

bool StringBuffer::replaceFirst(const char* find, const char* with) {
    checkMagic();
    if (!find || !*find || !with) return false;
    std::string_view text(m_data, m_length);
    size_t at = text.find(find);
    if (at == std::string_view::npos) return false;
    std::string result;
    result.reserve(m_length + std::strlen(with));
    result.append(text.substr(0, at)).append(with).append(text.substr(at + std::strlen(find)));
    clear();
    return appendN(result.data(), static_cast<int>(result.size()));
}

int StringBuffer::replaceAll(const char* find, const char* with) {
    checkMagic();
    if (!find || !*find) return 0;
    // Copies: either argument may lie in our own block.
    const std::string needle(find);
    const std::string insert(with ? with : "");
    std::string_view text(m_data, m_length);
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string_view::npos;
         at = text.find(needle, at + needle.size()))
        ++count;
    if (count == 0) return 0;
    int64_t newLength = static_cast<int64_t>(m_length) +
                        static_cast<int64_t>(count) * (static_cast<int64_t>(insert.size()) -
                                                       static_cast<int64_t>(needle.size()));
    int64_t newCapacity = newLength + m_growBy + 1;
    if (newCapacity > INT_MAX) return 0;
    char* block = static_cast<char*>(std::malloc(newCapacity));
    if (!block) return 0;
    char* out = block;
    size_t from = 0;
    for (size_t at = text.find(needle); at != std::string_view::npos;
         at = text.find(needle, from)) {
        std::memcpy(out, m_data + from, at - from);
        out += at - from;
        std::memcpy(out, insert.data(), insert.size());
        out += insert.size();
        from = at + needle.size();
    }
    std::memcpy(out, m_data + from, m_length - from);
    out += m_length - from;
    *out = 0;
    releaseBlock();
    m_data = block;
    m_capacity = static_cast<int>(newCapacity);
    m_length = static_cast<int>(newLength);
    return static_cast<int>(count);
}

void StringBuffer::toLowerCase() {
    checkMagic();
    auto* p = reinterpret_cast<unsigned char*>(m_data);
    for (int i = 0; i < m_length; ++i) p[i] = g_case.lower[p[i]];
}

void StringBuffer::toUpperCase() {
    checkMagic();
    auto* p = reinterpret_cast<unsigned char*>(m_data);
    for (int i = 0; i < m_length; ++i) p[i] = g_case.upper[p[i]];
}

void StringBuffer::collapseWhitespace() {
    checkMagic();
    int out = 0;
    for (int i = 0; i < m_length; ++i) {
        char c = m_data[i];
        if (c == '\r' || c == '\n' || c == '\t') c = ' ';
        if (c == ' ' && out > 0 && m_data[out - 1] == ' ') continue;
        m_data[out++] = c;
    }
    m_length = out;
    terminate();
}

void StringBuffer::encodeXmlEntities() {
    checkMagic();
    replaceAll("&", "&amp;");
    replaceAll("<", "&lt;");
    replaceAll(">", "&gt;");
    replaceAll("\"", "&quot;");
}

void StringBuffer::toCrlf() {
    checkMagic();
    removeChar('\r');
    int lineFeeds = 0;
    for (int i = 0; i < m_length; ++i) lineFeeds += m_data[i] == '\n';
    if (lineFeeds == 0 || !growFor(lineFeeds)) return;
    // Widen from the back so that every byte moves once.
    int in = m_length;
    int out = m_length + lineFeeds;
    m_data[out] = 0;
    while (in > 0) {
        char c = m_data[--in];
        m_data[--out] = c;
        if (c == '\n') m_data[--out] = '\r';
    }
    m_length += lineFeeds;
}

void StringBuffer::toLf() {
    checkMagic();
    int out = 0;
    for (int i = 0; i < m_length; ++i) {
        if (m_data[i] == '\r' && i + 1 < m_length && m_data[i + 1] == '\n') continue;
        m_data[out++] = m_data[i];
    }
    m_length = out;
    terminate();
}

char* StringBuffer::detach(int* lengthOut) {
    checkMagic();
    char* block = m_data;
    if (block == g_sharedEmpty) {
        block = static_cast<char*>(std::malloc(1));
        if (block) block[0] = 0;
    }
    if (lengthOut) *lengthOut = m_length;
    initBlock(m_growBy, 0);
    return block;
}

// ---- search

const char* StringBuffer::searchIgnoreCase(const char* text, const char* find) {
    if (!text || !find) return nullptr;
    long at = findFolded(text, std::strlen(text), find, std::strlen(find));
    return at < 0 ? nullptr : text + at;
}

const char* StringBuffer::searchBytes(const char* bytes, int length, const char* find) {
    if (!bytes || !find || length <= 0) return nullptr;
    size_t at = std::string_view(bytes, length).find(find);
    return at == std::string_view::npos ? nullptr : bytes + at;
}

// ---- splitting and parsing

// Quotes and backslashes stay in the tokens; they only shield delimiters.
void StringBuffer::split(ExtPtrArray& out, char delimiter, bool useQuotes,
                         bool useBackslash) const {
    checkMagic();
    if (m_length == 0) return;
    bool inQuotes = false;
    int start = 0;
    for (int i = 0; i < m_length; ++i) {
        char c = m_data[i];
        if (useBackslash && c == '\\') {
            if (i + 1 < m_length) ++i;
            continue;
        }
        if (useQuotes && c == '"') {
            inQuotes = !inQuotes;
            continue;
        }
        if (inQuotes || c != delimiter) continue;
        out.append(makeToken(m_data + start, i - start));
        start = i + 1;
    }
    out.append(makeToken(m_data + start, m_length - start));
}

// Delimiters at the start or in a row yield no token. An empty delimiter
// cannot split: the whole text is one token.
void StringBuffer::splitByString(const char* delimiter, ExtPtrArray& out, int max) const {
    checkMagic();
    if (m_length == 0) return;
    std::string_view text(m_data, m_length);
    std::string_view delim(delimiter ? delimiter : "");
    if (delim.empty()) {
        out.append(makeToken(m_data, m_length));
        return;
    }
    size_t pos = 0;
    int made = 0;
    while (pos < text.size()) {
        if (text.compare(pos, delim.size(), delim) == 0) {
            pos += delim.size();
            continue;
        }
        size_t end = text.find(delim, pos);
        if (end == std::string_view::npos) end = text.size();
        out.append(makeToken(m_data + pos, static_cast<int>(end - pos)));
        pos = end;
        if (max != 0 && ++made >= max) break;
    }
}

void StringBuffer::getNameValue(StringBuffer& name, StringBuffer& value) const {
    checkMagic();
    name.clear();
    value.clear();
    int i = 0;
    while (i < m_length && isBlank(static_cast<unsigned char>(m_data[i]))) ++i;
    const void* eq = std::memchr(m_data + i, '=', m_length - i);
    int nameEnd = eq ? static_cast<int>(static_cast<const char*>(eq) - m_data) : m_length;
    name.appendN(m_data + i, nameEnd - i);
    name.trim();
    if (!eq) return;
    i = nameEnd + 1;
    while (i < m_length && isBlank(static_cast<unsigned char>(m_data[i]))) ++i;
    if (i < m_length && m_data[i] == '"') ++i;
    value.appendN(m_data + i, m_length - i);
    value.trim();
    if (value.lastChar() == '"') value.shorten(1);
}

}  // namespace brelkin
