#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>

#include "EngineKit.h"

using namespace kvengine;

namespace {

struct Lines {
    const char* name;
    std::string body, sent;

    friend void PrintTo(const Lines& each, std::ostream* out) { *out << each.name; }
};

class EngineSendBody : public testing::TestWithParam<Lines> {};

TEST_P(EngineSendBody, WritesEachLineWithItsLineEnd) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.greet(server);
    engine.m_job.strBody = GetParam().body;
    engine.SendBody(engine.m_job);
    engine.SmtpWrite("|end\r\n");
    const std::string expected = GetParam().sent + "|end\r\n";
    server.waitUntil([&] { return server.connection().clientBytes().size() >= expected.size(); });
    EXPECT_EQ(server.connection().clientBytes(), expected);
    EXPECT_EQ(engine.m_job.strBody, GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineSendBody,
    testing::Values(Lines{"OneLine", "a", "a\r\n"}, Lines{"LineFeed", "a\nb", "a\r\nb\r\n"},
                    Lines{"LineEnd", "a\r\nb", "a\r\nb\r\n"}, Lines{"EmptyLine", "a\n\nb", "a\r\n\r\nb\r\n"},
                    Lines{"EmptyLineFirst", "\nb", "\r\nb\r\n"}, Lines{"Dot", "a\n.\nb", "a\r\n..\r\nb\r\n"},
                    Lines{"DotFirst", ".a\n..b", "..a\r\n...b\r\n"}, Lines{"DotInside", "a.b", "a.b\r\n"},
                    Lines{"LoneCarriageReturn", "a\rb", "a\rb\r\n"},
                    // A line end that the removal of another one makes is removed too.
                    Lines{"DoubledCarriageReturn", "a\r\r\nb", "a\r\nb\r\n"},
                    Lines{"PercentSigns", "100% %s", "100% %s\r\n"},
                    Lines{"LongLine", std::string(5000, 'x'), std::string(5000, 'x') + "\r\n"}),
    [](const auto& each) { return each.param.name; });

/// A time zone for the length of a test.
class Zone {
public:
    explicit Zone(const char* name) {
        if (const char* old = getenv("TZ")) {
            m_old = old;
        }
        set(name);
    }
    ~Zone() { set(m_old ? m_old->c_str() : nullptr); }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;

private:
    static void set(const char* name) {
        if (name != nullptr) {
            setenv("TZ", name, 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    std::optional<std::string> m_old;
};

std::string DateWith(const char* zone) {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char text[64];
    EXPECT_GT(strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S ", &local), 0U);
    return text + std::string(zone);
}

struct ZoneCase {
    const char* name;
    const char* zone;
    const char* offset;

    friend void PrintTo(const ZoneCase& each, std::ostream* out) { *out << each.name; }
};

class EngineDate : public testing::TestWithParam<ZoneCase> {};

TEST_P(EngineDate, IsTheLocalTimeWithWholeHours) {
    const Zone zone(GetParam().zone);
    Engine engine;
    const std::string before = DateWith(GetParam().offset);
    const std::string date = engine.GetDateString();
    const std::string after = DateWith(GetParam().offset);
    EXPECT_TRUE(date == before || date == after) << date << " is neither " << before << " nor " << after;
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineDate,
    testing::Values(ZoneCase{"Utc", "UTC0", "-0000"}, ZoneCase{"TwoEast", "EET-2", "+0200"},
                    ZoneCase{"FiveWest", "EST5", "-0500"}, ZoneCase{"TwelveEast", "NZST-12", "+1200"},
                    ZoneCase{"ElevenWest", "SST11", "-1100"}, ZoneCase{"HalfHourEast", "IST-5:30", "+0500"},
                    ZoneCase{"HalfHourWest", "NST3:30", "-0300"},
                    ZoneCase{"LessThanAnHourEast", "EAST-0:45", "-0000"},
                    ZoneCase{"LessThanAnHourWest", "WEST0:45", "-0000"}),
    [](const auto& each) { return each.param.name; });

class EngineSummerTime : public testing::TestWithParam<const char*> {};

TEST_P(EngineSummerTime, AddsAnHourWhileItLasts) {
    const Zone zone(GetParam());
    Engine engine;
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char offset[8];
    EXPECT_GT(strftime(offset, sizeof offset, "%z", &local), 0U);
    EXPECT_EQ(engine.GetDateString().substr(26), offset);
}

// One of the two has summer time on every day of the year.
INSTANTIATE_TEST_SUITE_P(All, EngineSummerTime,
                         testing::Values("CET-1CEST,M3.5.0,M10.5.0/3", "AEST-10AEDT,M10.1.0,M4.1.0/3",
                                         "EST5EDT,M3.2.0,M11.1.0"));

class EngineValidation : public testing::TestWithParam<int> {};

TEST_P(EngineValidation, AcceptsEveryRecord) {
    Engine engine;
    KvEmailDriver::Job job;
    job.strHost = (GetParam() & 1) != 0 ? "mx" : "";
    job.nPort = (GetParam() & 2) != 0 ? 25 : 0;
    job.strFrom = (GetParam() & 4) != 0 ? "a@b" : "";
    job.strBody = (GetParam() & 8) != 0 ? "text" : "";
    bool result = false;
    EXPECT_EQ(OutcomeOf([&] { result = engine.ValidateJob(job); }), Fine());
    EXPECT_TRUE(result);
}

INSTANTIATE_TEST_SUITE_P(All, EngineValidation, testing::Range(0, 16));

}  // namespace
