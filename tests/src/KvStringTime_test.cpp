#include "KvString.h"

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>

namespace {

/// 5 March 2024, 14:07:09 local time.
long AfternoonInMarch() {
    tm parts{};
    parts.tm_year = 124;
    parts.tm_mon = 2;
    parts.tm_mday = 5;
    parts.tm_hour = 14;
    parts.tm_min = 7;
    parts.tm_sec = 9;
    parts.tm_isdst = -1;
    return static_cast<long>(mktime(&parts));
}

TEST(KvStringTest, SqlTimePutsTheMonthFirst) {
    EXPECT_EQ(KvstringSQLTime(AfternoonInMarch()), "03/05/2024 14:07:09");
}

TEST(KvStringTest, SqlFilterTimeOfZeroMatchesAnything) {
    EXPECT_EQ(KvstringSQLFilterTime(0), "%");
    EXPECT_EQ(KvstringSQLFilterTime(AfternoonInMarch()), "03/05/2024 14:07:09");
}

TEST(KvStringTest, SqlCTimeHasNoNewline) {
    EXPECT_EQ(KvstringSQLCTime(AfternoonInMarch()), "Tue Mar  5 14:07:09 2024");
}

TEST(KvStringTest, GetDateFormatsTheTimeGiven) {
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), "%Y-%m-%d %H:%M"), "2024-03-05 14:07");
}

TEST(KvStringTest, GetDateWithoutATimeFormatsTheCurrentOne) {
    const long before = static_cast<long>(time(nullptr));
    const long formatted = std::stol(KvstringGetDate("%s"));
    EXPECT_GE(formatted, before);
    EXPECT_LE(formatted, static_cast<long>(time(nullptr)));
}

TEST(KvStringTest, GetDateOfMoreThan79CharactersIsEmpty) {
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), std::string(79, 'x')), std::string(79, 'x'));
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), std::string(80, 'x')), "");
}

TEST(KvStringTest, ATimeWithoutADateHasNoText) {
    if (sizeof(long) < 8) {
        GTEST_SKIP() << "every 32-bit time has a date";
    }
    EXPECT_EQ(KvstringSQLTime(LONG_MAX), "");
    EXPECT_EQ(KvstringSQLCTime(LONG_MAX), "");
    EXPECT_EQ(KvstringGetDate(LONG_MAX, "%Y"), "");
}

TEST(KvStringTest, SqlGetTimeIsAlwaysZero) {
    EXPECT_EQ(KvstringSQLGetTime("2024-03-05 14:07:09"), 0);
    EXPECT_EQ(KvstringSQLGetTime("no time"), 0);
}

}  // namespace
