#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "AcceptedLockKit.h"
#include "AcceptedPoolKit.h"
#include "Eventually.h"
#include "Kvobject.h"

namespace {

using acceptedlock::ThrownBy;
using acceptedpool::OpenPool;
using acceptedpool::Substitute;
using acceptedpool::Work;
using kvtest::Eventually;
using Entries = std::vector<std::string>;

constexpr const char* kSource = "../src/KvconThreadPool";

class AcceptedPool : public acceptedpool::PoolTest {};

TEST_F(AcceptedPool, IsEmptyAtFirst) {
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_TRUE(pool.m_runningTasks.empty());
    EXPECT_TRUE(pool.m_threads.empty());
    EXPECT_EQ(pool.m_maxThreads, 0U);
    EXPECT_FALSE(pool.m_bStopping);
    EXPECT_EQ(pool.RunningSize(), 0U);
}

TEST_F(AcceptedPool, HasTwoFreeLocksOfItsOwn) {
    ASSERT_NE(pool.m_pWorkLock, pool.m_pThreadLock);
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pWorkLock), 0);
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pThreadLock), 0);
}

TEST_F(AcceptedPool, HasAManualResetEventThatIsNotSignaled) {
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 17);
    pool.m_pWorkEvent->Broadcast();
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 16);
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 16);
}

TEST_F(AcceptedPool, ItsMembersStandInTheirOrderAndThereIsNoOther) {
    struct Members {
        virtual ~Members() = default;
        std::list<KvconDelegate*> queue;
        std::map<unsigned long, KvconDelegate*> running;
        std::list<unsigned long> threads;
        unsigned int maximum;
        bool stopping;
        void* pointers[3];
    };
    const void* order[] = {&pool.m_workQueue, &pool.m_runningTasks, &pool.m_threads,     &pool.m_maxThreads,
                           &pool.m_bStopping, &pool.m_pWorkLock,    &pool.m_pThreadLock, &pool.m_pWorkEvent};
    for (int i = 1; i < 8; ++i) {
        EXPECT_LT(order[i - 1], order[i]) << i;
    }
    EXPECT_EQ(sizeof(KvconThreadPool), sizeof(Members));
    EXPECT_TRUE((std::is_base_of_v<Kvobject, KvconThreadPool>));
}

TEST_F(AcceptedPool, InitializeStoresTheMaximumAndStartsNobody) {
    pool.Initialize(7);
    EXPECT_EQ(pool.m_maxThreads, 7U);
    EXPECT_EQ(pool.RunningSize(), 0U);
}

class AcceptedPoolSignal : public acceptedpool::PoolTest, public testing::WithParamInterface<int> {};

TEST_P(AcceptedPoolSignal, InitializeInstallsTheHandlerThatEndsAThread) {
    struct sigaction none = {};
    none.sa_handler = SIG_DFL;
    sigaction(GetParam(), &none, nullptr);
    pool.Initialize(1);
    struct sigaction installed = {};
    sigaction(GetParam(), nullptr, &installed);
    EXPECT_EQ(installed.sa_handler, &KvconThreadPool::EndThreadHandler);
    EXPECT_EQ(installed.sa_flags & (SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_ONSTACK), 0);
    for (int signal = 1; signal < 32; ++signal) {
        EXPECT_EQ(sigismember(&installed.sa_mask, signal), 0) << signal;
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, AcceptedPoolSignal, testing::Values(SIGQUIT, SIGTERM),
                         [](const auto& test) { return test.param == SIGQUIT ? "Quit" : "Term"; });

TEST_F(AcceptedPool, TheHandlerEndsTheThreadThatRunsIt) {
    bool survived = false;
    pthread_t thread = {};
    auto body = [](void* flag) -> void* {
        KvconThreadPool::EndThreadHandler(SIGQUIT);
        *static_cast<bool*>(flag) = true;
        return flag;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &survived), 0);
    void* result = &survived;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_FALSE(survived);
    EXPECT_EQ(result, nullptr);
}

// ---- running ----

TEST_F(AcceptedPool, RunsAWorkWithItsUserDataAndDeletesIt) {
    pool.Initialize(1);
    void* received = nullptr;
    Work* work = nullptr;
    work = NewWork("a", [&] { received = work->received(); });
    int data = 0;
    work->SetUserData(&data);
    pool.AddWork(work);
    EXPECT_TRUE(diary.Has("delete a"));
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "end a", "delete a"}));
    EXPECT_EQ(received, &data);
}

