#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "driver/ConnectionCacheTest.h"

// The cache of open connections. Its limits have a file of their own.

namespace {

using kvtest::KvConn;
using kvtest::KvConnectionCacheTest;
using kvtest::LinesFrom;
using kvtest::ScriptedDriver;
using kvtest::Strings;
using kvtest::TryLockOnAnotherThread;

constexpr std::chrono::milliseconds kPause{190};  // of 200 ms, less the clocks' grain

// --- Settings

TEST_F(KvConnectionCacheTest, SettingsAreReadWithoutARangeCheck) {
    std::map<std::string, std::string> settings{
        {"smart_driver.threadpool_size", "abc"},
        {"smart_driver.diff_carrier_connection_count", "25 connections"},
        {"smart_driver.same_carrier_connection_count", "99999999999999999999999"},
        {"smart_driver.max_pins_per_transaction", " +7"}};
    EXPECT_TRUE(m_driver.ConfigureExt(settings));
    EXPECT_EQ(m_driver.m_nThreadPoolSize, 0U);
    EXPECT_EQ(m_driver.m_nMaxConnections, 25U);
    EXPECT_EQ(m_driver.m_nMaxSameCarrierConnections, 4294967295U);
    EXPECT_EQ(m_driver.m_nMaxPinsPerTransaction, 7U);
}

TEST_F(KvConnectionCacheTest, EmptyNegativeAndHexadecimalSettingsAreReadAsDecimal) {
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", ""},
                                                {"smart_driver.diff_carrier_connection_count", "-1"},
                                                {"smart_driver.same_carrier_connection_count", "0x10"},
                                                {"smart_driver.max_pins_per_transaction", "010"}};
    EXPECT_TRUE(m_driver.ConfigureExt(settings));
    EXPECT_EQ(m_driver.m_nThreadPoolSize, 0U);
    EXPECT_EQ(m_driver.m_nMaxConnections, 4294967295U);
    EXPECT_EQ(m_driver.m_nMaxSameCarrierConnections, 0U);
    EXPECT_EQ(m_driver.m_nMaxPinsPerTransaction, 10U);
}

// --- Handing out

TEST_F(KvConnectionCacheTest, ANewConnectionIsMadeFromTheFileAndHandedOut) {
    auto* const file = m_files.add("JOB_1");
    const time_t before = time(nullptr);
    bool createFailed = true;
    KvConn* const conn = m_driver.GetConnFromCache("key", file, &createFailed);
    ASSERT_NE(conn, nullptr);
    EXPECT_FALSE(createFailed);
    EXPECT_EQ(m_driver.templates(), std::vector<const KvMessageFile*>{file});
    EXPECT_EQ(conn->m_strCacheKey, "key");
    EXPECT_EQ(ScriptedDriver::NumberOf(*conn), 1);
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_GE(conn->m_tLastUsed, before);
    EXPECT_LE(conn->m_tLastUsed, time(nullptr));
    EXPECT_TRUE(conn->m_bValid);
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    EXPECT_EQ(m_driver.IdleCount("key"), 0U);
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, CreateConnectionSeesAnUnusedInvalidRecord) {
    struct Watchful : ScriptedDriver {
        using ScriptedDriver::ScriptedDriver;
        bool CreateConnection(KvConn& conn, const KvMessageFile* msgFile) override {
            seen = conn;
            return ScriptedDriver::CreateConnection(conn, msgFile);
        }
        KvConn seen;
    } driver(m_script);
    driver.MakeLocks();
    driver.ReleaseConnToCache(driver.Take("key"));
    EXPECT_EQ(driver.seen.m_strCacheKey, "key");
    EXPECT_EQ(driver.seen.m_pConnection, nullptr);
    EXPECT_EQ(driver.seen.m_nUseCount, 0U);
    EXPECT_EQ(driver.seen.m_tLastUsed, 0);
    EXPECT_FALSE(driver.seen.m_bValid);
}

