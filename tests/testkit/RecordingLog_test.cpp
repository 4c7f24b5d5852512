#include "RecordingLog.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

using kvtest::LogEntry;
using kvtest::RecordingLog;
using kvtest::Severity;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

TEST(RecordingLogTest, EverySeverityIsKeptInOrder) {
    RecordingLog log;
    KvLogInterface& sink = log;
    sink.LogTrace("t", 1, "a.cpp");
    sink.LogDebug("d", 2, "b.cpp");
    sink.LogInfo("i", 3, "c.cpp");
    sink.LogWarning("w", 4, "d.cpp");
    sink.LogError("e", 5, "e.cpp");
    EXPECT_THAT(log.texts(), ElementsAre("t", "d", "i", "w", "e"));
    EXPECT_THAT(log.texts(Severity::Trace), ElementsAre("t"));
    EXPECT_THAT(log.texts(Severity::Debug), ElementsAre("d"));
    EXPECT_THAT(log.texts(Severity::Info), ElementsAre("i"));
    EXPECT_THAT(log.texts(Severity::Warning), ElementsAre("w"));
    EXPECT_THAT(log.texts(Severity::Error), ElementsAre("e"));
}

TEST(RecordingLogTest, AnEntryHoldsLineFileAndThread) {
    RecordingLog log;
    log.LogInfo("text", 42, "Some.cpp");
    const LogEntry entry = log.entries().at(0);
    EXPECT_EQ(entry.severity, Severity::Info);
    EXPECT_EQ(entry.text, "text");
    EXPECT_EQ(entry.line, 42);
    EXPECT_EQ(entry.file, "Some.cpp");
    EXPECT_TRUE(pthread_equal(entry.thread, pthread_self()));
}

TEST(RecordingLogTest, ANullFileNameIsKeptAsAnEmptyOne) {
    RecordingLog log;
    log.LogInfo("text", 1, nullptr);
    EXPECT_EQ(log.entries().at(0).file, "");
}

TEST(RecordingLogTest, TextsAreCountedWholeAndInPart) {
    RecordingLog log;
    log.LogInfo("Sending", 1, "");
    log.LogInfo("Sending", 1, "");
    log.LogError("Sending failed", 1, "");
    EXPECT_EQ(log.count(), 3);
    EXPECT_EQ(log.count(Severity::Info), 2);
    EXPECT_EQ(log.countEqual("Sending"), 2);
    EXPECT_EQ(log.countContaining("Sending"), 3);
    EXPECT_TRUE(log.contains("failed"));
    EXPECT_FALSE(log.contains("done"));
    EXPECT_TRUE(log.has(Severity::Error, "Sending failed"));
    EXPECT_FALSE(log.has(Severity::Info, "Sending failed"));
    EXPECT_EQ(log.entriesContaining("failed").at(0).severity, Severity::Error);
}

TEST(RecordingLogTest, AWaitSeesALineOfAnotherThread) {
    RecordingLog log;
    std::thread other([&] {
        log.LogInfo("one", 1, "");
        log.LogInfo("one", 1, "");
    });
    EXPECT_TRUE(log.waitFor("one", 2));
    EXPECT_TRUE(log.waitForContaining("on", 2));
    other.join();
}

TEST(RecordingLogTest, AWaitInVainAnswersFalse) {
    RecordingLog log;
    log.LogInfo("one", 1, "");
    EXPECT_FALSE(log.waitFor("one", 2, 5ms));
    EXPECT_FALSE(log.waitForContaining("two", 1, 5ms));
}

TEST(RecordingLogTest, ClearForgetsAll) {
    RecordingLog log;
    log.LogInfo("one", 1, "");
    log.clear();
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(RecordingLogTest, ManyThreadsLoseNothing) {
    RecordingLog log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 100; ++n) {
                log.LogDebug("line", n, "");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(log.countEqual("line"), 800);
}
