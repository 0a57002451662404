// NvcTimeout.h - a stopwatch on the 32-bit millisecond tick count
//
// Set(ms) fixes a deadline at the tick count plus the timeout, modulo 2^32;
// IsExpired tells whether it has been reached, and stays right when the
// deadline lies past the wrap of the counter. 0xFFFFFFFF means no limit.
// A fresh object has no limit until Set is called.
//
// Diagnostics: none; IsExpired gives 1 or 0.
// Limits:      a timeout must be shorter than the counter's range (~49.7 days).
// Known gaps:  a deadline before the wrap is taken as not reached once the
//              counter has wrapped past it; kept, the service's timeouts are
//              minutes at most and a stale watchdog is always Restart-ed.
// See also:    platform/Clock.h
#pragma once

#include <cstdint>

class CNvcTimeout {
public:
    static constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

    CNvcTimeout();
    CNvcTimeout(const CNvcTimeout& other);
    CNvcTimeout& operator=(const CNvcTimeout& other);
    virtual ~CNvcTimeout();

    void Set(uint32_t timeoutMs);
    // Pushes the deadline on by the stored timeout, from now.
    void Restart();
    int IsExpired() const;

private:
    struct Window {
        uint32_t timeout;
        uint32_t deadline;
    };
    Window* m_window;
};
