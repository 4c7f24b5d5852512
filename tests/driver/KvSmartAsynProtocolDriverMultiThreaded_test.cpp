#include "KvSmartAsynProtocolDriverMultiThreaded.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KvSmartProtocolDriverDelegateIface.h"
#include "KvconThreadPool.h"
#include "driver/FrameworkDoubles.h"

// Settings, set-up, clean-up and the processing of a session. The connection cache has files of its own.

namespace {

using kvtest::Files;
using kvtest::Groups;
using kvtest::KvCarrierSess;
using kvtest::KvConn;
using kvtest::LinesFrom;
using kvtest::NotesFrom;
using kvtest::ReturnsOf;
using kvtest::ScriptedDelegate;
using kvtest::ScriptedDriver;
using kvtest::SlotOf;
using kvtest::Strings;

class KvSmartAsynProtocolDriverMultiThreadedTest : public kvtest::FrameworkTest {
protected:
    KvSmartAsynProtocolDriverMultiThreadedTest() {
        m_session.m_strCacheKey = "key";
        m_session.m_strCarrierName = "mail";
    }

    /// Two groups wait: JOB_1, JOB_2 and OTHER_1.
    void FillSession() {
        for (const char* id : {"JOB_1", "JOB_2", "OTHER_1"}) {
            m_driver.StoreMsgFileInCarrierSession(m_session, m_files.add(id));
        }
        m_host.log.clear();
    }
    bool Process() { return m_driver.ProcessCarrierSession(m_session, m_errText); }
    Strings Notes() const { return NotesFrom(m_host.log, kvtest::kPoolSource); }
    /// Files a message for each identifier, all for carrier 1, and runs a cycle.
    void RunCycleOver(const Strings& ids) {
        for (const std::string& id : ids) {
            kvtest::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
            EXPECT_TRUE(m_driver.SendAMessage(m_files.add(id), status));
            EXPECT_EQ(status, 7);
        }
        m_driver.PeriodicEvent();
    }

    KvCarrierSess m_session;
    std::string m_errText;
};

// --- Construction and settings

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ANewDriverHasNoPoolNoCacheAndNoLimits) {
    const ScriptedDriver driver(m_script);
    EXPECT_EQ(driver.m_nThreadPoolSize, 0U);
    EXPECT_EQ(driver.m_nMaxConnections, 0U);
    EXPECT_EQ(driver.m_nMaxSameCarrierConnections, 0U);
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
    EXPECT_TRUE(driver.m_mapConnCache.empty());
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ItsOperationsLieBehindThoseOfTheSessionLayer) {
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverMultiThreaded::TestConnection), 20U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverMultiThreaded::CreateConnection), 21U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverMultiThreaded::CloseConnection), 22U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverMultiThreaded::GetProtocolDriverDelegate), 23U);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ItsMembersLieInTheirOrder) {
    const std::vector<const void*> members{&m_driver.m_nCycle,
                                           &m_driver.m_nThreadPoolSize,
                                           &m_driver.m_nMaxConnections,
                                           &m_driver.m_nMaxSameCarrierConnections,
                                           &m_driver.m_nMaxPinsPerTransaction,
                                           &m_driver.m_pThreadPool,
                                           &m_driver.m_mapConnCache,
                                           &m_driver.m_nTotalConnections,
                                           &m_driver.m_pCacheLock};
    for (std::size_t next = 1; next < members.size(); ++next) {
        EXPECT_LT(members[next - 1], members[next]) << "member " << next;
    }
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, WithoutSettingsTheDefaultsHold) {
    ScriptedDriver driver(m_script);
    m_host.lendTo(driver);
    std::map<std::string, std::string> settings{{"smart_driver.unknown", "5"}};
    EXPECT_TRUE(driver.Configure(settings));
    EXPECT_EQ(driver.m_nThreadPoolSize, 1U);
    EXPECT_EQ(driver.m_nMaxConnections, 10U);
    EXPECT_EQ(driver.m_nMaxSameCarrierConnections, 3U);
    EXPECT_EQ(driver.m_nMaxPinsPerTransaction, 10U);
    EXPECT_EQ(kvtest::LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::Configure()",
                       "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt()",
                       "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt() with TRUE.",
                       "trace: Leaving KvSmartAsynProtocolDriver::Configure() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, EverySettingHasItsKey) {
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "4"},
                                                {"smart_driver.diff_carrier_connection_count", "20"},
                                                {"smart_driver.same_carrier_connection_count", "5"},
                                                {"smart_driver.max_pins_per_transaction", "50"}};
    EXPECT_TRUE(m_driver.ConfigureExt(settings));
    EXPECT_EQ(m_driver.m_nThreadPoolSize, 4U);
    EXPECT_EQ(m_driver.m_nMaxConnections, 20U);
    EXPECT_EQ(m_driver.m_nMaxSameCarrierConnections, 5U);
    EXPECT_EQ(m_driver.m_nMaxPinsPerTransaction, 50U);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASettingThatIsLeftOutGoesBackToItsDefault) {
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "4"}};
    m_driver.ConfigureExt(settings);
    settings = {{"smart_driver.max_pins_per_transaction", "2"}};
    m_driver.ConfigureExt(settings);
    EXPECT_EQ(m_driver.m_nThreadPoolSize, 1U);
    EXPECT_EQ(m_driver.m_nMaxPinsPerTransaction, 2U);
}

