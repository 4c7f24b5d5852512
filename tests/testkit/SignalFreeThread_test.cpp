#include "SignalFreeThread.h"

#include <gtest/gtest.h>
#include <signal.h>

using kvtest::StartSignalFreeThread;

namespace {

sigset_t MaskOfThisThread() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

}  // namespace

TEST(SignalFreeThreadTest, TheSignalsOfTheProductAreBlockedInTheThread) {
    sigset_t mask{};
    StartSignalFreeThread([&] { mask = MaskOfThisThread(); }).join();
    for (const int signal : {SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGPIPE, SIGINT, SIGALRM, SIGCHLD}) {
        EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
    }
}

TEST(SignalFreeThreadTest, TheMaskOfTheStartingThreadIsAsBefore) {
    const sigset_t before = MaskOfThisThread();
    StartSignalFreeThread([] {}).join();
    const sigset_t after = MaskOfThisThread();
    for (int signal = 1; signal < NSIG; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
}
