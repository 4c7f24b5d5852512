#include "Duration.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

using namespace std::chrono_literals;

TEST(DurationTest, ANumberAndAUnitAreADuration) {
    EXPECT_EQ(ParseDuration("250ms"), Milliseconds(250));
    EXPECT_EQ(ParseDuration("30s"), Milliseconds(30000));
    EXPECT_EQ(ParseDuration("5m"), Milliseconds(300000));
    EXPECT_EQ(ParseDuration("2h"), Milliseconds(7200000));
    EXPECT_EQ(ParseDuration("7d"), Milliseconds(604800000));
    EXPECT_EQ(ParseDuration("0s"), Milliseconds(0));
}

TEST(DurationTest, AnythingElseIsNone) {
    for (const char* text :
         {"", "5", "s", "5 s", "-5s", "-0s", "+5s", "5S", "1.5s", "5s ", " 5s", "5sec", "0x5s"}) {
        EXPECT_EQ(ParseDuration(text), std::nullopt) << text;
    }
}

TEST(DurationTest, TheLongestIsTenYears) {
    EXPECT_EQ(ParseDuration("3650d"), Milliseconds(3650 * 86400000LL));
    EXPECT_EQ(ParseDuration("3651d"), std::nullopt);
    EXPECT_EQ(ParseDuration("9223372036854775807h"), std::nullopt);
    EXPECT_EQ(ParseDuration("99999999999999999999ms"), std::nullopt);
}

TEST(DurationTest, ForPeopleTheTwoLargestUnitsCount) {
    EXPECT_EQ(DurationText(0ms), "0 ms");
    EXPECT_EQ(DurationText(250ms), "250 ms");
    EXPECT_EQ(DurationText(1500ms), "1.5 s");
    EXPECT_EQ(DurationText(45s), "45 s");
    EXPECT_EQ(DurationText(45999ms), "45 s");
    EXPECT_EQ(DurationText(310s), "5 min 10 s");
    EXPECT_EQ(DurationText(1h), "1 h");
    EXPECT_EQ(DurationText(125min + 9s), "2 h 5 min");
    EXPECT_EQ(DurationText(76h), "3 d 4 h");
    EXPECT_EQ(DurationText(-90s), "-1 min 30 s");
}

}  // namespace
}  // namespace kvhost
