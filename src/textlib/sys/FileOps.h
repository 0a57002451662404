// FileOps.h - the engine's file functions: names made legal, files opened with retries
//
// Every function but getAttributes first makes the name legal with
// cleanFilename (characters replaced, never refused). Opening retries a
// sharing violation (32) three more times, 50 ms apart; a file that will not
// open because it is read-only loses the read-only bit and is tried once more.
// A name that fits the system's ANSI code page in under 260 characters takes
// the "narrow" route, any other the "wide" route; on POSIX both open the same
// UTF-8 bytes and differ only in what they log (see README.md).
//
// Input:       paths in UTF-8; null or empty paths fail. A LogBase may be null.
// Diagnostics: bool or null results; `errorCode` gets the last system error,
//              or with a log the class 1 access denied, 2 path not found,
//              3 anything else (kept: callers with a log test the class).
// See also:    BrelkinHandle.h, ../../platform/FileIo.h
#pragma once

#include <cstdint>

namespace brelkin {

class BrelkinHandle;
class LogBase;
class StringBuffer;
class XString;

// Replaces the characters Windows forbids in a name; a first colon among the
// first 7 characters (a drive letter) stays.
void cleanFilename(StringBuffer& name, LogBase* log);

// Which route an open takes, by the name's length in characters.
bool takesNarrowRoute(int numChars, bool ansiOk);
// `fullPath` with the long-path prefix: kept if it has one, \\?\UNC\ for a
// network path, \\?\ in front of anything else.
void longPathFormOf(const char* fullPath, StringBuffer& out);
void longPathForm(const char* path, StringBuffer& out);

// Null when the file could not be opened; the caller owns the result.
BrelkinHandle* openForRead(const char* path, uint32_t* errorCode, LogBase* log);
BrelkinHandle* createForWrite(const char* path, uint32_t* errorCode, LogBase* log);
bool openForReadInto(BrelkinHandle& handle, const char* path, uint32_t* errorCode, LogBase* log);
bool createForWriteInto(BrelkinHandle& handle, const char* path, uint32_t* errorCode,
                        LogBase* log);

// Creates or truncates the file and writes `length` bytes (none when `bytes`
// is null or `length` 0).
bool writeWholeFile(const char* path, const void* bytes, uint32_t length, LogBase* log);

// The same for a name held in an XString (its UTF-8 form is opened).
BrelkinHandle* openForRead(XString& path, uint32_t* errorCode, LogBase* log);
BrelkinHandle* createForWrite(XString& path, uint32_t* errorCode, LogBase* log);
bool writeWholeFile(XString& path, const void* bytes, uint32_t length, LogBase* log);

bool getAttributes(const char* path, uint32_t* attributes, uint32_t* errorCode, LogBase* log);
bool setAttributes(const char* path, uint32_t attributes);
// The absolute path; the path unchanged when that fails.
void fullPathName(const char* path, StringBuffer& out);
void currentDirectory(StringBuffer& out);

}  // namespace brelkin
