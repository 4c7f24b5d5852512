// The connection cache of KvSmartAsynProtocolDriverMultiThreaded: limits, reuse, validation, eviction.
#include <cxxabi.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "KvBoolText.h"
#include "KvConnsOfDeleted.h"
#include "KvLog.h"
#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "KvconCriticalSection.h"

namespace {

constexpr const char* kSource = "KvSmartAsynProtocolDriverMultiThreaded.cpp";
constexpr int kPauseAfterBrokenConnectionMs = 200;

}  // namespace

/// A connection that is in no list and that nobody else holds. Deletes it when a test is left by unwinding.
class KvSmartAsynProtocolDriverMultiThreaded::ConnInHand {
public:
    ConnInHand(KvSmartAsynProtocolDriverMultiThreaded& driver, KvConn* conn)
        : m_driver(driver), m_pConn(conn) {}
    ~ConnInHand() {
        if (m_pConn != nullptr) {
            KvconCriticalSection section(m_driver.m_pCacheLock, true, true, false);
            m_driver.DeleteConnection(m_pConn);
        }
    }
    ConnInHand(const ConnInHand&) = delete;
    ConnInHand& operator=(const ConnInHand&) = delete;

    bool PassesTest() { return m_driver.TestConnection(*m_pConn); }
    KvConn* Release() { return std::exchange(m_pConn, nullptr); }

private:
    KvSmartAsynProtocolDriverMultiThreaded& m_driver;
    KvConn* m_pConn;
};

auto KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache(const std::string& key, KvMessageFile* msgFile,
                                                              bool* pCreateFailed) -> KvConn* {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache()");
    KvConn* conn;
    {
        KvconCriticalSection section(m_pCacheLock, true, true, false);
        conn = GetConnFromCacheImpl(key, msgFile, pCreateFailed);
    }
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCache() with %s.", KvObjectText(conn));
    return conn;
}

bool KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache(KvConn* conn) {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache()");
    bool result;
    {
        KvconCriticalSection section(m_pCacheLock, true, true, false);
        result = ReleaseConnToCacheImpl(conn);
    }
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with %s.",
           KvBoolText(result));
    return result;
}

void KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnOfDeleted(KvConn* conn) {
    if (!ConnsOfDeleted::Collect(conn)) {
        ReleaseConnToCache(conn);
    }
}

auto KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache(KvConn* conn, const std::string& key,
                                                                       KvMessageFile* msgFile) -> KvConn* {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache()");
    KvConn* const validated = ValidateOrReplace(conn, key, msgFile);
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetValidatedConnFromCache() with %s.",
           KvObjectText(validated));
    return validated;
}

auto KvSmartAsynProtocolDriverMultiThreaded::ValidateOrReplace(KvConn* conn, const std::string& key,
                                                               KvMessageFile* msgFile) -> KvConn* {
    if (conn != nullptr) {
        ConnInHand inHand(*this, conn);
        const bool usable = inHand.PassesTest();
        inHand.Release();
        if (usable) {
            return conn;
        }
    }
    KvconCriticalSection section(m_pCacheLock, true, true, false);
    if (conn != nullptr) {
        conn->m_bValid = false;
        ReleaseConnToCacheImpl(conn);
        // Compatibility: the pause is inside the cache lock.
        Kvsleep(kPauseAfterBrokenConnectionMs);
    }
    return GetConnFromCacheImpl(key, msgFile, nullptr);
}

auto KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl(const std::string& key,
                                                                  KvMessageFile* msgFile, bool* pCreateFailed)
    -> KvConn* {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl()");
    if (pCreateFailed != nullptr) {
        *pCreateFailed = false;
    }
    KvConn* const conn = TakeOrCreateConnection(key, msgFile, pCreateFailed);
    if (conn != nullptr) {
        ++conn->m_nUseCount;
        conn->m_tLastUsed = time(nullptr);
    }
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::GetConnFromCacheImpl() with %s.",
           KvObjectText(conn));
    return conn;
}

auto KvSmartAsynProtocolDriverMultiThreaded::TakeOrCreateConnection(const std::string& key,
                                                                    KvMessageFile* msgFile,
                                                                    bool* pCreateFailed) -> KvConn* {
    const auto line = m_mapConnCache.find(key);
    if (line != m_mapConnCache.end()) {
        KvConn* const idle = TakeIdleConnection(line->second);
        if (idle != nullptr) {
            return idle;
        }
    } else if (!MakeRoomForKey(key)) {
        return nullptr;
    }
    return CreateCachedConnection(key, msgFile, pCreateFailed);
}

