// BkCharsetTest.cpp - names to code pages and the canonical name each code page writes
#include "textlib/charset/BkCharset.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "platform/CodePage.h"

using brelkin::_bkCharset;
using brelkin::StringBuffer;
namespace tables = brelkin::charset_tables;

namespace {

// The name each code page writes into a charset= parameter. Kept as listed:
// no name leads to 20932 or 54936, and 50221, 50222 and 20932 write a name
// that leads to another page.
const char kCanonicalNames[] =
    "37 ibm037 437 ibm437 500 ibm500 708 asmo-708 720 dos-720 737 ibm737 775 ibm775 "
    "850 ibm850 852 ibm852 855 ibm855 857 ibm857 858 ibm00858 860 ibm860 861 ibm861 "
    "862 dos-862 863 ibm863 864 ibm864 865 ibm865 866 cp866 869 ibm869 870 ibm870 "
    "874 windows-874 875 cp875 932 shift_jis 936 gb2312 949 ks_c_5601-1987 950 big5 "
    "1026 ibm1026 1047 ibm01047 1140 ibm01140 1141 ibm01141 1142 ibm01142 1143 ibm01143 "
    "1144 ibm01144 1145 ibm01145 1146 ibm01146 1147 ibm01147 1148 ibm01148 1149 ibm01149 "
    "1200 unicode 1201 unicodefffe 1250 windows-1250 1251 windows-1251 1252 windows-1252 "
    "1253 windows-1253 1254 windows-1254 1255 windows-1255 1256 windows-1256 "
    "1257 windows-1257 1258 windows-1258 1361 johab 10000 macintosh 10001 x-mac-japanese "
    "10002 x-mac-chinesetrad 10003 x-mac-korean 10004 x-mac-arabic 10005 x-mac-hebrew "
    "10006 x-mac-greek 10007 x-mac-cyrillic 10008 x-mac-chinesesimp 10010 x-mac-romanian "
    "10017 x-mac-ukrainian 10021 x-mac-thai 10029 x-mac-ce 10079 x-mac-icelandic "
    "10081 x-mac-turkish 10082 x-mac-croatian 20000 x-chinese-cns 20001 x-cp20001 "
    "20002 x-chinese-eten 20003 x-cp20003 20004 x-cp20004 20005 x-cp20005 20105 x-ia5 "
    "20106 x-ia5-german 20107 x-ia5-swedish 20108 x-ia5-norwegian 20127 us-ascii "
    "20261 x-cp20261 20269 x-cp20269 20273 ibm273 20277 ibm277 20278 ibm278 20280 ibm280 "
    "20284 ibm284 20285 ibm285 20290 ibm290 20297 ibm297 20420 ibm420 20423 ibm423 "
    "20424 ibm424 20833 x-ebcdic-koreanextended 20838 ibm-thai 20866 koi8-r 20871 ibm871 "
    "20880 ibm880 20905 ibm905 20924 ibm00924 20932 euc-jp 20936 x-cp20936 20949 x-cp20949 "
    "21025 cp1025 21866 koi8-u 28591 iso-8859-1 28592 iso-8859-2 28593 iso-8859-3 "
    "28594 iso-8859-4 28595 iso-8859-5 28596 iso-8859-6 28597 iso-8859-7 28598 iso-8859-8 "
    "28599 iso-8859-9 28603 iso-8859-13 28605 iso-8859-15 29001 x-europa 38598 iso-8859-8-i "
    "50220 iso-2022-jp 50221 csiso2022jp 50222 iso-2022-jp 50225 iso-2022-kr 50227 x-cp50227 "
    "51932 euc-jp 51936 euc-cn 51949 euc-kr 52936 hz-gb-2312 54936 gb18030 57002 x-iscii-de "
    "57003 x-iscii-be 57004 x-iscii-ta 57005 x-iscii-te 57006 x-iscii-as 57007 x-iscii-or "
    "57008 x-iscii-ka 57009 x-iscii-ma 57010 x-iscii-gu 57011 x-iscii-pa 65000 utf-7 "
    "65001 utf-8 65005 utf-32 65006 utf-32be";
const int kNoCanonical[] = {709, 21027, 50000, 50930, 50931, 50933, 50935, 50937, 50939, 51950};

std::string nameOf(int codePage) {
    StringBuffer out("junk");
    bool found = brelkin::codePageToName(codePage, out);
    EXPECT_EQ(found, out.getSize() > 0) << codePage;
    return out.getString();
}

// As a caller might write it: upper case and "_" in place of "-".
std::string shouted(std::string name) {
    for (char& c : name) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 0x20);
        if (c == '-') c = '_';
    }
    return name;
}

}  // namespace

