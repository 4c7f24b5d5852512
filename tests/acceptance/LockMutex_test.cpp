#include <errno.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <type_traits>

#include "AcceptedLockKit.h"
#include "KvconLock.h"
#include "Kvobject.h"

namespace {

using acceptedlock::OnAnotherThread;
using acceptedlock::OpenLock;
using acceptedlock::TryFromAnotherThread;
using namespace std::chrono_literals;

TEST(AcceptedLock, DescendsFromTheCommonRootAndHoldsOneMutex) {
    struct Members {
        virtual ~Members() = default;
        pthread_mutex_t mutex;
    };
    EXPECT_TRUE((std::is_base_of_v<Kvobject, KvconLock>));
    EXPECT_EQ(sizeof(KvconLock), sizeof(Members));
}

TEST(AcceptedLock, IsFreeAtFirst) {
    KvconLock lock;
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedLock, LockAnswersZero) {
    KvconLock lock;
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.Unlock(), 0);
}

TEST(AcceptedLock, TryLockOfAFreeLockAnswersZero) {
    KvconLock lock;
    EXPECT_EQ(lock.TryLock(), 0);
    EXPECT_EQ(lock.Unlock(), 0);
}

TEST(AcceptedLock, TryLockTakesTheLock) {
    KvconLock lock;
    lock.TryLock();
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(AcceptedLock, TheOwnerLocksAgainWithoutWaiting) {
    KvconLock lock;
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.TryLock(), 0);
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_EQ(lock.Unlock(), 0);
}

TEST(AcceptedLock, TryLockByAnotherThreadIsBusyWhileItIsHeld) {
    KvconLock lock;
    lock.Lock();
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedLock, TheOwnerUnlocksAsManyTimesAsItLocked) {
    KvconLock lock;
    lock.Lock();
    lock.Lock();
    lock.Unlock();
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedLock, LockByAnotherThreadWaitsForTheOwner) {
    KvconLock lock;
    lock.Lock();
    std::future<int> other = std::async(std::launch::async, [&] {
        const int result = lock.Lock();
        lock.Unlock();
        return result;
    });
    EXPECT_EQ(other.wait_for(150ms), std::future_status::timeout);
    lock.Unlock();
    EXPECT_EQ(other.get(), 0);
}

TEST(AcceptedLock, ThreadsThatLockNeverMeet) {
    KvconLock lock;
    int value = 0;
    auto add = [&] {
        for (int i = 0; i < 5000; ++i) {
            lock.Lock();
            ++value;
            lock.Unlock();
        }
    };
    std::thread first(add);
    std::thread second(add);
    first.join();
    second.join();
    EXPECT_EQ(value, 10000);
}

TEST(AcceptedLock, UnlockOfAFreeLockAnswersTheErrorNumber) {
    KvconLock lock;
    EXPECT_EQ(lock.Unlock(), EPERM);
}

TEST(AcceptedLock, UnlockByAnotherThreadAnswersTheErrorNumberAndChangesNothing) {
    KvconLock lock;
    lock.Lock();
    int result = 0;
    OnAnotherThread([&] { result = lock.Unlock(); });
    EXPECT_EQ(result, EPERM);
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(AcceptedLock, ADeadLockReportOfTheSystemCountsAsAcquired) {
    OpenLock lock;
    ASSERT_NO_FATAL_FAILURE(acceptedlock::Remake(lock.m_mutex, PTHREAD_MUTEX_ERRORCHECK));
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.Lock(), 0);
    lock.Unlock();
}

TEST(AcceptedLock, TryLockAnswersBusyWhenTheSystemSaysSo) {
    OpenLock lock;
    ASSERT_NO_FATAL_FAILURE(acceptedlock::Remake(lock.m_mutex, PTHREAD_MUTEX_ERRORCHECK));
    lock.Lock();
    EXPECT_EQ(lock.TryLock(), 1);
    lock.Unlock();
}

TEST(AcceptedLock, AnyOtherErrorIsTheFailureResultAndNeverThrown) {
    acceptedlock::UnusableLock lock;
    EXPECT_EQ(lock.Lock(), 2);
    EXPECT_EQ(lock.TryLock(), 2);
}

TEST(AcceptedLock, DestructionOfAFreeLockIsHarmless) {
    auto lock = std::make_unique<KvconLock>();
    lock.reset();
    lock = std::make_unique<KvconLock>();
    EXPECT_EQ(lock->Lock(), 0);
    lock->Unlock();
}

TEST(AcceptedLock, DestructionOfALockThatTheThreadHoldsIsHarmless) {
    auto lock = std::make_unique<KvconLock>();
    lock->Lock();
    const std::unique_ptr<Kvobject> root = std::move(lock);
}

}  // namespace
