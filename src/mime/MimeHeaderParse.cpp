// MimeHeaderParse.cpp - the header's end, its code page, and its unfolded fields
//
// See MimeHeader.h
#include "mime/MimeHeader.h"

#include <cstring>
#include <initializer_list>
#include <new>

#include "mime/MimeField.h"
#include "platform/CodePage.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogBase.h"

namespace brelkin {

namespace {

constexpr int kMaxHeaderLines = 100000;
constexpr int kUtf8 = 65001;

// A header may end in any mix of line ends; the first form found wins.
const char* findHeaderEnd(const char* text) {
    for (const char* end : {"\r\n\r\n", "\n\r\n", "\r\n\r"}) {
        if (const char* at = std::strstr(text, end)) return at;
    }
    return nullptr;
}

void normaliseLineEnds(StringBuffer& text) {
    text.toLf();
    text.toCrlf();
}

bool convertsToUtf8(int codePage, const StringBuffer& text) {
    DataBuffer scratch;
    EncodingConvert conv;
    return conv.convert(codePage, kUtf8, text.getString(), static_cast<uint32_t>(text.getSize()),
                        scratch);
}

// Code page named by an encoded word: the text between the first "=?" and
// the first `marker` ("?Q?" or "?B?") behind it.
int encodedWordCodePage(const StringBuffer& header, const char* marker) {
    const char* s = header.getString();
    const char* open = std::strstr(s, "=?");
    if (!open) return 0;
    const char* close = StringBuffer::searchIgnoreCase(open + 2, marker);
    if (!close) return 0;
    StringBuffer name;
    name.appendN(open + 2, static_cast<int>(close - open - 2));
    return charsetToCodePage(name.getString());
}

// The pair of a UTF-8 Latin-1 letter: C2 or C3 and a continuation byte.
bool hasUtf8LatinPair(const StringBuffer& header) {
    const auto* s = reinterpret_cast<const unsigned char*>(header.getString());
    const int n = header.getSize();
    for (int i = 0; i + 1 < n; ++i) {
        if ((s[i] == 0xC3 || s[i] == 0xC2) && s[i + 1] >= 0x80) return true;
    }
    return false;
}

struct NamedPage {
    const char* name;
    int codePage;
};

// Looked for anywhere in the message, body included, in this order.
constexpr NamedPage kMessageNames[] = {
    {"GB2312", 936},        {"shift_jis", 932},     {"Windows-31J", 932},   {"ks_c_5601-1987", 949},
    {"windows-874", 874},   {"big5", 950},          {"euc-kr", 51949},      {"iso-8859-2", 28592},
    {"iso-8859-3", 28593},  {"iso-8859-4", 28594},  {"iso-8859-5", 28595},  {"iso-8859-6", 28596},
    {"iso-8859-7", 28597},  {"iso-8859-8", 28598},  {"iso-8859-9", 28599},  {"windows-1250", 1250},
    {"windows-1251", 1251}, {"windows-1252", 1252}, {"windows-1253", 1253}, {"windows-1254", 1254},
    {"windows-1255", 1255}, {"windows-1256", 1256}, {"windows-1257", 1257}, {"koi8-r", 20866},
    {"koi8-u", 21866},
};

class VerboseLog {
  public:
    VerboseLog(LogBase& log, bool verbose) : m_log(log), m_verbose(verbose) {}
    void info(const char* text) const {
        if (m_verbose) m_log.LogInfo(text);
    }
    void value(const char* name, int32_t v) const {
        if (m_verbose) m_log.LogDataLong(name, v);
    }

