// StringBufferConvert.cpp - the StringBuffer operations that need charset conversion
//
// See StringBuffer.h
#include "textlib/buffers/StringBuffer.h"

#include "platform/CodePage.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/XString.h"
#include "textlib/charset/EncodingConvert.h"

namespace brelkin {

namespace {

bool keepsAsciiUnchanged(int from, int to) {
    return from == 437 && (to == 65001 || to == 1252 || to == 28591);
}

}  // namespace

bool StringBuffer::convertEncoding(int fromCodePage, int toCodePage) {
    const bool ascii = is7bit(0);  // checks the magic first
    if (m_length == 0 || fromCodePage == 0 || toCodePage == 0)
        return true;
    if (keepsAsciiUnchanged(fromCodePage, toCodePage) && ascii)
        return true;
    DataBuffer converted;
    EncodingConvert conv;
    const bool ok = conv.convert(fromCodePage, toCodePage, m_data,
                                 static_cast<uint32_t>(m_length), converted);
    converted.appendByte(0);
    takeData(converted);
    return ok;
}

bool StringBuffer::utf8ToAnsi() {
    return convertEncoding(65001, static_cast<int>(platform::GetACP()));
}

bool StringBuffer::ansiToCodePage(int toCodePage) {
    return convertEncoding(static_cast<int>(platform::GetACP()), toCodePage);
}

void StringBuffer::replaceCharUtf8(char from, char to) {
    if (!containsChar(from))
        return;
    if (is7bit(0)) {
        replaceChar(from, to);
        return;
    }
    XString text;
    text.setUtf8N(m_data, m_length);
    text.replaceChar(from, to);
    setString(text.getUtf8());
}

}  // namespace brelkin
