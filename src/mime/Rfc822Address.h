// Rfc822Address.h - one e-mail address read out of a piece of header text
//
// Real address headers are rarely grammatical, so the reader does not follow
// the mail grammar: it starts at the last "@" and looks outward, the address
// running to the first blank or "<" before it and the first blank or ">"
// behind it, the display name being what stands in front, with or without
// quotes. Directory-style addresses ("C=", "O=", "CN=", "P=") with no "@"
// are taken whole. A non-ASCII display name is kept as one encoded word and
// decoded again by getName.
//
// Input:       any bytes; a null or empty text, or one that names undisclosed
//              recipients, gives no address. parseAddressList cuts at commas
//              outside double quotes only: a ";" does not separate addresses.
// Diagnostics: none; isValid and the null of createAddress say whether an
//              address was found.
// Limits:      32-bit lengths of StringBuffer.
// Known gaps:  a comment behind a bare address is lost, and the directory
//              tests look anywhere in the text, so an ordinary address holding
//              "O=" or "CN=" is read as a directory address (kept: stored mail
//              was read that way).
// See also:    MimeField.h (the address-list road), ContentCoding.h
#pragma once

#include "textlib/buffers/BrelkinObject.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class ExtPtrArray;

class Rfc822ParseHelp {
public:
    virtual ~Rfc822ParseHelp() = default;
};

class Rfc822Address : public Rfc822ParseHelp, public BrelkinObject {
public:
    // Parses `text` at once; null leaves the object invalid.
    explicit Rfc822Address(const StringBuffer* text);
    ~Rfc822Address() override = default;
    Rfc822Address(const Rfc822Address&) = delete;
    Rfc822Address& operator=(const Rfc822Address&) = delete;

    // A new object on the heap, or null when `text` is null or gives no address.
    static Rfc822Address* createAddress(const StringBuffer* text);

    // Cuts `text` at commas outside double quotes and appends one new
    // Rfc822Address per piece that gives one; the caller owns them.
    // Returns the number appended; 0 for a null text.
    static int parseAddressList(const char* text, ExtPtrArray& out);

    bool isValid() const { return m_valid; }
    // Appends the display name as UTF-8, decoding encoded words in it.
    void getName(StringBuffer& out) const;
    // Appends the address, without angle brackets.
    void getAddress(StringBuffer& out) const;

    bool m_valid = false;
    StringBuffer m_raw;      // the input, trimmed of blanks and tabs
    StringBuffer m_name;     // a non-ASCII name is held as one encoded word
    StringBuffer m_address;  // without angle brackets

private:
    void parse(const StringBuffer& text);
    bool parseDirectoryForm();
    void parseCommonForm();
    void readDisplayName(int start);
    void finishName();
};

}  // namespace brelkin
