#include <errno.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <future>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include "AcceptedLockKit.h"
#include "Eventually.h"
#include "KvCoreHelpers.h"
#include "KvconEvent.h"
#include "Kvobject.h"

namespace {

using acceptedlock::OnAnotherThread;
using acceptedlock::ThrownBy;
using kvtest::Eventually;
using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

class OpenEvent : public KvconEvent {
public:
    using KvconEvent::KvconEvent;
    using KvconEvent::m_bManualReset;
    using KvconEvent::m_bReset;
    using KvconEvent::m_bSignaled;
    using KvconEvent::m_cond;
    using KvconEvent::m_mutex;
};

/// Waits of other threads for one event.
class Waiters {
public:
    Waiters(KvconEvent& event, int count, int timeoutMs = -1) {
        for (int i = 0; i < count; ++i) {
            m_waits.push_back(std::async(std::launch::async, [&event, timeoutMs, this] {
                ++m_started;
                const int result = event.Wait(timeoutMs);
                ++m_released;
                return result;
            }));
        }
    }
    int released() const { return m_released; }
    bool waitFor(int count) const {
        return Eventually([&] { return m_released == count; });
    }
    /// Whether every thread has come to its wait and is still there after a while.
    bool areWaiting() const {
        const int all = static_cast<int>(m_waits.size());
        return Eventually([&] { return m_started == all; }) &&
               !Eventually([&] { return m_released != 0; }, 300ms);
    }
    /// Whether no further thread is released for a while.
    bool staysAt(int count) const {
        return !Eventually([&] { return m_released != count; }, 150ms);
    }
    std::vector<int> results() {
        std::vector<int> all;
        for (std::future<int>& wait : m_waits) {
            all.push_back(wait.get());
        }
        return all;
    }

private:
    std::atomic<int> m_started{0};
    std::atomic<int> m_released{0};
    std::vector<std::future<int>> m_waits;
};

TEST(AcceptedEvent, TheMembersStandInTheirOrderAndThereIsNoOther) {
    struct Members {
        virtual ~Members() = default;
        bool manual;
        pthread_cond_t condition;
        pthread_mutex_t mutex;
        bool reset;
        bool signaled;
    };
    OpenEvent event(true);
    const void* order[] = {&event.m_bManualReset, &event.m_cond, &event.m_mutex, &event.m_bReset,
                           &event.m_bSignaled};
    for (int i = 1; i < 5; ++i) {
        EXPECT_LT(order[i - 1], order[i]) << i;
    }
    EXPECT_EQ(sizeof(KvconEvent), sizeof(Members));
    EXPECT_TRUE((std::is_base_of_v<Kvobject, KvconEvent>));
}

TEST(AcceptedEvent, IsAutoResetByDefaultAndNotSignaled) {
    OpenEvent event;
    EXPECT_FALSE(event.m_bManualReset);
    EXPECT_TRUE(event.m_bReset);
    EXPECT_FALSE(event.m_bSignaled);
}

TEST(AcceptedEvent, TakesItsFlavourFromTheConstructor) {
    OpenEvent manual(true);
    OpenEvent automatic(false);
    EXPECT_TRUE(manual.m_bManualReset);
    EXPECT_TRUE(manual.m_bReset);
    EXPECT_FALSE(manual.m_bSignaled);
    EXPECT_FALSE(automatic.m_bManualReset);
}

TEST(AcceptedEvent, ItsMutexIsNotRecursive) {
    OpenEvent event;
    ASSERT_EQ(pthread_mutex_lock(&event.m_mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&event.m_mutex), EBUSY);
    pthread_mutex_unlock(&event.m_mutex);
}

TEST(AcceptedEvent, BroadcastSetsTheState) {
    OpenEvent event;
    event.Broadcast();
    EXPECT_TRUE(event.m_bSignaled);
}

TEST(AcceptedEvent, InitializeMakesThePrimitivesAnewAndKeepsTheState) {
    OpenEvent event;
    event.Broadcast();
    pthread_mutex_destroy(&event.m_mutex);
    pthread_cond_destroy(&event.m_cond);
    event.Initialize();
    EXPECT_TRUE(event.m_bSignaled);
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(0), 17);
}

