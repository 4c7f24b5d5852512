#include <gtest/gtest.h>

#include <ctime>
#include <thread>

#include "FrameworkKit.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

constexpr const char* kGetting = "Getting connection object from cache.";
constexpr const char* kCreating = "Creating new connection object.";

class FrameworkCacheTake : public FrameworkTest {
protected:
    KvConn* get(const std::string& key, bool& createFailed, KvMessageFile* msgFile = nullptr) {
        KvConn* conn = driver.GetConnFromCacheImpl(key, msgFile, &createFailed);
        keep(conn);
        return conn;
    }
    void clearRecords() {
        driver.journal.clear();
        host.log.clear();
    }
};

TEST_F(FrameworkCacheTake, TheFirstConnectionOfAKeyIsCreated) {
    KvMessageFile* msgFile = file("1");
    bool createFailed = true;
    const time_t before = time(nullptr);
    KvConn* conn = get("key", createFailed, msgFile);
    const time_t after = time(nullptr);
    ASSERT_NE(conn, nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(driver.journal.events(), (Texts{"create key"}));
    EXPECT_EQ(logged(Severity::Info), (Texts{kCreating}));
    EXPECT_EQ(conn->m_strCacheKey, "key");
    EXPECT_EQ(FakeDriver::numberOf(*conn), 1);
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_GE(conn->m_tLastUsed, before);
    EXPECT_LE(conn->m_tLastUsed, after);
    EXPECT_TRUE(conn->m_bValid);
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_TRUE(driver.line("key").m_lstIdleConns.empty());
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
    EXPECT_EQ(driver.created.at(0).file, msgFile);
}

TEST_F(FrameworkCacheTake, CreateConnectionIsGivenAnUnusedInvalidRecord) {
    take("key");
    const FakeDriver::Birth birth = driver.created.at(0);
    EXPECT_EQ(birth.key, "key");
    EXPECT_EQ(birth.connection, nullptr);
    EXPECT_EQ(birth.useCount, 0U);
    EXPECT_EQ(birth.lastUsed, 0);
    EXPECT_FALSE(birth.valid);
}

TEST_F(FrameworkCacheTake, AnIdleConnectionIsTestedAndUsedAgain) {
    KvConn* conn = take("key");
    conn->m_tLastUsed = 1000;
    giveBack(conn);
    clearRecords();
    bool createFailed = true;
    EXPECT_EQ(get("key", createFailed), conn);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1"}));
    EXPECT_EQ(logged(Severity::Info), (Texts{kGetting}));
    EXPECT_EQ(conn->m_nUseCount, 2U);
    EXPECT_GT(conn->m_tLastUsed, 1000);
    EXPECT_TRUE(driver.line("key").m_lstIdleConns.empty());
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkCacheTake, TheConnectionThatWasReleasedFirstIsTakenFirst) {
    KvConn* first = take("key");
    KvConn* second = take("key");
    KvConn* third = take("key");
    giveBack(second);
    giveBack(third);
    giveBack(first);
    EXPECT_EQ(take("key"), second);
    EXPECT_EQ(take("key"), third);
    EXPECT_EQ(take("key"), first);
}

TEST_F(FrameworkCacheTake, AnIdleConnectionOfAnotherKeyIsNotUsed) {
    giveBack(take("a"));
    clearRecords();
    KvConn* conn = take("b");
    EXPECT_EQ(conn->m_strCacheKey, "b");
    EXPECT_EQ(driver.journal.events(), (Texts{"create b"}));
    EXPECT_EQ(driver.idleNumbers("a"), (std::vector<int>{1}));
}

TEST_F(FrameworkCacheTake, AConnectionThatFailsItsTestIsDeletedAndTheNextOneTried) {
    KvConn* first = take("key");
    KvConn* second = take("key");
    giveBack(first);
    giveBack(second);
    clearRecords();
    driver.onTest = [](int number) { return number != 1; };
    EXPECT_EQ(take("key"), second);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "close 1", "test 2"}));
    EXPECT_EQ(logged(Severity::Info), (Texts{kGetting, kGetting}));
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkCacheTake, WhenAllIdleConnectionsFailANewOneIsCreated) {
    KvConn* first = take("key");
    KvConn* second = take("key");
    giveBack(first);
    giveBack(second);
    clearRecords();
    driver.onTest = [](int) { return false; };
    bool createFailed = true;
    KvConn* conn = get("key", createFailed);
    ASSERT_NE(conn, nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "close 1", "test 2", "close 2", "create key"}));
    EXPECT_EQ(logged(Severity::Info), (Texts{kGetting, kGetting, kCreating}));
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkCacheTake, TheTotalLimitIsNotCheckedWhenTheIdleListRunsEmpty) {
    giveBack(take("a"));
    take("b");
    driver.m_nMaxConnections = 1;
    driver.onTest = [](int) { return false; };
    EXPECT_NE(take("a"), nullptr);
    EXPECT_EQ(driver.m_nTotalConnections, 2U);
    EXPECT_EQ(host.log.count(Severity::Warning), 0);
}

