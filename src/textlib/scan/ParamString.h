// ParamString.h - quoted strings taken out of a text, so it can be cut safely
//
// parse turns ‹a "b;c" d› into the skeleton ‹a <[[0]]> d› and the parameter
// "b;c": the skeleton can then be split on delimiters without cutting inside
// a quoted string, and each piece's placeholders looked up by number.
//
// Input:       a quoted string ends at its closing quote, or at CR or LF
//              (swallowed). An unclosed string at the end is dropped and the
//              skeleton keeps its "<[[" without number or "]]>".
// Limits:      texts over 100,000,000 bytes are not parsed at all.
// See also:    ParseEngine.h
#pragma once

#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

class ParamString {
public:
    ParamString() = default;
    ParamString(const ParamString&) = delete;
    ParamString& operator=(const ParamString&) = delete;
    virtual ~ParamString();

    // With `useBackslash`, \" inside a string is a quote and \x stays \x.
    void parse(const char* text, bool useBackslash);
    // The index-th quoted string without quotes; null when out of range.
    const char* getParam(int index) const;
    int getNumParams() const { return m_params.getSize(); }
    const char* getString() const { return m_skeleton.getString(); }

private:
    void clear();

    StringBuffer m_skeleton;
    ExtPtrArray m_params;
};

}  // namespace brelkin
