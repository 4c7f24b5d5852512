#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "AcceptedLockKit.h"
#include "AcceptedPoolKit.h"
#include "Eventually.h"

namespace {

using acceptedpool::Substitute;
using acceptedpool::Work;
using kvtest::Eventually;
using Entries = std::vector<std::string>;

/// One of the three hooks: how to call it for one work, for all, and what the work then notes.
struct Hook {
    const char* name;
    bool (KvconThreadPool::*one)(KvconDelegate*);
    int (KvconThreadPool::*all)();
};

class AcceptedPoolHook : public acceptedpool::PoolTest, public testing::WithParamInterface<Hook> {
protected:
    bool CallOne(KvconDelegate* work) { return (pool.*GetParam().one)(work); }
    int CallAll() { return (pool.*GetParam().all)(); }
    std::string Note() const { return GetParam().name; }
};

INSTANTIATE_TEST_SUITE_P(
    Hooks, AcceptedPoolHook,
    testing::Values(Hook{"stop", &KvconThreadPool::StopTask, &KvconThreadPool::StopTasks},
                    Hook{"pause", &KvconThreadPool::PauseTask, &KvconThreadPool::PauseTasks},
                    Hook{"resume", &KvconThreadPool::ResumeTask, &KvconThreadPool::ResumeTasks}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(AcceptedPoolHook, OfARunningWorkIsCalledAndAnswersTrue) {
    pool.Initialize(1);
    Work* work = RunBusy("a");
    EXPECT_TRUE(CallOne(work));
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", Note() + " a"}));
}

TEST_P(AcceptedPoolHook, IsCalledOnTheThreadThatAsks) {
    pool.Initialize(1);
    CallOne(RunBusy("a"));
    EXPECT_EQ(diary.ThreadOf(Note() + " a"), GetMyThreadID());
}

TEST_P(AcceptedPoolHook, OfOneWorkLeavesTheOthersAlone) {
    pool.Initialize(3);
    RunBusy("a");
    Work* second = RunBusy("b");
    RunBusy("c");
    EXPECT_TRUE(CallOne(second));
    EXPECT_EQ(diary.EntriesBehind(Note() + " "), Entries{"b"});
}

TEST_P(AcceptedPoolHook, OfAWaitingWorkIsNotCalled) {
    Work* work = NewWork("a");
    pool.AddWork(work);
    EXPECT_FALSE(CallOne(work));
    EXPECT_TRUE(diary.Entries().empty());
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
}

TEST_P(AcceptedPoolHook, OfAStrangerAnswersFalse) {
    Work stranger(diary, "stranger");
    EXPECT_FALSE(CallOne(&stranger));
    EXPECT_TRUE(diary.Entries().empty());
}

TEST_P(AcceptedPoolHook, LeavesTheLocksFree) {
    pool.Initialize(1);
    Work* work = RunBusy("a");
    CallOne(work);
    CallOne(nullptr);
    CallAll();
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pThreadLock), 0);
    EXPECT_EQ(acceptedlock::TryFromAnotherThread(*pool.m_pWorkLock), 0);
}

TEST_P(AcceptedPoolHook, OfAllIsCalledForEveryRunningWorkInTheOrderOfTheWorkersIds) {
    pool.Initialize(3);
    std::vector<std::pair<unsigned long, std::string>> running;
    for (const char* name : {"a", "b", "c"}) {
        RunBusy(name);
        running.emplace_back(diary.ThreadOf(std::string("begin ") + name), name);
    }
    pool.AddWork(NewWork("waiting"));
    EXPECT_EQ(CallAll(), 0);
    std::sort(running.begin(), running.end());
    Entries expected;
    for (const auto& [id, name] : running) {
        expected.push_back(name);
    }
    EXPECT_EQ(diary.EntriesBehind(Note() + " "), expected);
}

TEST_P(AcceptedPoolHook, OfAllAnswersZeroWhenNothingRuns) {
    EXPECT_EQ(CallAll(), 0);
}

TEST_P(AcceptedPoolHook, OfAllLeavesTheQueueAlone) {
    pool.AddWork(NewWork("a"));
    CallAll();
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
    EXPECT_TRUE(diary.Entries().empty());
}

TEST_P(AcceptedPoolHook, WithoutTheThreadLockIsNotCalled) {
    pool.m_runningTasks[1] = NewWork("a");
    {
        const Substitute substitute(pool.m_pThreadLock);
        EXPECT_FALSE(CallOne(pool.m_runningTasks[1]));
        EXPECT_EQ(CallAll(), 2);
    }
    EXPECT_TRUE(diary.Entries().empty());
    delete pool.m_runningTasks[1];
    pool.m_runningTasks.clear();
}

// ---- deletion ----

class AcceptedPoolControl : public acceptedpool::PoolTest {};

TEST_F(AcceptedPoolControl, DeletionOfARunningTaskStopsIt) {
    pool.Initialize(1);
    Work* work = RunBusy("a");
    EXPECT_TRUE(pool.DeleteTask(work));
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "stop a"}));
}

