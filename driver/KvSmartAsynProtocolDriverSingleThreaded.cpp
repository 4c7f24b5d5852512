#include "KvSmartAsynProtocolDriverSingleThreaded.h"

#include "KvBoolText.h"
#include "KvLog.h"

namespace {

constexpr const char* kSource = "KvSmartAsynProtocolDriverSingleThreaded.cpp";

}  // namespace

bool KvSmartAsynProtocolDriverSingleThreaded::ProcessCarrierSession(KvCarrierSess& session) {
    // Compatibility: both trace lines name the base class.
    // Relied on by: log readers that pair these lines, whichever threading variant wrote them.
    // Held by: KvSmartAsynProtocolDriverSingleThreadedTest.TheTraceLinesNameTheBaseClass.
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()");
    const bool result = session.m_vecMsgFileGroups.empty() || DeliverSession(session);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with %s.",
           KvBoolText(result));
    return result;
}

bool KvSmartAsynProtocolDriverSingleThreaded::DeliverSession(KvCarrierSess& session) {
    // Compatibility: what these two lines call "msg files" is the number of groups.
    // Relied on by: log readers that compare it with the count in the cycle's own lines.
    // Held by: KvSmartAsynProtocolDriverSingleThreadedTest.TheSessionLinesCountGroups.
    const auto groups = static_cast<unsigned int>(session.m_vecMsgFileGroups.size());
    KV_LOG(m_pLog, LogInfo, kSource, "Processing session %s/%s with %u msg files ...",
           session.m_strCacheKey.c_str(), session.m_strCarrierName.c_str(), groups);
    if (!EnsureConnection(session.m_sessConn)) {
        return false;
    }
    for (const auto& group : session.m_vecMsgFileGroups) {
        KV_LOG(m_pLog, LogDebug, kSource, " >> Dispatching message.");
        if (!SendSessionGroup(group)) {
            KV_LOG(m_pLog, LogError, kSource, " >>>> Failed to dispatch message.");
        }
    }
    KV_LOG(m_pLog, LogInfo, kSource, "Ending session %s/%s with %u msg files ...",
           session.m_strCacheKey.c_str(), session.m_strCarrierName.c_str(), groups);
    return true;
}

bool KvSmartAsynProtocolDriverSingleThreaded::EnsureConnection(KvSessionConn& conn) {
    if (conn.m_bOpen) {
        if (IsConnectionUsable(conn)) {
            return true;
        }
        DropConnection(conn);
    }
    KV_LOG(m_pLog, LogDebug, kSource, " >> Creating connection.");
    if (!CreateSessionConnection(conn)) {
        KV_LOG(m_pLog, LogError, kSource, " >>>> Failed to create connection.");
        return false;
    }
    return true;
}

bool KvSmartAsynProtocolDriverSingleThreaded::IsConnectionUsable(KvSessionConn& conn) {
    KV_LOG(m_pLog, LogDebug, kSource, " >> Testing connection ...");
    const bool passed = TestSessionConnection(conn);
    return passed && conn.m_bOpen;  // read again: the test may have closed the session's record
}

void KvSmartAsynProtocolDriverSingleThreaded::DropConnection(KvSessionConn& conn) {
    KV_LOG(m_pLog, LogError, kSource, " >>>> Testing failed for connection.");
    KV_LOG(m_pLog, LogDebug, kSource, " >> Closing connection ...");
    CloseSessionConnection(conn);
    conn.m_bOpen = false;
}
