#include "KvSmartProtocolDriverDelegateIface.h"

#include <algorithm>
#include <new>
#include <utility>

#include "KvBoolText.h"
#include "KvEndSignals.h"
#include "KvFilesUnderWay.h"
#include "KvLog.h"

namespace {

constexpr const char* kSource = "KvSmartProtocolDriverDelegateIface.cpp";

}  // namespace

/// Hands back what the delegate holds when DoWork is left early, by an exception or because the worker is ended.
/// The connection may be in the middle of a transaction then, so it is not used again.
class KvSmartProtocolDriverDelegateIface::EarlyEnd {
public:
    explicit EarlyEnd(KvSmartProtocolDriverDelegateIface& delegate) : m_delegate(delegate) {}
    ~EarlyEnd() {
        if (m_bCompleted) {
            return;
        }
        if (m_delegate.m_pConn != nullptr) {
            m_delegate.m_pConn->m_bValid = false;
        }
        m_delegate.AbandonAll();
    }
    EarlyEnd(const EarlyEnd&) = delete;
    EarlyEnd& operator=(const EarlyEnd&) = delete;

    void Completed() { m_bCompleted = true; }

private:
    KvSmartProtocolDriverDelegateIface& m_delegate;
    bool m_bCompleted = false;
};

/// Hands back those files of a dispatch that the dispatcher had not pushed back when it was left early.
class KvSmartProtocolDriverDelegateIface::Dispatch {
public:
    Dispatch(KvSmartProtocolDriverDelegateIface& delegate, const std::list<KvMessageFile*>& files)
        : m_delegate(delegate), m_underWay(files) {}
    ~Dispatch() {
        if (m_bCompleted) {
            return;
        }
        while (KvMessageFile* const file = m_underWay.TakeMissing()) {
            m_delegate.FailQuietly(file);
        }
    }
    Dispatch(const Dispatch&) = delete;
    Dispatch& operator=(const Dispatch&) = delete;

    void Completed() { m_bCompleted = true; }

private:
    KvSmartProtocolDriverDelegateIface& m_delegate;
    KvFilesUnderWay m_underWay;
    bool m_bCompleted = false;
};

KvSmartProtocolDriverDelegateIface::~KvSmartProtocolDriverDelegateIface() {
    AbandonAll();
}

bool KvSmartProtocolDriverDelegateIface::Initialize(KvSmartAsynProtocolDriverMultiThreaded* driver,
                                                    const std::string& cacheKey, KvConn* conn,
                                                    const std::vector<std::list<KvMessageFile*>>& groups,
                                                    int maxPinsPerTransaction, KvLogInterface* log) {
    // What needs memory comes first: without a driver the delegate owns nothing yet.
    m_strCacheKey = cacheKey;
    m_vecMsgFileGroups.insert(m_vecMsgFileGroups.begin(), groups.begin(), groups.end());
    m_pDriver = driver;
    m_pConn = conn;
    m_nMaxPinsPerTransaction = maxPinsPerTransaction;
    m_pLog = log;
    try {
        return InitializeSpecial();
    } catch (...) {
        m_pDriver = nullptr;
        throw;
    }
}

bool KvSmartProtocolDriverDelegateIface::Finalize() {
    FinalizeSpecial();
    return true;
}

void* KvSmartProtocolDriverDelegateIface::DoWork(void*) {
    EarlyEnd earlyEnd(*this);
    if (!DispatchAll()) {
        FailRemaining(kNoConnectionReason);
    }
    m_vecMsgFileGroups.clear();
    GiveUpConnection();
    Finalize();
    earlyEnd.Completed();
    return nullptr;
}

bool KvSmartProtocolDriverDelegateIface::DispatchAll() {
    if (m_vecMsgFileGroups.empty()) {
        return false;
    }
    if (!HasFiles()) {
        KV_LOG(m_pLog, LogError, kSource, "All message groups are empty. Dropping current dispatch cycle.");
        return false;
    }
    if (m_pConn == nullptr) {
        KV_LOG(m_pLog, LogError, kSource, "Unable to get connection. Dropping current dispatch cycle.");
        return false;
    }
    KV_LOG(m_pLog, LogInfo, kSource, "Processing session with %u msg files group ...",
           static_cast<unsigned int>(m_vecMsgFileGroups.size()));
    const bool result = ProcessMessageFileGroups();
    KV_LOG(m_pLog, LogInfo, kSource, "Ending session ...");
    return result;
}

bool KvSmartProtocolDriverDelegateIface::HasFiles() const {
    return std::any_of(m_vecMsgFileGroups.begin(), m_vecMsgFileGroups.end(),
                       [](const auto& group) { return !group.empty(); });
}

bool KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()");
    std::size_t index = 0;
    while (index < m_vecMsgFileGroups.size() && DispatchGroupAt(index)) {
        ++index;
    }
    if (index < m_vecMsgFileGroups.size()) {
        KV_LOG(
            m_pLog, LogError, kSource,
            "Unable to get connection object. Incorrect carrier configuration %s and/or carrier service is "
            "unreachable. Dropping current dispatch cycle.",
            m_strCacheKey.c_str());
        m_vecMsgFileGroups.erase(m_vecMsgFileGroups.begin(),
                                 m_vecMsgFileGroups.begin() + static_cast<std::ptrdiff_t>(index));
    }
    const bool result = m_pConn != nullptr;
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with %s.",
           KvBoolText(result));
    return result;
}

