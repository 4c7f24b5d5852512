#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "KvSmartAsynProtocolDriver.h"
#include "driver/SessionDriver.h"

// The bulk dispatch cycle.

namespace {

using kvtest::AsTestFile;
using kvtest::KvCarrierSess;
using kvtest::KvSmartAsynProtocolDriverTest;
using kvtest::LinesFrom;
using kvtest::LinesOf;
using kvtest::NotesFrom;
using kvtest::ReturnsOf;
using kvtest::SessionDriver;
using kvtest::Strings;
using kvtest::TryLockOnAnotherThread;

constexpr std::chrono::milliseconds kPause{190};  // of 200 ms between two passes, less the clocks' grain

TEST_F(KvSmartAsynProtocolDriverTest, ACycleWithoutSessionsBeginsAndEndsAtOnce) {
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kSessionSource),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::PeriodicEvent()",
                 "trace: Starting BULK dispatch cycle 1 ...", "trace: Terminating BULK dispatch cycle ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE."}));
    EXPECT_EQ(LinesOf(m_host.log).size(), 4U);
}

TEST_F(KvSmartAsynProtocolDriverTest, ACycleOverEmptySessionsProcessesNone) {
    Send("JOB_1", 1);
    Send("JOB_2", 2);
    m_driver.PeriodicEvent();
    m_driver.processed.clear();
    m_host.log.clear();
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(m_driver.processed, Strings{});
    EXPECT_EQ(
        LinesOf(m_host.log),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::PeriodicEvent()",
                 "trace: Starting BULK dispatch cycle 2 ...", "trace: Terminating BULK dispatch cycle ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE."}));
    EXPECT_EQ(m_driver.m_mapCarrierSessions.size(), 2U);
}

TEST_F(KvSmartAsynProtocolDriverTest, EveryCycleCounts) {
    m_driver.PeriodicEvent();
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_driver.m_nCycle, 2U);
    EXPECT_EQ(m_host.log.countEqual("Starting BULK dispatch cycle 2 ..."), 1);
}

TEST_F(KvSmartAsynProtocolDriverTest, WithoutALogTheCycleNumberDoesNotAdvance) {
    m_driver.m_pLog = nullptr;
    Send("JOB_1");
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(m_driver.m_nCycle, 0U);
    EXPECT_EQ(m_driver.processed, Strings{"1"});
    m_driver.m_pLog = &m_host.log;
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_driver.m_nCycle, 1U);
}

TEST_F(KvSmartAsynProtocolDriverTest, SessionsAreProcessedInTheOrderOfTheirKeys) {
    Send("A_1", 9);
    Send("B_1", 10);
    Send("C_1", 100);
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_driver.processed, (Strings{"10", "100", "9"}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AProcessedSessionIsLoggedWithItsGroups) {
    Send("JOB_1");
    Send("JOB_2");
    Send("OTHER_1");
    m_driver.PeriodicEvent();
    EXPECT_EQ(
        NotesFrom(m_host.log, kvtest::kSessionSource),
        (Strings{"debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 2; remaining "
                 "now: 0."}));
}

// --- Failing sessions

TEST_F(KvSmartAsynProtocolDriverTest, AFailedSessionHandsBackEveryFileInOrder) {
    m_driver.onProcess = [](KvCarrierSess&, std::string& errText) {
        errText = "Carrier unreachable.";
        return false;
    };
    for (const char* id : {"JOB_1", "OTHER_1", "JOB_2", "JOB_3"}) {
        Send(id);
    }
    m_host.log.clear();
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(
        LinesFrom(m_host.log, kvtest::kSessionSource),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::PeriodicEvent()",
                 "trace: Starting BULK dispatch cycle 1 ...",
                 "error:  >> Error occurred while processing carrier session: 1/mail-1 with msg files:2. "
                 "Failing all messages.",
                 "error: Failing message job id: job-JOB_1. Reason: Carrier unreachable.",
                 "error: Failing message job id: job-JOB_2. Reason: Carrier unreachable.",
                 "error: Failing message job id: job-JOB_3. Reason: Carrier unreachable.",
                 "error: Failing message job id: job-OTHER_1. Reason: Carrier unreachable.",
                 "debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 2; remaining "
                 "now: 0.",
                 "trace: Terminating BULK dispatch cycle ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with TRUE."}));
    EXPECT_EQ(ReturnsOf(m_host.queue),
              (Strings{"JOB_1:2 Carrier unreachable.", "JOB_2:2 Carrier unreachable.",
                       "JOB_3:2 Carrier unreachable.", "OTHER_1:2 Carrier unreachable."}));
    EXPECT_EQ(m_driver.processed, Strings{"1"});
}

