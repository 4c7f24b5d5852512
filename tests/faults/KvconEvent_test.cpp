#include "KvconEvent.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::CaughtFrom;
using kvtest::FailOnce;
using kvtest::FixedTimeOfDay;
using kvtest::Interception;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

/// An event whose primitives and state the test sees.
class OpenEvent : public KvconEvent {
public:
    using KvconEvent::KvconEvent;
    const void* Mutex() const { return &m_mutex; }
    const void* Condition() const { return &m_cond; }
    bool IsSignaled() const { return m_bSignaled; }
};

/// What `action` throws, with errno at EACCES before it.
KvconException CaughtWithErrno(const std::function<void()>& action) {
    errno = EACCES;
    return CaughtFrom(action);
}

void ExpectFailure(KvconException exception, const std::string& message, int line) {
    EXPECT_EQ(exception.GetMsg(), message);
    EXPECT_EQ(exception.GetFile(), "../src/KvconEvent");
    EXPECT_EQ(exception.GetLine(), line);
    EXPECT_EQ(exception.GetSysMsg(), "Permission denied");
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

/// The deadline of a timed wait of `timeoutMs` that starts at `now`.
timespec DeadlineOf(int timeoutMs, timeval now) {
    KvconEvent event;
    timespec deadline{};
    const FixedTimeOfDay clock(now);
    Interception wait(SystemCall::ConditionTimedWait,
                      [&](const SystemCallArguments& call) -> std::optional<int> {
                          deadline = call.deadline;
                          return ETIMEDOUT;
                      });
    EXPECT_EQ(event.Wait(timeoutMs), 17);
    return deadline;
}

TEST(KvconEventFaultTest, MutexThatCannotBeMadeThrows) {
    FailOnce failure(SystemCall::MutexInit, ENOMEM);
    ExpectFailure(CaughtWithErrno([] { KvconEvent event; }), "Create lock failed", 91);
}

TEST(KvconEventFaultTest, ConditionThatCannotBeMadeThrows) {
    FailOnce failure(SystemCall::ConditionInit, ENOMEM);
    ExpectFailure(CaughtWithErrno([] { KvconEvent event(true); }), "Create condition event failed", 98);
}

TEST(KvconEventFaultTest, WaitThatCannotLockThrows) {
    OpenEvent event;
    FailOnce failure(SystemCall::MutexLock, EINVAL, event.Mutex());
    ExpectFailure(CaughtWithErrno([&] { event.Wait(0); }), "Lock failed", 136);
}

TEST(KvconEventFaultTest, WaitOnASignaledEventThatCannotUnlockThrows) {
    OpenEvent event(true);
    event.Broadcast();
    FailOnce failure(SystemCall::MutexUnlock, EPERM, event.Mutex());
    ExpectFailure(CaughtWithErrno([&] { event.Wait(0); }), "Unlock failed", 150);
}

TEST(KvconEventFaultTest, TimedWaitThatCannotUnlockThrows) {
    OpenEvent event;
    FailOnce failure(SystemCall::MutexUnlock, EPERM, event.Mutex());
    Interception wait(SystemCall::ConditionTimedWait,
                      [](const SystemCallArguments&) -> std::optional<int> { return ETIMEDOUT; });
    ExpectFailure(CaughtWithErrno([&] { event.Wait(1); }), "Unlock failed", 179);
}

TEST(KvconEventFaultTest, UnboundedWaitThatCannotUnlockThrows) {
    OpenEvent event(true);
    std::thread signaler;
    FailOnce failure(SystemCall::MutexUnlock, EPERM, event.Mutex(), 1);  // the first one is Broadcast's
    Interception wait(SystemCall::ConditionWait, [&](const SystemCallArguments&) -> std::optional<int> {
        signaler = std::thread([&] { event.Broadcast(); });
        return std::nullopt;
    });
    ExpectFailure(CaughtWithErrno([&] { event.Wait(-1); }), "Unlock failed", 194);
    signaler.join();
}

TEST(KvconEventFaultTest, BroadcastOfAManualResetEventThatFailsThrows) {
    OpenEvent event(true);
    FailOnce failure(SystemCall::ConditionBroadcast, EINVAL, event.Condition());
    ExpectFailure(CaughtWithErrno([&] { event.Broadcast(); }), "Broadcast Event Failed", 265);
    EXPECT_TRUE(event.IsSignaled());
}

TEST(KvconEventFaultTest, BroadcastOfAnAutoResetEventThatFailsThrows) {
    OpenEvent event(false);
    FailOnce failure(SystemCall::ConditionSignal, EINVAL, event.Condition());
    ExpectFailure(CaughtWithErrno([&] { event.Broadcast(); }), "Broadcast Event Failed", 265);
}

TEST(KvconEventFaultTest, ResetThatCannotLockThrows) {
    OpenEvent event(true);
    FailOnce failure(SystemCall::MutexLock, EINVAL, event.Mutex());
    ExpectFailure(CaughtWithErrno([&] { event.Reset(); }), "Lock Failed", 289);
}

TEST(KvconEventFaultTest, ResetOfAnAutoResetEventDoesNotEvenLock) {
    OpenEvent event(false);
    kvtest::CallCount locks(SystemCall::MutexLock, event.Mutex());
    event.Reset();
    EXPECT_EQ(locks, 0);
}

TEST(KvconEventFaultTest, ResetIgnoresAFailedUnlock) {
    OpenEvent event(true);
    FailOnce failure(SystemCall::MutexUnlock, EPERM, event.Mutex());
    EXPECT_NO_THROW(event.Reset());
    EXPECT_TRUE(failure.HasFailed());
}

TEST(KvconEventFaultTest, BroadcastIgnoresItsOwnLockAndUnlock) {
    OpenEvent event(true);
    int failures = 0;
    const auto fail = [&](const SystemCallArguments&) -> std::optional<int> {
        ++failures;
        return EINVAL;
    };
    {
        Interception lock(SystemCall::MutexLock, fail);
        Interception unlock(SystemCall::MutexUnlock, fail);
        EXPECT_NO_THROW(event.Broadcast());
    }
    EXPECT_EQ(failures, 2);
    EXPECT_EQ(event.Wait(0), 16);
}

TEST(KvconEventFaultTest, DeadlineCarriesTheFractionIntoWholeSeconds) {
    const timespec deadline = DeadlineOf(1500, {1000, 900000});
    EXPECT_EQ(deadline.tv_sec, 1002);
    EXPECT_EQ(deadline.tv_nsec, 400000000);
}

TEST(KvconEventFaultTest, DeadlineWithoutACarryKeepsTheSecond) {
    const timespec deadline = DeadlineOf(250, {1000, 100000});
    EXPECT_EQ(deadline.tv_sec, 1000);
    EXPECT_EQ(deadline.tv_nsec, 350000000);
}

TEST(KvconEventFaultTest, DeadlineThatFallsOnAWholeSecondHasNoNanoseconds) {
    const timespec deadline = DeadlineOf(30001, {1000, 999000});
    EXPECT_EQ(deadline.tv_sec, 1031);
    EXPECT_EQ(deadline.tv_nsec, 0);
}

TEST(KvconEventFaultTest, DeadlineOfATimeoutOfZeroIsNow) {
    const timespec deadline = DeadlineOf(0, {1000, 123456});
    EXPECT_EQ(deadline.tv_sec, 1000);
    EXPECT_EQ(deadline.tv_nsec, 123456000);
}

TEST(KvconEventFaultTest, LongestTimeoutDoesNotOverflow) {
    const timespec deadline = DeadlineOf(2147483647, {1000, 999999});
    EXPECT_EQ(deadline.tv_sec, 2148484);
    EXPECT_EQ(deadline.tv_nsec, 646999000);
}

TEST(KvconEventFaultTest, ATimedWaitWokenSpuriouslyCountsAsSignaled) {
    KvconEvent event;
    int waits = 0;
    Interception wait(SystemCall::ConditionTimedWait, [&](const SystemCallArguments&) -> std::optional<int> {
        ++waits;
        return 0;
    });
    EXPECT_EQ(event.Wait(30000), 16);
    EXPECT_EQ(waits, 1);
}

TEST(KvconEventFaultTest, AnUnboundedWaitAbsorbsSpuriousWakeUps) {
    OpenEvent event;
    int spurious = 0;
    std::thread signaler;
    Interception wait(SystemCall::ConditionWait, [&](const SystemCallArguments&) -> std::optional<int> {
        if (++spurious <= 3) {
            return 0;
        }
        signaler = std::thread([&] { event.Broadcast(); });
        return std::nullopt;
    });
    EXPECT_EQ(event.Wait(-1), 16);
    EXPECT_EQ(spurious, 4);
    signaler.join();
}

TEST(KvconEventFaultTest, ATimedWaitThatFailsAnswersError) {
    KvconEvent event;
    FailOnce failure(SystemCall::ConditionTimedWait, EINVAL);
    EXPECT_EQ(event.Wait(30000), 18);
}

TEST(KvconEventFaultTest, AnUnboundedWaitAnswersByItsLastWaitResult) {
    for (const auto& [systemResult, result] :
         {std::pair{ETIMEDOUT, 17}, std::pair{EINVAL, 18}, std::pair{0, 16}}) {
        OpenEvent event;
        const int answer = systemResult;
        Interception wait(SystemCall::ConditionWait, [&](const SystemCallArguments&) -> std::optional<int> {
            // The waiter holds the mutex and must see the signal: unlock, signal, and lock again, as a wait
            // does.
            auto* const mutex = static_cast<pthread_mutex_t*>(const_cast<void*>(event.Mutex()));
            pthread_mutex_unlock(mutex);
            event.Broadcast();
            pthread_mutex_lock(mutex);
            return answer;
        });
        EXPECT_EQ(event.Wait(-1), result);
        EXPECT_FALSE(event.IsSignaled());
    }
}

TEST(KvconEventFaultTest, ATimedOutWaitLeavesASignalThatCameTooLate) {
    OpenEvent event(false);
    Interception wait(SystemCall::ConditionTimedWait, [&](const SystemCallArguments&) -> std::optional<int> {
        auto* const mutex = static_cast<pthread_mutex_t*>(const_cast<void*>(event.Mutex()));
        pthread_mutex_unlock(mutex);
        event.Broadcast();
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    });
    EXPECT_EQ(event.Wait(1), 17);
    EXPECT_TRUE(event.IsSignaled());
}

TEST(KvconEventFaultTest, SignalsGoOutWithTheMutexFree) {
    for (const bool manual : {false, true}) {
        OpenEvent event(manual);
        bool free = false;
        const auto look = [&](const SystemCallArguments&) -> std::optional<int> {
            auto* const mutex = static_cast<pthread_mutex_t*>(const_cast<void*>(event.Mutex()));
            free = pthread_mutex_trylock(mutex) == 0;
            pthread_mutex_unlock(mutex);
            return std::nullopt;
        };
        Interception signal(manual ? SystemCall::ConditionBroadcast : SystemCall::ConditionSignal, look);
        event.Broadcast();
        EXPECT_TRUE(free);
    }
}

/// Destroys an event on which `waiters` threads wait; how many of them it released. One that destruction
/// alone does not release is released by the test, between the signal and the end of the condition variable.
int ReleasedByDestruction(bool manualReset, int waiters) {
    auto event = std::make_unique<OpenEvent>(manualReset);
    std::atomic<int> waiting{0};
    std::atomic<int> released{0};
    std::vector<std::thread> threads;
    Interception waits(SystemCall::ConditionWait, [&](const SystemCallArguments&) -> std::optional<int> {
        ++waiting;
        return std::nullopt;
    });
    for (int i = 0; i < waiters; ++i) {
        threads.emplace_back([&] {
            event->Wait(-1);
            ++released;
        });
    }
    EXPECT_TRUE(kvtest::Eventually([&] { return waiting == waiters; }));
    int count = -1;
    Interception destroy(SystemCall::ConditionDestroy, [&](const SystemCallArguments&) -> std::optional<int> {
        const int expected = manualReset ? waiters : 1;
        EXPECT_TRUE(kvtest::Eventually([&] { return released >= expected; }));
        count = released;
        while (released < waiters) {
            event->Broadcast();
            std::this_thread::yield();
        }
        for (auto& thread : threads) {
            thread.join();
        }
        return std::nullopt;
    });
    OpenEvent* const dying = event.get();
    dying->~OpenEvent();
    ::operator delete(event.release());
    return count;
}

TEST(KvconEventFaultTest, DestructionOfAManualResetEventWakesEveryWaiter) {
    EXPECT_EQ(ReleasedByDestruction(true, 3), 3);
}

TEST(KvconEventFaultTest, DestructionOfAnAutoResetEventWakesOneWaiter) {
    EXPECT_EQ(ReleasedByDestruction(false, 1), 1);
    EXPECT_EQ(ReleasedByDestruction(false, 3), 1);
}

TEST(KvconEventFaultTest, DestructionSurvivesAFailedBroadcastAndReleasesThePrimitives) {
    auto event = std::make_unique<OpenEvent>(true);
    FailOnce failure(SystemCall::ConditionBroadcast, EINVAL, event->Condition());
    kvtest::CallCount conditions(SystemCall::ConditionDestroy, event->Condition());
    kvtest::CallCount mutexes(SystemCall::MutexDestroy, event->Mutex());
    EXPECT_NO_THROW(event.reset());
    EXPECT_TRUE(failure.HasFailed());
    EXPECT_EQ(conditions, 1);
    EXPECT_EQ(mutexes, 1);
}

}  // namespace
