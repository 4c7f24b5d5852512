#include "KvconThread.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

#include "src/ThreadDoubles.h"

namespace {

using kvtest::CaughtFrom;
using kvtest::Eventually;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::WorkLog;

constexpr pthread_t kIdle = static_cast<pthread_t>(-1);

class KvconThreadTest : public ::testing::Test {
protected:
    KvconThreadTest() { KvconThread::InitializeLibrary(); }
    ~KvconThreadTest() override { KvconThread::CloseLibrary(); }

private:
    kvtest::SavedSignalHandlers m_handlers;
};

void WaitUntilEnded(KvconThread& thread) {
    KvThreadRegistry::WaitUntilGone(thread.GetThreadID());
}

bool IsSuspended() {
    return std::atomic_ref(KvconThread::is_Suspend).load();
}

/// A thread that counts until it is told to end, and what it has counted.
class CountingThread {
public:
    CountingThread()
        : m_work(m_log, [this] {
              while (!m_end) {
                  ++m_count;
                  const timespec shortly{0, 100000};
                  nanosleep(&shortly, nullptr);
              }
          }) {
        thread.Run(&m_work);
        EXPECT_TRUE(CountsOn());
    }
    /// The thread must not be suspended any more.
    ~CountingThread() {
        m_end = true;
        WaitUntilEnded(thread);
    }
    CountingThread(const CountingThread&) = delete;
    CountingThread& operator=(const CountingThread&) = delete;

    bool CountsOn() {
        const int before = m_count;
        return Eventually([&] { return m_count > before; });
    }
    /// Standing still shows only over a while; the thread counts some hundred times in it when it runs.
    bool StandsStill() {
        const int before = m_count;
        return !Eventually([&] { return m_count > before; }, std::chrono::milliseconds(50));
    }
    /// Sends SIGUSR2 until the thread goes on: one that comes between is_Suspend and the sleep is lost.
    bool GoesOnAfterSigusr2() {
        const int before = m_count;
        return Eventually([&] {
            KvThreadRegistry::Signal(thread.GetThreadID(), SIGUSR2);
            return m_count > before;
        });
    }

