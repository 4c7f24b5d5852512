#include "KvconCriticalSection.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "src/ThreadDoubles.h"

namespace {

using kvtest::TryLockOnAnotherThread;

/// A lock that tells when it is deleted.
class WatchedLock : public KvconLock {
public:
    explicit WatchedLock(int& deleted) : m_deleted(deleted) {}
    ~WatchedLock() override { ++m_deleted; }

private:
    int& m_deleted;
};

TEST(KvconCriticalSectionTest, GuardHoldsTheLockToTheEndOfItsScope) {
    KvconLock lock;
    {
        KvconCriticalSection guard(&lock, true, true, false);
        EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    }
    EXPECT_EQ(TryLockOnAnotherThread(lock), 0);
}

TEST(KvconCriticalSectionTest, GuardUnlocksWhenAnExceptionPassesThrough) {
    KvconLock lock;
    try {
        KvconCriticalSection guard(&lock, true, true, false);
        throw std::runtime_error("passing through");
    } catch (const std::runtime_error&) {
        EXPECT_EQ(TryLockOnAnotherThread(lock), 0);
        return;
    }
    FAIL() << "the exception did not pass";
}

TEST(KvconCriticalSectionTest, GuardNeverDeletesALockItWasNotGiven) {
    int deleted = 0;
    WatchedLock lock(deleted);
    { KvconCriticalSection guard(&lock, true, true, false); }
    EXPECT_EQ(deleted, 0);
}

TEST(KvconCriticalSectionTest, GuardDeletesALockItWasGiven) {
    int deleted = 0;
    { KvconCriticalSection guard(new WatchedLock(deleted), true, true, true); }
    EXPECT_EQ(deleted, 1);
}

TEST(KvconCriticalSectionTest, GuardWithoutALockToDeleteIsHarmless) {
    EXPECT_NO_THROW({ KvconCriticalSection guard(nullptr, false, false, true); });
}

TEST(KvconCriticalSectionTest, GuardThatDoesNotLockNowLeavesTheLockFree) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 0);
}

TEST(KvconCriticalSectionTest, GuardThatDoesNotUnlockOnExitLeavesTheLockHeld) {
    KvconLock lock;
    { KvconCriticalSection guard(&lock, true, false, false); }
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(KvconCriticalSectionTest, DefaultGuardHasAFreeLockOfItsOwn) {
    KvconCriticalSection guard;
    ASSERT_NE(guard.GetLockObj(), nullptr);
    EXPECT_EQ(TryLockOnAnotherThread(*guard.GetLockObj()), 0);
}

TEST(KvconCriticalSectionTest, GuardShowsTheLockItGuards) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_EQ(guard.GetLockObj(), &lock);
}

TEST(KvconCriticalSectionTest, EnterLocksAndAnswersTrue) {
    KvconCriticalSection guard;
    EXPECT_TRUE(guard.Enter());
    EXPECT_EQ(TryLockOnAnotherThread(*guard.GetLockObj()), 1);
    guard.Leave();
}

TEST(KvconCriticalSectionTest, LeaveUnlocksAndAnswersTrue) {
    KvconCriticalSection guard;
    guard.Enter();
    EXPECT_TRUE(guard.Leave());
    EXPECT_EQ(TryLockOnAnotherThread(*guard.GetLockObj()), 0);
}

TEST(KvconCriticalSectionTest, LeaveAnswersTrueAlsoWhenTheLockIsNotHeld) {
    KvconCriticalSection guard;
    EXPECT_TRUE(guard.Leave());
}

TEST(KvconCriticalSectionTest, LeaveOnAGuardThatUnlocksOnExitUnlocksTwice) {
    KvconLock lock;
    lock.Lock();
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Leave();
        EXPECT_EQ(TryLockOnAnotherThread(lock), 1);  // the first Lock() still holds it
    }
    EXPECT_EQ(TryLockOnAnotherThread(lock), 0);  // and has now lost it
}

TEST(KvconCriticalSectionTest, SurplusUnlockOnExitIsTolerated) {
    KvconLock lock;
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Leave();
    }
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(KvconCriticalSectionTest, GuardUnlocksOnceHoweverOftenItWasEntered) {
    KvconLock lock;
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Enter();
    }
    EXPECT_EQ(TryLockOnAnotherThread(lock), 1);
    lock.Unlock();
}

}  // namespace
