// MimeCorpusTest.cpp - every real-world message loads, is written, and settles
//
// Each corpus message goes through the load road of a queue file and is
// written out; that text is loaded and written again, twice. The second and
// third texts must be equal (a fixpoint): the engine must read what it writes
// as it meant it. Where a rule of the engine prevents that for a message, the
// difference must be the one that rule makes, and the test names it.
#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "MimeTestText.h"
#include "mime/ClsMime.h"
#include "mime/MimeField.h"
#include "mime/MimeHeader.h"
#include "mime/MimeMessage2.h"
#include "support/TestPaths.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogNull.h"

using brelkin::ClsMime;
using brelkin::DataBuffer;
using brelkin::MimeMessage2;
using mimetest::str;

namespace {

const char kFoldRule[] =
    "a fold keeps the white space it breaks at and adds its own (structured fields and "
    "parameters), so white space grows at each rewrite";
const char kCharsetRule[] =
    "a charset is applied when reading any body but only written back for text/ and "
    "application/xml types, so a charset on another type converts once more at each rewrite";

const char kBoundaryInBodyRule[] =
    "delimiters are found by the boundary alone, without its two dashes, so a boundary that "
    "also stands in a part's encoded text cuts the part short there";
const char kQuoteRule[] =
    "every structured field is read as name=value parameters whose values are quoted anew, "
    "so a stray double quote in a field that holds none moves at each rewrite";
const char kDashBoundaryRule[] =
    "delimiters are found by the boundary alone, without its two dashes, so a boundary of "
    "dashes only is found inside the dashes of its delimiter line and the line end before "
    "it stays with the part";
const char kRawAddressRule[] =
    "8-bit text that a field writes raw (addresses, message ids) goes out in UTF-8, and the "
    "header's code page is decided anew when it is read, so it may come back through another "
    "code page";

std::string writeNode(MimeMessage2& node) {
    brelkin::LogNull log;
    DataBuffer out;
    node.getMimeDb(out, log, false);
    return str(out);
}

std::string writeTree(ClsMime& mime) {
    MimeMessage2* root = mime.lockTreeAndFindNode();
    std::string text = writeNode(*root);
    mime.unlockTree();
    return text;
}

void parse(MimeMessage2& node, const std::string& text) {
    brelkin::LogNull log;
    std::string copy = text;  // the parser needs the zero byte behind the text
    ASSERT_TRUE(node.LoadMimeComplete2(copy.c_str(), static_cast<uint32_t>(copy.size()), false, log,
                                       false, false));
}

size_t firstDifference(const std::string& a, const std::string& b) {
    size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    return i;
}

std::string around(const std::string& text, size_t at) {
    const size_t from = at > 40 ? at - 40 : 0;
    std::string s = text.substr(from, 80);
    for (char& c : s)
        if (static_cast<unsigned char>(c) < 0x20) c = '.';
    return s;
}

// The text without blanks, tabs and folds (a fold may put a blank where none
// stood), and without double quotes when asked.
std::string squeezeWhiteSpace(const std::string& text, bool dropQuotes = false) {
    return mimetest::without(text, dropQuotes ? " \t\r\n\"" : " \t\r\n");
}

std::string assembledHeader(MimeMessage2& node) {
    brelkin::LogNull log;
    brelkin::StringBuffer out;
    node.assembleHeader(out, log, false);
    return std::string(out.getString(), out.getSize());
}

// The body converted from the node's charset to UTF-8 once more.
bool isConvertedOnceMore(MimeMessage2& node, const DataBuffer& before, const DataBuffer& after) {
    const int codePage = node.getCharset().getCodePage();
    const char* type = node.getContentTypeText();
    if (codePage == 0 || codePage == 65001 || std::strncmp(type, "text/", 5) == 0 ||
        std::strstr(type, "application/xml"))
        return false;
    DataBuffer converted;
    brelkin::EncodingConvert converter;
    converter.convert(codePage == 20127 ? 28591 : codePage, 65001, before.getData(),
                      before.getSize(), converted);
    return str(converted) == str(after);
}

bool isAllDashes(const std::string& text) {
    return !text.empty() && text.find_first_not_of('-') == std::string::npos;
}

// The second body is a start of the first, and the first's encoded text
// holds the boundary of its parent.
bool isCutByItsBoundary(MimeMessage2& node, const std::string& boundary, const std::string& before,
                        const std::string& after) {
    if (boundary.empty() || after.size() >= before.size() || before.compare(0, after.size(), after))
        return false;
    brelkin::LogNull log;
    DataBuffer encoded;
    node.getMimeBodyEncodedDb(encoded, log, false);
    return str(encoded).find(boundary) != std::string::npos;
}

std::string valueOf(const brelkin::MimeField& field) {
    brelkin::StringBuffer value;
    field.getValue(value);
    return std::string(value.getString(), value.getSize());
}

// The rule that explains how one field changed, or "". Values are compared
// as held in memory, unfolded.
const char* fieldRule(const brelkin::MimeField& x, const brelkin::MimeField& y, int codePageY) {
    const std::string a = valueOf(x), b = valueOf(y);
    if (squeezeWhiteSpace(a) == squeezeWhiteSpace(b)) return kFoldRule;
    if (squeezeWhiteSpace(a, true) == squeezeWhiteSpace(b, true)) return kQuoteRule;
    // 8-bit text went out raw and came back in a page other than UTF-8.
    const bool eightBit = std::any_of(a.begin(), a.end(), [](char c) { return c & 0x80; });
    return eightBit && codePageY != 65001 ? kRawAddressRule : "";
}

// Adds the rules behind the differences of two headers; false when one has
// no rule.
bool headerRules(MimeMessage2& x, MimeMessage2& y, std::set<std::string>& rules) {
    brelkin::MimeHeader& hx = x.getHeader();
    brelkin::MimeHeader& hy = y.getHeader();
    if (hx.getNumFields() != hy.getNumFields()) return false;
    bool changed = false;
    for (int i = 0; i < hx.getNumFields(); ++i) {
        const brelkin::MimeField& fx = *hx.getFieldAt(i);
        const brelkin::MimeField& fy = *hy.getFieldAt(i);
        if (strcasecmp(fx.getName(), fy.getName()) != 0) return false;
        if (valueOf(fx) == valueOf(fy)) continue;
        const char* rule = fieldRule(fx, fy, hy.getCodePage());
        if (!*rule) return false;
        rules.insert(rule);
        changed = true;
    }
    // Equal values written differently: the code page of the header changed,
    // which only 8-bit address text read again brings about.
    return changed || hx.getCodePage() != hy.getCodePage();
}

// Walks the trees that wrote the second and the third text side by side and
// names the rule behind every difference; "" when a difference has no rule
// (or the trees differ in shape).
std::string ruleAgainstFixpoint(MimeMessage2& a, MimeMessage2& b) {
    std::set<std::string> rules;
    struct Pair {
        MimeMessage2* x;
        MimeMessage2* y;
        std::string parentBoundary;
    };
    std::vector<Pair> stack{{&a, &b, ""}};
    while (!stack.empty()) {
        auto [x, y, parentBoundary] = stack.back();
        stack.pop_back();
        if (x->numParts() != y->numParts()) return "";
        const std::string headerX = assembledHeader(*x), headerY = assembledHeader(*y);
        if (headerX != headerY && !headerRules(*x, *y, rules)) {
            if (squeezeWhiteSpace(headerX) != squeezeWhiteSpace(headerY)) return "";
            rules.insert(kFoldRule);
        }
        const std::string bodyX = str(x->getBody()), bodyY = str(y->getBody());
        if (bodyX != bodyY) {
            if (isConvertedOnceMore(*x, x->getBody(), y->getBody()))
                rules.insert(kCharsetRule);
            else if (isAllDashes(parentBoundary) && bodyY == bodyX + "\r\n")
                rules.insert(kDashBoundaryRule);
            else if (isCutByItsBoundary(*x, parentBoundary, bodyX, bodyY))
                rules.insert(kBoundaryInBodyRule);
            else
                return "";
        }
        for (int i = 0; i < x->numParts(); ++i)
            stack.push_back({x->getPart(i), y->getPart(i), x->getBoundary().getString()});
    }
    std::string names;
    for (const std::string& rule : rules) names += (names.empty() ? "" : " + ") + rule;
    return names;
}

}  // namespace

