// NvcTimeout.cpp - a stopwatch on the 32-bit millisecond tick count
//
// See NvcTimeout.h
#include "foundation/NvcTimeout.h"

#include "platform/Clock.h"

CNvcTimeout::CNvcTimeout() : m_window(new Window{kNoLimit, 0}) {}

CNvcTimeout::CNvcTimeout(const CNvcTimeout& other) : m_window(new Window(*other.m_window)) {}

CNvcTimeout& CNvcTimeout::operator=(const CNvcTimeout& other) {
    *m_window = *other.m_window;
    return *this;
}

CNvcTimeout::~CNvcTimeout() {
    delete m_window;
    m_window = nullptr;
}

void CNvcTimeout::Set(uint32_t timeoutMs) {
    m_window->timeout = timeoutMs;
    Restart();
}

void CNvcTimeout::Restart() { m_window->deadline = platform::GetTickCount() + m_window->timeout; }

int CNvcTimeout::IsExpired() const {
    const uint32_t timeout = m_window->timeout;
    if (timeout == kNoLimit) return 0;
    const uint32_t now = platform::GetTickCount();
    const uint32_t start = m_window->deadline - timeout;
    const bool deadlinePastWrap = start >= kNoLimit - timeout;
    const bool nowBeforeWrap = kNoLimit - now <= timeout;
    if (deadlinePastWrap && nowBeforeWrap) return 0;
    return now >= m_window->deadline ? 1 : 0;
}
