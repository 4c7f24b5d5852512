#include "KvconEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "src/ThreadDoubles.h"

namespace {

using kvtest::Eventually;

/// Threads that wait on one event without limit; joined at the end, so the test must release them all.
class Waiters {
public:
    Waiters(KvconEvent& event, int count) {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, &event] {
                ++m_entered;
                if (event.Wait(-1) == 16) {
                    ++m_released;
                }
            });
        }
        EXPECT_TRUE(Eventually([this, count] { return m_entered == count; }));
    }
    ~Waiters() { Join(); }

    int Released() const { return m_released; }
    void Join() {
        for (auto& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::atomic<int> m_entered{0};
    std::atomic<int> m_released{0};
    std::vector<std::thread> m_threads;
};

TEST(KvconEventTest, ResultCodesHaveTheirFixedValues) {
    EXPECT_EQ(KvconEvent::EVENT_SIGNALED, 16);
    EXPECT_EQ(KvconEvent::EVENT_TIMEOUT, 17);
    EXPECT_EQ(KvconEvent::EVENT_ERROR, 18);
}

TEST(KvconEventTest, NewEventIsNotSignaled) {
    KvconEvent automatic;
    KvconEvent manual(true);
    EXPECT_EQ(automatic.Wait(0), 17);
    EXPECT_EQ(manual.Wait(0), 17);
}

TEST(KvconEventTest, EventIsAutoResetUnlessToldOtherwise) {
    KvconEvent event;
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(KvconEventTest, BroadcastBeforeAnUnboundedWaitIsRememberedAndConsumed) {
    KvconEvent event(false);
    event.Broadcast();
    EXPECT_EQ(event.Wait(-1), 16);
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(KvconEventTest, TwoBroadcastsWithoutAWaiterAreRememberedAsOne) {
    KvconEvent event(false);
    event.Broadcast();
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(KvconEventTest, ManualResetEventStaysSignaled) {
    KvconEvent event(true);
    event.Broadcast();
    EXPECT_EQ(event.Wait(-1), 16);
    EXPECT_EQ(event.Wait(0), 16);
    EXPECT_EQ(event.Wait(1000), 16);
}

TEST(KvconEventTest, ResetMakesTheNextWaitOnAManualResetEventBlock) {
    KvconEvent event(true);
    event.Broadcast();
    event.Reset();
    EXPECT_EQ(event.Wait(10), 17);
}

TEST(KvconEventTest, ManualResetEventCanBeSignaledAgainAfterReset) {
    KvconEvent event(true);
    event.Broadcast();
    event.Reset();
    event.Broadcast();
    EXPECT_EQ(event.Wait(0), 16);
}

TEST(KvconEventTest, ResetDoesNothingToAnAutoResetEvent) {
    KvconEvent event(false);
    event.Broadcast();
    event.Reset();
    EXPECT_EQ(event.Wait(0), 16);
}

TEST(KvconEventTest, ManualResetEventReleasesEveryPresentAndFutureWaiter) {
    KvconEvent event(true);
    Waiters present(event, 4);
    event.Broadcast();
    present.Join();
    Waiters future(event, 2);
    future.Join();
    EXPECT_EQ(present.Released(), 4);
    EXPECT_EQ(future.Released(), 2);
}

TEST(KvconEventTest, AutoResetEventReleasesOneWaiterPerBroadcast) {
    KvconEvent event(false);
    Waiters waiters(event, 3);
    for (int broadcasts = 1; broadcasts <= 3; ++broadcasts) {
        event.Broadcast();
        ASSERT_TRUE(Eventually([&] { return waiters.Released() >= broadcasts; }));
        EXPECT_EQ(waiters.Released(), broadcasts);
    }
    waiters.Join();
    EXPECT_EQ(event.Wait(0), 17);
}

TEST(KvconEventTest, TimedWaitIsReleasedByABroadcast) {
    KvconEvent event(true);
    kvtest::Latch started;
    int result = 0;
    std::thread waiter([&] {
        started.Open();
        result = event.Wait(20000);
    });
    ASSERT_TRUE(started.Wait());
    event.Broadcast();
    waiter.join();
    EXPECT_EQ(result, 16);
}

TEST(KvconEventTest, TimedWaitLastsAtLeastItsTimeout) {
    KvconEvent event;
    const auto start = std::chrono::steady_clock::now();
    const int result = event.Wait(60);
    EXPECT_EQ(result, 17);
    // One millisecond less: the deadline is taken from another clock.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(59));
}

TEST(KvconEventTest, TimedOutWaitLeavesTheEventUsable) {
    KvconEvent event(false);
    EXPECT_EQ(event.Wait(1), 17);
    event.Broadcast();
    EXPECT_EQ(event.Wait(1), 16);
}

TEST(KvconEventTest, ResetFlagIsSetFromTheStartAndNothingClearsIt) {
    class ShowingEvent : public KvconEvent {
    public:
        using KvconEvent::KvconEvent;
        bool ResetFlag() const { return m_bReset; }
    };
    for (const bool manual : {false, true}) {
        ShowingEvent event(manual);
        EXPECT_TRUE(event.ResetFlag());
        event.Broadcast();
        EXPECT_TRUE(event.ResetFlag());
        event.Wait(0);
        EXPECT_TRUE(event.ResetFlag());
        event.Reset();
        EXPECT_TRUE(event.ResetFlag());
    }
}

TEST(KvconEventTest, PingPongBetweenTwoAutoResetEventsLosesNoSignal) {
    KvconEvent there;
    KvconEvent back;
    int answered = 0;
    std::thread other([&] {
        for (int i = 0; i < 2000 && there.Wait(20000) == 16; ++i) {
            back.Broadcast();
        }
    });
    for (int i = 0; i < 2000; ++i) {
        there.Broadcast();
        if (back.Wait(20000) == 16) {
            ++answered;
        }
    }
    other.join();
    EXPECT_EQ(answered, 2000);
}

}  // namespace