TEST_F(KvConnectionCacheTest, AReleasedConnectionIsTestedAndUsedAgain) {
    KvConn* const conn = m_driver.Take("key");
    EXPECT_TRUE(m_driver.ReleaseConnToCache(conn));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    conn->m_tLastUsed = 1;
    EXPECT_EQ(m_driver.Take("key"), conn);
    EXPECT_EQ(conn->m_nUseCount, 2U);
    EXPECT_GT(conn->m_tLastUsed, 1);
    EXPECT_EQ(m_driver.IdleCount("key"), 0U);
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1"}));
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, TheConnectionReleasedFirstIsHandedOutFirst) {
    const auto conns = Take("key", 3);
    Release({conns[1], conns[2], conns[0]});
    EXPECT_EQ(m_driver.Take("key"), conns[1]);
    EXPECT_EQ(m_driver.Take("key"), conns[2]);
    EXPECT_EQ(m_driver.Take("key"), conns[0]);
    Release(conns);
}

TEST_F(KvConnectionCacheTest, AConnectionIsHandedOutForItsOwnKeyOnly) {
    KvConn* const first = m_driver.Take("a");
    m_driver.ReleaseConnToCache(first);
    KvConn* const second = m_driver.Take("b");
    EXPECT_NE(second, first);
    EXPECT_EQ(second->m_strCacheKey, "b");
    EXPECT_EQ(m_driver.m_nTotalConnections, 2U);
    m_driver.ReleaseConnToCache(second);
    EXPECT_EQ(m_driver.IdleCount("a"), 1U);
    EXPECT_EQ(m_driver.IdleCount("b"), 1U);
}

TEST_F(KvConnectionCacheTest, IdleConnectionsThatFailTheirTestAreDeletedUntilOnePasses) {
    const auto conns = Take("key", 3);
    Release(conns);
    m_driver.forgetCalls();
    m_host.log.clear();
    m_driver.onTest = [](int number) { return number == 3; };
    EXPECT_EQ(m_driver.Take("key"), conns[2]);
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "close 1", "test 2", "close 2", "test 3"}));
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    EXPECT_EQ(Notes(), (Strings{"info: Getting connection object from cache.",
                                "info: Getting connection object from cache.",
                                "info: Getting connection object from cache."}));
    m_driver.ReleaseConnToCache(conns[2]);
}

TEST_F(KvConnectionCacheTest, WhenEveryIdleConnectionFailsItsTestANewOneIsMade) {
    Release(Take("key", 2));
    m_driver.forgetCalls();
    m_host.log.clear();
    m_driver.onTest = [](int) { return false; };
    KvConn* const conn = m_driver.Take("key");
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "close 1", "test 2", "close 2", "create 3"}));
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    EXPECT_EQ(Notes(), (Strings{"info: Getting connection object from cache.",
                                "info: Getting connection object from cache.",
                                "info: Creating new connection object."}));
    m_driver.ReleaseConnToCache(conn);
}

// --- Creating fails

