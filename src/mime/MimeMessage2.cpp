// MimeMessage2.cpp - the node, its cached values and their setters
//
// See MimeMessage2.h.
#include "mime/MimeMessage2.h"

#include <cstring>
#include <new>
#include <vector>

#include "mime/ContentCoding.h"
#include "textlib/buffers/XString.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/scan/HtmlScan.h"
#include "textlib/scan/ParamString.h"
#include "textlib/scan/ParseEngine.h"

namespace brelkin {

namespace {

const char kMarkerStart[] = "<[[";

// The text of `value` with every blank and tab taken out.
void removeBlanksAndTabs(StringBuffer& value) {
    value.removeChar(' ');
    value.removeChar('\t');
}

// A value that is a quoted-string marker stands for the text that was quoted.
void resolveMarker(const ParamString& quoted, StringBuffer& value) {
    if (!value.beginsWith(kMarkerStart)) return;
    const char* digits = value.getString() + 3;
    int index = 0;
    bool any = false;
    for (; *digits >= '0' && *digits <= '9' && index < 100000000; ++digits) {
        index = index * 10 + (*digits - '0');
        any = true;
    }
    const char* text = any ? quoted.getParam(index) : nullptr;
    value.setString(text ? text : "");
}

// One name=value pair of a parameter list that has no blanks left; the cursor
// ends behind the ";".
void nextParameter(ParseEngine& scan, const ParamString& quoted, StringBuffer& name,
                   StringBuffer& value) {
    name.clear();
    value.clear();
    scan.captureToChar('=', name);
    scan.advance();
    scan.captureToChar(';', value);
    scan.advance();
    resolveMarker(quoted, value);
}

bool hasHighByte(const uint8_t* bytes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        if (bytes[i] >= 0x80) return true;
    return false;
}

// Percent escapes of an extended parameter value.
void percentDecode(StringBuffer& text) {
    if (text.containsChar('%')) urlDecode(text);
}

void convertToUtf8InPlace(StringBuffer& text, int codePage) {
    if (codePage == 65001 || text.getSize() == 0) return;
    DataBuffer converted;
    EncodingConvert conv;
    conv.convert(codePage, 65001, text.getString(), static_cast<uint32_t>(text.getSize()),
                 converted);
    text.clear();
    text.appendData(converted);
}

int codePageOrUtf8(const char* charsetName) {
    int cp = charsetToCodePage(charsetName);
    return cp == 0 ? 65001 : cp;
}

// An RFC 2231 value to UTF-8: "charset'lang'text" names its own charset;
// a continuation without one is read in `defaultCharset` (utf-8 when empty).
void decodeExtendedValue(const char* input, const char* defaultCharset, StringBuffer& text,
                         StringBuffer& charsetName) {
    text.clear();
    charsetName.clear();
    const char* marks = std::strstr(input, "''");
    if (marks) {
        const char* firstQuote = std::strchr(input, '\'');
        charsetName.appendN(input, static_cast<int>(firstQuote - input));
        charsetName.toLowerCase();
        int cp = codePageOrUtf8(charsetName.getString());
        text.append(marks + 2);
        percentDecode(text);
        convertToUtf8InPlace(text, cp);
        return;
    }
    text.append(input);
    percentDecode(text);
    convertToUtf8InPlace(
        text, codePageOrUtf8(defaultCharset && *defaultCharset ? defaultCharset : "utf-8"));
}

// Accumulates the segments of one RFC 2231 parameter ("name*0*", "name*1*", ...).
class SegmentedValue {
  public:
    explicit SegmentedValue(StringBuffer& target) : m_target(target) {}

    void first(const char* raw) {
        StringBuffer text;
        decodeExtendedValue(raw, nullptr, text, m_charset);
        m_target.setFrom(text);
    }
    void next(const char* raw) {
        StringBuffer text;
        StringBuffer ignored;
        decodeExtendedValue(raw, m_charset.getString(), text, ignored);
        m_target.appendBuffer(text);
    }

