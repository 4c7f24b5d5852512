#include <gtest/gtest.h>

#include "KvSMTPMsgDispatcher.h"
#include "KvSmtpDriver.h"
#include "contract/Abi.h"

// Where the members of the driver framework lie: drivers derive from these classes.

namespace kvcontract {

KV_EXPOSE(KvSmartAsynProtocolDriver, m_mapCarrierSessions);
KV_EXPOSE(KvSmartAsynProtocolDriver, m_pLock);
KV_EXPOSE(KvSmartAsynProtocolDriver, m_nCycle);

TEST(KvSmartAsynProtocolDriverContractTest, ItsMembersFollowThoseOfTheInterface) {
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriver_m_mapCarrierSessions{}), PerAbi(32, 16));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriver_m_pLock{}), PerAbi(80, 40));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriver_m_nCycle{}), PerAbi(88, 44));
    EXPECT_EQ(sizeof(KvSmartAsynProtocolDriver), PerAbi(96, 48));
}

TEST(KvSmartAsynProtocolDriverContractTest, TheMembersOfASessionLieInTheirOrder) {
    using Session = KvSmartAsynProtocolDriver::KvCarrierSess;
    EXPECT_EQ(OffsetOf(&Session::m_strCacheKey), 0U);
    EXPECT_EQ(OffsetOf(&Session::m_strCarrierName), PerAbi(32, 24));
    EXPECT_EQ(OffsetOf(&Session::m_sessConn), PerAbi(64, 48));
    EXPECT_EQ(OffsetOf(&Session::m_pLastMsgFile), PerAbi(80, 60));
    EXPECT_EQ(OffsetOf(&Session::m_bConnFailed), PerAbi(88, 64));
    EXPECT_EQ(OffsetOf(&Session::m_vecMsgFileGroups), PerAbi(96, 68));
    EXPECT_EQ(OffsetOf(&Session::m_mapGroupIndex), PerAbi(120, 80));
    EXPECT_EQ(sizeof(Session), PerAbi(168, 104));
}

TEST(KvSmartAsynProtocolDriverContractTest, TheConnectionOfASessionIsAFlagAndTwoWordsOf32Bits) {
    using Connection = KvSmartAsynProtocolDriver::KvSessionConn;
    EXPECT_EQ(OffsetOf(&Connection::m_bOpen), 0U);
    EXPECT_EQ(OffsetOf(&Connection::m_hConnection), 4U);
    EXPECT_EQ(OffsetOf(&Connection::m_hContext), 8U);
    EXPECT_EQ(sizeof(Connection), 12U);
}

KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_nThreadPoolSize);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_nMaxConnections);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_nMaxSameCarrierConnections);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_nMaxPinsPerTransaction);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_pThreadPool);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_mapConnCache);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_nTotalConnections);
KV_EXPOSE(KvSmartAsynProtocolDriverMultiThreaded, m_pCacheLock);

TEST(KvSmartAsynProtocolDriverMultiThreadedContractTest, ItsMembersFollowThoseOfTheBase) {
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_nThreadPoolSize{}), PerAbi(92, 48));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_nMaxConnections{}), PerAbi(96, 52));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_nMaxSameCarrierConnections{}),
              PerAbi(100, 56));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_nMaxPinsPerTransaction{}), PerAbi(104, 60));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_pThreadPool{}), PerAbi(112, 64));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_mapConnCache{}), PerAbi(120, 68));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_nTotalConnections{}), PerAbi(168, 92));
    EXPECT_EQ(OffsetOf(KvSmartAsynProtocolDriverMultiThreaded_m_pCacheLock{}), PerAbi(176, 96));
    EXPECT_EQ(sizeof(KvSmartAsynProtocolDriverMultiThreaded), PerAbi(184, 100));
}

TEST(KvSmartAsynProtocolDriverMultiThreadedContractTest, TheMembersOfAConnectionLieInTheirOrder) {
    using Connection = KvSmartAsynProtocolDriverMultiThreaded::KvConn;
    EXPECT_EQ(OffsetOf(&Connection::m_strCacheKey), 0U);
    EXPECT_EQ(OffsetOf(&Connection::m_pConnection), PerAbi(32, 24));
    EXPECT_EQ(OffsetOf(&Connection::m_nUseCount), PerAbi(40, 28));
    EXPECT_EQ(OffsetOf(&Connection::m_tLastUsed), PerAbi(48, 32));
    EXPECT_EQ(OffsetOf(&Connection::m_bValid), PerAbi(56, 36));
    EXPECT_EQ(sizeof(Connection), PerAbi(64, 40));
}

