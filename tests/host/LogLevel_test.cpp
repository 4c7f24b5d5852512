#include "LogLevel.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

TEST(LogLevelTest, EveryNameHasItsLevel) {
    EXPECT_EQ(ParseLogLevel("trace"), spdlog::level::trace);
    EXPECT_EQ(ParseLogLevel("debug"), spdlog::level::debug);
    EXPECT_EQ(ParseLogLevel("info"), spdlog::level::info);
    EXPECT_EQ(ParseLogLevel("warning"), spdlog::level::warn);
    EXPECT_EQ(ParseLogLevel("error"), spdlog::level::err);
    EXPECT_EQ(ParseLogLevel("off"), spdlog::level::off);
}

TEST(LogLevelTest, AnyOtherTextIsNoLevel) {
    EXPECT_EQ(ParseLogLevel(""), std::nullopt);
    EXPECT_EQ(ParseLogLevel("TRACE"), std::nullopt);
    EXPECT_EQ(ParseLogLevel("critical"), std::nullopt);
}

}  // namespace
}  // namespace kvhost
