#include "ConnectionCounter.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/null_sink.h>

#include "LogSink.h"

namespace kvhosttest {
namespace {

using kvhost::ConnectionCounter;

TEST(ConnectionCounterTest, TheLinesOfTheDriverAreCounted) {
    ConnectionCounter counter;
    counter.Watch("Creating new connection object.");
    counter.Watch("Creating new connection object.");
    counter.Watch("Creating new connection object.");
    counter.Watch("Failed to create new connection for carrier: {1}-{mx}-{3}-{kv}-{secret}.");
    counter.Watch("Failed to create new connection for carrier: {2}-{mx}-{3}-{kv}-{secret}.");
    counter.Watch("Getting connection object from cache.");
    EXPECT_EQ(counter.Get().attempted, 3U);
    EXPECT_EQ(counter.Get().failed, 2U);
    EXPECT_EQ(counter.Get().reused, 1U);
}

TEST(ConnectionCounterTest, OtherLinesCountForNothing) {
    ConnectionCounter counter;
    counter.Watch("");
    counter.Watch("Subject: Creating new connection object.");
    counter.Watch("Creating new connection objects");
    EXPECT_EQ(counter.Get().attempted + counter.Get().failed + counter.Get().reused, 0U);
}

TEST(ConnectionCounterTest, ALogThatIsOffIsCountedAllTheSame) {
    ConnectionCounter counter;
    auto logger = std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::off);
    kvhost::LogSink sink(
        logger,
        std::make_shared<kvhost::Secrets>(kvhost::SecretMask(std::vector<kvhost::SecretMask::Account>{})),
        [&counter](const std::string& text) { counter.Watch(text); });
    sink.LogInfo("Creating new connection object.", 1, "K.cpp");
    EXPECT_EQ(counter.Get().attempted, 1U);
}

}  // namespace
}  // namespace kvhosttest
