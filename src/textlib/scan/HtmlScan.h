// HtmlScan.h - the charset a document names for itself, and tags made regular
//
// getCharsetFromHtml looks at META tags (HTTP-EQUIV="Content-Type" with a
// CONTENT holding "charset=", or a CHARSET attribute beside that HTTP-EQUIV),
// then at an XML declaration's encoding="...". A META tag with only a charset
// attribute is not recognised, and neither is an encoding in single quotes
// (kept: the engine's charset choice for HTML bodies depends on exactly this).
// cleanHtmlTag rebuilds one tag with single blanks between attributes and
// quoted values, so that getTagAttribute can read it.
//
// Input:       any bytes; unclosed quotes and tags end the scan, never fail it.
// Limits:      cleanHtmlTag stops after 101 attributes; no recursion.
// See also:    ParseEngine.h
#pragma once

namespace brelkin {

class LogBase;
class StringBuffer;

// `out` is untouched when the document names no charset.
void getCharsetFromHtml(const char* text, StringBuffer& out);

// The value of name="..." (or name='...') in the tag, trimmed, with every
// backslash made "/"; empty when absent or unclosed.
void getTagAttribute(const char* tag, const char* name, StringBuffer& out);

// With a log, the input is logged as "cleaning_tag" and the result under the
// label of the exit taken ("clean_tag_1" to "clean_tag_6").
void cleanHtmlTag(const char* tag, StringBuffer& out, LogBase* log);

// In place: "+" to a blank, "%XX" to its byte; a "%" with fewer than two
// characters behind it ends the text there.
void urlDecode(StringBuffer& text);

}  // namespace brelkin
