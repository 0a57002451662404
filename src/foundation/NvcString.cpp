// NvcString.cpp - the owning, zero-terminated 8-bit string of the foundation
//
// See NvcString.h
#include "foundation/NvcString.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>

namespace {

constexpr size_t kShortFormatSize = 2048;

char* DuplicateText(const char* text) {
    if (text == nullptr) text = "";
    const size_t length = std::strlen(text);
    char* copy = new char[length + 1];
    std::memcpy(copy, text, length + 1);
    return copy;
}

char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string UpperCopy(const char* text) {
    std::string out(text);
    for (char& c : out) c = AsciiUpper(c);
    return out;
}

std::string LowerCopy(const char* text) {
    std::string out(text);
    for (char& c : out) c = AsciiLower(c);
    return out;
}

bool IsTrimmed(char c) { return c == ' ' || c == '\r' || c == '\n' || c == '\t'; }

// Digits outside "0"-"9" and "A"-"F" count as 0, lower-case letters included.
int ScrambleDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 0;
}

int ScrambleByte(const char* pair) { return ScrambleDigit(pair[0]) * 16 + ScrambleDigit(pair[1]); }

// A width or precision of the format walk: from a "*" argument (absolute
// value) or from digits. Advances `p` past it.
size_t TakeFieldSize(const char*& p, va_list& args) {
    if (*p == '*') {
        ++p;
        const long value = va_arg(args, int);
        return static_cast<size_t>(value < 0 ? -value : value);
    }
    size_t value = 0;
    while (*p >= '0' && *p <= '9') {
        if (value < (1u << 30)) value = value * 10 + static_cast<size_t>(*p - '0');
        ++p;
    }
    return value;
}

// The length modifiers that decide how wide an argument is. "h" and "L" are
// the walk's own; "l", "ll", "z", "j", "t" are stepped over as well, since a
// 64-bit argument read with the wrong width would misalign every later one.
struct Modifier {
    int longs = 0;
    bool longDouble = false;
    bool wide = false;  // size_t, intmax_t, ptrdiff_t
};

Modifier TakeModifier(const char*& p) {
    Modifier m;
    for (;; ++p) {
        switch (*p) {
            case 'h': continue;
            case 'L': m.longDouble = true; continue;
            case 'l': ++m.longs; continue;
            case 'z': case 'j': case 't': m.wide = true; continue;
            default: return m;
        }
    }
}

size_t TakeStringArgument(const Modifier& m, va_list& args) {
    if (m.longs > 0) {
        const wchar_t* wide = va_arg(args, const wchar_t*);
        return wide == nullptr ? 8 : std::wcslen(wide) * MB_LEN_MAX;
    }
    const char* text = va_arg(args, const char*);
    return text == nullptr ? 8 : std::strlen(text);
}

void StepIntegerArgument(const Modifier& m, va_list& args) {
    if (m.longs >= 2) (void)va_arg(args, long long);
    else if (m.longs == 1 || m.wide) (void)va_arg(args, long);
    else (void)va_arg(args, int);
}

// The room one conversion needs beyond the format's own length; steps over
// its argument. Unknown conversions take 30 and no argument.
size_t TakeConversion(const char*& p, va_list& args) {
    while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) ++p;
    size_t room = TakeFieldSize(p, args);
    if (*p == '.') {
        ++p;
        room += TakeFieldSize(p, args);
    }
    const Modifier m = TakeModifier(p);
    room += 30;
    const char conversion = *p;
    if (conversion == '\0') return room;
    ++p;
    switch (conversion) {
        case 's': room += TakeStringArgument(m, args); break;
        case 'd': case 'i': case 'o': case 'u': case 'x': case 'X': case 'c':
            StepIntegerArgument(m, args);
            break;
        case 'p': case 'n': (void)va_arg(args, void*); break;
        case 'e': case 'E': case 'f': case 'g': case 'G':
            if (m.longDouble) (void)va_arg(args, long double);
            else (void)va_arg(args, double);
            break;
        default: break;
    }
    return room;
}

// The estimate that sizes Format's buffer: the format's length plus one, and
// per conversion its width, precision, 30 and the length of a string argument.
// Kept as the sizing rule although vsnprintf could measure: a result beyond it
// (say "%f" of 1e300) is cut, never written past the buffer.
size_t EstimateFormatRoom(const char* format, va_list args) {
    va_list walk;
    va_copy(walk, args);
    size_t room = std::strlen(format) + 1;
    for (const char* p = format; *p != '\0';) {
        if (*p++ != '%') continue;
        room += TakeConversion(p, walk);
    }
    va_end(walk);
    return room;
}

}  // namespace

CNvcString::CNvcString() : m_text(DuplicateText("")) {}

CNvcString::CNvcString(const char* text) : m_text(DuplicateText(text)) {}

CNvcString::CNvcString(const CNvcString& other) : m_text(DuplicateText(other.m_text)) {}

CNvcString::CNvcString(CNvcString&& other) noexcept : m_text(other.m_text) {
    other.m_text = DuplicateText("");
}

CNvcString::CNvcString(int number) : m_text(DuplicateText("")) { Assign(number); }