/// The first idle connection that passes its test; those that fail it are deleted. Null when none is left.
auto KvSmartAsynProtocolDriverMultiThreaded::TakeIdleConnection(ConnCacheLine& line) -> KvConn* {
    while (!line.m_lstIdleConns.empty()) {
        KV_LOG(m_pLog, LogInfo, kSource, "Getting connection object from cache.");
        ConnInHand inHand(*this, line.m_lstIdleConns.front());
        line.m_lstIdleConns.pop_front();
        if (inHand.PassesTest()) {
            return inHand.Release();
        }
    }
    return nullptr;
}

/// The total limit, which is looked at only for a key that has no line yet.
bool KvSmartAsynProtocolDriverMultiThreaded::MakeRoomForKey(const std::string& key) {
    if (m_nTotalConnections + 1 <= m_nMaxConnections) {
        return true;
    }
    if (!DeleteOldestUsedConnection()) {
        KV_LOG(m_pLog, LogError, kSource,
               "The max. limit for the total connections (=%lu) has reached. Failed to make capacity for "
               "this one.",
               static_cast<unsigned long>(m_nMaxConnections));
        return false;
    }
    KV_LOG(m_pLog, LogWarning, kSource,
           "The max. limit for the total connections (=%lu) has reached. Deleted an old connection to make "
           "room.",
           static_cast<unsigned long>(m_nMaxConnections));
    m_mapConnCache[key].m_nConnCount = 0;
    return true;
}

auto KvSmartAsynProtocolDriverMultiThreaded::CreateCachedConnection(const std::string& key,
                                                                    KvMessageFile* msgFile,
                                                                    bool* pCreateFailed) -> KvConn* {
    const auto line = m_mapConnCache.find(key);
    const unsigned int count = line == m_mapConnCache.end() ? 0 : line->second.m_nConnCount;
    if (count + 1 > m_nMaxSameCarrierConnections) {
        KV_LOG(m_pLog, LogInfo, kSource,
               "The max. limit for the same carrier connections (=%lu) has reached. Delaying connection "
               "creation.",
               static_cast<unsigned long>(m_nMaxSameCarrierConnections));
        return nullptr;
    }
    KV_LOG(m_pLog, LogInfo, kSource, "Creating new connection object.");
    auto conn = std::make_unique<KvConn>();
    conn->m_strCacheKey = key;
    std::map<std::string, ConnCacheLine> newLine;  // made first: an open connection needs no memory any more
    newLine.try_emplace(key);
    if (!TryCreateConnection(*conn, msgFile)) {
        if (pCreateFailed != nullptr) {
            *pCreateFailed = true;
        }
        KV_LOG(m_pLog, LogError, kSource, "Failed to create new connection for carrier: %s.", key.c_str());
        return nullptr;
    }
    conn->m_bValid = true;
    m_mapConnCache.merge(newLine);
    ++m_mapConnCache.find(key)->second.m_nConnCount;
    ++m_nTotalConnections;
    return conn.release();
}

bool KvSmartAsynProtocolDriverMultiThreaded::TryCreateConnection(KvConn& conn, const KvMessageFile* msgFile) {
    try {
        return CreateConnection(conn, msgFile);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return false;
    }
}

bool KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl(KvConn* conn) {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl()");
    bool result = true;
    if (conn == nullptr) {
        result = false;
    } else if (!conn->m_bValid) {
        DeleteConnection(conn);
    } else {
        KeepIdle(conn);
    }
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCacheImpl() with %s.",
           KvBoolText(result));
    return result;
}

/// A connection that cannot be kept for want of memory is closed.
void KvSmartAsynProtocolDriverMultiThreaded::KeepIdle(KvConn* conn) {
    try {
        auto& idle = m_mapConnCache[conn->m_strCacheKey].m_lstIdleConns;
        if (std::find(idle.begin(), idle.end(), conn) == idle.end()) {
            idle.push_back(conn);
        }
    } catch (const std::bad_alloc&) {
        DeleteConnection(conn);
    }
}

bool KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() {
    KV_LOG(m_pLog, LogTrace, kSource,
           "Entering KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection()");
    KvConn* oldest = nullptr;
    for (const auto& [key, line] : m_mapConnCache) {
        for (KvConn* const conn : line.m_lstIdleConns) {
            if (oldest == nullptr || conn->m_tLastUsed < oldest->m_tLastUsed) {
                oldest = conn;
            }
        }
    }
    if (oldest != nullptr) {
        m_mapConnCache[oldest->m_strCacheKey].m_lstIdleConns.remove(oldest);
        DeleteConnection(oldest);
    }
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSmartAsynProtocolDriverMultiThreaded::DeleteOldestUsedConnection() with %s.",
           KvBoolText(oldest != nullptr));
    return oldest != nullptr;
}

bool KvSmartAsynProtocolDriverMultiThreaded::DeleteConnection(KvConn* conn) {
    if (conn == nullptr) {
        return false;
    }
    CloseConnection(*conn);
    --m_mapConnCache[conn->m_strCacheKey].m_nConnCount;
    --m_nTotalConnections;
    delete conn;
    return true;
}