TEST(MimeCorpusTest, EveryMessageLoadsAndSettlesAfterOneRewrite) {
    SKIP_WITHOUT_SHARED_DIR();
    const std::vector<std::string> files = testsupport::CorpusFiles();
    if (files.empty()) GTEST_SKIP() << "no corpus under ../shared/corpus";

    std::map<std::string, int> explained;
    int settled = 0;
    for (const std::string& path : files) {
        ClsMime mime;
        ASSERT_TRUE(mime.loadMimeFile(path.c_str())) << path;
        MimeMessage2 once, twice;
        parse(once, writeTree(mime));
        const std::string second = writeNode(once);
        parse(twice, second);
        const std::string third = writeNode(twice);
        if (second == third) {
            ++settled;
            continue;
        }
        const std::string rule = ruleAgainstFixpoint(once, twice);
        if (!rule.empty()) {
            ++explained[rule];
            continue;
        }
        const size_t at = firstDifference(second, third);
        ADD_FAILURE() << path << ": second and third text differ at byte " << at
                      << "\n  2nd: " << around(second, at) << "\n  3rd: " << around(third, at);
    }
    std::printf("corpus fixpoint: %d of %zu messages settle\n", settled, files.size());
    for (const auto& entry : explained)
        std::printf("  %d held back by: %s\n", entry.second, entry.first.c_str());
}
