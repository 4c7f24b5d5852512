#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "AcceptedPoolKit.h"
#include "Eventually.h"

namespace {

using acceptedpool::Work;
using kvtest::Eventually;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Entries = std::vector<std::string>;

// An idle worker's own end after 30 s is not waited for here: that would cost half a minute a test.
class AcceptedPoolStop : public acceptedpool::PoolTest {
protected:
    /// A work that never ends by itself, in a call at which its thread can be ended.
    Work* NewStuckWork(const std::string& name) {
        return NewWork(name, [] {
            for (;;) {
                pause();
            }
        });
    }
    unsigned long RunStuck(const std::string& name) {
        unsigned long id = 0;
        pool.AddWork(NewStuckWork(name), id);
        EXPECT_TRUE(diary.Has("begin " + name));
        return id;
    }

    /// Stops the pool; how long that took, and what it wrote to the standard output.
    std::chrono::milliseconds Stop(int timeoutMs) {
        testing::internal::CaptureStdout();
        const Clock::time_point start = Clock::now();
        pool.Stop(timeoutMs);
        const Clock::duration taken = Clock::now() - start;
        m_output = testing::internal::GetCapturedStdout();
        return std::chrono::duration_cast<std::chrono::milliseconds>(taken);
    }

    std::string m_output;
};

std::string KillLine(unsigned long id) {
    return "Kill thread [" + std::to_string(static_cast<int>(id)) + "]";
}

TEST_F(AcceptedPoolStop, OfAnEmptyPoolTakesHalfASecond) {
    const auto taken = Stop(60000);
    EXPECT_GE(taken, 500ms);
    EXPECT_LT(taken, 5s);
    EXPECT_TRUE(pool.m_bStopping);
    EXPECT_EQ(m_output, "");
}

TEST_F(AcceptedPoolStop, DeletesWhatWaitsWithoutRunningIt) {
    for (const char* name : {"a", "b", "c"}) {
        pool.AddWork(NewWork(name));
    }
    Stop(0);
    EXPECT_EQ(diary.Entries(), (Entries{"delete a", "delete b", "delete c"}));
    EXPECT_TRUE(pool.m_workQueue.empty());
}

TEST_F(AcceptedPoolStop, UnlinksNullEntries) {
    pool.m_workQueue = {nullptr, NewWork("a"), nullptr};
    Stop(0);
    EXPECT_TRUE(pool.m_workQueue.empty());
    EXPECT_EQ(diary.Entries(), Entries{"delete a"});
}

TEST_F(AcceptedPoolStop, EndsIdleWorkersWithoutAGrace) {
    pool.Initialize(3);
    std::vector<unsigned long> ids(3);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        pool.AddWork(NewWork(std::to_string(i)), ids[i]);
        ASSERT_TRUE(diary.Has("delete " + std::to_string(i)));
    }
    EXPECT_LT(Stop(60000), 10s);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(m_output, "");
    for (const unsigned long id : ids) {
        EXPECT_FALSE(pool.IsThreadRunning(id));
    }
}

TEST_F(AcceptedPoolStop, DoesNotAskRunningWorkToStop) {
    pool.Initialize(1);
    RunBusy("a");
    std::thread opener([this] {
        Eventually([this] { return pool.RunningSize() == 0; });
        release.Open();
    });
    Stop(1500);
    opener.join();
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "end a", "delete a"}));
}

TEST_F(AcceptedPoolStop, SleepsTheWholeGraceForAWorkerThatWasAlive) {
    pool.Initialize(1);
    RunBusy("a");
    std::thread opener([this] {
        Eventually([this] { return pool.RunningSize() == 0; });
        release.Open();
    });
    const auto taken = Stop(1200);
    opener.join();
    EXPECT_GE(taken, 1700ms);
    EXPECT_LT(taken, 10s);
    EXPECT_EQ(m_output, "");
    EXPECT_EQ(diary.Count("end a"), 1);
}

