#include "KvSmartAsynProtocolDriver.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "driver/SessionDriver.h"

// Life cycle, cache key, intake and grouping. The bulk dispatch cycle has a file of its own.

namespace {

using kvtest::KvCarrierSess;
using kvtest::KvSmartAsynProtocolDriverTest;
using kvtest::LinesFrom;
using kvtest::LinesOf;
using kvtest::MessageBuilder;
using kvtest::SessionDriver;
using kvtest::SlotOf;
using kvtest::Strings;
using kvtest::TryLockOnAnotherThread;

constexpr unsigned int kNoIndex = 99;

unsigned int IndexOf(const KvCarrierSess& session, const std::string& groupKey) {
    const auto found = session.m_mapGroupIndex.find(groupKey);
    return found == session.m_mapGroupIndex.end() ? kNoIndex : found->second;
}

TEST_F(KvSmartAsynProtocolDriverTest, ANewDriverHasNoLockNoSessionsAndNoCycle) {
    const SessionDriver driver;
    EXPECT_EQ(driver.m_pLog, nullptr);
    EXPECT_EQ(driver.m_pReportsMngr, nullptr);
    EXPECT_EQ(driver.m_pLock, nullptr);
    EXPECT_EQ(driver.m_nCycle, 0U);
    EXPECT_TRUE(driver.m_mapCarrierSessions.empty());
}

TEST_F(KvSmartAsynProtocolDriverTest, ItsOperationsLieBehindThoseOfTheInterface) {
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::ConfigureExt), 14U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::SetupExt), 15U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::CleanupExt), 16U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::GetCacheKey), 17U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession), 18U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriver::ProcessCarrierSession), 19U);
}

TEST_F(KvSmartAsynProtocolDriverTest, ItsMembersLieInTheirOrder) {
    EXPECT_LT(static_cast<const void*>(&m_driver.m_pMsgFileQueue),
              static_cast<const void*>(&m_driver.m_mapCarrierSessions));
    EXPECT_LT(static_cast<const void*>(&m_driver.m_mapCarrierSessions),
              static_cast<const void*>(&m_driver.m_pLock));
    EXPECT_LT(static_cast<const void*>(&m_driver.m_pLock), static_cast<const void*>(&m_driver.m_nCycle));
}

// --- Configure, Setup, Cleanup

TEST_F(KvSmartAsynProtocolDriverTest, ConfigureHandsTheSettingsToConfigureExt) {
    std::map<std::string, std::string> settings{{"key", "value"}};
    std::map<std::string, std::string>* seen = nullptr;
    m_driver.onConfigure = [&](auto& given) {
        seen = &given;
        return true;
    };
    EXPECT_TRUE(m_driver.Configure(settings));
    EXPECT_EQ(seen, &settings);
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::Configure()",
                       "trace: Leaving KvSmartAsynProtocolDriver::Configure() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, ConfigureAnswersWhatConfigureExtAnswers) {
    std::map<std::string, std::string> settings;
    m_driver.onConfigure = [](auto&) { return false; };
    EXPECT_FALSE(m_driver.Configure(settings));
    EXPECT_EQ(LinesOf(m_host.log).back(),
              "trace: Leaving KvSmartAsynProtocolDriver::Configure() with FALSE.");
}

TEST_F(KvSmartAsynProtocolDriverTest, TheHooksReportSuccessUnlessOverridden) {
    std::map<std::string, std::string> settings;
    EXPECT_TRUE(m_driver.ConfigureExt(settings));
    EXPECT_TRUE(m_driver.SetupExt(nullptr));
    EXPECT_TRUE(m_driver.CleanupExt());
}

