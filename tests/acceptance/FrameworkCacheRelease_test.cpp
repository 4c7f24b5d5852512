#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "FrameworkKit.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class FrameworkCacheRelease : public FrameworkTest {};

TEST_F(FrameworkCacheRelease, NothingIsRefusedAndLeavesTheCacheAlone) {
    EXPECT_FALSE(driver.ReleaseConnToCacheImpl(nullptr));
    EXPECT_FALSE(driver.ReleaseConnToCache(nullptr));
    EXPECT_TRUE(driver.m_mapConnCache.empty());
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_TRUE(driver.journal.events().empty());
}

TEST_F(FrameworkCacheRelease, AValidConnectionBecomesIdleUntested) {
    KvConn* conn = forget(take("key"));
    conn->m_tLastUsed = 1234;
    driver.journal.clear();
    EXPECT_TRUE(driver.ReleaseConnToCacheImpl(conn));
    EXPECT_EQ(driver.line("key").m_lstIdleConns, (std::list<KvConn*>{conn}));
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
    EXPECT_EQ(conn->m_tLastUsed, 1234);
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_TRUE(driver.journal.events().empty());
}

TEST_F(FrameworkCacheRelease, ASecondReleaseAddsNoSecondEntry) {
    KvConn* first = take("key");
    KvConn* second = take("key");
    giveBack(first);
    giveBack(second);
    EXPECT_TRUE(driver.ReleaseConnToCacheImpl(first));
    EXPECT_EQ(driver.line("key").m_lstIdleConns, (std::list<KvConn*>{first, second}));
}

TEST_F(FrameworkCacheRelease, AnInvalidConnectionIsClosedAndForgotten) {
    KvConn* conn = forget(take("key"));
    take("key");
    conn->m_bValid = false;
    driver.journal.clear();
    EXPECT_TRUE(driver.ReleaseConnToCacheImpl(conn));
    EXPECT_EQ(driver.journal.events(), (Texts{"close 1"}));
    EXPECT_TRUE(driver.line("key").m_lstIdleConns.empty());
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkCacheRelease, IsTracedAroundTheInnerOperation) {
    KvConn* conn = forget(take("key"));
    host.log.clear();
    EXPECT_TRUE(driver.ReleaseConnToCache(conn));
    EXPECT_FALSE(driver.ReleaseConnToCache(nullptr));
    const std::string name = "KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache";
    EXPECT_EQ(host.log.texts(),
              (Texts{"Entering " + name + "()", "Entering " + name + "Impl()",
                     "Leaving " + name + "Impl() with TRUE.", "Leaving " + name + "() with TRUE.",
                     "Entering " + name + "()", "Entering " + name + "Impl()",
                     "Leaving " + name + "Impl() with FALSE.", "Leaving " + name + "() with FALSE."}));
}

TEST_F(FrameworkCacheRelease, HoldsTheCacheLockAndLetsItGo) {
    KvConn* conn = forget(take("key"));
    conn->m_bValid = false;
    int during = -1;
    int afterwards = -1;
    driver.onClose = [&] { std::thread([&] { during = driver.m_pCacheLock->TryLock(); }).join(); };
    EXPECT_TRUE(driver.ReleaseConnToCache(conn));
    std::thread([&] {
        afterwards = driver.m_pCacheLock->TryLock();
        driver.m_pCacheLock->Unlock();
    }).join();
    EXPECT_EQ(during, KvconLock::LOCK_BUSY);
    EXPECT_EQ(afterwards, KvconLock::LOCK_ACQUIRED);
}

class FrameworkCacheDelete : public FrameworkTest {};

TEST_F(FrameworkCacheDelete, OfNothingIsFalse) {
    EXPECT_FALSE(driver.DeleteConnection(nullptr));
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
}

