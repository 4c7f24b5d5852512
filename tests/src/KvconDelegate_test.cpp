#include "KvconDelegate.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "KvThreadRegistry.h"
#include "KvconThread.h"
#include "src/ThreadDoubles.h"

namespace {

/// A delegate that overrides nothing it need not.
class PlainWork : public KvconDelegate {
public:
    void* DoWork(void* userData) override {
        m_pSeen = userData;
        return nullptr;
    }
    void* m_pSeen = nullptr;
};

class DeletionFlag : public PlainWork {
public:
    explicit DeletionFlag(bool& deleted) : m_deleted(deleted) {}
    ~DeletionFlag() override { m_deleted = true; }

private:
    bool& m_deleted;
};

/// The slot number in a pointer to a virtual member function: the offset into the table, plus one.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
    std::size_t word = 0;
    std::memcpy(&word, &operation, sizeof(word));
    return (word - 1) / sizeof(void*);
}

TEST(KvconDelegateTest, UserDataIsNullAtFirst) {
    PlainWork work;
    EXPECT_EQ(work.GetUserData(), nullptr);
}

TEST(KvconDelegateTest, FirstUserDataIsStoredAndAnsweredTrue) {
    PlainWork work;
    int data = 0;
    EXPECT_TRUE(work.SetUserData(&data));
    EXPECT_EQ(work.GetUserData(), &data);
}

TEST(KvconDelegateTest, ReplacingUserDataIsStoredAndAnsweredFalse) {
    PlainWork work;
    int first = 0;
    int second = 0;
    work.SetUserData(&first);
    EXPECT_FALSE(work.SetUserData(&second));
    EXPECT_EQ(work.GetUserData(), &second);
}

TEST(KvconDelegateTest, ClearingUserDataIsAReplacementToo) {
    PlainWork work;
    int data = 0;
    work.SetUserData(&data);
    EXPECT_FALSE(work.SetUserData(nullptr));
    EXPECT_EQ(work.GetUserData(), nullptr);
    EXPECT_TRUE(work.SetUserData(&data));
}

TEST(KvconDelegateTest, ControlHooksDoNothingUnlessOverridden) {
    PlainWork work;
    int data = 0;
    work.SetUserData(&data);
    work.StopWork();
    work.PauseWork();
    work.ResumeWork();
    EXPECT_EQ(work.GetUserData(), &data);
    EXPECT_EQ(work.m_pSeen, nullptr);
}

TEST(KvconDelegateTest, DeletionThroughTheRootReachesTheDerivedClass) {
    bool deleted = false;
    std::unique_ptr<Kvobject> object = std::make_unique<DeletionFlag>(deleted);
    object.reset();
    EXPECT_TRUE(deleted);
}

TEST(KvconDelegateTest, OperationsStandInTheSlotsThatHostsWereCompiledAgainst) {
    EXPECT_EQ(SlotOf(&KvconDelegate::DoWork), 2U);  // after the two of the destructor
    EXPECT_EQ(SlotOf(&KvconDelegate::StopWork), 3U);
    EXPECT_EQ(SlotOf(&KvconDelegate::PauseWork), 4U);
    EXPECT_EQ(SlotOf(&KvconDelegate::ResumeWork), 5U);
}

TEST(KvconDelegateTest, RunningADelegateHandsItItsUserData) {
    PlainWork work;
    int data = 0;
    work.SetUserData(&data);
    KvRunDelegate(work);
    EXPECT_EQ(work.m_pSeen, &data);
}

TEST(KvconDelegateTest, ExceptionOutOfDoWorkGoesNoFurther) {
    kvtest::WorkLog log;
    kvtest::LoggedWork foreign(log, [] { throw std::runtime_error("out of DoWork"); });
    kvtest::ShieldedLoggedWork shielded(log, [] { throw 1; });
    EXPECT_NO_THROW(KvRunDelegate(foreign));
    EXPECT_NO_THROW(KvRunDelegate(shielded));
    EXPECT_EQ(log.started, 2);
    EXPECT_EQ(log.finished, 0);
}

TEST(KvconDelegateTest, RunningADelegateOnAThreadOfAnotherOwnerLeavesItsSignalMaskAlone) {
    kvtest::BlockedSignals blocked({SIGQUIT});
    kvtest::WorkLog log;
    bool blockedInside = false;
    kvtest::LoggedWork work(log, [&] { blockedInside = kvtest::IsBlockedHere(SIGQUIT); });
    KvRunDelegate(work);
    EXPECT_TRUE(blockedInside);
    EXPECT_TRUE(kvtest::IsBlockedHere(SIGQUIT));
    EXPECT_FALSE(kvtest::IsBlockedHere(SIGTERM));
}

TEST(KvconDelegateTest, EndSignalsThatFindAThreadOnItsWayInAndOutOfForeignWorkEndThatThreadOnly) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    static std::atomic<bool> running;
    const auto workForever = [](void*) -> void* {
        PlainWork work;
        running = true;
        for (;;) {
            KvRunDelegate(work);
        }
    };
    for (int kills = 0; kills < 400; ++kills) {
        running = false;
        pthread_t id{};
        ASSERT_EQ(KvThreadRegistry::Start(&id, nullptr, workForever, nullptr), 0);
        while (!running) {
            sched_yield();
        }
        for (std::atomic<int> instructions = kills * 37 % 2000; instructions > 0; --instructions) {
            // so that the signals come in at different places
        }
        EXPECT_EQ(KvThreadRegistry::Signal(id, SIGQUIT), 0);
        pthread_join(id, nullptr);
    }
}

TEST(KvconDelegateTest, EndSignalsAreBlockedAgainAfterForeignWorkThatThrew) {
    bool blocked = false;
    const auto throwOnce = [](void* result) -> void* {
        kvtest::WorkLog log;
        kvtest::LoggedWork work(log, [] { throw 1; });
        KvRunDelegate(work);
        *static_cast<bool*>(result) = kvtest::IsBlockedHere(SIGQUIT) && kvtest::IsBlockedHere(SIGTERM);
        return nullptr;
    };
    pthread_t id{};
    ASSERT_EQ(KvThreadRegistry::Start(&id, nullptr, throwOnce, &blocked), 0);
    pthread_join(id, nullptr);
    EXPECT_TRUE(blocked);
}

TEST(KvconDelegateTest, ShieldMarkAddsNeitherMembersNorSlots) {
    class Marked : public PlainWork, public KvconShieldedWork {};
    EXPECT_EQ(sizeof(Marked), sizeof(PlainWork));
}

}  // namespace
