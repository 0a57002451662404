// MimeMessage2Parse.cpp - bytes of a message into a tree of nodes
//
// See MimeMessage2.h. The header end is found by a ladder of line-end repairs;
// a multipart body is split where it lies and each part parsed in its own
// right, a leaf body decoded and stored as UTF-8 text or as raw bytes.
//
// Parts are parsed in place: the body of the outermost multipart is copied
// once into writable memory (unless the caller lent writable bytes), and each
// part gets the zero byte its header scan needs by a byte of the parent's
// text being swapped for a zero during the part's parse and put back after.
// So nesting costs no copy per level, and a message nested a hundred
// thousand levels deep costs no more memory than a flat one.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "mime/ContentCoding.h"
#include "mime/MimeMessage2.h"
#include "textlib/charset/EncodingConvert.h"
#include "textlib/log/LogBase.h"
#include "textlib/scan/HtmlScan.h"

namespace brelkin {

struct MimeMessage2::ParseRun {
    bool mixedLineEndings;
    LogBase& log;
    bool bodyIsUtf8;
    bool verbose;

    void info(const char* text) const {
        if (verbose) log.LogInfo(text);
    }
    void data(const char* name, const char* value) const {
        if (verbose) log.LogData(name, value);
    }
};

namespace {

constexpr uint32_t kNone = UINT32_MAX;
constexpr uint32_t kLargestHeaderOnly = 20000000;

// Enters a log context only when verbose, and leaves it on every way out.
class VerboseContext {
  public:
    VerboseContext(LogBase& log, const char* name, bool verbose) : m_log(log), m_on(verbose) {
        if (m_on) m_log.enterContext(name, 1);
    }
    ~VerboseContext() {
        if (m_on) m_log.leaveContext();
    }
    VerboseContext(const VerboseContext&) = delete;
    VerboseContext& operator=(const VerboseContext&) = delete;

  private:
    LogBase& m_log;
    bool m_on;
};

struct FreeDeleter {
    void operator()(char* p) const { std::free(p); }
};
using OwnedText = std::unique_ptr<char, FreeDeleter>;

uint32_t findIn(std::string_view text, const char* needle) {
    size_t at = text.find(needle);
    return at == std::string_view::npos ? kNone : static_cast<uint32_t>(at);
}

// Bytes searched as zero-terminated text, where a zero byte ends the text.
// The zero is looked for only in front of a hit, so that a long body is not
// scanned once more just to learn that it holds none.
class TerminatedText {
  public:
    TerminatedText(const char* data, uint32_t size) : m_data(data), m_size(size) {}
    uint32_t find(const char* needle) {
        uint32_t at = findIn(std::string_view(m_data, m_size), needle);
        if (at == kNone || m_bounded) return at;
        const void* zero = std::memchr(m_data, 0, at + std::strlen(needle));
        if (!zero) return at;
        m_size = static_cast<uint32_t>(static_cast<const char*>(zero) - m_data);
        m_bounded = true;
        return findIn(std::string_view(m_data, m_size), needle);
    }
    bool prefixHolds(uint32_t length, const char* needle) const {
        return findIn(std::string_view(m_data, length), needle) != kNone;
    }

