// SharedMime.cpp - one MIME tree: its root, its lock and its reference count
#include "mime/SharedMime.h"

#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

SharedMime::SharedMime() = default;

SharedMime::~SharedMime() {
    if (m_lockedByRelease) {
        m_lockedByRelease = false;
        leave();
    }
}

void SharedMime::addRef() {
    CritSecGuard guard(*this);
    incRefCount();
}

void SharedMime::release() {
    enter();
    const bool last = getRefCount() == 1;
    if (last) m_lockedByRelease = true;
    decRefCount();
    // After the last reference the object is gone and its destructor has
    // already left the lock.
    if (!last) leave();
}

MimeMessage2* SharedMime::findBySerial(uint64_t serial) {
    CritSecGuard guard(*this);
    return m_root.findBySerial(serial);
}

bool SharedMime::getTotalCharset(StringBuffer& out) {
    CritSecGuard guard(*this);
    return m_root.getTotalCharset(out);
}

}  // namespace brelkin
