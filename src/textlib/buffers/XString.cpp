// XString.cpp - one text in up to three forms: UTF-16, ANSI and UTF-8
//
// See XString.h
#include "textlib/buffers/XString.h"

#include <cstring>

#include "platform/CodePage.h"
#include "textlib/charset/EncodingConvert.h"

namespace brelkin {

namespace {

constexpr int kUtf16 = 1200;
constexpr int kUtf8 = 65001;

int ansiCodePage() { return static_cast<int>(platform::GetACP()); }

// Whether the ANSI page writes every 7-bit character as the same byte as
// UTF-8 does. True of the pages a system offers as ANSI, but a settings file
// may name any page, so it is checked once per page rather than assumed.
bool asciiIsAnsi(int codePage) {
    thread_local int checkedPage = -1;
    thread_local bool verdict = false;
    if (codePage == checkedPage) return verdict;
    char ascii[127];
    for (int i = 0; i < 127; ++i) ascii[i] = static_cast<char>(i + 1);
    DataBuffer converted;
    EncodingConvert conv;
    verdict = conv.convert(kUtf8, codePage, ascii, sizeof ascii, converted) &&
              converted.getSize() == sizeof ascii &&
              std::memcmp(converted.getData(), ascii, sizeof ascii) == 0;
    checkedPage = codePage;
    return verdict;
}

const char* skipUtf8Mark(const char* text) {
    if (text && static_cast<uint8_t>(text[0]) == 0xEF && static_cast<uint8_t>(text[1]) == 0xBB &&
        static_cast<uint8_t>(text[2]) == 0xBF)
        return text + 3;
    return text;
}

bool startsWithUtf8Mark(const char* bytes, int length) {
    return length >= 3 && std::memcmp(bytes, "\xEF\xBB\xBF", 3) == 0;
}

// Moves a converted block into a StringBuffer, which needs a terminator.
void moveInto(DataBuffer& converted, StringBuffer& target) {
    converted.appendByte(0);
    target.takeData(converted);
}

}  // namespace

XString::XString()
    : m_ansiStatus(0), m_haveUnicode(true), m_haveAnsi(true), m_haveUtf8(true) {
    m_unicodeForm.appendWideZ(nullptr);
}

XString::~XString() = default;

void XString::clear() {
    m_ansiStatus = 0;
    m_unicodeForm.clear();
    m_unicodeForm.appendWideZ(nullptr);
    m_ansiForm.clear();
    m_ansiForm.minimize();
    m_utf8Form.clear();
    m_utf8Form.minimize();
    keepOnly(true, true, true);
}

void XString::keepOnly(bool unicode, bool ansi, bool utf8) {
    m_haveUnicode = unicode;
    m_haveAnsi = ansi;
    m_haveUtf8 = utf8;
}

void XString::setAnsi(const char* text) {
    if (!text || !*text) {
        clear();
        return;
    }
    m_ansiForm.setString(text);
    keepOnly(false, true, false);
    m_ansiStatus = 1;
}

void XString::setUtf8(const char* text) {
    text = skipUtf8Mark(text);
    if (!text || !*text) {
        clear();
        return;
    }
    m_utf8Form.setString(text);
    keepOnly(false, false, true);
    m_ansiStatus = 0;
}

void XString::takeUtf8(StringBuffer& text) {
    const char* bytes = text.getString();
    const bool plain = bytes && *bytes && skipUtf8Mark(bytes) == bytes &&
                       std::strlen(bytes) == static_cast<size_t>(text.getSize());
    if (!plain) {
        setUtf8(bytes);
        return;
    }
    m_utf8Form.swapWith(text);
    keepOnly(false, false, true);
    m_ansiStatus = 0;
}

void XString::setUtf8N(const char* bytes, int length) {
    if (bytes && startsWithUtf8Mark(bytes, length)) {
        bytes += 3;
        length -= 3;
    }
    if (!bytes || length <= 0) {
        clear();
        return;
    }
    m_utf8Form.clear();
    m_utf8Form.appendN(bytes, length);
    keepOnly(false, false, true);
    m_ansiStatus = 0;
}

void XString::setUnicode(const char16_t* text) {
    if (!text || !*text) {
        clear();
        return;
    }
    m_unicodeForm.clear();
    m_unicodeForm.appendWideZ(text);
    keepOnly(true, false, false);
    m_ansiStatus = 0;
}

void XString::setFrom(const char* text, bool isUtf8) {
    if (isUtf8)
        setUtf8(text);
    else
        setAnsi(text);
}

void XString::appendAnsi(const char* text) {
    if (!text)
        return;
    makeAnsi();
    m_ansiForm.append(text);
    keepOnly(false, true, false);
}

void XString::appendUtf8(const char* text) {
    if (!text)
        return;
    makeUtf8();
    m_utf8Form.append(skipUtf8Mark(text));
    keepOnly(false, false, true);
    m_ansiStatus = 0;
}

void XString::appendUtf8N(const char* bytes, int length) {
    if (!bytes || length <= 0)
        return;
    if (startsWithUtf8Mark(bytes, length)) {
        bytes += 3;
        length -= 3;
    }
    makeUtf8();
    m_utf8Form.appendN(bytes, length);
    keepOnly(false, false, true);
    m_ansiStatus = 0;
}

void XString::appendUnicode(const char16_t* text) {
    if (!text)
        return;
    makeUnicode();
    m_unicodeForm.shorten(2);
    m_unicodeForm.appendWideZ(text);
    keepOnly(true, false, false);
    m_ansiStatus = 0;
}

void XString::appendString(const XString& other) {
    if (other.m_haveUtf8) {
        const StringBuffer copy(other.m_utf8Form);  // `other` may be this very string
        appendUtf8N(copy.getString(), copy.getSize());
    } else if (other.m_haveUnicode) {
        DataBuffer copy;
        copy.appendBuffer(other.m_unicodeForm);
        appendUnicode(reinterpret_cast<const char16_t*>(copy.getData()));
    } else {
        const StringBuffer copy(other.m_ansiForm);
        appendAnsi(copy.getString());
    }
}

void XString::appendEncoded(const char* text, const char* charset) {
    if (!text)
        return;
    StringBuffer name(charset ? charset : "utf-8");
    name.trim();
    if (name.getSize() == 0 || name.equalsIgnoreCase("utf-8")) {
        appendUtf8(text);
        return;
    }
    if (name.equalsIgnoreCase("ansi")) {
        appendAnsi(text);
        return;
    }
    DataBuffer converted;
    EncodingConvert conv;
    conv.convertFromName(name.getString(), kUtf8, text, static_cast<uint32_t>(std::strlen(text)),
                         converted);
    converted.appendByte(0);
    appendUtf8(reinterpret_cast<const char*>(converted.getData()));
}

const uint8_t* XString::unicodeText(uint32_t& length) const {
    length = m_unicodeForm.getSize() > 3 ? m_unicodeForm.getSize() - 2 : 0;
    return length ? m_unicodeForm.getData() : nullptr;
}

// UTF-16 from UTF-8 first, else from ANSI.
void XString::makeUnicode() {
    if (m_haveUnicode)
        return;
    if (!m_haveUtf8 && !m_haveAnsi) {
        clear();
        return;
    }
    const StringBuffer& source = m_haveUtf8 ? m_utf8Form : m_ansiForm;
    const int from = m_haveUtf8 ? kUtf8 : ansiCodePage();
    m_unicodeForm.clear();
    EncodingConvert conv;
    conv.convert(from, kUtf16, source.getString(), static_cast<uint32_t>(source.getSize()),
                 m_unicodeForm);
    m_unicodeForm.appendWideZ(nullptr);
    m_haveUnicode = true;
}

// ANSI from UTF-8 first, else from UTF-16; the verdict goes to ansiStatus.
void XString::makeAnsi() {
    if (m_haveAnsi)
        return;
    if (!m_haveUtf8 && !m_haveUnicode) {
        clear();
        return;
    }
    if (m_haveUtf8 && m_utf8Form.is7bit(0) && asciiIsAnsi(ansiCodePage())) {
        // The same bytes in both forms: the block changes form instead of
        // being copied, which matters for a whole message text.
        m_ansiForm.swapWith(m_utf8Form);
        m_utf8Form.clear();
        keepOnly(m_haveUnicode, true, false);
        m_ansiStatus = 1;
        return;
    }
    DataBuffer converted;
    EncodingConvert conv;
    bool ok = true;
    if (m_haveUtf8) {
        ok = conv.convert(kUtf8, ansiCodePage(), m_utf8Form.getString(),
                          static_cast<uint32_t>(m_utf8Form.getSize()), converted);
    } else {
        uint32_t length = 0;
        if (const uint8_t* text = unicodeText(length))
            ok = conv.convert(kUtf16, ansiCodePage(), text, length, converted);
    }
    moveInto(converted, m_ansiForm);
    m_ansiStatus = ok ? 1 : 2;
    m_haveAnsi = true;
}

// UTF-8 from ANSI first, else from UTF-16.
void XString::makeUtf8() {
    if (m_haveUtf8)
        return;
    if (!m_haveAnsi && !m_haveUnicode) {
        clear();
        return;
    }
    DataBuffer converted;
    EncodingConvert conv;
    if (m_haveAnsi) {
        const uint32_t length = static_cast<uint32_t>(m_ansiForm.getSize());
        converted.ensureCapacity(length + length / 16 + 4);
        conv.convert(ansiCodePage(), kUtf8, m_ansiForm.getString(), length, converted);
    } else {
        uint32_t length = 0;
        if (const uint8_t* text = unicodeText(length))
            conv.convert(kUtf16, kUtf8, text, length, converted);
    }
    moveInto(converted, m_utf8Form);
    m_haveUtf8 = true;
}

const char* XString::getAnsi() {
    makeAnsi();
    return m_ansiForm.getString();
}

const char* XString::getUtf8() {
    makeUtf8();
    return m_utf8Form.getString();
}

const char16_t* XString::getUnicode() {
    makeUnicode();
    return reinterpret_cast<const char16_t*>(m_unicodeForm.getData());
}

int XString::getSizeUtf8() {
    makeUtf8();
    return m_utf8Form.getSize();
}

int XString::getNumChars() {
    if (m_haveAnsi)
        return m_ansiForm.getSize();
    makeUnicode();
    return static_cast<int>(m_unicodeForm.getSize() / 2) - 1;
}

bool XString::isAnsiOk() {
    if (m_ansiStatus == 1)
        return true;
    if (m_ansiStatus == 2)
        return false;
    if (!m_haveUnicode && !m_haveUtf8)
        return true;
    DataBuffer converted;
    EncodingConvert conv;
    bool ok = true;
    if (m_haveUnicode) {
        uint32_t length = 0;
        if (const uint8_t* text = unicodeText(length))
            ok = conv.convert(kUtf16, ansiCodePage(), text, length, converted);
    } else {
        ok = conv.convert(kUtf8, ansiCodePage(), m_utf8Form.getString(),
                          static_cast<uint32_t>(m_utf8Form.getSize()), converted);
    }
    moveInto(converted, m_ansiForm);
    if (!ok)
        m_ansiForm.clear();
    m_haveAnsi = ok;
    m_ansiStatus = ok ? 1 : 2;
    return ok;
}

bool XString::beginsWithUtf8(const char* text) {
    if (!text)
        return false;
    makeUtf8();
    return m_utf8Form.beginsWith(skipUtf8Mark(text));
}

bool XString::containsUtf8(const char* text) {
    if (!text)
        return false;
    makeUtf8();
    return m_utf8Form.contains(skipUtf8Mark(text));
}

int XString::indexOfUtf8(const char* text) {
    if (!text)
        return -1;
    makeUtf8();
    const char* found = std::strstr(m_utf8Form.getString(), skipUtf8Mark(text));
    if (!found)
        return -1;
    XString front;
    front.setUtf8N(m_utf8Form.getString(), static_cast<int>(found - m_utf8Form.getString()));
    return front.getNumChars();
}

void XString::replaceChar(char from, char to) {
    const char pair[2] = {from, to};
    DataBuffer units;
    EncodingConvert conv;
    conv.convert(ansiCodePage(), kUtf16, pair, 2, units);
    if (units.getSize() != 4)
        return;
    const uint8_t* u = units.getData();
    makeUnicode();
    m_unicodeForm.replaceWideChar(static_cast<char16_t>(u[0] | (u[1] << 8)),
                                  static_cast<char16_t>(u[2] | (u[3] << 8)));
    keepOnly(true, false, false);
}

}  // namespace brelkin
