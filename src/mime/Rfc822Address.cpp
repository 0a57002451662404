// Rfc822Address.cpp - the outward walk from the last "@", and address lists
//
// See Rfc822Address.h
#include "mime/Rfc822Address.h"

#include <cstring>
#include <initializer_list>
#include <new>

#include "mime/ContentCoding.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/ExtPtrArray.h"

namespace brelkin {

namespace {

bool isBlankOrLt(char c) {
    return c == ' ' || c == '<';
}
bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Case-sensitive on purpose: "cn=" in a local part is not a directory element.
bool hasDirectoryElement(const StringBuffer& s) {
    return s.contains("C=") || s.contains("O=") || s.contains("CN=") || s.contains("P=");
}

bool namesUndisclosedRecipients(const StringBuffer& s) {
    return s.containsIgnoreCase("undisclosed recipient") ||
           s.containsIgnoreCase("undisclosed-recipient");
}

// CR and LF go; a tab that continued a folded line becomes a blank.
void unfold(StringBuffer& text) {
    StringBuffer out(text.getSize() + 1);
    const char* s = text.getString();
    const int n = text.getSize();
    for (int i = 0; i < n; ++i) {
        if (s[i] == '\r') continue;
        if (s[i] == '\n') {
            if (i + 1 < n && s[i + 1] == '\t') {
                out.appendChar(' ');
                ++i;
            }
            continue;
        }
        out.appendChar(s[i]);
    }
    text.setFrom(out);
}

}  // namespace

Rfc822Address::Rfc822Address(const StringBuffer* text) {
    if (text) parse(*text);
}

Rfc822Address* Rfc822Address::createAddress(const StringBuffer* text) {
    if (!text) return nullptr;
    Rfc822Address* address = new (std::nothrow) Rfc822Address(text);
    if (address && !address->m_valid) {
        delete address;
        address = nullptr;
    }
    return address;
}

int Rfc822Address::parseAddressList(const char* text, ExtPtrArray& out) {
    if (!text) return 0;
    StringBuffer work(text);
    work.trimSpacesTabs();
    unfold(work);

    ExtPtrArray pieces;
    work.split(pieces, ',', true, true);
    int found = 0;
    for (int i = 0; i < pieces.getSize(); ++i) {
        Rfc822Address* address = createAddress(static_cast<const StringBuffer*>(pieces.getAt(i)));
        if (!address) continue;
        out.append(address);
        ++found;
    }
    pieces.deleteAll();
    return found;
}

void Rfc822Address::getName(StringBuffer& out) const {
    if (m_name.getSize() == 0) return;
    if (!m_name.containsIgnoreCase("?Q?") && !m_name.containsIgnoreCase("?B?")) {
        out.appendBuffer(m_name);
        return;
    }
    StringBuffer decoded(m_name);
    ContentCoding::decodeEncodedWords(decoded);
    out.appendBuffer(decoded);
}

void Rfc822Address::getAddress(StringBuffer& out) const {
    out.appendBuffer(m_address);
}

void Rfc822Address::parse(const StringBuffer& text) {
    if (text.getSize() == 0 || namesUndisclosedRecipients(text)) return;
    m_raw.setFrom(text);
    m_raw.trimSpacesTabs();
    // A piece of blanks between two commas is no address either.
    if (m_raw.getSize() == 0) return;
    if (parseDirectoryForm()) return;
    parseCommonForm();
    finishName();
}

// X.400-style and slash-separated directory names have no "@" to walk from;
// they are taken whole, or split at the angle brackets.
bool Rfc822Address::parseDirectoryForm() {
    if (!hasDirectoryElement(m_raw)) return false;
    const char* s = m_raw.getString();
    const char* lt = std::strchr(s, '<');
    if (!lt) {
        m_address.setFrom(m_raw);
        m_valid = true;
        return true;
    }
    m_name.appendN(s, static_cast<int>(lt - s));
    const char* gt = std::strchr(lt, '>');
    const char* end = gt ? gt : s + m_raw.getSize();
    m_address.appendN(lt, static_cast<int>(end - lt));
    for (StringBuffer* part : {&m_name, &m_address}) {
        part->removeChar('<');
        part->removeChar('>');
    }
    m_name.removeChar('"');
    m_name.trim();
    m_address.trim();
    m_valid = true;
    return true;
}

void Rfc822Address::parseCommonForm() {
    const char* s = m_raw.getString();
    const int n = m_raw.getSize();

    // Without an "@" the end of the text is taken for the address.
    const char* lastAt = std::strrchr(s, '@');
    int at = lastAt ? static_cast<int>(lastAt - s) : (n < 2 ? 0 : n - 2);

    int start = 0;
    if (at != 0) {
        for (int i = at - 1; i >= 0; --i) {
            if (isBlankOrLt(s[i])) {
                start = i;
                break;
            }
        }
    }
    bool delimited = false;
    if (start < n && isBlankOrLt(s[start])) {
        ++start;
        delimited = true;
    }

    int end = at;
    while (end < n && s[end] != ' ' && s[end] != '>') ++end;
    if (end < start) end = start;
    m_address.appendN(s + start, end - start);
    m_valid = true;

    if (delimited) --start;
    if (start > 0) readDisplayName(start);
}

// The name ends at the first unescaped double quote behind the opening
// quotes, or at the delimiter before the address; trailing "<", blanks and
// one closing quote are walked back over.
void Rfc822Address::readDisplayName(int start) {
    const char* s = m_raw.getString();
    int p = 0;
    while (p < start && isQuote(s[p])) ++p;

    int q = start;
    for (int i = p; i < start; ++i) {
        if (s[i] == '"' && (i == 0 || s[i - 1] != '\\')) {
            q = i;
            break;
        }
    }
    while (q >= p) {
        const char c = s[q];
        if (isBlankOrLt(c)) {
            --q;
        } else if (isQuote(c)) {
            --q;
            break;
        } else {
            break;
        }
    }
    if (q < p) return;
    m_name.appendN(s + p, q - p + 1);
    m_name.trimSpacesTabs();
}

void Rfc822Address::finishName() {
    if (m_name.equals(m_address.getString())) m_name.clear();

    if (m_name.containsIgnoreCase("?8bit?")) {
        DataBuffer raw;
        ContentCoding::decodeEncodedWordsRaw(m_name, raw);
        m_name.clear();
        m_name.appendData(raw);
    }
    m_address.removeChar(' ');
    m_address.removeChar('"');

    // The name is held encoded so that it survives any charset the header
    // is later written in; getName decodes it.
    ContentCoding coder;
    if (!m_name.is7bit(0)) {
        StringBuffer encoded;
        coder.encodeWordByCharset(m_name.getString(), static_cast<uint32_t>(m_name.getSize()),
                                  "utf-8", encoded);
        m_name.setFrom(encoded);
    }
    if (m_name.contains("\x1b$B")) {
        StringBuffer encoded;
        coder.encodeBWords(m_name.getString(), static_cast<uint32_t>(m_name.getSize()), 50220,
                           "iso-2022-jp", encoded);
        m_name.setFrom(encoded);
    }
}

}  // namespace brelkin
