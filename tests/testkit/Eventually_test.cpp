#include "Eventually.h"

#include <gtest/gtest.h>

using kvtest::Eventually;
using namespace std::chrono_literals;

TEST(EventuallyTest, APredicateThatHoldsIsAskedOnce) {
    int asked = 0;
    EXPECT_TRUE(Eventually([&] { return ++asked > 0; }));
    EXPECT_EQ(asked, 1);
}

TEST(EventuallyTest, ThePredicateIsAskedUntilItHolds) {
    int asked = 0;
    EXPECT_TRUE(Eventually([&] { return ++asked == 5; }));
    EXPECT_EQ(asked, 5);
}

TEST(EventuallyTest, ItGivesUpWhenTheBoundHasPassed) {
    EXPECT_FALSE(Eventually([] { return false; }, 5ms));
}
