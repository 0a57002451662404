// NvcStringW.cpp - the 16-bit (UTF-16) sibling of CNvcString, and UTF-8 bridges
//
// See NvcStringW.h
#include "foundation/NvcStringW.h"

#include <cstring>
#include <new>
#include <vector>

#include "platform/CodePage.h"

namespace {

size_t WideLength(const char16_t* text) {
    size_t length = 0;
    while (text[length] != 0) ++length;
    return length;
}

char16_t* DuplicateWide(const char16_t* text) {
    static const char16_t kEmpty[1] = {0};
    if (text == nullptr) text = kEmpty;
    const size_t length = WideLength(text);
    char16_t* copy = new char16_t[length + 1];
    std::memcpy(copy, text, (length + 1) * sizeof(char16_t));
    return copy;
}

// Each byte as a signed value: 0xE9 becomes U+FFE9.
char16_t* WidenBytes(const char* narrow) {
    if (narrow == nullptr) narrow = "";
    const size_t length = std::strlen(narrow);
    char16_t* wide = new char16_t[length + 1];
    for (size_t i = 0; i <= length; ++i)
        wide[i] = static_cast<char16_t>(static_cast<int16_t>(static_cast<signed char>(narrow[i])));
    return wide;
}

}  // namespace

CNvcStringW::CNvcStringW() : m_text(DuplicateWide(nullptr)) {}

CNvcStringW::CNvcStringW(const char* narrow) : m_text(WidenBytes(narrow)) {
    m_length = static_cast<int>(WideLength(m_text));
}

CNvcStringW::CNvcStringW(const CNvcStringW& other)
    : CNvcBase(other), m_text(DuplicateWide(other.m_text)), m_length(other.m_length) {}

CNvcStringW& CNvcStringW::operator=(const CNvcStringW& other) {
    if (this == &other) return *this;
    CNvcBase::operator=(other);
    return Assign(other.m_text);
}

CNvcStringW::~CNvcStringW() {
    delete[] m_text;
    m_text = nullptr;
    delete[] m_narrow;
    m_narrow = nullptr;
}

void CNvcStringW::TakeBuffer(char16_t* text) {
    delete[] m_text;
    m_text = text;
    m_length = static_cast<int>(WideLength(m_text));
}

CNvcStringW& CNvcStringW::Assign(const char* narrow) {
    TakeBuffer(WidenBytes(narrow));
    return *this;
}

CNvcStringW& CNvcStringW::Assign(const char16_t* text) {
    TakeBuffer(DuplicateWide(text));  // copies first: `text` may be our own
    return *this;
}

int CNvcStringW::GetLength() const { return static_cast<int>(WideLength(m_text)); }

const char* CNvcStringW::GetAnsi() {
    delete[] m_narrow;
    m_narrow = nullptr;
    const int size = platform::WideCharToMultiByte(platform::kCpAcp, m_text, -1, nullptr, 0);
    m_narrow = new (std::nothrow) char[size > 0 ? size : 1];
    if (m_narrow == nullptr) return nullptr;
    m_narrow[0] = '\0';
    if (size > 0) platform::WideCharToMultiByte(platform::kCpAcp, m_text, -1, m_narrow, size);
    return m_narrow;
}

CNvcString& WideToUtf8(const char16_t* text, CNvcString& out) {
    if (text == nullptr) return out;
    const int size = platform::WideCharToMultiByte(platform::kCpUtf8, text, -1, nullptr, 0);
    if (size < 2) return out;
    std::vector<char> buffer;
    try {
        buffer.resize(static_cast<size_t>(size));
    } catch (const std::bad_alloc&) {
        return out;
    }
    if (platform::WideCharToMultiByte(platform::kCpUtf8, text, -1, buffer.data(), size) < 2) return out;
    buffer.back() = '\0';
    return out.Assign(buffer.data());
}

CNvcStringW& Utf8ToWide(const char* text, CNvcStringW& out) {
    if (text == nullptr) return out;
    const int units = platform::MultiByteToWideChar(platform::kCpUtf8, text, -1, nullptr, 0);
    if (units < 2) return out;
    std::vector<char16_t> buffer;
    try {
        buffer.resize(static_cast<size_t>(units));
    } catch (const std::bad_alloc&) {
        return out;
    }
    if (platform::MultiByteToWideChar(platform::kCpUtf8, text, -1, buffer.data(), units) < 2) return out;
    buffer.back() = 0;
    return out.Assign(buffer.data());
}