  private:
    const char* m_data;
    uint32_t m_size;
    bool m_bounded = false;
};

bool beginsWithCrlf(const char* text, uint32_t size) {
    return size >= 2 && text[0] == '\r' && text[1] == '\n';
}

bool hasHighByte(const uint8_t* bytes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        if (bytes[i] >= 0x80) return true;
    return false;
}

// 0xC3 or 0xC2 followed by a byte of 0x80 or more: the shape of UTF-8 Latin.
bool hasUtf8LatinPair(const uint8_t* bytes, uint32_t count) {
    for (uint32_t i = 0; i + 1 < count; ++i)
        if ((bytes[i] == 0xC3 || bytes[i] == 0xC2) && bytes[i + 1] >= 0x80) return true;
    return false;
}

unsigned char foldAscii(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? c + 32 : c;
}

// `find` is lower-case ASCII.
bool containsIgnoreCase(const uint8_t* bytes, uint32_t count, const char* find) {
    const auto* needle = reinterpret_cast<const unsigned char*>(find);
    const uint32_t length = static_cast<uint32_t>(std::strlen(find));
    for (uint32_t i = 0; i + length <= count; ++i) {
        uint32_t k = 0;
        while (k < length && foldAscii(bytes[i + k]) == needle[k]) ++k;
        if (k == length) return true;
    }
    return false;
}

bool isCodePageTrustedForQp(int cp) {
    static const int kMultiByteOrCyrillic[] = {1200, 1201,  932,   936,   949,
                                               950,  28595, 51932, 51949, 52936};
    return std::find(std::begin(kMultiByteOrCyrillic), std::end(kMultiByteOrCyrillic), cp) !=
           std::end(kMultiByteOrCyrillic);
}

bool isSingleByteLatinPage(int cp) {
    return cp == 20127 || (cp >= 28591 && cp <= 28605) || (cp >= 1250 && cp <= 1258);
}

// How common a byte is in mail text, roughly: lower is rarer.
int commonness(unsigned char b) {
    if (b >= 'a' && b <= 'z') return 5;
    if (b == ' ' || b == '\r' || b == '\n' || b == '=' || b == '-' || b == '.') return 5;
    if (b >= '0' && b <= '9') return 4;
    if (b >= 'A' && b <= 'Z') return 3;
    if (b >= 0x80) return 1;
    return 2;
}

// Binary-safe search for one fixed byte string: memchr for the needle's
// rarest-looking byte, then a compare in place. A boundary nearly always has
// a byte that is rare in the bodies it separates (an upper-case letter, "_",
// a digit), so a long base64 or quoted-printable part is crossed at memchr
// speed rather than stopped at every "=" or "-".
class BytesFinder {
  public:
    explicit BytesFinder(const StringBuffer& needle)
        : m_needle(needle.getString()), m_length(static_cast<uint32_t>(needle.getSize())) {
        for (uint32_t i = 1; i < m_length; ++i)
            if (commonness(m_needle[i]) < commonness(m_needle[m_anchor])) m_anchor = i;
    }
    uint32_t find(const char* bytes, uint32_t from, uint32_t end) const {
        if (m_length == 0 || from >= end || end - from < m_length) return kNone;
        const char anchor = m_needle[m_anchor];
        const char* p = bytes + from + m_anchor;
        const char* stop = bytes + end - m_length + m_anchor + 1;  // past the last anchor
        while (p < stop) {
            p = static_cast<const char*>(std::memchr(p, anchor, stop - p));
            if (!p) return kNone;
            const char* start = p - m_anchor;
            if (start[0] == m_needle[0] && start[m_length - 1] == m_needle[m_length - 1] &&
                std::memcmp(start, m_needle, m_length) == 0)
                return static_cast<uint32_t>(start - bytes);
            ++p;
        }
        return kNone;
    }

  private:
    const char* m_needle;  // the caller's buffer outlives the finder
    uint32_t m_length;
    uint32_t m_anchor = 0;
};

// Repaired copies of the input; each is zero-terminated text, so it ends at
// the input's first zero byte.
OwnedText detachText(StringBuffer& text, uint32_t& size) {
    int length = 0;
    char* block = text.detach(&length);
    size = block ? static_cast<uint32_t>(length) : 0;
    return OwnedText(block);
}

OwnedText normalisedToCrlf(const char* input, uint32_t& size) {
    StringBuffer text(input);
    text.toCrlf();
    return detachText(text, size);
}

OwnedText withCrCrLfFixed(const char* input, uint32_t& size) {
    StringBuffer text(input);
    text.replaceAll("\r\r\r\n", "\r\n");
    text.replaceAll("\r\r\n", "\r\n");
    return detachText(text, size);
}

OwnedText withEveryCrAsCrlf(const char* input, uint32_t& size) {
    StringBuffer text(input);
    text.replaceAll("\r", "\r\n");
    return detachText(text, size);
}

// A boundary that was UTF-8 inside the tree but 8-bit ANSI on the wire gets
// a 7-bit replacement so that it can be written again.
void sevenBitBoundary(const StringBuffer& boundary, StringBuffer& out) {
    out.clear();
    for (int i = 0; i < boundary.getSize(); ++i) {
        auto b = static_cast<unsigned char>(boundary.getAt(i));
        if (b > 0x80) b = static_cast<unsigned char>(std::min(std::max(b - 0x80, 0x30), 0x7A));
        out.appendChar(static_cast<char>(b));
    }
}

void info(LogBase& log, bool verbose, const char* text) {
    if (verbose) log.LogInfo(text);
}

// The text the header end is searched in: the input, or a repaired copy of
// it that lives until the parse of this node ends.
class WorkText {
  public:
    WorkText(const char* data, uint32_t size, bool writable)
        : m_text(data), m_size(size), m_writable(writable) {}
    void replace(OwnedText text, uint32_t size) {
        m_repaired = std::move(text);
        m_text = m_repaired ? m_repaired.get() : "";
        m_size = m_repaired ? size : 0;
        m_writable = m_repaired != nullptr;
    }
    const char* text() const { return m_text; }
    uint32_t size() const { return m_size; }
    bool writable() const { return m_writable; }
    uint32_t find(const char* needle) const {
        return findIn(std::string_view(m_text, m_size), needle);
    }

