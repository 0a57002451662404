// CodePage.h - the system code pages and narrow/wide text conversion
//
// The system code pages are the registry values ACP (default 1252) and OEMCP
// (default 437) under HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control\Nls\CodePage,
// read once per process. Conversions go through the C library's iconv with its
// Windows code page converters ("CP1252", "CP932", ...).
//
// Diagnostics: conversions return 0 on failure, like their Windows models, and
//              set the last error (87 bad arguments or unknown code page, 122
//              output too small). A broken input sequence becomes U+FFFD from
//              UTF-8 and "?" from other code pages.
// See also:    posix/CodePage.cpp, Registry.h
#pragma once

#include <cstdint>
#include <string>

namespace platform {

constexpr uint32_t kCpAcp = 0;       // the system's ANSI code page
constexpr uint32_t kCpOemCp = 1;     // the system's OEM code page
constexpr uint32_t kCpUtf8 = 65001;

uint32_t GetACP();
uint32_t GetOEMCP();

// Forgets the code pages read, so that the next GetACP/GetOEMCP reads the
// registry again (tests only; the service reads them once).
void ResetCodePageCacheForTest();

// Wide (UTF-16) to multibyte in `codePage`. `wideLen` of -1 means up to and
// including the terminating zero, which is then converted too. With
// `outSize` 0 only the needed size in bytes is returned. Returns the number of
// bytes written (or needed), 0 on failure. Characters without a mapping become "?".
int WideCharToMultiByte(uint32_t codePage, const char16_t* wide, int wideLen, char* out,
                        int outSize);

// Multibyte in `codePage` to wide (UTF-16). `len` of -1 means up to and
// including the terminating zero. With `outSize` 0 only the needed size in
// units is returned. Returns units written (or needed), 0 on failure.
int MultiByteToWideChar(uint32_t codePage, const char* text, int len, char16_t* out,
                        int outSize);

}  // namespace platform
