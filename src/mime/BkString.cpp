// BkString.cpp - public text holder over an XString
#include "mime/BkString.h"

#include "textlib/buffers/XString.h"

BkString::BkString() : m_x(new brelkin::XString) {}

BkString::~BkString() {
    delete m_x;
    m_x = nullptr;
}

const char* BkString::getAnsi() { return m_x->getAnsi(); }

const char* BkString::getUtf8() { return m_x->getUtf8(); }

const char16_t* BkString::getUnicode() { return m_x->getUnicode(); }

void BkString::clear() { m_x->clear(); }
