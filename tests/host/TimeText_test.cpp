#include "TimeText.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

TEST(TimeTextTest, AMomentIsWrittenInUtcWithMilliseconds) {
    EXPECT_EQ(TimeText(FromNumber(0)), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(TimeText(FromNumber(951782400250)), "2000-02-29T00:00:00.250Z");
    EXPECT_EQ(TimeText(FromNumber(4102444799999)), "2099-12-31T23:59:59.999Z");
}

TEST(TimeTextTest, WhatIsWrittenIsReadBack) {
    for (const std::int64_t number : {0LL, 951782400250LL, 1772357400001LL, 4102444799999LL}) {
        EXPECT_EQ(ParseTime(TimeText(FromNumber(number))), FromNumber(number));
    }
}

TEST(TimeTextTest, AnOffsetIsTakenOff) {
    EXPECT_EQ(ParseTime("2026-03-01T11:30:00+02:00"), ParseTime("2026-03-01T09:30:00Z"));
    EXPECT_EQ(ParseTime("2026-03-01T04:00:00-05:30"), ParseTime("2026-03-01T09:30:00Z"));
}

TEST(TimeTextTest, DecimalsOfASecondAreOneToThree) {
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01.5Z"), FromNumber(1500));
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01.05Z"), FromNumber(1050));
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01.005Z"), FromNumber(1005));
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01.0005Z"), std::nullopt);
    EXPECT_EQ(ParseTime("1970-01-01T00:00:01.Z"), std::nullopt);
}

TEST(TimeTextTest, AnythingElseIsNoMoment) {
    for (const char* text :
         {"", "now", "2026-03-01", "2026-03-01T09:30:00", "2026-03-01T09:30Z", "2026-02-29T00:00:00Z",
          "2026-13-01T00:00:00Z", "2026-03-01T24:00:00Z", "2026-03-01T09:60:00Z", "2026-03-01T09:30:00Zjunk",
          "2026-03-01T09:30:00+2:00", "1969-12-31T23:59:59Z", "20260301T093000Z"}) {
        EXPECT_EQ(ParseTime(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace kvhost
