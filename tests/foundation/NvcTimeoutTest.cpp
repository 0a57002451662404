// NvcTimeoutTest.cpp - expiry on both sides of the tick count's wrap
#include "foundation/NvcTimeout.h"

#include <gtest/gtest.h>

#include "platform/Clock.h"

namespace {

// Moves the tick count and puts it back at the end. Steps are tens of
// seconds, so the real time a test takes does not matter.
class ShiftedTicks {
public:
    ~ShiftedTicks() { platform::ShiftTickCountForTest(-m_total); }
    void By(int64_t deltaMs) {
        platform::ShiftTickCountForTest(deltaMs);
        m_total += deltaMs;
    }
    void ToBeforeWrap(uint32_t msBeforeWrap) {
        By(static_cast<int64_t>(0xFFFFFFFFu - msBeforeWrap) - platform::GetTickCount());
    }

private:
    int64_t m_total = 0;
};

TEST(NvcTimeout, DeadlinePastTheWrapExpiresOnlyAfterIt) {
    ShiftedTicks ticks;
    ticks.ToBeforeWrap(100000);
    CNvcTimeout timeout;
    timeout.Set(200000);  // deadline about 100 s after the wrap
    EXPECT_EQ(0, timeout.IsExpired()) << "just set, counter not yet wrapped";
    ticks.By(90000);
    EXPECT_EQ(0, timeout.IsExpired()) << "10 s before the wrap";
    ticks.By(60000);
    EXPECT_EQ(0, timeout.IsExpired()) << "50 s after the wrap";
    ticks.By(100000);
    EXPECT_EQ(1, timeout.IsExpired()) << "50 s past the deadline";
    timeout.Restart();
    EXPECT_EQ(0, timeout.IsExpired()) << "pushed on after the wrap";
}

TEST(NvcTimeout, PlainDeadlineAndNoLimit) {
    ShiftedTicks ticks;
    CNvcTimeout timeout;
    timeout.Set(60000);
    EXPECT_EQ(0, timeout.IsExpired());
    ticks.By(120000);
    EXPECT_EQ(1, timeout.IsExpired());

    CNvcTimeout never;
    EXPECT_EQ(0, never.IsExpired()) << "unset means no limit";
    never.Set(CNvcTimeout::kNoLimit);
    for (int step = 0; step < 4; ++step) {
        ticks.By(0x50000000);
        EXPECT_EQ(0, never.IsExpired());
    }
}

}  // namespace
