#include <gtest/gtest.h>

#include <type_traits>

#include "KvMessageFile.h"
#include "KvMessageFileQueue.h"
#include "KvProtocolDriverInterface.h"
#include "contract/Abi.h"

// Where the members of the classes lie that a host has and a driver touches, or the other way round.

namespace kvcontract {

TEST(KvMessageFileContractTest, TheTextsBeforeTheInhibitsLieWhereHostsHaveThem) {
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strMsgFileID), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSubject), PerAbi(40, 28));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strMessage), PerAbi(72, 52));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strJobID), PerAbi(104, 76));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strRecipient), PerAbi(136, 100));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strCarrierName), PerAbi(168, 124));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpCAFile), PerAbi(200, 148));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpCertFile), PerAbi(232, 172));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpKeyFile), PerAbi(264, 196));
}

TEST(KvMessageFileContractTest, TheGroupingAndTheStatusLieWhereHostsHaveThem) {
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_nGroupInhibit1), PerAbi(296, 220));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_nGroupInhibit2), PerAbi(298, 222));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_vecAttachments), PerAbi(304, 224));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_ulCarrierID), PerAbi(328, 236));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_bGroupInhibit), PerAbi(336, 240));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_b2WayEnabled), PerAbi(337, 241));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_bIs2WayQuery), PerAbi(338, 242));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_bIs2Way), PerAbi(339, 243));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_eStatus), PerAbi(340, 244));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_tStatusTime), PerAbi(344, 248));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_bDriverFlag), PerAbi(352, 252));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_bForDeletion), PerAbi(353, 253));
}

TEST(KvMessageFileContractTest, TheSmtpAccountLiesWhereHostsHaveIt) {
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpServer), PerAbi(360, 256));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpFrom), PerAbi(392, 280));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpUser), PerAbi(424, 304));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_strSmtpPassword), PerAbi(456, 328));
    EXPECT_EQ(OffsetOf(&KvMessageFile::m_eSmtpSecurity), PerAbi(488, 352));
    EXPECT_EQ(sizeof(KvMessageFile), PerAbi(496, 356));
}

TEST(KvMessageFileContractTest, TheMembersHaveTheTypesOfTheHosts) {
    EXPECT_TRUE((std::is_same_v<decltype(KvMessageFile::m_ulCarrierID), unsigned long>));
    EXPECT_TRUE((std::is_same_v<decltype(KvMessageFile::m_tStatusTime), time_t>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<SmtpSecurityType>, int>));
    EXPECT_TRUE(
        (std::is_same_v<std::underlying_type_t<KvMessengerReportsMngrInterface::ReportsStatus>, int>));
}

TEST(KvMessageFileQueueContractTest, TheDequeLiesBeforeTheLock) {
    EXPECT_EQ(OffsetOf(&KvMessageFileQueue::m_dqMsgFiles), 0U);
    EXPECT_EQ(OffsetOf(&KvMessageFileQueue::m_lock), PerAbi(80, 40));
    EXPECT_EQ(sizeof(KvMessageFileQueue), PerAbi(128, 68));
}

TEST(KvProtocolDriverInterfaceContractTest, TheThreeServicesFollowTheVirtualTable) {
    EXPECT_EQ(OffsetOf(&KvProtocolDriverInterface::m_pLog), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(&KvProtocolDriverInterface::m_pReportsMngr), PerAbi(16, 8));
    EXPECT_EQ(OffsetOf(&KvProtocolDriverInterface::m_pMsgFileQueue), PerAbi(24, 12));
    EXPECT_EQ(sizeof(KvProtocolDriverInterface), PerAbi(32, 16));
}

TEST(ServiceContractTest, TheServicesAreAVirtualTableAndNothingElse) {
    EXPECT_EQ(sizeof(KvLogInterface), sizeof(void*));
    EXPECT_EQ(sizeof(KvMessengerReportsMngrInterface), sizeof(void*));
}

}  // namespace kvcontract
