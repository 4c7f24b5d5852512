#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "KvconThreadPool.h"
#include "faults/OpenPool.h"
#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

// KvconThreadPool::Stop: how long it sleeps, and what it does when a lock fails.

namespace {

using kvtest::AllDeleted;
using kvtest::CaughtFrom;
using kvtest::Eventually;
using kvtest::FailOnce;
using kvtest::Interception;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::OpenPool;
using kvtest::RecordedSleeps;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;
using kvtest::WorkLog;

/// Adds work that hangs until it is ended, on a worker of its own, and waits until it does.
void AddHangingWork(OpenPool& pool, WorkLog& log, std::list<Latch>& latches) {
    Latch& hanging = latches.emplace_back();
    EXPECT_NE(pool.Add(new LoggedWork(log, [&] { kvtest::HangUntilEnded(hanging); })), 0UL);
    EXPECT_TRUE(hanging.Wait());
}

/// The sleeps of Stop(timeoutMs) with `workers` hanging workers, in microseconds.
std::vector<long> SleepsOfStop(int timeoutMs, unsigned int workers) {
    OpenPool pool(workers);
    WorkLog log;
    std::list<Latch> latches;
    for (unsigned int i = 0; i < workers; ++i) {
        AddHangingWork(pool, log, latches);
    }
    testing::internal::CaptureStdout();
    const RecordedSleeps sleeps;
    pool.Stop(timeoutMs);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(log.deleted, static_cast<int>(workers));
    return sleeps.Microseconds();
}

TEST(KvconThreadPoolStopFaultTest, StopSharesItsTimeoutAmongTheWorkers) {
    const std::vector<long> sleeps = SleepsOfStop(60000, 4);
    EXPECT_EQ(sleeps, (std::vector<long>{500000, 15000000, 0, 15000000, 0, 15000000, 0, 15000000, 0}));
}

TEST(KvconThreadPoolStopFaultTest, StopGivesEachWorkerAtLeast100Milliseconds) {
    EXPECT_EQ(SleepsOfStop(200, 4), (std::vector<long>{500000, 100000, 100000, 100000, 100000}));
    EXPECT_EQ(SleepsOfStop(0, 1), (std::vector<long>{500000, 100000}));
    EXPECT_EQ(SleepsOfStop(99, 1), (std::vector<long>{500000, 100000}));
}

TEST(KvconThreadPoolStopFaultTest, StopDividesWithoutARest) {
    EXPECT_EQ(SleepsOfStop(1000, 3), (std::vector<long>{500000, 333000, 333000, 333000}));
}

TEST(KvconThreadPoolStopFaultTest, StopWithoutWorkersPausesHalfASecondOnly) {
    EXPECT_EQ(SleepsOfStop(60000, 0), std::vector<long>{500000});
}

TEST(KvconThreadPoolStopFaultTest, WorkerThatEndsDuringItsGraceIsNotKilled) {
    OpenPool pool(2);
    WorkLog log;
    Latch goOn;
    std::vector<unsigned long> workers;
    for (int i = 0; i < 2; ++i) {
        workers.push_back(pool.Add(new LoggedWork(log, [&] { goOn.Wait(); })));
    }
    ASSERT_TRUE(Eventually([&] { return log.started == 2; }));
    int sleeps = 0;
    testing::internal::CaptureStdout();
    {
        Interception sleep(SystemCall::MicroSleep, [&](const SystemCallArguments&) -> std::optional<int> {
            if (++sleeps == 2) {  // the grace of the first worker; both end in it
                goOn.Open();
                KvThreadRegistry::WaitUntilGone(workers[0]);
                KvThreadRegistry::WaitUntilGone(workers[1]);
            }
            return 0;
        });
        pool.Stop(200);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(sleeps, 2);  // the second one had ended before its turn and got no grace
    EXPECT_EQ(log.finished, 2);
}

TEST(KvconThreadPoolStopFaultTest, StopThatCannotLockTheWorkerListKillsNobody) {
    OpenPool pool(1);
    WorkLog log;
    Latch goOn;
    pool.AddWork(new LoggedWork(log, [&] { goOn.Wait(); }));
    ASSERT_TRUE(Eventually([&] { return log.started == 1; }));
    const RecordedSleeps sleeps;
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
    pool.Stop(0);
    EXPECT_EQ(sleeps.Microseconds(), std::vector<long>{500000});
    EXPECT_EQ(pool.RunningSize(), 1U);
    goOn.Open();
    EXPECT_TRUE(AllDeleted(log, 1));
    EXPECT_EQ(log.finished, 1);
}

TEST(KvconThreadPoolStopFaultTest, StopThatCannotLockTheQueueLeavesTheWaitingWorkAndStopsAllTheSame) {
    OpenPool pool(0);
    WorkLog log;
    pool.AddWork(new LoggedWork(log));
    const RecordedSleeps sleeps;
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.WorkMutex());
    pool.Stop(0);
    EXPECT_EQ(log.deleted, 0);
    EXPECT_EQ(pool.WaitingWork(), 1U);
    LoggedWork refused(log);
    EXPECT_EQ(CaughtFrom([&] { pool.AddWork(&refused); }).GetMsg(), "Thread Pool Is Stopping");
}

TEST(KvconThreadPoolStopFaultTest, NoWorkerIsMadeByACallThatStopOvertakes) {
    OpenPool pool(1);
    WorkLog log;
    const RecordedSleeps sleeps;
    Latch queued;
    Latch stopped;
    std::atomic<bool> first{true};
    Interception locks(SystemCall::MutexLock, [&](const SystemCallArguments& call) -> std::optional<int> {
        if (call.object == pool.ThreadMutex() && first.exchange(false)) {
            queued.Open();
            stopped.Wait();
        }
        return std::nullopt;
    });
    unsigned long newThreadId = 4711;
    std::thread adder([&] { pool.AddWork(new LoggedWork(log), newThreadId); });
    ASSERT_TRUE(queued.Wait());
    pool.Stop(0);
    stopped.Open();
    adder.join();
    EXPECT_EQ(newThreadId, 0UL);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(log.deleted, 1);
    EXPECT_EQ(log.started, 0);
}

}  // namespace
