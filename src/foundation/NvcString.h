// NvcString.h - the owning, zero-terminated 8-bit string of the foundation
//
// A plain owner of a heap buffer: copying copies the text, there is no stored
// length (every length is a scan up to the first zero) and no encoding, the
// bytes are taken as they come in the system code page. Besides assembling
// text it carries the small tools the service leans on: replacing with
// optional case folding, tokens with a cached position, printf formatting
// with and without a length cap, and the decoder of scrambled passwords.
//
// Input:       any bytes; a null pointer where text is expected is the empty text.
// Diagnostics: none; operations return the object. Only FormatShort and Format
//              test for memory, and leave the string empty when it fails.
// Limits:      FormatShort cuts at 2047 characters; Format sizes its buffer by
//              an estimate walk over the format (see Format).
// Known gaps:  case folding is ASCII only. Replace with an empty find text does
//              nothing rather than loop for ever; no caller gives one.
//              Not thread-safe: a string belongs to one thread at a time.
// See also:    NvcStringW.h
#pragma once

#include <cstddef>

#define NVC_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))

class CNvcString {
public:
    CNvcString();
    CNvcString(const char* text);  // NOLINT: implicit on purpose, like a C string
    CNvcString(const CNvcString& other);
    CNvcString(CNvcString&& other) noexcept;
    explicit CNvcString(int number);
    explicit CNvcString(char c);
    CNvcString& operator=(const CNvcString& other);
    CNvcString& operator=(CNvcString&& other) noexcept;
    CNvcString& operator=(const char* text);
    virtual ~CNvcString();

    const char* GetData() const { return m_text; }
    size_t GetLength() const;
    bool IsEmpty() const { return m_text[0] == '\0'; }

    CNvcString& Assign(const char* text);
    CNvcString& Assign(const CNvcString& other);
    CNvcString& Assign(char c);
    CNvcString& Assign(int number);
    CNvcString& Clear();

    CNvcString& Append(const char* text);
    CNvcString& Append(const CNvcString& other);
    CNvcString& Append(char c);
    CNvcString& Append(unsigned char c);
    CNvcString& Append(long number);
    CNvcString& Append(int number) { return Append(static_cast<long>(number)); }
    CNvcString& AppendIfMissing(char c);
    CNvcString& AddBackslash();

    CNvcString& MakeUpper();
    CNvcString& MakeLower();

    int Equals(const char* text) const;
    int NotEquals(const char* text) const;
    int EqualNoCase(const char* text) const;
    int StartsWith(const char* text, int caseSensitive) const;
    int Contains(const char* text, int caseSensitive) const;

    CNvcString& Replace(const char* find, const char* with, int caseSensitive);
    CNvcString& Trim();
    CNvcString& Prepend(const char* text, int always);
    CNvcString& RemovePrefix(const char* text);
    CNvcString& RemoveSuffix(const char* text);
    CNvcString& CrLfToBars();

    // printf into a kept 2048-byte buffer; a longer result is cut at 2047.
    CNvcString& FormatShort(const char* format, ...) NVC_PRINTF_FORMAT(2, 3);
    // printf of any length, into a buffer sized by walking the format first.
    CNvcString& Format(const char* format, ...) NVC_PRINTF_FORMAT(2, 3);

    // Token `index` (0 first) between `separator`s into `out`; `def` when the
    // token is missing or empty. Reading in rising order costs one step each.
    CNvcString& GetToken(const char* separator, const char* def, CNvcString& out, int index);
    long GetTokenInt(const char* separator, long defaultNumber, int index);
    int GetTokenCount(const char* separator);

    // Decodes "KKKKKK" + hex pairs, each byte minus its rotating key byte.
    CNvcString& Unscramble();

private:
    void TakeBuffer(char* text);
    void ResetTokenCursor();
    const char* FindTokenStart(const char* separator, int index) const;

    char* m_text;
    char* m_formatBuffer = nullptr;
    int m_tokenIndex = -1;
    const char* m_tokenPosition = nullptr;
};
