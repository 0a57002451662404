// SystemHelpers.h - file tests, unique names, registry, event log, date texts, debug log
//
// Free functions over the platform with the fallback rules the rest of the
// system relies on: every helper answers with its default or a result value and
// writes no message. They keep no state and take no lock. Booleans are 1 and 0.
//
// Input:       a null text counts as empty; times are seconds since 1970, and a
//              time of 0 or below reads "n/a".
// Diagnostics: registry writes give 0 or -1; ReportServiceEvent gives 0 or a
//              system error number and leaves the thread's last error alone.
// Known gaps:  paths are joined with "/", the platform's separator; the debug
//              log lives in platform::DebugDir() and is written only when that
//              folder exists.
// See also:    platform/Registry.h, platform/Files.h, platform/EventLog.h
#pragma once

#include "foundation/NvcString.h"
#include "platform/Registry.h"

#include <cstdint>

using platform::HKEY_CLASSES_ROOT;
using platform::HKEY_LOCAL_MACHINE;
using RegistryHive = platform::RegistryHive;

// 1 when a search for `path` finds an entry that is not a folder.
int FileExists(const char* path);

// 1 when the first entry of a search in the folder `path` is a folder (".").
int DirectoryExists(const char* path);

// A name in `directory` that no file has yet: prefix, thread id, time and a
// random number in hex, then `extension`. Returns `out`.
CNvcString& MakeUniqueFileName(const char* directory, const char* prefix, const char* extension,
                               CNvcString& out);

// Opens the key, creating it when missing; 1 when it is there in the end.
int EnsureRegistryKey(RegistryHive hive, const char* key, int wideView);

// The value's text (at most 511 bytes, its type not looked at) or `def`.
CNvcString& ReadRegistryString(RegistryHive hive, const char* key, const char* value,
                               const char* def, CNvcString& out, int wideView);

// Writes a string value to an existing key; 0 or -1.
int WriteRegistryString(RegistryHive hive, const char* key, const char* value, const char* text,
                        int wideView);

// The dword value, or `def` when it is missing or not a dword.
uint32_t ReadRegistryDword(RegistryHive hive, const char* key, const char* value, uint32_t def,
                           int wideView);

// Writes a dword value to an existing key; 0 or -1.
int WriteRegistryDword(RegistryHive hive, const char* key, const char* value, uint32_t number,
                       int wideView);

// Writes an event under `source`. `format` has one letter per further argument:
// d integer, x integer in hex, s text, m the system's text for an error number.
// Any other letter gives 87 and no entry.
int ReportServiceEvent(const char* source, uint32_t eventId, const char* format, ...);

// The local date by `format` ("mm/dd/yyyy" when empty), or "n/a".
CNvcString& FormatDate(int64_t time, CNvcString& out, const char* format);

// The local time in the form the start of `format` picks, or "n/a".
CNvcString& FormatTime(int64_t time, CNvcString& out, const char* format);

// Date, one blank, time; "n/a" for a time of 0 or below.
CNvcString& FormatDateTime(int64_t time, CNvcString& out, const char* dateFormat,
                           const char* timeFormat);

// Appends one stamped line to Norvane.log in the debug folder, if it can.
void DebugLog(const char* kind, const char* sourceFile, int line, const char* text);

// DebugLog with the kind "Error".
void DebugLogError(const char* sourceFile, int line, const char* text);
