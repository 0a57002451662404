// MimeField.h - one header field: unfolded UTF-8 in memory, encoded and folded on the way out
//
// In memory the value is unfolded UTF-8 with every encoded word decoded, so
// that an application reads and edits plain text. assemble decides the whole
// look of the written field: which names are free text, structured or address
// lists, where lines break, and whether 8-bit text goes out as Q or B words.
// Single-byte charsets get Q; UTF-8, multi-byte and stateful charsets get B;
// an encoded word names the charset of its bytes, not the message's.
//
// Input:       parse takes the raw field as read ("Name: value", folds
//              allowed); set takes an application's name and value as given.
// Diagnostics: parse is false only without a ":"; with `verbose` both parse
//              and assemble log their steps in a "MimeField" context.
// Limits:      32-bit lengths of StringBuffer; the name lists are fixed.
// Known gaps:  fold columns count bytes, not characters; an address list
//              under a charset the value does not fit goes out one address a
//              line even when it is short.
// See also:    ContentCoding.h (encoded words), Rfc822Address.h, MimeHeader.h
#pragma once

#include <cstdint>

#include "textlib/buffers/BrelkinObject.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class ContentCoding;
class LogBase;
class _bkCharset;

class MimeField : public BrelkinObject {
  public:
    MimeField() = default;
    ~MimeField() override = default;

    // Fills the field from a raw header line. False without a ":".
    bool parse(const StringBuffer& raw, LogBase& log, bool verbose);
    // Fills the field from an application's name and value; encoded words in
    // the value are decoded, folds removed.
    void set(const char* name, const char* value);

    const char* getName() const { return m_name.getString(); }
    // Appends the value (UTF-8, unfolded).
    void getValue(StringBuffer& out) const { out.appendBuffer(m_value); }
    bool nameEquals(const char* name) const { return m_name.equalsIgnoreCase(name); }

    // Appends "Name: value", encoded for `charset` and folded, without a final
    // line end. An empty value gives "Name:".
    void assemble(StringBuffer& out, const _bkCharset& charset, LogBase& log, bool verbose);

    // Public on purpose: the header model edits fields in place.
    bool m_noFold = false;  // written on one line, whatever its length
    StringBuffer m_name;    // as written, any case
    StringBuffer m_value;   // UTF-8, unfolded, decoded

  private:
    // The charset the value's bytes are written in, and the message's code
    // page, which decides the rules for 7-bit stateful charsets.
    struct Target {
        int codePage;
        const char* name;
        int messageCodePage;
    };

    void encodeValue(StringBuffer& out, const _bkCharset& charset, LogBase& log, bool verbose);
    void encodeStructured(bool useQ, ContentCoding& coder, const char* bytes, int count,
                          const Target& target, StringBuffer& out);
    void encodeParams(bool useQ, ContentCoding& coder, const char* bytes, int count,
                      const Target& target, StringBuffer& out, StringBuffer& pending,
                      StringBuffer& current);
    void encodeSegment(bool useQ, bool isParam, bool foldMode, ContentCoding& coder,
                       const char* bytes, int count, const Target& target, StringBuffer& out);
    void encodeWords(bool useQ, bool comma, ContentCoding& coder, const char* bytes, int count,
                     const Target& target, StringBuffer& out);
    void foldAscii(StringBuffer& out, bool freeText, LogBase& log);
    void foldPlain(StringBuffer& out, bool foldMode, const char* bytes, int count);
    void rebuildAddressList();
};

}  // namespace brelkin
