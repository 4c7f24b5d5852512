#include <gtest/gtest.h>

#include "KvSmtpDriver.h"
#include "contract/Calls.h"
#include "contract/HandMadeHost.h"

// A driver's calls of its host. The driver is ours; the host's objects are made by hand.

namespace kvcontract {

using Calls = std::vector<Call>;
using Reports = KvMessengerReportsMngrInterface;

class DriverCallsHostTest : public testing::Test {
protected:
    DriverCallsHostTest() {
        m_driver.m_pLog = m_pLog;
        m_driver.m_pReportsMngr = static_cast<KvMessengerReportsMngrInterface*>(HandMadeReports());
        m_driver.m_pMsgFileQueue = &m_queue;
    }
    void TearDown() override { TakeCalls(); }

    KvLogInterface* const m_pLog = static_cast<KvLogInterface*>(HandMadeLog());
    HandMadeMessageFile m_hostFile;
    KvMessageFile* const m_pFile = reinterpret_cast<KvMessageFile*>(&m_hostFile);
    KvMessageFileQueue m_queue;
    KvSMTPDriver m_driver;
};

TEST_F(DriverCallsHostTest, TheFiveSeveritiesAreTheFirstFiveSlotsOfTheLog) {
    m_pLog->LogTrace("t", 1, "file");
    m_pLog->LogDebug("d", 2, "file");
    m_pLog->LogInfo("i", 3, "file");
    m_pLog->LogWarning("w", 4, "file");
    m_pLog->LogError("e", 5, "file");
    EXPECT_EQ(TakeCalls(), (Calls{{"log 0 t file", {1}},
                                  {"log 1 d file", {2}},
                                  {"log 2 i file", {3}},
                                  {"log 3 w file", {4}},
                                  {"log 4 e file", {5}}}));
}

TEST_F(DriverCallsHostTest, TheDriverTracesThroughTheFirstSlot) {
    std::map<std::string, std::string> settings;
    m_driver.Configure(settings);
    const Calls calls = TakeCalls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front().operation,
              "log 0 Entering KvSmartAsynProtocolDriver::Configure() KvSmartAsynProtocolDriver.cpp");
    EXPECT_EQ(
        calls.back().operation,
        "log 0 Leaving KvSmartAsynProtocolDriver::Configure() with TRUE. KvSmartAsynProtocolDriver.cpp");
}

TEST_F(DriverCallsHostTest, AReportIsTheFirstSlotOfTheReportWriter) {
    EXPECT_TRUE(m_driver.WriteMessageReport(m_pFile, Reports::REPORT_FAILED, "why"));
    EXPECT_EQ(TakeCalls(), (Calls{{"report 0 why", {Word(&m_hostFile), 2}}}));
    EXPECT_EQ(m_hostFile.status, 2);
}

TEST_F(DriverCallsHostTest, TheReasonAndTheStatusTextAreTheSlotsBehindTheDestructorOfTheFile) {
    m_pFile->SetFailureReason("reason");
    m_pFile->SetStatusText("status");
    EXPECT_EQ(TakeCalls(),
              (Calls{{"file 2 reason", {Word(&m_hostFile)}}, {"file 3 status", {Word(&m_hostFile)}}}));
}

TEST_F(DriverCallsHostTest, APushBackWritesIntoTheHostsFileAndQueue) {
    EXPECT_TRUE(m_driver.PushBackMsgFile(m_pFile, Reports::REPORT_COMPLETED, true, "done"));
    EXPECT_EQ(TakeCalls(), (Calls{{"file 3 done", {Word(&m_hostFile)}}}));
    EXPECT_EQ(m_hostFile.status, 3);
    EXPECT_GT(m_hostFile.statusTime, 4);
    EXPECT_TRUE(m_hostFile.driverFlag);
    EXPECT_FALSE(m_hostFile.forDeletion);
    EXPECT_EQ(FilesOfQueue(&m_queue), std::deque<void*>{&m_hostFile});
}

TEST_F(DriverCallsHostTest, APushBackForDeletionSetsTheMarkOfTheHostsFile) {
    m_hostFile.forDeletion = false;
    EXPECT_TRUE(m_driver.PushBackMsgFileForDeletion(m_pFile));
    EXPECT_TRUE(m_hostFile.forDeletion);
    EXPECT_EQ(FilesOfQueue(&m_queue), std::deque<void*>{&m_hostFile});
}

TEST_F(DriverCallsHostTest, TheTextsOfAMessageAreReadWhereTheHostPutThem) {
    EXPECT_EQ(m_pFile->m_strMsgFileID, "id_1");
    EXPECT_EQ(m_pFile->m_strSubject, "subject");
    EXPECT_EQ(m_pFile->m_strMessage, "message");
    EXPECT_EQ(m_pFile->m_strJobID, "job");
    EXPECT_EQ(m_pFile->m_strRecipient, "recipient");
    EXPECT_EQ(m_pFile->m_strCarrierName, "carrier");
    EXPECT_EQ(m_pFile->m_vecAttachments, (std::vector<std::string>{"a", "b"}));
}

TEST_F(DriverCallsHostTest, TheAccountOfAMessageIsReadWhereTheHostPutIt) {
    EXPECT_EQ(m_driver.GetCacheKey(m_pFile), "{3}-{server}-{2}-{user}-{password}");
    EXPECT_EQ(m_pFile->m_strSmtpCAFile, "ca");
    EXPECT_EQ(m_pFile->m_strSmtpCertFile, "cert");
    EXPECT_EQ(m_pFile->m_strSmtpKeyFile, "key");
    EXPECT_EQ(m_pFile->m_strSmtpFrom, "from");
}

TEST_F(DriverCallsHostTest, TheKindAndTheStatusOfAMessageAreReadWhereTheHostPutThem) {
    EXPECT_EQ(m_pFile->m_nGroupInhibit1, 1);
    EXPECT_EQ(m_pFile->m_nGroupInhibit2, 2);
    EXPECT_TRUE(m_pFile->m_bGroupInhibit);
    EXPECT_FALSE(m_pFile->m_b2WayEnabled);
    EXPECT_TRUE(m_pFile->m_bIs2WayQuery);
    EXPECT_FALSE(m_pFile->m_bIs2Way);
    EXPECT_EQ(m_pFile->m_eStatus, Reports::REPORT_ACCEPTED);
    EXPECT_EQ(m_pFile->m_tStatusTime, 4);
    EXPECT_FALSE(m_pFile->m_bDriverFlag);
    EXPECT_TRUE(m_pFile->m_bForDeletion);
}

TEST_F(DriverCallsHostTest, AHandMadeFileIsAsLargeAsOurs) {
    EXPECT_EQ(sizeof(HandMadeMessageFile), sizeof(KvMessageFile));
}

}  // namespace kvcontract