TEST_F(AcceptedPool, RunsAndDeletesAWorkOnTheWorker) {
    pool.Initialize(1);
    unsigned long worker = 0;
    pool.AddWork(NewWork("a"), worker);
    ASSERT_TRUE(diary.Has("delete a"));
    EXPECT_NE(worker, 0U);
    EXPECT_EQ(diary.ThreadOf("begin a"), worker);
    EXPECT_EQ(diary.ThreadOf("delete a"), worker);
}

TEST_F(AcceptedPool, RunsFirstInFirstOut) {
    pool.Initialize(1);
    RunBusy("busy");
    for (const char* name : {"a", "b", "c", "d"}) {
        pool.AddWork(NewWork(name));
    }
    release.Open();
    ASSERT_TRUE(diary.Has("delete d"));
    EXPECT_EQ(diary.EntriesBehind("begin "), (Entries{"busy", "a", "b", "c", "d"}));
}

TEST_F(AcceptedPool, DeletesAWorkBeforeTheWorkerTakesTheNext) {
    pool.Initialize(1);
    RunBusy("a");
    pool.AddWork(NewWork("b"));
    release.Open();
    ASSERT_TRUE(diary.Has("delete b"));
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "end a", "delete a", "begin b", "end b", "delete b"}));
}

TEST_F(AcceptedPool, HoldsNoLockWhileAWorkRuns) {
    pool.Initialize(1);
    RunBusy("a");
    EXPECT_EQ(pool.m_pWorkLock->TryLock(), 0);
    EXPECT_EQ(pool.m_pThreadLock->TryLock(), 0);
    pool.m_pThreadLock->Unlock();
    pool.m_pWorkLock->Unlock();
}

TEST_F(AcceptedPool, AWorkMayAddWork) {
    pool.Initialize(1);
    pool.AddWork(NewWork("a", [this] { pool.AddWork(NewWork("b")); }));
    EXPECT_TRUE(diary.Has("delete b"));
}

TEST_F(AcceptedPool, AnIdleWorkerTakesLaterWork) {
    pool.Initialize(1);
    for (const char* name : {"a", "b", "c"}) {
        pool.AddWork(NewWork(name));
        ASSERT_TRUE(diary.Has(std::string("delete ") + name));
    }
    EXPECT_EQ(pool.RunningSize(), 1U);
    EXPECT_EQ(diary.ThreadOf("begin a"), diary.ThreadOf("begin c"));
}

TEST_F(AcceptedPool, AWorkerThatFindsNothingResetsTheEvent) {
    pool.Initialize(1);
    pool.AddWork(NewWork("a"));
    ASSERT_TRUE(diary.Has("delete a"));
    EXPECT_TRUE(Eventually([&] { return pool.m_pWorkEvent->Wait(0) == 17; }));
    pool.m_pWorkEvent->Broadcast();
    EXPECT_TRUE(Eventually([&] { return pool.m_pWorkEvent->Wait(0) == 17; }));
}

TEST_F(AcceptedPool, ARunningWorkStandsUnderItsWorkersIdUntilItHasEnded) {
    pool.Initialize(1);
    Work* work = RunBusy("a");
    ASSERT_EQ(pool.m_runningTasks.size(), 1U);
    EXPECT_EQ(pool.m_runningTasks.begin()->first, diary.ThreadOf("begin a"));
    EXPECT_EQ(pool.m_runningTasks.begin()->second, work);
    EXPECT_TRUE(pool.m_workQueue.empty());
    release.Open();
    ASSERT_TRUE(diary.Has("delete a"));
    EXPECT_TRUE(pool.m_runningTasks.empty());
}

TEST_F(AcceptedPool, ANullEntryOfTheQueueIsPassedOver) {
    pool.m_workQueue.push_back(nullptr);
    pool.Initialize(1);
    pool.AddWork(NewWork("a"));
    EXPECT_TRUE(diary.Has("delete a"));
}

// The loop of a worker on the thread of the test: it leaves when the pool stops.
TEST_F(AcceptedPool, TheBodyOfAWorkerRunsWhatIsQueuedAndAnswersNull) {
    pool.AddWork(NewWork("a"));
    pool.AddWork(NewWork("b", [this] { pool.m_bStopping = true; }));
    EXPECT_EQ(KvconThreadPool::ThreadWork(&pool), nullptr);
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "end a", "delete a", "begin b", "end b", "delete b"}));
}

