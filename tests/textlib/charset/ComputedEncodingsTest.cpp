// ComputedEncodingsTest.cpp - ISO-2022-JP, ISO-2022-KR, UTF-7 and UTF-32

#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/Japanese.h"
#include "textlib/charset/Korean.h"
#include "textlib/charset/Utf32.h"
#include "textlib/charset/Utf7.h"

using brelkin::DataBuffer;

namespace {

// Runs one codec on `in` into a buffer pre-filled with junk, so that a codec
// that replaces instead of appending fails; returns what it appended.
template <typename Codec>
std::string Apply(Codec codec, const std::string& in, bool* ok = nullptr) {
    DataBuffer out;
    out.append("junk", 4);
    const auto* bytes = reinterpret_cast<const uint8_t*>(in.data());
    const auto size = static_cast<uint32_t>(in.size());
    bool result = true;
    if constexpr (std::is_void_v<decltype(codec(bytes, size, out))>)
        codec(bytes, size, out);
    else
        result = codec(bytes, size, out);
    if (ok)
        *ok = result;
    std::string all(reinterpret_cast<const char*>(out.getData()), out.getSize());
    EXPECT_EQ(all.substr(0, 4), "junk");
    return all.substr(4);
}

constexpr auto ToJis = brelkin::Japanese::shiftJisToIso2022;
constexpr auto FromJis = brelkin::Japanese::iso2022ToShiftJis;
constexpr auto ToKr = brelkin::Korean::kscToIso2022;
constexpr auto FromKr = brelkin::Korean::iso2022ToKsc;

std::string Utf16(const std::u16string& text) {
    std::string out;
    for (char16_t c : text) {
        out += static_cast<char>(c & 0xFF);
        out += static_cast<char>(c >> 8);
    }
    return out;
}

// `ok` is what the codec must report; the ISO-2022 codecs report nothing and
// count as succeeding.
struct Case {
    const char* name;
    std::string in;
    std::string want;
    bool ok = true;
};

template <typename Codec, size_t N>
void RunCases(Codec codec, const Case (&cases)[N]) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        bool ok = !c.ok;
        EXPECT_EQ(Apply(codec, c.in, &ok), c.want);
        EXPECT_EQ(ok, c.ok);
    }
}

}  // namespace

TEST(Japanese, ShiftJisToIso2022) {
    const Case cases[] = {
        {"hiragana a", "\x82\xA0", "\x1b$B\x24\x22\x1b(B"},
        {"pure ascii has no escape", "plain text", "plain text"},
        {"voiced ka folds to ga", "\xB6\xDE", "\x1b$B\x25\x2C\x1b(B"},
        {"u with voiced mark becomes vu", "\xB3\xDE", "\x1b$B\x25\x74\x1b(B"},
        {"semi-voiced ha becomes pa", "\xCA\xDF", "\x1b$B\x25\x51\x1b(B"},
        {"mark that does not fit stays its own character", "\xB1\xDE",
         "\x1b$B\x25\x22\x21\x2B\x1b(B"},
        {"line feed leaves double-byte state first", "\x82\xA0\n\x82\xA0",
         "\x1b$B\x24\x22\x1b(B\n\x1b$B\x24\x22\x1b(B"},
        {"ibm extension into row 0x7C", "\xFA\x40", "\x1b$B\x7C\x71\x1b(B"},
        {"ibm extension into row 0x79", "\xFA\x5C", "\x1b$B\x79\x21\x1b(B"},
        {"ibm gap FA80-8F loses the trail byte", "\xFA\x80", "\xFA"},
        {"lead byte at the end is dropped", "a\x82", "a"},
        {"trail out of range is copied", "\x82\x20", "\x82\x20"},
    };
    RunCases(ToJis, cases);
}

TEST(Japanese, Iso2022ToShiftJis) {
    const Case cases[] = {
        {"double-byte pair", "\x1b$B\x24\x22\x1b(B", "\x82\xA0"},
        {"old JIS escape", "\x1b$@\x24\x22", "\x82\xA0"},
        {"kana state adds 0x80", "\x1b(I\x31", "\xB1"},
        {"roman escape ends kana", "\x1b(I\x31\x1b(Jx", "\xB1x"},
        {"unknown escape is swallowed", "a\x1b$Ab\x1b" "Zc", "abc"},
        {"line feed ends double-byte", "\x1b$B\x24\x22\nA", "\x82\xA0\nA"},
        {"lone byte of a pair at the end", "\x1b$B\x24\x22\x24", "\x82\xA0"},
        {"ibm row 0x79 gap cell", "\x1b$B\x79\x44", "\xFA\x80"},
        {"ibm row 0x7C after FB", "\x1b$B\x7C\x63", "\xFC\x40"},
    };
    RunCases(FromJis, cases);
}

