#include "KvconThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "faults/OpenPool.h"
#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::AllDeleted;
using kvtest::CaughtFrom;
using kvtest::Eventually;
using kvtest::FailOnce;
using kvtest::FixedTimeOfDay;
using kvtest::Interception;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::OpenPool;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;
using kvtest::WorkLog;

void ExpectFailure(KvconException exception, const std::string& message, int line,
                   const std::string& system) {
    EXPECT_EQ(exception.GetMsg(), message);
    EXPECT_EQ(exception.GetFile(), "../src/KvconThreadPool");
    EXPECT_EQ(exception.GetLine(), line);
    EXPECT_EQ(exception.GetSysMsg(), system);
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

class PoolHandlerFaultTest : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(PoolHandlerFaultTest, HandlerThatCannotBeInstalledThrowsItsLine) {
    const auto [signal, line] = GetParam();
    const int failing = signal;
    OpenPool pool;
    Interception actions(SystemCall::SignalAction,
                         [&](const SystemCallArguments& call) -> std::optional<int> {
                             return call.number == failing ? std::optional<int>(EINVAL) : std::nullopt;
                         });
    ExpectFailure(CaughtFrom([&] { pool.Initialize(1); }), "Initialize Thread Pool Failed", line,
                  "Invalid argument");
}

INSTANTIATE_TEST_SUITE_P(KvconThreadPool, PoolHandlerFaultTest,
                         ::testing::Values(std::pair{SIGQUIT, 90}, std::pair{SIGTERM, 94}));

TEST(KvconThreadPoolFaultTest, QuitHandlerIsInstalledBeforeTheTermHandler) {
    std::vector<long> signals;
    OpenPool pool;
    {
        Interception actions(SystemCall::SignalAction,
                             [&](const SystemCallArguments& call) -> std::optional<int> {
                                 signals.push_back(call.number);
                                 return 0;
                             });
        pool.Initialize(1);
    }
    EXPECT_EQ(signals, (std::vector<long>{SIGQUIT, SIGTERM}));
}

TEST(KvconThreadPoolFaultTest, WorkerThatCannotBeMadeThrowsAndTheWorkStaysQueuedUnsignaled) {
    OpenPool pool(1);
    WorkLog log;
    kvtest::CallCount broadcasts(SystemCall::ConditionBroadcast, pool.EventCondition());
    unsigned long newThreadId = 4711;
    FailOnce failure(SystemCall::ThreadCreate, EAGAIN);
    errno = EACCES;
    ExpectFailure(CaughtFrom([&] { pool.AddWork(new LoggedWork(log), newThreadId); }), "Create Thread Failed",
                  241, "Permission denied");
    EXPECT_EQ(newThreadId, 0UL);
    EXPECT_EQ(pool.WaitingWork(), 1U);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(broadcasts, 0);
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(*pool.ThreadLock()), 0);
}

TEST(KvconThreadPoolFaultTest, WorkOfAFailedCallRunsWithTheNextOne) {
    OpenPool pool(1);
    WorkLog log;
    {
        FailOnce failure(SystemCall::ThreadCreate, EAGAIN);
        CaughtFrom([&] { pool.AddWork(new LoggedWork(log)); });
    }
    EXPECT_NE(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_TRUE(AllDeleted(log, 2));
}

TEST(KvconThreadPoolFaultTest, WorkerThatCannotBeDetachedThrowsAndIsNotCounted) {
    OpenPool pool(1);
    WorkLog log;
    std::atomic<unsigned long> worker{0};
    FailOnce failure(SystemCall::ThreadDetach, EINVAL);
    errno = EACCES;
    unsigned long newThreadId = 4711;
    auto* const work = new LoggedWork(log, [&] { worker = pthread_self(); });
    ExpectFailure(CaughtFrom([&] { pool.AddWork(work, newThreadId); }), "Detach Thread Failed", 234,
                  "Permission denied");
    EXPECT_EQ(newThreadId, 0UL);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(*pool.ThreadLock()), 0);
    pool.WorkEvent()->Broadcast();  // the worker lives all the same
    ASSERT_TRUE(AllDeleted(log, 1));
    pool.SendWorkersHome();
    pthread_join(worker, nullptr);
}

