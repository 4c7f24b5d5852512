#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "KvEndSignals.h"
#include "KvconThreadPool.h"
#include "src/ThreadDoubles.h"

// KvconThreadPool and the end signals: which of them a worker takes, and what is left of one that was ended.

namespace {

using kvtest::AllDeleted;
using kvtest::Eventually;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::TidyPool;
using kvtest::WorkLog;

TEST(KvconThreadPoolSignalsTest, HostThatBlocksSigtermStillReadsItWhileWorkersRun) {
    const kvtest::BlockedSignals hostReadsIt({SIGTERM});
    TidyPool pool(2);
    WorkLog log;
    Latch goOn;
    std::atomic<int> blocked{0};
    const auto look = [&] {
        blocked += kvtest::IsBlockedHere(SIGTERM) ? 1 : 0;
        goOn.Wait();
    };
    pool.AddWork(new LoggedWork(log, look));
    pool.AddWork(new kvtest::ShieldedLoggedWork(log, look));
    ASSERT_TRUE(Eventually([&] { return blocked == 2; }));
    kill(getpid(), SIGTERM);
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    const timespec bound{10, 0};
    EXPECT_EQ(sigtimedwait(&term, nullptr, &bound), SIGTERM);
    goOn.Open();
    EXPECT_TRUE(AllDeleted(log, 2));
    EXPECT_EQ(log.finished, 2);
}

TEST(KvconThreadPoolSignalsTest, SigtermEndsAWorkerOfAHostThatHasItOpen) {
    TidyPool pool(1);
    WorkLog log;
    Latch hanging;
    const unsigned long worker = pool.Add(new LoggedWork(log, [&] { kvtest::HangUntilEnded(hanging); }));
    ASSERT_TRUE(hanging.Wait());
    EXPECT_EQ(KvThreadRegistry::Signal(worker, SIGTERM), 0);
    KvThreadRegistry::WaitUntilGone(worker);
    EXPECT_EQ(log.deleted, 1);
    EXPECT_EQ(log.finished, 0);
    EXPECT_EQ(pool.RunningSize(), 0U);
}

TEST(KvconThreadPoolSignalsTest, HundredsOfKillsOfShieldedWorkersLeaveNothingBehind) {
    constexpr int kKills = 400;
    TidyPool pool(4);
    WorkLog log;
    KvconLock lock;
    std::atomic<int> held{0};
    std::atomic<int> rounds{0};
    struct Scope {
        std::atomic<int>& count;
        explicit Scope(std::atomic<int>& counter) : count(counter) { ++count; }
        ~Scope() { --count; }
    };
    const auto cycle = [&] {
        for (int round = 0;; ++round) {
            ++rounds;
            const Scope scope(held);
            KvEndSignals::Poll(nullptr, 0, round % 8 == 0 ? 1 : 0);
            KvconCriticalSection guard(&lock, true, true, false);
            const std::vector<std::string> allocated(static_cast<std::size_t>(round % 5),
                                                     std::string(100, 'x'));
            KvEndSignals::Poll(nullptr, 0, 0);
        }
    };
    for (int kills = 0; kills < kKills; ++kills) {
        rounds = 0;
        const unsigned long worker = pool.Add(new kvtest::ShieldedLoggedWork(log, cycle));
        ASSERT_NE(worker, 0UL);
        // Every fourth is killed as soon as it is made, the others after some rounds of their cycle.
        ASSERT_TRUE(Eventually([&] { return rounds >= kills % 4; }));
        ASSERT_EQ(KvThreadRegistry::Signal(worker, SIGQUIT), 0);
        KvThreadRegistry::WaitUntilGone(worker);
    }
    pool.SendWorkersHome();
    EXPECT_EQ(log.deleted, kKills);
    EXPECT_EQ(held, 0);
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(lock), 0);
    EXPECT_EQ(pool.RunningSize(), 0U);
    EXPECT_EQ(pool.StopTasks(), 0);
}

}  // namespace
