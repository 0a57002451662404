// HtmlScan.cpp - the charset a document names for itself, and tags made regular
//
// See HtmlScan.h
#include "textlib/scan/HtmlScan.h"

#include <cstring>

#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/LogBase.h"
#include "textlib/scan/ParseEngine.h"

namespace brelkin {

namespace {

constexpr int kMaxAttributes = 101;

void skipWhite(ParseEngine& parser) { parser.skip4(' ', '\t', '\r', '\n'); }

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The charset name behind "charset=": up to a double quote, else a ";",
// else a blank, else the end.
void takeCharsetName(const char* from, StringBuffer& out) {
    const char* end = std::strchr(from, '"');
    if (!end) end = std::strchr(from, ';');
    if (!end) end = std::strchr(from, ' ');
    if (!end) end = from + std::strlen(from);
    out.clear();
    out.appendN(from, static_cast<int>(end - from));
}

// Reads one META tag; true when the search ends with it.
bool charsetFromMeta(const StringBuffer& tag, StringBuffer& out) {
    StringBuffer equiv;
    getTagAttribute(tag.getString(), "HTTP-EQUIV", equiv);
    if (!equiv.equalsIgnoreCase("content-type")) return false;
    StringBuffer content;
    getTagAttribute(tag.getString(), "content", content);
    if (content.getSize() > 0) {
        const char* found = findIgnoreAsciiCase(content.getString(), "CHARSET=");
        if (found) {
            takeCharsetName(found + 8, out);
            return true;
        }
    }
    out.clear();
    getTagAttribute(tag.getString(), "CHARSET", out);
    return true;
}

void charsetFromXmlDeclaration(const char* text, StringBuffer& out) {
    if (!findIgnoreAsciiCase(text, "<?xml ")) return;
    const char* found = findIgnoreAsciiCase(text, "encoding=\"");
    if (!found) return;
    found += 10;
    const char* end = std::strchr(found, '"');
    if (!end) return;
    out.clear();
    out.appendN(found, static_cast<int>(end - found));
}

// Line ends inside a tag: CR goes, LF becomes a blank.
void flattenLines(StringBuffer& out) {
    out.removeChar('\r');
    out.replaceChar('\n', ' ');
}

void logExit(LogBase* log, const char* label, const StringBuffer& out) {
    if (log) log->LogData(label, out.getString());
}

// Step 4 and 5: one attribute value, from behind "=" to behind its closing
// quote. True when the tag ended with it.
bool cleanValue(ParseEngine& parser, StringBuffer& out) {
    skipWhite(parser);
    if (parser.currentChar() == '\\') parser.advance();
    char quote = parser.currentChar();
    if (quote == '"' || quote == '\'') {
        out.appendChar(quote);
        parser.advance();
        const char set[2] = {quote, 0};
        parser.captureUntilUnescaped(set, out);
        out.replaceAll("\\\"", "&quot;");
    } else {
        StringBuffer value;
        parser.captureUntilAnyOf("\r\n >", value);
        quote = value.containsChar('"') ? '\'' : '"';
        out.appendChar(quote);
        out.appendBuffer(value);
    }
    skipWhite(parser);
    if (parser.currentChar() == '"' || parser.currentChar() == '\'') parser.advance();
    if (out.lastChar() == '\\') out.shorten(1);
    out.appendChar(quote);
    skipWhite(parser);
    if (parser.currentChar() != '>') return false;
    out.appendChar('>');
    return true;
}

// Step 3: the attribute loop; returns the label of the exit taken.
const char* cleanAttributes(ParseEngine& parser, StringBuffer& out) {
    for (int pass = 0; pass < kMaxAttributes; ++pass) {
        StringBuffer attribute(" ");
        parser.skipChars("\"'");
        StringBuffer name;
        parser.captureUntilAnyOf(" \t\n\r>=", name);
        name.removeChar(':');
        attribute.appendBuffer(name);
        skipWhite(parser);
        char c = parser.currentChar();
        if (isLetter(c)) {
            out.appendBuffer(attribute);
            flattenLines(out);
            continue;
        }
        if (c == '>') {
            out.appendBuffer(attribute);
            out.appendChar('>');
            return "clean_tag_6";
        }
        if (c != '=') {
            out.trim();
            if (out.lastChar() != '>') out.appendChar('>');
            flattenLines(out);
            return "clean_tag_3";
        }
        out.appendBuffer(attribute);
        out.appendChar('=');
        parser.advance();
        if (cleanValue(parser, out)) {
            flattenLines(out);
            return "clean_tag_4";
        }
    }
    flattenLines(out);
    return "clean_tag_5";
}

}  // namespace

void getCharsetFromHtml(const char* text, StringBuffer& out) {
    if (!text) return;
    ParseEngine parser(text);
    while (parser.seekIgnoreCase("<meta")) {
        StringBuffer tag;
        parser.captureToCharOutsideQuotes('>', tag);
        tag.appendChar('>');
        StringBuffer cleaned;
        cleanHtmlTag(tag.getString(), cleaned, nullptr);
        if (charsetFromMeta(cleaned, out)) return;
    }
    charsetFromXmlDeclaration(text, out);
}

void getTagAttribute(const char* tag, const char* name, StringBuffer& out) {
    out.clear();
    if (!tag || !name) return;
    StringBuffer pattern(name);
    pattern.append("=\"");
    const char* found = findIgnoreAsciiCase(tag, pattern.getString());
    if (!found) {
        pattern.shorten(1);
        pattern.appendChar('\'');
        found = findIgnoreAsciiCase(tag, pattern.getString());
    }
    if (!found) return;
    found += pattern.getSize();
    const char* end = std::strchr(found, pattern.lastChar());
    if (!end) return;
    out.appendN(found, static_cast<int>(end - found));
    out.trim();
    out.replaceChar('\\', '/');
}

void cleanHtmlTag(const char* tag, StringBuffer& out, LogBase* log) {
    out.clear();
    if (log) log->LogData("cleaning_tag", tag ? tag : "");
    ParseEngine parser(tag);
    parser.seekChar('<');
    if (parser.atEnd()) {
        logExit(log, "clean_tag_1", out);
        return;
    }
    out.appendChar('<');
    parser.advance();
    skipWhite(parser);
    parser.captureUntil4(" \t\r\n", out);
    skipWhite(parser);
    if (parser.currentChar() == '>') {
        out.appendChar('>');
        logExit(log, "clean_tag_2", out);
        return;
    }
    logExit(log, cleanAttributes(parser, out), out);
}

void urlDecode(StringBuffer& text) {
    StringBuffer decoded;
    const char* p = text.getString();
    const char* end = p + text.getSize();
    while (p < end) {
        if (*p == '+') {
            decoded.appendChar(' ');
            ++p;
            continue;
        }
        if (*p != '%') {
            decoded.appendChar(*p++);
            continue;
        }
        if (end - p < 3) break;
        int high = hexValue(p[1]);
        int low = hexValue(p[2]);
        if (high < 0 || low < 0) {
            decoded.appendChar(*p++);
            continue;
        }
        decoded.appendChar(static_cast<char>(high * 16 + low));
        p += 3;
    }
    text.setFrom(decoded);
}

}  // namespace brelkin