// --- Setup and Cleanup

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, SetupMakesTheLocksAndAPoolOfTheConfiguredSize) {
    const kvtest::SavedSignalHandlers handlers;
    ScriptedDriver driver(m_script);
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "2"}};
    driver.Configure(settings);
    m_host.lendTo(driver);
    EXPECT_TRUE(driver.Setup(nullptr));
    EXPECT_NE(driver.m_pLock, nullptr);
    EXPECT_NE(driver.m_pCacheLock, nullptr);
    ASSERT_NE(driver.m_pThreadPool, nullptr);
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource),
              (Strings{"trace: Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()",
                       "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE."}));
    kvtest::WorkLog works;
    for (int work = 0; work < 3; ++work) {
        driver.m_pThreadPool->AddWork(new kvtest::LoggedWork(works));
    }
    EXPECT_EQ(driver.m_pThreadPool->RunningSize(), 2U);
    EXPECT_TRUE(driver.Cleanup());
    EXPECT_EQ(works.deleted, 3);
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
    EXPECT_EQ(driver.m_pLock, nullptr);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, CleanupWithoutSetupIsHarmless) {
    ScriptedDriver driver(m_script);
    EXPECT_TRUE(driver.Cleanup());
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, CleanupClosesEveryIdleConnectionAndForgetsThoseInUse) {
    KvConn* const inUse = m_driver.Take("a");
    KvConn* const idle = m_driver.Take("a");
    KvConn* const other = m_driver.Take("b");
    m_driver.ReleaseConnToCache(idle);
    m_driver.ReleaseConnToCache(other);
    m_driver.forgetCalls();
    EXPECT_TRUE(m_driver.CleanupExt());
    EXPECT_EQ(m_driver.calls(), (Strings{"close 2", "close 3"}));
    EXPECT_TRUE(m_driver.m_mapConnCache.empty());
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(m_driver.m_pCacheLock, nullptr);
    m_driver.CloseConnection(*inUse);
    delete inUse;
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, CleanupAsksRunningWorkToStopAndLetsItEnd) {
    struct Stoppable : ScriptedDelegate {
        Stoppable(kvtest::DispatchScript& script, kvtest::Latch& latch)
            : ScriptedDelegate(script), stop(latch) {}
        void StopWork() override { stop.Open(); }
        kvtest::Latch& stop;
    };
    const kvtest::SavedSignalHandlers handlers;
    kvtest::Latch sending;
    kvtest::Latch stop;
    m_driver.onDelegate = [&] { return new Stoppable(m_script, stop); };
    m_script.onDispatch = [&](ScriptedDelegate& delegate, const Files& files) {
        sending.Open();
        EXPECT_TRUE(stop.Wait());
        delegate.completeAll(files);
        return true;
    };
    delete std::exchange(m_driver.m_pCacheLock, nullptr);
    m_driver.SetupExt(nullptr);
    RunCycleOver({"JOB_1"});
    ASSERT_TRUE(sending.Wait());
    EXPECT_TRUE(m_driver.CleanupExt());
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"JOB_1:3"});
    EXPECT_EQ(m_script.deleted, 1);
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "close 1"}));
}

