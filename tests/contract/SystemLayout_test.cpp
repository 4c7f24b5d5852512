#include <gtest/gtest.h>

#include "KvAny.h"
#include "KvconCriticalSection.h"
#include "KvconException.h"
#include "KvconThread.h"
#include "KvconThreadPool.h"
#include "KvioException.h"
#include "KvioSSLClientSocket.h"
#include "KvsystemResource.h"
#include "contract/Abi.h"

// Where the members of the system library's classes lie.

namespace kvcontract {

TEST(KvobjectContractTest, ItIsAVirtualTableAndNothingElse) {
    EXPECT_EQ(sizeof(Kvobject), sizeof(void*));
}

KV_EXPOSE(KvconLock, m_mutex);

TEST(KvconLockContractTest, TheMutexFollowsTheVirtualTable) {
    EXPECT_EQ(OffsetOf(KvconLock_m_mutex{}), PerAbi(8, 4));
    EXPECT_EQ(sizeof(KvconLock), PerAbi(48, 28));
}

KV_EXPOSE(KvconCriticalSection, m_pLock);
KV_EXPOSE(KvconCriticalSection, m_bDeleteLock);
KV_EXPOSE(KvconCriticalSection, m_bUnlockOnExit);

TEST(KvconCriticalSectionContractTest, TheMembersLieInTheirOrderWithoutAVirtualTable) {
    EXPECT_EQ(OffsetOf(KvconCriticalSection_m_pLock{}), 0U);
    EXPECT_EQ(OffsetOf(KvconCriticalSection_m_bDeleteLock{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvconCriticalSection_m_bUnlockOnExit{}), PerAbi(9, 5));
    EXPECT_EQ(sizeof(KvconCriticalSection), PerAbi(16, 8));
}

KV_EXPOSE(KvconEvent, m_bManualReset);
KV_EXPOSE(KvconEvent, m_cond);
KV_EXPOSE(KvconEvent, m_mutex);
KV_EXPOSE(KvconEvent, m_bReset);
KV_EXPOSE(KvconEvent, m_bSignaled);

TEST(KvconEventContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvconEvent_m_bManualReset{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvconEvent_m_cond{}), PerAbi(16, 8));
    EXPECT_EQ(OffsetOf(KvconEvent_m_mutex{}), PerAbi(64, 56));
    EXPECT_EQ(OffsetOf(KvconEvent_m_bReset{}), PerAbi(104, 80));
    EXPECT_EQ(OffsetOf(KvconEvent_m_bSignaled{}), PerAbi(105, 81));
    EXPECT_EQ(sizeof(KvconEvent), PerAbi(112, 84));
}

KV_EXPOSE(KvconDelegate, m_pUserData);

TEST(KvconDelegateContractTest, TheUserDataFollowsTheVirtualTable) {
    EXPECT_EQ(OffsetOf(KvconDelegate_m_pUserData{}), PerAbi(8, 4));
    EXPECT_EQ(sizeof(KvconDelegate), PerAbi(16, 8));
}

KV_EXPOSE(KvconThread, m_bAutoClean);
KV_EXPOSE(KvconThread, m_threadId);

TEST(KvconThreadContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvconThread_m_bAutoClean{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvconThread_m_threadId{}), PerAbi(16, 8));
    EXPECT_EQ(sizeof(KvconThread), PerAbi(24, 12));
}

KV_EXPOSE(KvconThreadPool, m_workQueue);
KV_EXPOSE(KvconThreadPool, m_runningTasks);
KV_EXPOSE(KvconThreadPool, m_threads);
KV_EXPOSE(KvconThreadPool, m_maxThreads);
KV_EXPOSE(KvconThreadPool, m_bStopping);
KV_EXPOSE(KvconThreadPool, m_pWorkLock);
KV_EXPOSE(KvconThreadPool, m_pThreadLock);
KV_EXPOSE(KvconThreadPool, m_pWorkEvent);

TEST(KvconThreadPoolContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_workQueue{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_runningTasks{}), PerAbi(32, 16));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_threads{}), PerAbi(80, 40));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_maxThreads{}), PerAbi(104, 52));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_bStopping{}), PerAbi(108, 56));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_pWorkLock{}), PerAbi(112, 60));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_pThreadLock{}), PerAbi(120, 64));
    EXPECT_EQ(OffsetOf(KvconThreadPool_m_pWorkEvent{}), PerAbi(128, 68));
    EXPECT_EQ(sizeof(KvconThreadPool), PerAbi(136, 72));
}

KV_EXPOSE(KvioSocket, m_socket);
KV_EXPOSE(KvioSocket, m_pEventHandler);
KV_EXPOSE(KvioSocket, m_strRemoteAddress);
KV_EXPOSE(KvioSocket, m_tLastActive);
KV_EXPOSE(KvioSocket, m_pEventLog);

TEST(KvioSocketContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvioSocket_m_socket{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvioSocket_m_pEventHandler{}), PerAbi(16, 8));
    EXPECT_EQ(OffsetOf(KvioSocket_m_strRemoteAddress{}), PerAbi(24, 12));
    EXPECT_EQ(OffsetOf(KvioSocket_m_tLastActive{}), PerAbi(56, 36));
    EXPECT_EQ(OffsetOf(KvioSocket_m_pEventLog{}), PerAbi(64, 40));
    EXPECT_EQ(sizeof(KvioSocket), PerAbi(72, 44));
}

