#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KvEndSignals.h"
#include "KvconThreadPool.h"
#include "src/ThreadDoubles.h"

// KvconThreadPool::Stop: what it deletes, whom it ends, when it returns. Each call pauses for half a second.

namespace {

using kvtest::CaughtFrom;
using kvtest::Eventually;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::ShieldedLoggedWork;
using kvtest::TidyPool;
using kvtest::WorkLog;

std::string KillLineOf(unsigned long id) {
    return "Kill thread [" + std::to_string(static_cast<int>(id)) + "]";
}

/// Stops the pool; what it wrote to standard output.
std::string OutputOfStop(KvconThreadPool& pool, int timeoutMs) {
    testing::internal::CaptureStdout();
    pool.Stop(timeoutMs);
    return testing::internal::GetCapturedStdout();
}

/// True when the kernel shows the thread asleep.
bool IsAsleep(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(status), {});
    const auto nameEnd = text.rfind(')');
    return nameEnd != std::string::npos && text.compare(nameEnd + 2, 1, "S") == 0;
}

TEST(KvconThreadPoolStopTest, WaitingWorkIsDeletedUnrun) {
    TidyPool pool(0);
    WorkLog log;
    for (int i = 0; i < 3; ++i) {
        pool.AddWork(new LoggedWork(log));
    }
    pool.Stop(0);
    EXPECT_EQ(log.deleted, 3);
    EXPECT_EQ(log.started, 0);
}

TEST(KvconThreadPoolStopTest, WorkIsRefusedAfterwardsAndStaysTheCallers) {
    TidyPool pool(1);
    pool.Stop(0);
    WorkLog log;
    LoggedWork work(log);
    unsigned long newThreadId = 4711;
    KvconException exception = CaughtFrom([&] { pool.AddWork(&work, newThreadId); });
    EXPECT_EQ(exception.GetMsg(), "Thread Pool Is Stopping");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThreadPool");
    EXPECT_EQ(exception.GetLine(), 202);
    EXPECT_EQ(exception.GetSysMsg(), "");
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
    EXPECT_EQ(newThreadId, 0UL);
    EXPECT_EQ(log.deleted, 0);
}

TEST(KvconThreadPoolStopTest, IdleWorkersLeaveByThemselves) {
    TidyPool pool(3);
    WorkLog log;
    std::vector<unsigned long> workers;
    for (int i = 0; i < 3; ++i) {
        workers.push_back(pool.Add(new LoggedWork(log)));
    }
    ASSERT_TRUE(Eventually([&] { return log.deleted == 3; }));
    EXPECT_EQ(OutputOfStop(pool, 60000), "");
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_TRUE(std::none_of(workers.begin(), workers.end(), KvThreadRegistry::IsAlive));
}

TEST(KvconThreadPoolStopTest, HangingForeignWorkIsKilledAfterItsGraceAndDeleted) {
    TidyPool pool(1);
    WorkLog log;
    std::atomic<pid_t> sleeper{0};
    const unsigned long worker = pool.Add(new LoggedWork(log, [&] {
        sleeper = gettid();
        const timespec anHour{3600, 0};
        nanosleep(&anHour, nullptr);
    }));
    ASSERT_TRUE(Eventually([&] { return sleeper != 0 && IsAsleep(sleeper); }));
    EXPECT_EQ(OutputOfStop(pool, 0), KillLineOf(worker));
    EXPECT_EQ(log.finished, 0);
    EXPECT_EQ(log.deleted, 1);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_FALSE(pool.IsThreadRunning(worker));
}

TEST(KvconThreadPoolStopTest, HangingForeignWorkIsKilledAlsoWhereTheHostBlocksTheEndSignals) {
    const kvtest::BlockedSignals blocked({SIGTERM, SIGQUIT});
    TidyPool pool(1);
    WorkLog log;
    Latch hanging;
    pool.AddWork(new LoggedWork(log, [&] { kvtest::HangUntilEnded(hanging); }));
    ASSERT_TRUE(hanging.Wait());
    pool.Stop(0);
    EXPECT_EQ(log.deleted, 1);
}

TEST(KvconThreadPoolStopTest, ShieldedWorkThatHangsInAWaitIsUnwoundBeforeStopReturns) {
    TidyPool pool(1);
    WorkLog log;
    KvconLock lock;
    bool unwound = false;
    Latch hanging;
    struct SlowScope {
        bool& unwound;
        ~SlowScope() {
            const timespec aWhile{0, 150000000};  // an end that takes its time
            nanosleep(&aWhile, nullptr);
            unwound = true;
        }
    };
    std::array<int, 2> silent{};
    ASSERT_EQ(pipe(silent.data()), 0);
    const unsigned long worker = pool.Add(new ShieldedLoggedWork(log, [&] {
        const SlowScope scope{unwound};
        KvconCriticalSection guard(&lock, true, true, false);
        hanging.Open();
        pollfd entry{silent[0], POLLIN, 0};
        KvEndSignals::Poll(&entry, 1, -1);
    }));
    ASSERT_TRUE(hanging.Wait());
    EXPECT_EQ(OutputOfStop(pool, 0), KillLineOf(worker));
    EXPECT_TRUE(unwound);
    EXPECT_EQ(log.finished, 0);
    EXPECT_EQ(log.deleted, 1);
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(lock), 0);
    EXPECT_FALSE(pool.IsThreadRunning(worker));
    EXPECT_EQ(pool.RunningSize(), 0U);
    close(silent[0]);
    close(silent[1]);
}

