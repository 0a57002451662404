// Rfc822AddressFuzzer.cpp - untrusted address text, and address lists built to be read back
//
// The first byte picks the mode. Mode 0 reads the rest as one address and as
// an address list: both must end, an address of the common form never holds
// a blank or a double quote, and a list never gives more addresses than it
// has pieces. Mode 1 builds a list of well-formed ‹"name" <local@domain>›
// pieces from the rest (names of any bytes but quotes, backslashes, "=",
// "?" and controls; 8-bit names included) and requires every name and
// address to come back exactly, in order.
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "mime/Rfc822Address.h"
#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::ExtPtrArray;
using brelkin::Rfc822Address;
using brelkin::StringBuffer;

namespace {

std::string nameOf(const Rfc822Address& a) {
    StringBuffer out;
    a.getName(out);
    return std::string(out.getString(), out.getSize());
}

std::string addressOf(const Rfc822Address& a) {
    StringBuffer out;
    a.getAddress(out);
    return std::string(out.getString(), out.getSize());
}

bool isDirectoryText(const std::string& s) {
    for (const char* element : {"C=", "O=", "CN=", "P="}) {
        if (s.find(element) != std::string::npos) return true;
    }
    return false;
}

void readUntrusted(const std::string& text) {
    StringBuffer in;
    in.appendN(text.data(), static_cast<int>(text.size()));
    Rfc822Address one(&in);
    const std::string address = addressOf(one);
    if (address.size() > text.size()) __builtin_trap();
    if (one.isValid() && !isDirectoryText(text) &&
        address.find_first_of(" \"") != std::string::npos)
        __builtin_trap();
    nameOf(one);

    ExtPtrArray list;
    const int count = Rfc822Address::parseAddressList(text.c_str(), list);
    size_t commas = 0;
    for (char c : text) commas += c == ',';
    if (count != list.getSize() || static_cast<size_t>(count) > commas + 1) __builtin_trap();
    for (int i = 0; i < list.getSize(); ++i) {
        const auto* a = static_cast<const Rfc822Address*>(list.getAt(i));
        if (!a->isValid()) __builtin_trap();
        nameOf(*a);
    }
    list.deleteAll();
}

bool isAddressByte(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == '+';
}

bool isNameByte(unsigned char c) {
    return c >= 0x20 && c != 0x7F && c != '"' && c != '\\' && c != '=' && c != '?';
}

struct Entry {
    std::string name, local, domain;
};

// Bytes are dealt out in turn to name, local part and domain; 0x01 starts
// the next entry.
std::vector<Entry> entriesFrom(const std::string& bytes) {
    std::vector<Entry> out(1);
    int part = 0;
    for (unsigned char c : bytes) {
        if (c == 0x01) {
            out.emplace_back();
            part = 0;
            continue;
        }
        Entry& e = out.back();
        if (part == 0 && isNameByte(c)) e.name += static_cast<char>(c);
        if (part == 1 && isAddressByte(c)) e.local += static_cast<char>(c);
        if (part == 2 && isAddressByte(c)) e.domain += static_cast<char>(c);
        part = (part + 1) % 3;
    }
    return out;
}

std::string trimmed(const std::string& s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

bool usable(Entry& e) {
    e.name = trimmed(e.name);
    if (e.name.empty() || e.local.empty() || e.domain.empty()) return false;
    // Opening quotes of either kind are skipped as quoting.
    if (e.name[0] == '\'') return false;
    // A name equal to the address is dropped as no name.
    if (e.name == e.local + "@" + e.domain) return false;
    std::string lower;
    for (char c : e.name + e.local) lower += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return lower.find("undisclosed") == std::string::npos;
}

void readBack(const std::string& bytes) {
    std::vector<Entry> entries;
    for (Entry& e : entriesFrom(bytes)) {
        if (usable(e)) entries.push_back(e);
    }
    if (entries.empty()) return;
    std::string text;
    for (const Entry& e : entries) {
        if (!text.empty()) text += ", ";
        text += "\"" + e.name + "\" <" + e.local + "@" + e.domain + ">";
    }
    ExtPtrArray list;
    const int count = Rfc822Address::parseAddressList(text.c_str(), list);
    if (count != static_cast<int>(entries.size())) __builtin_trap();
    for (int i = 0; i < count; ++i) {
        const auto* a = static_cast<const Rfc822Address*>(list.getAt(i));
        if (nameOf(*a) != entries[i].name) __builtin_trap();
        if (addressOf(*a) != entries[i].local + "@" + entries[i].domain) __builtin_trap();
    }
    list.deleteAll();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 16)) return 0;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] & 1) {
        readBack(text);
    } else {
        // The list reader takes zero-terminated text.
        text.resize(std::strlen(text.c_str()));
        readUntrusted(text);
    }
    return 0;
}
