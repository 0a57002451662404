// SharedMime.h - one MIME tree: its root, its lock and its reference count
//
// Every handle (ClsMime) on a node of the tree holds one reference; the last
// release deletes the tree. All access to the tree goes through the lock,
// which is recursive, so an operation that holds it may call one that takes
// it again (getTotalCharset inside a write-out).
//
// Input:       objects must come from new: the last release deletes them.
// Diagnostics: none.
// Concurrency: addRef and release change a plain count under the lock.
// See also:    ClsMime.h, MimeMessage2.h, textlib/sys/RefCountedObject.h
#pragma once

#include <cstdint>

#include "mime/MimeMessage2.h"
#include "textlib/sys/BrelkinCritSec.h"
#include "textlib/sys/RefCountedObject.h"

namespace brelkin {

class StringBuffer;

class SharedMime : public BrelkinCritSec, public RefCountedObject {
public:
    SharedMime();
    ~SharedMime() override;

    void lock() { enter(); }
    void unlock() { leave(); }
    void addRef();
    // May delete this object; the caller must not touch it afterwards.
    void release();

    MimeMessage2& getRoot() { return m_root; }
    // Depth first from the root; null when no node of the tree has it.
    MimeMessage2* findBySerial(uint64_t serial);
    // The charset of the first 8-bit text part of the whole tree.
    bool getTotalCharset(StringBuffer& out);

private:
    MimeMessage2 m_root;
    // Set while release holds the lock for the last reference: the destructor
    // then leaves it, so that the lock is never destroyed while held.
    bool m_lockedByRelease = false;
};

}  // namespace brelkin
