// CodePage.cpp - the system code pages and narrow/wide conversion through iconv
//
// See CodePage.h
#include "platform/CodePage.h"

#include "platform/Registry.h"
#include "platform/SystemError.h"

#include <iconv.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace platform {
namespace {

constexpr const char* kCodePageKey = "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage";
constexpr uint32_t kCpUtf16 = 1200;

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr const char* kWideName = "UTF-16BE";
#else
constexpr const char* kWideName = "UTF-16LE";
#endif

struct CodePageName {
    uint32_t codePage;
    const char* iconvName;
};

// The one table from Windows code page numbers to the C library's converters:
// the Windows variants ("CP932", not "SHIFT_JIS"), whose mappings match.
constexpr CodePageName kCodePages[] = {
    {37, "IBM037"},        {437, "CP437"},        {500, "IBM500"},       {737, "CP737"},
    {775, "CP775"},        {850, "CP850"},        {852, "CP852"},        {855, "CP855"},
    {857, "CP857"},        {858, "CP858"},        {860, "CP860"},        {861, "CP861"},
    {862, "CP862"},        {863, "CP863"},        {864, "CP864"},        {865, "CP865"},
    {866, "CP866"},        {869, "CP869"},        {874, "CP874"},        {932, "CP932"},
    {936, "CP936"},        {949, "CP949"},        {950, "CP950"},        {1200, "UTF-16LE"},
    {1201, "UTF-16BE"},    {1250, "CP1250"},      {1251, "CP1251"},      {1252, "CP1252"},
    {1253, "CP1253"},      {1254, "CP1254"},      {1255, "CP1255"},      {1256, "CP1256"},
    {1257, "CP1257"},      {1258, "CP1258"},      {1361, "JOHAB"},       {10000, "MACINTOSH"},
    {12000, "UTF-32LE"},   {12001, "UTF-32BE"},   {20127, "ASCII"},      {20866, "KOI8-R"},
    {20932, "EUC-JP"},     {21866, "KOI8-U"},     {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"}, {28594, "ISO-8859-4"}, {28595, "ISO-8859-5"}, {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"}, {28598, "ISO-8859-8"}, {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"}, {50220, "ISO-2022-JP"}, {50225, "ISO-2022-KR"}, {51932, "EUC-JP"},
    {51936, "GB2312"},     {51949, "EUC-KR"},     {52936, "HZ"},         {54936, "GB18030"},
    {65000, "UTF-7"},      {65001, "UTF-8"},
};

std::mutex g_cacheMutex;
bool g_cached = false;
uint32_t g_acp = 1252;
uint32_t g_oemcp = 437;

uint32_t ReadCodePageValue(const char* name, uint32_t fallback) {
    RegistryValue value;
    if (QueryRegistryValue(HKEY_LOCAL_MACHINE, kCodePageKey, name, value, true) != 0) return fallback;
    if (value.type != kRegSz) return fallback;
    char* end = nullptr;
    const unsigned long number = std::strtoul(value.data.c_str(), &end, 10);
    if (end == value.data.c_str() || number == 0 || number > 0xFFFF) return fallback;
    return static_cast<uint32_t>(number);
}

void LoadCodePages() {
    std::lock_guard<std::mutex> guard(g_cacheMutex);
    if (g_cached) return;
    g_acp = ReadCodePageValue("ACP", 1252);
    g_oemcp = ReadCodePageValue("OEMCP", 437);
    g_cached = true;
}

const char* IconvName(uint32_t codePage) {
    if (codePage == kCpAcp) codePage = GetACP();
    if (codePage == kCpOemCp) codePage = GetOEMCP();
    for (const CodePageName& row : kCodePages)
        if (row.codePage == codePage) return row.iconvName;
    return nullptr;
}

// Opening a conversion loads its module each time; a thread keeps the ones it
// has used, each reset to its initial state before a conversion.
class ConverterCache {
public:
    ~ConverterCache() {
        for (auto& entry : open_) ::iconv_close(entry.second);
    }
    iconv_t Get(const char* to, const char* from) {
        const auto key = std::make_pair(std::string(to), std::string(from));
        const auto found = open_.find(key);
        if (found != open_.end()) {
            ::iconv(found->second, nullptr, nullptr, nullptr, nullptr);
            return found->second;
        }
        iconv_t cd = ::iconv_open(to, from);
        if (cd != reinterpret_cast<iconv_t>(-1)) open_.emplace(key, cd);
        return cd;
    }

private:
    std::map<std::pair<std::string, std::string>, iconv_t> open_;
};

// Converts the whole input with the unmappable or broken units replaced: each
// failing step of `unitSize` input bytes gives `replacement` once.
bool Convert(const char* to, const char* from, const char* in, size_t inBytes, size_t unitSize,
             const std::string& replacement, std::string& out) {
    thread_local ConverterCache converters;
    iconv_t cd = converters.Get(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    out.clear();
    char buffer[4096];
    char* src = const_cast<char*>(in);
    size_t left = inBytes;
    while (left > 0) {
        char* dst = buffer;
        size_t room = sizeof buffer;
        const size_t rc = ::iconv(cd, &src, &left, &dst, &room);
        const int err = errno;
        out.append(buffer, static_cast<size_t>(dst - buffer));
        if (rc != static_cast<size_t>(-1) || err == E2BIG) continue;
        out += replacement;
        if (err == EINVAL) break;  // a sequence cut off by the end: one replacement for it
        const size_t skip = left < unitSize ? left : unitSize;
        src += skip;
        left -= skip;
    }
    char* dst = buffer;
    size_t room = sizeof buffer;
    ::iconv(cd, nullptr, nullptr, &dst, &room);  // the closing shift sequence, if any
    out.append(buffer, static_cast<size_t>(dst - buffer));
    return true;
}

// The bytes for "?" or U+FFFD in the target encoding.
std::string Replacement(const char* to, char16_t unit) {
    std::string out;
    const char16_t units[1] = {unit};
    if (!Convert(to, kWideName, reinterpret_cast<const char*>(units), 2, 2, "", out)) return "?";
    return out;
}

size_t WideLength(const char16_t* wide, int wideLen) {
    if (wideLen >= 0) return static_cast<size_t>(wideLen);
    size_t n = 0;
    while (wide[n] != 0) ++n;
    return n + 1;  // the terminating zero is converted too
}

}  // namespace

// Tests that change the registry's code pages call this to read them anew.
void ResetCodePageCacheForTest() {
    std::lock_guard<std::mutex> guard(g_cacheMutex);
    g_cached = false;
}

uint32_t GetACP() {
    LoadCodePages();
    return g_acp;
}

uint32_t GetOEMCP() {
    LoadCodePages();
    return g_oemcp;
}

int WideCharToMultiByte(uint32_t codePage, const char16_t* wide, int wideLen, char* out,
                        int outSize) {
    const char* name = IconvName(codePage);
    if (wide == nullptr || wideLen == 0 || wideLen < -1 || outSize < 0 || name == nullptr) {
        SetLastError(kErrorInvalidParameter);
        return 0;
    }
    std::string bytes;
    const size_t units = WideLength(wide, wideLen);
    if (!Convert(name, kWideName, reinterpret_cast<const char*>(wide), units * 2, 2,
                 Replacement(name, u'?'), bytes) ||
        bytes.size() > 0x7FFFFFFF) {
        SetLastError(kErrorInvalidParameter);
        return 0;
    }
    if (outSize == 0) return static_cast<int>(bytes.size());
    if (out == nullptr || bytes.size() > static_cast<size_t>(outSize)) {
        SetLastError(kErrorInsufficientBuffer);
        return 0;
    }
    std::memcpy(out, bytes.data(), bytes.size());
    return static_cast<int>(bytes.size());
}

int MultiByteToWideChar(uint32_t codePage, const char* text, int len, char16_t* out,
                        int outSize) {
    const char* name = IconvName(codePage);
    if (text == nullptr || len == 0 || len < -1 || outSize < 0 || name == nullptr) {
        SetLastError(kErrorInvalidParameter);
        return 0;
    }
    const size_t bytes = len >= 0 ? static_cast<size_t>(len) : std::strlen(text) + 1;
    const uint32_t resolved = codePage == kCpAcp ? GetACP() : codePage == kCpOemCp ? GetOEMCP() : codePage;
    // A broken UTF-8 sequence reads as U+FFFD, an unmapped byte elsewhere as "?".
    const char16_t replacement = resolved == kCpUtf8 ? u'\xFFFD' : u'?';
    std::string wide;
    const size_t unit = resolved == kCpUtf16 ? 2 : 1;
    if (!Convert(kWideName, name, text, bytes, unit,
                 std::string(reinterpret_cast<const char*>(&replacement), 2), wide) ||
        wide.size() / 2 > 0x7FFFFFFF) {
        SetLastError(kErrorInvalidParameter);
        return 0;
    }
    const size_t count = wide.size() / 2;
    if (outSize == 0) return static_cast<int>(count);
    if (out == nullptr || count > static_cast<size_t>(outSize)) {
        SetLastError(kErrorInsufficientBuffer);
        return 0;
    }
    std::memcpy(out, wide.data(), count * 2);
    return static_cast<int>(count);
}

}  // namespace platform