TEST_F(KvConnectionCacheTest, AFailedCreationIsReportedAndCountsNothing) {
    m_driver.onCreate = [](int, const KvMessageFile*) { return false; };
    bool createFailed = false;
    EXPECT_EQ(m_driver.GetConnFromCache("key", nullptr, &createFailed), nullptr);
    EXPECT_TRUE(createFailed);
    EXPECT_EQ(Notes(), (Strings{"info: Creating new connection object.",
                                "error: Failed to create new connection for carrier: key."}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(Count("key"), 0U);
    EXPECT_EQ(m_driver.calls(), Strings{"create 1"});
}

TEST_F(KvConnectionCacheTest, AnyExceptionOutOfACreationIsAFailedCreation) {
    m_driver.onCreate = [](int number, const KvMessageFile*) -> bool {
        if (number == 1) {
            throw std::runtime_error("refused");
        }
        throw number;  // not derived from std::exception
    };
    for (int attempt = 1; attempt <= 2; ++attempt) {
        bool createFailed = false;
        EXPECT_EQ(m_driver.GetConnFromCache("key", nullptr, &createFailed), nullptr);
        EXPECT_TRUE(createFailed);
    }
    EXPECT_EQ(m_host.log.countEqual("Failed to create new connection for carrier: key."), 2);
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pCacheLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvConnectionCacheTest, AFailedCreationMayGoUnasked) {
    m_driver.onCreate = [](int, const KvMessageFile*) { return false; };
    EXPECT_EQ(m_driver.GetConnFromCache("key", nullptr, nullptr), nullptr);
    EXPECT_EQ(m_host.log.countEqual("Failed to create new connection for carrier: key."), 1);
}

TEST_F(KvConnectionCacheTest, AKeyCanBeTriedAgainAfterAFailedCreation) {
    m_driver.onCreate = [](int number, const KvMessageFile*) { return number > 1; };
    EXPECT_EQ(m_driver.Take("key"), nullptr);
    KvConn* const conn = m_driver.Take("key");
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    m_driver.ReleaseConnToCache(conn);
}

// --- Releasing and deleting

TEST_F(KvConnectionCacheTest, ReleasingNothingIsRefused) {
    EXPECT_FALSE(m_driver.ReleaseConnToCache(nullptr));
    EXPECT_FALSE(m_driver.ReleaseConnToCacheImpl(nullptr));
    EXPECT_TRUE(m_driver.m_mapConnCache.empty());
}

TEST_F(KvConnectionCacheTest, AReleasedInvalidConnectionIsClosed) {
    KvConn* const conn = m_driver.Take("key");
    conn->m_bValid = false;
    EXPECT_TRUE(m_driver.ReleaseConnToCache(conn));
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "close 1"}));
    EXPECT_EQ(m_driver.IdleCount("key"), 0U);
    EXPECT_EQ(Count("key"), 0U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
}

TEST_F(KvConnectionCacheTest, AConnectionReleasedTwiceIsIdleOnce) {
    KvConn* const conn = m_driver.Take("key");
    EXPECT_TRUE(m_driver.ReleaseConnToCache(conn));
    EXPECT_TRUE(m_driver.ReleaseConnToCache(conn));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
}

TEST_F(KvConnectionCacheTest, DeletingClosesTheConnectionAndUncountsIt) {
    const auto conns = Take("key", 2);
    m_host.log.clear();
    EXPECT_TRUE(m_driver.DeleteConnection(conns[0]));
    EXPECT_EQ(m_driver.calls().back(), "close 1");
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    EXPECT_EQ(m_host.log.count(), 0);
    m_driver.ReleaseConnToCache(conns[1]);
}

TEST_F(KvConnectionCacheTest, DeletingNothingIsRefusedSilently) {
    EXPECT_FALSE(m_driver.DeleteConnection(nullptr));
    EXPECT_EQ(m_host.log.count(), 0);
}

// --- The lock

TEST_F(KvConnectionCacheTest, TheCacheLockIsHeldWhileAConnectionIsMadeTestedAndClosed) {
    Strings held;
    const auto look = [&](const char* what) {
        if (TryLockOnAnotherThread(*m_driver.m_pCacheLock) == KvconLock::LOCK_BUSY) {
            held.push_back(what);
        }
    };
    m_driver.onCreate = [&](int, const KvMessageFile*) {
        look("create");
        return true;
    };
    m_driver.onTest = [&](int) {
        look("test");
        return true;
    };
    m_driver.onClose = [&](int) { look("close"); };
    m_driver.ReleaseConnToCache(m_driver.Take("key"));
    KvConn* const conn = m_driver.Take("key");
    conn->m_bValid = false;
    m_driver.ReleaseConnToCache(conn);
    EXPECT_EQ(held, (Strings{"create", "test", "close"}));
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pCacheLock), KvconLock::LOCK_ACQUIRED);
    m_driver.onClose = [](int) {};
}