TEST_F(FrameworkCacheDelete, ClosesAndCountsDownWithoutALogLine) {
    KvConn* conn = forget(take("key"));
    take("key");
    take("other");
    host.log.clear();
    driver.journal.clear();
    EXPECT_TRUE(driver.DeleteConnection(conn));
    EXPECT_EQ(driver.journal.events(), (Texts{"close 1"}));
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_EQ(driver.line("other").m_nConnCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 2U);
    EXPECT_EQ(host.log.count(), 0);
}

TEST_F(FrameworkCacheDelete, AFailedCloseChangesNothing) {
    KvConn* conn = forget(take("key"));
    driver.closeResult = false;
    EXPECT_TRUE(driver.DeleteConnection(conn));
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(driver.line("key").m_nConnCount, 0U);
}

class FrameworkEviction : public FrameworkTest {
protected:
    void idle(const std::string& key, std::vector<time_t> lastUsed) {
        std::vector<KvConn*> conns;
        for (const time_t when : lastUsed) {
            conns.push_back(take(key));
            conns.back()->m_tLastUsed = when;
        }
        for (KvConn* conn : conns) {
            giveBack(conn);
        }
        driver.journal.clear();
        host.log.clear();
    }
};

TEST_F(FrameworkEviction, WithoutAConnectionIsFalse) {
    EXPECT_FALSE(driver.DeleteOldestUsedConnection());
}

TEST_F(FrameworkEviction, NeverTakesAConnectionInUse) {
    take("a")->m_tLastUsed = 1;
    EXPECT_FALSE(driver.DeleteOldestUsedConnection());
    idle("b", {500});
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_EQ(driver.journal.events(), (Texts{"close 2"}));
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkEviction, TakesTheOneThatWasHandedOutLongestAgo) {
    idle("a", {300, 200});
    idle("b", {100, 400});
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_FALSE(driver.DeleteOldestUsedConnection());
    EXPECT_EQ(driver.journal.events(), (Texts{"close 3", "close 2", "close 1", "close 4"}));
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
}

TEST_F(FrameworkEviction, OnATieTheFirstInKeyOrderGoesFirst) {
    idle("b", {100});
    idle("a", {100, 100});
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_EQ(driver.journal.events(), (Texts{"close 2", "close 3", "close 1"}));
}

TEST_F(FrameworkEviction, TakesTheConnectionOutOfItsListAndCountsDown) {
    idle("a", {300, 100, 200});
    EXPECT_TRUE(driver.DeleteOldestUsedConnection());
    EXPECT_EQ(driver.idleNumbers("a"), (std::vector<int>{1, 3}));
    EXPECT_EQ(driver.line("a").m_nConnCount, 2U);
    EXPECT_EQ(driver.m_nTotalConnections, 2U);
}

TEST_F(FrameworkEviction, IsTraced) {
    idle("a", {1});
    driver.DeleteOldestUsedConnection();
    driver.DeleteOldestUsedConnection();
    const std::string name = "KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()";
    EXPECT_EQ(host.log.texts(), (Texts{"Entering " + name, "Leaving " + name + " with TRUE.",
                                       "Entering " + name, "Leaving " + name + " with FALSE."}));
}

TEST_F(FrameworkEviction, ANewKeyEvictsTheOldestOfAllKeys) {
    driver.m_nMaxConnections = 3;
    idle("a", {300});
    idle("b", {100});
    idle("c", {200});
    EXPECT_NE(take("d"), nullptr);
    EXPECT_EQ(driver.journal.events(), (Texts{"close 2", "create d"}));
}

class FrameworkValidation : public FrameworkTest {
protected:
    KvConn* validated(KvConn* conn, KvMessageFile* msgFile = nullptr) {
        forget(conn);
        KvConn* result = driver.GetValidatedConnFromCache(conn, "key", msgFile);
        keep(result);
        return result;
    }
};

TEST_F(FrameworkValidation, AConnectionThatPassesItsTestStaysAsItIs) {
    KvConn* conn = take("key");
    conn->m_tLastUsed = 5;
    driver.journal.clear();
    EXPECT_EQ(validated(conn), conn);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1"}));
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_EQ(conn->m_tLastUsed, 5);
    EXPECT_TRUE(conn->m_bValid);
    EXPECT_TRUE(driver.line("key").m_lstIdleConns.empty());
}

