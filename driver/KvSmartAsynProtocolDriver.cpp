#include "KvSmartAsynProtocolDriver.h"

#include <memory>
#include <utility>

#include "KvBoolText.h"
#include "KvLog.h"
#include "KvconCriticalSection.h"

namespace {

constexpr const char* kSource = "KvSmartAsynProtocolDriver.cpp";
constexpr int kPauseBetweenPassesMs = 200;

bool IsGroupable(const KvMessageFile& file) {
    return !file.m_bGroupInhibit && file.m_nGroupInhibit1 == 0 && file.m_nGroupInhibit2 == 0 &&
           !file.m_bIs2Way && !file.m_bIs2WayQuery;
}

std::string GroupKey(const KvMessageFile& file) {
    return file.m_strMsgFileID.substr(0, file.m_strMsgFileID.rfind('_'));
}

}  // namespace

bool KvSmartAsynProtocolDriver::Configure(std::map<std::string, std::string>& settings) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::Configure()");
    const bool result = ConfigureExt(settings);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::Configure() with %s.",
           KvBoolText(result));
    return result;
}

bool KvSmartAsynProtocolDriver::Setup(KvMessengerInstConfBasic* instConf) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::Setup()");
    auto lock = std::make_unique<KvconLock>();
    m_pLock = lock.get();
    const bool result = TrySetupExt(instConf);
    static_cast<void>(lock.release());
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::Setup() with %s.",
           KvBoolText(result));
    return result;
}

/// A setup that threw leaves nothing behind: the host releases the driver without a clean-up.
bool KvSmartAsynProtocolDriver::TrySetupExt(KvMessengerInstConfBasic* instConf) {
    try {
        return SetupExt(instConf);
    } catch (...) {
        m_pLock = nullptr;
        throw;
    }
}

bool KvSmartAsynProtocolDriver::Cleanup() {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::Cleanup()");
    CleanupExt();
    delete m_pLock;
    m_pLock = nullptr;
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::Cleanup() with %s.",
           KvBoolText(true));
    return true;
}

bool KvSmartAsynProtocolDriver::ConfigureExt(std::map<std::string, std::string>&) {
    return true;
}

bool KvSmartAsynProtocolDriver::SetupExt(KvMessengerInstConfBasic*) {
    return true;
}

bool KvSmartAsynProtocolDriver::CleanupExt() {
    return true;
}

std::string KvSmartAsynProtocolDriver::GetCacheKey(KvMessageFile* msgFile) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::GetCacheKey()");
    const std::string key = msgFile == nullptr ? "" : printfToString("%lu", msgFile->m_ulCarrierID);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::GetCacheKey() with %s.",
           key.c_str());
    return key;
}

bool KvSmartAsynProtocolDriver::Send2WayRespQuery(KvMessageFile* msgFile,
                                                  KvMessengerReportsMngrInterface::ReportsStatus& status) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::Send2WayRespQuery()");
    const bool result = SendAMessage(msgFile, status);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::Send2WayRespQuery() with %s.",
           KvBoolText(result));
    return result;
}

bool KvSmartAsynProtocolDriver::SendAMessage(KvMessageFile* msgFile,
                                             KvMessengerReportsMngrInterface::ReportsStatus& status) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::SendAMessage()");
    bool result;
    {
        KvconCriticalSection section(m_pLock, true, true, false);
        result = FileIntoSession(msgFile);
        if (!result) {
            KV_LOG(m_pLog, LogError, kSource, "Unable to store message file in Carrier Session");
        }
    }
    status = result ? KvMessengerReportsMngrInterface::REPORT_ACCEPTED
                    : KvMessengerReportsMngrInterface::REPORT_FAILED;
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::SendAMessage() with %s.",
           KvBoolText(result));
    return result;
}

bool KvSmartAsynProtocolDriver::FileIntoSession(KvMessageFile* msgFile) {
    const std::string key = GetCacheKey(msgFile);
    if (msgFile == nullptr) {
        return false;
    }
    auto entry = m_mapCarrierSessions.find(key);
    if (entry == m_mapCarrierSessions.end()) {
        KvCarrierSess session;  // complete before it is entered: one without its key would share connections
        session.m_strCacheKey = key;
        session.m_strCarrierName = msgFile->m_strCarrierName;
        entry = m_mapCarrierSessions.emplace(key, std::move(session)).first;
    }
    return StoreMsgFileInCarrierSession(entry->second, msgFile);
}

bool KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession(KvCarrierSess& session, KvMessageFile* msgFile) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession()");
    bool result = true;
    if (IsGroupable(*msgFile)) {
        result = FileIntoGroup(session, msgFile);
    } else {
        session.m_vecMsgFileGroups.push_back({msgFile});
    }
    session.m_pLastMsgFile = msgFile;
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession() with %s.", KvBoolText(result));
    return result;
}

