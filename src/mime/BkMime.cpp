// BkMime.cpp - public handle on one node of a MIME tree
#include "mime/BkMime.h"

#include "mime/ClsMime.h"
#include "textlib/buffers/XString.h"

namespace {

// A zero-terminated argument as the engine wants it: UTF-8.
class Utf8Arg {
public:
    Utf8Arg(const char* text, bool isUtf8) { m_x.setFrom(text, isUtf8); }
    const char* get() { return m_x.getUtf8(); }

private:
    brelkin::XString m_x;
};

}  // namespace

BkMime::BkMime() : BkMime(new brelkin::ClsMime) {
    // A new node states no type and no encoding of its own.
    SetHeaderField("content-type", "");
    SetHeaderField("content-transfer-encoding", "");
}

BkMime::BkMime(brelkin::ClsMime* impl) : m_impl(impl), m_utf8(false), m_ringIndex(0) {}

BkMime::~BkMime() {
    delete m_impl;
    m_impl = nullptr;
}

brelkin::LogBase& BkMime::getLog() { return m_impl->getLog(); }

// A path goes to the file system as the bytes it came from: POSIX names
// have no code page, so the ANSI-to-UTF-8 step of the Windows road would
// turn any name with bytes above 127 into one that does not exist.
bool BkMime::LoadMimeFile(const char* path) {
    return m_impl->loadMimeFile(path);
}

bool BkMime::GetHeaderField(const char* name, BkString& out) {
    if (!name) return false;
    return m_impl->getHeaderField(Utf8Arg(name, m_utf8).get(), out.getXString());
}

void BkMime::GetContentType(BkString& out) { m_impl->getContentType(out.getXString()); }

void BkMime::GetName(BkString& out) { m_impl->getName(out.getXString()); }

void BkMime::GetFilename(BkString& out) { m_impl->getFilename(out.getXString()); }

int32_t BkMime::NumParts() { return m_impl->numParts(); }

BkMime* BkMime::GetPart(int index) {
    brelkin::ClsMime* part = m_impl->getPart(index);
    return part ? new BkMime(part) : nullptr;
}

bool BkMime::GetBodyDecoded(BkString& out) { return m_impl->getBodyDecoded(out.getXString()); }

bool BkMime::GetMime(BkString& out) { return m_impl->getMime(out.getXString()); }

bool BkMime::AddHeaderField(const char* name, const char* value) {
    if (!name) return false;
    return m_impl->addHeaderField(Utf8Arg(name, m_utf8).get(), Utf8Arg(value, m_utf8).get());
}

bool BkMime::SetHeaderField(const char* name, const char* value) {
    if (!name) return false;
    return m_impl->setHeaderField(Utf8Arg(name, m_utf8).get(), Utf8Arg(value, m_utf8).get());
}

void BkMime::SetContentType(const char* text) {
    m_impl->setContentType(Utf8Arg(text, m_utf8).get());
}

void BkMime::SetEncoding(const char* text) { m_impl->setEncoding(Utf8Arg(text, m_utf8).get()); }

void BkMime::SetBoundary(const char* text) { m_impl->setBoundary(Utf8Arg(text, m_utf8).get()); }

bool BkMime::SetBody(const char* text) {
    brelkin::XString body;
    body.setFrom(text, m_utf8);
    return m_impl->setBody(body);
}

bool BkMime::SetBodyFromBinary(BkByteData& data) {
    return m_impl->setBodyFromBinary(data.getDataBuffer());
}

bool BkMime::AppendPart(BkMime* part) {
    if (!part) return false;
    return m_impl->appendPart(part->m_impl);
}

// ---- zero-terminated forms ----

BkString& BkMime::nextRingSlot() {
    m_ringIndex = (m_ringIndex + 1) % kRingSize;
    BkString& slot = m_ring[m_ringIndex];
    slot.clear();
    return slot;
}

const char* BkMime::ringResult(BkString& slot) const {
    return m_utf8 ? slot.getUtf8() : slot.getAnsi();
}

const char* BkMime::header(const char* name) {
    BkString& slot = nextRingSlot();
    return GetHeaderField(name, slot) ? ringResult(slot) : nullptr;
}

const char* BkMime::getMime() {
    BkString& slot = nextRingSlot();
    return GetMime(slot) ? ringResult(slot) : nullptr;
}

const char* BkMime::getBodyDecoded() {
    BkString& slot = nextRingSlot();
    return GetBodyDecoded(slot) ? ringResult(slot) : nullptr;
}

const char* BkMime::contentType() {
    BkString& slot = nextRingSlot();
    GetContentType(slot);
    return ringResult(slot);
}

const char* BkMime::filename() {
    BkString& slot = nextRingSlot();
    GetFilename(slot);
    return ringResult(slot);
}

const char* BkMime::name() {
    BkString& slot = nextRingSlot();
    GetName(slot);
    return ringResult(slot);
}
