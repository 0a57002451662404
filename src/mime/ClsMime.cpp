// ClsMime.cpp - the work behind a BkMime handle
#include "mime/ClsMime.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "mime/MimeMessage2.h"
#include "mime/SharedMime.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/buffers/XString.h"
#include "textlib/charset/EncodingConvert.h"

namespace brelkin {

namespace {

// A load that would fail for memory half-way through the parse is refused
// before it starts; the probe is never smaller than this.
constexpr uint32_t kMinMemoryProbe = 64000;
// GetMime looks this far for 8-bit bytes before it treats the text as such.
constexpr int k8bitProbeLength = 50000;

const char* orEmpty(const char* text) { return text ? text : ""; }

bool enoughMemoryFor(uint32_t size) {
    void* probe = std::malloc(std::max(size, kMinMemoryProbe));
    if (!probe) return false;
    std::free(probe);
    return true;
}

// FF FE and a zero as the fourth byte: the second character is plain ASCII
// in UTF-16LE, which no 8-bit message starts with.
bool looksLikeUtf16le(const DataBuffer& data) {
    const uint8_t* p = data.getData();
    return data.getSize() > 4 && p[0] == 0xFF && p[1] == 0xFE && p[3] == 0;
}

// A body that starts with a delimiter line and has no header: the text of
// that line behind "--" is the boundary.
bool findLeadingBoundary(const uint8_t* p, uint32_t size, StringBuffer& boundary) {
    uint32_t i = 0;
    while (i < size && (p[i] == ' ' || p[i] == '\t' || p[i] == '\r' || p[i] == '\n')) ++i;
    if (size - i < 2 || p[i] != '-' || p[i + 1] != '-') return false;
    const uint32_t start = i + 2;
    uint32_t end = start;
    while (end < size && p[end] != '\r' && p[end] != '\n') ++end;
    if (end >= size) return false;
    return boundary.appendN(reinterpret_cast<const char*>(p + start), static_cast<int>(end - start));
}

void prependMultipartHeader(DataBuffer& data, const StringBuffer& boundary) {
    StringBuffer header;
    header.append("Content-Type: multipart/mixed;\r\n\tboundary=\"");
    header.appendBuffer(boundary);
    header.append("\"\r\n");
    const uint8_t first = data.getData()[0];
    if (first == '\n')
        header.append("\r");
    else if (first != '\r')
        header.append("\r\n");
    data.prepend(header.getString(), static_cast<uint32_t>(header.getSize()));
}

}  // namespace

ClsMime::ClsMime() { attachNewTree(); }

ClsMime::ClsMime(NoTree) {}

ClsMime::~ClsMime() { detachTree(); }

void ClsMime::attachNewTree() {
    m_shared = new SharedMime;
    m_shared->addRef();
    m_serial = m_shared->getRoot().getObjectSerial();
}

void ClsMime::detachTree() {
    if (!m_shared) return;
    SharedMime* old = m_shared;
    m_shared = nullptr;
    old->release();
}

MimeMessage2* ClsMime::lockTreeAndFindNode() {
    if (!m_shared) attachNewTree();
    m_shared->lock();
    return findNodeLocked();
}

void ClsMime::unlockTree() { m_shared->unlock(); }

MimeMessage2* ClsMime::findNodeLocked() {
    MimeMessage2* node = m_shared->findBySerial(m_serial);
    if (node) return node;
    m_log.LogError("Internal MIME part no longer exists within the MIME document.");
    m_shared->unlock();
    detachTree();
    attachNewTree();
    m_shared->lock();
    return &m_shared->getRoot();
}

MimeMessage2* ClsMime::findNodeUnlocked() {
    MimeMessage2* node = lockTreeAndFindNode();
    unlockTree();
    return node;
}

// ---- loading ----

bool ClsMime::loadMimeFile(const char* pathUtf8) {
    OperationFrame frame(*this, "LoadMimeFile");
    m_log.LogData("filename", pathUtf8);
    DataBuffer raw;
    if (!pathUtf8 || !raw.loadFile(pathUtf8, &m_log)) return logSuccessOrFailure(false);
    return logSuccessOrFailure(loadMimeData(raw));
}

bool ClsMime::loadMimeData(const DataBuffer& raw) {
    if (raw.getSize() != 0 && !enoughMemoryFor(raw.getSize())) {
        m_log.LogError("Too low on memory...");
        return false;
    }
    DataBuffer data;
    if (looksLikeUtf16le(raw)) {
        EncodingConvert converter;
        converter.convert(1200, 65001, raw.getData(), raw.getSize(), data);
    } else {
        data.appendBuffer(raw);
    }

    StringBuffer boundary;
    if (findLeadingBoundary(data.getData(), data.getSize(), boundary)) {
        m_log.LogInfo("MIME has no header.  Auto-detecting boundary string...");
        m_log.LogData("boundary", boundary.getString());
        prependMultipartHeader(data, boundary);
    }
    return parseIntoNewTree(data);
}

bool ClsMime::parseIntoNewTree(DataBuffer& data) {
    const uint32_t size = data.getSize();
    data.appendByte(0);  // the parser reads the header as zero-terminated text

    detachTree();
    attachNewTree();
    CritSecGuard guard(*m_shared);
    // The bytes are ours, so the parts may be parsed where they lie.
    return m_shared->getRoot().loadMimeWritable(reinterpret_cast<char*>(data.getData()), size,
                                                false, m_log, false, m_verbose);
}

// ---- reading ----

bool ClsMime::getHeaderField(const char* name, XString& out) {
    OperationFrame frame(*this, "GetHeaderField");
    m_log.LogData("fieldName", name);
    StringBuffer value;
    MimeMessage2* node = lockTreeAndFindNode();
    const bool found = node->getHeaderFieldDecoded(name, value);
    unlockTree();
    out.setUtf8(value.getString());
    if (found) m_log.LogData("fieldValue", value.getString());
    return logSuccessOrFailure(found);
}

void ClsMime::getContentType(XString& out) {
    OperationFrame frame(*this, "GetContentType");
    StringBuffer value;
    MimeMessage2* node = lockTreeAndFindNode();
    node->getContentType(value);
    unlockTree();
    out.setUtf8(value.getString());
}

void ClsMime::getName(XString& out) {
    OperationFrame frame(*this, "GetName");
    StringBuffer value;
    MimeMessage2* node = lockTreeAndFindNode();
    node->getName(value);
    unlockTree();
    out.setUtf8(value.getString());
}

void ClsMime::getFilename(XString& out) {
    OperationFrame frame(*this, "GetFilename");
    StringBuffer value;
    MimeMessage2* node = lockTreeAndFindNode();
    node->getFilename(value);
    unlockTree();
    out.setUtf8(value.getString());
}

int32_t ClsMime::numParts() {
    OperationFrame frame(*this, "NumParts");
    MimeMessage2* node = lockTreeAndFindNode();
    const int32_t count = node->numParts();
    unlockTree();
    m_log.LogDataLong("NumParts", count);
    return count;
}

ClsMime* ClsMime::getPart(int index) {
    OperationFrame frame(*this, "GetPart");
    MimeMessage2* node = lockTreeAndFindNode();
    MimeMessage2* child = node->getPart(index);
    if (!child) {
        m_log.LogError("Failed to get MIME message part");
        m_log.LogDataLong("num_parts", node->numParts());
        m_log.LogDataLong("requested_part_index", index);
        unlockTree();
        return nullptr;
    }
    ClsMime* part = new ClsMime(NoTree{});
    part->m_verbose = m_verbose;
    part->m_shared = m_shared;
    m_shared->addRef();
    part->m_serial = child->getObjectSerial();
    unlockTree();
    return part;
}

bool ClsMime::getBodyDecoded(XString& out) {
    OperationFrame frame(*this, "GetBodyDecoded");
    DataBuffer body;
    MimeMessage2* node = lockTreeAndFindNode();
    node->getMimeBody8Bit(body, 0, m_log, m_verbose);
    const char* contentType = node->getContentTypeText();
    m_log.LogData("contentType", contentType);
    // Text goes on as a zero-terminated string: a stray zero byte must not cut it.
    if (std::strncmp(orEmpty(contentType), "text/", 5) == 0) body.replaceByte(0, ' ');
    unlockTree();
    body.appendByte(0);
    out.setUtf8(reinterpret_cast<const char*>(body.getData()));
    return true;
}

bool ClsMime::getMime(XString& out) {
    OperationFrame frame(*this, "GetMime");
    StringBuffer text;
    MimeMessage2* node = lockTreeAndFindNode();
    node->getMimeSb(text, m_log, m_verbose);

    // Raw 8-bit bytes that are not UTF-8 would be misread as UTF-8: they are
    // taken in the charset of the message's first 8-bit text part instead.
    if (!text.containsIgnoreCase("8bit") || text.is7bit(k8bitProbeLength)) {
        out.takeUtf8(text);
        unlockTree();
        return true;
    }
    m_log.LogInfo("This is 8bit MIME.");
    StringBuffer charset;
    const bool haveCharset = m_shared->getTotalCharset(charset);
    if (!haveCharset || charset.equalsIgnoreCase("utf-8")) {
        m_log.LogInfo("Interpreting character data as utf-8.");
        out.takeUtf8(text);
    } else {
        m_log.LogData("totalMimeCharset", charset.getString());
        out.clear();
        out.appendEncoded(text.getString(), charset.getString());
    }
    unlockTree();
    return true;
}

// ---- changing ----

bool ClsMime::addHeaderField(const char* name, const char* value) {
    OperationFrame frame(*this, "AddHeaderField");
    if (!name) return false;
    MimeMessage2* node = lockTreeAndFindNode();
    node->addHeaderField(name, orEmpty(value));
    unlockTree();
    return true;
}

bool ClsMime::setHeaderField(const char* name, const char* value) {
    OperationFrame frame(*this, "SetHeaderField");
    if (!name) return false;
    MimeMessage2* node = lockTreeAndFindNode();
    node->setHeaderField(name, orEmpty(value));
    unlockTree();
    return true;
}

void ClsMime::setContentType(const char* text) {
    OperationFrame frame(*this, "SetContentType");
    MimeMessage2* node = lockTreeAndFindNode();
    node->setContentTypeValue(orEmpty(text));
    unlockTree();
}

void ClsMime::setEncoding(const char* text) {
    OperationFrame frame(*this, "SetEncoding");
    StringBuffer encoding(orEmpty(text));
    encoding.trim();
    MimeMessage2* node = lockTreeAndFindNode();
    node->setEncoding(encoding.getString());
    unlockTree();
}

void ClsMime::setBoundary(const char* text) {
    OperationFrame frame(*this, "SetBoundary");
    MimeMessage2* node = lockTreeAndFindNode();
    node->setBoundary(orEmpty(text));
    unlockTree();
}

bool ClsMime::setBody(XString& text) {
    OperationFrame frame(*this, "SetBody");
    MimeMessage2* node = lockTreeAndFindNode();
    node->setBodyText(text);
    unlockTree();
    return true;
}

bool ClsMime::setBodyFromBinary(const DataBuffer& bytes) {
    OperationFrame frame(*this, "SetBodyFromBinary");
    MimeMessage2* node = lockTreeAndFindNode();
    node->setBodyBinary(bytes.getData(), bytes.getSize());
    node->setEncoding("base64");
    unlockTree();
    return true;
}

// The node's text becomes the first part of a new multipart/mixed root. The
// handle moves to that new tree, which it locks; the old tree is unlocked
// and let go.
void ClsMime::convertToMultipart(MimeMessage2& node) {
    DataBuffer text;
    node.getMimeDb(text, m_log, m_verbose);
    const uint32_t size = text.getSize();
    text.appendByte(0);
    MimeMessage2* copy = new MimeMessage2;
    copy->LoadMimeComplete2(reinterpret_cast<const char*>(text.getData()), size, false, m_log,
                            false, m_verbose);

    m_shared->unlock();
    detachTree();
    attachNewTree();
    m_shared->lock();
    MimeMessage2& root = m_shared->getRoot();
    root.convertToMultipartMixed();
    root.addPart(copy);
}

bool ClsMime::appendPart(ClsMime* part) {
    OperationFrame frame(*this, "AppendPart");
    if (!part) return false;
    MimeMessage2* node = lockTreeAndFindNode();
    if (!node->isMultipart()) {
        m_log.LogData("content-type", node->getContentTypeText());
        m_log.LogInfo("Not already multipart, therefore changing to multipart/mixed...");
        convertToMultipart(*node);
        node = &m_shared->getRoot();
    }

    // The part goes in as a copy through its text, so the caller's tree stays
    // as it was. Its tree is read under this tree's lock alone.
    DataBuffer text;
    MimeMessage2* source = part->m_shared ? part->m_shared->getRoot().findBySerial(part->m_serial)
                                          : nullptr;
    if (!source) source = part->findNodeUnlocked();
    source->getMimeDb(text, m_log, m_verbose);
    const uint32_t size = text.getSize();
    text.appendByte(0);
    MimeMessage2* copy = new MimeMessage2;
    copy->LoadMimeComplete2(reinterpret_cast<const char*>(text.getData()), size, false, m_log,
                            false, m_verbose);
    node->addPart(copy);
    unlockTree();
    return true;
}

}  // namespace brelkin
