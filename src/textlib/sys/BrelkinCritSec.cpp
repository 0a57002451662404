// BrelkinCritSec.cpp - the engine's lock: recursive on one thread
//
// See BrelkinCritSec.h
#include "textlib/sys/BrelkinCritSec.h"

namespace brelkin {

// Entering once more waits out a thread that still holds the lock, so that the
// section is never destroyed under it.
BrelkinCritSec::~BrelkinCritSec() {
    m_section.lock();
    m_section.unlock();
}

}  // namespace brelkin
