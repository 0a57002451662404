// MimeFieldNames.h - the fixed lists of field names that decide how a field is written
//
// The lists overlap but differ on purpose (the ";" rule spares From, the raw
// fallback adds Return-Path); each is used exactly where its rule applies,
// so none may be merged into another. All compare case-insensitively.
//
// Input:       a field name as written.
// See also:    MimeField.h
#pragma once

#include <cstddef>

#include "textlib/buffers/StringBuffer.h"

namespace brelkin {
namespace fieldnames {

template <std::size_t N>
bool inList(const StringBuffer& name, const char* const (&list)[N]) {
    for (const char* candidate : list) {
        if (name.equalsIgnoreCase(candidate)) return true;
    }
    return false;
}

inline bool isAddressField(const StringBuffer& name) {
    static const char* const kNames[] = {"to", "cc", "bcc", "from"};
    return inList(name, kNames);
}

// Address fields whose text goes out raw when no angle address is found.
inline bool isRawAddressField(const StringBuffer& name) {
    static const char* const kNames[] = {"return-path", "to", "bcc", "from", "cc"};
    return inList(name, kNames);
}

// Recipients separated by ";" as some clients write them; From is left alone.
inline bool isSemicolonListField(const StringBuffer& name) {
    static const char* const kNames[] = {"to", "cc", "bcc"};
    return inList(name, kNames);
}

inline bool isFreeTextField(const StringBuffer& name) {
    static const char* const kNames[] = {"subject", "Content-Location", "User-Agent",
                                         "Accept-Language", "Thread-Topic"};
    return inList(name, kNames);
}

inline bool isAlwaysEncodedWhenStateful(const StringBuffer& name) {
    static const char* const kNames[] = {"subject", "Thread-Topic"};
    return inList(name, kNames);
}

inline bool isNeverEncoded(const StringBuffer& name) {
    static const char* const kNames[] = {"received", "content-transfer-encoding"};
    return inList(name, kNames);
}

inline bool isCollapsedField(const StringBuffer& name) {
    static const char* const kNames[] = {"received", "DKIM-Signature", "DomainKey-Signature"};
    return inList(name, kNames);
}

inline bool isBlankFoldField(const StringBuffer& name) {
    static const char* const kNames[] = {"subject", "Content-Location", "received",
                                         "DKIM-Signature", "DomainKey-Signature"};
    return inList(name, kNames);
}

}  // namespace fieldnames
}  // namespace brelkin
