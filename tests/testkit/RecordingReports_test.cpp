#include "RecordingReports.h"

#include <gtest/gtest.h>

#include <thread>

#include "TestMessageFile.h"

using kvtest::RecordingReports;
using kvtest::TestMessageFile;
using namespace std::chrono_literals;

TEST(RecordingReportsTest, AnEntryHoldsWhatWasReported) {
    RecordingReports reports;
    TestMessageFile file;
    EXPECT_TRUE(reports.WriteReport(&file, RecordingReports::REPORT_FAILED, "no route"));
    ASSERT_EQ(reports.count(), 1);
    EXPECT_EQ(reports.entries()[0].file, &file);
    EXPECT_EQ(reports.entries()[0].status, RecordingReports::REPORT_FAILED);
    EXPECT_EQ(reports.entries()[0].text, "no route");
}

TEST(RecordingReportsTest, TheEntriesOfOneFileCanBePickedOut) {
    RecordingReports reports;
    TestMessageFile one;
    TestMessageFile other;
    reports.WriteReport(&one, RecordingReports::REPORT_ACCEPTED, "1");
    reports.WriteReport(&other, RecordingReports::REPORT_ACCEPTED, "2");
    ASSERT_EQ(reports.entriesOf(&other).size(), 1U);
    EXPECT_EQ(reports.entriesOf(&other)[0].text, "2");
}

TEST(RecordingReportsTest, TheAnswerCanBeChosen) {
    RecordingReports reports;
    reports.answerWith(false);
    EXPECT_FALSE(reports.WriteReport(nullptr, RecordingReports::REPORT_NONE, ""));
    EXPECT_EQ(reports.count(), 1);
}

TEST(RecordingReportsTest, AWaitSeesAReportOfAnotherThread) {
    RecordingReports reports;
    EXPECT_FALSE(reports.waitFor(1, 5ms));
    std::thread other([&] { reports.WriteReport(nullptr, RecordingReports::REPORT_NONE, ""); });
    EXPECT_TRUE(reports.waitFor(1));
    other.join();
}
