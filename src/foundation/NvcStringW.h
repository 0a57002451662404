// NvcStringW.h - the 16-bit (UTF-16) sibling of CNvcString, and UTF-8 bridges
//
// Holds what comes from message headers as Unicode. A narrow text given to
// the constructor or Assign is widened byte by byte as a signed value, with no
// code page, so it is for ASCII only; real conversions go through GetAnsi
// (system code page), WideToUtf8 and Utf8ToWide.
//
// Input:       a null pointer is the empty text.
// Diagnostics: none; GetAnsi gives null only when memory fails.
// Known gaps:  the signed widening turns bytes above 0x7F into U+FF80..U+FFFF;
//              kept, callers hand it ASCII only.
//              Not thread-safe: a string belongs to one thread at a time.
// See also:    NvcString.h, platform/CodePage.h
#pragma once

#include "foundation/NvcBase.h"
#include "foundation/NvcString.h"

class CNvcStringW : public CNvcBase {
public:
    CNvcStringW();
    CNvcStringW(const char* narrow);  // NOLINT: implicit on purpose, like a C string
    CNvcStringW(const CNvcStringW& other);
    CNvcStringW& operator=(const CNvcStringW& other);
    ~CNvcStringW() override;

    CNvcStringW& Assign(const char* narrow);
    CNvcStringW& Assign(const char16_t* text);

    int GetLength() const;
    const char16_t* GetData() const { return m_text; }
    // The text in the system's ANSI code page; valid until the next call.
    const char* GetAnsi();

private:
    void TakeBuffer(char16_t* text);

    char16_t* m_text;
    char* m_narrow = nullptr;
    int m_length = 0;
};

// UTF-16 to UTF-8 into `out`; an empty text or a failed conversion leaves
// `out` as it was.
CNvcString& WideToUtf8(const char16_t* text, CNvcString& out);
// UTF-8 to UTF-16 into `out`; a text that gives nothing but the terminator
// leaves `out` as it was.
CNvcStringW& Utf8ToWide(const char* text, CNvcStringW& out);
