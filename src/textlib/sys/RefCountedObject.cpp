// RefCountedObject.cpp - a reference count that destroys its object at zero
//
// See RefCountedObject.h
#include "textlib/sys/RefCountedObject.h"

namespace brelkin {

void RefCountedObject::decRefCount() {
    if (m_refCount < 1) {
        m_refCount = 0;
        return;
    }
    if (--m_refCount == 0) delete this;
}

}  // namespace brelkin
