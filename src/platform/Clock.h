// Clock.h - tick count, sleeping, local time and the time zone
//
// The tick count is 32-bit milliseconds from a monotonic clock and wraps after
// about 49.7 days, exactly as the code above it expects; tests shift it to reach
// the wrap without waiting. Local time and the zone come from the C library's
// local time, so TZ is honoured.
//
// Diagnostics: none of these calls fails.
// See also:    posix/Clock.cpp
#pragma once

#include <cstdint>

namespace platform {

// Milliseconds since an arbitrary start, modulo 2^32, plus the test shift.
uint32_t GetTickCount();

// Adds `deltaMs` to every tick count read from now on (tests only).
void ShiftTickCountForTest(int64_t deltaMs);

// Sleeps at least `ms` milliseconds; 0 yields the processor.
void Sleep(uint32_t ms);

// Broken-down local time, field for field the Windows SYSTEMTIME.
struct SystemTime {
    uint16_t wYear;
    uint16_t wMonth;      // 1..12
    uint16_t wDayOfWeek;  // 0 = Sunday
    uint16_t wDay;        // 1..31
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};

// The present local time.
void GetLocalTime(SystemTime& out);

// The local time of a moment given in seconds since 1970 (time_t).
void LocalTimeOf(int64_t unixSeconds, SystemTime& out);

// Seconds since 1970, UTC.
int64_t CurrentUnixTime();

// The zone as Windows describes it: Bias is minus the standard UTC offset in
// minutes, StandardBias 0, DaylightBias minus the extra offset of daylight time.
struct TimeZoneInfo {
    int32_t Bias;
    int32_t StandardBias;
    int32_t DaylightBias;
};

// Fills `out`; returns 2 while daylight time is in force, 1 in standard time,
// 0 for a zone without daylight time.
int GetTimeZoneInformation(TimeZoneInfo& out);

}  // namespace platform