// --- No connection

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASessionWithoutReachableCarrierFails) {
    FillSession();
    m_driver.onCreate = [](int, const KvMessageFile*) { return false; };
    EXPECT_FALSE(Process());
    EXPECT_EQ(m_errText, "Failed to create connection. Bad carrier configuration or carrier unreachable.");
    EXPECT_TRUE(m_session.m_bConnFailed);
    EXPECT_EQ(m_session.m_vecMsgFileGroups.size(), 2U);
    EXPECT_EQ(Notes(),
              (Strings{"info: Creating new connection object.",
                       "error: Failed to create new connection for carrier: key.",
                       "info: Unable to get connection object. Incorrect carrier configuration key and/or "
                       "carrier serviceis unreachable."}));
    const Strings lines = LinesFrom(m_host.log, kvtest::kPoolSource);
    EXPECT_EQ(lines.front(),
              "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()");
    EXPECT_EQ(lines.back(),
              "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with FALSE.");
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASessionAtALimitIsPostponed) {
    FillSession();
    m_driver.m_nMaxSameCarrierConnections = 0;
    m_session.m_bConnFailed = true;
    EXPECT_TRUE(Process());
    EXPECT_EQ(m_errText, "");
    EXPECT_FALSE(m_session.m_bConnFailed);
    EXPECT_EQ(m_session.m_vecMsgFileGroups.size(), 2U);
    EXPECT_EQ(m_session.m_mapGroupIndex.size(), 2U);
    EXPECT_EQ(Notes(),
              (Strings{"info: The max. limit for the same carrier connections (=0) has reached. Delaying "
                       "connection creation.",
                       "info: Unable to get connection object. Delaying carrier session 'key' "
                       "processing."}));
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource).back(),
              "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.");
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AConnectionIsConfiguredFromTheFileFiledLast) {
    FillSession();
    m_driver.onCreate = [](int, const KvMessageFile*) { return false; };
    Process();
    ASSERT_EQ(m_driver.templates().size(), 1U);
    EXPECT_EQ(m_driver.templates()[0]->m_strMsgFileID, "OTHER_1");
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AnUnreachableCarrierFailsItsFilesInTheCycle) {
    m_driver.onCreate = [](int, const KvMessageFile*) -> bool { throw std::runtime_error("refused"); };
    RunCycleOver({"JOB_1", "JOB_2"});
    EXPECT_EQ(ReturnsOf(m_host.queue),
              (Strings{"JOB_1:2 Failed to create connection. Bad carrier configuration or "
                       "carrier unreachable.",
                       "JOB_2:2 Failed to create connection. Bad carrier configuration or "
                       "carrier unreachable."}));
}

