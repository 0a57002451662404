// Clock.cpp - tick count, sleeping, local time and the time zone
//
// See Clock.h
#include "platform/Clock.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace platform {
namespace {

std::atomic<int64_t> g_tickShift{0};

void Fill(const std::tm& tm, uint16_t milliseconds, SystemTime& out) {
    out.wYear = static_cast<uint16_t>(tm.tm_year + 1900);
    out.wMonth = static_cast<uint16_t>(tm.tm_mon + 1);
    out.wDayOfWeek = static_cast<uint16_t>(tm.tm_wday);
    out.wDay = static_cast<uint16_t>(tm.tm_mday);
    out.wHour = static_cast<uint16_t>(tm.tm_hour);
    out.wMinute = static_cast<uint16_t>(tm.tm_min);
    out.wSecond = static_cast<uint16_t>(tm.tm_sec);
    out.wMilliseconds = milliseconds;
}

// Without tzset: callers take it once, since each call reads the zone file
// again (a stat at least), which a walk over a year must not pay for each step.
std::tm LocalTmNoRefresh(std::time_t when) {
    std::tm tm{};
    ::localtime_r(&when, &tm);
    return tm;
}

std::tm LocalTm(std::time_t when) {
    ::tzset();  // localtime_r alone need not notice a changed TZ
    return LocalTmNoRefresh(when);
}

// The zone's other offset (standard when `wantDst` is false) found by walking
// the current year in half-day steps; false when the year has none.
bool FindOffset(std::time_t now, bool wantDst, long& offsetSeconds) {
    constexpr std::time_t kStep = 12 * 3600;
    for (std::time_t t = now - 183 * 24 * 3600; t < now + 183 * 24 * 3600; t += kStep) {
        std::tm tm = LocalTmNoRefresh(t);
        if ((tm.tm_isdst > 0) == wantDst) {
            offsetSeconds = tm.tm_gmtoff;
            return true;
        }
    }
    return false;
}

}  // namespace

uint32_t GetTickCount() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    const int64_t ms = std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
    return static_cast<uint32_t>(static_cast<uint64_t>(ms + g_tickShift.load()));
}

void ShiftTickCountForTest(int64_t deltaMs) { g_tickShift += deltaMs; }

void Sleep(uint32_t ms) {
    if (ms == 0) {
        std::this_thread::yield();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void GetLocalTime(SystemTime& out) {
    const auto now = std::chrono::system_clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    Fill(LocalTm(static_cast<std::time_t>(ms.count() / 1000)), static_cast<uint16_t>(ms.count() % 1000),
         out);
}

void LocalTimeOf(int64_t unixSeconds, SystemTime& out) {
    Fill(LocalTm(static_cast<std::time_t>(unixSeconds)), 0, out);
}

int64_t CurrentUnixTime() { return static_cast<int64_t>(std::time(nullptr)); }

int GetTimeZoneInformation(TimeZoneInfo& out) {
    const std::time_t now = std::time(nullptr);
    const std::tm present = LocalTm(now);
    const bool inDst = present.tm_isdst > 0;
    long other = 0;
    const bool hasOther = FindOffset(now, !inDst, other);
    // Taking the present offset as it is keeps Bias plus the returned kind's
    // bias equal to minus the present UTC offset.
    const long standard = inDst ? (hasOther ? other : present.tm_gmtoff - 3600) : present.tm_gmtoff;
    const long daylight = inDst ? present.tm_gmtoff : other;
    out.Bias = static_cast<int32_t>(-standard / 60);
    out.StandardBias = 0;
    out.DaylightBias = inDst || hasOther ? static_cast<int32_t>(-(daylight - standard) / 60) : 0;
    if (inDst) return 2;
    return hasOther ? 1 : 0;
}

}  // namespace platform
