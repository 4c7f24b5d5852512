#include "KvThreadRegistry.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <thread>
#include <vector>

#include "KvconThread.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::Latch;

/// Starts a detached thread of the registry that runs `body`.
pthread_t StartDetached(const std::function<void()>& body) {
    auto* const owned = new std::function<void()>(body);
    const auto routine = [](void* argument) -> void* {
        const std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(argument));
        (*work)();
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t id{};
    EXPECT_EQ(KvThreadRegistry::Start(&id, &attributes, routine, owned), 0);
    pthread_attr_destroy(&attributes);
    return id;
}

TEST(KvThreadRegistryTest, IdIsSetBeforeTheRoutineRuns) {
    static pthread_t id;
    static pthread_t seen;
    const auto routine = [](void*) -> void* {
        seen = id;
        return nullptr;
    };
    for (int i = 0; i < 50; ++i) {
        id = 0;
        ASSERT_EQ(KvThreadRegistry::Start(&id, nullptr, routine, nullptr), 0);
        const pthread_t started = id;
        pthread_join(started, nullptr);
        ASSERT_EQ(seen, started);
    }
}

TEST(KvThreadRegistryTest, RoutineGetsItsArgumentAndItsResultCanBeJoined) {
    int argument = 0;
    pthread_t id{};
    const auto routine = [](void* data) -> void* { return data; };
    ASSERT_EQ(KvThreadRegistry::Start(&id, nullptr, routine, &argument), 0);
    void* result = nullptr;
    pthread_join(id, &result);
    EXPECT_EQ(result, &argument);
}

TEST(KvThreadRegistryTest, RunningThreadIsAlive) {
    Latch goOn;
    const pthread_t id = StartDetached([&] { goOn.Wait(); });
    EXPECT_TRUE(KvThreadRegistry::IsAlive(id));
    EXPECT_EQ(KvThreadRegistry::Signal(id, 0), 0);
    goOn.Open();
    KvThreadRegistry::WaitUntilGone(id);
}

TEST(KvThreadRegistryTest, CallingThreadCanAlwaysBeSignaled) {
    EXPECT_TRUE(KvThreadRegistry::IsAlive(pthread_self()));
    bool alive = false;
    std::thread stranger([&] { alive = KvThreadRegistry::IsAlive(pthread_self()); });
    stranger.join();
    EXPECT_TRUE(alive);
}

TEST(KvThreadRegistryTest, ThreadThatTheLibraryDidNotStartIsUnknown) {
    Latch goOn;
    std::thread stranger([&] { goOn.Wait(); });
    EXPECT_EQ(KvThreadRegistry::Signal(stranger.native_handle(), 0), ESRCH);
    goOn.Open();
    stranger.join();
}

TEST(KvThreadRegistryTest, IdThatIsNoThreadAnswersESRCH) {
    EXPECT_EQ(KvThreadRegistry::Signal(static_cast<pthread_t>(-1), SIGQUIT), ESRCH);
    EXPECT_EQ(KvThreadRegistry::Signal(pthread_t{}, SIGQUIT), ESRCH);
}

TEST(KvThreadRegistryTest, InvalidSignalNumberAnswersEINVAL) {
    Latch goOn;
    const pthread_t id = StartDetached([&] { goOn.Wait(); });
    EXPECT_EQ(KvThreadRegistry::Signal(id, 4711), EINVAL);
    goOn.Open();
    KvThreadRegistry::WaitUntilGone(id);
}

TEST(KvThreadRegistryTest, SignalsToThousandsOfEndedDetachedThreadsAnswerESRCH) {
    std::set<pthread_t> ended;
    for (int i = 0; i < 3000; ++i) {
        const pthread_t id = StartDetached([] {});
        KvThreadRegistry::WaitUntilGone(id);
        ASSERT_EQ(KvThreadRegistry::Signal(id, 0), ESRCH);
        ASSERT_EQ(KvThreadRegistry::Signal(id, SIGQUIT), ESRCH);
        ended.insert(id);
    }
    for (const pthread_t id : ended) {
        EXPECT_FALSE(KvThreadRegistry::IsAlive(id));
    }
}

TEST(KvThreadRegistryTest, SignalsToThreadsThatAreJustEndingAreSentOrAnswerESRCH) {
    const kvtest::SavedSignalHandlers saved;
    KvconThread::InitializeLibrary();
    for (int i = 0; i < 2000; ++i) {
        const pthread_t id = StartDetached([] {});
        const int result = KvThreadRegistry::Signal(id, SIGQUIT);
        ASSERT_TRUE(result == 0 || result == ESRCH) << result;
        KvThreadRegistry::WaitUntilGone(id);
    }
}

TEST(KvThreadRegistryTest, WaitingForAThreadEndsWhenItsRoutineHasReturned) {
    Latch goOn;
    std::atomic<bool> returned{false};
    const pthread_t id = StartDetached([&] {
        goOn.Wait();
        returned = true;
    });
    std::thread opener([&] { goOn.Open(); });
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_TRUE(returned);
    EXPECT_FALSE(KvThreadRegistry::IsAlive(id));
    opener.join();
}

TEST(KvThreadRegistryTest, WaitingForAThreadThatIsGoneReturnsAtOnce) {
    KvThreadRegistry::WaitUntilGone(static_cast<pthread_t>(-1));
    const pthread_t id = StartDetached([] {});
    KvThreadRegistry::WaitUntilGone(id);
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_FALSE(KvThreadRegistry::IsAlive(id));
}

TEST(KvThreadRegistryTest, ThreadThatIsUnwoundLeavesTheRegistryToo) {
    bool unwound = false;
    struct Scope {
        bool& unwound;
        ~Scope() { unwound = true; }
    };
    const pthread_t id = StartDetached([&] {
        const Scope scope{unwound};
        pthread_exit(nullptr);
    });
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_FALSE(KvThreadRegistry::IsAlive(id));
    EXPECT_TRUE(unwound);
}

TEST(KvThreadRegistryTest, NewThreadHasTheEndSignalsBlockedAndTheOthersAsItsStarterHasThem) {
    const kvtest::BlockedSignals blocked({SIGHUP});
    std::vector<bool> seen;
    const pthread_t id = StartDetached([&] {
        for (const int signal : {SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
            seen.push_back(kvtest::IsBlockedHere(signal));
        }
    });
    KvThreadRegistry::WaitUntilGone(id);
    EXPECT_EQ(seen, (std::vector<bool>{true, true, true, false, false}));
}

TEST(KvThreadRegistryTest, StarterKeepsItsOwnSignalMask) {
    const kvtest::BlockedSignals blocked({SIGHUP});
    KvThreadRegistry::WaitUntilGone(StartDetached([] {}));
    EXPECT_TRUE(kvtest::IsBlockedHere(SIGHUP));
    EXPECT_FALSE(kvtest::IsBlockedHere(SIGQUIT));
    EXPECT_FALSE(kvtest::IsBlockedHere(SIGTERM));
}

TEST(KvThreadRegistryTest, SeveralThreadsMayStartProbeAndWaitAtTheSameTime) {
    std::atomic<int> ran{0};
    std::vector<std::thread> users;
    for (int user = 0; user < 4; ++user) {
        users.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                const pthread_t id = StartDetached([&] { ++ran; });
                KvThreadRegistry::IsAlive(id);
                KvThreadRegistry::WaitUntilGone(id);
            }
        });
    }
    for (auto& user : users) {
        user.join();
    }
    EXPECT_EQ(ran, 800);
}

}  // namespace
