// MimeTestText.h - byte views, splitting and UTF-8 shape shared by the MIME tests
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

namespace mimetest {

inline std::string str(const brelkin::DataBuffer& data) {
    return std::string(reinterpret_cast<const char*>(data.getData()), data.getSize());
}

inline std::string str(const brelkin::StringBuffer& text) {
    return std::string(text.getString(), text.getSize());
}

// The pieces between separators; one piece when there is none.
inline std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t at = text.find(separator); at != std::string::npos;
         at = text.find(separator, start)) {
        out.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
    out.push_back(text.substr(start));
    return out;
}

// The text without any of the bytes in `drop`.
inline std::string without(const std::string& text, const char* drop) {
    std::string out;
    for (char c : text)
        if (!std::strchr(drop, c)) out += c;
    return out;
}

// Whole sequences of one to four bytes, nothing cut off.
inline bool isUtf8(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = s[i];
        const size_t n = c < 0x80         ? 1
                         : (c >> 5) == 6  ? 2
                         : (c >> 4) == 14 ? 3
                         : (c >> 3) == 30 ? 4
                                          : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2) return false;
        i += n;
    }
    return true;
}

}  // namespace mimetest
