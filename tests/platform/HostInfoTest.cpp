// HostInfoTest.cpp - computer and user names
#include "platform/HostInfo.h"

#include <gtest/gtest.h>

TEST(HostInfo, ComputerNameStopsAtTheFirstDotAndUserIsKnown) {
    const std::string computer = platform::ComputerName();
    EXPECT_FALSE(computer.empty());
    EXPECT_EQ(std::string::npos, computer.find('.'));
    EXPECT_FALSE(platform::UserName().empty());
}
