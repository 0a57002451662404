// ProfileFile.h - sections and keys of INI-style profile files
//
// Stand-ins for the Windows profile calls, with their rules: section and key
// names compare without case; a section read is a block of "key=value" strings,
// each closed by a zero, the block closed by one more zero. Writes replace the
// file atomically (temporary file, flush, rename).
//
// Diagnostics: reads give the default or an empty block; writes give false.
// See also:    posix/ProfileFile.cpp
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Copies the section's lines into `out` (at most `size` bytes, the final zero
// pair included) and returns the bytes copied without the last zero.
size_t GetPrivateProfileSection(const std::string& section, char* out, size_t size,
                                const std::string& file);

// The key's value as a decimal number; `defaultValue` when absent or not a number.
int GetPrivateProfileInt(const std::string& section, const std::string& key, int defaultValue,
                         const std::string& file);

// Replaces the whole section with the lines of `block` (zero-separated,
// closed by a zero pair). A null block deletes the section.
bool WritePrivateProfileSection(const std::string& section, const char* block,
                                const std::string& file);

// Sets one key; a null value deletes the key.
bool WritePrivateProfileString(const std::string& section, const std::string& key,
                               const char* value, const std::string& file);

}  // namespace platform
