#include "KvconLock.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::CaughtFrom;
using kvtest::FailOnce;
using kvtest::Interception;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

TEST(KvconLockFaultTest, MutexThatCannotBeMadeThrows) {
    FailOnce failure(SystemCall::MutexInit, ENOMEM);
    errno = EACCES;  // the call answers its error number and leaves errno as it was
    KvconException exception = CaughtFrom([] { KvconLock lock; });
    EXPECT_TRUE(failure.HasFailed());
    EXPECT_EQ(exception.GetMsg(), "Create Lock Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconLock");
    EXPECT_EQ(exception.GetLine(), 66);
    EXPECT_EQ(exception.GetSysMsg(), "Permission denied");
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

TEST(KvconLockFaultTest, MutexIsMadeRecursive) {
    std::vector<long> types;
    Interception watch(SystemCall::MutexSetType, [&](const SystemCallArguments& call) -> std::optional<int> {
        types.push_back(call.number);
        return std::nullopt;
    });
    KvconLock lock;
    EXPECT_EQ(types, std::vector<long>{PTHREAD_MUTEX_RECURSIVE});
}

TEST(KvconLockFaultTest, ReportedDeadlockCountsAsAcquired) {
    KvconLock lock;
    FailOnce inLock(SystemCall::MutexLock, EDEADLK);
    EXPECT_EQ(lock.Lock(), 0);
    FailOnce inTryLock(SystemCall::MutexTryLock, EDEADLK);
    EXPECT_EQ(lock.TryLock(), 0);
    EXPECT_TRUE(inLock.HasFailed() && inTryLock.HasFailed());
}

TEST(KvconLockFaultTest, AnyOtherErrorOfLockIsAFailure) {
    KvconLock lock;
    for (const int error : {EINVAL, EAGAIN, EBUSY, EOWNERDEAD}) {
        FailOnce failure(SystemCall::MutexLock, error);
        EXPECT_EQ(lock.Lock(), 2) << error;
    }
}

TEST(KvconLockFaultTest, AnyOtherErrorOfTryLockIsAFailure) {
    KvconLock lock;
    for (const int error : {EINVAL, EAGAIN, EPERM}) {
        FailOnce failure(SystemCall::MutexTryLock, error);
        EXPECT_EQ(lock.TryLock(), 2) << error;
    }
}

TEST(KvconLockFaultTest, UnlockAnswersTheSystemsResultUnchanged) {
    KvconLock lock;
    lock.Lock();
    FailOnce failure(SystemCall::MutexUnlock, EINVAL);
    EXPECT_EQ(lock.Unlock(), EINVAL);
}

TEST(KvconLockFaultTest, DestructionReleasesALockHeldByTheDestroyingThread) {
    std::vector<std::string> calls;
    auto lock = std::make_unique<KvconLock>();
    lock->Lock();
    {
        Interception unlocks(SystemCall::MutexUnlock, [&](const SystemCallArguments&) -> std::optional<int> {
            calls.push_back("unlock");
            return std::nullopt;
        });
        Interception destroys(
            SystemCall::MutexDestroy, [&](const SystemCallArguments& call) -> std::optional<int> {
                auto* const mutex = static_cast<pthread_mutex_t*>(const_cast<void*>(call.object));
                const bool free = pthread_mutex_trylock(mutex) == 0;
                pthread_mutex_unlock(mutex);
                const bool stillHeld = pthread_mutex_unlock(mutex) == 0;
                calls.push_back(free && !stillHeld ? "destroy free" : "destroy held");
                return std::nullopt;
            });
        lock.reset();
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"unlock", "destroy free"}));
}

TEST(KvconLockFaultTest, DestructionUnlocksOnceAlsoWhenNobodyHoldsTheLock) {
    auto lock = std::make_unique<KvconLock>();
    kvtest::CallCount unlocks(SystemCall::MutexUnlock);
    kvtest::CallCount destroys(SystemCall::MutexDestroy);
    lock.reset();
    EXPECT_EQ(unlocks, 1);
    EXPECT_EQ(destroys, 1);
}

}  // namespace
