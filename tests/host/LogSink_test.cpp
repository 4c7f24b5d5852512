#include "LogSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/ostream_sink.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Problem.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::HasSubstr;
using Accounts = std::vector<SecretMask::Account>;

/// A sink of which only level and text are looked at.
class LogSinkTest : public testing::Test {
protected:
    LogSinkTest() : m_pLogger(MakeLogger()), m_sink(m_pLogger, SecretMask(Accounts{{"kv", "hunter2"}})) {}

    std::shared_ptr<spdlog::logger> MakeLogger() {
        auto logger = std::make_shared<spdlog::logger>(
            "test", std::make_shared<spdlog::sinks::ostream_sink_mt>(m_stream));
        logger->set_pattern("%l %v");
        logger->set_level(spdlog::level::trace);
        return logger;
    }

    std::ostringstream m_stream;
    std::shared_ptr<spdlog::logger> m_pLogger;
    LogSink m_sink;
};

TEST_F(LogSinkTest, EverySeverityHasItsLevelAndNamesTheCallSite) {
    KvLogInterface& log = m_sink;
    log.LogTrace("one", 1, "A.cpp");
    log.LogDebug("two", 2, "B.cpp");
    log.LogInfo("three", 3, "C.cpp");
    log.LogWarning("four", 4, "D.cpp");
    log.LogError("five", 5, "E.cpp");
    EXPECT_EQ(m_stream.str(),
              "trace A.cpp:1 one\ndebug B.cpp:2 two\ninfo C.cpp:3 three\nwarning D.cpp:4 four\nerror E.cpp:5 "
              "five\n");
}

TEST_F(LogSinkTest, LinesBelowTheLevelAreLeftOut) {
    m_pLogger->set_level(spdlog::level::warn);
    m_sink.LogInfo("quiet", 1, "A.cpp");
    m_sink.LogWarning("loud", 2, "A.cpp");
    EXPECT_EQ(m_stream.str(), "warning A.cpp:2 loud\n");
}

TEST_F(LogSinkTest, PasswordsAreMasked) {
    m_sink.LogError("Failed to create new connection for carrier: {1}-{mx}-{3}-{kv}-{hunter2}.", 9, "K.cpp");
    EXPECT_EQ(m_stream.str(),
              "error K.cpp:9 Failed to create new connection for carrier: {1}-{mx}-{3}-{kv}-{[masked]}.\n");
}

TEST_F(LogSinkTest, AuthenticationIsMasked) {
    m_sink.LogTrace("<= AUTH LOGIN<CR><LF>", 1, "S");
    m_sink.LogTrace("=> 334 VXNlcm5hbWU6<CR><LF>", 1, "S");
    m_sink.LogTrace("<= a3Y=<CR><LF>", 1, "S");
    EXPECT_THAT(m_stream.str(), testing::EndsWith("trace S:1 <= [masked]\n"));
}

TEST_F(LogSinkTest, ALineFeedInATextDoesNotBeginALineOfTheLog) {
    m_sink.LogError("Error: no\r\n2025-01-01 forged", 7, "K.cpp");
    EXPECT_EQ(m_stream.str(), "error K.cpp:7 Error: no<CR><LF>2025-01-01 forged\n");
}

TEST_F(LogSinkTest, BracesInATextAreNoFormat) {
    m_sink.LogInfo("{} {0} {nonsense", 1, "K.cpp");
    EXPECT_EQ(m_stream.str(), "info K.cpp:1 {} {0} {nonsense\n");
}

TEST_F(LogSinkTest, ACallSiteWithoutAFileIsShownAsUnknown) {
    m_sink.LogInfo("text", 3, nullptr);
    EXPECT_EQ(m_stream.str(), "info ?:3 text\n");
}

TEST_F(LogSinkTest, TheHostsOwnLinesNameTheHost) {
    m_sink.Tell("cleaning up");
    m_sink.Warn("odd");
    EXPECT_EQ(m_stream.str(), "info kvhost cleaning up\nwarning kvhost odd\n");
}

TEST_F(LogSinkTest, LinesOfManyThreadsStayWhole) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int line = 0; line < 100; ++line) {
                m_sink.LogInfo("text", 1, "K.cpp");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string expected;
    for (int line = 0; line < 400; ++line) {
        expected += "info K.cpp:1 text\n";
    }
    EXPECT_EQ(m_stream.str(), expected);
}

class ThrowingSink : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg&) override { throw 42; }
    void flush_() override {}
};

TEST_F(LogSinkTest, ALogThatFailsDoesNotReachTheDriver) {
    LogSink sink(std::make_shared<spdlog::logger>("test", std::make_shared<ThrowingSink>()),
                 SecretMask(Accounts{}));
    EXPECT_NO_THROW(sink.LogError("text", 1, "K.cpp"));
}

TEST(OpenLogTest, TheFileIsAppendedTo) {
    const kvtest::TempDir folder;
    const std::string path = folder.write("kv.log", "before\n");
    OpenLog(spdlog::level::info, path, false)->info("after");
    std::ifstream stream(path);
    std::stringstream content;
    content << stream.rdbuf();
    EXPECT_THAT(content.str(), testing::MatchesRegex("before\n[^\n]* info \\[[0-9]+\\] after\n"));
}

