// The small parts of the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AttemptJudge.h"
#include "FilesWithDriver.h"
#include "JobFile.h"
#include "RestartNeeded.h"
#include "StoreTrouble.h"
#include "Watchdog.h"

namespace kvhost {
namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point kStart = Clock::time_point() + std::chrono::hours(1);

StoredJob SomeJob() {
    StoredJob job;
    job.key = 7;
    job.id = "a";
    job.attempts = 2;
    job.submitted = job.changed = job.due = StoreNow();
    return job;
}

std::unique_ptr<JobFile> SomeFile() {
    return std::make_unique<JobFile>(SomeJob(), Carrier(), 1, [] {});
}

TEST(JobFileTest, IsNamedByKeyAndAttemptAndNeverGrouped) {
    const auto file = SomeFile();
    EXPECT_EQ(file->m_strMsgFileID, "7_2");
    EXPECT_EQ(file->m_strJobID, "a");
    EXPECT_TRUE(file->m_bGroupInhibit);
}

TEST(JobFileTest, AnnouncesThatItComesBack) {
    int announced = 0;
    JobFile file(SomeJob(), Carrier(), 1, [&] { ++announced; });
    file.SetStatusText("");
    EXPECT_EQ(announced, 1);
}

TEST(FilesWithDriverTest, AFileThatCameBackIsKnownForAWhileAndThenDeleted) {
    FilesWithDriver<JobFile> files;
    const JobFile* file = &files.Add(SomeFile());
    EXPECT_EQ(files.Find(file), file);
    files.NoteBack(*file, kStart);
    EXPECT_EQ(files.Find(file), nullptr);
    EXPECT_TRUE(files.HasComeBack(file));
    EXPECT_EQ(files.Count(), 0U);
    files.Tidy(kStart + std::chrono::milliseconds(1999));
    EXPECT_TRUE(files.HasComeBack(file));
    files.Tidy(kStart + std::chrono::seconds(2));
    EXPECT_FALSE(files.HasComeBack(file));
}

TEST(FilesWithDriverTest, AnUnknownPointerIsNotFollowed) {
    const FilesWithDriver<JobFile> files;
    const auto* nowhere = reinterpret_cast<const KvMessageFile*>(std::uintptr_t{16});
    EXPECT_EQ(files.Find(nowhere), nullptr);
    EXPECT_FALSE(files.HasComeBack(nowhere));
}

TEST(StoreTroubleTest, TriesAgainAfterGrowingPauses) {
    StoreTrouble trouble;
    EXPECT_TRUE(trouble.MayTry(kStart));
    EXPECT_EQ(trouble.Next(), std::nullopt);
    Clock::time_point now = kStart;
    for (const int pause : {100, 200, 400, 800, 1600, 3200, 5000, 5000}) {
        trouble.Note("disk full", now);
        EXPECT_FALSE(trouble.MayTry(now + std::chrono::milliseconds(pause - 1)));
        now += std::chrono::milliseconds(pause);
        EXPECT_TRUE(trouble.MayTry(now));
        EXPECT_EQ(trouble.Next(), now);
    }
    EXPECT_TRUE(trouble.Clear());
    EXPECT_FALSE(trouble.Clear());
    EXPECT_EQ(trouble.Text(), "");
}

TEST(StoreTroubleTest, OnlyANewTroubleIsNews) {
    StoreTrouble trouble;
    EXPECT_TRUE(trouble.Note("disk full", kStart));
    EXPECT_FALSE(trouble.Note("disk full", kStart));
    EXPECT_TRUE(trouble.Note("locked", kStart));
}

TEST(WatchdogTest, IsToldAtItsInterval) {
    Watchdog watchdog(Milliseconds(500));
    EXPECT_TRUE(watchdog.IsToBeTold(std::nullopt, kStart));
    EXPECT_FALSE(watchdog.IsToBeTold(std::nullopt, kStart + std::chrono::milliseconds(499)));
    EXPECT_TRUE(watchdog.IsToBeTold(std::nullopt, kStart + std::chrono::milliseconds(500)));
}

TEST(WatchdogTest, IsNotToldWhileTheDriverIsStuckInACall) {
    Watchdog watchdog(Milliseconds(500));
    EXPECT_TRUE(watchdog.IsToBeTold(kStart, kStart + std::chrono::minutes(14)));
    EXPECT_FALSE(watchdog.IsToBeTold(kStart, kStart + Watchdog::kLongestCall));
}

TEST(WatchdogTest, IsNotToldWhenNobodyWatches) {
    EXPECT_FALSE(Watchdog(std::nullopt).IsToBeTold(std::nullopt, kStart));
}

TEST(RestartNeededTest, NothingIsNamedWhenADaemonCanAdoptAllOfIt) {
    HostConfig before;
    HostConfig after = before;
    after.carriers["new"];
    after.logLevel = spdlog::level::trace;
    after.run.tick = Milliseconds(7);
    EXPECT_TRUE(RestartNeededFor(before, after).empty());
}

TEST(RestartNeededTest, EverySettingThatNeedsOneIsNamed) {
    const HostConfig before;
    HostConfig after;
    after.store = "/elsewhere";
    after.driverSettings["smart_driver.threadpool_size"] = "2";
    after.logFile = "/log";
    after.deliveryLog.path = "/deliveries";
    after.http.token = "another";
    EXPECT_THAT(RestartNeededFor(before, after),
                testing::ElementsAre("store", "[driver]", "file, bytes and files of [log]", "[delivery_log]",
                                     "[http]"));
}

TEST(AttemptJudgeTest, ADeliveredJobIsDelivered) {
    AttemptJudge judge;
    const AttemptReport report = judge.Judge(SomeJob(), {true, ""}, {}, RetryPolicy(), StoreNow());
    EXPECT_EQ(report.outcome, AttemptOutcome::Delivered);
    EXPECT_EQ(report.next, JobState::Delivered);
    EXPECT_EQ(report.number, 2);
    EXPECT_EQ(report.due, std::nullopt);
}

TEST(AttemptJudgeTest, APassingFailureIsTriedAgainAndALastingOneIsNot) {
    AttemptJudge judge;
    const StoreTime now = StoreNow();
    const AttemptReport passing =
        judge.Judge(SomeJob(), {false, "4.2.2 full"}, {FailureClass::Passing, ""}, RetryPolicy(), now);
    EXPECT_EQ(passing.next, JobState::Queued);
    ASSERT_TRUE(passing.due);
    EXPECT_GT(*passing.due, now);
    EXPECT_EQ(passing.reason, "4.2.2 full");
    const AttemptReport lasting =
        judge.Judge(SomeJob(), {false, "5.1.1 who"}, {FailureClass::Lasting, ""}, RetryPolicy(), now);
    EXPECT_EQ(lasting.next, JobState::Failed);
    EXPECT_EQ(lasting.due, std::nullopt);
}

}  // namespace
}  // namespace kvhost
