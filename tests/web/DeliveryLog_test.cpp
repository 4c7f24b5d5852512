#include "DeliveryLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::DeliveryLine;
using kvhost::DeliveryLog;
using kvhost::Milliseconds;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(DeliveryLineTest, HasTheDocumentedForm) {
    kvhost::AttemptReport report = RetriedAttempt("450 4.2.1 busy");
    report.number = 3;
    EXPECT_EQ(
        DeliveryLine(report, Milliseconds(250)),
        R"({"time":"2023-11-14T22:13:21.500Z","job":"a","carrier":"east","recipient":"ops@example.org",)"
        R"("attempt":3,"outcome":"failed","reason":"450 4.2.1 busy","state":"queued",)"
        R"("due":"2023-11-14T22:14:21.500Z","decision":"again in a minute","queue_ms":250,"delivery_ms":1500})");
}

TEST(DeliveryLineTest, WhatIsNotKnownIsNull) {
    const json line = json::parse(DeliveryLine(DeliveredAttempt(), std::nullopt));
    EXPECT_TRUE(line["due"].is_null());
    EXPECT_TRUE(line["queue_ms"].is_null());
}

TEST(DeliveryLineTest, LineEndsAndControlCharactersStayInTheirText) {
    const std::string reason = "no\r\n{\"forged\": true}\n\x1b[31m\"\\";
    const std::string line = DeliveryLine(FailedAttempt(reason), Milliseconds(1));
    EXPECT_EQ(line.find_first_of("\r\n\x1b"), std::string::npos);
    EXPECT_EQ(json::parse(line)["reason"], reason);
}

TEST(DeliveryLineTest, BytesThatAreNoUtf8AreReplaced) {
    const std::string line = DeliveryLine(FailedAttempt("bad \xff\xfe end"), Milliseconds(1));
    EXPECT_EQ(json::parse(line)["reason"], "bad \xEF\xBF\xBD\xEF\xBF\xBD end");
}

class DeliveryLogTest : public testing::Test {
protected:
    std::unique_ptr<DeliveryLog> Open(const std::string& path, std::uint64_t bytes = 100000) {
        return std::make_unique<DeliveryLog>(kvhost::RotatedFile{path, bytes, 3},
                                             [this](const std::string& text) { m_warnings.push_back(text); });
    }
    std::string Path() const { return m_dir.file("delivery.log"); }

    kvtest::TempDir m_dir;
    std::vector<std::string> m_warnings;
};

TEST_F(DeliveryLogTest, EachAttemptIsALineAndThereAtOnce) {
    const auto log = Open(Path());
    log->AttemptEnded(DeliveredAttempt());
    log->AttemptEnded(FailedAttempt("no"));
    EXPECT_EQ(ReadFile(Path()), DeliveryLine(DeliveredAttempt(), std::nullopt) + "\n" +
                                    DeliveryLine(FailedAttempt("no"), std::nullopt) + "\n");
    EXPECT_THAT(m_warnings, testing::IsEmpty());
}

TEST_F(DeliveryLogTest, TheTimeInTheQueueIsThatOfTheSameAttempt) {
    const auto log = Open(Path());
    log->JobHandedOver(DeliveredAttempt().job, Milliseconds(42));
    log->AttemptEnded(RetriedAttempt("busy"));
    log->AttemptEnded(DeliveredAttempt());
    EXPECT_EQ(ReadFile(Path()), DeliveryLine(RetriedAttempt("busy"), Milliseconds(42)) + "\n" +
                                    DeliveryLine(DeliveredAttempt(), std::nullopt) + "\n");
}

TEST_F(DeliveryLogTest, AFullFileIsBegunAnewBetweenTwoLines) {
    const auto log = Open(Path(), 300);
    for (int i = 0; i < 3; ++i) {
        log->AttemptEnded(DeliveredAttempt());
    }
    const std::string line = DeliveryLine(DeliveredAttempt(), std::nullopt) + "\n";
    EXPECT_EQ(ReadFile(Path()), line);
    EXPECT_EQ(ReadFile(m_dir.file("delivery.1.log")), line);
    EXPECT_EQ(ReadFile(m_dir.file("delivery.2.log")), line);
}

TEST_F(DeliveryLogTest, OnAFullDiskLinesAreCountedAndOneWarningIsGiven) {
    const auto log = Open("/dev/full");
    for (int i = 0; i < 5; ++i) {
        EXPECT_NO_THROW(log->AttemptEnded(DeliveredAttempt()));
    }
    EXPECT_EQ(log->LostLines(), 5U);
    EXPECT_THAT(m_warnings, ElementsAre(HasSubstr("/dev/full cannot be written: No space left on device")));
}

TEST_F(DeliveryLogTest, WhenTheDiskIsMendedLinesAreWrittenAgainAndToldOf) {
    ASSERT_EQ(::symlink("/dev/full", Path().c_str()), 0);
    const auto log = Open(Path());
    log->AttemptEnded(DeliveredAttempt());
    std::filesystem::remove(Path());
    log->AttemptEnded(FailedAttempt("no"));
    EXPECT_EQ(ReadFile(Path()), DeliveryLine(FailedAttempt("no"), std::nullopt) + "\n");
    EXPECT_EQ(log->LostLines(), 1U);
    EXPECT_THAT(m_warnings, ElementsAre(HasSubstr("cannot be written"),
                                        HasSubstr("is written again; 1 lines of it are lost")));
}

}  // namespace
}  // namespace kvhosttest