// --- No delegate

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASessionWithoutDelegateFailsAndTheConnectionGoesBack) {
    FillSession();
    m_driver.onDelegate = [] { return nullptr; };
    EXPECT_FALSE(Process());
    EXPECT_EQ(m_errText, "Messenger internal error.");
    EXPECT_EQ(m_session.m_vecMsgFileGroups.size(), 2U);
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    EXPECT_EQ(Notes(), (Strings{"info: Creating new connection object.",
                                "error: Failed to get delegate object for the message dispatcher."}));
    EXPECT_EQ(LinesFrom(m_host.log, kvtest::kPoolSource).back(),
              "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with FALSE.");
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ADelegateThatCannotBeInitializedIsAbandonedNotDestroyed) {
    auto* const delegate = new ScriptedDelegate(m_script);
    m_driver.onDelegate = [&] { return delegate; };
    m_script.onInitialize = [] { return false; };
    RunCycleOver({"JOB_1"});
    EXPECT_EQ(
        NotesFrom(m_host.log, kvtest::kPoolSource),
        (Strings{"info: Creating new connection object.", "debug: Initializing message dispatch delegate.",
                 "error: Initialize call failed for the delegate object."}));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"JOB_1:2 Messenger internal error."});
    EXPECT_EQ(m_script.deleted, 0);
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);
    delegate->m_vecMsgFileGroups.clear();  // nobody's any more: freed by the test, without its files
    delegate->m_pConn = nullptr;
    delete delegate;
    EXPECT_EQ(m_host.queue.count(), 1);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AFailedInitializationTellsItsReason) {
    FillSession();
    auto* const delegate = new ScriptedDelegate(m_script);
    m_driver.onDelegate = [&] { return delegate; };
    m_script.onInitialize = [] { return false; };
    EXPECT_FALSE(Process());
    EXPECT_EQ(m_errText, "Messenger internal error.");
    EXPECT_EQ(m_session.m_vecMsgFileGroups.size(), 2U);
    delegate->m_vecMsgFileGroups.clear();
    delegate->m_pConn = nullptr;
    delete delegate;
}

