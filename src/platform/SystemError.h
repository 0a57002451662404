// SystemError.h - the thread's last-error value and system error numbers
//
// Failures below the seam are reported as Windows error numbers (2 file not
// found, 3 path not found, 5 access denied, 80 file exists, 112 disk full, ...),
// because the code above compares against those. The mapping from errno lives
// in one table (posix/ErrorMap.cpp); socket errors are mapped by the socket
// layer itself.
//
// Diagnostics: none of these calls fails.
// See also:    posix/ErrorMap.cpp
#pragma once

#include <cstdint>

namespace platform {

constexpr uint32_t kErrorSuccess = 0;
constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorPathNotFound = 3;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorNotEnoughMemory = 8;
constexpr uint32_t kErrorInvalidData = 13;
constexpr uint32_t kErrorNoMoreFiles = 18;
constexpr uint32_t kErrorFileExists = 80;
constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorDiskFull = 112;
constexpr uint32_t kErrorInsufficientBuffer = 122;
constexpr uint32_t kErrorMoreData = 234;
constexpr uint32_t kErrorBadDatabase = 1009;  // the registry file cannot be parsed

// The Windows error number for an errno value; 31 (general failure) for values
// without a row of their own, 0 for 0.
uint32_t MapErrno(int errnoValue);

// MapErrno of the calling thread's present errno.
uint32_t LastErrnoAsError();

// The calling thread's last-error value, as the platform calls leave it.
uint32_t GetLastError();
void SetLastError(uint32_t code);

}  // namespace platform
