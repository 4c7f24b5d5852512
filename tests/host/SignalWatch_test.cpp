#include "SignalWatch.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Eventually.h"

namespace kvhost {
namespace {

bool IsBlocked(int number) {
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return ::sigismember(&mask, number) == 1;
}

bool IsPending(int number) {
    sigset_t pending;
    ::sigpending(&pending);
    return ::sigismember(&pending, number) == 1;
}

void (*HandlerOf(int number))(int) {
    struct sigaction action {};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler;
}

TEST(SignalWatchTest, TheWorkRunsToItsEnd) {
    SignalWatch watch;
    bool isDone = false;
    watch.RunWatched([&] { isDone = true; }, [] {});
    EXPECT_TRUE(isDone);
}

void ExpectToldOnce(int number) {
    SignalWatch watch;
    std::atomic<int> stops{0};
    watch.RunWatched(
        [&] {
            ::kill(::getpid(), number);
            EXPECT_TRUE(kvtest::Eventually([&] { return stops == 1; })) << number;
        },
        [&] { ++stops; });
}

TEST(SignalWatchTest, EveryStopSignalIsTold) {
    for (const int number : {SIGINT, SIGTERM, SIGQUIT}) {
        const auto before = ::signal(number, SIG_DFL);  // whoever started the program may have it ignored
        ExpectToldOnce(number);
        ::signal(number, before);
    }
}

TEST(SignalWatchTest, TheWorkHasTheSignalsBlocked) {
    SignalWatch watch;
    watch.RunWatched(
        [] {
            EXPECT_TRUE(IsBlocked(SIGTERM));
            EXPECT_TRUE(IsBlocked(SIGQUIT));
            EXPECT_TRUE(IsBlocked(SIGINT));
        },
        [] {});
}

/// Whether the kernel gives the main thread a SIGTERM of the process: it waits for one, or has it open.
bool IsMainThreadOpen() {
    std::ifstream status("/proc/self/task/" + std::to_string(::getpid()) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk:", 0) == 0) {
            return (std::strtoull(line.c_str() + 7, nullptr, 16) >> (SIGTERM - 1) & 1U) == 0;
        }
    }
    return false;
}

TEST(SignalWatchTest, TheWorkBeginsWhenTheSignalsAreWaitedFor) {
    SignalWatch watch;
    EXPECT_FALSE(IsMainThreadOpen());
    bool isOpen = false;
    watch.RunWatched([&isOpen] { isOpen = IsMainThreadOpen(); }, [] {});
    EXPECT_TRUE(isOpen);
}

TEST(SignalWatchTest, ASignalThatTheProcessIgnoresIsNotTold) {
    const auto before = ::signal(SIGINT, SIG_IGN);
    bool isTold = false;
    {
        SignalWatch watch;
        watch.RunWatched(
            [] {
                ::kill(::getpid(), SIGINT);
                EXPECT_TRUE(kvtest::Eventually([] { return !IsPending(SIGINT); }));
            },
            [&] { isTold = true; });
    }
    ::signal(SIGINT, before);
    EXPECT_FALSE(isTold);
}

TEST(SignalWatchTest, MaskAndDispositionsAreAsBeforeAtTheEnd) {
    const auto before = HandlerOf(SIGTERM);
    {
        SignalWatch watch;
        ::signal(SIGTERM, [](int) {});
    }
    EXPECT_FALSE(IsBlocked(SIGTERM));
    EXPECT_EQ(HandlerOf(SIGTERM), before);
}

TEST(SignalWatchTest, WhatTheWorkThrowsIsThrownByTheWatch) {
    SignalWatch watch;
    EXPECT_THROW(watch.RunWatched([] { throw std::runtime_error("no"); }, [] {}), std::runtime_error);
}

}  // namespace
}  // namespace kvhost