TEST_F(KvConnectionCacheTest, ThreadsThatTakeAndReleaseKeepTheCountersRight) {
    m_driver.m_nMaxSameCarrierConnections = 4;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 100; ++round) {
                KvConn* const conn = m_driver.Take(thread % 2 == 0 ? "even" : "odd");
                ASSERT_NE(conn, nullptr);
                conn->m_bValid = round % 7 != 0;
                m_driver.ReleaseConnToCache(conn);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(m_driver.m_nTotalConnections, Count("even") + Count("odd"));
    EXPECT_EQ(Count("even"), m_driver.IdleCount("even"));
    EXPECT_EQ(Count("odd"), m_driver.IdleCount("odd"));
}

// --- Validation

TEST_F(KvConnectionCacheTest, AConnectionThatPassesItsTestIsKept) {
    KvConn* const conn = m_driver.Take("key");
    EXPECT_EQ(m_driver.GetValidatedConnFromCache(conn, "key", nullptr), conn);
    EXPECT_EQ(conn->m_nUseCount, 1U);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1"}));
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, ValidationTestsAConnectionWithoutTheCacheLock) {
    KvConn* const conn = m_driver.Take("key");
    int lockResult = -1;
    m_driver.onTest = [&](int) {
        lockResult = TryLockOnAnotherThread(*m_driver.m_pCacheLock);
        return true;
    };
    m_driver.GetValidatedConnFromCache(conn, "key", nullptr);
    EXPECT_EQ(lockResult, KvconLock::LOCK_ACQUIRED);
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, AConnectionThatFailsItsTestIsReplaced) {
    auto* const file = m_files.add("JOB_1");
    KvConn* const conn = m_driver.Take("key");
    m_driver.onTest = [](int) { return false; };
    KvConn* const other = m_driver.GetValidatedConnFromCache(conn, "key", file);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "close 1", "create 2"}));
    EXPECT_EQ(m_driver.templates().back(), file);
    EXPECT_EQ(other->m_nUseCount, 1U);
    EXPECT_EQ(Count("key"), 1U);
    EXPECT_EQ(m_driver.m_nTotalConnections, 1U);
    m_driver.ReleaseConnToCache(other);
}

TEST_F(KvConnectionCacheTest, AnIdleConnectionReplacesOneThatFailedItsTest) {
    const auto conns = Take("key", 2);
    m_driver.ReleaseConnToCache(conns[1]);
    m_driver.onTest = [](int number) { return number == 2; };
    EXPECT_EQ(m_driver.GetValidatedConnFromCache(conns[0], "key", nullptr), conns[1]);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "create 2", "test 1", "close 1", "test 2"}));
    m_driver.ReleaseConnToCache(conns[1]);
}

TEST_F(KvConnectionCacheTest, ValidationOfNothingTakesAConnectionAtOnce) {
    using Clock = std::chrono::steady_clock;
    Clock::duration shortest = Clock::duration::max();  // of several: a loaded machine may hold up one
    for (int attempt = 0; attempt < 5; ++attempt) {
        const auto start = Clock::now();
        KvConn* const conn = m_driver.GetValidatedConnFromCache(nullptr, "key", nullptr);
        shortest = std::min(shortest, Clock::now() - start);
        ASSERT_NE(conn, nullptr);
        m_driver.ReleaseConnToCache(conn);
    }
    EXPECT_LT(shortest, kPause);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "test 1", "test 1", "test 1"}));
}