TEST(KvconThreadPoolFaultTest, WorkIsSilentlyNotAddedWhenTheQueueCannotBeLocked) {
    OpenPool pool(1);
    WorkLog log;
    LoggedWork work(log);
    {
        FailOnce failure(SystemCall::MutexLock, EINVAL, pool.WorkMutex());
        EXPECT_NE(pool.Add(&work), 0UL);
        EXPECT_TRUE(failure.HasFailed());
    }
    EXPECT_EQ(pool.WaitingWork(), 0U);
    EXPECT_EQ(pool.RunningSize(), 1U);
    WorkLog later;
    pool.AddWork(new LoggedWork(later));
    EXPECT_TRUE(AllDeleted(later, 1));
    EXPECT_EQ(log.started, 0);
}

TEST(KvconThreadPoolFaultTest, WorkIsQueuedUnsignaledWhenTheWorkerListCannotBeLocked) {
    OpenPool pool(1);
    WorkLog log;
    kvtest::CallCount broadcasts(SystemCall::ConditionBroadcast, pool.EventCondition());
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
    EXPECT_EQ(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_EQ(pool.WaitingWork(), 1U);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(broadcasts, 0);
}

TEST(KvconThreadPoolFaultTest, ControlOfOneTaskAnswersFalseWhenItCannotLock) {
    OpenPool pool(1);
    WorkLog log;
    Latch goOn;
    auto* const work = new LoggedWork(log, [&] { goOn.Wait(); });
    pool.AddWork(work);
    EXPECT_TRUE(Eventually([&] { return log.started == 1; }));
    for (const auto operation :
         {&KvconThreadPool::StopTask, &KvconThreadPool::PauseTask, &KvconThreadPool::ResumeTask}) {
        FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
        EXPECT_FALSE((pool.*operation)(work));
    }
    EXPECT_EQ(log.stops + log.pauses + log.resumes, 0);
    goOn.Open();
    EXPECT_TRUE(AllDeleted(log, 1));
}

TEST(KvconThreadPoolFaultTest, ControlOfAllTasksAnswersTheResultOfItsLockOperations) {
    OpenPool pool(1);
    for (const auto operation :
         {&KvconThreadPool::StopTasks, &KvconThreadPool::PauseTasks, &KvconThreadPool::ResumeTasks}) {
        {
            FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
            EXPECT_EQ((pool.*operation)(), 2);
        }
        FailOnce failure(SystemCall::MutexUnlock, EPERM, pool.ThreadMutex());
        EXPECT_EQ((pool.*operation)(), EPERM);
    }
}

TEST(KvconThreadPoolFaultTest, DeletingATaskAnswersFalseWhenTheQueueCannotBeLocked) {
    OpenPool pool(0);
    WorkLog log;
    auto* const work = new LoggedWork(log);
    pool.AddWork(work);
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.WorkMutex());
    EXPECT_FALSE(pool.DeleteTask(work));
    EXPECT_EQ(pool.WaitingWork(), 1U);
}

TEST(KvconThreadPoolFaultTest, DeletingAllTasksAnswersTheResultOfTheQueueLock) {
    OpenPool pool(0);
    WorkLog log;
    LoggedWork work(log);
    pool.AddWork(&work);
    {
        FailOnce failure(SystemCall::MutexLock, EINVAL, pool.WorkMutex());
        EXPECT_EQ(pool.DeleteTasks(), 2);
        EXPECT_EQ(pool.WaitingWork(), 1U);
    }
    FailOnce failure(SystemCall::MutexUnlock, EPERM, pool.WorkMutex());
    EXPECT_EQ(pool.DeleteTasks(), EPERM);
    EXPECT_EQ(pool.WaitingWork(), 0U);
}

