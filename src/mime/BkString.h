// BkString.h - public holder of one text, in UTF-8, ANSI or UTF-16 as asked
//
// The engine fills it (BkMime's Get... operations); the caller reads the form
// it needs. A form is made on first request and kept until the next change.
//
// Input:       none beyond what BkMime puts in.
// Diagnostics: none; an empty text answers "" (or a zero unit).
// Limits:      not thread-safe; the pointers given out last until the next
//              change or clear.
// See also:    BkMime.h, textlib/buffers/XString.h
#pragma once

#include "mime/BkObject.h"

namespace brelkin {
class XString;
}

class BkString : public BkObject {
public:
    BkString();
    ~BkString() override;

    const char* getAnsi();
    const char* getUtf8();
    const char16_t* getUnicode();
    void clear();

    // For the engine's own use: the text behind the handle.
    brelkin::XString& getXString() { return *m_x; }

private:
    brelkin::XString* m_x;  // owned, never null
};