TEST_F(KvSmartAsynProtocolDriverTest, SetupMakesTheLockBeforeItCallsSetupExt) {
    SessionDriver driver;
    m_host.lendTo(driver);
    KvMessengerInstConfBasic* seen = nullptr;
    bool lockExisted = false;
    driver.onSetup = [&](KvMessengerInstConfBasic* instConf) {
        seen = instConf;
        lockExisted = driver.m_pLock != nullptr;
        return true;
    };
    EXPECT_TRUE(driver.Setup(&m_host.instanceConf));
    EXPECT_EQ(seen, &m_host.instanceConf);
    EXPECT_TRUE(lockExisted);
    EXPECT_EQ(LinesOf(m_host.log), (Strings{"trace: Entering KvSmartAsynProtocolDriver::Setup()",
                                            "trace: Leaving KvSmartAsynProtocolDriver::Setup() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, SetupAnswersWhatSetupExtAnswers) {
    SessionDriver driver;
    m_host.lendTo(driver);
    driver.onSetup = [](KvMessengerInstConfBasic*) { return false; };
    EXPECT_FALSE(driver.Setup(nullptr));
    EXPECT_EQ(LinesOf(m_host.log).back(), "trace: Leaving KvSmartAsynProtocolDriver::Setup() with FALSE.");
}

TEST_F(KvSmartAsynProtocolDriverTest, CleanupIgnoresCleanupExtAndDestroysTheLockAfterIt) {
    bool lockExisted = false;
    m_driver.onCleanup = [&] {
        lockExisted = m_driver.m_pLock != nullptr;
        return false;
    };
    EXPECT_TRUE(m_driver.Cleanup());
    EXPECT_TRUE(lockExisted);
    EXPECT_EQ(m_driver.m_pLock, nullptr);
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::Cleanup()",
                       "trace: Leaving KvSmartAsynProtocolDriver::Cleanup() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, CleanupLeavesWaitingFilesAlone) {
    Send("JOB_1");
    m_driver.Cleanup();
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1"}}));
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverTest, ADriverCanBeSetUpAgainAfterCleanup) {
    m_driver.Cleanup();
    EXPECT_TRUE(m_driver.Setup(nullptr));
    EXPECT_NE(m_driver.m_pLock, nullptr);
}

// --- GetCacheKey

TEST_F(KvSmartAsynProtocolDriverTest, TheCacheKeyIsTheCarrierId) {
    const auto file = MessageBuilder().carrier(4294967295UL, "mail").build();
    EXPECT_EQ(m_driver.GetCacheKey(file.get()), "4294967295");
    file->m_ulCarrierID = 0;
    EXPECT_EQ(m_driver.GetCacheKey(file.get()), "0");
}

TEST_F(KvSmartAsynProtocolDriverTest, TheCacheKeyOfNoFileIsEmpty) {
    EXPECT_EQ(m_driver.GetCacheKey(nullptr), "");
}

// --- SendAMessage

TEST_F(KvSmartAsynProtocolDriverTest, AnAcceptedFileIsFiledAndNothingIsSent) {
    const auto file = MessageBuilder().id("JOB_1").build();
    EXPECT_TRUE(Send(file.get()));
    EXPECT_EQ(m_status, 7);
    EXPECT_EQ(file->m_eStatus, 0);
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1"}}));
    EXPECT_EQ(m_driver.processed, Strings{});
    EXPECT_EQ(m_host.queue.count(), 0);
    EXPECT_EQ(m_host.reports.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverTest, IntakeTracesItsBeginAndItsEnd) {
    Send("JOB_1");
    const Strings lines = LinesFrom(m_host.log, kvtest::kSessionSource);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines.front(), "trace: Entering KvSmartAsynProtocolDriver::SendAMessage()");
    EXPECT_EQ(lines.back(), "trace: Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.");
    EXPECT_EQ(lines, LinesOf(m_host.log));
}

TEST_F(KvSmartAsynProtocolDriverTest, ANewSessionIsMadeFromItsFirstFile) {
    const auto* const file = Send("JOB_1", 17);
    ASSERT_EQ(m_driver.m_mapCarrierSessions.count("17"), 1U);
    const KvCarrierSess& session = Session("17");
    EXPECT_EQ(session.m_strCacheKey, "17");
    EXPECT_EQ(session.m_strCarrierName, "mail-17");
    EXPECT_FALSE(session.m_sessConn.m_bOpen);
    EXPECT_EQ(session.m_sessConn.m_hConnection, 0U);
    EXPECT_EQ(session.m_sessConn.m_hContext, 0U);
    EXPECT_FALSE(session.m_bConnFailed);
    EXPECT_EQ(session.m_pLastMsgFile, file);
}

TEST_F(KvSmartAsynProtocolDriverTest, ASessionKeepsTheCarrierNameOfItsFirstFile) {
    Send("JOB_1");
    Send(m_files.add(MessageBuilder().id("JOB_2").carrier(1, "renamed")));
    EXPECT_EQ(Session().m_strCarrierName, "mail-1");
    EXPECT_EQ(m_driver.m_mapCarrierSessions.size(), 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, TheSessionIsThatOfTheOverriddenCacheKey) {
    m_driver.onCacheKey = [](KvMessageFile* file) { return "key of " + file->m_strMsgFileID; };
    Send("JOB_1");
    EXPECT_EQ(Waiting("key of JOB_1"), (std::vector<Strings>{{"JOB_1"}}));
    EXPECT_EQ(Session("key of JOB_1").m_strCacheKey, "key of JOB_1");
    EXPECT_EQ(m_driver.m_mapCarrierSessions.size(), 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, FilesWithDifferentKeysNeverShareASession) {
    Send("JOB_1", 1);
    Send("JOB_2", 2);
    EXPECT_EQ(Waiting("1"), (std::vector<Strings>{{"JOB_1"}}));
    EXPECT_EQ(Waiting("2"), (std::vector<Strings>{{"JOB_2"}}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AFileThatCannotBeFiledIsRefused) {
    m_driver.onStore = [](KvCarrierSess&, KvMessageFile*) { return false; };
    const auto file = MessageBuilder().build();
    EXPECT_FALSE(Send(file.get()));
    EXPECT_EQ(m_status, 2);
    EXPECT_EQ(m_host.queue.count(), 0);
    EXPECT_EQ(file->failureReasons(), Strings{});
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::SendAMessage()",
                       "trace: Entering KvSmartAsynProtocolDriver::GetCacheKey()",
                       "trace: Leaving KvSmartAsynProtocolDriver::GetCacheKey() with 1.",
                       "error: Unable to store message file in Carrier Session",
                       "trace: Leaving KvSmartAsynProtocolDriver::SendAMessage() with FALSE."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, NoFileIsRefusedAndMakesNoSession) {
    EXPECT_FALSE(Send(nullptr));
    EXPECT_EQ(m_status, 2);
    EXPECT_TRUE(m_driver.m_mapCarrierSessions.empty());
}

TEST_F(KvSmartAsynProtocolDriverTest, TheLockIsHeldWhileAFileIsFiled) {
    int lockResult = -1;
    m_driver.onStore = [&](KvCarrierSess&, KvMessageFile*) {
        lockResult = TryLockOnAnotherThread(*m_driver.m_pLock);
        return true;
    };
    Send("JOB_1");
    EXPECT_EQ(lockResult, KvconLock::LOCK_BUSY);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartAsynProtocolDriverTest, TheLockIsFreeAfterARefusal) {
    m_driver.onStore = [](KvCarrierSess&, KvMessageFile*) { return false; };
    const auto file = MessageBuilder().build();
    Send(file.get());
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartAsynProtocolDriverTest, AnExceptionWhileFilingReachesTheHostAndFreesTheLock) {
    m_driver.onStore = [](KvCarrierSess&, KvMessageFile*) -> bool { throw std::bad_alloc(); };
    const auto file = MessageBuilder().build();
    EXPECT_THROW(Send(file.get()), std::bad_alloc);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartAsynProtocolDriverTest, IntakeWorksSilentlyWithoutALog) {
    m_driver.m_pLog = nullptr;
    Send("JOB_1");
    Session().m_mapGroupIndex["JOB"] = 5;
    EXPECT_FALSE(Send(m_files.add("JOB_2")));
    EXPECT_EQ(m_status, 2);
    EXPECT_EQ(m_host.log.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverTest, IntakeFromSeveralThreadsLosesNothing) {
    constexpr int kThreads = 4;
    constexpr int kFilesEach = 100;
    std::vector<kvtest::TestMessageFile> files(kThreads * kFilesEach);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, &files, thread] {
            for (int file = 0; file < kFilesEach; ++file) {
                kvtest::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
                m_driver.SendAMessage(&files[static_cast<std::size_t>(thread * kFilesEach + file)], status);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(Session("0").m_vecMsgFileGroups.size(), 1U);
    EXPECT_EQ(Session("0").m_vecMsgFileGroups[0].size(), files.size());
}

// --- Send2WayRespQuery

TEST_F(KvSmartAsynProtocolDriverTest, AQueryIsFiledLikeAMessage) {
    const auto query = MessageBuilder().id("JOB_1").twoWayQuery().build();
    EXPECT_TRUE(m_driver.Send2WayRespQuery(query.get(), m_status));
    EXPECT_EQ(m_status, 7);
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1"}}));
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::Send2WayRespQuery()",
                       "trace: Entering KvSmartAsynProtocolDriver::SendAMessage()",
                       "trace: Entering KvSmartAsynProtocolDriver::GetCacheKey()",
                       "trace: Leaving KvSmartAsynProtocolDriver::GetCacheKey() with 1.",
                       "trace: Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()",
                       "trace: Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with TRUE.",
                       "trace: Leaving KvSmartAsynProtocolDriver::SendAMessage() with TRUE.",
                       "trace: Leaving KvSmartAsynProtocolDriver::Send2WayRespQuery() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, ARefusedQueryIsReportedLikeAMessage) {
    m_driver.onStore = [](KvCarrierSess&, KvMessageFile*) { return false; };
    const auto query = MessageBuilder().twoWayQuery().build();
    EXPECT_FALSE(m_driver.Send2WayRespQuery(query.get(), m_status));
    EXPECT_EQ(m_status, 2);
    EXPECT_EQ(LinesOf(m_host.log).back(),
              "trace: Leaving KvSmartAsynProtocolDriver::Send2WayRespQuery() with FALSE.");
}

TEST_F(KvSmartAsynProtocolDriverTest, AQueryTakesTheOverriddenIntake) {
    struct OwnIntake : SessionDriver {
        bool SendAMessage(KvMessageFile* msgFile, kvtest::ReportsStatus& status) override {
            seen = msgFile;
            status = KvMessengerReportsMngrInterface::REPORT_COMPLETED;
            return true;
        }
        KvMessageFile* seen = nullptr;
    } driver;
    const auto query = MessageBuilder().twoWayQuery().build();
    EXPECT_TRUE(driver.Send2WayRespQuery(query.get(), m_status));
    EXPECT_EQ(driver.seen, query.get());
    EXPECT_EQ(m_status, 3);
}

// --- Grouping

TEST_F(KvSmartAsynProtocolDriverTest, FilesThatDifferAfterTheLastUnderscoreShareAGroupInOrderOfArrival) {
    Send("JOB_2");
    Send("OTHER_1");
    Send("JOB_1");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_2", "JOB_1"}, {"OTHER_1"}}));
    EXPECT_EQ(IndexOf(Session(), "JOB"), 0U);
    EXPECT_EQ(IndexOf(Session(), "OTHER"), 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, OnlyTheLastUnderscoreCuts) {
    Send("A_B_1");
    Send("A_B_2");
    Send("A_1");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"A_B_1", "A_B_2"}, {"A_1"}}));
    EXPECT_EQ(IndexOf(Session(), "A_B"), 0U);
    EXPECT_EQ(IndexOf(Session(), "A"), 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, AnIdentifierWithoutUnderscoreIsItsOwnGroupKey) {
    Send("JOB");
    Send("JOB_1");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB", "JOB_1"}}));
    EXPECT_EQ(IndexOf(Session(), "JOB"), 0U);
}

TEST_F(KvSmartAsynProtocolDriverTest, UnderscoresAtTheEdgesCutLikeAnyOther) {
    Send("_1");
    Send("");
    Send("JOB_");
    Send("JOB_7");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"_1", ""}, {"JOB_", "JOB_7"}}));
    EXPECT_EQ(IndexOf(Session(), ""), 0U);
    EXPECT_EQ(IndexOf(Session(), "JOB"), 1U);
}

struct Inhibitor {
    const char* name;
    void (*apply)(KvMessageFile& file);
};

const Inhibitor kInhibitors[] = {
    {"Inhibit", [](KvMessageFile& file) { file.m_bGroupInhibit = true; }},
    {"Inhibit1", [](KvMessageFile& file) { file.m_nGroupInhibit1 = 1; }},
    {"NegativeInhibit1", [](KvMessageFile& file) { file.m_nGroupInhibit1 = -1; }},
    {"Inhibit2", [](KvMessageFile& file) { file.m_nGroupInhibit2 = 1; }},
    {"TwoWay", [](KvMessageFile& file) { file.m_bIs2Way = true; }},
    {"Query", [](KvMessageFile& file) { file.m_bIs2WayQuery = true; }},
};

class KvSmartAsynProtocolDriverGroupInhibitTest : public KvSmartAsynProtocolDriverTest,
                                                  public testing::WithParamInterface<Inhibitor> {};

TEST_P(KvSmartAsynProtocolDriverGroupInhibitTest, AFileThatMustNotBeGroupedHasAGroupOfItsOwn) {
    Send("JOB_1");
    for (const char* id : {"JOB_2", "JOB_3"}) {
        kvtest::TestMessageFile* const file = m_files.add(id);
        file->m_ulCarrierID = 1;
        GetParam().apply(*file);
        EXPECT_TRUE(Send(file));
    }
    Send("JOB_4");
    Send("LATE_1");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1", "JOB_4"}, {"JOB_2"}, {"JOB_3"}, {"LATE_1"}}));
    EXPECT_EQ(Session().m_mapGroupIndex, (std::map<std::string, unsigned int>{{"JOB", 0}, {"LATE", 3}}));
}

INSTANTIATE_TEST_SUITE_P(EveryReason, KvSmartAsynProtocolDriverGroupInhibitTest,
                         testing::ValuesIn(kInhibitors),
                         [](const auto& inhibitor) { return std::string(inhibitor.param.name); });

TEST_F(KvSmartAsynProtocolDriverTest, TwoWayDeliveryAloneDoesNotKeepAFileOutOfAGroup) {
    Send("JOB_1");
    kvtest::TestMessageFile* const file = m_files.add("JOB_2");
    file->m_b2WayEnabled = true;
    Send(file);
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1", "JOB_2"}}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AGroupGrowsWithoutBoundAtIntake) {
    for (int number = 0; number < 1000; ++number) {
        Send("JOB_" + std::to_string(number));
    }
    ASSERT_EQ(Session().m_vecMsgFileGroups.size(), 1U);
    EXPECT_EQ(Session().m_vecMsgFileGroups[0].size(), 1000U);
}

TEST_F(KvSmartAsynProtocolDriverTest, TheLastFileIsNotedWhateverItsKind) {
    const auto* const grouped = Send("JOB_1");
    EXPECT_EQ(Session().m_pLastMsgFile, grouped);
    auto* const single = m_files.add(MessageBuilder().id("JOB_2").neverGrouped());
    Send(single);
    EXPECT_EQ(Session().m_pLastMsgFile, single);
}

TEST_F(KvSmartAsynProtocolDriverTest, AGroupIndexOutOfStepIsRefused) {
    Send("OTHER_1");
    Session().m_mapGroupIndex["JOB"] = 1;
    m_host.log.clear();
    auto* const file = m_files.add("JOB_1");
    EXPECT_FALSE(Send(file));
    EXPECT_EQ(m_status, 2);
    EXPECT_EQ(kvtest::NotesFrom(m_host.log, kvtest::kSessionSource),
              (Strings{"error: Group index out of bound. Index = 1, Size = 1",
                       "error: Unable to store message file in Carrier Session"}));
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"OTHER_1"}}));
    EXPECT_EQ(IndexOf(Session(), "JOB"), 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, ARefusedFileIsNotedAsTheLastOne) {
    Send("OTHER_1");
    Session().m_mapGroupIndex["JOB"] = 7;
    auto* const file = m_files.add("JOB_1");
    EXPECT_FALSE(Send(file));
    EXPECT_EQ(Session().m_pLastMsgFile, file);
}

TEST_F(KvSmartAsynProtocolDriverTest, SessionsAreValues) {
    Send("JOB_1");
    KvCarrierSess copy = Session();
    SessionDriver::Empty(Session());
    EXPECT_EQ(copy.m_vecMsgFileGroups.size(), 1U);
    EXPECT_EQ(copy.m_strCacheKey, "1");
}

}  // namespace