TEST_F(FrameworkValidation, AConnectionThatFailsItsTestIsReplacedAfter200Milliseconds) {
    KvConn* conn = take("key");
    KvMessageFile* msgFile = file("1");
    driver.onTest = [](int) { return false; };
    driver.journal.clear();
    const auto start = Clock::now();
    KvConn* other = validated(conn, msgFile);
    EXPECT_GE(Clock::now() - start, milliseconds(200));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(FakeDriver::numberOf(*other), 2);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "close 1", "create key"}));
    EXPECT_EQ(driver.created.back().file, msgFile);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
}

TEST_F(FrameworkValidation, AnIdleConnectionOfTheKeyIsTheReplacement) {
    KvConn* broken = take("key");
    KvConn* idle = take("key");
    giveBack(idle);
    driver.onTest = [](int number) { return number != 1; };
    driver.journal.clear();
    EXPECT_EQ(validated(broken), idle);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "close 1", "test 2"}));
    EXPECT_EQ(idle->m_nUseCount, 2U);
}

TEST_F(FrameworkValidation, WithoutAConnectionAnotherOneIsHadWithoutAPause) {
    // The bound is below the pause; the fastest of five tries counts, because a busy machine may delay any of them.
    auto fastest = Clock::duration::max();
    for (int n = 0; n < 5; ++n) {
        const auto start = Clock::now();
        ASSERT_NE(validated(nullptr), nullptr);
        fastest = std::min(fastest, Clock::now() - start);
        closeAllInUse();
    }
    EXPECT_LT(fastest, milliseconds(150));
    EXPECT_EQ(driver.journal.count("create key"), 5);
}

TEST_F(FrameworkValidation, WithoutAReplacementThereIsNoConnection) {
    KvConn* conn = take("key");
    driver.onTest = [](int) { return false; };
    driver.onCreate = [] { return Create::Fails; };
    EXPECT_EQ(validated(conn), nullptr);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(validated(nullptr), nullptr);
}

TEST_F(FrameworkValidation, TheCacheLockIsHeldThroughThePauseAndTheReplacement) {
    KvConn* broken = take("key");
    KvConn* elsewhere = forget(take("other"));
    driver.onTest = [](int) { return false; };
    std::thread other;
    driver.onClose = [&] {
        if (other.joinable()) {
            return;
        }
        other = std::thread([&] {
            driver.ReleaseConnToCache(elsewhere);
            driver.journal.add("released");
        });
    };
    driver.journal.clear();
    validated(broken);
    other.join();
    driver.onClose = nullptr;
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "close 1", "create key", "released"}));
}

TEST_F(FrameworkValidation, TheTestItselfIsMadeWithoutTheLock) {
    KvConn* conn = take("key");
    int result = -1;
    driver.onTest = [&](int) {
        std::thread([&] {
            result = driver.m_pCacheLock->TryLock();
            driver.m_pCacheLock->Unlock();
        }).join();
        return true;
    };
    validated(conn);
    EXPECT_EQ(result, KvconLock::LOCK_ACQUIRED);
}

TEST_F(FrameworkValidation, IsTracedWithItsObject) {
    KvConn* conn = take("key");
    host.log.clear();
    validated(conn);
    const std::string name = "KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()";
    EXPECT_EQ(host.log.texts(), (Texts{"Entering " + name, "Leaving " + name + " with OBJECT."}));
    driver.onCreate = [] { return Create::Fails; };
    driver.onTest = [](int) { return false; };
    host.log.clear();
    validated(conn);
    EXPECT_EQ(host.log.texts().front(), "Entering " + name);
    EXPECT_EQ(host.log.texts().back(), "Leaving " + name + " with NULL.");
}

}  // namespace
