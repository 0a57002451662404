// DotStuffer.cpp - dot-stuffing a message text piece by piece
//
// See DotStuffer.h
#include "smtp/DotStuffer.h"

#include <algorithm>
#include <cstring>

DotStuffer::DotStuffer(const char* text, const char* terminator)
    : m_next(text), m_end(text + std::strlen(text)), m_tail(std::string("\r\n.") + terminator) {}

uint32_t DotStuffer::Fill(uint8_t* out, uint32_t room) {
    uint32_t filled = FillText(out, room);
    const size_t tail = std::min<size_t>(room - filled, m_tail.size() - m_tailSent);
    std::memcpy(out + filled, m_tail.data() + m_tailSent, tail);
    m_tailSent += tail;
    return filled + static_cast<uint32_t>(tail);
}

// Copies runs up to and including the next LF (or as far as room allows),
// so the per-byte work is a search, not a loop.
uint32_t DotStuffer::FillText(uint8_t* out, uint32_t room) {
    uint32_t filled = 0;
    while (filled < room && m_next < m_end) {
        if (m_lineStart && *m_next == '.' && !m_dotAdded) {
            out[filled++] = '.';
            m_dotAdded = true;
            continue;
        }
        const size_t limit = std::min<size_t>(static_cast<size_t>(m_end - m_next), room - filled);
        const void* lf = std::memchr(m_next, '\n', limit);
        const size_t run = lf != nullptr ? static_cast<const char*>(lf) + 1 - m_next : limit;
        std::memcpy(out + filled, m_next, run);
        filled += static_cast<uint32_t>(run);
        m_next += run;
        m_dotAdded = false;
        m_lineStart = m_next[-1] == '\n';
    }
    return filled;
}