  private:
    StringBuffer& m_target;
    StringBuffer m_charset;
};

// Dispatches a "name*..." / "filename*..." parameter; false when `name` is
// not an extended form of `base`.
bool takeSegment(const StringBuffer& name, const char* base, const StringBuffer& value,
                 SegmentedValue& segments) {
    StringBuffer firstForm(base);
    firstForm.append("*0*");
    if (name.equalsIgnoreCase(firstForm.getString())) {
        segments.first(value.getString());
        return true;
    }
    StringBuffer anyForm(base);
    anyForm.append("*");
    if (!name.beginsWithIgnoreCase(anyForm.getString())) return false;
    segments.next(value.getString());
    return true;
}

}  // namespace

// The cached values start as one-byte blocks: a message may have thousands
// of parts, and most of these values stay empty in most of them.
MimeMessage2::MimeMessage2()
    : m_addPreamble(true),
      m_contentType(""),
      m_disposition(""),
      m_encoding(""),
      m_name(""),
      m_filename(""),
      m_protocol(""),
      m_micalg(""),
      m_boundary(""),
      m_contentId(""),
      m_smimeType(""),
      m_type("") {}

MimeMessage2::~MimeMessage2() {
    clear();
}

// Deletes a whole subtree without recursion: a tree nested a hundred thousand
// levels deep (possible through addPart) must not exhaust the stack.
void MimeMessage2::deleteSubtrees(ExtPtrArray& parts) {
    std::vector<BrelkinObject*> pending;
    for (int i = 0; i < parts.getSize(); ++i) pending.push_back(parts.getAt(i));
    parts.clearWithoutDelete();
    while (!pending.empty()) {
        auto* node = static_cast<MimeMessage2*>(pending.back());
        pending.pop_back();
        for (int i = 0; i < node->numParts(); ++i) pending.push_back(node->getPart(i));
        node->m_parts.clearWithoutDelete();
        delete node;
    }
}

void MimeMessage2::clear() {
    m_signedRaw.clear();
    m_body.clear();
    m_header.clear();
    deleteSubtrees(m_parts);
    clearCachedContentType();
    m_disposition.clear();
    m_encoding.clear();
    m_filename.clear();
    m_contentId.clear();
}

void MimeMessage2::clearCachedContentType() {
    m_contentType.clear();
    m_protocol.clear();
    m_micalg.clear();
    m_type.clear();
    m_boundary.clear();
    m_smimeType.clear();
    m_name.clear();
    m_charset.clear();
}

MimeMessage2* MimeMessage2::getPart(int index) const {
    return static_cast<MimeMessage2*>(m_parts.getAt(index));
}

void MimeMessage2::addPart(MimeMessage2* part) {
    if (part) m_parts.append(part);
}

// Visits this node and its descendants depth first, this node first, until
// `stop` says so; an explicit stack keeps deep trees off the call stack.
template <typename Visit>
static MimeMessage2* findInTree(MimeMessage2* root, Visit stop) {
    std::vector<MimeMessage2*> pending{root};
    while (!pending.empty()) {
        MimeMessage2* node = pending.back();
        pending.pop_back();
        if (stop(*node)) return node;
        for (int i = node->numParts() - 1; i >= 0; --i) pending.push_back(node->getPart(i));
    }
    return nullptr;
}

MimeMessage2* MimeMessage2::findBySerial(uint64_t serial) {
    return findInTree(this, [serial](MimeMessage2& n) { return n.getObjectSerial() == serial; });
}

void MimeMessage2::setSignedRaw(const void* bytes, uint32_t count) {
    m_signedRaw.clear();
    m_signedRaw.append(bytes, count);
}

bool MimeMessage2::isMultipart() const {
    return m_contentType.getSize() >= 9 && m_contentType.beginsWithIgnoreCase("multipart");
}

bool MimeMessage2::isAttachment() const {
    return m_disposition.equalsIgnoreCase("attachment");
}

bool MimeMessage2::isSignedNonPgp() const {
    if (!m_contentType.equalsIgnoreCase("multipart/signed")) return false;
    StringBuffer protocol;
    if (!m_header.getHeaderParam("content-type", "protocol", protocol)) return true;
    if (protocol.getSize() >= 2 && protocol.getAt(0) == '"' && protocol.lastChar() == '"') {
        protocol.shorten(1);
        StringBuffer inner(protocol.getString() + 1);
        protocol.setFrom(inner);
    }
    return !protocol.equalsIgnoreCase("application/pgp-signature");
}

bool MimeMessage2::getHeaderFieldDecoded(const char* name, StringBuffer& out) {
    out.clear();
    if (!name || !m_header.getField(name, out)) return false;
    if (out.containsIgnoreCase("?B?")) ContentCoding::decodeEncodedWords(out);
    if (out.containsIgnoreCase("?Q?")) ContentCoding::decodeEncodedWords(out);
    return true;
}

bool MimeMessage2::getTotalCharset(StringBuffer& out) {
    MimeMessage2* found = findInTree(this, [](MimeMessage2& n) {
        const DataBuffer& body = n.getBody();
        return n.m_contentType.beginsWithIgnoreCase("text/") &&
               n.m_encoding.equalsIgnoreCase("8bit") &&
               hasHighByte(body.getData(), body.getSize()) && n.m_charset.getCodePage() != 0;
    });
    if (!found) return false;
    out.setString(found->m_charset.getName());
    return true;
}

// ---- refreshing the cached values from the header

void MimeMessage2::refreshCachedFields() {
    refreshContentType();
    refreshContentId();
    refreshDisposition();
    refreshTransferEncoding();
}

void MimeMessage2::refreshContentType() {
    clearCachedContentType();
    StringBuffer value;
    if (!getHeaderFieldDecoded("content-type", value)) return;
    ParamString quoted;
    quoted.parse(value.getString(), true);
    ParseEngine scan(quoted.getString());
    scan.captureUntilAnyOf("; \t\r", m_contentType);
    m_contentType.toLowerCase();
    removeBlanksAndTabs(m_contentType);
    scan.skipChars("; \t\r\n");
    StringBuffer rest(scan.rest());
    removeBlanksAndTabs(rest);

    ParseEngine params(rest.getString());
    SegmentedValue nameSegments(m_name);
    StringBuffer name;
    StringBuffer paramValue;
    while (!params.atEnd()) {
        nextParameter(params, quoted, name, paramValue);
        if (name.equalsIgnoreCase("protocol")) {
            m_protocol.setFrom(paramValue);
            m_protocol.toLowerCase();
        } else if (name.equalsIgnoreCase("micalg")) {
            m_micalg.setFrom(paramValue);
            m_micalg.toLowerCase();
        } else if (name.equalsIgnoreCase("boundary")) {
            m_boundary.setFrom(paramValue);
        } else if (name.equalsIgnoreCase("charset")) {
            m_charset.setByName(paramValue.getString());
        } else if (name.equalsIgnoreCase("smime-type")) {
            m_smimeType.setFrom(paramValue);
            m_smimeType.toLowerCase();
        } else if (name.equalsIgnoreCase("name")) {
            m_name.setFrom(paramValue);
        } else if (name.equalsIgnoreCase("type")) {
            m_type.setFrom(paramValue);
            m_type.toLowerCase();
        } else {
            takeSegment(name, "name", paramValue, nameSegments);
        }
    }
}

void MimeMessage2::refreshContentId() {
    m_contentId.clear();
    if (!getHeaderFieldDecoded("content-id", m_contentId)) return;
    m_contentId.trim();
    m_contentId.truncateAtChar(';');
}

void MimeMessage2::refreshDisposition() {
    m_disposition.clear();
    m_filename.clear();
    StringBuffer value;
    if (!getHeaderFieldDecoded("content-disposition", value)) return;
    ParamString quoted;
    quoted.parse(value.getString(), true);
    StringBuffer skeleton(quoted.getString());
    removeBlanksAndTabs(skeleton);
    ParseEngine scan(skeleton.getString());
    scan.captureToChar(';', m_disposition);
    scan.skipChars("; \t\r\n");

    SegmentedValue fileSegments(m_filename);
    StringBuffer name;
    StringBuffer paramValue;
    while (!scan.atEnd()) {
        nextParameter(scan, quoted, name, paramValue);
        if (name.equalsIgnoreCase("filename"))
            m_filename.setFrom(paramValue);
        else
            takeSegment(name, "filename", paramValue, fileSegments);
    }
}

void MimeMessage2::refreshTransferEncoding() {
    m_encoding.clear();
    if (!getHeaderFieldDecoded("content-transfer-encoding", m_encoding)) return;
    m_encoding.trim();
    m_encoding.truncateAtChar(';');
}

void MimeMessage2::refreshFor(const char* fieldName) {
    StringBuffer name(fieldName);
    if (name.equalsIgnoreCase("content-type"))
        refreshContentType();
    else if (name.equalsIgnoreCase("content-disposition"))
        refreshDisposition();
    else if (name.equalsIgnoreCase("content-id"))
        refreshContentId();
    else if (name.equalsIgnoreCase("content-transfer-encoding"))
        refreshTransferEncoding();
}

// ---- setters

void MimeMessage2::setHeaderField(const char* name, const char* value) {
    if (!name) return;
    StringBuffer trimmedName(name);
    StringBuffer trimmedValue(value ? value : "");
    trimmedName.trim();
    trimmedValue.trim();
    if (trimmedValue.getSize() == 0)
        m_header.removeField(trimmedName.getString(), true);
    else
        m_header.replaceField(trimmedName.getString(), trimmedValue.getString());
    refreshFor(trimmedName.getString());
}

void MimeMessage2::addHeaderField(const char* name, const char* value) {
    if (!name) return;
    StringBuffer trimmedName(name);
    StringBuffer trimmedValue(value ? value : "");
    trimmedName.trim();
    trimmedValue.trim();
    m_header.appendField(trimmedName.getString(), trimmedValue.getString());
    refreshFor(trimmedName.getString());
}

void MimeMessage2::setEncoding(const char* text) {
    m_encoding.setString(text ? text : "");
    StringBuffer value(m_encoding);
    setHeaderField("Content-Transfer-Encoding", value.getString());
}

void MimeMessage2::setCharset(const char* name) {
    _bkCharset charset;
    charset.setByName(name);
    setContentTypeFields(m_contentType.getString(), m_name.getString(), m_protocol.getString(),
                         m_micalg.getString(), charset, m_boundary.getString(),
                         m_smimeType.getString(), m_type.getString());
}

void MimeMessage2::setBoundary(const char* text) {
    StringBuffer boundary(text ? text : "");
    boundary.trim();
    setContentTypeFields(m_contentType.getString(), m_name.getString(), m_protocol.getString(),
                         m_micalg.getString(), m_charset, boundary.getString(),
                         m_smimeType.getString(), m_type.getString());
}

void MimeMessage2::setContentTypeValue(const char* text) {
    setContentTypeFieldsNoDefault(text, m_name.getString(), m_protocol.getString(),
                                  m_micalg.getString(), m_charset, m_boundary.getString(),
                                  m_smimeType.getString(), m_type.getString());
}

void MimeMessage2::setBodyText(XString& text) {
    m_body.clear();
    m_body.appendStr(text.getUtf8());
}

void MimeMessage2::setBodyBinary(const void* bytes, uint32_t count) {
    m_body.clear();
    m_body.append(bytes, count);
}

void MimeMessage2::convertToMultipartMixed() {
    clear();
    StringBuffer boundary;
    generateBoundary(boundary);
    _bkCharset none;
    setContentTypeFields("multipart/mixed", nullptr, nullptr, nullptr, none, boundary.getString(),
                         nullptr, nullptr);
}

}  // namespace brelkin