TEST_F(AcceptedPool, TheBodyOfAWorkerLeavesWithoutWorkingWhenThePoolStops) {
    pool.AddWork(NewWork("a"));
    pool.m_bStopping = true;
    EXPECT_EQ(KvconThreadPool::ThreadWork(&pool), nullptr);
    EXPECT_TRUE(diary.Entries().empty());
}

TEST_F(AcceptedPool, TheBodyOfAWorkerTakesEveryEntryOfItsIdOutOfTheList) {
    pool.m_threads = {GetMyThreadID(), 1, GetMyThreadID()};
    pool.m_bStopping = true;
    pool.m_pWorkEvent->Broadcast();
    KvconThreadPool::ThreadWork(&pool);
    EXPECT_EQ(pool.m_threads, std::list<unsigned long>{1});
    pool.m_threads.clear();
}

TEST_F(AcceptedPool, AWorkerThatCannotLockTheListLeavesItsIdThere) {
    pool.m_threads = {GetMyThreadID()};
    pool.m_bStopping = true;
    pool.m_pWorkEvent->Broadcast();
    {
        const Substitute substitute(pool.m_pThreadLock);
        EXPECT_EQ(KvconThreadPool::ThreadWork(&pool), nullptr);
    }
    EXPECT_EQ(pool.m_threads, std::list<unsigned long>{GetMyThreadID()});
    pool.m_threads.clear();
}

/// Leaves the pool without its work lock after it has run, until it is deleted; then the pool stops.
class LockTaker : public Work {
public:
    LockTaker(acceptedpool::Diary& diary, OpenPool& pool)
        : Work(diary, "taker", [this] { m_taken = std::make_unique<Substitute>(m_pool.m_pWorkLock); }),
          m_pool(pool) {}
    ~LockTaker() override {
        m_taken.reset();
        m_pool.m_bStopping = true;
    }

private:
    OpenPool& m_pool;
    std::unique_ptr<Substitute> m_taken;
};

TEST_F(AcceptedPool, AWorkerThatCannotLockTheQueueLeavesTheEntryOfItsWork) {
    pool.AddWork(new LockTaker(diary, pool));
    KvconThreadPool::ThreadWork(&pool);
    EXPECT_EQ(diary.Entries(), (Entries{"begin taker", "end taker", "delete taker"}));
    EXPECT_EQ(pool.m_runningTasks.count(GetMyThreadID()), 1U);
    pool.m_runningTasks.clear();
}

// ---- growth ----

TEST_F(AcceptedPool, MakesOneWorkerPerCallUpToTheMaximum) {
    pool.Initialize(3);
    std::vector<unsigned long> made;
    for (const char* name : {"a", "b", "c", "d", "e"}) {
        unsigned long id = 1;
        pool.AddWork(NewBusyWork(name), id);
        made.push_back(id);
    }
    EXPECT_TRUE(made[0] != 0 && made[1] != 0 && made[2] != 0);
    EXPECT_EQ((std::set<unsigned long>(made.begin(), made.begin() + 3).size()), 3U);
    EXPECT_EQ(made[3], 0U);
    EXPECT_EQ(made[4], 0U);
    EXPECT_EQ(pool.RunningSize(), 3U);
    EXPECT_TRUE(diary.HasBeginning("begin ", 3));
    EXPECT_EQ(pool.m_threads, std::list<unsigned long>(made.begin(), made.begin() + 3));
}

TEST_F(AcceptedPool, RunsAsManyWorksAtOnceAsThereAreWorkers) {
    pool.Initialize(2);
    RunBusy("a");
    RunBusy("b");
    pool.AddWork(NewBusyWork("c"));
    EXPECT_FALSE(diary.Has("begin c", 1, std::chrono::milliseconds(200)));
    release.Open();
    EXPECT_TRUE(diary.Has("delete c"));
}

TEST_F(AcceptedPool, MakesAWorkerEvenWhenAnotherOneIsIdle) {
    pool.Initialize(2);
    pool.AddWork(NewWork("a"));
    ASSERT_TRUE(diary.Has("delete a"));
    unsigned long id = 0;
    pool.AddWork(NewWork("b"), id);
    EXPECT_NE(id, 0U);
    EXPECT_EQ(pool.RunningSize(), 2U);
    EXPECT_TRUE(diary.Has("delete b"));
}

