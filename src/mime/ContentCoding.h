// ContentCoding.h - base64 and quoted-printable for bodies, and header encoded words
//
// Writes the shape the engine always writes (base64 in CR LF lines of 76
// characters, quoted-printable with soft breaks at 76) and reads broken input
// as far as it goes: base64 skips what is not in its alphabet and stops at the
// first "=", quoted-printable keeps malformed escapes as text and repairs
// sign-extended "=FFFFFFxx" escapes.
//
// Encoded words (ContentCodingWords.cpp): long header text is split into
// words of whole characters, about 30 a word, each piece prolonged to the
// next blank so that no word breaks inside a character or a word of the text.
// Decoding gives UTF-8 and stops quietly at a word that is cut off: the text
// from its "=?" on is dropped, never shown half-decoded.
//
// Input:       any bytes. Outputs are appended to; nothing is cleared.
// Diagnostics: false only for empty input (quoted-printable decoding) or when
//              the output could not grow.
// Limits:      one call, one whole block; output sizes are bounded by the
//              *EncodedSize functions below.
// Known gaps:  the quoted-printable decoder looks at the low 7 bits of every
//              byte, so 0xBD counts as "=" and 0x8A as a line feed; kept, since
//              stored messages were read that way.
// See also:    textlib/buffers/StringBuffer.h, textlib/buffers/DataBuffer.h
#pragma once

#include <cstdint>

namespace brelkin {

class DataBuffer;
class StringBuffer;

class ContentCoding {
public:
    ContentCoding() = default;
    virtual ~ContentCoding() = default;

    // Base64 lines of m_lineLength characters, each ended by CR LF; the output
    // always ends in CR LF, so a multiple of 57 bytes ends in an empty line.
    bool encodeBase64(const void* bytes, uint32_t count, StringBuffer& out) const;
    // The same lines straight into a byte buffer, with no text in between.
    bool encodeBase64(const void* bytes, uint32_t count, DataBuffer& out) const;
    // Stops at the first "=" or zero byte; skips every byte outside the
    // alphabet. An incomplete last group gives its whole bytes.
    bool decodeBase64(const char* text, uint32_t count, DataBuffer& out) const;
    // Soft breaks keep lines within m_lineLength; "." and "From " at a line
    // start are escaped. Adds no line end of its own.
    bool encodeQuotedPrintable(const void* bytes, uint32_t count, StringBuffer& out) const;
    // Bare LF comes out as CR LF; trailing white space of a line is dropped.
    // False for a null or empty input.
    bool decodeQuotedPrintable(const char* text, uint32_t count, DataBuffer& out) const;

    // Upper bounds of the encoders' output for `count` input bytes.
    static uint64_t base64EncodedSize(uint64_t count, int lineLength);
    static uint64_t quotedPrintableEncodedSize(uint64_t count);

    // Encoded words. The encoders append "=?charset?B?...?=" / "?Q?" words
    // separated by CR LF TAB; a code page of 0 means UTF-8. They return false
    // only when nothing could be written for non-empty input.
    bool encodeBWords(const void* bytes, uint32_t count, int codePage, const char* charsetName,
                      StringBuffer& out) const;
    bool encodeQWords(const void* bytes, uint32_t count, int codePage, const char* charsetName,
                      StringBuffer& out) const;
    // One word, unsplit; B for the East Asian, Thai, Turkish and Arabic
    // charsets, Q for the rest. Text already holding "?Q?"/"?B?" is appended as is.
    bool encodeWordByCharset(const void* bytes, uint32_t count, const char* charsetName,
                             StringBuffer& out) const;
    // Replace `text` by its decoded UTF-8 form (mode 2). Never fail.
    static void decodeEncodedWords(StringBuffer& text);
    // As above; a "," produced by decoding comes out as "_COMMA_".
    static void decodeEncodedWordsForAddresses(StringBuffer& text, bool& sawComma);
    // The decoded bytes, no charset conversion, appended to `out`.
    static void decodeEncodedWordsRaw(const StringBuffer& text, DataBuffer& out);

    // The Q text of one word, both ways. Q encoding escapes "," as well when
    // m_encodeCommas is set. A decoding count below 1 means zero-terminated.
    void encodeQText(const void* bytes, uint32_t count, StringBuffer& out) const;
    static void decodeQText(const char* text, int count, DataBuffer& out);

    bool getEncodeCommas() const { return m_encodeCommas; }
    void setEncodeCommas(bool encode) { m_encodeCommas = encode; }

protected:
    int m_lineLength = 76;        // never changed after construction
    bool m_encodeCommas = false;  // Q-encoded words also escape ","

private:
    // Writes the Base64 lines of `count` bytes at `o`, which has room for
    // base64EncodedSize of them; returns the end.
    char* writeBase64(const uint8_t* in, uint32_t count, char* o) const;
};

}  // namespace brelkin
