#include "KvconCriticalSection.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::CaughtFrom;
using kvtest::FailOnce;
using kvtest::SystemCall;

TEST(KvconCriticalSectionFaultTest, EnterAnswersFalseWhenTheLockCannotBeTaken) {
    KvconCriticalSection guard;
    FailOnce failure(SystemCall::MutexLock, EINVAL);
    EXPECT_FALSE(guard.Enter());
}

TEST(KvconCriticalSectionFaultTest, FailedLockAtConstructionIsIgnored) {
    KvconLock lock;
    FailOnce failure(SystemCall::MutexLock, EINVAL);
    EXPECT_NO_THROW({ KvconCriticalSection guard(&lock, true, true, false); });
    EXPECT_TRUE(failure.HasFailed());
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(lock), 0);
}

TEST(KvconCriticalSectionFaultTest, FailureToMakeItsOwnLockPassesOn) {
    FailOnce failure(SystemCall::MutexInit, ENOMEM);
    EXPECT_EQ(CaughtFrom([] { KvconCriticalSection guard; }).GetMsg(), "Create Lock Failed");
}

TEST(KvconCriticalSectionFaultTest, GuardThatNeitherLocksNorUnlocksTouchesNothing) {
    KvconLock lock;
    kvtest::CallCount locks(SystemCall::MutexLock);
    kvtest::CallCount unlocks(SystemCall::MutexUnlock);
    { KvconCriticalSection guard(&lock, false, false, false); }
    EXPECT_EQ(locks, 0);
    EXPECT_EQ(unlocks, 0);
}

}  // namespace