TEST_F(FrameworkCacheTake, TheTotalLimitIsNotCheckedForAKnownKey) {
    take("a");
    driver.m_nMaxConnections = 1;
    EXPECT_NE(take("a"), nullptr);
    EXPECT_NE(take("a"), nullptr);
    EXPECT_EQ(driver.m_nTotalConnections, 3U);
    EXPECT_EQ(host.log.count(Severity::Warning) + host.log.count(Severity::Error), 0);
}

TEST_F(FrameworkCacheTake, AKeyWhoseConnectionsAreAllGoneIsStillKnown) {
    giveBack(take("a"));
    ASSERT_TRUE(driver.DeleteOldestUsedConnection());
    driver.m_nMaxConnections = 0;
    EXPECT_NE(take("a"), nullptr);
    EXPECT_EQ(driver.m_nTotalConnections, 1U);
}

TEST_F(FrameworkCacheTake, AtTheTotalLimitAnIdleConnectionOfAnotherKeyMakesRoom) {
    driver.m_nMaxConnections = 2;
    giveBack(take("a"));
    take("b");
    clearRecords();
    bool createFailed = true;
    KvConn* conn = get("c", createFailed);
    ASSERT_NE(conn, nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(driver.journal.events(), (Texts{"close 1", "create c"}));
    EXPECT_EQ(
        logged(Severity::Warning),
        (Texts{"The max. limit for the total connections (=2) has reached. Deleted an old connection to "
               "make room."}));
    EXPECT_EQ(logged(Severity::Info), (Texts{kCreating}));
    EXPECT_EQ(driver.m_nTotalConnections, 2U);
    EXPECT_EQ(driver.line("a").m_nConnCount, 0U);
    EXPECT_EQ(driver.line("c").m_nConnCount, 1U);
}

TEST_F(FrameworkCacheTake, ExactlyTheLimitIsAllowedWithoutEviction) {
    driver.m_nMaxConnections = 2;
    giveBack(take("a"));
    take("b");
    EXPECT_EQ(host.log.count(Severity::Warning), 0);
    EXPECT_EQ(driver.m_nTotalConnections, 2U);
}

TEST_F(FrameworkCacheTake, AtTheTotalLimitWithNothingIdleANewKeyIsPostponed) {
    driver.m_nMaxConnections = 10;
    for (char key = 'a'; key < 'a' + 10; ++key) {
        take(std::string(1, key));
    }
    clearRecords();
    bool createFailed = true;
    EXPECT_EQ(get("new", createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_TRUE(driver.journal.events().empty());
    EXPECT_EQ(
        logged(Severity::Error),
        (Texts{"The max. limit for the total connections (=10) has reached. Failed to make capacity for "
               "this one."}));
    EXPECT_EQ(host.log.count(Severity::Warning), 0);
    EXPECT_EQ(host.log.count(Severity::Info), 0);
    EXPECT_EQ(driver.m_nTotalConnections, 10U);
}

TEST_F(FrameworkCacheTake, APostponedNewKeyIsStillUnknown) {
    driver.m_nMaxConnections = 1;
    take("a");
    EXPECT_EQ(take("b"), nullptr);
    EXPECT_EQ(take("b"), nullptr);
    EXPECT_EQ(host.log.count(Severity::Error), 2);
}

TEST_F(FrameworkCacheTake, ATotalLimitOfZeroPostponesEveryNewKey) {
    driver.m_nMaxConnections = 0;
    bool createFailed = true;
    EXPECT_EQ(get("a", createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(logged(Severity::Error),
              (Texts{"The max. limit for the total connections (=0) has reached. Failed to make capacity for "
                     "this one."}));
}

TEST_F(FrameworkCacheTake, AtTheLimitOfItsKeyAConnectionIsPostponed) {
    take("key");
    take("key");
    take("key");
    clearRecords();
    bool createFailed = true;
    EXPECT_EQ(get("key", createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_TRUE(driver.journal.events().empty());
    EXPECT_EQ(logged(Severity::Info),
              (Texts{"The max. limit for the same carrier connections (=3) has reached. Delaying connection "
                     "creation."}));
    EXPECT_EQ(host.log.count(Severity::Error), 0);
    EXPECT_EQ(driver.line("key").m_nConnCount, 3U);
}

TEST_F(FrameworkCacheTake, ALimitOfZeroPerKeyPostponesEveryConnection) {
    driver.m_nMaxSameCarrierConnections = 0;
    bool createFailed = true;
    EXPECT_EQ(get("key", createFailed), nullptr);
    EXPECT_EQ(get("key", createFailed), nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_TRUE(driver.journal.events().empty());
    EXPECT_EQ(
        host.log.countEqual("The max. limit for the same carrier connections (=0) has reached. Delaying "
                            "connection creation."),
        2);
}

TEST_F(FrameworkCacheTake, RoomIsMadeBeforeTheLimitOfTheKeyIsLookedAt) {
    driver.m_nMaxConnections = 1;
    giveBack(take("a"));
    driver.m_nMaxSameCarrierConnections = 0;
    clearRecords();
    EXPECT_EQ(take("b"), nullptr);
    EXPECT_EQ(driver.journal.events(), (Texts{"close 1"}));
    EXPECT_EQ(host.log.count(Severity::Warning), 1);
    EXPECT_EQ(host.log.count(Severity::Info), 1);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
}

TEST_F(FrameworkCacheTake, AFailedTestFreesAPlaceUnderTheLimitOfTheKey) {
    driver.m_nMaxSameCarrierConnections = 1;
    giveBack(take("key"));
    driver.onTest = [](int) { return false; };
    EXPECT_NE(take("key"), nullptr);
    EXPECT_EQ(driver.line("key").m_nConnCount, 1U);
}

TEST_F(FrameworkCacheTake, EachKeyHasItsOwnLimit) {
    driver.m_nMaxSameCarrierConnections = 1;
    EXPECT_NE(take("a"), nullptr);
    EXPECT_NE(take("b"), nullptr);
    EXPECT_EQ(take("a"), nullptr);
    EXPECT_EQ(take("b"), nullptr);
}

class FrameworkFailedCreation : public FrameworkCacheTake, public testing::WithParamInterface<Create> {};

TEST_P(FrameworkFailedCreation, IsReportedAndLeavesTheCountersAlone) {
    driver.onCreate = [] { return GetParam(); };
    bool createFailed = false;
    EXPECT_EQ(get("{1}-{mx}", createFailed), nullptr);
    EXPECT_TRUE(createFailed);
    EXPECT_EQ(logged(Severity::Info), (Texts{kCreating}));
    EXPECT_EQ(logged(Severity::Error), (Texts{"Failed to create new connection for carrier: {1}-{mx}."}));
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(driver.line("{1}-{mx}").m_nConnCount, 0U);
    EXPECT_TRUE(driver.line("{1}-{mx}").m_lstIdleConns.empty());
    EXPECT_EQ(driver.journal.events(), (Texts{"create {1}-{mx}"}));
}

TEST_P(FrameworkFailedCreation, NeedsNobodyToTell) {
    driver.onCreate = [] { return GetParam(); };
    EXPECT_EQ(driver.GetConnFromCacheImpl("key", nullptr, nullptr), nullptr);
    EXPECT_EQ(driver.GetConnFromCache("key", nullptr, nullptr), nullptr);
    EXPECT_EQ(host.log.count(Severity::Error), 2);
}

TEST_P(FrameworkFailedCreation, ReleasesTheCacheLock) {
    driver.onCreate = [] { return GetParam(); };
    bool createFailed = false;
    EXPECT_EQ(driver.GetConnFromCache("key", nullptr, &createFailed), nullptr);
    EXPECT_TRUE(createFailed);
    int result = -1;
    std::thread other([&] {
        result = driver.m_pCacheLock->TryLock();
        driver.m_pCacheLock->Unlock();
    });
    other.join();
    EXPECT_EQ(result, KvconLock::LOCK_ACQUIRED);
}

TEST_P(FrameworkFailedCreation, AfterAnEvictionTheEvictedConnectionIsGone) {
    driver.m_nMaxConnections = 1;
    giveBack(take("a"));
    driver.onCreate = [] { return GetParam(); };
    bool createFailed = false;
    EXPECT_EQ(get("b", createFailed), nullptr);
    EXPECT_TRUE(createFailed);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_TRUE(driver.idleNumbers("a").empty());
}

INSTANTIATE_TEST_SUITE_P(All, FrameworkFailedCreation,
                         testing::Values(Create::Fails, Create::Throws, Create::ThrowsANumber),
                         [](const auto& each) {
                             return each.param == Create::Fails    ? "ByResult"
                                    : each.param == Create::Throws ? "ByException"
                                                                   : "ByForeignException";
                         });

TEST_F(FrameworkCacheTake, WorksWithoutALog) {
    driver.m_pLog = nullptr;
    giveBack(take("a"));
    take("a");
    driver.m_nMaxConnections = 1;
    EXPECT_EQ(take("b"), nullptr);
    driver.onCreate = [] { return Create::Fails; };
    EXPECT_EQ(take("a"), nullptr);
    EXPECT_EQ(host.log.count(), 0);
}

TEST_F(FrameworkCacheTake, TheTraceNamesTheOperationAndItsObject) {
    take("key");
    EXPECT_EQ(logged(Severity::Trace),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT."}));
}

TEST_F(FrameworkCacheTake, TheTraceOfNoConnectionSaysNull) {
    driver.m_nMaxSameCarrierConnections = 0;
    take("key");
    EXPECT_EQ(logged(Severity::Trace),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL."}));
}

TEST_F(FrameworkCacheTake, TheLockingOperationTracesAroundTheInnerOne) {
    KvConn* conn = driver.GetConnFromCache("key", nullptr, nullptr);
    keep(conn);
    EXPECT_EQ(logged(Severity::Trace),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()",
                     "Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT."}));
}

TEST_F(FrameworkCacheTake, TheLockingOperationHoldsTheCacheLockWhileItCreates) {
    int result = -1;
    driver.onCreate = [&] {
        std::thread([&] { result = driver.m_pCacheLock->TryLock(); }).join();
        return Create::Works;
    };
    KvConn* conn = driver.GetConnFromCache("key", nullptr, nullptr);
    keep(conn);
    EXPECT_NE(conn, nullptr);
    EXPECT_EQ(result, KvconLock::LOCK_BUSY);
}

TEST_F(FrameworkCacheTake, TheUseCountGrowsWithEveryHandOut) {
    KvConn* conn = take("key");
    for (unsigned int uses = 2; uses <= 5; ++uses) {
        giveBack(conn);
        ASSERT_EQ(take("key"), conn);
        EXPECT_EQ(conn->m_nUseCount, uses);
    }
}

}  // namespace
