// MimeHeader.cpp - the field list: lookups, edits and assembly
//
// See MimeHeader.h; parsing and the code page decision are in MimeHeaderParse.cpp.
#include "mime/MimeHeader.h"

#include <new>

#include "mime/MimeField.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/LogBase.h"

namespace brelkin {

namespace {

bool isWhiteSpaceOnly(const char* s) {
    for (; *s; ++s) {
        if (*s != ' ' && *s != '\t' && *s != '\r' && *s != '\n') return false;
    }
    return true;
}

bool isContentField(const MimeField& field) {
    return field.nameEquals("Content-Type") || field.nameEquals("Content-Transfer-Encoding") ||
           field.nameEquals("Content-Disposition");
}

MimeField* newField(const char* name, const char* value) {
    MimeField* field = new (std::nothrow) MimeField();
    if (field) field->set(name, value);
    return field;
}

}  // namespace

MimeHeader::~MimeHeader() {
    m_fields.deleteAll();
}

void MimeHeader::clear() {
    m_fields.deleteAll();
    m_codePage = 0;
}

MimeField* MimeHeader::getFieldAt(int index) const {
    return static_cast<MimeField*>(m_fields.getAt(index));
}

int MimeHeader::indexOf(const char* name, int from) const {
    for (int i = from; i < m_fields.getSize(); ++i) {
        if (getFieldAt(i)->nameEquals(name)) return i;
    }
    return -1;
}

MimeField* MimeHeader::findField(const char* name) const {
    if (!name || !*name) return nullptr;
    int at = indexOf(name, 0);
    return at < 0 ? nullptr : getFieldAt(at);
}

bool MimeHeader::getField(const char* name, StringBuffer& out) const {
    const MimeField* field = findField(name);
    if (!field) return false;
    field->getValue(out);
    return true;
}

bool MimeHeader::getHeaderParam(const char* name, const char* param, StringBuffer& out) const {
    out.clear();
    if (!name || !param) return false;
    StringBuffer value;
    if (!getField(name, value)) return false;
    // A cheap test first: most lookups ask for a parameter that is not there.
    if (!value.containsIgnoreCase(param)) return false;

    ExtPtrArray pieces;
    value.split(pieces, ';', true, false);
    bool found = false;
    StringBuffer pieceName, pieceValue;
    for (int i = 0; i < pieces.getSize() && !found; ++i) {
        const auto* piece = static_cast<const StringBuffer*>(pieces.getAt(i));
        if (!piece->containsChar('=')) continue;
        piece->getNameValue(pieceName, pieceValue);
        if (!pieceName.equalsIgnoreCase(param)) continue;
        out.appendBuffer(pieceValue);
        found = true;
    }
    pieces.deleteAll();
    return found;
}

void MimeHeader::removeField(const char* name, bool all) {
    if (!name) return;
    int at = indexOf(name, 0);
    while (at >= 0) {
        delete m_fields.removeAt(at);
        if (!all) return;
        at = indexOf(name, at);
    }
}

void MimeHeader::replaceField(const char* name, const char* value) {
    if (!name) return;
    removeField(name, true);
    if (!value || !*value || isWhiteSpaceOnly(value)) return;
    if (MimeField* field = newField(name, value)) m_fields.append(field);
}

void MimeHeader::replaceFromField(const MimeField& field) {
    // Copies first: the field may be one of ours, and is deleted by the removal.
    StringBuffer name(field.getName());
    StringBuffer value;
    field.getValue(value);
    replaceField(name.getString(), value.getString());
}

// Unlike replaceField, an empty value still makes a field: an application
// may want "Name:" written.
void MimeHeader::appendField(const char* name, const char* value) {
    if (!name || !value || (*value && isWhiteSpaceOnly(value))) return;
    if (MimeField* field = newField(name, value)) m_fields.append(field);
}

void MimeHeader::insertFirst(MimeField* field) {
    if (field) m_fields.insertAt(0, field);
}

void MimeHeader::appendParsed(MimeField* field) {
    if (field) m_fields.append(field);
}

void MimeHeader::AssembleMimeHeader(StringBuffer& out, const char* skipPrefix,
                                    const _bkCharset& charset, bool contentOnly, LogBase& log,
                                    bool verbose) {
    if (verbose) log.enterContext("AssembleMimeHeader", 1);

    // A node with a charset of its own writes its fields in that; one without
    // writes them back in what they came in.
    // UTF-7 is never written.
    _bkCharset target;
    if (charset.getCodePage() != 0 || m_codePage == 0)
        target.copyFrom(charset);
    else
        target.setByCodePage(m_codePage);
    if (target.getCodePage() == 65000) target.setByCodePage(65001);

    const bool skipping = skipPrefix && *skipPrefix;
    StringBuffer line;
    for (int i = 0; i < m_fields.getSize(); ++i) {
        MimeField* field = getFieldAt(i);
        if (skipping && StringBuffer(field->getName()).beginsWithIgnoreCase(skipPrefix)) continue;
        if (contentOnly && !isContentField(*field)) continue;
        line.clear();
        field->assemble(line, target, log, verbose);
        out.appendBuffer(line);
        out.append("\r\n");
    }
    // No line end after the last field and no blank line: the caller adds them.
    while (out.getSize() > 0 && out.lastChar() == '\n') out.shorten(2);

    if (verbose) log.leaveContext();
}

}  // namespace brelkin