CNvcString::CNvcString(char c) : m_text(DuplicateText("")) { Assign(c); }

CNvcString& CNvcString::operator=(const CNvcString& other) { return Assign(other); }

CNvcString& CNvcString::operator=(CNvcString&& other) noexcept {
    if (this == &other) return *this;
    char* taken = other.m_text;
    other.m_text = DuplicateText("");
    other.ResetTokenCursor();
    TakeBuffer(taken);
    return *this;
}

CNvcString& CNvcString::operator=(const char* text) { return Assign(text); }

CNvcString::~CNvcString() {
    delete[] m_text;
    m_text = nullptr;
    delete[] m_formatBuffer;
    m_formatBuffer = nullptr;
}

// Installs a new buffer; a cached token position into the old one is dropped.
void CNvcString::TakeBuffer(char* text) {
    delete[] m_text;
    m_text = text;
    ResetTokenCursor();
}

void CNvcString::ResetTokenCursor() {
    m_tokenIndex = -1;
    m_tokenPosition = nullptr;
}

size_t CNvcString::GetLength() const { return std::strlen(m_text); }

CNvcString& CNvcString::Assign(const char* text) {
    // Copy first: `text` may point into our own buffer.
    TakeBuffer(DuplicateText(text));
    return *this;
}

CNvcString& CNvcString::Assign(const CNvcString& other) {
    if (this == &other) return *this;
    return Assign(other.m_text);
}

CNvcString& CNvcString::Assign(char c) {
    const char text[2] = {c, '\0'};
    return Assign(text);
}

CNvcString& CNvcString::Assign(int number) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", number);
    return Assign(text);
}

CNvcString& CNvcString::Clear() { return Assign(""); }

CNvcString& CNvcString::Append(const char* text) {
    if (text == nullptr || *text == '\0') return *this;
    const size_t own = std::strlen(m_text);
    const size_t added = std::strlen(text);
    char* joined = new char[own + added + 1];
    std::memcpy(joined, m_text, own);
    std::memcpy(joined + own, text, added + 1);
    TakeBuffer(joined);
    return *this;
}

CNvcString& CNvcString::Append(const CNvcString& other) {
    const CNvcString copy(other);  // `other` may be this very string
    return Append(copy.m_text);
}

// A zero byte appends nothing, as "%c" of zero ends the text at once.
CNvcString& CNvcString::Append(char c) {
    const char text[2] = {c, '\0'};
    return Append(text);
}

CNvcString& CNvcString::Append(unsigned char c) { return Append(static_cast<char>(c)); }

CNvcString& CNvcString::Append(long number) {
    char text[32];
    std::snprintf(text, sizeof text, "%ld", number);
    return Append(text);
}

CNvcString& CNvcString::AppendIfMissing(char c) {
    const size_t length = GetLength();
    if (length > 0 && m_text[length - 1] == c) return *this;
    return Append(c);
}

CNvcString& CNvcString::AddBackslash() { return AppendIfMissing('\\'); }

CNvcString& CNvcString::MakeUpper() {
    for (char* p = m_text; *p != '\0'; ++p) *p = AsciiUpper(*p);
    return *this;
}

CNvcString& CNvcString::MakeLower() {
    for (char* p = m_text; *p != '\0'; ++p) *p = AsciiLower(*p);
    return *this;
}

int CNvcString::Equals(const char* text) const {
    return std::strcmp(m_text, text == nullptr ? "" : text) == 0 ? 1 : 0;
}

int CNvcString::NotEquals(const char* text) const { return Equals(text) ? 0 : 1; }

int CNvcString::EqualNoCase(const char* text) const {
    if (text == nullptr) text = "";
    return UpperCopy(m_text) == UpperCopy(text) ? 1 : 0;
}

int CNvcString::StartsWith(const char* text, int caseSensitive) const {
    if (text == nullptr) text = "";
    if (caseSensitive) return std::strncmp(m_text, text, std::strlen(text)) == 0 ? 1 : 0;
    return UpperCopy(m_text).compare(0, std::strlen(text), UpperCopy(text)) == 0 ? 1 : 0;
}

int CNvcString::Contains(const char* text, int caseSensitive) const {
    if (text == nullptr || *text == '\0') return 0;
    if (caseSensitive) return std::strstr(m_text, text) != nullptr ? 1 : 0;
    return LowerCopy(m_text).find(LowerCopy(text)) != std::string::npos ? 1 : 0;
}

// Searches a folded copy when case does not matter but copies the text out as
// it stood; the remainder after a match is searched anew, so inserted text is
// never searched again.
CNvcString& CNvcString::Replace(const char* find, const char* with, int caseSensitive) {
    if (find == nullptr || *find == '\0') return *this;
    if (with == nullptr) with = "";
    const std::string needle = caseSensitive ? std::string(find) : UpperCopy(find);
    std::string rest(m_text);
    std::string result;
    for (;;) {
        const std::string haystack = caseSensitive ? rest : UpperCopy(rest.c_str());
        const size_t at = haystack.find(needle);
        if (at == std::string::npos) break;
        result.append(rest, 0, at).append(with);
        rest.erase(0, at + needle.size());
    }
    result += rest;
    return Assign(result.c_str());
}