    KvconThread thread;

private:
    std::atomic<bool> m_end{false};
    std::atomic<int> m_count{0};
    WorkLog m_log;
    LoggedWork m_work;
};

TEST_F(KvconThreadTest, NewThreadIsIdle) {
    KvconThread thread;
    EXPECT_EQ(thread.GetThreadID(), kIdle);
    EXPECT_FALSE(thread.IsRunning());
}

TEST_F(KvconThreadTest, RunsTheDelegateOnAnotherThreadWithItsUserData) {
    class ShowingWork : public KvconDelegate {
    public:
        void* DoWork(void* userData) override {
            m_pSeen = userData;
            m_ran = KvconThread::GetMyThreadID();
            return nullptr;
        }
        void* m_pSeen = nullptr;
        pthread_t m_ran{};
    };
    int data = 0;
    ShowingWork work;
    work.SetUserData(&data);
    KvconThread thread;
    thread.Run(&work);
    WaitUntilEnded(thread);
    EXPECT_EQ(work.m_pSeen, &data);
    EXPECT_FALSE(pthread_equal(work.m_ran, pthread_self()));
}

TEST_F(KvconThreadTest, IdIsThatOfTheRunningThreadUntilDoWorkReturns) {
    Latch started;
    Latch goOn;
    std::atomic<pthread_t> ran{};
    WorkLog log;
    LoggedWork work(log, [&] {
        ran = pthread_self();
        started.Open();
        goOn.Wait();
    });
    KvconThread thread;
    thread.Run(&work);
    ASSERT_TRUE(started.Wait());
    EXPECT_EQ(thread.GetThreadID(), ran);
    EXPECT_TRUE(thread.IsRunning());
    goOn.Open();
    WaitUntilEnded(thread);
    EXPECT_EQ(thread.GetThreadID(), kIdle);
    EXPECT_FALSE(thread.IsRunning());
}

TEST_F(KvconThreadTest, RunWhileAThreadRunsStartsNoSecondOne) {
    Latch goOn;
    WorkLog first;
    WorkLog second;
    LoggedWork work(first, [&] { goOn.Wait(); });
    LoggedWork ignored(second);
    KvconThread thread;
    thread.Run(&work);
    const pthread_t id = thread.GetThreadID();
    thread.Run(&ignored);
    EXPECT_EQ(thread.GetThreadID(), id);
    goOn.Open();
    WaitUntilEnded(thread);
    EXPECT_EQ(first.finished, 1);
    EXPECT_EQ(second.started, 0);
}

TEST_F(KvconThreadTest, ObjectCanRunAgainAfterItsThreadHasEnded) {
    WorkLog log;
    LoggedWork work(log);
    KvconThread thread;
    for (int i = 0; i < 20; ++i) {
        thread.Run(&work);
        WaitUntilEnded(thread);
    }
    EXPECT_EQ(log.finished, 20);
}

TEST_F(KvconThreadTest, ThreadWithoutADelegateEndsAtOnce) {
    KvconThread thread;
    thread.Run(nullptr);
    EXPECT_TRUE(Eventually([&] { return thread.GetThreadID() == kIdle; }));
    WaitUntilEnded(thread);
}

TEST_F(KvconThreadTest, DelegateStaysTheCallersWithoutAutoClean) {
    WorkLog log;
    LoggedWork work(log);
    KvconThread thread;
    thread.Run(&work);
    WaitUntilEnded(thread);
    EXPECT_EQ(log.deleted, 0);
}

TEST_F(KvconThreadTest, AutoCleanDeletesTheThreadObjectAndThenTheDelegate) {
    using Order = std::vector<std::string>;
    class NotingThread : public KvconThread {
    public:
        explicit NotingThread(Order& order) : m_order(order) {}
        ~NotingThread() override { m_order.push_back("thread"); }
        Order& m_order;
    };
    class NotingWork : public KvconDelegate {
    public:
        NotingWork(Order& order, Latch& goOn) : m_order(order), m_goOn(goOn) {}
        ~NotingWork() override { m_order.push_back("delegate"); }
        void* DoWork(void*) override {
            m_goOn.Wait();
            m_order.push_back("work");
            return nullptr;
        }
        Order& m_order;
        Latch& m_goOn;
    };
    Order order;
    Latch goOn;
    auto* const thread = new NotingThread(order);
    thread->SetAutoClean(true);
    thread->Run(new NotingWork(order, goOn));
    const pthread_t id = thread->GetThreadID();  // the delegate still holds the thread back
    goOn.Open();
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_EQ(order, (Order{"work", "thread", "delegate"}));
}

TEST_F(KvconThreadTest, ExceptionOutOfDoWorkLeavesTheObjectIdleAndTheProcessAlive) {
    WorkLog log;
    LoggedWork work(log, [] { throw std::runtime_error("out of DoWork"); });
    KvconThread thread;
    thread.Run(&work);
    WaitUntilEnded(thread);
    EXPECT_EQ(thread.GetThreadID(), kIdle);
    EXPECT_EQ(log.started, 1);
}

TEST_F(KvconThreadTest, IsThreadActiveProbesProcesses) {
    EXPECT_TRUE(KvconThread::IsThreadActive(static_cast<unsigned long>(getpid())));
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    ASSERT_GT(child, 0);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(KvconThread::IsThreadActive(static_cast<unsigned long>(child)));
}

TEST_F(KvconThreadTest, WaitingForAnIdleObjectReturnsAtOnce) {
    KvconThread thread;
    EXPECT_EQ(thread.WaitForThreadObject(1000), 0);
}

TEST_F(KvconThreadTest, WaitingForATimeoutThatIsNotAMultipleOf250LastsUntilTheThreadEnds) {
    Latch goOn;
    WorkLog log;
    LoggedWork work(log, [&] { goOn.Wait(); });
    KvconThread thread;
    thread.Run(&work);
    auto waited = std::async(std::launch::async, [&] { return thread.WaitForThreadObject(100); });
    // Real time is under test: one look every 250 ms, and the time-out is long over at the second.
    EXPECT_EQ(waited.wait_for(std::chrono::milliseconds(400)), std::future_status::timeout);
    goOn.Open();
    EXPECT_EQ(waited.get(), 0);
    EXPECT_FALSE(thread.IsRunning());
    WaitUntilEnded(thread);
}

TEST_F(KvconThreadTest, KillAndStopOfAnIdleObjectDoNothing) {
    KvconThread thread;
    EXPECT_NO_THROW(thread.Kill());
    EXPECT_NO_THROW(thread.Stop());
}

TEST_F(KvconThreadTest, ResumeOfAnIdleObjectThrows) {
    KvconThread thread;
    KvconException exception = CaughtFrom([&] { thread.Resume(); });
    EXPECT_EQ(exception.GetMsg(), "Resume Thread Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThread");
    EXPECT_EQ(exception.GetLine(), 217);
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

TEST_F(KvconThreadTest, KillEndsTheThreadAndTheObjectKeepsTheId) {
    Latch started;
    WorkLog log;
    LoggedWork work(log, [&] { kvtest::HangUntilEnded(started); });
    KvconThread thread;
    thread.Run(&work);
    ASSERT_TRUE(started.Wait());
    const pthread_t id = thread.GetThreadID();
    thread.Kill();
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_EQ(thread.GetThreadID(), id);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(log.finished, 0);
    EXPECT_EQ(log.deleted, 0);
}

TEST_F(KvconThreadTest, KilledObjectStartsNoOtherThread) {
    Latch started;
    WorkLog log;
    LoggedWork work(log, [&] { kvtest::HangUntilEnded(started); });
    WorkLog ignored;
    LoggedWork next(ignored);
    KvconThread thread;
    thread.Run(&work);
    ASSERT_TRUE(started.Wait());
    const pthread_t id = thread.GetThreadID();
    thread.Kill();
    KvThreadRegistry::WaitUntilGone(id);
    thread.Run(&next);
    EXPECT_EQ(thread.GetThreadID(), id);
    EXPECT_EQ(ignored.started, 0);
}

TEST_F(KvconThreadTest, EndSignalsEndTheThreadThatReceivesThemAndNotTheProcess) {
    for (const int signal : {SIGQUIT, SIGTERM}) {
        Latch hanging;
        std::thread stranger([&] { kvtest::HangUntilEnded(hanging); });
        EXPECT_TRUE(hanging.Wait());
        EXPECT_EQ(pthread_kill(stranger.native_handle(), signal), 0);
        stranger.join();
    }
}

TEST_F(KvconThreadTest, ControlOfAThreadThatHasEndedThrowsAndNeverCrashes) {
    WorkLog log;
    for (int i = 0; i < 300; ++i) {
        Latch started;
        LoggedWork work(log, [&] { kvtest::HangUntilEnded(started); });
        KvconThread thread;
        thread.Run(&work);
        ASSERT_TRUE(started.Wait());
        const pthread_t id = thread.GetThreadID();
        thread.Kill();
        KvThreadRegistry::WaitUntilGone(id);
        for (int again = 0; again < 10; ++again) {
            ASSERT_EQ(CaughtFrom([&] { thread.Kill(); }).GetMsg(), "Kill Thread Failed");
            ASSERT_EQ(CaughtFrom([&] { thread.Resume(); }).GetMsg(), "Resume Thread Failed");
            ASSERT_EQ(CaughtFrom([&] { thread.Stop(); }).GetMsg(), "Suspend Thread Failed");
        }
    }
}

TEST_F(KvconThreadTest, KillOfAThreadThatIsJustEndingEndsNothingElse) {
    WorkLog log;
    LoggedWork work(log);
    for (int i = 0; i < 1000; ++i) {
        KvconThread thread;
        thread.Run(&work);
        const pthread_t id = thread.GetThreadID();
        try {
            thread.Kill();
        } catch (KvconException& exception) {
            ASSERT_EQ(exception.GetMsg(), "Kill Thread Failed");
        }
        KvThreadRegistry::WaitUntilGone(id);
    }
    EXPECT_EQ(log.deleted, 0);
}

TEST_F(KvconThreadTest, StopOfAThreadThatIsJustEndingReturns) {
    WorkLog log;
    LoggedWork work(log);
    for (int i = 0; i < 300; ++i) {
        KvconThread thread;
        thread.Run(&work);
        const pthread_t id = thread.GetThreadID();
        try {
            thread.Stop();
        } catch (KvconException& exception) {
            ASSERT_EQ(exception.GetMsg(), "Suspend Thread Failed");
        }
        ASSERT_TRUE(Eventually([&] { return KvThreadRegistry::Signal(id, SIGUSR2) != 0; }));
    }
}

TEST_F(KvconThreadTest, StopSuspendsTheThreadUntilSigusr2Arrives) {
    CountingThread counting;
    counting.thread.Stop();
    EXPECT_TRUE(IsSuspended());
    EXPECT_TRUE(counting.StandsStill());
    EXPECT_TRUE(counting.GoesOnAfterSigusr2());
}

TEST_F(KvconThreadTest, StopClearsTheFlagBeforeItSuspendsAgain) {
    CountingThread counting;
    for (int i = 0; i < 20; ++i) {
        counting.thread.Stop();
        ASSERT_TRUE(IsSuspended());
        ASSERT_TRUE(counting.GoesOnAfterSigusr2());
    }
}

TEST_F(KvconThreadTest, ResumeLeavesASuspendedThreadSuspended) {
    CountingThread counting;
    counting.thread.Stop();
    counting.thread.Resume();
    EXPECT_TRUE(counting.StandsStill());
    EXPECT_TRUE(counting.GoesOnAfterSigusr2());
}

TEST_F(KvconThreadTest, ResumeSuspendsAThreadThatRuns) {
    CountingThread counting;
    std::atomic_ref(KvconThread::is_Suspend).store(false);
    counting.thread.Resume();
    EXPECT_TRUE(Eventually(IsSuspended));
    EXPECT_TRUE(counting.StandsStill());
    EXPECT_TRUE(counting.GoesOnAfterSigusr2());
}

TEST_F(KvconThreadTest, SuspendedThreadIsNotEndedByKillUntilItGoesOn) {
    Latch started;
    WorkLog log;
    LoggedWork work(log, [&] { kvtest::HangUntilEnded(started); });
    KvconThread thread;
    thread.Run(&work);
    ASSERT_TRUE(started.Wait());
    const pthread_t id = thread.GetThreadID();
    thread.Stop();
    EXPECT_TRUE(thread.IsRunning());
    thread.Kill();
    EXPECT_FALSE(Eventually([&] { return !thread.IsRunning(); }, std::chrono::milliseconds(50)));
    EXPECT_TRUE(Eventually([&] { return KvThreadRegistry::Signal(id, SIGUSR2) != 0; }));
}

TEST_F(KvconThreadTest, Sigusr2AloneDoesNothing) {
    CountingThread counting;
    KvThreadRegistry::Signal(counting.thread.GetThreadID(), SIGUSR2);
    EXPECT_TRUE(counting.CountsOn());
}

TEST_F(KvconThreadTest, InitializationInstallsTheFourHandlersWithAnEmptyMaskAndNoFlags) {
    const std::map<int, void (*)(int)> expected{{SIGUSR1, KvconThread::StopSingleHandler},
                                                {SIGUSR2, KvconThread::StartSingleHandler},
                                                {SIGQUIT, KvconThread::EndThreadHandler},
                                                {SIGTERM, KvconThread::EndThreadHandler}};
    for (const auto& [signal, handler] : expected) {
        struct sigaction installed {};
        sigaction(signal, nullptr, &installed);
        EXPECT_EQ(installed.sa_handler, handler) << signal;
        EXPECT_FALSE(kvtest::HasFlags(installed));
        for (int other = 1; other < SIGRTMIN; ++other) {
            EXPECT_EQ(sigismember(&installed.sa_mask, other), 0) << signal << " " << other;
        }
    }
}

}  // namespace
