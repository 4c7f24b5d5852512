#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "KvEmailDriver.h"

// The date of the single shot in different time zones.

namespace {

using testing::EndsWith;

/// Sets the process's time zone and restores the one before.
class TimeZone {
public:
    explicit TimeZone(const std::string& name) {
        if (const char* const old = std::getenv("TZ")) {
            m_old = old;
        }
        Use(name);
    }
    ~TimeZone() { Use(m_old); }

    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void Use(const std::optional<std::string>& name) {
        if (name) {
            setenv("TZ", name->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    std::optional<std::string> m_old;
};

std::string DateNow() {
    KvEmailDriver engine(nullptr, "", "", "");
    return engine.GetDateString();
}

/// The day of the year `offset` days from today as a rule of TZ writes it: 1 to 365, no 29th of February.
std::string DayOfYear(int offset) {
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    return "J" + std::to_string((utc.tm_yday + offset + 365) % 365 + 1);
}

std::string SummerTime(int firstDay, int lastDay) {
    return "STD-1DST," + DayOfYear(firstDay) + "," + DayOfYear(lastDay);
}

// The C library answers localtime and gmtime from one buffer for the whole process, which the host may be reading.
TEST(KvEmailDriverDateTest, CalendarTimeThatTheProcessHoldsIsLeftAlone) {
    const TimeZone zone("EET-2");
    const time_t longAgo = 86400L * 365 * 2;
    const tm* const held = gmtime(&longAgo);
    ASSERT_NE(held, nullptr);
    DateNow();
    EXPECT_EQ(held->tm_year, 72);
    EXPECT_EQ(held->tm_mon, 0);
    EXPECT_EQ(held->tm_mday, 1);
}

TEST(KvEmailDriverDateTest, AZoneTwoHoursEastOfUtcEndsInPlus0200) {
    const TimeZone zone("EET-2");
    EXPECT_THAT(DateNow(), EndsWith(" +0200"));
}

TEST(KvEmailDriverDateTest, UtcIsWrittenWithAMinusSign) {
    const TimeZone zone("UTC0");
    EXPECT_THAT(DateNow(), EndsWith(" -0000"));
}

TEST(KvEmailDriverDateTest, AZoneWestOfUtcIsNegative) {
    const TimeZone zone("EST5");
    EXPECT_THAT(DateNow(), EndsWith(" -0500"));
}

TEST(KvEmailDriverDateTest, HoursOfTwoDigitsAreWrittenInFull) {
    const TimeZone zone("NZT-12");
    EXPECT_THAT(DateNow(), EndsWith(" +1200"));
}

TEST(KvEmailDriverDateTest, AHalfHourIsCutOffTowardsZero) {
    {
        const TimeZone zone("IST-5:30");
        EXPECT_THAT(DateNow(), EndsWith(" +0500"));
    }
    {
        const TimeZone zone("NST3:30");
        EXPECT_THAT(DateNow(), EndsWith(" -0300"));
    }
}

TEST(KvEmailDriverDateTest, AZoneHalfAnHourFromUtcIsWrittenAsUtc) {
    const TimeZone zone("HHT-0:30");
    EXPECT_THAT(DateNow(), EndsWith(" -0000"));
}

TEST(KvEmailDriverDateTest, SummerTimeInForceAddsOneHour) {
    const TimeZone zone(SummerTime(-30, 30));
    EXPECT_THAT(DateNow(), EndsWith(" +0200"));
}

TEST(KvEmailDriverDateTest, SummerTimeRulesOutOfForceAddNothing) {
    const TimeZone zone(SummerTime(100, 160));
    EXPECT_THAT(DateNow(), EndsWith(" +0100"));
}

TEST(KvEmailDriverDateTest, SummerTimeWestOfUtcIsOneHourLessFarWest) {
    const TimeZone zone("EST5EDT," + DayOfYear(-30) + "," + DayOfYear(30));
    EXPECT_THAT(DateNow(), EndsWith(" -0400"));
}

/// The local time as the C library formats it, with English names.
std::string Formatted(time_t now) {
    tm local{};
    localtime_r(&now, &local);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0300", &local);
    return text;
}

TEST(KvEmailDriverDateTest, TheFieldsAreThoseOfTheLocalTime) {
    const TimeZone zone("EAT-3");
    std::string date;
    time_t before = 0;
    do {  // again when the second changed meanwhile
        before = time(nullptr);
        date = DateNow();
    } while (time(nullptr) != before);
    EXPECT_EQ(date, Formatted(before));
}

}  // namespace
