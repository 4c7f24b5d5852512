#include "KvSigPipeGuard.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "src/SocketDoubles.h"

namespace {

using kvtest::BlockedSignals;
using kvtest::IsBlockedHere;
using kvtest::IsPendingHere;

/// Writes to a peer that is gone, without MSG_NOSIGNAL.
void WriteIntoTheVoid() {
    kvtest::StreamPair pair;
    pair.peer.reset();
    EXPECT_EQ(write(pair.near.get(), "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
}

void TakePending() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const timespec now{0, 0};
    sigtimedwait(&pipe, nullptr, &now);
}

TEST(KvSigPipeGuardTest, WriteToAPeerThatIsGoneDoesNotEndTheProcess) {
    {
        const KvSigPipeGuard guard;
        WriteIntoTheVoid();
    }
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST(KvSigPipeGuardTest, WithoutASignalNothingIsWaitedFor) {
    { const KvSigPipeGuard guard; }
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST(KvSigPipeGuardTest, SignalThatTheCallerBlocksStaysBlocked) {
    const BlockedSignals blocked({SIGPIPE});
    {
        const KvSigPipeGuard guard;
        WriteIntoTheVoid();
    }
    EXPECT_TRUE(IsBlockedHere(SIGPIPE));
    EXPECT_FALSE(IsPendingHere(SIGPIPE));
}

TEST(KvSigPipeGuardTest, SignalThatWasPendingBeforeStaysPending) {
    const BlockedSignals blocked({SIGPIPE});
    raise(SIGPIPE);
    {
        const KvSigPipeGuard guard;
        WriteIntoTheVoid();
    }
    EXPECT_TRUE(IsPendingHere(SIGPIPE));
    TakePending();
}

TEST(KvSigPipeGuardTest, GuardsCanBeNested) {
    {
        const KvSigPipeGuard outer;
        {
            const KvSigPipeGuard inner;
            WriteIntoTheVoid();
        }
        EXPECT_TRUE(IsBlockedHere(SIGPIPE));
        WriteIntoTheVoid();
    }
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST(KvSigPipeGuardTest, ErrnoIsThatOfTheGuardedCall) {
    {
        const KvSigPipeGuard guard;
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