TEST_F(KvSmartAsynProtocolDriverTest, AFailedSessionIsLoggedAsProcessedToo) {
    m_driver.onProcess = [](KvCarrierSess&, std::string&) { return false; };
    Send("JOB_1");
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_host.log.countEqual(
                  " >> Successfully processed carrier session: 1/mail-1 of msg files: 1; remaining now: 0."),
              1);
}

TEST_F(KvSmartAsynProtocolDriverTest, AFailedFileComesBackWithItsReasonAndWithoutFlagOrText) {
    m_driver.onProcess = [](KvCarrierSess&, std::string& errText) {
        errText = "reason";
        return false;
    };
    auto* const file = Send("JOB_1");
    file->m_bDriverFlag = true;
    m_driver.PeriodicEvent();
    EXPECT_EQ(file->failureReasons(), Strings{"reason"});
    EXPECT_EQ(file->statusTexts(), Strings{""});
    EXPECT_FALSE(file->m_bDriverFlag);
    EXPECT_NE(file->m_tStatusTime, 0);
}

TEST_F(KvSmartAsynProtocolDriverTest, AFailedSessionIsEmptyAndTakesNewFilesAgain) {
    m_driver.onProcess = [](KvCarrierSess&, std::string&) { return false; };
    Send("JOB_1");
    m_driver.PeriodicEvent();
    EXPECT_TRUE(Session().m_vecMsgFileGroups.empty());
    EXPECT_TRUE(Session().m_mapGroupIndex.empty());
    Send("JOB_2");
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_2"}}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AReasonIsNotCarriedOverToTheNextSession) {
    m_driver.onProcess = [](KvCarrierSess& session, std::string& errText) {
        EXPECT_EQ(errText, "");
        if (session.m_strCacheKey == "1") {
            errText = "reason of 1";
        }
        return false;
    };
    Send("A_1", 1);
    Send("B_1", 2);
    m_driver.PeriodicEvent();
    EXPECT_EQ(ReturnsOf(m_host.queue), (Strings{"A_1:2 reason of 1", "B_1:2"}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AFailedSessionDoesNotKeepTheOthersFromBeingProcessed) {
    m_driver.onProcess = [](KvCarrierSess& session, std::string&) {
        if (session.m_strCacheKey == "1") {
            return false;
        }
        SessionDriver::Empty(session);
        return true;
    };
    Send("A_1", 1);
    Send("B_1", 2);
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(m_driver.processed, (Strings{"1", "2"}));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"A_1:2"});
}

TEST_F(KvSmartAsynProtocolDriverTest, AFailedSessionHandsItsFilesBackWithoutALogToo) {
    m_driver.m_pLog = nullptr;
    m_driver.onProcess = [](KvCarrierSess&, std::string&) { return false; };
    Send("JOB_1");
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"JOB_1:2"});
    EXPECT_EQ(m_host.log.count(), 0);
}

// --- Postponed sessions: the pause of 200 ms between two passes is real time.

