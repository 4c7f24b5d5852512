#include "KvconLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "src/ThreadDoubles.h"

namespace {

using kvtest::TryLockOnAnotherThread;

TEST(KvconLockTest, ResultCodesHaveTheirFixedValues) {
    EXPECT_EQ(KvconLock::LOCK_ACQUIRED, 0);
    EXPECT_EQ(KvconLock::LOCK_BUSY, 1);
    EXPECT_EQ(KvconLock::LOCK_FAILED, 2);
}

TEST(KvconLockTest, SecondLockByTheOwnerSucceedsAtOnce) {
    KvconLock lock;
    ASSERT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.Lock(), 0);
    lock.Unlock();
    lock.Unlock();
}

TEST(KvconLockTest, TryLockByTheOwnerSucceeds) {
    KvconLock lock;
    ASSERT_EQ(lock.Lock(), 0);
    EXPECT_EQ(lock.TryLock(), 0);
    lock.Unlock();
    lock.Unlock();
}

TEST(KvconLockTest, TryLockByAnotherThreadAnswersBusyWhileItIsHeld) {
    KvconLock lock;
    lock.Lock();
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(KvconLockTest, TryLockOfAFreeLockAcquiresIt) {
    KvconLock lock;
    EXPECT_EQ(lock.TryLock(), 0);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(KvconLockTest, OwnerMustUnlockAsManyTimesAsItLocked) {
    KvconLock lock;
    lock.Lock();
    lock.Lock();
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    EXPECT_EQ(lock.Unlock(), 0);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 0);
}

TEST(KvconLockTest, UnlockOfALockThatNobodyHoldsAnswersTheSystemsErrorNumber) {
    KvconLock lock;
    EXPECT_EQ(lock.Unlock(), EPERM);
}

TEST(KvconLockTest, UnlockByAnotherThreadIsRefusedAndTheOwnerKeepsTheLock) {
    KvconLock lock;
    lock.Lock();
    int result = 0;
    std::thread other([&] { result = lock.Unlock(); });
    other.join();
    EXPECT_EQ(result, EPERM);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(KvconLockTest, LockWaitsUntilTheOwnerUnlocks) {
    KvconLock lock;
    lock.Lock();
    std::atomic<bool> released{false};
    bool releasedBeforeAcquired = false;
    int result = -1;
    kvtest::Latch waiting;
    std::thread other([&] {
        waiting.Open();
        result = lock.Lock();
        releasedBeforeAcquired = released;
        lock.Unlock();
    });
    ASSERT_TRUE(waiting.Wait());
    released = true;
    lock.Unlock();
    other.join();
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(releasedBeforeAcquired);
}

TEST(KvconLockTest, OneThreadAtATimeIsInside) {
    KvconLock lock;
    int count = 0;  // not atomic: a lost increment shows
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round) {
                lock.Lock();
                ++count;
                lock.Unlock();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20000);
}

TEST(KvconLockTest, DestructionOfALockThatNobodyHoldsIsHarmless) {
    auto lock = std::make_unique<KvconLock>();
    EXPECT_EQ(lock->Lock(), 0);
    EXPECT_EQ(lock->Unlock(), 0);
    EXPECT_NO_THROW(lock.reset());
}

TEST(KvconLockTest, LocksAreDeletedThroughTheirRoot) {
    std::unique_ptr<Kvobject> object = std::make_unique<KvconLock>();
    EXPECT_NE(dynamic_cast<KvconLock*>(object.get()), nullptr);
}

}  // namespace
