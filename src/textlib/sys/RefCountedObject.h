// RefCountedObject.h - a reference count that destroys its object at zero
//
// Shared by the handles on one MIME tree. A new object counts 0; the first
// holder calls incRefCount. The count is a plain integer: holders lock.
//
// Input:       decRefCount on a count below 1 sets it to 0 and keeps the object,
//              so a surplus release cannot free it twice.
// See also:    BrelkinCritSec.h
#pragma once

namespace brelkin {

class RefCountedObject {
public:
    RefCountedObject() = default;
    RefCountedObject(const RefCountedObject&) = delete;
    RefCountedObject& operator=(const RefCountedObject&) = delete;

    // Drops one reference; deletes this object (it must come from new) when
    // the last one goes.
    virtual void decRefCount();
    virtual ~RefCountedObject() = default;

    void incRefCount() { ++m_refCount; }
    int getRefCount() const { return m_refCount; }

private:
    int m_refCount = 0;
};

}  // namespace brelkin
