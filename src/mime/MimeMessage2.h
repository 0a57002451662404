// MimeMessage2.h - one node of a MIME tree: header, body, parts, cached values
//
// A node keeps its header fields (the truth for what is written), a body that
// is UTF-8 for text and decoded bytes otherwise, its child nodes, and the
// values of Content-Type, Content-Disposition, Content-ID and
// Content-Transfer-Encoding taken apart into fields of their own, which
// parsing and assembly decide by. Any change to one of those four fields
// refreshes the cached values; the setters keep both in step.
// Parsing (LoadMimeComplete2, MimeMessage2Parse.cpp) repairs line endings,
// mangled boundaries and mislabelled charsets by fixed rules; assembly
// (getMimeDb, MimeMessage2Assemble.cpp) writes the tree out again with CR LF.
//
// Input:       any bytes; the parse entry points need a zero byte at
//              data[size]. Null texts are taken as empty, null names ignored.
// Diagnostics: bool results; LoadMimeComplete2 fails only for a headerless
//              input above 20,000,000 bytes. Remarks go to the LogBase given,
//              informational ones only with `verbose`.
// Limits:      multiparts nest at most kMaxNestingDepth levels when parsed;
//              deeper content stays, unsplit, in the body of the last level.
//              Deleting, clearing and searching a tree use no recursion.
// Known gaps:  Content-Type parameters that are not cached are lost whenever
//              the field is rebuilt from the cached values.
// See also:    MimeHeader.h, MimeField.h, ContentCoding.h, ClsMime.h
#pragma once

#include <cstdint>

#include "mime/MimeHeader.h"
#include "textlib/buffers/BrelkinObject.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"

namespace brelkin {

class LogBase;
class XString;

class MimeMessage2 : public BrelkinObject {
  public:
    // Levels of multipart splitting done by one parse. A part at this depth
    // keeps its whole body as bytes (written back unchanged) instead of being
    // split further: enough for any real message, and small enough that the
    // recursion stays far inside a 1 MB stack even under AddressSanitizer.
    static constexpr int kMaxNestingDepth = 100;

    MimeMessage2();
    ~MimeMessage2() override;
    MimeMessage2(const MimeMessage2&) = delete;
    MimeMessage2& operator=(const MimeMessage2&) = delete;

    // Empties everything but the preamble flag; deletes fields and parts.
    void clear();

    // ---- the tree
    int32_t numParts() const { return m_parts.getSize(); }
    // Null when out of range.
    MimeMessage2* getPart(int index) const;
    // Takes ownership; a null part is ignored.
    void addPart(MimeMessage2* part);
    // Depth first, this node first; null when no node has the serial.
    MimeMessage2* findBySerial(uint64_t serial);

    // ---- cached values
    void getContentType(StringBuffer& out) const { out.appendBuffer(m_contentType); }
    void getName(StringBuffer& out) const { out.appendBuffer(m_name); }
    void getFilename(StringBuffer& out) const { out.appendBuffer(m_filename); }
    const char* getContentTypeText() const { return m_contentType.getString(); }
    const StringBuffer& getEncoding() const { return m_encoding; }
    const StringBuffer& getDisposition() const { return m_disposition; }
    const StringBuffer& getBoundary() const { return m_boundary; }
    const StringBuffer& getContentId() const { return m_contentId; }
    const StringBuffer& getProtocol() const { return m_protocol; }
    const StringBuffer& getMicalg() const { return m_micalg; }
    const StringBuffer& getSmimeType() const { return m_smimeType; }
    const StringBuffer& getTypeParam() const { return m_type; }
    const _bkCharset& getCharset() const { return m_charset; }
    bool isMultipart() const;
    bool isAttachment() const;
    // multipart/signed whose protocol is anything but PGP (or absent).
    bool isSignedNonPgp() const;
    bool getAddPreamble() const { return m_addPreamble; }

    // ---- header and body
    MimeHeader& getHeader() { return m_header; }
    const DataBuffer& getBody() const { return m_body; }
    const DataBuffer& getSignedRaw() const { return m_signedRaw; }
    void setSignedRaw(const void* bytes, uint32_t count);
    // The first field of the name, encoded words decoded; false when absent.
    bool getHeaderFieldDecoded(const char* name, StringBuffer& out);
    // Charset of the first 8-bit "8bit" text node of this subtree.
    bool getTotalCharset(StringBuffer& out);
    void refreshCachedFields();

    // ---- setters that keep header and cached values in step
    // An empty value removes every field of the name.
    void setHeaderField(const char* name, const char* value);
    void addHeaderField(const char* name, const char* value);
    void setEncoding(const char* text);
    void setCharset(const char* name);
    void setBoundary(const char* text);
    // The text goes into the field and m_contentType as it is, unparsed.
    void setContentTypeValue(const char* text);
    // Null and empty texts mean absent. Texts may be this node's own values.
    void setContentTypeFields(const char* mediaType, const char* name, const char* protocol,
                              const char* micalg, const _bkCharset& charset, const char* boundary,
                              const char* smimeType, const char* type);
    // The same without us-ascii supplied for text types lacking a charset.
    void setContentTypeFieldsNoDefault(const char* mediaType, const char* name,
                                       const char* protocol, const char* micalg,
                                       const _bkCharset& charset, const char* boundary,
                                       const char* smimeType, const char* type);
    void setBodyText(XString& text);
    void setBodyBinary(const void* bytes, uint32_t count);
    // Empties the node and makes it multipart/mixed with a new boundary.
    void convertToMultipartMixed();

