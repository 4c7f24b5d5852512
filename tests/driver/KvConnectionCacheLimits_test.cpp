#include <gtest/gtest.h>

#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "driver/ConnectionCacheTest.h"

// The limits of the connection cache, and what it deletes to keep them.

namespace {

using kvtest::KvConn;
using kvtest::KvConnectionCacheTest;
using kvtest::Strings;

TEST_F(KvConnectionCacheTest, AFourthConnectionForOneKeyIsPostponed) {
    const auto conns = Take("key", 3);
    m_host.log.clear();
    bool createFailed = true;
    EXPECT_EQ(m_driver.GetConnFromCache("key", nullptr, &createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(Notes(),
              (Strings{"info: The max. limit for the same carrier connections (=3) has reached. Delaying "
                       "connection creation."}));
    EXPECT_EQ(Count("key"), 3U);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "create 2", "create 3"}));
    Release(conns);
}

TEST_F(KvConnectionCacheTest, ASameCarrierLimitOf0MakesEveryAttemptWait) {
    m_driver.m_nMaxSameCarrierConnections = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        bool createFailed = true;
        EXPECT_EQ(m_driver.GetConnFromCache("key", nullptr, &createFailed), nullptr);
        EXPECT_FALSE(createFailed);
    }
    EXPECT_EQ(
        m_host.log.countEqual("The max. limit for the same carrier connections (=0) has reached. Delaying "
                              "connection creation."),
        3);
    EXPECT_EQ(m_driver.calls(), Strings{});
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
}