  private:
    const char* m_text;
    uint32_t m_size;
    bool m_writable;
    OwnedText m_repaired;
};

// Steps taken when neither CRLF CRLF nor the mixed-ending rule found the end
// of the header; each works on the input as it came. kNone when all fail.
uint32_t repairHeaderEnd(const char* input, TerminatedText& text, WorkText& work, LogBase& log,
                         bool verbose) {
    static const struct {
        const char* sequence;
        const char* remark;
    } kOddEndings[] = {{"\r\n\r\r\n", "Found CRLFCRCRLF."},
                       {"\r\n\r", "Found CRLFCR."},
                       {"\n\r\n", "Found LFCRLF."}};
    for (const auto& ending : kOddEndings) {
        uint32_t at = text.find(ending.sequence);
        if (at == kNone) continue;
        info(log, verbose, ending.remark);
        return at;
    }
    uint32_t size = 0;
    if (text.find("\n\n") != kNone) {
        info(log, verbose, "Found LFLF, converting to CRLF");
        OwnedText normalised = normalisedToCrlf(input, size);
        work.replace(std::move(normalised), size);
        return work.find("\r\n\r\n");
    }
    // Kept: the remark is written whether or not the input holds CR CR LF.
    info(log, verbose, "Found CRCRLF. Fixing..");
    OwnedText fixed = withCrCrLfFixed(input, size);
    work.replace(std::move(fixed), size);
    uint32_t end = work.find("\r\n\r\n");
    if (end != kNone || text.find("\r\r") == kNone) return end;
    info(log, verbose, "Found CRCR.");
    OwnedText widened = withEveryCrAsCrlf(input, size);
    work.replace(std::move(widened), size);
    return work.find("\r\n\r\n");
}

}  // namespace

// ---- entry points

bool MimeMessage2::LoadMimeComplete2(const char* data, uint32_t size, bool mixedLineEndings,
                                     LogBase& log, bool bodyIsUtf8, bool verbose) {
    ParseRun run{mixedLineEndings, log, bodyIsUtf8, verbose};
    return loadAtDepth(data, size, false, run, 0);
}

bool MimeMessage2::loadMimeWritable(char* data, uint32_t size, bool mixedLineEndings, LogBase& log,
                                    bool bodyIsUtf8, bool verbose) {
    ParseRun run{mixedLineEndings, log, bodyIsUtf8, verbose};
    return loadAtDepth(data, size, true, run, 0);
}

void MimeMessage2::parseMimeBody(const char* encoding, const char* body, uint32_t bodySize,
                                 bool mixedLineEndings, LogBase& log, bool bodyIsUtf8,
                                 bool verbose) {
    ParseRun run{mixedLineEndings, log, bodyIsUtf8, verbose};
    parseBodyAtDepth(encoding, body, bodySize, false, run, 0);
}

// ---- finding the end of the header

bool MimeMessage2::loadAtDepth(const char* data, uint32_t size, bool writable, const ParseRun& run,
                               int depth) {
    clear();
    if (!data) return false;
    VerboseContext context(run.log, "LoadMimeComplete2", run.verbose);

    // The header end is searched in zero-terminated text.
    TerminatedText input(data, size);
    WorkText work(data, size, writable);
    uint32_t end = kNone;
    if (beginsWithCrlf(data, size)) {
        run.info("MIME is missing initial header because it begins with CRLF");
        end = 0;
    }
    if (end == kNone) end = input.find("\r\n\r\n");
    uint32_t lf = kNone;
    if (run.mixedLineEndings) {
        lf = input.find("\n\n");
        if (lf != kNone && end == kNone) {
            run.info("Double CRLF not found, but found double-LF");
            if (input.prefixHolds(lf, "\r\n")) {
                run.info("Also found CRLF.  The MIME contains a mixture of bare-LF's and CRLF's");
                end = lf;
            }
        }
    }
    // Kept: this also runs when a double CRLF and a double LF merely both occur.
    if (end != kNone && lf != kNone) {
        run.info("Converting all line endings to CRLF.");
        uint32_t n = 0;
        OwnedText normalised = normalisedToCrlf(data, n);
        work.replace(std::move(normalised), n);
        end = work.find("\r\n\r\n");
    }
    if (end == kNone) end = repairHeaderEnd(data, input, work, run.log, run.verbose);
    if (end == kNone) return loadWithoutHeaderEnd(work.text(), work.size(), run);

    run.info("Found end-of-header.");
    if (end != 0) {
        m_header.ParseMimeHeader(work.text(), run.log, run.verbose);
        refreshCachedFields();
    }
    const char* text = work.text();
    uint32_t bodyAt = end;
    if (beginsWithCrlf(text + bodyAt, work.size() - bodyAt)) bodyAt += 2;
    if (beginsWithCrlf(text + bodyAt, work.size() - bodyAt)) bodyAt += 2;
    if (bodyAt < work.size()) {
        VerboseContext bodyContext(run.log, "parseMimeBody", run.verbose);
        StringBuffer encoding(m_encoding);  // the store may rewrite m_encoding
        parseBodyAtDepth(encoding.getString(), text + bodyAt, work.size() - bodyAt, work.writable(),
                         run, depth);
    }
    return true;
}

bool MimeMessage2::loadWithoutHeaderEnd(const char* work, uint32_t workSize, const ParseRun& run) {
    run.info("End-of-header not found.");
    if (beginsWithCrlf(work, workSize)) {
        run.info("Parsing MIME assuming an empty header.  The default content-type is text/plain.");
        m_header.ParseMimeHeader("Content-Type: text/plain", run.log, run.verbose);
        refreshCachedFields();
        storeText(work, workSize, m_charset, true);
        return true;
    }
    run.info("Assuming the entire MIME message is a header with no body.");
    if (workSize <= kLargestHeaderOnly) {
        m_header.ParseMimeHeader(work, run.log, run.verbose);
        refreshCachedFields();
        return true;
    }
    run.log.LogError("Header larger than 20MB?  This cannot be MIME...");
    clear();
    return false;
}

// ---- the body: which road

void MimeMessage2::parseBodyAtDepth(const char* encoding, const char* body, uint32_t bodySize,
                                    bool writable, const ParseRun& run, int depth) {
    if (!body) {
        m_body.clear();
        return;
    }
    if (!m_contentType.beginsWithIgnoreCase("multipart") || m_boundary.getSize() == 0) {
        parseLeaf(encoding ? encoding : "", body, bodySize, run);
        return;
    }
    if (depth < kMaxNestingDepth) {
        parseMultipart(body, bodySize, writable, run, depth);
        return;
    }
    // Deeper input is not split: its bytes stay in this node and are written
    // back unchanged, so nothing is lost and the recursion stays bounded.
    run.info("MIME nested too deeply; the rest is kept unsplit as this part's body.");
    m_body.clear();
    m_body.append(body, bodySize);
}

// ---- the multipart road

// Where the first delimiter line is, with the boundary as it was found.
struct MimeMessage2::Delimiters {
    StringBuffer boundary;
    StringBuffer delimiter;  // boundary + line end; the two dashes are not searched
    bool bareLf = false;
    bool repairBoundary = false;
    uint32_t first = kNone;

