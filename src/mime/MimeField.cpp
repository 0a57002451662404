// MimeField.cpp - reading a field in, and choosing how its value is written
//
// See MimeField.h. The folding roads are in MimeFieldFold.cpp.
#include "mime/MimeField.h"

#include <initializer_list>

#include "mime/ContentCoding.h"
#include "mime/MimeFieldNames.h"
#include "mime/Rfc822Address.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogBase.h"

namespace brelkin {

namespace {

constexpr int kUsAscii = 20127;
constexpr int kUtf8 = 65001;
constexpr int kLatin1 = 28591;
constexpr int kWindows1252 = 1252;
constexpr int kLatin2 = 28592;

// Opens the "MimeField" log context only when asked to be verbose.
class VerboseContext {
  public:
    VerboseContext(LogBase& log, bool verbose) : m_log(log), m_open(verbose) {
        if (m_open) m_log.enterContext("MimeField", 1);
    }
    ~VerboseContext() {
        if (m_open) m_log.leaveContext();
    }
    VerboseContext(const VerboseContext&) = delete;
    VerboseContext& operator=(const VerboseContext&) = delete;

  private:
    LogBase& m_log;
    bool m_open;
};

bool holdsWordMarker(const StringBuffer& value) {
    return value.containsIgnoreCase("?Q?") || value.containsIgnoreCase("?B?");
}

// Unfolding drops the line break and the white space that begins the next
// line, so a fold inside a word joins the word again.
void removeFolds(StringBuffer& value) {
    if (!value.containsChar('\n')) return;
    value.replaceAll("\r\n\t", "");
    value.replaceAll("\r\n ", "");
}

bool isSingleByteOrUnicode(int cp) {
    switch (cp) {
        case 932:
        case 52936:
        case 936:
        case 949:
        case 950:
        case 874:
        case 1361:
        case 1200:
        case 1201:
        case 28596:
        case 1256:
            return false;
        default:
            return cp < 50001 || cp > 64999;
    }
}

bool convertsTo(const StringBuffer& utf8, int codePage, DataBuffer& out) {
    return EncodingConvert().convert(kUtf8, codePage, utf8.getString(),
                                     static_cast<uint32_t>(utf8.getSize()), out);
}

// The name an encoded word gives for bytes in `codePage`: the message's own
// name where it is that page, the canonical one otherwise.
void charsetNameOf(int codePage, const _bkCharset& charset, StringBuffer& name) {
    if (charset.getCodePage() == codePage && charset.getName() && *charset.getName()) {
        name.setString(charset.getName());
    } else if (!codePageToName(codePage, name)) {
        name.setString("utf-8");
    }
}

}  // namespace

bool MimeField::parse(const StringBuffer& raw, LogBase& log, bool verbose) {
    m_name.clear();
    m_value.clear();
    const char* text = raw.getString();
    int length = raw.getSize();
    int colon = -1;
    for (int i = 0; i < length && colon < 0; ++i) {
        if (text[i] == ':') colon = i;
    }
    if (colon < 0) return false;

    VerboseContext context(log, verbose);
    if (verbose) log.LogData("rawField", text);

    m_name.appendN(text, colon);
    m_name.trim();
    int valueStart = colon + 1;
    if (valueStart < length && (text[valueStart] == ' ' || text[valueStart] == '\t')) ++valueStart;
    m_value.appendN(text + valueStart, length - valueStart);
    // A subject keeps its own blanks: they may be what the sender meant.
    if (!m_name.equalsIgnoreCase("subject")) m_value.trim();
    for (char bad : {' ', '<', '>', '"', '\''}) m_name.replaceChar(bad, '-');

    if (holdsWordMarker(m_value)) {
        if (fieldnames::isAddressField(m_name)) {
            bool sawComma = false;
            ContentCoding::decodeEncodedWordsForAddresses(m_value, sawComma);
            if (sawComma) rebuildAddressList();
        } else {
            ContentCoding::decodeEncodedWords(m_value);
        }
    }
    removeFolds(m_value);
    if (m_name.equalsIgnoreCase("user-agent")) m_noFold = true;
    if (fieldnames::isSemicolonListField(m_name)) m_value.replaceChar(';', ',');
    if (fieldnames::isCollapsedField(m_name)) m_value.collapseWhitespace();

    if (verbose) {
        log.LogData("name", m_name.getString());
        log.LogData("value", m_value.getString());
    }
    return true;
}

// A "," that came out of an encoded word is a person's "Doe, John", not a
// list separator: the list is cut at the real commas first and each name is
// then put back, quoted, with its comma.
void MimeField::rebuildAddressList() {
    ExtPtrArray addresses;
    // With no address to rebuild from, the decoded text stands, commas back.
    if (Rfc822Address::parseAddressList(m_value.getString(), addresses) == 0) {
        m_value.replaceAll("_COMMA_", ",");
        return;
    }
    StringBuffer rebuilt;
    for (int i = 0; i < addresses.getSize(); ++i) {
        const Rfc822Address* address = static_cast<const Rfc822Address*>(addresses.getAt(i));
        if (!address) continue;
        if (rebuilt.getSize() > 0) rebuilt.appendChar(',');
        StringBuffer name;
        address->getName(name);
        name.replaceAll("_COMMA_", ",");
        bool quote = name.containsChar(',') || name.containsChar(' ');
        if (quote) rebuilt.appendChar('"');
        rebuilt.appendBuffer(name);
        if (quote) rebuilt.appendChar('"');
        rebuilt.append(" <");
        address->getAddress(rebuilt);
        rebuilt.appendChar('>');
    }
    addresses.deleteAll();
    m_value.setFrom(rebuilt);
}

void MimeField::set(const char* name, const char* value) {
    m_name.setString(name);
    m_value.setString(value);
    if (m_value.contains("?Q?")) ContentCoding::decodeEncodedWords(m_value);
    if (m_value.contains("?B?")) ContentCoding::decodeEncodedWords(m_value);
    removeFolds(m_value);
    if (m_name.equalsIgnoreCase("user-agent") || m_name.equalsIgnoreCase("accept") ||
        m_name.equalsIgnoreCase("accept-charset"))
        m_noFold = true;
}

void MimeField::assemble(StringBuffer& out, const _bkCharset& charset, LogBase& log, bool verbose) {
    VerboseContext context(log, verbose);
    if (verbose) {
        log.LogData("name", m_name.getString());
        log.LogData("m_value", m_value.getString());
    }
    out.appendBuffer(m_name);
    out.append(": ");
    encodeValue(out, charset, log, verbose);
    // Trimming also takes the line break the address road leaves behind its
    // last address. A subject's blanks are the sender's and stay.
    if (!m_name.equalsIgnoreCase("subject")) out.trim();
    if (verbose) log.LogData("encodedValue", out.getString());
}

void MimeField::encodeValue(StringBuffer& out, const _bkCharset& charset, LogBase& log,
                            bool verbose) {
    ContentCoding coder;
    coder.setEncodeCommas(fieldnames::isAddressField(m_name));
    bool freeText = fieldnames::isFreeTextField(m_name);
    int cp = charset.getCodePage();
    const char* value = m_value.getString();
    int valueLength = m_value.getSize();
    bool sevenBit = m_value.is7bit(0);
    const Target utf8 = {kUtf8, "utf-8", cp};

    // Writes the value as UTF-8 words; the raw value when nothing came out,
    // so that a field is never lost.
    auto utf8OrRaw = [&](bool useQ, StringBuffer& into) {
        int before = into.getSize();
        encodeStructured(useQ, coder, value, valueLength, utf8, into);
        if (into.getSize() <= before) into.appendBuffer(m_value);
    };

    if (isSingleByteOrUnicode(cp)) {
        if (sevenBit && cp == kUsAscii) {
            log.LogInfo("Appending 7bit value. (us-ascii)");
            foldAscii(out, freeText, log);
            return;
        }
        if (cp == kUsAscii) {
            log.LogInfo("Appending 8bit utf-8 value. (us-ascii email)");
            utf8OrRaw(false, out);
            return;
        }
        if (cp == kUtf8) {
            encodeStructured(false, coder, value, valueLength, utf8, out);
            return;
        }
        if (cp == 0) {
            // No charset at all: the UTF-8 bytes stand and their words say so.
            encodeStructured(true, coder, value, valueLength, utf8, out);
            return;
        }
        DataBuffer converted;
        if (convertsTo(m_value, cp, converted)) {
            StringBuffer name;
            charsetNameOf(cp, charset, name);
            const Target target = {cp, name.getString(), cp};
            encodeStructured(true, coder, reinterpret_cast<const char*>(converted.getData()),
                             static_cast<int>(converted.getSize()), target, out);
            return;
        }
        DataBuffer latin2;
        if ((cp == kLatin1 || cp == kWindows1252) && convertsTo(m_value, kLatin2, latin2)) {
            StringBuffer name;
            charsetNameOf(kLatin2, charset, name);
            const Target target = {kLatin2, name.getString(), cp};
            encodeStructured(true, coder, reinterpret_cast<const char*>(latin2.getData()),
                             static_cast<int>(latin2.getSize()), target, out);
            return;
        }
        // Deliberately without the name in front: the folding of this road
        // counts from the start of the value.
        StringBuffer own;
        encodeStructured(true, coder, value, valueLength, utf8, own);
        out.appendBuffer(own.getSize() > 0 ? own : m_value);
        return;
    }

    if (verbose) log.LogDataLong("codePage", cp);
    if (cp >= 50220 && cp <= 50225 && sevenBit) {
        log.LogInfo("Appending 7bit value and returning.");
        out.appendBuffer(m_value);
        return;
    }
    DataBuffer converted;
    if (cp != 1200 && cp != 1201 && convertsTo(m_value, cp, converted)) {
        StringBuffer name;
        charsetNameOf(cp, charset, name);
        const Target target = {cp, name.getString(), cp};
        encodeStructured(false, coder, reinterpret_cast<const char*>(converted.getData()),
                         static_cast<int>(converted.getSize()), target, out);
        return;
    }
    utf8OrRaw(false, out);
}

}  // namespace brelkin
