// ByteSource.h - bytes of one long write, handed out piece by piece
//
// Lets a write of many megabytes (a message text) leave the process without
// being built in one block first: the socket asks for the next piece as its
// buffer frees. A source may be drained once.
//
// See also:    DotStuffer.h, NvcTcpSocket.h (SendFrom), NvSecureProtocol.h (SecureSendFrom)
#pragma once

#include <cstdint>
#include <cstring>

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Up to `room` bytes into `out`: exactly `room` unless fewer are left, and
    // 0 once all have been handed out.
    virtual uint32_t Fill(uint8_t* out, uint32_t room) = 0;
};

// The bytes of a zero-terminated text, up to its first zero byte.
class TextByteSource : public ByteSource {
public:
    explicit TextByteSource(const char* text) : m_next(text), m_left(std::strlen(text)) {}
    uint32_t Fill(uint8_t* out, uint32_t room) override {
        const uint32_t count = m_left < room ? static_cast<uint32_t>(m_left) : room;
        std::memcpy(out, m_next, count);
        m_next += count;
        m_left -= count;
        return count;
    }

private:
    const char* m_next;
    size_t m_left;
};