TEST(KvconThreadPoolFaultTest, DeletingAllTasksUnlinksTheWaitingAlsoWhenTheRunningCannotBeReached) {
    OpenPool pool(0);
    WorkLog log;
    LoggedWork work(log);
    pool.AddWork(&work);
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
    EXPECT_EQ(pool.DeleteTasks(), 0);
    EXPECT_TRUE(failure.HasFailed());
    EXPECT_EQ(pool.WaitingWork(), 0U);
}

TEST(KvconThreadPoolFaultTest, WorkerListThatCannotBeLockedCountsAsEmptyAndForgetsNothing) {
    OpenPool pool(1);
    WorkLog log;
    const unsigned long worker = pool.Add(new LoggedWork(log));
    {
        FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
        EXPECT_EQ(pool.RunningSize(), 0U);
    }
    {
        FailOnce failure(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
        EXPECT_EQ(pool.RemoveThread(worker), 0UL);
    }
    EXPECT_EQ(pool.RunningSize(), 1U);
}

TEST(KvconThreadPoolFaultTest, IdleWorkerWaitsThirtySecondsAndRemovesItself) {
    OpenPool pool(1);
    WorkLog log;
    std::atomic<long> waited{0};
    const FixedTimeOfDay clock({1000, 250000});
    Interception waits(
        SystemCall::ConditionTimedWait, [&](const SystemCallArguments& call) -> std::optional<int> {
            if (log.deleted == 0) {
                return std::nullopt;  // not idle yet; and the signal is not far
            }
            waited = (call.deadline.tv_sec - 1000) * 1000 + call.deadline.tv_nsec / 1000000 - 250;
            return ETIMEDOUT;
        });
    const unsigned long first = pool.Add(new LoggedWork(log));
    ASSERT_NE(first, 0UL);
    EXPECT_TRUE(Eventually([&] { return pool.RunningSize() == 0; }));
    KvThreadRegistry::WaitUntilGone(first);
    EXPECT_EQ(waited, 30000);
    EXPECT_FALSE(pool.IsThreadRunning(first));
}

TEST(KvconThreadPoolFaultTest, WorkQueuedJustAsTheIdleWaitEndsIsRun) {
    OpenPool pool(1);
    WorkLog log;
    std::thread queueing;
    std::atomic<bool> isQueueing{false};
    std::atomic<bool> isQueued{false};
    // The signal for the work comes last, and waits for the event that the idle worker holds.
    Interception signals(SystemCall::MutexLock, [&](const SystemCallArguments& call) -> std::optional<int> {
        if (isQueueing && call.object == pool.EventMutex()) {
            isQueued = true;
        }
        return std::nullopt;
    });
    Interception waits(SystemCall::ConditionTimedWait, [&](const SystemCallArguments&) -> std::optional<int> {
        if (log.deleted == 0 || isQueueing) {
            return std::nullopt;
        }
        isQueueing = true;
        queueing = std::thread([&] { pool.Add(new LoggedWork(log)); });
        EXPECT_TRUE(Eventually([&] { return isQueued.load(); }));
        return ETIMEDOUT;
    });
    pool.Add(new LoggedWork(log));
    EXPECT_TRUE(AllDeleted(log, 2));
    queueing.join();
}

TEST(KvconThreadPoolFaultTest, FreshWorkerIsMadeAfterTheIdleOneHasLeft) {
    OpenPool pool(1);
    WorkLog log;
    {
        Interception waits(SystemCall::ConditionTimedWait,
                           [&](const SystemCallArguments&) -> std::optional<int> {
                               return log.deleted == 0 ? std::nullopt : std::optional<int>(ETIMEDOUT);
                           });
        const unsigned long first = pool.Add(new LoggedWork(log));
        EXPECT_TRUE(Eventually([&] { return pool.RunningSize() == 0; }));
        KvThreadRegistry::WaitUntilGone(first);
    }
    EXPECT_NE(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_TRUE(AllDeleted(log, 2));
}

TEST(KvconThreadPoolFaultTest, WorkerThatCannotListItselfOutLeavesItsIdBehind) {
    OpenPool pool(1);
    WorkLog log;
    std::optional<FailOnce> failure;
    Interception waits(SystemCall::ConditionTimedWait, [&](const SystemCallArguments&) -> std::optional<int> {
        if (log.deleted == 0) {
            return std::nullopt;
        }
        failure.emplace(SystemCall::MutexLock, EINVAL, pool.ThreadMutex());
        return ETIMEDOUT;
    });
    const unsigned long worker = pool.Add(new LoggedWork(log));
    KvThreadRegistry::WaitUntilGone(worker);
    EXPECT_TRUE(failure->HasFailed());
    EXPECT_EQ(pool.RunningSize(), 1U);
    EXPECT_FALSE(pool.IsThreadRunning(worker));
}

TEST(KvconThreadPoolFaultTest, WorkerLooksForWorkAfterAFailedWait) {
    OpenPool pool(1);
    WorkLog log;
    FailOnce wait(SystemCall::ConditionTimedWait, EINVAL);
    const pthread_t adder = pthread_self();
    std::atomic<int> failures{0};
    Interception locks(SystemCall::MutexLock, [&](const SystemCallArguments& call) -> std::optional<int> {
        const bool workersWait = call.object == pool.EventMutex() && pthread_self() != adder;
        return workersWait && failures++ == 0 ? std::optional<int>(EINVAL) : std::nullopt;
    });
    pool.AddWork(new LoggedWork(log));
    EXPECT_TRUE(AllDeleted(log, 1));
    pool.AddWork(new LoggedWork(log));
    EXPECT_TRUE(AllDeleted(log, 2));
    EXPECT_EQ(pool.RunningSize(), 1U);
}

TEST(KvconThreadPoolFaultTest, WorkerSurvivesAnEventThatCannotBeReset) {
    OpenPool pool(1);
    WorkLog log;
    std::atomic<int> resets{0};
    // With an empty queue the event's mutex is locked in turn by a wait and by a reset. Each is made to fail
    // once.
    Interception locks(SystemCall::MutexLock, [&](const SystemCallArguments& call) -> std::optional<int> {
        const bool meant = call.object == pool.EventMutex() && log.deleted == 1;
        return meant && resets++ < 3 ? std::optional<int>(EINVAL) : std::nullopt;
    });
    pool.AddWork(new LoggedWork(log));
    EXPECT_TRUE(Eventually([&] { return resets > 3; }));
    pool.AddWork(new LoggedWork(log));
    EXPECT_TRUE(AllDeleted(log, 2));
}

TEST(KvconThreadPoolFaultTest, WorkerTriesAgainWhenTheQueueCannotBeLocked) {
    OpenPool pool(1);
    WorkLog log;
    FailOnce failure(SystemCall::MutexLock, EINVAL, pool.WorkMutex(), 1);  // the first is AddWork's
    pool.AddWork(new LoggedWork(log));
    EXPECT_TRUE(AllDeleted(log, 1));
    EXPECT_TRUE(failure.HasFailed());
}

TEST(KvconThreadPoolFaultTest, FinishedWorkStaysListedWhenTheQueueCannotBeLockedAndIsDeletedAllTheSame) {
    OpenPool pool(1);
    WorkLog log;
    std::optional<FailOnce> failure;
    pool.AddWork(
        new LoggedWork(log, [&] { failure.emplace(SystemCall::MutexLock, EINVAL, pool.WorkMutex()); }));
    EXPECT_TRUE(AllDeleted(log, 1));
    EXPECT_EQ(pool.RunningTasks(), 1U);
    pool.AddWork(new LoggedWork(log));  // the same worker overwrites the entry and takes it out
    EXPECT_TRUE(AllDeleted(log, 2));
    EXPECT_EQ(pool.RunningTasks(), 0U);
}

}  // namespace
