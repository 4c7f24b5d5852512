#include "KvconThreadPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "src/ThreadDoubles.h"

namespace {

using kvtest::AllDeleted;
using kvtest::CaughtFrom;
using kvtest::Eventually;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::TidyPool;
using kvtest::WorkLog;

/// Work that has started and holds its worker until the end of the test.
class HeldWork {
public:
    explicit HeldWork(TidyPool& pool) : work(new LoggedWork(log, [this] { Hold(); })) {
        worker = pool.Add(work);
        EXPECT_TRUE(m_started.Wait());
    }
    ~HeldWork() { LetGo(); }
    HeldWork(const HeldWork&) = delete;
    HeldWork& operator=(const HeldWork&) = delete;

    void LetGo() {
        m_goOn.Open();
        EXPECT_TRUE(AllDeleted(log, 1));
    }

    WorkLog log;
    LoggedWork* const work;
    unsigned long worker = 0;

private:
    void Hold() {
        m_started.Open();
        m_goOn.Wait();
    }
    Latch m_started;
    Latch m_goOn;
};

TEST(KvconThreadPoolTest, FiveQuickCallsWithAMaximumOfThreeMakeThreeWorkers) {
    TidyPool pool(3);
    Latch goOn;
    WorkLog log;
    std::vector<unsigned long> ids;
    for (int i = 0; i < 5; ++i) {
        ids.push_back(pool.Add(new LoggedWork(log, [&] { goOn.Wait(); })));
    }
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 0UL), 2);
    EXPECT_EQ(ids[3], 0UL);
    EXPECT_EQ(ids[4], 0UL);
    EXPECT_EQ(std::set<unsigned long>(ids.begin(), ids.begin() + 3).size(), 3U);
    EXPECT_EQ(pool.RunningSize(), 3U);
    goOn.Open();
    EXPECT_TRUE(AllDeleted(log, 5));
    EXPECT_EQ(log.finished, 5);
}