TEST(KvconThreadPoolStopTest, EndedWorkIsNoLongerAmongTheRunning) {
    TidyPool pool(1);
    WorkLog log;
    Latch hanging;
    auto* const work = new LoggedWork(log, [&] { kvtest::HangUntilEnded(hanging); });
    pool.AddWork(work);
    ASSERT_TRUE(hanging.Wait());
    pool.Stop(0);
    EXPECT_FALSE(pool.StopTask(work));
    EXPECT_EQ(pool.StopTasks(), 0);
    EXPECT_EQ(log.stops, 0);
}

TEST(KvconThreadPoolStopTest, RunningWorkIsNotAskedToStop) {
    TidyPool pool(1);
    WorkLog log;
    Latch hanging;
    pool.AddWork(new LoggedWork(log, [&] { kvtest::HangUntilEnded(hanging); }));
    ASSERT_TRUE(hanging.Wait());
    pool.Stop(0);
    EXPECT_EQ(log.stops, 0);
}

TEST(KvconThreadPoolStopTest, WorkThatObeysItsStopHookEndsByItself) {
    class ObedientWork : public KvconDelegate {
    public:
        explicit ObedientWork(WorkLog& log) : m_log(log) {}
        ~ObedientWork() override { ++m_log.deleted; }
        void* DoWork(void*) override {
            ++m_log.started;
            m_stop.Wait();
            ++m_log.finished;
            return nullptr;
        }
        void StopWork() override { m_stop.Open(); }

    private:
        WorkLog& m_log;
        Latch m_stop;
    };
    TidyPool pool(2);
    WorkLog log;
    pool.AddWork(new ObedientWork(log));
    pool.AddWork(new ObedientWork(log));
    ASSERT_TRUE(Eventually([&] { return log.started == 2; }));
    EXPECT_EQ(pool.StopTasks(), 0);
    EXPECT_EQ(OutputOfStop(pool, 60000), "");
    EXPECT_EQ(log.finished, 2);
    EXPECT_EQ(log.deleted, 2);
}

TEST(KvconThreadPoolStopTest, PoolWithoutWorkersCanBeStoppedTwice) {
    TidyPool pool(1);
    pool.Stop(0);
    EXPECT_EQ(OutputOfStop(pool, 0), "");
}

TEST(KvconThreadPoolStopTest, ControlCallsWhileWorkStartsAndFinishesReachLivingObjectsOnly) {
    TidyPool pool(3);
    WorkLog log;
    constexpr int kWorks = 3000;
    std::atomic<bool> done{false};
    std::atomic<KvconDelegate*> latest{nullptr};
    std::vector<std::thread> controllers;
    controllers.emplace_back([&] {
        while (!done) {
            EXPECT_EQ(pool.StopTasks(), 0);
        }
    });
    controllers.emplace_back([&] {
        while (!done) {
            EXPECT_EQ(pool.PauseTasks(), 0);
            pool.StopTask(latest);
            pool.RunningSize();
        }
    });
    for (int i = 0; i < kWorks; ++i) {
        auto* const work = new LoggedWork(log, [] { sched_yield(); });
        latest = work;
        pool.AddWork(work);
    }
    // The controllers never rest: on a busy machine the works get little of the pool's lock.
    EXPECT_TRUE(Eventually([&] { return log.deleted == kWorks; }, std::chrono::minutes(1)));
    done = true;
    for (auto& controller : controllers) {
        controller.join();
    }
    EXPECT_EQ(log.finished, kWorks);
}

/// What became of one work object.
struct Fate {
    std::atomic<int> ran{0};
    std::atomic<int> deleted{0};
    bool refused = false;  ///< AddWork threw; written by the thread that called it
};

class FatedWork : public KvconDelegate {
public:
    explicit FatedWork(Fate& fate) : m_fate(fate) {}
    ~FatedWork() override { ++m_fate.deleted; }
    void* DoWork(void*) override {
        ++m_fate.ran;
        return nullptr;
    }

private:
    Fate& m_fate;
};

/// Adds work until the pool refuses it.
void AddUntilRefused(KvconThreadPool& pool, std::vector<Fate>& fates) {
    for (Fate& fate : fates) {
        auto work = std::make_unique<FatedWork>(fate);
        try {
            pool.AddWork(work.get());
            work.release();
        } catch (const KvconException&) {
            fate.refused = true;
            return;
        }
    }
}

TEST(KvconThreadPoolStopTest, EveryWorkObjectAddedAroundStopHasExactlyOneOwner) {
    constexpr std::size_t kPerProducer = 200000;
    std::array<std::vector<Fate>, 3> fates;
    {
        TidyPool pool(3);
        std::vector<std::thread> producers;
        for (auto& own : fates) {
            own = std::vector<Fate>(kPerProducer);
            producers.emplace_back([&pool, &own] { AddUntilRefused(pool, own); });
        }
        ASSERT_TRUE(Eventually([&] { return fates[0][100].ran == 1; }));
        pool.Stop(60000);
        for (auto& producer : producers) {
            producer.join();
        }
        EXPECT_EQ(pool.RunningSize(), 0U);
    }
    int run = 0;
    for (const auto& own : fates) {
        for (const Fate& fate : own) {
            ASSERT_LE(fate.ran, 1);
            ASSERT_LE(fate.deleted, 1);
            ASSERT_LE(fate.ran, fate.deleted);
            ASSERT_FALSE(fate.refused && fate.ran == 1);
            run += fate.ran;
        }
        const auto refused =
            std::find_if(own.begin(), own.end(), [](const Fate& fate) { return fate.refused; });
        const auto undeleted = [](const Fate& fate) { return fate.deleted == 0; };
        EXPECT_TRUE(std::none_of(own.begin(), refused, undeleted));
    }
    EXPECT_GE(run, 1);
}

}  // namespace
