// RandomBytesTest.cpp - random bytes fill the whole buffer
#include "platform/RandomBytes.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(RandomBytes, FillsEveryByteAndDiffersBetweenCalls) {
    unsigned char first[4096];
    unsigned char second[4096];
    std::memset(first, 0, sizeof first);
    std::memset(second, 0, sizeof second);
    ASSERT_TRUE(platform::RandomBytes(first, sizeof first));
    ASSERT_TRUE(platform::RandomBytes(second, sizeof second));
    EXPECT_NE(std::memcmp(first, second, sizeof first), 0);
    // A buffer left partly untouched would keep a long run of zeros at its end.
    int zerosAtEnd = 0;
    for (int i = sizeof first - 1; i >= 0 && first[i] == 0; --i) ++zerosAtEnd;
    EXPECT_LT(zerosAtEnd, 4);
    EXPECT_TRUE(platform::RandomBytes(nullptr, 0));
}