TEST_F(KvSmartAsynProtocolDriverTest, APostponedSessionIsTriedAgainAfter200Milliseconds) {
    std::vector<std::chrono::steady_clock::time_point> visits;
    m_driver.onProcess = [&](KvCarrierSess& session, std::string&) {
        visits.push_back(std::chrono::steady_clock::now());
        if (visits.size() == 3) {
            SessionDriver::Empty(session);
        }
        return true;
    };
    Send("JOB_1");
    Send("OTHER_1");
    EXPECT_TRUE(m_driver.PeriodicEvent());
    ASSERT_EQ(visits.size(), 3U);
    EXPECT_GE(visits[1] - visits[0], kPause);
    EXPECT_GE(visits[2] - visits[1], kPause);
    EXPECT_LT(visits[2] - visits[0], std::chrono::seconds(10));  // wide: a loaded machine
    const std::string postponed =
        "debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 2; remaining now: 2.";
    const std::string taken =
        "debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 2; remaining now: 0.";
    EXPECT_EQ(NotesFrom(m_host.log, kvtest::kSessionSource), (Strings{postponed, postponed, taken}));
    EXPECT_EQ(m_driver.m_nCycle, 1U);
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverTest, ALaterPassVisitsOnlyWhatIsLeftAndFromTheFirstSession) {
    m_driver.onProcess = [this](KvCarrierSess& session, std::string&) {
        const bool firstPass = m_driver.processed.size() <= 3;
        if (!firstPass || session.m_strCacheKey == "2") {
            SessionDriver::Empty(session);
        }
        return true;
    };
    for (const unsigned long carrier : {3UL, 2UL, 1UL}) {
        Send("JOB_1", carrier);
    }
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_driver.processed, (Strings{"1", "2", "3", "1", "3"}));
}

TEST_F(KvSmartAsynProtocolDriverTest, AnEarlierPostponedSessionCausesAPassThoughTheLastOneIsDone) {
    m_driver.onProcess = [this](KvCarrierSess& session, std::string&) {
        if (m_driver.processed.size() > 1) {
            SessionDriver::Empty(session);
        }
        return true;
    };
    Send("A_1", 1);
    Send("B_1", 2);
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_driver.processed, (Strings{"1", "2", "1"}));
}

TEST_F(KvSmartAsynProtocolDriverTest, APartlyTakenSessionIsPostponedWithTheRest) {
    m_driver.onProcess = [](KvCarrierSess& session, std::string&) {
        session.m_vecMsgFileGroups.pop_back();
        return true;
    };
    Send("A_1");
    Send("B_1");
    m_driver.PeriodicEvent();
    EXPECT_EQ(
        NotesFrom(m_host.log, kvtest::kSessionSource),
        (Strings{"debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 2; remaining "
                 "now: 1.",
                 "debug:  >> Successfully processed carrier session: 1/mail-1 of msg files: 1; remaining "
                 "now: 0."}));
}

TEST_F(KvSmartAsynProtocolDriverTest, APostponedSessionCanFailLater) {
    m_driver.onProcess = [this](KvCarrierSess&, std::string& errText) {
        errText = "reason";
        return m_driver.processed.size() == 1;
    };
    Send("JOB_1");
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"JOB_1:2 reason"});
}

TEST_F(KvSmartAsynProtocolDriverTest, IntakeWaitsForTheWholeCycleThePausesIncluded) {
    std::atomic<bool> cycleDone{false};
    kvtest::Latch processing;
    m_driver.onProcess = [&](KvCarrierSess& session, std::string&) {
        processing.Open();
        EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_BUSY);
        if (m_driver.processed.size() == 2) {
            EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1"}}));
            cycleDone = true;
            SessionDriver::Empty(session);
        }
        return true;
    };
    Send("JOB_1");
    auto* const late = m_files.add("JOB_2");
    late->m_ulCarrierID = 1;
    bool filedAfterTheCycle = false;
    std::thread intake([&] {
        EXPECT_TRUE(processing.Wait());
        kvtest::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
        EXPECT_TRUE(m_driver.SendAMessage(late, status));
        filedAfterTheCycle = cycleDone;
    });
    m_driver.PeriodicEvent();
    intake.join();
    EXPECT_TRUE(filedAfterTheCycle);
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_2"}}));
}

TEST_F(KvSmartAsynProtocolDriverTest, TheLockIsFreeAfterACycle) {
    Send("JOB_1");
    m_driver.PeriodicEvent();
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartAsynProtocolDriverTest, AnExceptionOutOfAProcessedSessionFreesTheLock) {
    m_driver.onProcess = [](KvCarrierSess&, std::string&) -> bool { throw std::bad_alloc(); };
    Send("JOB_1");
    EXPECT_THROW(m_driver.PeriodicEvent(), std::bad_alloc);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
    EXPECT_EQ(Waiting(), (std::vector<Strings>{{"JOB_1"}}));
}

}  // namespace
