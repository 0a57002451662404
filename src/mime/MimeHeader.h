// MimeHeader.h - the ordered header fields of one MIME node
//
// Fields in memory are UTF-8 whatever the message was written in, so parsing
// must settle on one code page for the whole header before it touches a
// field: encoded words name it, an ISO-2022-JP escape in a 7-bit header
// implies it, a charset name in the header or anywhere in the message may
// say it, and failing all that the bytes are tried as UTF-8, as ANSI and as
// the two common Latin pages. That code page is kept in m_codePage and is
// what the fields go back to on assembly when the caller names no charset.
//
// The field order is the order of parsing and is kept on output; several
// fields may share a name, and lookups give the first. Names compare without
// regard to case.
//
// Input:       ParseMimeHeader takes a zero-terminated text that may go on
//              past the header (a whole message); CR LF, LF and mixed line
//              ends are all read.
// Diagnostics: nothing fails: a line that is no field is dropped, a failed
//              conversion keeps what the converter gave. Steps and the code
//              page decision are logged with `verbose`; out of memory always.
// Limits:      at most 100,000 header lines are read; the rest are dropped.
// Known gaps:  a later Content-Type replaces an earlier one and moves to the
//              end, except when it is the last field, in which case the first
//              one stays and lookups give it (kept: stored mail depends on it).
// See also:    MimeField.h (one field), Rfc822Address.h, MimeMessage2.h
#pragma once

#include <cstdint>

#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class LogBase;
class MimeField;
class _bkCharset;

class MimeHeader {
  public:
    MimeHeader() = default;
    virtual ~MimeHeader();
    MimeHeader(const MimeHeader&) = delete;
    MimeHeader& operator=(const MimeHeader&) = delete;

    // Deletes all fields; the code page becomes 0.
    void clear();

    // Replaces everything by the header at the start of `text`; null only clears.
    void ParseMimeHeader(const char* text, LogBase& log, bool verbose);

    // Appends the value of the first field of that name; false for a null or
    // empty name or when there is none.
    bool getField(const char* name, StringBuffer& out) const;
    // Empties `out` and gives the value of `param` in the first field `name`
    // (quotes as written); false when either is absent.
    bool getHeaderParam(const char* name, const char* param, StringBuffer& out) const;

    // The first field of that name, or all of them.
    void removeField(const char* name, bool all);
    // Removes every field of that name; a value that is not empty or blank is
    // then appended as a new field at the end.
    void replaceField(const char* name, const char* value);
    // replaceField with the field's name and value; `field` stays the caller's.
    void replaceFromField(const MimeField& field);
    // Appends a new field whatever fields exist; nothing for a blank value.
    void appendField(const char* name, const char* value);
    // Take ownership of a ready field; null is ignored.
    void insertFirst(MimeField* field);
    void appendParsed(MimeField* field);

    // Appends the fields, encoded and folded, separated by CR LF and without
    // a line end after the last. Names beginning with `skipPrefix` (null or
    // "" for none) are left out; `contentOnly` keeps only Content-Type,
    // Content-Transfer-Encoding and Content-Disposition. The fields are
    // written in `charset` if it has a code page, else in m_codePage.
    void AssembleMimeHeader(StringBuffer& out, const char* skipPrefix, const _bkCharset& charset,
                            bool contentOnly, LogBase& log, bool verbose);

    int32_t getCodePage() const { return m_codePage; }
    void setCodePage(int32_t codePage) { m_codePage = codePage; }
    int getNumFields() const { return m_fields.getSize(); }
    // Null when out of range.
    MimeField* getFieldAt(int index) const;
    // The first field of that name, or null.
    MimeField* findField(const char* name) const;

  private:
    void parseFields(const StringBuffer& header, LogBase& log, bool verbose);
    bool finishField(StringBuffer& current, bool last, LogBase& log, bool verbose);
    int indexOf(const char* name, int from) const;

    int32_t m_codePage = 0;
    ExtPtrArray m_fields;  // MimeField, owned
};

}  // namespace brelkin
