// DotStuffer.h - a message text as it goes out after DATA, produced on the fly
//
// Every line that begins with a dot gets one more in front, the first line
// too; any LF ends a line, so a bare LF followed by "." cannot end the data
// early at the far side. Behind the text come "\r\n." and the line
// terminator, so that the data ends in "\r\n.\r\n" (a text that ends in CR LF
// gets an empty line before the dot). The stuffed text is never built whole:
// a 100 MB message costs no second copy.
//
// Input:       a zero-terminated text; it ends at its first zero byte and must
//              outlive the stuffer.
// See also:    ByteSource.h, NvSmtp.h (SendData)
#pragma once

#include <cstdint>
#include <string>

#include "smtp/ByteSource.h"

class DotStuffer : public ByteSource {
public:
    DotStuffer(const char* text, const char* terminator);
    uint32_t Fill(uint8_t* out, uint32_t room) override;

private:
    uint32_t FillText(uint8_t* out, uint32_t room);

    const char* m_next;
    const char* m_end;
    bool m_lineStart = true;
    bool m_dotAdded = false;  // the extra dot of the line at m_next is out
    std::string m_tail;
    size_t m_tailSent = 0;
};