/// False when no connection could be had; what was not sent then stays in the group.
bool KvSmartProtocolDriverDelegateIface::DispatchGroupAt(std::size_t index) {
    KV_LOG(m_pLog, LogInfo, kSource, " >> Processing message group #%u.", static_cast<unsigned int>(index));
    std::list<KvMessageFile*>& group = m_vecMsgFileGroups[index];
    if (group.empty()) {
        return true;
    }
    return group.size() == 1 ? DispatchSingle(group) : DispatchInBatches(group);
}

bool KvSmartProtocolDriverDelegateIface::DispatchSingle(std::list<KvMessageFile*>& group) {
    KvMessageFile* const file = group.front();
    if (!ValidateConnection(file)) {
        return false;
    }
    Dispatch dispatch(*this, group);
    group.pop_front();
    SendSingle(file);
    dispatch.Completed();
    return true;
}

void KvSmartProtocolDriverDelegateIface::SendSingle(KvMessageFile* file) {
    const char* const jobId = file->m_strMsgFileID.c_str();
    if (file->m_bIs2WayQuery) {
        KV_LOG(m_pLog, LogDebug, kSource, " >>>> Dispatching query for 2way response jobid:'%s'.", jobId);
        if (!Query2WayResponse(file)) {
            KV_LOG(m_pLog, LogError, kSource, " >>>>>> Failed to dispatch query for 2way response.");
        }
    } else if (file->m_b2WayEnabled && file->m_bIs2Way) {
        KV_LOG(m_pLog, LogDebug, kSource, " >>>> Dispatching 2way message jobid:'%s'.", jobId);
        if (!Send2WayMessage(file)) {
            KV_LOG(m_pLog, LogError, kSource, " >>>>>> Failed to dispatch 2way message.");
        }
    } else {
        KV_LOG(m_pLog, LogDebug, kSource, " >>>> Dispatching 1way message jobid:'%s'.", jobId);
        if (!SendMessage(file)) {
            KV_LOG(m_pLog, LogError, kSource, " >>>>>> Failed to dispatch 1way message.");
        }
    }
}

bool KvSmartProtocolDriverDelegateIface::DispatchInBatches(std::list<KvMessageFile*>& group) {
    for (int cycle = 1; !group.empty(); ++cycle) {
        if (!ValidateConnection(group.front())) {
            return false;
        }
        const std::list<KvMessageFile*> batch = FirstFilesOf(group);
        Dispatch dispatch(*this, batch);
        group.erase(group.begin(), std::next(group.begin(), static_cast<std::ptrdiff_t>(batch.size())));
        KV_LOG(m_pLog, LogDebug, kSource, " >>>> Dispatching message group; cycle#%d.", cycle);
        if (!SendMessageGroup(batch)) {
            KV_LOG(m_pLog, LogError, kSource, " >>>>>> Failed to dispatch message group.");
        }
        dispatch.Completed();
        if (batch.empty()) {
            KvEndSignals::LetIn();  // this walk has no end of its own
        }
    }
    return true;
}

std::list<KvMessageFile*> KvSmartProtocolDriverDelegateIface::FirstFilesOf(
    const std::list<KvMessageFile*>& group) const {
    std::list<KvMessageFile*> batch;
    for (auto file = group.begin();
         file != group.end() && static_cast<int>(batch.size()) < m_nMaxPinsPerTransaction; ++file) {
        batch.push_back(*file);
    }
    return batch;
}

/// The connection is the cache's while it is validated: a worker that is ended meanwhile leaves none behind.
bool KvSmartProtocolDriverDelegateIface::ValidateConnection(KvMessageFile* file) {
    KvConn* const held = std::exchange(m_pConn, nullptr);
    m_pConn = m_pDriver->GetValidatedConnFromCache(held, m_strCacheKey, file);
    return m_pConn != nullptr;
}

void KvSmartProtocolDriverDelegateIface::FailRemaining(const char* reason) {
    for (auto& group : m_vecMsgFileGroups) {
        while (!group.empty()) {
            FailFile(group.front(), reason);
            group.pop_front();
        }
    }
}

void KvSmartProtocolDriverDelegateIface::FailFile(KvMessageFile* file, const char* reason) {
    KV_LOG(m_pLog, LogError, kSource, "Failing message job id: %s. Reason: %s", file->m_strJobID.c_str(),
           reason);
    try {
        file->SetFailureReason(reason);
    } catch (const std::bad_alloc&) {
        // Back without a reason is better than not back at all.
    }
    m_pDriver->PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_FAILED, false, "");
}

void KvSmartProtocolDriverDelegateIface::FailQuietly(KvMessageFile* file) {
    try {
        FailFile(file, kInternalErrorReason);
    } catch (...) {
        // The host's own object refused; nobody can be told from a destructor.
    }
}

void KvSmartProtocolDriverDelegateIface::AbandonAll() {
    if (m_pDriver == nullptr) {
        return;
    }
    for (auto& group : m_vecMsgFileGroups) {
        while (!group.empty()) {
            KvMessageFile* const file = group.front();
            group.pop_front();
            FailQuietly(file);
        }
    }
    m_vecMsgFileGroups.clear();
    if (m_pConn != nullptr) {
        m_pDriver->ReleaseConnOfDeleted(std::exchange(m_pConn, nullptr));
    }
}

void KvSmartProtocolDriverDelegateIface::GiveUpConnection() {
    m_pDriver->ReleaseConnToCache(std::exchange(m_pConn, nullptr));
}