TEST(KvioClientSocketContractTest, ItAddsNoMembers) {
    EXPECT_EQ(sizeof(KvioClientSocket), PerAbi(72, 44));
}

KV_EXPOSE(KvioSSLClientSocket, m_pMethod);
KV_EXPOSE(KvioSSLClientSocket, m_pCtx);
KV_EXPOSE(KvioSSLClientSocket, m_pSSL);
KV_EXPOSE(KvioSSLClientSocket, m_pPeerCert);
KV_EXPOSE(KvioSSLClientSocket, m_bSSLConnected);

TEST(KvioSSLClientSocketContractTest, ItsMembersFollowThoseOfTheSocket) {
    using Socket = KvioSSLClientSocket;
    EXPECT_EQ(OffsetOf(KvioSSLClientSocket_m_pMethod{}), PerAbi(72, 44));
    EXPECT_EQ(OffsetOf(KvioSSLClientSocket_m_pCtx{}), PerAbi(80, 48));
    EXPECT_EQ(OffsetOf(KvioSSLClientSocket_m_pSSL{}), PerAbi(88, 52));
    EXPECT_EQ(OffsetOf(KvioSSLClientSocket_m_pPeerCert{}), PerAbi(96, 56));
    EXPECT_EQ(OffsetOf(KvioSSLClientSocket_m_bSSLConnected{}), PerAbi(104, 60));
    EXPECT_EQ(OffsetOf(&Socket::m_eMethodType), PerAbi(108, 64));
    EXPECT_EQ(OffsetOf(&Socket::m_strCertFile), PerAbi(112, 68));
    EXPECT_EQ(OffsetOf(&Socket::m_strKeyFile), PerAbi(144, 92));
    EXPECT_EQ(OffsetOf(&Socket::m_strExtra), PerAbi(176, 116));
    EXPECT_EQ(OffsetOf(&Socket::m_strCAFile), PerAbi(208, 140));
    EXPECT_EQ(OffsetOf(&Socket::m_pfnVerify), PerAbi(240, 164));
    EXPECT_EQ(OffsetOf(&Socket::m_pfnPassword), PerAbi(248, 168));
    EXPECT_EQ(OffsetOf(&Socket::m_pPasswordUserData), PerAbi(256, 172));
    EXPECT_EQ(sizeof(Socket), PerAbi(264, 176));
}

KV_EXPOSE(KvException, msg);
KV_EXPOSE(KvException, file);
KV_EXPOSE(KvException, line);
KV_EXPOSE(KvException, sysmsg);
KV_EXPOSE(KvioException, path);
KV_EXPOSE(KvconException, threadID);

TEST(KvExceptionContractTest, TheMembersOfTheFamilyLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvException_msg{}), PerAbi(8, 4));
    EXPECT_EQ(OffsetOf(KvException_file{}), PerAbi(40, 28));
    EXPECT_EQ(OffsetOf(KvException_line{}), PerAbi(72, 52));
    EXPECT_EQ(OffsetOf(KvException_sysmsg{}), PerAbi(80, 56));
    EXPECT_EQ(sizeof(KvException), PerAbi(112, 80));
    EXPECT_EQ(OffsetOf(KvioException_path{}), PerAbi(112, 80));
    EXPECT_EQ(sizeof(KvioException), PerAbi(144, 104));
    EXPECT_EQ(OffsetOf(KvconException_threadID{}), PerAbi(112, 80));
    EXPECT_EQ(sizeof(KvconException), PerAbi(120, 84));
}

KV_EXPOSE(KvAny, text);
KV_EXPOSE(KvAny, m_nUInt);
KV_EXPOSE(KvAny, m_nLong);
KV_EXPOSE(KvAny, m_nInt);
KV_EXPOSE(KvAny, m_bBool);
KV_EXPOSE(KvAny, m_cChar);
KV_EXPOSE(KvAny, m_dDouble);
KV_EXPOSE(KvAny, m_nULong);
KV_EXPOSE(KvAny, validMask);

TEST(KvAnyContractTest, TheMembersLieInTheirOrder) {
    EXPECT_EQ(OffsetOf(KvAny_text{}), 0U);
    EXPECT_EQ(OffsetOf(KvAny_m_nUInt{}), PerAbi(32, 24));
    EXPECT_EQ(OffsetOf(KvAny_m_nLong{}), PerAbi(40, 28));
    EXPECT_EQ(OffsetOf(KvAny_m_nInt{}), PerAbi(48, 32));
    EXPECT_EQ(OffsetOf(KvAny_m_bBool{}), PerAbi(52, 36));
    EXPECT_EQ(OffsetOf(KvAny_m_cChar{}), PerAbi(53, 37));
    EXPECT_EQ(OffsetOf(KvAny_m_dDouble{}), PerAbi(56, 40));
    EXPECT_EQ(OffsetOf(KvAny_m_nULong{}), PerAbi(64, 48));
    EXPECT_EQ(OffsetOf(KvAny_validMask{}), PerAbi(72, 52));
    EXPECT_EQ(sizeof(KvAny), PerAbi(80, 56));
}

KV_EXPOSE(KvsystemResource, m_mapTexts);

TEST(KvsystemResourceContractTest, TheTableOfTextsFollowsTheVirtualTable) {
    EXPECT_EQ(OffsetOf(KvsystemResource_m_mapTexts{}), PerAbi(8, 4));
    EXPECT_EQ(sizeof(KvsystemResource), PerAbi(56, 28));
}

}  // namespace kvcontract