    // ---- parsing (MimeMessage2Parse.cpp)
    // `data[size]` must be a zero byte. False only when a headerless input
    // exceeds 20,000,000 bytes (the node is then empty) or `data` is null.
    bool LoadMimeComplete2(const char* data, uint32_t size, bool mixedLineEndings, LogBase& log,
                           bool bodyIsUtf8, bool verbose);
    // As LoadMimeComplete2, for a caller that owns writable bytes: the parts
    // of a multipart are then parsed where they lie, saving a copy of the body.
    // Bytes are changed during the call and restored before it returns.
    bool loadMimeWritable(char* data, uint32_t size, bool mixedLineEndings, LogBase& log,
                          bool bodyIsUtf8, bool verbose);
    // Splits or decodes a body behind an already parsed header.
    void parseMimeBody(const char* encoding, const char* body, uint32_t bodySize,
                       bool mixedLineEndings, LogBase& log, bool bodyIsUtf8, bool verbose);

    // ---- assembly (MimeMessage2Assemble.cpp); all append to `out`
    void getMimeDb(DataBuffer& out, LogBase& log, bool verbose);
    void getMimeSb(StringBuffer& out, LogBase& log, bool verbose);
    void getMimeBodyDb(DataBuffer& out, LogBase& log, bool verbose);
    void getMimeBodyEncodedDb(DataBuffer& out, LogBase& log, bool verbose);
    // The body converted from UTF-8 to `codePage` (0 and 65001: unchanged).
    void getMimeBody8Bit(DataBuffer& out, int codePage, LogBase& log, bool verbose);
    void assembleHeader(StringBuffer& out, LogBase& log, bool verbose);
    // Twelve dashes and twelve pairs of "0" and a random digit.
    static void generateBoundary(StringBuffer& out);

  private:
    struct ParseRun;
    struct Delimiters;

    static void deleteSubtrees(ExtPtrArray& parts);

    void clearCachedContentType();
    void refreshContentType();
    void refreshContentId();
    void refreshDisposition();
    void refreshTransferEncoding();
    void refreshFor(const char* fieldName);
    void buildContentTypeField(const char* mediaType, const char* name, const char* protocol,
                               const char* micalg, const _bkCharset& charset, const char* boundary,
                               const char* smimeType, const char* type, bool defaultCharset);

    bool loadAtDepth(const char* data, uint32_t size, bool writable, const ParseRun& run,
                     int depth);
    void parseBodyAtDepth(const char* encoding, const char* body, uint32_t bodySize, bool writable,
                          const ParseRun& run, int depth);
    void parseMultipart(const char* body, uint32_t bodySize, bool writable, const ParseRun& run,
                        int depth);
    void findFirstDelimiter(const char* body, uint32_t bodySize, Delimiters& found);
    void splitParts(char* body, uint32_t bodySize, const Delimiters& found, const ParseRun& run,
                    int depth);
    bool loadWithoutHeaderEnd(const char* work, uint32_t workSize, const ParseRun& run);
    void parseLeaf(const char* encoding, const char* body, uint32_t bodySize, const ParseRun& run);
    void sniffHtmlCharset(const char* encoding, const char* body, uint32_t bodySize,
                          _bkCharset& decodeCharset, bool convert, const ParseRun& run);
    void relabelXHtml(const char* body, uint32_t bodySize);
    void storeDecoded(const char* encoding, const char* body, uint32_t bodySize,
                      const _bkCharset& charset, bool convert, bool& sawWindows1252);
    void storeText(const char* bytes, uint32_t count, const _bkCharset& charset, bool convert);
    void storeBase64(const char* bytes, uint32_t count, const _bkCharset& charset);
    void storeQuotedPrintable(const char* bytes, uint32_t count, const _bkCharset& charset,
                              bool& sawWindows1252);
    void convertBodyToUtf8(int codePage);
    void writeSignedBody(DataBuffer& out, LogBase& log, bool verbose);

    DataBuffer m_signedRaw;
    DataBuffer m_body;
    MimeHeader m_header;
    bool m_addPreamble;
    ExtPtrArray m_parts;
    StringBuffer m_contentType;
    StringBuffer m_disposition;
    StringBuffer m_encoding;
    StringBuffer m_name;
    StringBuffer m_filename;
    StringBuffer m_protocol;
    StringBuffer m_micalg;
    _bkCharset m_charset;
    StringBuffer m_boundary;
    StringBuffer m_contentId;
    StringBuffer m_smimeType;
    StringBuffer m_type;
};

}  // namespace brelkin