TEST(Japanese, IbmExtensionRoundTrips) {
    // Every pair the encoder folds into rows 0x79-0x7C comes back unchanged,
    // but for FC 40-4B, which the encoder folds onto FB's cells.
    for (int lead = 0xFA; lead <= 0xFC; ++lead) {
        for (int trail = 0x40; trail <= 0xFC; ++trail) {
            if (lead == 0xFC && trail <= 0x4B)
                continue;
            const std::string sjis{static_cast<char>(lead), static_cast<char>(trail)};
            const std::string jis = Apply(ToJis, sjis);
            if (jis.size() != 8)
                continue;
            SCOPED_TRACE(testing::PrintToString(sjis));
            EXPECT_EQ(Apply(FromJis, jis), sjis);
        }
    }
}

TEST(Korean, BothDirections) {
    const Case encode[] = {
        {"ascii still gets the header", "abc", "\x1b$)Cabc"},
        {"shift out and in", "a\xB0\xA1" "b", "\x1b$)Ca\x0e\x30\x21\x0f" "b"},
        {"shifted state stays open at the end", "\xB0\xA1", "\x1b$)C\x0e\x30\x21"},
        {"lead byte at the end is dropped", "a\xB0", "\x1b$)Ca"},
        {"empty stays empty", "", ""},
    };
    RunCases(ToKr, encode);
    const Case decode[] = {
        {"header dropped", "\x1b$)Cabc", "abc"},
        {"shifted pair", "\x0e\x30\x21\x0f" "b", "\xB0\xA1" "b"},
        {"header resets shift", "\x0e\x1b$)C" "ab", "ab"},
        {"stray escape dropped alone", "a\x1bZ", "aZ"},
        {"lone byte in shifted state", "\x0e\x30", ""},
    };
    RunCases(FromKr, decode);
}

TEST(Utf7, Encode) {
    const Case cases[] = {
        {"plus alone", Utf16(u"a+b"), "a+-b"},
        {"optional direct character is shifted", Utf16(u"!"), "+ACE-"},
        {"run closed before a letter", Utf16(u"\u00e9t\u00e9"), "+AOk-t+AOk-"},
        {"plus inside a run is encoded", Utf16(u"\u00e9+"), "+AOkAKw-"},
        {"leading mark dropped", Utf16(u"\ufeffA"), "A"},
        {"surrogate pair as two units", Utf16(u"\U0001F600"), "+2D3eAA-"},
        {"odd last byte ignored", Utf16(u"A") + "x", "A"},
    };
    RunCases(brelkin::utf7Encode, cases);
}

TEST(Utf7, Decode) {
    const Case cases[] = {
        {"plus minus", "a+-b", Utf16(u"a+b"), true},
        {"run", "+ACE-", Utf16(u"!"), true},
        {"run closed by a direct character", "+AOk.", Utf16(u"\u00e9."), true},
        {"run open at the end", "x+AOk", Utf16(u"x\u00e9"), true},
        {"run without a character", "+A-x", Utf16(u"x"), false},
        {"bits left over", "+AOl-", Utf16(u"\u00e9"), false},
        {"eight-bit byte outside a run", "a\xE9", Utf16(u"a\u00e9"), false},
        {"plus at the very end", "a+", Utf16(u"a"), false},
    };
    RunCases(brelkin::utf7Decode, cases);
}

TEST(Utf32, FromUtf8) {
    const Case cases[] = {
        {"ascii", "A", std::string("A\0\0\0", 4), true},
        {"four-byte form", "\xF0\x9F\x98\x80", std::string("\x00\xF6\x01\x00", 4), true},
        {"lone C0", "\xC0", "", false},
        {"overlong E0", "\xE0\x80\x80", "", false},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", "", false},
        {"cut off keeps what came before", std::string("A\xE2\x82", 3), std::string("A\0\0\0", 4), false},
    };
    RunCases(brelkin::utf8ToUtf32Le, cases);
    EXPECT_EQ(Apply(brelkin::utf8ToUtf32Be, "\xC3\xA9"), std::string("\0\0\0\xE9", 4));
}

TEST(Utf32, ToUtf8) {
    const Case cases[] = {
        {"emoji", std::string("\x00\xF6\x01\x00", 4), "\xF0\x9F\x98\x80", true},
        {"empty", "", "", true},
        {"three bytes", "abc", "", false},
        {"above 0x1FFFFF", std::string("\x00\x00\x20\x00", 4), "\xEF\xBF\xBD", true},
        {"surrogate value in three bytes", std::string("\x00\xD8\x00\x00", 4), "\xED\xA0\x80", true},
    };
    RunCases(brelkin::utf32ToUtf8, cases);
}