// --- Handing off

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASessionIsHandedToADelegateOnThePool) {
    FillSession();
    const Groups groups = m_session.m_vecMsgFileGroups;
    m_driver.MakePool(0);  // the delegate stays in the queue
    auto* const delegate = new ScriptedDelegate(m_script);
    m_driver.onDelegate = [&] { return delegate; };
    m_driver.m_nMaxPinsPerTransaction = 7;
    EXPECT_TRUE(Process());
    EXPECT_EQ(m_errText, "");
    EXPECT_TRUE(m_session.m_vecMsgFileGroups.empty());
    EXPECT_TRUE(m_session.m_mapGroupIndex.empty());
    EXPECT_EQ(delegate->m_pDriver, &m_driver);
    EXPECT_EQ(delegate->m_pLog, &m_host.log);
    EXPECT_EQ(delegate->m_strCacheKey, "key");
    EXPECT_EQ(delegate->m_vecMsgFileGroups, groups);
    EXPECT_EQ(delegate->m_nMaxPinsPerTransaction, 7);
    ASSERT_NE(delegate->m_pConn, nullptr);
    EXPECT_EQ(ScriptedDriver::NumberOf(*delegate->m_pConn), 1);
    EXPECT_EQ(m_script.initialized, 1);
    EXPECT_EQ(m_script.deleted, 0);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AHandOffIsLoggedStepByStep) {
    FillSession();
    m_driver.MakePool(0);
    Process();
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kPoolSource),
        (Strings{
            "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()",
            "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()",
            "trace: Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()",
            "info: Creating new connection object.",
            "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with OBJECT.",
            "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with OBJECT.",
            "trace: Creating Message dispatch delegate.", "debug: Initializing message dispatch delegate.",
            "trace: Adding delegate the thread pool queue ...",
            "trace: Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AHandOffLeavesTheMarkOfAnEarlierFailure) {
    FillSession();
    m_driver.MakePool(0);
    m_session.m_bConnFailed = true;
    EXPECT_TRUE(Process());
    EXPECT_TRUE(m_session.m_bConnFailed);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest,
       AGroupLimitBeyondTheRangeOfAnIntReachesTheDelegateNegative) {
    FillSession();
    m_driver.MakePool(0);
    m_driver.m_nMaxPinsPerTransaction = 4294967295U;  // what the setting "-1" is read as
    auto* const delegate = new ScriptedDelegate(m_script);
    m_driver.onDelegate = [&] { return delegate; };
    EXPECT_TRUE(Process());
    EXPECT_EQ(delegate->m_nMaxPinsPerTransaction, -1);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AHandOffNeedsNoLog) {
    m_driver.m_pLog = nullptr;
    m_driver.MakePool(1);
    RunCycleOver({"JOB_1", "OTHER_1", "OTHER_2"});
    ASSERT_TRUE(m_host.queue.waitFor(3));
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"JOB_1:3", "OTHER_1:3", "OTHER_2:3"}));
    EXPECT_EQ(m_host.log.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AMessageTravelsFromIntakeToTheReturnQueue) {
    m_driver.MakePool(1);
    RunCycleOver({"JOB_1", "JOB_2", "OTHER_1"});
    ASSERT_TRUE(m_host.queue.waitFor(3));
    EXPECT_TRUE(kvtest::ComesTrue([this] { return m_script.deleted == 1; }));
    EXPECT_EQ(m_script.dispatches(), (Strings{"SendMessageGroup: JOB_1 JOB_2", "SendMessage: OTHER_1"}));
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"JOB_1:3", "JOB_2:3", "OTHER_1:3"}));
    EXPECT_EQ(m_script.finalized, 1);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ConsecutiveSessionsShareAConnection) {
    m_driver.MakePool(1);
    for (const char* id : {"A_1", "B_1"}) {
        RunCycleOver({id});
        const int done = std::string(id) == "A_1" ? 1 : 2;
        ASSERT_TRUE(kvtest::ComesTrue([&] { return m_script.deleted == done; }));
    }
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "test 1", "test 1"}));
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, ASlowDeliveryDoesNotHoldUpIntakeOrTheNextCycle) {
    kvtest::Latch sending;
    kvtest::Latch goOn;
    m_script.onDispatch = [&](ScriptedDelegate& delegate, const Files& files) {
        sending.Open();
        EXPECT_TRUE(goOn.Wait());
        delegate.completeAll(files);
        return true;
    };
    m_driver.MakePool(1);
    RunCycleOver({"A_1"});
    ASSERT_TRUE(sending.Wait());
    RunCycleOver({"B_1"});
    EXPECT_EQ(m_host.queue.count(), 0);
    goOn.Open();
    EXPECT_TRUE(m_host.queue.waitFor(2));
    EXPECT_TRUE(m_host.queue.eachReturnedOnce());
}

TEST_F(KvSmartAsynProtocolDriverMultiThreadedTest, AFourthSimultaneousBatchIsPostponedNotFailed) {
    kvtest::Latch goOn;
    m_script.onDispatch = [&](ScriptedDelegate& delegate, const Files& files) {
        EXPECT_TRUE(goOn.Wait());
        delegate.completeAll(files);
        return true;
    };
    m_driver.MakePool(4);
    for (const char* id : {"A_1", "B_1", "C_1"}) {
        RunCycleOver({id});
    }
    std::thread opener([&] {
        EXPECT_TRUE(
            m_host.log.waitFor("Unable to get connection object. Delaying carrier session '1' processing."));
        goOn.Open();
    });
    RunCycleOver({"D_1"});
    opener.join();
    ASSERT_TRUE(m_host.queue.waitFor(4));
    for (const KvMessageFile* file : m_host.queue.drain()) {
        EXPECT_EQ(file->m_eStatus, 3) << file->m_strMsgFileID;
    }
    EXPECT_TRUE(m_host.queue.eachReturnedOnce());
    EXPECT_TRUE(kvtest::ComesTrue([this] { return m_script.deleted == 4; }));
    EXPECT_LE(m_driver.m_nTotalConnections, 3U);
}

}  // namespace
