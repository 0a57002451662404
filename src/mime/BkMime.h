// BkMime.h - public handle on one node of a MIME tree
//
// The mail classes reach the engine only through this handle. A new handle
// owns a new, empty tree; GetPart hands out further handles on nodes of the
// same tree, and the tree lives as long as any handle is attached to it. A
// handle finds its node anew, by serial number, at every call, so a handle
// whose node was thrown away (the tree reloaded or converted under it) gets a
// new, empty tree instead of a dangling node.
//
// Input:       zero-terminated texts in the system's ANSI code page (UTF-8
//              with m_utf8, which this system never sets); null texts are
//              taken as empty. File paths are the file system's bytes.
// Diagnostics: bool or null results; the reasons go to the handle's log, one
//              context per operation, cleared by the next operation.
// Limits:      the zero-terminated forms (header, getMime, ...) return a
//              pointer into a ring of ten slots: valid for the next ten such
//              calls on the same handle. Binary text ends at its first zero
//              byte there.
// Concurrency: each call takes the tree's recursive lock; handles of one tree
//              may be used from several threads, one handle from one thread.
// See also:    ClsMime.h, SharedMime.h, BkString.h, BkByteData.h
#pragma once

#include <cstdint>

#include "mime/BkByteData.h"
#include "mime/BkObject.h"
#include "mime/BkString.h"

namespace brelkin {
class ClsMime;
class LogBase;
}

class BkMime : public BkObject {
public:
    static constexpr int kRingSize = 10;

    // An empty node, without Content-Type and Content-Transfer-Encoding.
    BkMime();
    ~BkMime() override;

    // The whole file becomes this handle's new tree; false when it cannot be
    // read or (over 20 MB without a header) parsed.
    bool LoadMimeFile(const char* path);
    // Decoded, unfolded value; false when the field is absent.
    bool GetHeaderField(const char* name, BkString& out);
    void GetContentType(BkString& out);
    void GetName(BkString& out);
    void GetFilename(BkString& out);
    int32_t NumParts();
    // A new handle owned by the caller; null for an index out of range.
    BkMime* GetPart(int index);
    bool GetBodyDecoded(BkString& out);
    bool GetMime(BkString& out);

    bool AddHeaderField(const char* name, const char* value);
    bool SetHeaderField(const char* name, const char* value);
    void SetContentType(const char* text);
    void SetEncoding(const char* text);
    void SetBoundary(const char* text);
    bool SetBody(const char* text);
    bool SetBodyFromBinary(BkByteData& data);
    // Copies `part` in as the last child; a node that is not multipart is
    // first turned into multipart/mixed with its old self as the first child.
    bool AppendPart(BkMime* part);

    // Zero-terminated forms; see Limits above. Null where the operation fails.
    const char* header(const char* name);
    const char* getMime();
    const char* getBodyDecoded();
    const char* contentType();
    const char* filename();
    const char* name();

    bool getUtf8() const { return m_utf8; }
    // The log of the last operation.
    brelkin::LogBase& getLog();

    // For the engine's own use.
    brelkin::ClsMime& getImpl() { return *m_impl; }

private:
    // The handle takes over `impl`.
    explicit BkMime(brelkin::ClsMime* impl);
    BkString& nextRingSlot();
    const char* ringResult(BkString& slot) const;

    brelkin::ClsMime* m_impl;  // owned, never null
    bool m_utf8;
    int32_t m_ringIndex;
    BkString m_ring[kRingSize];
};