class AcceptedEventOfBothKinds : public testing::TestWithParam<bool> {
protected:
    OpenEvent event{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Kinds, AcceptedEventOfBothKinds, testing::Bool(),
                         [](const auto& test) { return test.param ? "Manual" : "Automatic"; });

TEST_P(AcceptedEventOfBothKinds, ABroadcastWithoutAWaiterIsRemembered) {
    event.Broadcast();
    EXPECT_EQ(event.Wait(10000), 16);
}

TEST_P(AcceptedEventOfBothKinds, AWaitWithoutLimitAnswersAtOnceWhenItIsSignaled) {
    event.Broadcast();
    EXPECT_EQ(event.Wait(-1), 16);
}

TEST_P(AcceptedEventOfBothKinds, AWaitWithoutLimitLastsUntilTheBroadcast) {
    Waiters waiter(event, 1);
    EXPECT_TRUE(waiter.areWaiting());
    event.Broadcast();
    EXPECT_EQ(waiter.results(), std::vector<int>{16});
}

TEST_P(AcceptedEventOfBothKinds, ATimedWaitIsEndedByTheBroadcast) {
    const Clock::time_point start = Clock::now();
    Waiters waiter(event, 1, 60000);
    EXPECT_TRUE(waiter.areWaiting());
    event.Broadcast();
    EXPECT_EQ(waiter.results(), std::vector<int>{16});
    EXPECT_LT(Clock::now() - start, 30s);
}

TEST_P(AcceptedEventOfBothKinds, AWaitTimesOutAfterTheGivenMilliseconds) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(event.Wait(200), 17);
    EXPECT_GE(Clock::now() - start, 195ms);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_P(AcceptedEventOfBothKinds, AWaitOfZeroTimesOutAtOnce) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(event.Wait(0), 17);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_P(AcceptedEventOfBothKinds, ATimeOutLeavesItNotSignaled) {
    event.Wait(1);
    EXPECT_FALSE(event.m_bSignaled);
}

TEST_P(AcceptedEventOfBothKinds, CountsWholeSecondsOfTheTimeOut) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(event.Wait(1250), 17);
    EXPECT_GE(Clock::now() - start, 1245ms);
    EXPECT_LT(Clock::now() - start, 6s);
}