TEST_F(KvConnectionCacheTest, ANewKeyAtTheTotalLimitWithNothingIdleIsPostponed) {
    std::vector<KvConn*> conns;
    for (int key = 0; key < 10; ++key) {
        conns.push_back(m_driver.Take("key" + std::to_string(key)));
    }
    m_host.log.clear();
    bool createFailed = true;
    EXPECT_EQ(m_driver.GetConnFromCache("new", nullptr, &createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(Notes(),
              (Strings{"error: The max. limit for the total connections (=10) has reached. Failed to make "
                       "capacity for this one."}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 10U);
    EXPECT_EQ(m_driver.m_mapConnCache.count("new"), 0U);
    Release(conns);
}

TEST_F(KvConnectionCacheTest, ANewKeyAtTheTotalLimitTakesThePlaceOfAnIdleConnection) {
    std::vector<KvConn*> conns;
    for (int key = 0; key < 10; ++key) {
        conns.push_back(m_driver.Take("key" + std::to_string(key)));
    }
    m_driver.ReleaseConnToCache(conns[4]);
    conns.erase(conns.begin() + 4);
    m_driver.forgetCalls();
    m_host.log.clear();
    KvConn* const conn = m_driver.Take("new");
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(m_driver.calls(), (Strings{"close 5", "create 11"}));
    EXPECT_EQ(Notes(),
              (Strings{"warning: The max. limit for the total connections (=10) has reached. Deleted an "
                       "old connection to make room.",
                       "info: Creating new connection object."}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 10U);
    EXPECT_EQ(Count("key4"), 0U);
    EXPECT_EQ(Count("new"), 1U);
    m_driver.ReleaseConnToCache(conn);
    Release(conns);
}

TEST_F(KvConnectionCacheTest, AKeyWithALineIsNotHeldToTheTotalLimit) {
    m_driver.m_nMaxConnections = 1;
    const auto conns = Take("key", 3);
    EXPECT_EQ(m_driver.m_nTotalConnections, 3U);
    EXPECT_EQ(m_host.log.countContaining("total connections"), 0);
    Release(conns);
}

TEST_F(KvConnectionCacheTest, AKeyWhoseIdleConnectionsAllFailedIsNotHeldToTheTotalLimit) {
    AddIdle("key", 1);
    m_driver.m_nMaxConnections = 0;
    m_driver.onTest = [](int) { return false; };
    KvConn* const conn = m_driver.Take("key");
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(m_host.log.countContaining("total connections"), 0);
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, AKeyForWhichRoomWasMadeKeepsItsLineThoughItsCreationFailed) {
    m_driver.m_nMaxConnections = 1;
    AddIdle("a", 1);
    m_driver.onCreate = [](int number, const KvMessageFile*) { return number != 2; };
    EXPECT_EQ(m_driver.Take("b"), nullptr);
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    KvConn* const first = m_driver.Take("a");
    KvConn* const second = m_driver.Take("b");
    ASSERT_NE(second, nullptr);  // the total limit is reached, but "b" has a line by now
    EXPECT_EQ(m_driver.m_nTotalConnections, 2U);
    Release({first, second});
}

TEST_F(KvConnectionCacheTest, ATotalLimitOf0LetsNoKeyIn) {
    m_driver.m_nMaxConnections = 0;
    EXPECT_EQ(m_driver.Take("key"), nullptr);
    EXPECT_EQ(Notes(),
              (Strings{"error: The max. limit for the total connections (=0) has reached. Failed to make "
                       "capacity for this one."}));
}

TEST_F(KvConnectionCacheTest, ASpentLimitIsFreeAgainAfterARelease) {
    const auto conns = Take("key", 3);
    EXPECT_EQ(m_driver.Take("key"), nullptr);
    m_driver.ReleaseConnToCache(conns[1]);
    EXPECT_EQ(m_driver.Take("key"), conns[1]);
    Release(conns);
}

// --- Eviction

TEST_F(KvConnectionCacheTest, TheIdleConnectionUsedLongestAgoIsDeleted) {
    AddIdle("b", 30);
    AddIdle("c", 10);
    AddIdle("a", 20);
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_FALSE(m_driver.DeleteOldestUsedConnection());
    EXPECT_EQ(m_driver.calls(), (Strings{"close 2", "close 3", "close 1"}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(Count("a") + Count("b") + Count("c"), 0U);
}

TEST_F(KvConnectionCacheTest, OnATieTheFirstInTheOrderOfTheKeysIsDeleted) {
    AddIdle("b", 10);
    AddIdle("a", 10);
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_EQ(m_driver.calls(), Strings{"close 2"});
}

TEST_F(KvConnectionCacheTest, OnATieInsideALineTheOldestReleaseIsDeleted) {
    const auto conns = Take("key", 3);
    for (KvConn* conn : conns) {
        conn->m_tLastUsed = 10;
    }
    Release({conns[2], conns[0], conns[1]});
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_EQ(m_driver.calls(), Strings{"close 3"});
}

TEST_F(KvConnectionCacheTest, AYoungerReleaseUsedLongerAgoIsDeletedFirst) {
    const auto conns = Take("key", 3);
    conns[0]->m_tLastUsed = 30;
    conns[1]->m_tLastUsed = 20;
    conns[2]->m_tLastUsed = 25;
    Release(conns);
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_EQ(m_driver.calls(), Strings{"close 2"});
    EXPECT_EQ(m_driver.IdleCount("key"), 2U);
}

TEST_F(KvConnectionCacheTest, AConnectionInUseIsNeverDeletedForRoom) {
    KvConn* const inUse = m_driver.Take("a");
    inUse->m_tLastUsed = 1;
    AddIdle("b", 50);
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.DeleteOldestUsedConnection());
    EXPECT_FALSE(m_driver.DeleteOldestUsedConnection());
    EXPECT_EQ(m_driver.calls(), Strings{"close 2"});
    m_driver.ReleaseConnToCache(inUse);
}

TEST_F(KvConnectionCacheTest, AConnectionThatCannotBeClosedIsUncountedAllTheSame) {
    struct Unclosable : kvtest::ScriptedDriver {
        using ScriptedDriver::ScriptedDriver;
        bool CloseConnection(KvConn& conn) override {
            ScriptedDriver::CloseConnection(conn);
            return false;
        }
    } driver(m_script);
    driver.MakeLocks();
    EXPECT_TRUE(driver.DeleteConnection(driver.Take("key")));
    EXPECT_EQ(driver.m_mapConnCache["key"].m_nConnCount, 0U);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
}

}  // namespace
