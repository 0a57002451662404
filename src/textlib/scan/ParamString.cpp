// ParamString.cpp - quoted strings taken out of a text, so it can be cut safely
//
// See ParamString.h
#include "textlib/scan/ParamString.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace brelkin {

namespace {

constexpr size_t kMaxText = 100000000;

}  // namespace

ParamString::~ParamString() { clear(); }

void ParamString::clear() {
    m_skeleton.clear();
    m_params.deleteAll();
}

const char* ParamString::getParam(int index) const {
    auto* param = static_cast<const StringBuffer*>(m_params.getAt(index));
    return param ? param->getString() : nullptr;
}

void ParamString::parse(const char* text, bool useBackslash) {
    clear();
    if (!text) return;
    size_t length = std::strlen(text);
    if (length == 0 || length > kMaxText) return;

    StringBuffer current;
    bool inString = false;
    for (size_t i = 0; i < length; ++i) {
        char c = text[i];
        if (!inString) {
            if (c == '"') {
                m_skeleton.append("<[[");
                current.clear();
                inString = true;
            } else {
                m_skeleton.appendChar(c);
            }
            continue;
        }
        if (useBackslash && c == '\\') {
            if (i + 1 >= length) return;  // the unclosed string is dropped
            char next = text[++i];
            if (next != '"') current.appendChar('\\');
            current.appendChar(next);
            continue;
        }
        if (c == '"' || c == '\r' || c == '\n') {
            char number[16];
            std::snprintf(number, sizeof number, "%d]]>", m_params.getSize());
            m_skeleton.append(number);
            // Out of memory loses the parameter, as the array drops what it cannot hold.
            int before = m_params.getSize();
            auto* param = new (std::nothrow) StringBuffer(current);
            if (param) m_params.append(param);
            if (m_params.getSize() == before) delete param;
            inString = false;
            continue;
        }
        current.appendChar(c);
    }
}

}  // namespace brelkin