  private:
    LogBase& m_log;
    bool m_verbose;
};

// The one code page of the first table that the header names, or 0 when the
// name it holds has a digit that leads nowhere.
int headerNamedCodePage(const StringBuffer& header, const VerboseLog& say) {
    const char* s = header.getString();
    if (const char* at = StringBuffer::searchIgnoreCase(s, "windows-125")) {
        say.info("Detecting windows-125* code page.");
        const char digit = at[11];
        return digit >= '0' && digit <= '8' ? 1250 + (digit - '0') : 0;
    }
    if (const char* at = StringBuffer::searchIgnoreCase(s, "iso-8859-")) {
        say.info("Detecting iso-8859-* code page.");
        const char digit = at[9];
        return digit >= '1' && digit <= '8' ? 28590 + (digit - '0') : 0;
    }
    if (header.containsIgnoreCase("koi8-r")) return 20866;
    if (header.containsIgnoreCase("koi8-u")) return 21866;
    return 0;
}

// Tries run only while nothing is decided; a name counts only if the
// header then converts from its code page without a failure.
int tryCodePage(int current, int candidate, const StringBuffer& header) {
    if (current != 0 || candidate == 0) return current;
    return convertsToUtf8(candidate, header) ? candidate : 0;
}

int decideEightBitCodePage(const StringBuffer& header, const char* text, const VerboseLog& say) {
    int codePage = tryCodePage(0, headerNamedCodePage(header, say), header);
    for (const NamedPage& named : kMessageNames) {
        if (codePage != 0) break;
        if (StringBuffer::searchIgnoreCase(text, named.name))
            codePage = tryCodePage(codePage, named.codePage, header);
    }
    if (codePage != 0) {
        say.value("DetectedCodePage", codePage);
        return codePage;
    }
    if (hasUtf8LatinPair(header)) {
        say.info("Probably utf-8");
        return kUtf8;
    }
    say.info("No code page detected yet, check to see if header is valid ANSI...");
    codePage = static_cast<int>(platform::GetACP());
    if (convertsToUtf8(codePage, header)) return codePage;
    say.info("Not ANSI, checking some common code pages...");
    if (convertsToUtf8(28591, header)) return 28591;
    if (convertsToUtf8(28592, header)) return 28592;
    return 0;
}

// Changes `header` only for ISO-2022-JP, which is converted to UTF-8 here.
int decideCodePage(StringBuffer& header, const char* text, const VerboseLog& say) {
    // Encoded words name the charset of the whole header, whatever raw
    // 8-bit bytes stand beside them.
    if (header.containsIgnoreCase("?Q?")) {
        say.info("Header contains Q-encoding.");
        const int codePage = encodedWordCodePage(header, "?Q?");
        say.value("DetectedCodePageQ", codePage);
        return codePage;
    }
    if (header.containsIgnoreCase("?B?")) {
        say.info("Header contains B-encoding.");
        const int codePage = encodedWordCodePage(header, "?B?");
        say.value("DetectedCodePageB", codePage);
        return codePage;
    }
    if (header.is7bit(0)) {
        say.info("Header is entirely 7-bit");
        if (!header.contains("\x1b$B") && !header.contains("\x1b(B")) return 0;
        say.info("Detected iso-2022-jp in 7bit header.");
        header.convertEncoding(50222, kUtf8);
        return kUtf8;
    }
    say.info("Header contains 8bit chars");
    return decideEightBitCodePage(header, text, say);
}

}  // namespace

void MimeHeader::ParseMimeHeader(const char* text, LogBase& log, bool verbose) {
    clear();
    if (!text) return;
    if (verbose) log.enterContext("ParseMimeHeader", 1);
    const VerboseLog say(log, verbose);

    StringBuffer header;
    StringBuffer normalisedText;  // stands in for `text` when the header has no end
    const char* end = findHeaderEnd(text);
    if (end) {
        header.appendN(text, static_cast<int>(end - text));
        if (!header.contains("\r\n")) {
            say.info("No CRLF's found in header.  Converting line endings to CRLF.");
            normaliseLineEnds(header);
        }
    } else {
        say.info("No end-of-header double CRLF found.");
        normalisedText.append(text);
        normaliseLineEnds(normalisedText);
        text = normalisedText.getString();
        end = std::strstr(text, "\r\n\r\n");
        if (end)
            header.appendN(text, static_cast<int>(end - text));
        else
            header.setFrom(normalisedText);
    }

    m_codePage = decideCodePage(header, text, say);
    say.value("FinalCodePageDecision", m_codePage);
    parseFields(header, log, verbose);

    if (verbose) log.leaveContext();
}

// Lines are cut at CR LF; a line that begins with a blank or tab continues
// the field before it. Encoded words that continue a field join the word
// before them without the fold's white space, so that a word split over two
// lines reads as one text.
void MimeHeader::parseFields(const StringBuffer& header, LogBase& log, bool verbose) {
    const char* s = header.getString();
    const char* const stop = s + header.getSize();
    StringBuffer current;
    int lines = 0;
    while (s < stop) {
        const char* lineEnd = StringBuffer::searchBytes(s, static_cast<int>(stop - s), "\r\n");
        if (!lineEnd) lineEnd = stop;
        const char* line = s;
        const int length = static_cast<int>(lineEnd - line);
        s = lineEnd == stop ? stop : lineEnd + 2;
        if (length == 0) continue;
        if (++lines > kMaxHeaderLines) break;

        // An mbox separator, wherever it stands, is no field.
        if (length >= 5 && std::memcmp(line, "From ", 5) == 0) continue;
        if (line[0] == ' ' || line[0] == '\t') {
            int skip = 0;
            while (skip < length && (line[skip] == ' ' || line[skip] == '\t')) ++skip;
            if (length - skip >= 2 && line[skip] == '=' && line[skip + 1] == '?')
                current.appendN(line + skip, length - skip);
            else
                current.appendN(line, length);
            continue;
        }
        if (current.getSize() != 0 && !finishField(current, false, log, verbose)) return;
        current.clear();
        current.appendN(line, length);
    }
    if (current.getSize() != 0) finishField(current, true, log, verbose);
}

bool MimeHeader::finishField(StringBuffer& current, bool last, LogBase& log, bool verbose) {
    MimeField* field = new (std::nothrow) MimeField();
    if (!field) {
        log.LogError(last ? "Out-of-memory for MimeField" : "Out of memory allocating MimeField.");
        return false;
    }
    if (m_codePage != kUtf8 && !current.is7bit(0)) {
        if (verbose) log.LogInfo("Converting header field to utf-8");
        const int from = m_codePage != 0 ? m_codePage : static_cast<int>(platform::GetACP());
        current.convertEncoding(from, kUtf8);
    }
    if (verbose) log.LogData("unfoldedHeaderField", current.getString());

    if (!field->parse(current, log, verbose)) {
        delete field;
        return true;
    }
    // A later Content-Type replaces an earlier one, except as the last field:
    // that one is appended, and lookups keep finding the first. Deliberate.
    if (!last && field->nameEquals("content-type")) {
        replaceFromField(*field);
        delete field;
        return true;
    }
    m_fields.append(field);
    return true;
}

}  // namespace brelkin
