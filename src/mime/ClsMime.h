// ClsMime.h - the work behind a BkMime handle: one node of a shared tree
//
// Each operation clears the log, opens a context of its own name, takes the
// tree's lock, finds its node by serial number and calls the tree. A handle
// never keeps a pointer into the tree; if its node has gone (the tree was
// reloaded or converted under it), it logs so, moves to a new, empty tree and
// works on that root instead, so no operation fails for that reason.
//
// Input:       texts are UTF-8 (BkMime converts); null names are refused
//              with false, other null texts count as empty.
// Diagnostics: bool or null results; reasons in getLog().
// Limits:      loading a file holds two copies of it in memory for a moment.
// Concurrency: the tree's recursive lock around every tree access; the
//              object itself belongs to one thread at a time.
// See also:    BkMime.h, SharedMime.h, MimeMessage2.h
#pragma once

#include <cstdint>

#include "mime/ClsBase.h"

namespace brelkin {

class DataBuffer;
class MimeMessage2;
class SharedMime;
class XString;

class ClsMime : public ClsBase {
public:
    // A new, empty tree; the node is its root.
    ClsMime();
    ~ClsMime() override;

    bool loadMimeFile(const char* pathUtf8);
    // The file repairs of loadMimeFile (UTF-16LE, headerless multipart) on
    // bytes already in memory, then the parse into a new tree.
    bool loadMimeData(const DataBuffer& raw);

    bool getHeaderField(const char* name, XString& out);
    void getContentType(XString& out);
    void getName(XString& out);
    void getFilename(XString& out);
    int32_t numParts();
    // A new object on the child, sharing this tree; null when out of range.
    ClsMime* getPart(int index);
    bool getBodyDecoded(XString& out);
    bool getMime(XString& out);

    bool addHeaderField(const char* name, const char* value);
    bool setHeaderField(const char* name, const char* value);
    void setContentType(const char* text);
    void setEncoding(const char* text);
    void setBoundary(const char* text);
    bool setBody(XString& text);
    bool setBodyFromBinary(const DataBuffer& bytes);
    bool appendPart(ClsMime* part);

    bool getVerbose() const { return m_verbose; }
    void setVerbose(bool verbose) { m_verbose = verbose; }

    // For tools and tests: the tree and the node, found as every operation
    // finds it. The caller holds the lock while it uses the node.
    SharedMime& getShared() { return *m_shared; }
    MimeMessage2* lockTreeAndFindNode();
    void unlockTree();

private:
    // Without a tree of its own (only a part object before it takes one).
    struct NoTree {};
    explicit ClsMime(NoTree);

    void attachNewTree();
    void detachTree();
    // Finds the node in a tree the caller has locked, or recovers: the old
    // tree is unlocked and let go, a new one taken and locked.
    MimeMessage2* findNodeLocked();
    MimeMessage2* findNodeUnlocked();
    bool parseIntoNewTree(DataBuffer& data);
    void convertToMultipart(MimeMessage2& node);

    bool m_verbose = false;
    SharedMime* m_shared = nullptr;  // one reference held
    uint64_t m_serial = 0;           // serial number of this object's node
};

}  // namespace brelkin