TEST(KvconThreadPoolTest, OneWorkerIsMadePerCallEvenWhenAnotherIsIdle) {
    TidyPool pool(2);
    WorkLog log;
    EXPECT_NE(pool.Add(new LoggedWork(log)), 0UL);
    ASSERT_TRUE(AllDeleted(log, 1));
    EXPECT_NE(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_EQ(pool.RunningSize(), 2U);
    EXPECT_TRUE(AllDeleted(log, 2));
}

TEST(KvconThreadPoolTest, MaximumOfZeroQueuesWorkThatNeverRuns) {
    TidyPool pool(0);
    WorkLog log;
    EXPECT_EQ(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_EQ(pool.RunningSize(), 0U);
    pool.SendWorkersHome();
    EXPECT_EQ(log.started, 0);
    EXPECT_EQ(log.deleted, 1);
}

TEST(KvconThreadPoolTest, PoolThatWasNeverInitializedMakesNoWorker) {
    TidyPool pool;
    WorkLog log;
    EXPECT_EQ(pool.Add(new LoggedWork(log)), 0UL);
    EXPECT_EQ(pool.RunningSize(), 0U);
}

TEST(KvconThreadPoolTest, InitializationStartsNoThread) {
    TidyPool pool(3);
    EXPECT_EQ(pool.RunningSize(), 0U);
}

TEST(KvconThreadPoolTest, InitializationInstallsTheEndHandlerWithAnEmptyMaskAndNoFlags) {
    TidyPool pool(1);
    for (const int signal : {SIGQUIT, SIGTERM}) {
        struct sigaction installed {};
        sigaction(signal, nullptr, &installed);
        EXPECT_EQ(installed.sa_handler, KvconThreadPool::EndThreadHandler);
        EXPECT_FALSE(kvtest::HasFlags(installed));
        EXPECT_EQ(sigismember(&installed.sa_mask, SIGUSR1), 0);
    }
}

TEST(KvconThreadPoolTest, InitializationLeavesTheSuspendSignalsAlone) {
    struct sigaction before {};
    sigaction(SIGUSR1, nullptr, &before);
    TidyPool pool(1);
    struct sigaction after {};
    sigaction(SIGUSR1, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST(KvconThreadPoolTest, WorkRunsFirstInFirstOut) {
    TidyPool pool(1);
    std::vector<int> order;
    WorkLog log;
    {
        HeldWork holdsTheWorker(pool);
        for (int i = 0; i < 20; ++i) {
            pool.Add(new LoggedWork(log, [&order, i] { order.push_back(i); }));
        }
    }
    ASSERT_TRUE(AllDeleted(log, 20));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(order.size(), 20U);
}

TEST(KvconThreadPoolTest, WorkGetsItsUserData) {
    class ShowingWork : public KvconDelegate {
    public:
        explicit ShowingWork(std::atomic<void*>& seen) : m_seen(seen) {}
        void* DoWork(void* userData) override {
            m_seen = userData;
            return nullptr;
        }
        std::atomic<void*>& m_seen;
    };
    TidyPool pool(1);
    std::atomic<void*> seen{nullptr};
    int data = 0;
    auto work = std::make_unique<ShowingWork>(seen);
    work->SetUserData(&data);
    pool.AddWork(work.release());
    EXPECT_TRUE(Eventually([&] { return seen == &data; }));
}

TEST(KvconThreadPoolTest, WorkIsDeletedAfterItHasRun) {
    TidyPool pool(1);
    HeldWork held(pool);
    EXPECT_EQ(held.log.deleted, 0);
    held.LetGo();
    EXPECT_EQ(held.log.finished, 1);
}

TEST(KvconThreadPoolTest, WorkerServesManyWorkObjects) {
    TidyPool pool(1);
    WorkLog log;
    for (int i = 0; i < 200; ++i) {
        pool.AddWork(new LoggedWork(log));
    }
    EXPECT_TRUE(AllDeleted(log, 200));
    EXPECT_EQ(pool.RunningSize(), 1U);
}

TEST(KvconThreadPoolTest, IdleWorkerIsWokenByNewWork) {
    TidyPool pool(1);
    WorkLog log;
    for (int i = 1; i <= 50; ++i) {
        pool.AddWork(new LoggedWork(log));
        ASSERT_TRUE(AllDeleted(log, i));
    }
}

TEST(KvconThreadPoolTest, NullWorkThrowsAndClearsTheId) {
    TidyPool pool(1);
    unsigned long newThreadId = 4711;
    KvconException exception = CaughtFrom([&] { pool.AddWork(nullptr, newThreadId); });
    EXPECT_EQ(exception.GetMsg(), "Empty Thread Pool Work Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThreadPool");
    EXPECT_EQ(exception.GetLine(), 190);
    EXPECT_EQ(exception.GetSysMsg(), "");
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
    EXPECT_EQ(newThreadId, 0UL);
}

TEST(KvconThreadPoolTest, ThrowingWorkIsDeletedAndItsWorkerLivesOn) {
    TidyPool pool(1);
    WorkLog log;
    std::atomic<unsigned long> ranOn{0};
    const unsigned long worker = pool.Add(new LoggedWork(log, [] { throw std::runtime_error("foreign"); }));
    pool.Add(new kvtest::ShieldedLoggedWork(log, [] { throw 1; }));
    pool.Add(new LoggedWork(log, [&] { ranOn = pthread_self(); }));
    ASSERT_TRUE(AllDeleted(log, 3));
    EXPECT_EQ(log.finished, 1);
    EXPECT_EQ(ranOn, worker);
}

TEST(KvconThreadPoolTest, HooksOfARunningWorkObjectAreCalled) {
    TidyPool pool(1);
    HeldWork held(pool);
    EXPECT_TRUE(pool.PauseTask(held.work));
    EXPECT_TRUE(pool.ResumeTask(held.work));
    EXPECT_TRUE(pool.StopTask(held.work));
    EXPECT_EQ(held.log.pauses, 1);
    EXPECT_EQ(held.log.resumes, 1);
    EXPECT_EQ(held.log.stops, 1);
}

TEST(KvconThreadPoolTest, HooksOfAWaitingWorkObjectAreNotCalled) {
    TidyPool pool(0);
    WorkLog log;
    auto* const waiting = new LoggedWork(log);
    pool.AddWork(waiting);
    EXPECT_FALSE(pool.StopTask(waiting));
    EXPECT_FALSE(pool.PauseTask(waiting));
    EXPECT_FALSE(pool.ResumeTask(waiting));
    EXPECT_EQ(log.stops + log.pauses + log.resumes, 0);
}

TEST(KvconThreadPoolTest, HookOfOneWorkObjectLeavesTheOthersAlone) {
    TidyPool pool(2);
    HeldWork one(pool);
    HeldWork other(pool);
    EXPECT_TRUE(pool.StopTask(other.work));
    EXPECT_EQ(one.log.stops, 0);
    EXPECT_EQ(other.log.stops, 1);
}

TEST(KvconThreadPoolTest, FinishedWorkIsNoLongerFound) {
    TidyPool pool(1);
    HeldWork held(pool);
    held.LetGo();
    EXPECT_FALSE(pool.StopTask(held.work));
}

TEST(KvconThreadPoolTest, HooksForAllReachEveryRunningWorkObjectAndNoWaitingOne) {
    TidyPool pool(2);
    WorkLog waiting;
    {
        HeldWork one(pool);
        HeldWork other(pool);
        pool.AddWork(new LoggedWork(waiting));
        EXPECT_EQ(pool.StopTasks(), 0);
        EXPECT_EQ(pool.PauseTasks(), 0);
        EXPECT_EQ(pool.PauseTasks(), 0);
        EXPECT_EQ(pool.ResumeTasks(), 0);
        for (const HeldWork* work : {&one, &other}) {
            EXPECT_EQ(work->log.stops, 1);
            EXPECT_EQ(work->log.pauses, 2);
            EXPECT_EQ(work->log.resumes, 1);
        }
    }
    EXPECT_TRUE(AllDeleted(waiting, 1));
    EXPECT_EQ(waiting.stops + waiting.pauses + waiting.resumes, 0);
}

TEST(KvconThreadPoolTest, HooksForAllWithoutRunningWorkAnswerZero) {
    TidyPool pool(1);
    EXPECT_EQ(pool.StopTasks(), 0);
    EXPECT_EQ(pool.PauseTasks(), 0);
    EXPECT_EQ(pool.ResumeTasks(), 0);
}

TEST(KvconThreadPoolTest, DeletedWaitingTaskIsUnlinkedAndStaysUndeleted) {
    TidyPool pool(0);
    WorkLog log;
    LoggedWork work(log);
    pool.AddWork(&work);
    EXPECT_TRUE(pool.DeleteTask(&work));
    pool.SendWorkersHome();
    EXPECT_EQ(log.deleted, 0);
    EXPECT_EQ(log.started, 0);
    EXPECT_EQ(log.stops, 0);
}

TEST(KvconThreadPoolTest, DeletedTaskIsUnlinkedFromEveryPlaceInTheQueue) {
    TidyPool pool(0);
    WorkLog log;
    LoggedWork work(log);
    WorkLog other;
    pool.AddWork(&work);
    pool.AddWork(new LoggedWork(other));
    pool.AddWork(&work);
    EXPECT_TRUE(pool.DeleteTask(&work));
    pool.SendWorkersHome();
    EXPECT_EQ(log.deleted, 0);
    EXPECT_EQ(other.deleted, 1);
}

TEST(KvconThreadPoolTest, DeletingARunningTaskStopsIt) {
    TidyPool pool(1);
    HeldWork held(pool);
    EXPECT_TRUE(pool.DeleteTask(held.work));
    EXPECT_EQ(held.log.stops, 1);
    EXPECT_EQ(held.log.deleted, 0);
}

TEST(KvconThreadPoolTest, DeletingAnUnknownTaskAnswersTrue) {
    TidyPool pool(0);
    WorkLog log;
    LoggedWork work(log);
    EXPECT_TRUE(pool.DeleteTask(&work));
}

TEST(KvconThreadPoolTest, DeletingAllTasksStopsTheRunningAndUnlinksTheWaiting) {
    TidyPool pool(1);
    HeldWork held(pool);
    WorkLog log;
    LoggedWork waiting(log);
    pool.AddWork(&waiting);
    EXPECT_EQ(pool.DeleteTasks(), 0);
    EXPECT_EQ(held.log.stops, 1);
    held.LetGo();
    pool.SendWorkersHome();
    EXPECT_EQ(log.started, 0);
    EXPECT_EQ(log.deleted, 0);
}

TEST(KvconThreadPoolTest, RemovedThreadIsForgottenAndAnotherWorkerTakesItsPlace) {
    TidyPool pool(1);
    HeldWork held(pool);
    EXPECT_EQ(pool.RemoveThread(held.worker), held.worker);
    EXPECT_EQ(pool.RunningSize(), 0U);
    {
        HeldWork onTheNewWorker(pool);
        EXPECT_NE(onTheNewWorker.worker, 0UL);
        EXPECT_NE(onTheNewWorker.worker, held.worker);
    }
    held.LetGo();
    pool.SendWorkersHome();
    KvThreadRegistry::WaitUntilGone(held.worker);
}

TEST(KvconThreadPoolTest, RemovalOfAnUnknownThreadAnswersItsIdAndChangesNothing) {
    TidyPool pool(1);
    HeldWork held(pool);
    EXPECT_EQ(pool.RemoveThread(4711), 4711UL);
    EXPECT_EQ(pool.RunningSize(), 1U);
}

TEST(KvconThreadPoolTest, WorkerIsRunningUntilItHasLeft) {
    TidyPool pool(1);
    WorkLog log;
    const unsigned long worker = pool.Add(new LoggedWork(log));
    EXPECT_TRUE(pool.IsThreadRunning(worker));
    pool.SendWorkersHome();
    EXPECT_FALSE(pool.IsThreadRunning(worker));
    EXPECT_FALSE(pool.IsThreadRunning(0));
}

TEST(KvconThreadPoolTest, CallingThreadIsRunning) {
    TidyPool pool;
    EXPECT_TRUE(pool.IsThreadRunning(pthread_self()));
}

TEST(KvconThreadPoolTest, DestructionLeavesWaitingWorkUndeleted) {
    WorkLog log;
    LoggedWork work(log);
    {
        KvconThreadPool pool;
        pool.AddWork(&work);
    }
    EXPECT_EQ(log.started, 0);
    EXPECT_EQ(log.deleted, 0);
}

TEST(KvconThreadPoolTest, WorkMayQueueMoreWork) {
    TidyPool pool(1);
    WorkLog log;
    pool.AddWork(new LoggedWork(log, [&] { pool.AddWork(new LoggedWork(log)); }));
    EXPECT_TRUE(AllDeleted(log, 2));
}

}  // namespace
