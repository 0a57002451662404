// MimeFieldFold.cpp - encoding and folding roads of a field value
//
// See MimeField.h. A value is cut at its first ";" into a main part and
// parameters; the main part is cut again address by address. Only the parts
// that need it become encoded words: an address in angle brackets is never
// encoded, and 7-bit text is only folded.
#include <cstring>
#include <initializer_list>

#include "mime/ContentCoding.h"
#include "mime/MimeField.h"
#include "mime/MimeFieldNames.h"
#include "textlib/log/LogBase.h"

namespace brelkin {

namespace {

// Fold limits, in bytes of the line.
constexpr int kAsciiLineLimit = 78;       // a 7-bit value this short is never folded
constexpr int kPlainSegmentLimit = 66;    // a plain segment this long gets folded
constexpr int kParamLineLimit = 65;       // parameters join a line while it stays below
constexpr int kMainPartFlush = 35;        // a main part this long gets a line of its own
constexpr int kAddressLineLimit = 40;     // bytes of addresses before a line break
constexpr int kBlankFoldColumn = 61;      // behaviour 4 folds at blanks from here
constexpr int kFreeTextFoldColumn = 69;   // free text folds at blanks from here
constexpr int kSeparatorFoldColumn = 21;  // ";" and "," fold from here
constexpr int kAddressListMinimum = 60;   // shorter values are not folded as lists

bool isStatefulSevenBit(int cp) {
    return cp == 65000 || (cp >= 50220 && cp <= 50230);
}

bool holdsShift(const char* bytes, int count) {
    for (int i = 0; i + 1 < count; ++i) {
        if ((bytes[i] == '(' && bytes[i + 1] == 'B') || (bytes[i] == '$' && bytes[i + 1] == ')'))
            return true;
    }
    return false;
}

bool isPlain(const char* bytes, int count) {
    for (int i = 0; i < count; ++i) {
        if (static_cast<unsigned char>(bytes[i]) > 0x7F) return false;
    }
    return true;
}

bool holds(const char* bytes, int count, char c) {
    return count > 0 && std::memchr(bytes, c, static_cast<size_t>(count)) != nullptr;
}

bool looksLikeAddressList(const char* bytes, int count) {
    return count > kAddressListMinimum && holds(bytes, count, '@') && holds(bytes, count, ',');
}

// A finished line goes to `out`; continuation lines begin with one tab.
void flushLine(const StringBuffer& line, StringBuffer& out) {
    if (out.getSize() == 0) {
        out.appendBuffer(line);
        return;
    }
    out.trim();
    out.append("\r\n\t");
    const char* text = line.getString();
    int skip = 0;
    while (skip < line.getSize() && text[skip] == '\t') ++skip;
    out.appendN(text + skip, line.getSize() - skip);
}

bool needsQuotes(const StringBuffer& value) {
    if (value.getSize() == 0) return false;
    char first = value.getAt(0);
    if (first == '=' || first == '-') return true;
    for (char c : {' ', '\'', '\t', ';', '='}) {
        if (value.containsChar(c)) return true;
    }
    return false;
}

bool isBlankByte(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

void MimeField::encodeStructured(bool useQ, ContentCoding& coder, const char* bytes, int count,
                                 const Target& target, StringBuffer& out) {
    StringBuffer line;
    line.appendBuffer(out);
    out.clear();
    int cp = target.messageCodePage;
    bool oneSegment = fieldnames::isFreeTextField(m_name) ||
                      (cp >= 50220 && cp <= 50230 && !m_name.equalsIgnoreCase("Content-Type") &&
                       !m_name.equalsIgnoreCase("Content-Disposition") && holdsShift(bytes, count));
    // An empty value may come with no bytes at all (a conversion that gave nothing).
    const void* found = oneSegment || count <= 0
                            ? nullptr
                            : std::memchr(bytes, ';', static_cast<size_t>(count));
    if (!found) {
        encodeSegment(useQ, false, false, coder, bytes, count, target, line);
        flushLine(line, out);
        return;
    }
    int semicolon = static_cast<int>(static_cast<const char*>(found) - bytes);
    // A main part of one byte is no type: it is dropped.
    if (semicolon >= 2) encodeSegment(useQ, false, false, coder, bytes, semicolon, target, line);
    line.appendChar(';');
    if (semicolon == count - 1) {
        flushLine(line, out);
        return;
    }
    if (line.getSize() >= kMainPartFlush) {
        flushLine(line, out);
        line.clear();
    }
    StringBuffer current;
    encodeParams(useQ, coder, bytes + semicolon + 1, count - semicolon - 1, target, out, line,
                 current);
    if (line.getSize() + current.getSize() < kParamLineLimit) {
        if (line.endsWith(";") && current.getAt(0) != ' ') line.appendChar(' ');
        line.appendBuffer(current);
    } else {
        flushLine(line, out);
        line.setFrom(current);
    }
    if (line.getSize() > 0) flushLine(line, out);
}

void MimeField::encodeParams(bool useQ, ContentCoding& coder, const char* bytes, int count,
                             const Target& target, StringBuffer& out, StringBuffer& pending,
                             StringBuffer& current) {
    int at = 0;
    for (;;) {
        int stop = at;
        while (stop < count && bytes[stop] != '=' && bytes[stop] != ';') ++stop;
        current.appendN(bytes + at, stop - at);
        if (stop >= count) return;
        current.appendChar(bytes[stop]);
        at = stop + 1;
        if (bytes[stop] == '=') {
            int end = at;
            bool inQuotes = false;
            while (end < count && (inQuotes || bytes[end] != ';')) {
                if (bytes[end] == '"') inQuotes = !inQuotes;
                ++end;
            }
            int first = at;
            int last = end;
            while (first < last && isBlankByte(bytes[first])) ++first;
            while (last > first && isBlankByte(bytes[last - 1])) --last;
            if (first < last && bytes[first] == '"') ++first;
            if (last > first && bytes[last - 1] == '"') --last;
            StringBuffer value;
            if (first < last)
                encodeSegment(useQ, true, true, coder, bytes + first, last - first, target, value);
            // Quotes only where needed: an encoded word always gets them, a
            // value quoted in the input without need loses them.
            bool quote = needsQuotes(value);
            if (quote) current.appendChar('"');
            current.appendBuffer(value);
            if (quote) current.appendChar('"');
            if (end >= count) return;
            current.appendChar(';');
            at = end + 1;
        }
        if (at >= count) return;
        if (pending.getSize() + current.getSize() < kParamLineLimit) {
            pending.appendBuffer(current);
        } else {
            if (out.getSize() > 0) out.append("\r\n\t");
            out.appendBuffer(pending);
            pending.setFrom(current);
        }
        current.clear();
    }
}

void MimeField::encodeWords(bool useQ, bool comma, ContentCoding& coder, const char* bytes,
                            int count, const Target& target, StringBuffer& out) {
    if (useQ) {
        // Commas are escaped for this piece only; later pieces of the field
        // get them escaped only if their own rule asks again.
        coder.setEncodeCommas(comma);
        coder.encodeQWords(bytes, static_cast<uint32_t>(count), target.codePage, target.name, out);
        coder.setEncodeCommas(false);
    } else {
        coder.encodeBWords(bytes, static_cast<uint32_t>(count), target.codePage, target.name, out);
    }
}

void MimeField::encodeSegment(bool useQ, bool isParam, bool foldMode, ContentCoding& coder,
                              const char* bytes, int count, const Target& target,
                              StringBuffer& out) {
    bool freeText = fieldnames::isFreeTextField(m_name);
    bool address = fieldnames::isAddressField(m_name);
    if (freeText) foldMode = true;
    int cp = target.messageCodePage;
    int start = out.getSize();
    while (count > 0) {
        bool force = false;
        bool comma = coder.getEncodeCommas();
        // Under 7-bit stateful charsets 7-bit text may still hold shifted
        // characters, so being plain does not mean it can stand raw.
        if (isStatefulSevenBit(cp)) {
            if (fieldnames::isAlwaysEncodedWhenStateful(m_name)) {
                force = true;
            } else if (isParam && cp != 65000 && holdsShift(bytes, count)) {
                force = true;
            } else if (address) {
                comma = true;
                StringBuffer trimmed;
                trimmed.appendN(bytes, count);
                trimmed.trim();
                force = trimmed.containsChar('<') && trimmed.containsChar(' ');
            }
        }
        if (fieldnames::isNeverEncoded(m_name)) {
            out.appendN(bytes, count);
            return;
        }
        if (isPlain(bytes, count) && !force) {
            if (out.getSize() + count < kPlainSegmentLimit) {
                out.appendN(bytes, count);
                return;
            }
            StringBuffer copy;
            copy.appendN(bytes, count);
            if (address && copy.endsWith("\r\n\t")) copy.trim();
            foldPlain(out, foldMode, copy.getString(), copy.getSize());
            return;
        }

        int lt = -1;
        int gt = -1;
        bool bare = false;
        if (!freeText) {
            bool inShift = false;
            bool sawAt = false;
            bool stateful = cp >= 50220 && cp <= 50230;
            for (int i = 0; i < count; ++i) {
                char c = bytes[i];
                if (stateful && c == 0x1B && i + 1 < count) {
                    if (bytes[i + 1] == '$') inShift = true;
                    if (bytes[i + 1] == '(') inShift = false;
                }
                if (c == '@') sawAt = true;
                if (c == ',' && sawAt) {
                    lt = 0;
                    gt = i;
                    bare = true;
                    break;
                }
                if (c == '<' && !inShift) {
                    lt = i;
                    break;
                }
            }
        }
        if (lt == -1 || lt == count - 1) {
            if (fieldnames::isRawAddressField(m_name)) {
                out.appendN(bytes, count);
            } else {
                encodeWords(useQ, comma, coder, bytes, count, target, out);
            }
            return;
        }
        if (!bare) {
            bool sawAt = false;
            for (int i = lt + 1; i < count && gt < 0; ++i) {
                if (bytes[i] == '>') gt = i;
                if (bytes[i] == '@') sawAt = true;
            }
            if (gt < 0 || !sawAt) {
                encodeWords(useQ, comma, coder, bytes, count, target, out);
                return;
            }
        }
        if (lt > 0 && bytes[lt - 1] == ' ') --lt;
        while (gt + 1 < count && (bytes[gt + 1] == ' ' || bytes[gt + 1] == ',')) ++gt;

        StringBuffer phrase;
        if (lt > 0) {
            const char* name = bytes;
            int nameLength = lt;
            // The quotes go even where B leaves a 7-bit name as it is, so a
            // quoted name with a comma comes out bare; kept as it always was.
            bool quoted = lt >= 3 && bytes[0] == '"' && bytes[lt - 1] == '"';
            if (quoted) {
                ++name;
                nameLength -= 2;
            }
            encodeWords(useQ, comma, coder, name, nameLength, target, phrase);
            if (address) phrase.trim();
        }
        // The address in angle brackets goes as it is: encoded, no server
        // could deliver to it.
        out.appendBuffer(phrase);
        out.appendN(bytes + lt, gt - lt + 1);
        if (address || out.getSize() - start > kAddressLineLimit) {
            out.append("\r\n\t");
            start = out.getSize();
        }
        if (gt >= count - 1) return;
        bytes += gt + 1;
        count -= gt + 1;
    }
}

void MimeField::foldAscii(StringBuffer& out, bool freeText, LogBase& log) {
    const char* value = m_value.getString();
    int count = m_value.getSize();
    int col = out.getSize();
    if (col + count <= kAsciiLineLimit) {
        out.appendBuffer(m_value);
        return;
    }
    int behaviour = 4;
    if (!fieldnames::isBlankFoldField(m_name) && looksLikeAddressList(value, count)) behaviour = 1;
    log.LogDataLong("foldBehavior", behaviour);

    bool inQuote = false;
    for (int i = 0; i < count; ++i) {
        char c = value[i];
        if (c == '"') inQuote = !inQuote;
        ++col;
        bool last = i == count - 1;
        if (m_noFold || inQuote || last) {
            out.appendChar(c);
            continue;
        }
        bool separator = (c == ';' && value[i + 1] != '>') || (c == ',' && behaviour == 1);
        if (freeText && c == ' ' && col > kFreeTextFoldColumn - 1) {
            out.append("\r\n ");
            col = 0;
        } else if (!freeText && separator && col > kSeparatorFoldColumn - 1) {
            // The break goes behind the separator; the next line begins with
            // the blank that followed it, or with one of our own.
            out.appendChar(c);
            out.append("\r\n");
            char next = value[i + 1];
            if (next == ' ' || next == '\t') {
                out.appendChar(next);
                ++i;
            } else {
                out.appendChar(' ');
            }
            col = 0;
        } else if (behaviour == 4 && col >= kBlankFoldColumn && (c == ' ' || c == '\t')) {
            out.append("\r\n");
            out.appendChar(c);
            col = 0;
        } else {
            out.appendChar(c);
        }
    }
}

void MimeField::foldPlain(StringBuffer& out, bool foldMode, const char* bytes, int count) {
    int col = out.getSize();
    if (col + count <= kAsciiLineLimit) {
        out.appendN(bytes, count);
        return;
    }
    bool addressList = looksLikeAddressList(bytes, count);
    bool inQuote = false;
    for (int i = 0; i < count; ++i) {
        char c = bytes[i];
        if (c == '"') inQuote = !inQuote;
        ++col;
        bool last = i == count - 1;
        if (m_noFold || inQuote) {
            out.appendChar(c);
            continue;
        }
        if (foldMode) {
            if (c == ' ' && col >= kFreeTextFoldColumn && !last) {
                out.append("\r\n ");
                col = 0;
                continue;
            }
        } else if ((c == ';' && col >= kSeparatorFoldColumn && !last && bytes[i + 1] != '>') ||
                   (c == ',' && addressList && col >= kSeparatorFoldColumn)) {
            out.appendChar(c);
            out.append("\r\n ");
            col = 0;
            continue;
        }
        out.appendChar(c);
    }
}

}  // namespace brelkin
