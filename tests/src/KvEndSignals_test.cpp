#include "KvEndSignals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <vector>

#include "KvThreadRegistry.h"
#include "KvconThread.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::IsBlockedHere;
using kvtest::IsPendingHere;
using kvtest::Latch;

/// A pipe that nobody writes to unless the test does.
class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe(m_ends.data()), 0); }
    ~Pipe() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int ReadEnd() const { return m_ends[0]; }
    void Fill() const { EXPECT_EQ(write(m_ends[1], "x", 1), 1); }

private:
    std::array<int, 2> m_ends{};
};

/// One thread of the library with the end handlers installed; joined at the end.
class KvEndSignalsTest : public ::testing::Test {
protected:
    KvEndSignalsTest() { KvconThread::InitializeLibrary(); }
    ~KvEndSignalsTest() override { Join(); }

    void Start(std::function<void()> body) {
        m_body = std::move(body);
        const auto routine = [](void* self) -> void* {
            auto& test = *static_cast<KvEndSignalsTest*>(self);
            const Unwound unwound{test.m_unwound};
            test.m_body();
            test.m_returned = true;
            return nullptr;
        };
        ASSERT_EQ(KvThreadRegistry::Start(&m_id, nullptr, routine, this), 0);
        m_joinable = true;
    }
    void Join() {
        if (m_joinable) {
            pthread_join(m_id, nullptr);
        }
        m_joinable = false;
    }
    void Send(int signal) const { ASSERT_EQ(KvThreadRegistry::Signal(m_id, signal), 0); }

    /// True when the thread was ended inside its body and unwound.
    bool WasEnded() {
        Join();
        return m_unwound && !m_returned;
    }
    bool Returned() {
        Join();
        return m_returned;
    }

private:
    struct Unwound {
        bool& flag;
        ~Unwound() { flag = true; }
    };

    kvtest::SavedSignalHandlers m_handlers;
    std::function<void()> m_body;
    pthread_t m_id{};
    bool m_joinable = false;
    bool m_returned = false;
    bool m_unwound = false;
};

int PollOne(int descriptor, int timeoutMs) {
    pollfd entry{descriptor, POLLIN, 0};
    return KvEndSignals::Poll(&entry, 1, timeoutMs);
}

int SelectOne(int descriptor, const timespec* timeout) {
    fd_set reads;
    FD_ZERO(&reads);
    FD_SET(descriptor, &reads);
    return KvEndSignals::Select(descriptor + 1, &reads, nullptr, timeout);
}

