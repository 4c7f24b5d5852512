#include "KvSmartAsynProtocolDriverMultiThreaded.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "KvBoolText.h"
#include "KvConnsOfDeleted.h"
#include "KvLog.h"
#include "KvSmartProtocolDriverDelegateIface.h"
#include "KvconException.h"
#include "KvconThreadPool.h"

namespace {

constexpr const char* kSource = "KvSmartAsynProtocolDriverMultiThreaded.cpp";
constexpr int kStopGraceMs = 60000;

void ReadSetting(const std::map<std::string, std::string>& settings, const char* key, unsigned int& value) {
    const auto entry = settings.find(key);
    if (entry != settings.end()) {
        value = static_cast<unsigned int>(std::strtoul(entry->second.c_str(), nullptr, 10));
    }
}

}  // namespace

bool KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt(std::map<std::string, std::string>& settings) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt()");
    m_nThreadPoolSize = 1;
    m_nMaxConnections = 10;
    m_nMaxSameCarrierConnections = 3;
    m_nMaxPinsPerTransaction = 10;
    ReadSetting(settings, "smart_driver.threadpool_size", m_nThreadPoolSize);
    ReadSetting(settings, "smart_driver.diff_carrier_connection_count", m_nMaxConnections);
    ReadSetting(settings, "smart_driver.same_carrier_connection_count", m_nMaxSameCarrierConnections);
    ReadSetting(settings, "smart_driver.max_pins_per_transaction", m_nMaxPinsPerTransaction);
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt() with %s.", KvBoolText(true));
    return true;
}

bool KvSmartAsynProtocolDriverMultiThreaded::SetupExt(KvMessengerInstConfBasic*) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()");
    auto cacheLock = std::make_unique<KvconLock>();
    auto pool = std::make_unique<KvconThreadPool>();
    pool->Initialize(m_nThreadPoolSize);
    m_pCacheLock = cacheLock.release();
    m_pThreadPool = pool.release();
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with %s.",
           KvBoolText(true));
    return true;
}

bool KvSmartAsynProtocolDriverMultiThreaded::CleanupExt() {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()");
    if (m_pThreadPool != nullptr) {
        const ConnsOfDeleted waiting;
        m_pThreadPool->StopTasks();
        m_pThreadPool->Stop(kStopGraceMs);
        delete m_pThreadPool;
        m_pThreadPool = nullptr;
        for (KvConn* const conn : waiting.All()) {
            DeleteConnection(conn);
        }
    }
    for (auto& [key, line] : m_mapConnCache) {
        for (KvConn* const conn : line.m_lstIdleConns) {
            DeleteConnection(conn);
        }
        line.m_lstIdleConns.clear();
    }
    m_mapConnCache.clear();
    m_nTotalConnections = 0;
    delete m_pCacheLock;
    m_pCacheLock = nullptr;
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with %s.",
           KvBoolText(true));
    return true;
}

bool KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession(KvCarrierSess& session,
                                                                   std::string& errText) {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()");
    const bool result = DispatchSession(session, errText);
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with %s.",
           KvBoolText(result));
    return result;
}

/// Gives a connection back to the cache, unless somebody else has it by then.
class KvSmartAsynProtocolDriverMultiThreaded::ConnGivenBack {
public:
    ConnGivenBack(KvSmartAsynProtocolDriverMultiThreaded& driver, KvConn*& conn)
        : m_driver(driver), m_conn(conn) {}
    ~ConnGivenBack() {
        if (m_conn != nullptr) {
            m_driver.ReleaseConnToCache(m_conn);
        }
    }
    ConnGivenBack(const ConnGivenBack&) = delete;
    ConnGivenBack& operator=(const ConnGivenBack&) = delete;

private:
    KvSmartAsynProtocolDriverMultiThreaded& m_driver;
    KvConn*& m_conn;
};

bool KvSmartAsynProtocolDriverMultiThreaded::DispatchSession(KvCarrierSess& session, std::string& errText) {
    bool createFailed = false;
    KvConn* conn = GetConnFromCache(session.m_strCacheKey, session.m_pLastMsgFile, &createFailed);
    if (conn == nullptr) {
        return ReportNoConnection(session, createFailed, errText);
    }
    const ConnGivenBack givenBack(*this, conn);
    KV_LOG(m_pLog, LogTrace, kSource, "Creating Message dispatch delegate.");
    std::unique_ptr<KvSmartProtocolDriverDelegateIface> delegate(GetProtocolDriverDelegate());
    if (delegate == nullptr) {
        return ReportInternalError("Failed to get delegate object for the message dispatcher.", errText);
    }
    KV_LOG(m_pLog, LogDebug, kSource, "Initializing message dispatch delegate.");
    if (!delegate->Initialize(this, session.m_strCacheKey, conn, session.m_vecMsgFileGroups,
                              static_cast<int>(m_nMaxPinsPerTransaction), m_pLog)) {
        // The delegate holds copies of what the cycle is about to fail: it is abandoned, not destroyed.
        static_cast<void>(delegate.release());
        return ReportInternalError("Initialize call failed for the delegate object.", errText);
    }
    // From here on the files and the connection are the delegate's.
    conn = nullptr;
    session.m_vecMsgFileGroups.clear();
    session.m_mapGroupIndex.clear();
    KV_LOG(m_pLog, LogTrace, kSource, "Adding delegate the thread pool queue ...");
    AddToPool(delegate.release());
    return true;
}

bool KvSmartAsynProtocolDriverMultiThreaded::ReportNoConnection(KvCarrierSess& session, bool createFailed,
                                                                std::string& errText) {
    session.m_bConnFailed = createFailed;
    if (!createFailed) {
        KV_LOG(m_pLog, LogInfo, kSource,
               "Unable to get connection object. Delaying carrier session '%s' processing.",
               session.m_strCacheKey.c_str());
        return true;
    }
    errText = KvSmartProtocolDriverDelegateIface::kNoConnectionReason;
    KV_LOG(m_pLog, LogInfo, kSource,
           "Unable to get connection object. Incorrect carrier configuration %s and/or carrier serviceis "
           "unreachable.",
           session.m_strCacheKey.c_str());
    return false;
}

bool KvSmartAsynProtocolDriverMultiThreaded::ReportInternalError(const char* logText, std::string& errText) {
    errText = KvSmartProtocolDriverDelegateIface::kInternalErrorReason;
    KV_LOG(m_pLog, LogError, kSource, "%s", logText);
    return false;
}

/// A delegate that finds no worker is destroyed here, and hands its files back as it goes.
void KvSmartAsynProtocolDriverMultiThreaded::AddToPool(KvSmartProtocolDriverDelegateIface* delegate) {
    try {
        m_pThreadPool->AddWork(delegate);
    } catch (KvconException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.ToString().c_str());
        if (m_pThreadPool->WithdrawWork(delegate) || error.GetMsg() == KvconThreadPool::kStoppingMessage) {
            delete delegate;
        }
    } catch (const std::bad_alloc&) {
        delete delegate;
    }
}
