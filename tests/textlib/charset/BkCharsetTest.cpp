// BkCharsetTest.cpp - every name to its code page, every code page to its name
#include "textlib/charset/BkCharset.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/CodePage.h"

using brelkin::_bkCharset;
using brelkin::StringBuffer;

namespace {

// The names the lookup must know, one code page a line, the canonical name
// first unless listed in kOtherCanonical or kNoCanonical.
const char kNameList[] = R"(
37: ibm037, cp037, csibm037, ebcdic, ebcdic-cp-ca, ebcdic-cp-nl, ebcdic-cp-us, ebcdic-cp-wt
437: ibm437, cp437, cspc8codepage437
500: ibm500, cp500, csibm500, ebcdic-cp-be, ebcdic-cp-ch
708: asmo-708
709: asmo-449, asmo-449+
720: dos-720
737: ibm737
775: ibm775
850: ibm850, cp850
852: ibm852, cp852
855: ibm855, cp855
857: ibm857, cp857
858: ibm00858, cp00858, cp858, ccsid00858
860: ibm860, cp860
861: ibm861, cp861
862: ibm862, cp862, dos-862
863: ibm863, cp863
864: ibm864, cp864
865: ibm865, cp865
866: ibm866, cp866
869: ibm869, cp869
870: ibm870, cp870, csibm870, ebcdic-cp-roece, ebcdic-cp-yu
874: iso-8859-11, windows-874, dos-874, tis-620
875: cp875
932: x-ms-cp932, x-sjis, csshiftjis, cswindows31j, ms-kanji, shift-jis, sjis
936: iso-ir-58, csgb2312, csgb231280, csiso58gb231280, chinese, cn-gb, gb2312, gb18030, gb18030-2000, gb2312-80, gbk, gb-2312-80
949: iso-ir-149, csksc56011987, ks-c-5601-1987, korean, ks-c-5601, ks-c5601, ksc5601, ksc-5601, ks-c-5601-1989
950: x-x-big5, big5, big5-hkscs, csbig5, cn-big5
1026: ibm1026, cp1026, csibm1026
1047: ibm01047
1140: ibm01140, cp01140, ccsid01140, ebcdic-us-37+euro
1141: ibm01141, cp01141, ccsid01141, ebcdic-de-273+euro
1142: ibm01142, cp01142, ccsid01142, ebcdic-dk-277+euro, ebcdic-no-277+euro
1143: ibm01143, cp01143, ccsid01143, ebcdic-fi-278+euro, ebcdic-se-278+euro
1144: ibm01144, cp01144, ccsid01144, ebcdic-it-280+euro
1145: ibm01145, cp01145, ccsid01145, ebcdic-es-284+euro
1146: ibm01146, cp01146, ccsid01146, ebcdic-gb-285+euro
1147: ibm01147, cp01147, ccsid01147, ebcdic-fr-297+euro
1148: ibm01148, cp01148, ccsid01148
1149: ibm01149, cp01149, ccsid01149, ebcdic-is-871+euro
1200: iso-10646-ucs-2, utf-16, utf16, ucs-2, ucs2, unicode, utf-16le
1201: unicodefffe, utf-16be
1250: windows-1250, x-cp1250
1251: windows-1251, x-cp1251
1252: windows-1252, x-ansi
1253: windows-1253
1254: windows-1254
1255: windows-1255
1256: windows-1256, cp1256
1257: windows-1257
1258: windows-1258
1361: johab
10000: macintosh, macroman
10001: x-mac-japanese, macjapanese
10002: x-mac-chinesetrad, macchinesetrad
10003: x-mac-korean, mackorean
10004: x-mac-arabic, macarabic
10005: x-mac-hebrew, machebrew
10006: x-mac-greek, macgreek
10007: x-mac-cyrillic, maccyrillic
10008: x-mac-chinesesimp, macchinesesimp
10010: x-mac-romanian
10017: x-mac-ukrainian
10021: x-mac-thai
10029: x-mac-ce, maccentraleurope
10079: x-mac-icelandic, macicelandic
10081: x-mac-turkish, macturkish
10082: x-mac-croatian
20000: x-chinese-cns
20001: x-cp20001
20002: x-chinese-eten
20003: x-cp20003
20004: x-cp20004
20005: x-cp20005
20105: irv, x-ia5
20106: x-ia5-german, din-66003, german
20107: x-ia5-swedish, sen-850200-b, swedish
20108: x-ia5-norwegian, norwegian, ns-4551-1
20127: iso-ir-6, iso646-us, iso-646.irv:1991, ibm367, us-ascii, cp367, csascii, ansi-x3.4-1968, ansi-x3.4-1986, ascii
20261: x-cp20261
20269: x-cp20269
20273: ibm273, cp273, csibm273
20277: ibm277, csibm277, ebcdic-cp-dk, ebcdic-cp-no
20278: ibm278, cp278, csibm278, ebcdic-cp-fi, ebcdic-cp-se
20280: ibm280, cp280, csibm280, ebcdic-cp-it
20284: ibm284, cp284, csibm284, ebcdic-cp-es
20285: ibm285, cp285, csibm285, ebcdic-cp-gb
20290: ibm290, cp290, csibm290, ebcdic-jp-kana
20297: ibm297, cp297, csibm297, ebcdic-cp-fr
20420: ibm420, cp420, csibm420, ebcdic-cp-ar1
20423: ibm423, cp423, csibm423, ebcdic-cp-gr
20424: ibm424, cp424, csibm424, ebcdic-cp-he
20833: x-ebcdic-koreanextended
20838: ibm-thai, csibmthai
20866: cskoi8r, koi8-r, koi, koi8, koi8r
20871: ibm871, cp871, csibm871, ebcdic-cp-is
20880: ibm880, cp880, csibm880, ebcdic-cyrillic
20905: ibm905, cp905, csibm905, ebcdic-cp-tr
20924: ibm00924, cp00924, ccsid00924, ebcdic-latin9--euro
20936: x-cp20936
20949: x-cp20949
21025: cp1025
21027: x-cp21027
21866: koi8-u, koi8-ru
28591: iso-8859-1, iso-ir-100, iso-8859-1:1987, ibm819, cp819, csisolatin1, latin1, latin-1
28592: iso-8859-2, iso-ir-101, iso-8859-2:1987, csisolatin2, latin2, latin-2
28593: iso-8859-3, iso-ir-109, iso-8859-3:1988, csisolatin3, latin3, latin-3
28594: iso-8859-4, iso-ir-110, iso-8859-4:1988, csisolatin4, latin4, latin-4
28595: iso-8859-5, iso-ir-144, iso-8859-5:1988, csisolatincyrillic, cyrillic
28596: iso-8859-6, iso-ir-127, iso-8859-6:1987, csisolatinarabic, ecma-114, arabic
28597: iso-8859-7, iso-ir-126, iso-8859-7:1987, csisolatingreek, ecma-118, elot-928, greek, greek8
28598: iso-8859-8, iso-8859-8 visual, iso-ir-138, iso-8859-8:1988, csisolatinhebrew, hebrew, logical, visual
28599: iso-8859-9, iso-ir-148, iso-8859-9:1989, csisolatin5, latin5, latin-5
28603: iso-8859-13
28605: iso-8859-15, csisolatin9, latin9, latin-9
29001: x-europa
38598: iso-8859-8-i
50000: x-user-defined
50220: iso-2022-jp, csiso2022jp
50221: iso-2022-jp-1
50222: iso-2022-jp-2
50225: iso-2022-kr, iso-2022-kr-7, iso-2022-kr-7bit, csiso2022kr
50227: x-cp50227, cp50227
50930: cp930
50931: x-ebcdic-japaneseanduscanada
50933: cp933
50935: cp935
50937: cp937
50939: cp939
51932: iso-2022-jpeuc, x-euc, x-euc-jp, cseucpkdfmtjapanese, euc-jp
51936: x-euc-cn, euc-cn
51949: iso-2022-kr-8, iso-2022-kr-8bit, cseuckr, euc-kr
51950: euc-tw
52936: hz-gb-2312
57002: x-iscii-de
57003: x-iscii-be
57004: x-iscii-ta
57005: x-iscii-te
57006: x-iscii-as
57007: x-iscii-or
57008: x-iscii-ka
57009: x-iscii-ma
57010: x-iscii-gu
57011: x-iscii-pa
65000: utf-7, unicode-1-1-utf-7, unicode-2-0-utf-7, x-unicode-1-1-utf-7, x-unicode-2-0-utf-7, csunicode11utf7
65001: utf-8, utf8, unicode-1-1-utf-8, unicode-2-0-utf-8, x-unicode-1-1-utf-8, x-unicode-2-0-utf-8
65005: utf-32
65006: utf-32be
)";