// Walks the whole sorted table through the binary search, so a row out of
// order or a lost row shows; the counts guard against rows dropped wholesale.
TEST(CharsetRegistry, EveryNameResolvesToItsCodePage) {
    std::set<int> codePages;
    for (size_t i = 0; i < tables::kNameCount; ++i) {
        const tables::CharsetName& row = tables::kNames[i];
        SCOPED_TRACE(row.name);
        EXPECT_EQ(brelkin::charsetToCodePage(row.name), row.codePage);
        EXPECT_EQ(brelkin::charsetToCodePage(shouted(row.name).c_str()), row.codePage);
        codePages.insert(row.codePage);
    }
    EXPECT_EQ(tables::kNameCount, 413u);
    EXPECT_EQ(codePages.size(), 148u);
}

TEST(CharsetRegistry, EveryCodePageWritesItsCanonicalName) {
    std::istringstream in(kCanonicalNames);
    size_t count = 0;
    for (std::pair<int, std::string> row; in >> row.first >> row.second; ++count)
        EXPECT_EQ(nameOf(row.first), row.second) << row.first;
    EXPECT_EQ(count, tables::kCanonicalCount);
    for (int codePage : kNoCanonical) EXPECT_EQ(nameOf(codePage), "") << codePage;
    for (int codePage : {0, -1, 1, 20933, 65002}) EXPECT_EQ(nameOf(codePage), "") << codePage;
}

TEST(CharsetRegistry, NamesAreNormalizedBeforeTheLookup) {
    // Case and "_" are covered name by name above; these are the edges.
    const std::pair<const char*, int> cases[] = {
        {" utf-8 ", 65001}, {"\t\r\nlatin1\r\n", 28591}, {"x-user-defined", 50000},
        {"iso-8859-8  visual", 0}, {"  us  ", 0}, {"oem", 0}, {"utf-8x", 0}, {"", 0}, {nullptr, 0},
    };
    for (const auto& [name, want] : cases) {
        EXPECT_EQ(brelkin::charsetToCodePage(name), want) << (name ? name : "(null)");
        EXPECT_EQ(brelkin::isKnownCharset(name), want != 0);
    }
    EXPECT_EQ(brelkin::charsetToCodePage(std::string(5000, 'a').c_str()), 0);
    EXPECT_EQ(brelkin::charsetToCodePage(" AnSi "), static_cast<int>(platform::GetACP()));
}

TEST(CharsetObject, SetByNameStoresTheCanonicalForm) {
    using Result = std::pair<int, std::string>;  // code page, name
    auto set = [](const char* name) {
        _bkCharset charset;
        charset.setByName("utf-8");
        charset.setByName(name);
        return Result(charset.getCodePage(), charset.getName());
    };
    EXPECT_EQ(set("latin1"), Result(28591, "iso-8859-1"));
    EXPECT_EQ(set("x-user-defined"), Result(0, "")) << "known to the lookup, refused here";
    EXPECT_EQ(set("DEFAULT"), Result(0, ""));
    EXPECT_EQ(set("asmo-449"), Result(709, "")) << "a code page without a canonical name keeps its number";
}

TEST(CharsetObject, SystemCodePagesAndPagesWithoutName) {
    _bkCharset charset;
    charset.setByName("OEM");
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetOEMCP()));
    charset.setByName("Ansi");
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetACP()));
    charset.setByName(nullptr);  // changes nothing
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetACP()));

    charset.setByCodePage(50000);  // no canonical name: unset
    EXPECT_EQ(charset.getCodePage(), 0);
}