// The milliseconds and the fraction of the running second together exceed a second here.
TEST_P(AcceptedEventOfBothKinds, CarriesTheFractionOfTheSecondIntoTheDeadline) {
    ASSERT_TRUE(Eventually([] {
        timeval now{};
        gettimeofday(&now, nullptr);
        return now.tv_usec >= 900000;
    }));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(event.Wait(900), 17);
    EXPECT_GE(Clock::now() - start, 895ms);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_P(AcceptedEventOfBothKinds, AWaitThatCannotLockThrows) {
    ASSERT_NO_FATAL_FAILURE(acceptedlock::Remake(event.m_mutex, PTHREAD_MUTEX_ERRORCHECK));
    pthread_mutex_lock(&event.m_mutex);
    errno = ENOENT;
    KvconException failure = ThrownBy([&] { event.Wait(0); });
    pthread_mutex_unlock(&event.m_mutex);
    EXPECT_EQ(failure.GetMsg(), "Lock failed");
    EXPECT_EQ(failure.GetFile(), "../src/KvconEvent");
    EXPECT_EQ(failure.GetLine(), 136);
    EXPECT_EQ(failure.GetThreadID(), GetMyThreadID());
    EXPECT_EQ(failure.GetSysMsg(), "No such file or directory");
}

TEST_P(AcceptedEventOfBothKinds, BroadcastIgnoresItsLockThatFails) {
    ASSERT_NO_FATAL_FAILURE(acceptedlock::MakeUnusable(event.m_mutex));
    EXPECT_NO_THROW(event.Broadcast());
    EXPECT_TRUE(event.m_bSignaled);
}

/// Leaves the mutex of a wait behind without its owner, so that the wait itself ends with an error.
void DieInside(OpenEvent& event, bool signaled) {
    OnAnotherThread([&] {
        pthread_mutex_lock(&event.m_mutex);
        event.m_bSignaled = signaled;
        pthread_cond_broadcast(&event.m_cond);
    });
}

TEST_P(AcceptedEventOfBothKinds, AnotherResultOfATimedWaitIsAnError) {
    ASSERT_NO_FATAL_FAILURE(acceptedlock::Remake(event.m_mutex, PTHREAD_MUTEX_ERRORCHECK, true));
    Waiters waiter(event, 1, 60000);
    ASSERT_TRUE(waiter.areWaiting());
    DieInside(event, false);
    EXPECT_EQ(waiter.results(), std::vector<int>{18});
}

TEST_P(AcceptedEventOfBothKinds, AnotherResultOfAnUnlimitedWaitIsAnError) {
    ASSERT_NO_FATAL_FAILURE(acceptedlock::Remake(event.m_mutex, PTHREAD_MUTEX_ERRORCHECK, true));
    Waiters waiter(event, 1);
    ASSERT_TRUE(waiter.areWaiting());
    DieInside(event, true);
    EXPECT_EQ(waiter.results(), std::vector<int>{18});
}

TEST(AcceptedEventSpurious, AnUnlimitedWaitAbsorbsAWakeUpWithoutASignal) {
    OpenEvent event;
    Waiters waiter(event, 1);
    ASSERT_TRUE(waiter.areWaiting());
    for (int i = 0; i < 5; ++i) {
        pthread_cond_broadcast(&event.m_cond);
        EXPECT_TRUE(waiter.staysAt(0));
    }
    event.Broadcast();
    EXPECT_EQ(waiter.results(), std::vector<int>{16});
}

TEST(AcceptedEventSpurious, ATimedWaitTakesAWakeUpWithoutASignalForASignal) {
    OpenEvent event;
    Waiters waiter(event, 1, 60000);
    ASSERT_TRUE(waiter.areWaiting());
    EXPECT_TRUE(Eventually([&] {
        pthread_cond_broadcast(&event.m_cond);
        return waiter.released() == 1;
    }));
    EXPECT_EQ(waiter.results(), std::vector<int>{16});
}

// ---- auto-reset ----

TEST(AcceptedEventAutomatic, AWaitConsumesTheSignal) {
    OpenEvent event;
    event.Broadcast();
    EXPECT_EQ(event.Wait(-1), 16);
    EXPECT_FALSE(event.m_bSignaled);
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(AcceptedEventAutomatic, AWaiterThatIsWokenConsumesTheSignal) {
    for (const int timeoutMs : {-1, 60000}) {
        OpenEvent event;
        Waiters waiter(event, 1, timeoutMs);
        ASSERT_TRUE(waiter.areWaiting());
        event.Broadcast();
        EXPECT_EQ(waiter.results(), std::vector<int>{16});
        EXPECT_FALSE(event.m_bSignaled) << timeoutMs;
    }
}

TEST(AcceptedEventAutomatic, TwoBroadcastsWithoutAWaiterAreOneSignal) {
    KvconEvent event;
    event.Broadcast();
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(AcceptedEventAutomatic, EveryBroadcastReleasesOneWaiter) {
    KvconEvent event;
    Waiters waiters(event, 3);
    EXPECT_TRUE(waiters.areWaiting());
    for (int count = 1; count <= 3; ++count) {
        event.Broadcast();
        EXPECT_TRUE(waiters.waitFor(count));
        EXPECT_TRUE(count == 3 || waiters.staysAt(count));
    }
    EXPECT_EQ(waiters.results(), (std::vector<int>{16, 16, 16}));
}

TEST(AcceptedEventAutomatic, ResetDoesNothing) {
    OpenEvent event;
    event.m_bReset = false;
    event.Broadcast();
    event.Reset();
    EXPECT_TRUE(event.m_bSignaled);
    EXPECT_FALSE(event.m_bReset);
    EXPECT_EQ(event.Wait(0), 16);
}

TEST(AcceptedEventAutomatic, ResetTakesNoLock) {
    OpenEvent event;
    ASSERT_NO_FATAL_FAILURE(acceptedlock::MakeUnusable(event.m_mutex));
    EXPECT_NO_THROW(event.Reset());
}

// ---- manual-reset ----

TEST(AcceptedEventManual, StaysSignaledForEveryWait) {
    OpenEvent event(true);
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(-1), 16);
    EXPECT_EQ(event.Wait(100), 16);
    EXPECT_TRUE(event.m_bSignaled);
}

TEST(AcceptedEventManual, OneBroadcastReleasesEveryWaiter) {
    for (const int timeoutMs : {-1, 60000}) {
        KvconEvent event(true);
        Waiters waiters(event, 3, timeoutMs);
        EXPECT_TRUE(waiters.areWaiting());
        event.Broadcast();
        EXPECT_EQ(waiters.results(), (std::vector<int>{16, 16, 16}));
        EXPECT_EQ(event.Wait(0), 16);
    }
}

TEST(AcceptedEventManual, ResetMakesTheNextWaitBlock) {
    OpenEvent event(true);
    event.Broadcast();
    event.m_bReset = false;
    event.Reset();
    EXPECT_FALSE(event.m_bSignaled);
    EXPECT_TRUE(event.m_bReset);
    EXPECT_EQ(event.Wait(50), 17);
}

TEST(AcceptedEventManual, CanBeSignaledAgainAfterReset) {
    KvconEvent event(true);
    event.Broadcast();
    event.Reset();
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
}

TEST(AcceptedEventManual, AResetThatCannotLockThrows) {
    OpenEvent event(true);
    ASSERT_NO_FATAL_FAILURE(acceptedlock::MakeUnusable(event.m_mutex));
    errno = ENOENT;
    KvconException failure = ThrownBy([&] { event.Reset(); });
    EXPECT_EQ(failure.GetMsg(), "Lock Failed");
    EXPECT_EQ(failure.GetFile(), "../src/KvconEvent");
    EXPECT_EQ(failure.GetLine(), 289);
    EXPECT_EQ(failure.GetThreadID(), GetMyThreadID());
    EXPECT_EQ(failure.GetSysMsg(), "No such file or directory");
}

// ---- the end ----

/// An event whose memory outlives it. Whoever it wakes still uses its mutex, which may be gone by then, so that
/// the result of such a wait is open; that it ends is not.
class DoomedEvent {
public:
    explicit DoomedEvent(bool manualReset) : m_event(new (m_memory) KvconEvent(manualReset)) {}
    KvconEvent& operator*() { return *m_event; }
    void Destroy() { m_event->~KvconEvent(); }

private:
    alignas(KvconEvent) unsigned char m_memory[sizeof(KvconEvent)] = {};
    KvconEvent* m_event;
};

void WaitToTheEnd(KvconEvent& event, std::atomic<int>& ended) {
    try {
        event.Wait(-1);
    } catch (const KvconException&) {
    }
    ++ended;
}

// ThreadSanitizer takes the wait of a destroyed event for what it is, a use of a destroyed mutex.
#if defined(__SANITIZE_THREAD__)
#define KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED() GTEST_SKIP() << "uses a mutex while it is destroyed"
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED() GTEST_SKIP() << "uses a mutex while it is destroyed"
#endif
#endif
#ifndef KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED
#define KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED() static_cast<void>(0)
#endif

TEST(AcceptedEventEnd, WakesEveryWaiterOfAManualResetEvent) {
    KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED();
    DoomedEvent event(true);
    std::atomic<int> ended{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] { WaitToTheEnd(*event, ended); });
    }
    EXPECT_FALSE(Eventually([&] { return ended != 0; }, 200ms));
    event.Destroy();
    EXPECT_TRUE(Eventually([&] { return ended == 3; }));
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST(AcceptedEventEnd, WakesTheWaiterOfAnAutoResetEvent) {
    KV_SKIP_WHERE_A_DESTROYED_MUTEX_IS_REPORTED();
    DoomedEvent event(false);
    std::atomic<int> ended{0};
    std::thread waiter([&] { WaitToTheEnd(*event, ended); });
    EXPECT_FALSE(Eventually([&] { return ended != 0; }, 200ms));
    event.Destroy();
    EXPECT_TRUE(Eventually([&] { return ended == 1; }));
    waiter.join();
}

}  // namespace