TEST_F(AcceptedPoolStop, DividesTheTimeAmongTheWorkers) {
    pool.Initialize(4);
    for (const char* name : {"a", "b", "c", "d"}) {
        RunBusy(name);
    }
    // All of them end during the first one's share, a quarter of the time.
    std::thread opener([this] {
        Eventually([this] { return pool.RunningSize() == 0; });
        release.Open();
    });
    const auto taken = Stop(8000);
    opener.join();
    EXPECT_GE(taken, 2500ms);
    EXPECT_LT(taken, 6500ms);
    EXPECT_EQ(m_output, "");
    EXPECT_EQ(diary.EntriesBehind("end ").size(), 4U);
}

TEST_F(AcceptedPoolStop, KillsAWorkerThatOutlivesItsGrace) {
    pool.Initialize(1);
    const unsigned long id = RunStuck("a");
    const auto taken = Stop(300);
    EXPECT_GE(taken, 800ms);
    EXPECT_EQ(m_output, KillLine(id));
    EXPECT_TRUE(Eventually([&] { return !pool.IsThreadRunning(id); }));
    EXPECT_EQ(diary.Count("end a"), 0);
}

TEST_F(AcceptedPoolStop, DeletesTheWorkOfAKilledWorker) {
    pool.Initialize(1);
    RunStuck("a");
    Stop(0);
    EXPECT_TRUE(diary.Has("delete a"));
}

TEST_F(AcceptedPoolStop, GivesEveryWorkerAtLeastATenthOfASecond) {
    pool.Initialize(4);
    std::string expected;
    for (const char* name : {"a", "b", "c", "d"}) {
        expected += KillLine(RunStuck(name));
    }
    const auto taken = Stop(200);
    EXPECT_GE(taken, 900ms);
    EXPECT_LT(taken, 20s);
    EXPECT_EQ(m_output, expected);
}

TEST_F(AcceptedPoolStop, SparesTheWorkersThatEndInTime) {
    pool.Initialize(2);
    RunBusy("busy");
    const unsigned long stuck = RunStuck("stuck");
    std::thread opener([this] {
        Eventually([this] { return pool.RunningSize() == 0; });
        release.Open();
    });
    Stop(2000);
    opener.join();
    EXPECT_EQ(m_output, KillLine(stuck));
    EXPECT_EQ(diary.Count("end busy"), 1);
}

TEST_F(AcceptedPoolStop, LetsTheStopHooksEndTheWorkInTime) {
    pool.Initialize(1);
    class Stoppable : public Work {
    public:
        Stoppable(acceptedpool::Diary& notes, acceptedpool::Barrier& stop)
            : Work(notes, "a", [&stop] { stop.Await(); }), m_stop(stop) {}
        void StopWork() override { m_stop.Open(); }

    private:
        acceptedpool::Barrier& m_stop;
    };
    pool.AddWork(new Stoppable(diary, release));
    ASSERT_TRUE(diary.Has("begin a"));
    EXPECT_EQ(pool.StopTasks(), 0);
    EXPECT_LT(Stop(60000), 30s);
    EXPECT_EQ(m_output, "");
    EXPECT_EQ(diary.Entries(), (Entries{"begin a", "end a", "delete a"}));
}

TEST_F(AcceptedPoolStop, MayBeAskedForAgain) {
    pool.Initialize(1);
    pool.AddWork(NewWork("a"));
    Stop(0);
    Stop(0);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_TRUE(pool.m_bStopping);
}

TEST_F(AcceptedPoolStop, ForgetsIdsOfThreadsThatAreGone) {
    // Not the id of any thread of this library: it counts as ended, so that no grace is slept for it.
    pool.m_threads = {static_cast<unsigned long>(-1)};
    EXPECT_LT(Stop(20000), 10s);
    EXPECT_TRUE(pool.m_threads.empty());
    EXPECT_EQ(m_output, "");
}

}  // namespace