    void rebuild(const char* lineEnd) {
        delimiter.setFrom(boundary);
        delimiter.append(lineEnd);
    }
    void search(const char* body, uint32_t bodySize, const StringBuffer& needle) {
        first = BytesFinder(needle).find(body, 0, bodySize);
    }
};

// The boundary as declared with CR LF, then with bare LF, then the two
// repairs for boundaries that were mangled on the way.
void MimeMessage2::findFirstDelimiter(const char* body, uint32_t bodySize, Delimiters& found) {
    found.boundary.setFrom(m_boundary);
    found.rebuild("\r\n");
    found.search(body, bodySize, found.delimiter);
    if (found.first == kNone) {
        found.rebuild("\n");
        found.search(body, bodySize, found.delimiter);
        found.bareLf = found.first != kNone;
        if (!found.bareLf) found.rebuild("\r\n");
    }
    if (found.first == kNone && found.delimiter.contains("=_alternative")) {
        // One mailer's boundaries lose a blank after "=_alternative" in the header.
        StringBuffer spaced(found.boundary);
        spaced.replaceFirst("=_alternative", "=_alternative ");
        found.search(body, bodySize, spaced);
        if (found.first != kNone) {
            m_boundary.replaceFirst("=_alternative", "=_alternative ");
            found.boundary.setFrom(m_boundary);
            found.rebuild("\r\n");
        }
    }
    if (found.first == kNone && !m_boundary.is7bit(0)) {
        // An 8-bit boundary is UTF-8 in the tree but stood in the body in ANSI.
        found.boundary.setFrom(m_boundary);
        found.boundary.utf8ToAnsi();
        found.rebuild("\r\n");
        found.search(body, bodySize, found.delimiter);
        found.repairBoundary = true;
    }
}

void MimeMessage2::parseMultipart(const char* body, uint32_t bodySize, bool writable,
                                  const ParseRun& run, int depth) {
    Delimiters found;
    findFirstDelimiter(body, bodySize, found);
    // A boundary that converts to nothing would find a delimiter at every line
    // end and never move on.
    if (found.first == kNone || found.boundary.getSize() == 0) {
        storeText(body, bodySize, m_charset, true);
        return;
    }
    // Parts get their terminating zero in place, so the body must be ours to write.
    DataBuffer copy;
    if (!writable) {
        copy.ensureCapacity(bodySize + 1);
        copy.append(body, bodySize);
        copy.appendByte(0);
        if (copy.getSize() != bodySize + 1) return;
        body = reinterpret_cast<const char*>(copy.getData());
    }
    splitParts(const_cast<char*>(body), bodySize, found, run, depth);
    if (found.repairBoundary) {
        StringBuffer repaired;
        sevenBitBoundary(m_boundary, repaired);
        setBoundary(repaired.getString());
    }
}

// Each span between delimiter lines becomes a part, parsed in place. The
// closer is looked for only once no delimiter follows at all, so a closer
// with further delimiters behind it does not end the list.
void MimeMessage2::splitParts(char* body, uint32_t bodySize, const Delimiters& found,
                              const ParseRun& run, int depth) {
    bool signedPending = isSignedNonPgp();
    StringBuffer closer(found.boundary);
    closer.append("--");
    const BytesFinder delimiterFinder(found.delimiter);
    const BytesFinder closerFinder(closer);
    const uint32_t boundaryLength = static_cast<uint32_t>(found.boundary.getSize());
    const uint32_t lineEnd = found.bareLf ? 1 : 2;
    uint32_t start = found.first + boundaryLength;  // on the delimiter line's line end
    for (;;) {
        bool last = false;
        uint32_t next = delimiterFinder.find(body, start, bodySize);
        if (next == kNone) {
            next = closerFinder.find(body, start, bodySize);
            last = next != kNone;
        }
        int64_t span = next == kNone ? int64_t{bodySize} - start : int64_t{next} - start - lineEnd;
        if (span >= 5) {
            char* partBytes = body + start + lineEnd;
            auto count = static_cast<uint32_t>(span - 2 * lineEnd);
            auto* part = new (std::nothrow) MimeMessage2;
            if (!part) break;
            char saved = partBytes[count];
            partBytes[count] = 0;
            part->loadAtDepth(partBytes, count, true, run, depth + 1);
            partBytes[count] = saved;
            if (signedPending) {
                part->setSignedRaw(partBytes, count);
                signedPending = false;
            }
            addPart(part);
        }
        if (last || next == kNone) break;
        start = next + boundaryLength;
    }
}

// ---- the leaf road

void MimeMessage2::parseLeaf(const char* encoding, const char* body, uint32_t bodySize,
                             const ParseRun& run) {
    StringBuffer rawType;
    m_header.getField("content-type", rawType);
    const bool isEdifact = rawType.containsIgnoreCase("application/edifact");
    run.data("contentType", rawType.getString());
    run.data("charset", m_charset.getName());

    if (!isEdifact &&
        (rawType.containsIgnoreCase("image/") || rawType.containsIgnoreCase("audio/") ||
         rawType.containsIgnoreCase("video/") || rawType.containsIgnoreCase("application/"))) {
        run.info("clearing charset based on content-type.");
        run.info("treating body as binary (non-character) data.");
        m_charset.clear();
    }
    const bool attachment = isAttachment();
    if (attachment && !isEdifact) {
        run.info("treating body as binary data because of attachment status.");
        m_charset.clear();
    }
    if (run.verbose) run.log.LogDataLong("bIsAttachment", attachment ? 1 : 0);

    const bool hasZero = std::memchr(body, 0, bodySize) != nullptr;
    const int cp = m_charset.getCodePage();
    bool convert = false;
    if (!attachment) {
        if (rawType.containsIgnoreCase("text/") || rawType.containsIgnoreCase("application/xml"))
            convert = !(cp != 1200 && cp != 1201 && hasZero);  // zero bytes: binary unless UTF-16
        else if (rawType.getSize() == 0)
            convert = !hasZero;
    }

    // Mail that claims US-ASCII and carries 8-bit bytes is read as Latin-1.
    _bkCharset decodeCharset;
    decodeCharset.copyFrom(m_charset);
    if (cp == 20127) decodeCharset.setByCodePage(28591);
    bool sawWindows1252 = false;

    if (!attachment && rawType.containsIgnoreCase("text/html") && cp == 0)
        sniffHtmlCharset(encoding, body, bodySize, decodeCharset, convert, run);
    if (run.bodyIsUtf8) decodeCharset.setByCodePage(65001);
    storeDecoded(encoding, body, bodySize, decodeCharset, convert, sawWindows1252);
    if (sawWindows1252) setCharset("windows-1252");
    relabelXHtml(body, bodySize);
}

void MimeMessage2::sniffHtmlCharset(const char* encoding, const char* body, uint32_t bodySize,
                                    _bkCharset& decodeCharset, bool convert, const ParseRun& run) {
    run.info("No charset specified.  Trying to get HTML charset via META tag..");
    bool ignored = false;
    storeDecoded(encoding, body, bodySize, decodeCharset, convert, ignored);
    StringBuffer found;
    m_body.appendByte(0);  // the sniffer reads zero-terminated text
    getCharsetFromHtml(reinterpret_cast<const char*>(m_body.getData()), found);
    m_body.shorten(1);
    if (found.getSize() == 0) return;
    run.data("charsetFromMetaTag", found.getString());
    if (found.equalsIgnoreCase("unicode") || found.equalsIgnoreCase("utf-16")) {
        uint32_t probe = std::min<uint32_t>(1000, m_body.getSize());
        if (probe == 0 || !std::memchr(m_body.getData(), 0, probe)) {
            run.info("Must not really be unicode HTML, no zero bytes found...");
            found.setString("windows-1252");
        }
    }
    m_charset.setByName(found.getString());
    decodeCharset.setByName(found.getString());
}

// A body that starts with "<x-html>" is HTML whatever its header said.
void MimeMessage2::relabelXHtml(const char* body, uint32_t bodySize) {
    uint32_t at = 0;
    while (at < bodySize && std::strchr(" \t\r\n", body[at]) && body[at] != 0) ++at;
    if (bodySize - at < 8 ||
        !containsIgnoreCase(reinterpret_cast<const uint8_t*>(body + at), 8, "<x-html>"))
        return;
    if (m_contentType.equalsIgnoreCase("text/html")) return;
    _bkCharset none;
    setContentTypeFields("text/html", nullptr, nullptr, nullptr, none, nullptr, nullptr, nullptr);
}

// ---- the stores

void MimeMessage2::storeDecoded(const char* encoding, const char* body, uint32_t bodySize,
                                const _bkCharset& charset, bool convert, bool& sawWindows1252) {
    StringBuffer name(encoding);
    if (name.equalsIgnoreCase("base64")) {
        storeBase64(body, bodySize, charset);
    } else if (name.equalsIgnoreCase("quoted-printable")) {
        storeQuotedPrintable(body, bodySize, charset, sawWindows1252);
    } else if (name.equalsIgnoreCase("binary") &&
               m_contentType.equalsIgnoreCase("message/rfc822")) {
        storeText(body, bodySize, charset, convert);
        setEncoding("8bit");
    } else {
        // "binary" without conversion is the raw store: the text store with
        // convert false keeps the bytes exactly as they are.
        storeText(body, bodySize, charset, convert);
    }
}

void MimeMessage2::storeText(const char* bytes, uint32_t count, const _bkCharset& charset,
                             bool convert) {
    m_body.clear();
    m_body.append(bytes, count);
    if (!convert) return;
    int cp = charset.getCodePage();
    const uint8_t* stored = m_body.getData();
    const uint32_t size = m_body.getSize();
    if (cp == 0 && hasHighByte(stored, size)) cp = hasUtf8LatinPair(stored, size) ? 65001 : 28591;
    if (cp == 0) return;
    if (isSingleByteLatinPage(cp) && m_body.looksLikeMislabelledUtf8(cp)) cp = 65001;
    if (cp != 65001) convertBodyToUtf8(cp);
}

void MimeMessage2::storeBase64(const char* bytes, uint32_t count, const _bkCharset& charset) {
    m_body.clear();
    ContentCoding().decodeBase64(bytes, count, m_body);
    const int cp = charset.getCodePage();
    if (cp == 0 || cp == 65001) return;
    // Declared UTF-16 that is all 7-bit without a zero byte cannot be UTF-16.
    if (cp == 1200 && m_body.is7bit() && !m_body.containsByte(0)) return;
    convertBodyToUtf8(cp);
}

void MimeMessage2::storeQuotedPrintable(const char* bytes, uint32_t count,
                                        const _bkCharset& charset, bool& sawWindows1252) {
    m_body.clear();
    ContentCoding().decodeQuotedPrintable(bytes, count, m_body);
    const uint8_t* decoded = m_body.getData();
    const uint32_t size = m_body.getSize();
    int cp = charset.getCodePage();
    if (size >= 3 && decoded[0] == 0xEF && decoded[1] == 0xBB && decoded[2] == 0xBF) cp = 65001;
    if (cp == 0 || cp == 65001) return;
    bool sawC1 = false;
    if (!isCodePageTrustedForQp(cp)) {
        for (uint32_t i = 0; i + 1 < size; ++i) {
            uint8_t b = decoded[i];
            if (b != 0xC3 && b != 0xC2) {
                if (b >= 0x82 && b <= 0x9F) sawC1 = true;
                continue;
            }
            if (decoded[i + 1] < 0x80) continue;
            if (containsIgnoreCase(decoded, size, "utf-8")) cp = 65001;
            break;
        }
    }
    // C1 bytes in "Latin-1" are the typographic characters of windows-1252.
    if (sawC1 && cp == 28591) {
        cp = 1252;
        sawWindows1252 = true;
    }
    if (cp != 65001) convertBodyToUtf8(cp);
}

void MimeMessage2::convertBodyToUtf8(int codePage) {
    DataBuffer converted;
    EncodingConvert().convert(codePage, 65001, m_body.getData(), m_body.getSize(), converted);
    // A failed conversion leaves what the converter gave, as for any text.
    uint32_t size = converted.getSize();
    if (size == 0) {
        m_body.clear();
        return;
    }
    uint8_t* block = converted.getData();
    converted.releaseData();
    m_body.adoptData(block, size);
}

}  // namespace brelkin
