// Registry.h - the two registry hives the system uses, kept in one text file
//
// HKEY_LOCAL_MACHINE and HKEY_CLASSES_ROOT live in one file in the registry
// export format: first line "REGEDIT4", then "[HIVE\Key\Path]" sections with
// "Name"="text" (escapes \\ and \") and "Name"=dword:0000000a lines. The file is
// named by TELMORAQ_REGISTRY (default /etc/telmoraq/registry.reg) and read anew
// on every call; a missing file is an empty registry. Key and value names
// compare without case; a trailing backslash of a key path is ignored; a key
// exists when its section or a section below it exists.
//
// Writes take an advisory lock, write a temporary file beside the old one,
// flush it and rename it over, so that no reader ever sees half a file.
//
// Input:       lines may end in LF or CR LF; a line that cannot be read is
//              skipped by reads and written back unchanged.
// Diagnostics: every call returns 0 or a Windows error number: 2 key or value
//              not found, 5 access denied, 33 the file lock is kept by another
//              process, 87 bad name or text, 1009 the file cannot be parsed at
//              all, or is empty or ends inside a line (someone is writing it in
//              place): it is then never rewritten, and a read looks again for up
//              to 50 ms before it takes such a file as it stands.
// Known gaps:  only string and dword values are understood; the 64-bit view
//              flag is accepted and has no effect.
// See also:    posix/Registry.cpp, SystemError.h
#pragma once

#include <cstdint>
#include <string>

namespace platform {

enum RegistryHive : uint32_t {
    HKEY_CLASSES_ROOT = 0x80000000u,
    HKEY_LOCAL_MACHINE = 0x80000002u,
};

constexpr uint32_t kRegSz = 1;     // REG_SZ
constexpr uint32_t kRegDword = 4;  // REG_DWORD

// A value as the system keeps it: a string's data is its text plus the
// terminating zero, a dword's data its four bytes, least significant first.
struct RegistryValue {
    uint32_t type = 0;
    std::string data;
};

// The registry file in use.
std::string RegistryFilePath();

// 0 when the key exists, else 2.
uint32_t ProbeRegistryKey(RegistryHive hive, const std::string& key, bool wideView);

// Creates the key (its parents are implied); 0 when it exists afterwards.
uint32_t CreateRegistryKey(RegistryHive hive, const std::string& key, bool wideView);

// Fills `out` with the value's type and data; 2 when key or value is missing.
uint32_t QueryRegistryValue(RegistryHive hive, const std::string& key, const std::string& name,
                            RegistryValue& out, bool wideView);

// Sets a string value of an existing key (2 when the key is missing). A text
// with a line end cannot be kept in the file and gives 87.
uint32_t SetRegistryString(RegistryHive hive, const std::string& key, const std::string& name,
                           const std::string& text, bool wideView);

// Sets a dword value of an existing key (2 when the key is missing).
uint32_t SetRegistryDword(RegistryHive hive, const std::string& key, const std::string& name,
                          uint32_t number, bool wideView);

}  // namespace platform