TEST(OpenLogTest, AFileThatCannotBeOpenedIsBadInput) {
    EXPECT_THROW(OpenLog(spdlog::level::info, "/proc/no/such/file", false), BadInput);
}

TEST_F(LogSinkTest, TheWatcherSeesEveryLineWhateverTheLevel) {
    std::vector<std::string> seen;
    m_pLogger->set_level(spdlog::level::off);
    LogSink sink(m_pLogger, std::make_shared<Secrets>(SecretMask(Accounts{{"kv", "hunter2"}})),
                 [&seen](const std::string& text) { seen.push_back(text); });
    sink.LogTrace("fine", 1, "K.cpp");
    sink.LogError("loud hunter2", 2, "K.cpp");
    EXPECT_THAT(seen, testing::ElementsAre("fine", "loud hunter2"));
    EXPECT_EQ(m_stream.str(), "");
}

TEST_F(LogSinkTest, AWatcherThatFailsDoesNotReachTheDriver) {
    LogSink sink(m_pLogger, std::make_shared<Secrets>(SecretMask(Accounts{})),
                 [](const std::string&) { throw std::runtime_error("no"); });
    EXPECT_NO_THROW(sink.LogError("text", 1, "K.cpp"));
}

TEST_F(LogSinkTest, SecretsThatAreLearnedLaterAreMaskedToo) {
    const auto secrets = std::make_shared<Secrets>(SecretMask(Accounts{{"kv", "hunter2"}}));
    LogSink sink(m_pLogger, secrets, {});
    secrets->Learn({{"kv", "hunter3"}});
    sink.LogError("hunter2 hunter3", 1, "K.cpp");
    EXPECT_EQ(m_stream.str(), "error K.cpp:1 [masked] [masked]\n");
}

TEST(SecretsTest, ThoseOfAConfigurationAreItsPasswordsAndItsToken) {
    HostConfig config;
    config.carriers["a"].password = "first";
    config.carriers["b"].password = "second";
    config.http.token = "third";
    const Secrets secrets{SecretMask(SecretsOf(config))};
    EXPECT_EQ(secrets.Mask("first second third fourth"), "[masked] [masked] [masked] fourth");
}

std::string ContentOf(const std::string& path) {
    std::ifstream stream(path);
    std::stringstream content;
    content << stream.rdbuf();
    return content.str();
}

TEST(OpenLogTest, AFullFileIsBegunAnewAndSoManyAreKept) {
    const kvtest::TempDir folder;
    const auto log = OpenLog(spdlog::level::info, {folder.file("kv.log"), 200, 3});
    for (int line = 0; line < 20; ++line) {
        log->warn("a line that takes its place {}", line);
    }
    EXPECT_THAT(ContentOf(folder.file("kv.log")), testing::HasSubstr("place 19"));
    EXPECT_LE(ContentOf(folder.file("kv.log")).size(), 200U);
    EXPECT_THAT(ContentOf(folder.file("kv.1.log")), testing::HasSubstr("a line"));
    EXPECT_THAT(ContentOf(folder.file("kv.2.log")), testing::HasSubstr("a line"));
    EXPECT_EQ(ContentOf(folder.file("kv.3.log")), "");
}

TEST(OpenLogTest, WithoutALimitTheFileGrows) {
    const kvtest::TempDir folder;
    const auto log = OpenLog(spdlog::level::info, {folder.file("kv.log"), 0, 3});
    for (int line = 0; line < 20; ++line) {
        log->warn("line {}.", line);
    }
    EXPECT_THAT(ContentOf(folder.file("kv.log")), testing::HasSubstr("line 0."));
    EXPECT_EQ(ContentOf(folder.file("kv.1.log")), "");
}

TEST(OpenLogTest, TheLevelMayChangeWhileTheLogIsOpen) {
    const kvtest::TempDir folder;
    const auto log = OpenLog(spdlog::level::warn, {folder.file("kv.log"), 1000, 3});
    log->info("quiet");
    log->set_level(spdlog::level::info);
    log->info("loud");
    log->flush();
    EXPECT_THAT(ContentOf(folder.file("kv.log")), testing::MatchesRegex("[^\n]* info [^\n]* loud\n"));
}

TEST(OpenLogTest, ARotatedFileThatCannotBeOpenedIsBadInput) {
    EXPECT_THROW(OpenLog(spdlog::level::info, {"/proc/no/such/file", 1000, 3}), BadInput);
}

TEST(OpenLogTest, EveryLineIsInTheFileAtOnce) {
    const kvtest::TempDir dir;
    for (const std::uint64_t limit : {std::uint64_t{0}, std::uint64_t{100000}}) {
        const std::string file = dir.file(std::to_string(limit) + ".log");
        LogSink sink(OpenLog(spdlog::level::trace, {file, limit}), SecretMask({}));
        sink.LogTrace("a trace", 1, "A.cpp");
        std::stringstream seen;
        seen << std::ifstream(file).rdbuf();
        EXPECT_THAT(seen.str(), HasSubstr("A.cpp:1 a trace\n"));
        sink.Tell("running");
        seen << std::ifstream(file).rdbuf();
        EXPECT_THAT(seen.str(), HasSubstr("kvhost running\n"));
    }
}

}  // namespace
}  // namespace kvhost