TEST_F(KvEndSignalsTest, ForeignWorkRunsWithBothEndSignalsOpen) {
    std::vector<bool> blocked;
    Start([&] {
        const auto look = [](void* seen) {
            static_cast<std::vector<bool>*>(seen)->assign({IsBlockedHere(SIGQUIT), IsBlockedHere(SIGTERM)});
        };
        KvEndSignals::RunOpen(look, &blocked);
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(blocked, (std::vector<bool>{false, false}));
}

TEST_F(KvEndSignalsTest, EndSignalsAreBlockedAgainAfterForeignWork) {
    std::vector<bool> blocked;
    Start([&] {
        KvEndSignals::RunOpen([](void*) {}, nullptr);
        blocked.assign({IsBlockedHere(SIGQUIT), IsBlockedHere(SIGTERM)});
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(blocked, (std::vector<bool>{true, true}));
}

TEST_F(KvEndSignalsTest, TermSignalStaysBlockedInForeignWorkWhenTheStarterBlocksIt) {
    const kvtest::BlockedSignals hostReadsIt({SIGTERM});
    std::vector<bool> blocked;
    Start([&] {
        const auto look = [](void* seen) {
            static_cast<std::vector<bool>*>(seen)->assign({IsBlockedHere(SIGQUIT), IsBlockedHere(SIGTERM)});
        };
        KvEndSignals::RunOpen(look, &blocked);
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(blocked, (std::vector<bool>{false, true}));
}

TEST_F(KvEndSignalsTest, QuitSignalIsOpenInForeignWorkEvenWhenTheStarterBlocksIt) {
    const kvtest::BlockedSignals blockedInTheStarter({SIGQUIT});
    bool blocked = true;
    Start([&] {
        const auto look = [](void* seen) { *static_cast<bool*>(seen) = IsBlockedHere(SIGQUIT); };
        KvEndSignals::RunOpen(look, &blocked);
    });
    EXPECT_TRUE(Returned());
    EXPECT_FALSE(blocked);
}

TEST_F(KvEndSignalsTest, PendingEndSignalComesInWhenForeignWorkBegins) {
    bool begun = false;
    Start([&] {
        raise(SIGQUIT);
        KvEndSignals::RunOpen([](void* flag) { *static_cast<bool*>(flag) = true; }, &begun);
    });
    EXPECT_TRUE(WasEnded());
    EXPECT_FALSE(begun);
}

TEST_F(KvEndSignalsTest, ForeignWorkOnAThreadOfAnotherOwnerLeavesTheMaskAlone) {
    const kvtest::BlockedSignals blocked({SIGQUIT});
    std::vector<bool> seen;
    const auto look = [](void* result) {
        static_cast<std::vector<bool>*>(result)->assign({IsBlockedHere(SIGQUIT), IsBlockedHere(SIGTERM)});
    };
    KvEndSignals::RunOpen(look, &seen);
    EXPECT_EQ(seen, (std::vector<bool>{true, false}));
    EXPECT_TRUE(IsBlockedHere(SIGQUIT));
    EXPECT_FALSE(IsBlockedHere(SIGTERM));
}

TEST_F(KvEndSignalsTest, EndSignalEndsAThreadThatPollsInItsWaitWindow) {
    const Pipe pipe;
    Latch ready;
    Start([&] {
        const KvEndSignals::WaitWindow window;
        ready.Open();
        PollOne(pipe.ReadEnd(), -1);
    });
    ASSERT_TRUE(ready.Wait());
    Send(SIGQUIT);
    EXPECT_TRUE(WasEnded());
}

TEST_F(KvEndSignalsTest, EndSignalEndsAThreadThatSelectsInItsWaitWindow) {
    const Pipe pipe;
    Latch ready;
    Start([&] {
        const KvEndSignals::WaitWindow window;
        ready.Open();
        SelectOne(pipe.ReadEnd(), nullptr);
    });
    ASSERT_TRUE(ready.Wait());
    Send(SIGQUIT);
    EXPECT_TRUE(WasEnded());
}

TEST_F(KvEndSignalsTest, TermSignalEndsAThreadThatWaitsWhenTheStarterHasItOpen) {
    const Pipe pipe;
    Latch ready;
    Start([&] {
        const KvEndSignals::WaitWindow window;
        ready.Open();
        PollOne(pipe.ReadEnd(), -1);
    });
    ASSERT_TRUE(ready.Wait());
    Send(SIGTERM);
    EXPECT_TRUE(WasEnded());
}

TEST_F(KvEndSignalsTest, TermSignalStaysOutOfTheWaitWindowWhenTheStarterBlocksIt) {
    const kvtest::BlockedSignals hostReadsIt({SIGTERM});
    const Pipe pipe;
    int polled = -1;
    bool pending = false;
    Start([&] {
        const KvEndSignals::WaitWindow window;
        raise(SIGTERM);
        polled = PollOne(pipe.ReadEnd(), 1);
        pending = IsPendingHere(SIGTERM);
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(polled, 0);
    EXPECT_TRUE(pending);
}

TEST_F(KvEndSignalsTest, WithoutAWaitWindowTheWaitsKeepTheEndSignalsOut) {
    const Pipe pipe;
    int polled = -1;
    int selected = -1;
    bool pending = false;
    Start([&] {
        raise(SIGQUIT);
        polled = PollOne(pipe.ReadEnd(), 1);
        const timespec oneMillisecond{0, 1000000};
        selected = SelectOne(pipe.ReadEnd(), &oneMillisecond);
        KvEndSignals::LetIn();
        pending = IsPendingHere(SIGQUIT);
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(polled, 0);
    EXPECT_EQ(selected, 0);
    EXPECT_TRUE(pending);
}

TEST_F(KvEndSignalsTest, EndSignalStaysPendingBetweenTheWaitsOfAWindow) {
    const Pipe pipe;
    bool pendingBetween = false;
    Start([&] {
        const KvEndSignals::WaitWindow window;
        raise(SIGQUIT);
        pendingBetween = IsPendingHere(SIGQUIT);
        PollOne(pipe.ReadEnd(), -1);
    });
    EXPECT_TRUE(WasEnded());
    EXPECT_TRUE(pendingBetween);
}

TEST_F(KvEndSignalsTest, WindowIsClosedAtTheEndOfItsScope) {
    const Pipe pipe;
    int polled = -1;
    Start([&] {
        { const KvEndSignals::WaitWindow window; }
        raise(SIGQUIT);
        polled = PollOne(pipe.ReadEnd(), 1);
    });
    EXPECT_TRUE(Returned());
    EXPECT_EQ(polled, 0);
}

TEST_F(KvEndSignalsTest, PendingEndSignalIsLetInWithoutWaiting) {
    Start([] {
        const KvEndSignals::WaitWindow window;
        raise(SIGQUIT);
        KvEndSignals::LetIn();
    });
    EXPECT_TRUE(WasEnded());
}

TEST_F(KvEndSignalsTest, LettingInWithNothingPendingGoesOn) {
    Start([] {
        const KvEndSignals::WaitWindow window;
        KvEndSignals::LetIn();
    });
    EXPECT_TRUE(Returned());
}

TEST_F(KvEndSignalsTest, PollOfAReadableDescriptorAnswersIt) {
    const Pipe pipe;
    pipe.Fill();
    pollfd entry{pipe.ReadEnd(), POLLIN, 0};
    EXPECT_EQ(KvEndSignals::Poll(&entry, 1, -1), 1);
    EXPECT_EQ(entry.revents, POLLIN);
}

TEST_F(KvEndSignalsTest, PollTimesOutWithZero) {
    const Pipe pipe;
    EXPECT_EQ(PollOne(pipe.ReadEnd(), 0), 0);
    EXPECT_EQ(PollOne(pipe.ReadEnd(), 2), 0);
}

TEST_F(KvEndSignalsTest, PollLastsAtLeastItsTimeout) {
    const Pipe pipe;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(PollOne(pipe.ReadEnd(), 30), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
}

TEST_F(KvEndSignalsTest, SelectOfAReadableDescriptorAnswersIt) {
    const Pipe pipe;
    pipe.Fill();
    EXPECT_EQ(SelectOne(pipe.ReadEnd(), nullptr), 1);
}

TEST_F(KvEndSignalsTest, SelectTimesOutWithZero) {
    const Pipe pipe;
    const timespec oneMillisecond{0, 1000000};
    EXPECT_EQ(SelectOne(pipe.ReadEnd(), &oneMillisecond), 0);
}

TEST_F(KvEndSignalsTest, EndingTheCallingThreadUnwindsIt) {
    Start([] { KvEndSignals::EndThisThread(); });
    EXPECT_TRUE(WasEnded());
}

TEST_F(KvEndSignalsTest, NoEndSignalComesInWhileAThreadUnwinds) {
    const Pipe pipe;
    int polled = -1;
    struct WaitsAgain {
        const Pipe& pipe;
        int& polled;
        ~WaitsAgain() {
            raise(SIGQUIT);
            polled = PollOne(pipe.ReadEnd(), 1);
        }
    };
    Start([&] {
        const WaitsAgain waitsAgain{pipe, polled};
        const KvEndSignals::WaitWindow window;
        raise(SIGQUIT);
        PollOne(pipe.ReadEnd(), -1);
    });
    EXPECT_TRUE(WasEnded());
    EXPECT_EQ(polled, 0);
}

TEST_F(KvEndSignalsTest, EverySignalIsBlockedWhileAnEndedThreadUnwinds) {
    struct Look {
        std::vector<bool>& blocked;
        ~Look() { blocked.assign({IsBlockedHere(SIGQUIT), IsBlockedHere(SIGTERM), IsBlockedHere(SIGUSR1)}); }
    };
    std::vector<bool> blocked;
    Start([&] {
        const auto endInTheOpen = [](void* result) {
            const Look look{*static_cast<std::vector<bool>*>(result)};
            KvEndSignals::EndThisThread();
        };
        KvEndSignals::RunOpen(endInTheOpen, &blocked);
    });
    EXPECT_TRUE(WasEnded());
    EXPECT_EQ(blocked, (std::vector<bool>{true, true, true}));
}

TEST(KvAllSignalsBlockedTest, EverySignalIsBlockedForTheLifeOfTheObject) {
    {
        const KvAllSignalsBlocked blocked;
        EXPECT_TRUE(IsBlockedHere(SIGQUIT));
        EXPECT_TRUE(IsBlockedHere(SIGTERM));
        EXPECT_TRUE(IsBlockedHere(SIGUSR1));
        EXPECT_TRUE(IsBlockedHere(SIGINT));
    }
    EXPECT_FALSE(IsBlockedHere(SIGQUIT));
    EXPECT_FALSE(IsBlockedHere(SIGINT));
}

TEST(KvAllSignalsBlockedTest, MaskFromBeforeIsShownAndComesBack) {
    const kvtest::BlockedSignals before({SIGHUP});
    {
        const KvAllSignalsBlocked blocked;
        EXPECT_EQ(sigismember(&blocked.Previous(), SIGHUP), 1);
        EXPECT_EQ(sigismember(&blocked.Previous(), SIGINT), 0);
    }
    EXPECT_TRUE(IsBlockedHere(SIGHUP));
    EXPECT_FALSE(IsBlockedHere(SIGINT));
}

}  // namespace