TEST_F(AcceptedPoolControl, DeletionOfARunningTaskLeavesTheQueueAlone) {
    pool.Initialize(1);
    Work* work = RunBusy("a");
    pool.AddWork(NewWork("b"));
    pool.DeleteTask(work);
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
}

TEST_F(AcceptedPoolControl, DeletionOfAWaitingTaskUnlinksItUndeleted) {
    Work work(diary, "a");
    pool.AddWork(&work);
    EXPECT_TRUE(pool.DeleteTask(&work));
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_TRUE(diary.Entries().empty());
}

TEST_F(AcceptedPoolControl, DeletionOfAWaitingTaskKeepsTheOthersInOrder) {
    Work* first = NewWork("a");
    Work second(diary, "b");
    Work* third = NewWork("c");
    for (Work* work : {first, &second, third}) {
        pool.AddWork(work);
    }
    pool.DeleteTask(&second);
    EXPECT_EQ(pool.m_workQueue, (std::list<KvconDelegate*>{first, third}));
}

TEST_F(AcceptedPoolControl, DeletionUnlinksEveryEntryOfATask) {
    Work work(diary, "a");
    Work* other = NewWork("b");
    for (Work* entry : {&work, other, &work}) {
        pool.AddWork(entry);
    }
    EXPECT_TRUE(pool.DeleteTask(&work));
    EXPECT_EQ(pool.m_workQueue, std::list<KvconDelegate*>{other});
}

TEST_F(AcceptedPoolControl, DeletionOfAStrangerAnswersTrue) {
    Work stranger(diary, "stranger");
    Work* queued = NewWork("a");
    pool.AddWork(queued);
    EXPECT_TRUE(pool.DeleteTask(&stranger));
    EXPECT_EQ(pool.m_workQueue, std::list<KvconDelegate*>{queued});
}

TEST_F(AcceptedPoolControl, DeletionOfAllStopsWhatRunsAndUnlinksWhatWaits) {
    pool.Initialize(2);
    RunBusy("a");
    RunBusy("b");
    Work waiting(diary, "c");
    pool.AddWork(&waiting);
    EXPECT_EQ(pool.DeleteTasks(), 0);
    EXPECT_EQ(diary.Count("stop a"), 1);
    EXPECT_EQ(diary.Count("stop b"), 1);
    EXPECT_EQ(diary.Count("stop c"), 0);
    EXPECT_EQ(diary.Count("delete c"), 0);
    EXPECT_TRUE(pool.m_workQueue.empty());
}

TEST_F(AcceptedPoolControl, DeletionOfAllAnswersZeroForAnEmptyPool) {
    EXPECT_EQ(pool.DeleteTasks(), 0);
}

TEST_F(AcceptedPoolControl, AfterDeletionOfAllThePoolGoesOn) {
    pool.Initialize(1);
    pool.DeleteTasks();
    pool.AddWork(NewWork("a"));
    EXPECT_TRUE(diary.Has("delete a"));
}

// ---- workers ----

TEST_F(AcceptedPoolControl, RunningSizeCountsBusyAndIdleWorkers) {
    pool.Initialize(2);
    pool.AddWork(NewWork("idle"));
    ASSERT_TRUE(diary.Has("delete idle"));
    RunBusy("busy");
    EXPECT_EQ(pool.RunningSize(), 2U);
}

TEST_F(AcceptedPoolControl, RemovingAThreadTakesEveryEntryOfItsId) {
    pool.m_threads = {5, 6, 5};
    EXPECT_EQ(pool.RemoveThread(5), 5U);
    EXPECT_EQ(pool.m_threads, std::list<unsigned long>{6});
    pool.m_threads.clear();
}

