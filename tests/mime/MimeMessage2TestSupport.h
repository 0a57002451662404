// MimeMessage2TestSupport.h - parsing and printing helpers for the node tests
#pragma once

#include <memory>
#include <string>

#include "MimeTestText.h"
#include "mime/MimeMessage2.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/LogNull.h"
#include "textlib/log/Logger.h"

namespace mimetest {

// std::string keeps a zero byte behind its text, as the parser requires.
inline std::unique_ptr<brelkin::MimeMessage2> parse(const std::string& text,
                                                    brelkin::LogBase* log = nullptr,
                                                    bool mixedLineEndings = false) {
    auto node = std::make_unique<brelkin::MimeMessage2>();
    brelkin::LogNull quiet;
    node->LoadMimeComplete2(text.c_str(), static_cast<uint32_t>(text.size()), mixedLineEndings,
                            log ? *log : quiet, false, log != nullptr);
    return node;
}

inline std::string body(const brelkin::MimeMessage2& node) {
    return str(node.getBody());
}

inline std::string mime(brelkin::MimeMessage2& node) {
    brelkin::DataBuffer out;
    brelkin::LogNull quiet;
    node.getMimeDb(out, quiet, false);
    return str(out);
}

inline std::string bodyDb(brelkin::MimeMessage2& node) {
    brelkin::DataBuffer out;
    brelkin::LogNull quiet;
    node.getMimeBodyDb(out, quiet, false);
    return str(out);
}

inline std::string field(brelkin::MimeMessage2& node, const char* name) {
    brelkin::StringBuffer value;
    node.getHeaderFieldDecoded(name, value);
    return str(value);
}

// A cached value that the node hands out by appending.
inline std::string cached(const brelkin::MimeMessage2& node,
                          void (brelkin::MimeMessage2::*get)(brelkin::StringBuffer&) const) {
    brelkin::StringBuffer out;
    (node.*get)(out);
    return str(out);
}

inline bool logged(brelkin::Logger& log, const char* line) {
    brelkin::StringBuffer text;
    log.getText(text);
    return str(text).find(line) != std::string::npos;
}

}  // namespace mimetest
