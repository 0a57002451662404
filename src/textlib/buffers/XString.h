// XString.h - one text in up to three forms: UTF-16, ANSI and UTF-8
//
// File names and API arguments cross between the engine and the system in an
// XString: a caller sets the form it has, a receiver asks for the form it
// needs, and a missing form is made on demand, from UTF-8 first, then from
// whichever other form is current, and kept until the next change. ANSI is
// the system's code page (GetACP).
//
// Input:       a null or empty argument to a setter clears; a null argument
//              to an append does nothing. A leading UTF-8 byte order mark is
//              dropped wherever UTF-8 comes in.
// Diagnostics: only isAnsiOk reports: whether the text fits the ANSI page. A
//              conversion that fails keeps what it could convert.
// Limits:      getters change the object; not thread-safe.
// See also:    EncodingConvert.h, StringBuffer.h, DataBuffer.h
#pragma once

#include <cstdint>

#include "textlib/buffers/BrelkinObject.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class XString : public BrelkinObject {
public:
    XString();
    ~XString() override;
    XString(const XString&) = delete;
    XString& operator=(const XString&) = delete;

    void clear();
    void setAnsi(const char* text);
    void setUtf8(const char* text);
    void setUtf8N(const char* bytes, int length);
    // setUtf8 of `text` without a copy: the block changes hands and `text`
    // is left with whatever this string held.
    void takeUtf8(StringBuffer& text);
    void setUnicode(const char16_t* text);
    void setFrom(const char* text, bool isUtf8);

    void appendAnsi(const char* text);
    void appendUtf8(const char* text);
    void appendUtf8N(const char* bytes, int length);
    void appendUnicode(const char16_t* text);
    void appendString(const XString& other);
    // `text` in the named charset; null or blank means "utf-8", "ansi" the
    // system's page. An unknown charset appends nothing.
    void appendEncoded(const char* text, const char* charset);

    const char* getAnsi();
    const char* getUtf8();
    const char16_t* getUnicode();
    int getSizeUtf8();
    // Bytes of the ANSI form when it is current, else UTF-16 units.
    int getNumChars();
    bool isAnsiOk();

    bool beginsWithUtf8(const char* text);
    bool containsUtf8(const char* text);
    // Position of the first occurrence in UTF-16 units; -1 when absent.
    int indexOfUtf8(const char* text);
    // Replaces one ANSI character by another in the UTF-16 form.
    void replaceChar(char from, char to);

private:
    void makeUnicode();
    void makeAnsi();
    void makeUtf8();
    void keepOnly(bool unicode, bool ansi, bool utf8);
    // The UTF-16 form without its terminator, or null when it holds no character.
    const uint8_t* unicodeText(uint32_t& length) const;

    int m_ansiStatus;  // 0 not known, 1 fits the ANSI page, 2 does not
    bool m_haveUnicode;
    bool m_haveAnsi;
    bool m_haveUtf8;
    DataBuffer m_unicodeForm;  // always closed by a two-byte zero
    StringBuffer m_ansiForm;
    StringBuffer m_utf8Form;
};

}  // namespace brelkin
