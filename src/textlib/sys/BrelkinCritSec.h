// BrelkinCritSec.h - the engine's lock: recursive on one thread
//
// Guards a Logger's tree and a MIME tree's shared root. The same thread may
// enter again while it holds the lock; each enter needs its leave.
//
// Diagnostics: none; enter blocks until the lock is free.
// Known gaps:  no try-enter and no time-out: no caller needs them.
// See also:    RefCountedObject.h, ../log/Logger.h
#pragma once

#include <mutex>

namespace brelkin {

class BrelkinCritSec {
public:
    BrelkinCritSec() = default;
    BrelkinCritSec(const BrelkinCritSec&) = delete;
    BrelkinCritSec& operator=(const BrelkinCritSec&) = delete;
    virtual ~BrelkinCritSec();

    void enter() { m_section.lock(); }
    void leave() { m_section.unlock(); }

private:
    std::recursive_mutex m_section;
};

// Holds a BrelkinCritSec for one scope.
class CritSecGuard {
public:
    explicit CritSecGuard(BrelkinCritSec& section) : m_section(section) { m_section.enter(); }
    ~CritSecGuard() { m_section.leave(); }
    CritSecGuard(const CritSecGuard&) = delete;
    CritSecGuard& operator=(const CritSecGuard&) = delete;

private:
    BrelkinCritSec& m_section;
};

}  // namespace brelkin
