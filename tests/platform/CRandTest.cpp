// CRandTest.cpp - the Windows rand sequence, per thread
#include "platform/CRand.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(CRand, DrawsTheWindowsSequenceFromSeedOnePerThread) {
    const std::vector<int> fromSeedOne = {41, 18467, 6334, 26500, 19169};
    std::vector<int> other;
    std::thread([&] {  // a fresh thread starts at seed 1 whatever this one did
        for (int i = 0; i < 5; ++i) other.push_back(platform::rand());
    }).join();
    EXPECT_EQ(fromSeedOne, other);

    platform::srand(1);
    std::vector<int> again;
    for (int i = 0; i < 5; ++i) again.push_back(platform::rand());
    EXPECT_EQ(fromSeedOne, again);
}
