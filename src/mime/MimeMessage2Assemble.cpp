// MimeMessage2Assemble.cpp - a tree written out as MIME text, and the
// Content-Type field rebuilt from the cached values
//
// See MimeMessage2.h.
#include <cstring>

#include "mime/ContentCoding.h"
#include "mime/MimeMessage2.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogBase.h"
#include "textlib/sys/BrelkinRand.h"

namespace brelkin {

namespace {

const char kPreamble[] = "This is a multi-part message in MIME format.\r\n\r\n";

bool given(const char* text) {
    return text && *text;
}

void appendDelimiterLine(DataBuffer& out, const StringBuffer& boundary, const char* tail) {
    out.appendStr("--");
    out.appendStringBuffer(boundary);
    out.appendStr(tail);
}

// A quoted parameter on a continuation line of its own.
void appendFoldedParam(StringBuffer& value, const char* name, const char* text, bool quoted) {
    if (!given(text)) return;
    value.append("\r\n\t");
    value.append(name);
    value.append(quoted ? "=\"" : "=");
    value.append(text);
    value.append(quoted ? "\";" : ";");
}

bool isTextForConversion(const StringBuffer& contentType) {
    return contentType.beginsWith("text/") || contentType.containsIgnoreCase("application/xml");
}

}  // namespace

void MimeMessage2::assembleHeader(StringBuffer& out, LogBase& log, bool verbose) {
    m_header.AssembleMimeHeader(out, nullptr, m_charset, false, log, verbose);
}

void MimeMessage2::getMimeDb(DataBuffer& out, LogBase& log, bool verbose) {
    StringBuffer head;
    assembleHeader(head, log, verbose);
    head.append("\r\n\r\n");
    // Only the outermost node says so: nested multiparts have no preamble.
    if (numParts() > 0 && m_addPreamble) head.append(kPreamble);
    out.appendStringBuffer(head);
    getMimeBodyDb(out, log, verbose);
}

void MimeMessage2::getMimeSb(StringBuffer& out, LogBase& log, bool verbose) {
    DataBuffer assembled;
    getMimeDb(assembled, log, verbose);
    if (out.getSize() == 0 && assembled.appendByte(0)) {
        out.takeData(assembled);
        return;
    }
    out.appendN(reinterpret_cast<const char*>(assembled.getData()),
                static_cast<int>(assembled.getSize()));
}

void MimeMessage2::getMimeBodyDb(DataBuffer& out, LogBase& log, bool verbose) {
    // A signed multipart without parts has no raw content to write; it is
    // written as an ordinary node, so its stored body goes out instead.
    if (isSignedNonPgp() && numParts() > 0) {
        writeSignedBody(out, log, verbose);
        return;
    }
    // A multipart with neither parts nor body still closes its (empty) list;
    // one whose body was kept unsplit writes that body as it stands.
    if (numParts() == 0 && !(isMultipart() && m_body.getSize() == 0)) {
        getMimeBodyEncodedDb(out, log, verbose);
        return;
    }
    for (int i = 0; i < numParts(); ++i) {
        MimeMessage2* part = getPart(i);
        appendDelimiterLine(out, m_boundary, "\r\n");
        StringBuffer head;
        part->assembleHeader(head, log, verbose);
        head.append("\r\n\r\n");
        out.appendStringBuffer(head);
        part->getMimeBodyDb(out, log, verbose);
        out.appendStr("\r\n");
    }
    appendDelimiterLine(out, m_boundary, "--\r\n");
}

// The signed content goes out byte for byte as it was parsed; a third part
// has no place in a signed multipart and is not written.
void MimeMessage2::writeSignedBody(DataBuffer& out, LogBase& log, bool verbose) {
    appendDelimiterLine(out, m_boundary, "\r\n");
    out.appendBuffer(getPart(0)->m_signedRaw);
    out.appendStr("\r\n");
    appendDelimiterLine(out, m_boundary, "\r\n");
    if (MimeMessage2* signature = getPart(1)) {
        StringBuffer head;
        signature->assembleHeader(head, log, verbose);
        head.append("\r\n\r\n");
        out.appendStringBuffer(head);
        signature->getMimeBodyDb(out, log, verbose);
        out.appendStr("\r\n");
    }
    appendDelimiterLine(out, m_boundary, "--\r\n");
}

void MimeMessage2::getMimeBodyEncodedDb(DataBuffer& out, LogBase& log, bool verbose) {
    const int cp = m_charset.getCodePage();
    if (verbose) {
        log.enterContext("getMimeBodyEncodedDb", 1);
        log.LogDataLong("charsetCodePage", cp);
        log.LogData("contentType", m_contentType.getString());
    }
    const DataBuffer* source = &m_body;
    DataBuffer converted;
    if (cp != 0 && cp != 65001 && isTextForConversion(m_contentType)) {
        if (verbose) log.LogInfo("Converting text from stored utf-8 to target code page.");
        // us-ascii text is written as Latin-1, so 8-bit characters survive.
        EncodingConvert().convert(65001, cp == 20127 ? 28591 : cp, m_body.getData(),
                                  m_body.getSize(), converted);
        source = &converted;
    }
    ContentCoding coding;
    if (m_encoding.equalsIgnoreCase("base64")) {
        if (verbose) log.LogInfo("Appending base64 encoded body..");
        coding.encodeBase64(source->getData(), source->getSize(), out);
    } else if (m_encoding.equalsIgnoreCase("quoted-printable")) {
        if (verbose) log.LogInfo("Appending quoted-printable encoded body..");
        StringBuffer encoded;
        coding.encodeQuotedPrintable(source->getData(), source->getSize(), encoded);
        out.appendStringBuffer(encoded);
    } else {
        if (verbose) log.LogInfo("Appending body with no encoding..");
        out.appendBuffer(*source);
    }
    if (verbose) log.leaveContext();
}

void MimeMessage2::getMimeBody8Bit(DataBuffer& out, int codePage, LogBase& log, bool verbose) {
    if (verbose) {
        log.enterContext("getMimeBody8Bit", 1);
        log.LogDataLong("codePage", codePage);
    }
    if (codePage == 0 || codePage == 65001)
        out.appendBuffer(m_body);
    else
        EncodingConvert().convert(65001, codePage, m_body.getData(), m_body.getSize(), out);
    if (verbose) log.leaveContext();
}

// ---- the Content-Type field from the cached values

void MimeMessage2::setContentTypeFields(const char* mediaType, const char* name,
                                        const char* protocol, const char* micalg,
                                        const _bkCharset& charset, const char* boundary,
                                        const char* smimeType, const char* type) {
    buildContentTypeField(mediaType, name, protocol, micalg, charset, boundary, smimeType, type,
                          true);
}

void MimeMessage2::setContentTypeFieldsNoDefault(const char* mediaType, const char* name,
                                                 const char* protocol, const char* micalg,
                                                 const _bkCharset& charset, const char* boundary,
                                                 const char* smimeType, const char* type) {
    buildContentTypeField(mediaType, name, protocol, micalg, charset, boundary, smimeType, type,
                          false);
}

void MimeMessage2::buildContentTypeField(const char* mediaType, const char* name,
                                         const char* protocol, const char* micalg,
                                         const _bkCharset& charset, const char* boundary,
                                         const char* smimeType, const char* type,
                                         bool defaultCharset) {
    // The arguments are often this node's own values: copy before replacing.
    StringBuffer media(mediaType ? mediaType : "");
    StringBuffer texts[6];
    const char* given6[6] = {name, protocol, micalg, boundary, smimeType, type};
    for (int i = 0; i < 6; ++i) texts[i].setString(given6[i] ? given6[i] : "");
    _bkCharset written;
    written.copyFrom(charset);
    m_charset.copyFrom(written);
    m_contentType.setFrom(media);
    StringBuffer* cached[6] = {&m_name, &m_protocol, &m_micalg, &m_boundary, &m_smimeType, &m_type};
    for (int i = 0; i < 6; ++i) cached[i]->setFrom(texts[i]);

    // Kept: the field says us-ascii for text while the node keeps no charset.
    if (defaultCharset && media.beginsWithIgnoreCase("text") && written.getCodePage() == 0 &&
        !media.containsIgnoreCase("rfc822-headers"))
        written.setByName("us-ascii");

    StringBuffer value(media);
    if (written.getCodePage() != 0) {
        value.append("; charset=\"");
        value.append(written.getName());
        value.append("\";");
    } else {
        value.append(";");
    }
    if (m_type.getSize() > 0 && !media.contains("multipart")) {
        value.append(" type=\"");
        value.appendBuffer(m_type);
        value.append("\";");
    }
    appendFoldedParam(value, "boundary", m_boundary.getString(), true);
    appendFoldedParam(value, "name", m_name.getString(), true);
    appendFoldedParam(value, "protocol", m_protocol.getString(), true);
    appendFoldedParam(value, "micalg", m_micalg.getString(), false);
    appendFoldedParam(value, "smime-type", m_smimeType.getString(), false);
    value.trim();
    if (value.lastChar() == ';') {
        value.shorten(1);
        value.trim();
    }
    m_header.replaceField("Content-Type", value.getString());
}

void MimeMessage2::generateBoundary(StringBuffer& out) {
    out.clear();
    out.appendCharN('-', 12);
    for (int i = 0; i < 12; ++i) {
        out.appendChar('0');
        out.appendChar(static_cast<char>('0' + randomRange(0, 9)));
    }
}

}  // namespace brelkin
