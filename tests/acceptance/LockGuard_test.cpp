#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

#include "AcceptedLockKit.h"
#include "KvconCriticalSection.h"

namespace {

using acceptedlock::TryFromAnotherThread;

/// A lock that tells when it is deleted.
class WatchedLock : public KvconLock {
public:
    explicit WatchedLock(int& deleted) : m_deleted(deleted) {}
    ~WatchedLock() override { ++m_deleted; }

private:
    int& m_deleted;
};

class OpenGuard : public KvconCriticalSection {
public:
    using KvconCriticalSection::KvconCriticalSection;
    using KvconCriticalSection::m_bDeleteLock;
    using KvconCriticalSection::m_bUnlockOnExit;
    using KvconCriticalSection::m_pLock;
};

TEST(AcceptedGuard, HasNoVirtualOperationAndItsMembersStandInOrder) {
    struct Members {
        void* lock;
        bool deleteLock;
        bool unlockOnExit;
    };
    EXPECT_FALSE(std::is_polymorphic_v<KvconCriticalSection>);
    EXPECT_EQ(sizeof(KvconCriticalSection), sizeof(Members));
    KvconLock lock;
    OpenGuard guard(&lock, false, false, false);
    EXPECT_LT(static_cast<const void*>(&guard.m_pLock), static_cast<const void*>(&guard.m_bDeleteLock));
    EXPECT_LT(&guard.m_bDeleteLock, &guard.m_bUnlockOnExit);
}

TEST(AcceptedGuard, MadeWithoutALockOwnsOneOfItsOwn) {
    OpenGuard guard;
    ASSERT_NE(guard.GetLockObj(), nullptr);
    EXPECT_TRUE(guard.m_bDeleteLock);
    EXPECT_FALSE(guard.m_bUnlockOnExit);
}

TEST(AcceptedGuard, MadeWithoutALockDoesNotLock) {
    KvconCriticalSection guard;
    EXPECT_EQ(TryFromAnotherThread(*guard.GetLockObj()), 0);
}

TEST(AcceptedGuard, TwoMadeWithoutALockHaveDifferentOnes) {
    KvconCriticalSection first;
    KvconCriticalSection second;
    EXPECT_NE(first.GetLockObj(), second.GetLockObj());
}

TEST(AcceptedGuard, StoresItsValues) {
    KvconLock lock;
    OpenGuard guard(&lock, false, true, false);
    EXPECT_EQ(guard.GetLockObj(), &lock);
    EXPECT_EQ(guard.m_pLock, &lock);
    EXPECT_TRUE(guard.m_bUnlockOnExit);
    EXPECT_FALSE(guard.m_bDeleteLock);
}

TEST(AcceptedGuard, LocksAtOnceWhenAskedTo) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, true, true, false);
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
}

TEST(AcceptedGuard, DoesNotLockWhenNotAskedTo) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, UnlocksAtTheEndOfItsScope) {
    KvconLock lock;
    { KvconCriticalSection guard(&lock, true, true, false); }
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, UnlocksWhenAnExceptionPasses) {
    KvconLock lock;
    try {
        KvconCriticalSection guard(&lock, true, true, false);
        throw std::runtime_error("passes");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, KeepsTheLockLockedWhenItDoesNotUnlockOnExit) {
    KvconLock lock;
    { KvconCriticalSection guard(&lock, true, false, false); }
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
}

TEST(AcceptedGuard, LeavesTheLockAlive) {
    int deleted = 0;
    WatchedLock lock(deleted);
    { KvconCriticalSection guard(&lock, true, true, false); }
    EXPECT_EQ(deleted, 0);
}

TEST(AcceptedGuard, DeletesTheLockThroughItsVirtualDestructorWhenAskedTo) {
    int deleted = 0;
    { KvconCriticalSection guard(new WatchedLock(deleted), false, false, true); }
    EXPECT_EQ(deleted, 1);
}

TEST(AcceptedGuard, UnlocksBeforeItDeletesTheLock) {
    int deleted = 0;
    { KvconCriticalSection guard(new WatchedLock(deleted), true, true, true); }
    EXPECT_EQ(deleted, 1);
}

TEST(AcceptedGuard, WithoutALockHasNothingToDelete) {
    KvconCriticalSection guard(nullptr, false, false, true);
    EXPECT_EQ(guard.GetLockObj(), nullptr);
}

TEST(AcceptedGuard, EnterLocksAndAnswersTrue) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_TRUE(guard.Enter());
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    EXPECT_TRUE(guard.Leave());
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, EnterAnswersFalseWhenTheLockFails) {
    acceptedlock::UnusableLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_FALSE(guard.Enter());
}

TEST(AcceptedGuard, IgnoresALockThatFailsAtOnce) {
    acceptedlock::UnusableLock lock;
    EXPECT_NO_THROW(KvconCriticalSection(&lock, true, true, false));
}

TEST(AcceptedGuard, LeaveAnswersTrueAlsoWhenNothingIsLocked) {
    KvconLock lock;
    KvconCriticalSection guard(&lock, false, false, false);
    EXPECT_TRUE(guard.Leave());
}

TEST(AcceptedGuard, UnlocksOnceHoweverOftenItEntered) {
    KvconLock lock;
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Enter();
    }
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    lock.Unlock();
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, UnlocksOnceMoreAfterLeave) {
    KvconLock lock;
    lock.Lock();
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Leave();
        EXPECT_EQ(TryFromAnotherThread(lock), 1);
    }
    EXPECT_EQ(TryFromAnotherThread(lock), 0);
}

TEST(AcceptedGuard, TheSurplusUnlockLeavesTheLockUsable) {
    KvconLock lock;
    {
        KvconCriticalSection guard(&lock, true, true, false);
        guard.Leave();
    }
    EXPECT_EQ(lock.Lock(), 0);
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
    EXPECT_EQ(lock.Unlock(), 0);
}

TEST(AcceptedGuard, GuardsOfTheSameLockNest) {
    KvconLock lock;
    KvconCriticalSection outer(&lock, true, true, false);
    { KvconCriticalSection inner(&lock, true, true, false); }
    EXPECT_EQ(TryFromAnotherThread(lock), 1);
}

}  // namespace