TEST_F(AcceptedPoolControl, RemovingAnUnknownThreadAnswersItsId) {
    pool.m_threads = {6};
    EXPECT_EQ(pool.RemoveThread(5), 5U);
    EXPECT_EQ(pool.RunningSize(), 1U);
    pool.m_threads.clear();
}

TEST_F(AcceptedPoolControl, AWorkerIsRunningUntilItHasEnded) {
    pool.Initialize(1);
    unsigned long id = 0;
    pool.AddWork(NewBusyWork("a"), id);
    EXPECT_TRUE(pool.IsThreadRunning(id));
    release.Open();
    pool.Stop(10000);
    EXPECT_TRUE(Eventually([&] { return !pool.IsThreadRunning(id); }));
}

TEST_F(AcceptedPoolControl, TheCallingThreadIsRunning) {
    EXPECT_TRUE(pool.IsThreadRunning(GetMyThreadID()));
}

TEST_F(AcceptedPoolControl, AnUnknownThreadIsNotRunning) {
    EXPECT_FALSE(pool.IsThreadRunning(static_cast<unsigned long>(-1)));
}

// ---- locks that cannot be taken ----

TEST_F(AcceptedPoolControl, WithoutTheWorkLockWorkIsSilentlyNotAdded) {
    Work work(diary, "a");
    unsigned long id = 99;
    {
        const Substitute substitute(pool.m_pWorkLock);
        EXPECT_NO_THROW(pool.AddWork(&work, id));
    }
    EXPECT_EQ(id, 0U);
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 16);
}

TEST_F(AcceptedPoolControl, WithoutTheThreadLockWorkIsQueuedButNobodyIsMadeOrWoken) {
    pool.Initialize(1);
    unsigned long id = 99;
    {
        const Substitute substitute(pool.m_pThreadLock);
        EXPECT_NO_THROW(pool.AddWork(NewWork("a"), id));
    }
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(pool.m_pWorkEvent->Wait(0), 17);
}

TEST_F(AcceptedPoolControl, WithoutTheWorkLockDeletionFails) {
    Work work(diary, "a");
    pool.AddWork(&work);
    {
        const Substitute substitute(pool.m_pWorkLock);
        EXPECT_FALSE(pool.DeleteTask(&work));
        EXPECT_EQ(pool.DeleteTasks(), 2);
    }
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
    pool.DeleteTasks();
}

TEST_F(AcceptedPoolControl, WithoutTheThreadLockDeletionOfAllUnlinksOnly) {
    Work work(diary, "a");
    pool.AddWork(&work);
    pool.m_runningTasks[1] = NewWork("b");
    {
        const Substitute substitute(pool.m_pThreadLock);
        EXPECT_EQ(pool.DeleteTasks(), 0);
    }
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_TRUE(diary.Entries().empty());
    delete pool.m_runningTasks[1];
    pool.m_runningTasks.clear();
}

TEST_F(AcceptedPoolControl, WithoutTheThreadLockThereIsNothingToCountOrRemove) {
    pool.m_threads = {5};
    {
        const Substitute substitute(pool.m_pThreadLock);
        EXPECT_EQ(pool.RunningSize(), 0U);
        EXPECT_EQ(pool.RemoveThread(5), 0U);
    }
    EXPECT_EQ(pool.m_threads.size(), 1U);
    pool.m_threads.clear();
}

TEST_F(AcceptedPoolControl, WithoutTheWorkLockStopDiscardsNothing) {
    Work work(diary, "a");
    pool.AddWork(&work);
    {
        const Substitute substitute(pool.m_pWorkLock);
        pool.Stop(0);
    }
    EXPECT_EQ(pool.m_workQueue.size(), 1U);
    EXPECT_TRUE(pool.m_bStopping);
    pool.DeleteTasks();
}

TEST_F(AcceptedPoolControl, WithoutTheThreadLockStopLeavesTheWorkersList) {
    pool.m_threads = {5};
    pool.AddWork(NewWork("a"));
    {
        const Substitute substitute(pool.m_pThreadLock);
        pool.Stop(0);
    }
    EXPECT_EQ(pool.m_threads.size(), 1U);
    EXPECT_EQ(diary.Entries(), Entries{"delete a"});
    pool.m_threads.clear();
}

}  // namespace