TEST_F(AcceptedPool, WithoutAMaximumQueuesAndNeverRuns) {
    unsigned long id = 99;
    pool.AddWork(NewWork("a"), id);
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 16);
    EXPECT_FALSE(diary.Has("begin a", 1, std::chrono::milliseconds(100)));
}

TEST_F(AcceptedPool, WithAMaximumOfZeroQueuesAndNeverRuns) {
    pool.Initialize(0);
    pool.AddWork(NewWork("a"));
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_FALSE(diary.Has("begin a", 1, std::chrono::milliseconds(100)));
}

TEST_F(AcceptedPool, RunsOldWorkFirstOnceAWorkerMayBeMade) {
    pool.AddWork(NewWork("old"));
    pool.Initialize(1);
    pool.AddWork(NewWork("new"));
    ASSERT_TRUE(diary.Has("delete new"));
    EXPECT_EQ(diary.EntriesBehind("begin "), (Entries{"old", "new"}));
}

// ---- what AddWork refuses ----

TEST_F(AcceptedPool, RefusesNull) {
    unsigned long id = 99;
    KvconException failure = ThrownBy([&] { pool.AddWork(nullptr, id); });
    EXPECT_EQ(failure.GetMsg(), "Empty Thread Pool Work Failed");
    EXPECT_EQ(failure.GetFile(), kSource);
    EXPECT_EQ(failure.GetLine(), 190);
    EXPECT_EQ(failure.GetSysMsg(), "");
    EXPECT_EQ(failure.GetThreadID(), GetMyThreadID());
    EXPECT_EQ(id, 0U);
}

TEST_F(AcceptedPool, RefusesNullInTheShortForm) {
    EXPECT_EQ(ThrownBy([&] { pool.AddWork(nullptr); }).GetLine(), 190);
}

TEST_F(AcceptedPool, RefusesWorkWhenItIsStoppingAndLeavesItToTheCaller) {
    pool.Stop(0);
    Work work(diary, "a");
    unsigned long id = 99;
    KvconException failure = ThrownBy([&] { pool.AddWork(&work, id); });
    EXPECT_EQ(failure.GetMsg(), "Thread Pool Is Stopping");
    EXPECT_EQ(failure.GetFile(), kSource);
    EXPECT_EQ(failure.GetLine(), 202);
    EXPECT_EQ(failure.GetSysMsg(), "");
    EXPECT_EQ(failure.GetThreadID(), GetMyThreadID());
    EXPECT_EQ(id, 0U);
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_TRUE(diary.Entries().empty());
}

TEST_F(AcceptedPool, RefusingWorkLeavesTheLockFree) {
    pool.m_bStopping = true;
    Work work(diary, "a");
    ThrownBy([&] { pool.AddWork(&work); });
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pWorkLock), 0);
    pool.m_bStopping = false;
}

/// While it lives, no thread can be made: the default stack is larger than any gap of the address space, also
/// of one of 32 bits.
class NoThreadCanBeMade {
public:
    NoThreadCanBeMade() {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, static_cast<std::size_t>(-1) / 4 * 3);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreadCanBeMade() {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    NoThreadCanBeMade(const NoThreadCanBeMade&) = delete;
    NoThreadCanBeMade& operator=(const NoThreadCanBeMade&) = delete;

private:
    pthread_attr_t m_before;
};

TEST_F(AcceptedPool, ThrowsWhenNoThreadCanBeMadeAndKeepsTheWorkQueued) {
    pool.Initialize(1);
    Work* work = NewWork("a");
    unsigned long id = 99;
    KvconException failure = ThrownBy([&] {
        const NoThreadCanBeMade none;
        pool.AddWork(work, id);
    });
    EXPECT_EQ(failure.GetMsg(), "Create Thread Failed");
    EXPECT_EQ(failure.GetFile(), kSource);
    EXPECT_EQ(failure.GetLine(), 241);
    EXPECT_EQ(failure.GetThreadID(), GetMyThreadID());
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(pool.m_workQueue, std::list<KvconDelegate*>{work});
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pThreadLock), 0);
}

}  // namespace