TEST(KvSmartAsynProtocolDriverMultiThreadedContractTest, ACacheLineIsItsIdleConnectionsAndTheirNumber) {
    using Line = KvSmartAsynProtocolDriverMultiThreaded::ConnCacheLine;
    EXPECT_EQ(OffsetOf(&Line::m_lstIdleConns), 0U);
    EXPECT_EQ(OffsetOf(&Line::m_nConnCount), PerAbi(24, 12));
    EXPECT_EQ(sizeof(Line), PerAbi(32, 16));
}

TEST(KvSMTPDriverContractTest, ItAddsNoMembers) {
    EXPECT_EQ(sizeof(KvSMTPDriver), PerAbi(184, 100));
}

KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_pDriver);
KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_pConn);
KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_pLog);
KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_strCacheKey);
KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_vecMsgFileGroups);
KV_EXPOSE(KvSmartProtocolDriverDelegateIface, m_nMaxPinsPerTransaction);

TEST(KvSmartProtocolDriverDelegateIfaceContractTest, ItsMembersFollowTheUserDataOfTheDelegate) {
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_pDriver{}), PerAbi(16, 8));
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_pConn{}), PerAbi(24, 12));
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_pLog{}), PerAbi(32, 16));
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_strCacheKey{}), PerAbi(40, 20));
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_vecMsgFileGroups{}), PerAbi(72, 44));
    EXPECT_EQ(OffsetOf(KvSmartProtocolDriverDelegateIface_m_nMaxPinsPerTransaction{}), PerAbi(96, 56));
    EXPECT_EQ(sizeof(KvSmartProtocolDriverDelegateIface), PerAbi(104, 60));
}

TEST(KvSMTPMsgDispatcherContractTest, ItAddsNoMembers) {
    EXPECT_EQ(sizeof(KvSMTPMsgDispatcher), PerAbi(104, 60));
}

KV_EXPOSE(KvEmailDriver, m_objSocket);
KV_EXPOSE(KvEmailDriver, m_pLog);
KV_EXPOSE(KvEmailDriver, m_strLastError);
KV_EXPOSE(KvEmailDriver, m_nLastError);
KV_EXPOSE(KvEmailDriver, m_job);

TEST(KvEmailDriverContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvEmailDriver_m_objSocket{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvEmailDriver_m_pLog{}), PerAbi(272, 180));
    EXPECT_EQ(OffsetOf(KvEmailDriver_m_strLastError{}), PerAbi(280, 184));
    EXPECT_EQ(OffsetOf(KvEmailDriver_m_nLastError{}), PerAbi(312, 208));
    EXPECT_EQ(OffsetOf(KvEmailDriver_m_job{}), PerAbi(320, 212));
    EXPECT_EQ(sizeof(KvEmailDriver), PerAbi(560, 392));
}

TEST(KvEmailDriverContractTest, TheMembersOfTheJobLieInTheirOrder) {
    using Job = KvEmailDriver::Job;
    EXPECT_EQ(OffsetOf(&Job::strHost), 0U);
    EXPECT_EQ(OffsetOf(&Job::nPort), PerAbi(32, 24));
    EXPECT_EQ(OffsetOf(&Job::strFrom), PerAbi(40, 28));
    EXPECT_EQ(OffsetOf(&Job::strTo), PerAbi(72, 52));
    EXPECT_EQ(OffsetOf(&Job::strSubject), PerAbi(104, 76));
    EXPECT_EQ(OffsetOf(&Job::strBody), PerAbi(136, 100));
    EXPECT_EQ(OffsetOf(&Job::strUser), PerAbi(168, 124));
    EXPECT_EQ(OffsetOf(&Job::strPassword), PerAbi(200, 148));
    EXPECT_EQ(OffsetOf(&Job::eSecType), PerAbi(232, 172));
    EXPECT_EQ(OffsetOf(&Job::bReserved), PerAbi(236, 176));
    EXPECT_EQ(OffsetOf(&Job::bStartTLS), PerAbi(237, 177));
    EXPECT_EQ(OffsetOf(&Job::bAuthLogin), PerAbi(238, 178));
    EXPECT_EQ(OffsetOf(&Job::bAuthPlain), PerAbi(239, 179));
    EXPECT_EQ(sizeof(Job), PerAbi(240, 180));
}

TEST(KvSmtpExceptionContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(&KvProtocolException::m_nKind), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(&KvProtocolException::m_nError), PerAbi(12, 8));
    EXPECT_EQ(OffsetOf(&KvProtocolException::m_strError), PerAbi(16, 12));
    EXPECT_EQ(sizeof(KvSmtpException), PerAbi(48, 36));
}

}  // namespace kvcontract
