// HeaderCorpusTest.cpp - every header of real mail parsed, written, parsed and written again
//
// Ideally one round reaches a fixpoint: the second assembly gives the bytes
// of the first, and the second parse gives the values of the first. Two
// field rules keep that from holding everywhere, and each difference they
// make is checked to be exactly theirs:
// - fold white space: a fold written behind a ";" or "," keeps the old
//   white space and adds its own, and a continuation line is read back with
//   its leading white space, so such values gain blanks or tabs each round;
// - quoting: a parameter value with a blank is written in quotes, quotes
//   that are not needed go, and a quoted 8-bit display name loses them.
// Any other difference fails. The counts are printed.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "MimeTestText.h"
#include "mime/MimeField.h"
#include "mime/MimeHeader.h"
#include "support/TestPaths.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/LogNull.h"

using brelkin::MimeHeader;
using brelkin::StringBuffer;
using mimetest::isUtf8;
using mimetest::without;

namespace {

struct Field {
    std::string name, value;
};

std::vector<Field> fieldsOf(const MimeHeader& h) {
    std::vector<Field> out;
    for (int i = 0; i < h.getNumFields(); ++i) {
        StringBuffer v;
        h.getFieldAt(i)->getValue(v);
        out.push_back({h.getFieldAt(i)->getName(), std::string(v.getString(), v.getSize())});
    }
    return out;
}

std::string assemble(MimeHeader& h) {
    brelkin::LogNull log;
    const brelkin::_bkCharset none;
    StringBuffer out;
    h.AssembleMimeHeader(out, nullptr, none, false, log, false);
    return std::string(out.getString(), out.getSize());
}

void parse(MimeHeader& h, const std::string& text) {
    brelkin::LogNull log;
    h.ParseMimeHeader(text.c_str(), log, false);
}

const char kWhiteSpace[] = " \t\r\n";
const char kWhiteSpaceAndQuotes[] = " \t\r\n\"";

bool sameBut(const std::string& a, const std::string& b, const char* drop) {
    return without(a, drop) == without(b, drop);
}

std::string asciiOnly(const std::string& s) {
    std::string out;
    for (char c : s)
        if (static_cast<unsigned char>(c) < 0x80) out += c;
    return out;
}

// Characters beyond U+FFFF (4-byte UTF-8) do not survive conversion.
std::string withoutAstral(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) >> 3) == 30 && i + 3 < s.size()) {
            i += 3;
            continue;
        }
        out += s[i];
    }
    return out;
}

// The rule that explains how a value read the second time differs from the
// first, or null when none does.
const char* valueRule(const Field& a, const Field& b, int firstCodePage, int secondCodePage) {
    if (a.name != b.name) return nullptr;
    if (a.value == b.value) return "equal";
    if (sameBut(a.value, b.value, kWhiteSpace)) return "fold white space";
    if (sameBut(a.value, b.value, kWhiteSpaceAndQuotes)) return "quoting";
    // A main part of one byte before the first ";" is not written.
    const size_t semicolon = a.value.find(';');
    if (semicolon == 1 && sameBut(a.value.substr(1), b.value, kWhiteSpaceAndQuotes))
        return "one-byte main part dropped";
    if (sameBut(withoutAstral(a.value), b.value, kWhiteSpaceAndQuotes))
        return "characters beyond U+FFFF lost";
    // A word in a charset the registry does not know leaves raw bytes that
    // are no UTF-8; writing drops them.
    if (!isUtf8(a.value) && sameBut(asciiOnly(a.value), asciiOnly(b.value), kWhiteSpaceAndQuotes))
        return "raw bytes of an unknown charset";
    // Under a 7-bit stateful charset a name is written in raw escape
    // sequences, and a 7-bit header reads them back as they are.
    if (secondCodePage >= 50220 && secondCodePage <= 50222) {
        StringBuffer converted;
        converted.appendN(b.value.data(), static_cast<int>(b.value.size()));
        converted.convertEncoding(50220, 65001);
        if (sameBut(a.value, std::string(converted.getString(), converted.getSize()),
                    kWhiteSpaceAndQuotes))
            return "raw ISO-2022-JP escapes";
    }
    // 8-bit text written raw is read in whatever code page the second parse
    // decides on.
    if (firstCodePage != secondCodePage &&
        sameBut(asciiOnly(a.value), asciiOnly(b.value), kWhiteSpaceAndQuotes))
        return "code page decided anew";
    return nullptr;
}

TEST(HeaderCorpus, OneRoundReachesAFixpoint) {
    SKIP_WITHOUT_SHARED_DIR();
    const auto files = testsupport::CorpusFiles();
    if (files.empty()) GTEST_SKIP() << "no corpus messages found";

    std::map<std::string, int> counts;
    int messages = 0;
    for (const auto& path : files) {
        const std::string message = testsupport::ReadFile(path);
        MimeHeader first, second;
        parse(first, message);
        const std::string once = assemble(first);
        parse(second, once + "\r\n\r\n");
        const std::string twice = assemble(second);
        ++messages;

        const auto a = fieldsOf(first), b = fieldsOf(second);
        bool valueChanged = first.getCodePage() != second.getCodePage();
        if (a.size() != b.size()) {
            ++counts["fields: count differs"];
            ADD_FAILURE() << path << ": " << a.size() << " fields, then " << b.size();
            continue;
        }
        for (size_t i = 0; i < a.size(); ++i) {
            const char* rule = valueRule(a[i], b[i], first.getCodePage(), second.getCodePage());
            if (rule) {
                ++counts[std::string("values: ") + rule];
                const std::string r(rule);
                valueChanged |= r != "equal" && r != "fold white space" && r != "quoting";
                continue;
            }
            ADD_FAILURE() << path << " code pages " << first.getCodePage() << " "
                          << second.getCodePage() << " field " << a[i].name << "\n  [" << a[i].value
                          << "]\n  [" << b[i].value << "]";
        }

        // The bytes may differ beyond white space and quotes only where a
        // value did, by one of the rules above.
        if (once == twice) {
            ++counts["bytes: fixpoint after one round"];
        } else if (sameBut(once, twice, kWhiteSpace)) {
            ++counts["bytes: fold white space"];
        } else if (sameBut(once, twice, kWhiteSpaceAndQuotes)) {
            ++counts["bytes: quoting"];
        } else if (valueChanged) {
            ++counts["bytes: follow a changed value or code page"];
        } else {
            ADD_FAILURE() << path << " code page " << first.getCodePage() << "\n--- once\n"
                          << once << "\n--- twice\n"
                          << twice;
        }
    }
    for (const auto& c : counts) std::printf("  %s: %d\n", c.first.c_str(), c.second);
    std::printf("  messages: %d\n", messages);
}

}  // namespace