TEST_F(KvConnectionCacheTest, ValidationAnswersNullWhenThereIsNoOtherConnection) {
    KvConn* const conn = m_driver.Take("key");
    m_driver.onTest = [](int) { return false; };
    m_driver.onCreate = [](int, const KvMessageFile*) { return false; };
    EXPECT_EQ(m_driver.GetValidatedConnFromCache(conn, "key", nullptr), nullptr);
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pCacheLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvConnectionCacheTest, AFailedValidationDelaysEveryOtherUserOfTheCache) {
    using Clock = std::chrono::steady_clock;
    KvConn* const broken = m_driver.Take("key");
    kvtest::Latch closing;
    Clock::time_point closed;
    m_driver.onTest = [](int) { return false; };
    m_driver.onClose = [&](int) {
        closed = Clock::now();  // the cache is locked; the pause of 200 ms follows
        closing.Open();
    };
    Clock::time_point served;
    KvConn* otherConn = nullptr;
    std::thread other([&] {
        EXPECT_TRUE(closing.Wait());
        otherConn = m_driver.Take("other");
        served = Clock::now();
    });
    KvConn* const conn = m_driver.GetValidatedConnFromCache(broken, "key", nullptr);
    EXPECT_GE(Clock::now() - closed, kPause);
    other.join();
    EXPECT_GE(served - closed, kPause);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "close 1", "create 2", "create 3"}));
    m_driver.onClose = [](int) {};
    m_driver.ReleaseConnToCache(conn);
    m_driver.ReleaseConnToCache(otherConn);
}

// --- Trace lines

TEST_F(KvConnectionCacheTest, HandingOutTracesBothItsSteps) {
    KvConn* const conn = m_driver.Take("key");
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kPoolSource),
        (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()",
                 "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
                 "info: Creating new connection object.",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT."}));
    EXPECT_EQ(kvtest::LinesOf(m_host.log).size(), 5U);
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, HandingOutNothingIsTracedAsNull) {
    m_driver.m_nMaxConnections = 0;
    m_driver.Take("key");
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kPoolSource),
        (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()",
                 "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
                 "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with "
                 "FALSE.",
                 "error: The max. limit for the total connections (=0) has reached. Failed to make capacity "
                 "for this one.",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with NULL.",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with NULL."}));
}

TEST_F(KvConnectionCacheTest, ReleasingTracesBothItsSteps) {
    KvConn* const conn = m_driver.Take("key");
    m_host.log.clear();
    m_driver.ReleaseConnToCache(conn);
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kPoolSource),
        (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()",
                 "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with TRUE.",
                 "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE."}));
    m_host.log.clear();
    m_driver.ReleaseConnToCache(nullptr);
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource).back(),
              "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with FALSE.");
}

TEST_F(KvConnectionCacheTest, DeletingTheOldestTracesItsResult) {
    AddIdle("key", 1);
    m_host.log.clear();
    m_driver.DeleteOldestUsedConnection();
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource),
              (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()",
                       "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() "
                       "with TRUE."}));
}

TEST_F(KvConnectionCacheTest, ValidationTracesItsResult) {
    KvConn* const conn = m_driver.Take("key");
    m_host.log.clear();
    m_driver.GetValidatedConnFromCache(conn, "key", nullptr);
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource),
              (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()",
                       "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() "
                       "with OBJECT."}));
    m_driver.m_nMaxSameCarrierConnections = 1;
    EXPECT_EQ(m_driver.GetValidatedConnFromCache(nullptr, "key", nullptr), nullptr);
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kPoolSource).back(),
        "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with NULL.");
    m_driver.ReleaseConnToCache(conn);
}

TEST_F(KvConnectionCacheTest, CleanupTracesUnderTheNameOfSetup) {
    EXPECT_TRUE(m_driver.CleanupExt());
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource),
              (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()",
                       "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE."}));
}

TEST_F(KvConnectionCacheTest, TheCacheWorksSilentlyWithoutALog) {
    m_driver.m_pLog = nullptr;
    m_driver.m_nMaxConnections = 1;
    AddIdle("a", 1);
    KvConn* const conn = m_driver.Take("b");
    ASSERT_NE(conn, nullptr);
    EXPECT_EQ(m_driver.Take("c"), nullptr);
    EXPECT_EQ(m_driver.GetValidatedConnFromCache(conn, "b", nullptr), conn);
    m_driver.ReleaseConnToCache(conn);
    EXPECT_EQ(m_host.log.count(), 0);
}

}  // namespace