struct Canonical {
    int codePage;
    const char* name;
};
const Canonical kOtherCanonical[] = {
    {862, "dos-862"},       {866, "cp866"},     {874, "windows-874"},     {932, "shift_jis"},
    {936, "gb2312"},        {949, "ks_c_5601-1987"}, {950, "big5"},       {1200, "unicode"},
    {1201, "unicodefffe"},  {20105, "x-ia5"},   {20127, "us-ascii"},      {20866, "koi8-r"},
    {20932, "euc-jp"},      {50221, "csiso2022jp"}, {50222, "iso-2022-jp"}, {51932, "euc-jp"},
    {51936, "euc-cn"},      {51949, "euc-kr"},  {54936, "gb18030"},
};
const int kNoCanonical[] = {709, 21027, 50000, 50930, 50931, 50933, 50935, 50937, 50939, 51950};

struct Row {
    int codePage;
    std::vector<std::string> names;
};

std::vector<Row> parseNameList() {
    std::vector<Row> rows;
    std::istringstream in(kNameList);
    for (std::string line; std::getline(in, line);) {
        if (line.empty()) continue;
        const size_t colon = line.find(": ");
        Row row{std::stoi(line.substr(0, colon)), {}};
        for (size_t start = colon + 2, comma = 0; comma != std::string::npos; start = comma + 2) {
            comma = line.find(", ", start);
            row.names.push_back(line.substr(start, comma - start));
        }
        rows.push_back(row);
    }
    return rows;
}

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

