// ClockTest.cpp - local time and the zone under a set TZ
#include "platform/Clock.h"

#include <gtest/gtest.h>

#include "support/RegistryTestEnv.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

using namespace platform;

namespace {

// Sets TZ for one test and restores it, with the library told both times.
class ZoneGuard {
public:
    explicit ZoneGuard(const char* zone) : setting_(std::in_place, "TZ", zone) { ::tzset(); }
    ~ZoneGuard() {
        setting_.reset();
        ::tzset();
    }

private:
    std::optional<testsupport::EnvSetting> setting_;
};

}  // namespace

TEST(Clock, LocalTimeFollowsTheZoneAndItsDaylightRule) {
    ZoneGuard zone("EST5EDT,M3.2.0,M11.1.0");
    struct Case {
        const char* name;
        int64_t unix;
        SystemTime want;
    } cases[] = {
        {"winter, standard time", 1700000000, {2023, 11, 2, 14, 17, 13, 20, 0}},
        {"summer, daylight time", 1689000000, {2023, 7, 1, 10, 10, 40, 0, 0}},
        {"epoch", 0, {1969, 12, 3, 31, 19, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SystemTime got{};
        LocalTimeOf(c.unix, got);
        auto fields = [](const SystemTime& t) {
            return std::vector<int>{t.wYear, t.wMonth, t.wDayOfWeek, t.wDay,
                                    t.wHour, t.wMinute, t.wSecond};
        };
        EXPECT_EQ(fields(c.want), fields(got));
    }
}

TEST(Clock, TimeZoneBiasesSumToMinusThePresentOffset) {
    struct Case {
        const char* zone;
        int32_t bias;
        int32_t daylightBias;
        bool hasDaylight;
    } cases[] = {
        {"<+0530>-5:30", -330, 0, false},
        {"EST5EDT,M3.2.0,M11.1.0", 300, -60, true},
        {"CET-1CEST,M3.5.0,M10.5.0/3", -60, -60, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.zone);
        ZoneGuard zone(c.zone);
        TimeZoneInfo info{};
        const int kind = GetTimeZoneInformation(info);
        EXPECT_EQ(c.bias, info.Bias);
        EXPECT_EQ(0, info.StandardBias);
        EXPECT_EQ(c.daylightBias, info.DaylightBias);
        if (!c.hasDaylight) {
            EXPECT_EQ(0, kind);
            continue;
        }
        ASSERT_TRUE(kind == 1 || kind == 2);
        std::time_t now = std::time(nullptr);
        std::tm tm{};
        ::localtime_r(&now, &tm);
        EXPECT_EQ(tm.tm_isdst > 0 ? 2 : 1, kind);
        EXPECT_EQ(-tm.tm_gmtoff / 60, info.Bias + (kind == 2 ? info.DaylightBias : info.StandardBias));
    }
}