bool KvSmartAsynProtocolDriver::FileIntoGroup(KvCarrierSess& session, KvMessageFile* msgFile) {
    auto& groups = session.m_vecMsgFileGroups;
    const std::string key = GroupKey(*msgFile);
    const auto known = session.m_mapGroupIndex.find(key);
    if (known == session.m_mapGroupIndex.end()) {
        BeginGroup(session, key, msgFile);
        return true;
    }
    const unsigned int index = known->second;
    if (index >= groups.size()) {
        KV_LOG(m_pLog, LogError, kSource, "Group index out of bound. Index = %lu, Size = %lu",
               static_cast<unsigned long>(index), static_cast<unsigned long>(groups.size()));
        return false;
    }
    groups[index].push_back(msgFile);
    return true;
}

/// All or nothing: a group without files, or an index without its group, would outlive a failure.
void KvSmartAsynProtocolDriver::BeginGroup(KvCarrierSess& session, const std::string& key,
                                           KvMessageFile* msgFile) {
    auto& groups = session.m_vecMsgFileGroups;
    groups.push_back({msgFile});
    try {
        session.m_mapGroupIndex.emplace(key, static_cast<unsigned int>(groups.size() - 1));
    } catch (...) {
        groups.pop_back();
        throw;
    }
}

bool KvSmartAsynProtocolDriver::PeriodicEvent() {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriver::PeriodicEvent()");
    {
        KvconCriticalSection section(m_pLock, true, true, false);
        // The increment is an argument of the log line: without a sink the number stays.
        KV_LOG(m_pLog, LogTrace, kSource, "Starting BULK dispatch cycle %u ...", ++m_nCycle);
        while (ProcessAllSessions()) {
            Kvsleep(kPauseBetweenPassesMs);
        }
        KV_LOG(m_pLog, LogTrace, kSource, "Terminating BULK dispatch cycle ...");
    }
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriver::PeriodicEvent() with %s.",
           KvBoolText(true));
    return true;
}

/// One pass; true when a session still has something waiting.
bool KvSmartAsynProtocolDriver::ProcessAllSessions() {
    bool pending = false;
    for (auto& [key, session] : m_mapCarrierSessions) {
        if (!session.m_vecMsgFileGroups.empty()) {
            ProcessSession(session);
            pending = pending || !session.m_vecMsgFileGroups.empty();
        }
    }
    return pending;
}

void KvSmartAsynProtocolDriver::ProcessSession(KvCarrierSess& session) {
    const std::size_t groups = session.m_vecMsgFileGroups.size();
    std::string errText;
    if (!ProcessCarrierSession(session, errText)) {
        FailSession(session, groups, errText);
    }
    // Compatibility: written for a failed session too, then with 0 remaining.
    KV_LOG(m_pLog, LogDebug, kSource,
           " >> Successfully processed carrier session: %s/%s of msg files: %u; remaining now: %u.",
           session.m_strCacheKey.c_str(), session.m_strCarrierName.c_str(), static_cast<unsigned int>(groups),
           static_cast<unsigned int>(session.m_vecMsgFileGroups.size()));
}

void KvSmartAsynProtocolDriver::FailSession(KvCarrierSess& session, std::size_t groups,
                                            const std::string& reason) {
    KV_LOG(
        m_pLog, LogError, kSource,
        " >> Error occurred while processing carrier session: %s/%s with msg files:%u. Failing all messages.",
        session.m_strCacheKey.c_str(), session.m_strCarrierName.c_str(), static_cast<unsigned int>(groups));
    for (auto& group : session.m_vecMsgFileGroups) {
        while (!group.empty()) {
            FailFirst(session, group, reason);
        }
    }
    session.m_vecMsgFileGroups.clear();
    session.m_mapGroupIndex.clear();
}

/// Hands the first file of `group` back and takes it out. When that fails, exactly what the host still misses waits
/// for the next cycle, and no file that is back with the host is the template for its connection.
void KvSmartAsynProtocolDriver::FailFirst(KvCarrierSess& session, std::list<KvMessageFile*>& group,
                                          const std::string& reason) {
    KvMessageFile* const file = group.front();
    KV_LOG(m_pLog, LogError, kSource, "Failing message job id: %s. Reason: %s", file->m_strJobID.c_str(),
           reason.c_str());
    try {
        file->SetFailureReason(reason);
        PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_FAILED, false, "");
    } catch (...) {
        session.m_pLastMsgFile = file;
        throw;
    }
    group.pop_front();
}