TEST(CharsetRegistry, EveryNameResolvesToItsCodePage) {
    std::vector<Row> rows = parseNameList();
    ASSERT_EQ(rows.size(), 148u);
    size_t names = 0;
    for (const Row& row : rows) {
        for (const std::string& name : row.names) {
            SCOPED_TRACE(name);
            ++names;
            EXPECT_EQ(brelkin::charsetToCodePage(name.c_str()), row.codePage);
            EXPECT_EQ(brelkin::charsetToCodePage(shouted(name).c_str()), row.codePage);
        }
    }
    EXPECT_EQ(names, 413u);
    EXPECT_EQ(brelkin::charset_tables::kNameCount, 413u);
}

TEST(CharsetRegistry, EveryCodePageHasItsCanonicalName) {
    std::set<int> none(std::begin(kNoCanonical), std::end(kNoCanonical));
    std::set<int> seen;
    for (const Canonical& c : kOtherCanonical) {
        SCOPED_TRACE(c.codePage);
        EXPECT_EQ(nameOf(c.codePage), c.name);
        seen.insert(c.codePage);
    }
    for (const Row& row : parseNameList()) {
        SCOPED_TRACE(row.codePage);
        if (seen.count(row.codePage)) continue;
        EXPECT_EQ(nameOf(row.codePage), none.count(row.codePage) ? "" : row.names.front());
    }
    for (int codePage : {0, -1, 1, 20933, 65002}) EXPECT_EQ(nameOf(codePage), "") << codePage;
}

TEST(CharsetRegistry, NamesAreNormalizedBeforeTheLookup) {
    struct Case {
        const char* name;
        int want;
    };
    // Case and "_" are covered name by name above; these are the edges.
    const Case cases[] = {
        {" utf-8 ", 65001},          {"\t\r\nlatin1\r\n", 28591}, {"x-user-defined", 50000},
        {"iso-8859-8 visual", 28598}, {"iso-8859-8  visual", 0},    {"l1", 0},
        {"us", 0},                    {"  us  ", 0},                 {"oem", 0},
        {"default", 0},               {"utf-8x", 0},                 {"", 0},
        {nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name ? c.name : "(null)");
        EXPECT_EQ(brelkin::charsetToCodePage(c.name), c.want);
        EXPECT_EQ(brelkin::isKnownCharset(c.name), c.want != 0);
    }
    std::string longName(5000, 'a');
    EXPECT_EQ(brelkin::charsetToCodePage(longName.c_str()), 0);
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
    EXPECT_EQ(set("ISO-8859-1"), Result(28591, "iso-8859-1"));
    EXPECT_EQ(set("latin1"), Result(28591, "iso-8859-1"));
    EXPECT_EQ(set("SJIS"), Result(932, "shift_jis"));
    EXPECT_EQ(set("x-user-defined"), Result(0, ""));
    EXPECT_EQ(set("DEFAULT"), Result(0, ""));
    EXPECT_EQ(set("no-such-charset"), Result(0, ""));
    EXPECT_EQ(set("asmo-449"), Result(709, "")) << "a code page without a canonical name keeps its number";
}

TEST(CharsetObject, SystemCodePagesAndCopies) {
    _bkCharset charset;
    charset.setByName("OEM");
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetOEMCP()));
    charset.setByName("Ansi");
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetACP()));
    charset.setByName(nullptr);  // changes nothing
    EXPECT_EQ(charset.getCodePage(), static_cast<int>(platform::GetACP()));

    charset.setByCodePage(54936);
    _bkCharset copy;
    copy.copyFrom(charset);
    EXPECT_EQ(copy.getCodePage(), 54936);
    EXPECT_STREQ(copy.getName(), "gb18030");
    copy.setByCodePage(50000);  // no canonical name: unset
    EXPECT_EQ(copy.getCodePage(), 0);
    EXPECT_STREQ(copy.getName(), "");
}