CNvcString& CNvcString::Trim() {
    const char* begin = m_text;
    while (IsTrimmed(*begin)) ++begin;
    const char* end = begin + std::strlen(begin);
    while (end > begin && IsTrimmed(end[-1])) --end;
    return Assign(std::string(begin, end).c_str());
}

CNvcString& CNvcString::Prepend(const char* text, int always) {
    if (text == nullptr) return *this;
    if (!always && StartsWith(text, 1)) return *this;
    const std::string joined = std::string(text) + m_text;
    return Assign(joined.c_str());
}

CNvcString& CNvcString::RemovePrefix(const char* text) {
    if (text == nullptr || !StartsWith(text, 1)) return *this;
    return Assign(m_text + std::strlen(text));
}

CNvcString& CNvcString::RemoveSuffix(const char* text) {
    if (text == nullptr || *text == '\0') return *this;
    const size_t cut = std::strlen(text);
    std::string rest(m_text);
    while (rest.size() >= cut && rest.compare(rest.size() - cut, cut, text) == 0)
        rest.resize(rest.size() - cut);
    return Assign(rest.c_str());
}

CNvcString& CNvcString::CrLfToBars() {
    for (char* p = m_text; p[0] != '\0' && p[1] != '\0'; ++p) {
        if (p[0] == '\r' && p[1] == '\n') {
            p[0] = '|';
            p[1] = '|';
            ++p;
        }
    }
    return *this;
}

CNvcString& CNvcString::FormatShort(const char* format, ...) {
    if (m_formatBuffer == nullptr) m_formatBuffer = new (std::nothrow) char[kShortFormatSize];
    if (m_formatBuffer == nullptr || format == nullptr) return Clear();
    m_formatBuffer[0] = '\0';  // stays empty if the conversion fails
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_formatBuffer, kShortFormatSize, format, args);
    va_end(args);
    m_formatBuffer[kShortFormatSize - 1] = '\0';
    return Assign(m_formatBuffer);
}

CNvcString& CNvcString::Format(const char* format, ...) {
    if (format == nullptr) return Clear();
    va_list args;
    va_start(args, format);
    const size_t room = EstimateFormatRoom(format, args);
    char* buffer = new (std::nothrow) char[room];
    if (buffer == nullptr) {
        va_end(args);
        return Clear();
    }
    buffer[0] = '\0';
    std::vsnprintf(buffer, room, format, args);
    va_end(args);
    buffer[room - 1] = '\0';
    TakeBuffer(buffer);
    return *this;
}

// Where token `index` begins, or null when there are too few separators. The
// shortcut trusts the cached position only if it still lies inside the text;
// any new buffer has already dropped it.
const char* CNvcString::FindTokenStart(const char* separator, int index) const {
    const size_t step = std::strlen(separator);
    const char* end = m_text + std::strlen(m_text);
    if (m_tokenPosition != nullptr && m_tokenIndex + 1 == index && m_tokenPosition >= m_text &&
        m_tokenPosition <= end) {
        const char* next = std::strstr(m_tokenPosition, separator);
        return next == nullptr ? nullptr : next + step;
    }
    const char* start = m_text;
    for (int i = 0; i < index; ++i) {
        const char* next = std::strstr(start, separator);
        if (next == nullptr) return nullptr;
        start = next + step;
    }
    return start;
}

CNvcString& CNvcString::GetToken(const char* separator, const char* def, CNvcString& out,
                                 int index) {
    std::string token(def == nullptr ? "" : def);  // `def` may live in `out`
    if (separator != nullptr && *separator != '\0' && index >= 0) {
        const char* start = FindTokenStart(separator, index);
        if (start != nullptr) {
            const char* stop = std::strstr(start, separator);
            const std::string piece = stop == nullptr ? std::string(start) : std::string(start, stop);
            m_tokenIndex = index;
            m_tokenPosition = start;
            if (!piece.empty()) token = piece;
        }
    }
    out.Assign(token.c_str());
    return out;
}

long CNvcString::GetTokenInt(const char* separator, long defaultNumber, int index) {
    char def[32];
    std::snprintf(def, sizeof def, "%ld", defaultNumber);
    CNvcString token;
    GetToken(separator, def, token, index);
    return std::atol(token.m_text);
}

int CNvcString::GetTokenCount(const char* separator) {
    CNvcString token;
    int count = 0;
    while (!GetToken(separator, "", token, count).IsEmpty()) ++count;
    return count;
}

CNvcString& CNvcString::Unscramble() {
    const size_t length = GetLength();
    if (length <= 7) return Clear();
    const int keys[3] = {ScrambleByte(m_text), ScrambleByte(m_text + 2), ScrambleByte(m_text + 4)};
    std::string plain;
    for (size_t at = 6, n = 0; at + 1 < length; at += 2, ++n) {
        const int scrambled = ScrambleByte(m_text + at);
        const char byte = static_cast<char>((scrambled + 256 - keys[n % 3]) % 256);
        if (byte == '\0') break;
        plain += byte;
    }
    return Assign(plain.c_str());
}
