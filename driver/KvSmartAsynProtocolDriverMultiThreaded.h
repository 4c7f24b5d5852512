#pragma once

#include <ctime>

#include "KvSmartAsynProtocolDriver.h"

class KvSmartProtocolDriverDelegateIface;
class KvconThreadPool;

/// The multi-threaded variant of the framework: batches are delivered on a thread pool, over a bounded cache of
/// open connections that are reused while they are alive.
///
/// The cache lock guards the cache. The host's thread takes it inside the driver lock, workers take it without;
/// never the driver lock inside the cache lock.
///
/// Invariants: a connection is either idle, in the list of its line, or handed out and in no list; the counters
/// count what was created and not deleted.
class KvSmartAsynProtocolDriverMultiThreaded : public KvSmartAsynProtocolDriver {
public:
    /// One connection; owned by the cache, used by the delegate that holds it.
    struct KvConn {
        std::string m_strCacheKey;
        void* m_pConnection = nullptr;  ///< the concrete driver's, from CreateConnection to CloseConnection
        unsigned int m_nUseCount = 0;   ///< times handed out
        time_t m_tLastUsed = 0;         ///< when it was last handed out
        bool m_bValid = false;          ///< created, and no test has failed since
    };

    /// The connections of one cache key.
    struct ConnCacheLine {
        std::list<KvConn*> m_lstIdleConns;  ///< open and not in use, oldest release first
        unsigned int m_nConnCount = 0;      ///< idle and in use
    };

    KvSmartAsynProtocolDriverMultiThreaded() = default;
    ~KvSmartAsynProtocolDriverMultiThreaded() override = default;

    /// Sets the defaults and then what the settings say. Always true.
    ///
    /// Compatibility: values are read with strtoul, without a range check: what is no number is 0, trailing text
    /// is ignored. A limit of 0 makes connections, or transactions of a group, wait or repeat without end.
    /// Relied on by: hosts whose settings carry units or comments behind the number.
    /// Held by: KvConnectionCacheTest.SettingsAreReadWithoutARangeCheck.
    bool ConfigureExt(std::map<std::string, std::string>& settings) override;
    /// Makes the cache lock and the thread pool. Always true.
    bool SetupExt(KvMessengerInstConfBasic* instConf) override;
    /// Stops the pool, giving the workers 60 s, and closes the idle connections. Always true.
    ///
    /// Compatibility: its trace lines carry the name SetupExt.
    /// Relied on by: log readers.
    /// Held by: KvConnectionCacheTest.CleanupTracesUnderTheNameOfSetup.
    bool CleanupExt() override;
    /// Takes a connection and hands the session's groups to a delegate on the pool; leaves the session as it is
    /// when no connection can be had yet.
    bool ProcessCarrierSession(KvCarrierSess& session, std::string& errText) override;

    /// True while the connection can be used. Must not throw.
    virtual bool TestConnection(KvConn& conn) = 0;
    /// Opens a connection configured from `msgFile` and stores it in conn.m_pConnection. False, or an exception,
    /// on failure; nothing is stored then.
    virtual bool CreateConnection(KvConn& conn, const KvMessageFile* msgFile) = 0;
    /// Closes and frees conn.m_pConnection.
    virtual bool CloseConnection(KvConn& conn) = 0;
    /// A new delegate, the caller's; null on failure.
    virtual KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() = 0;

    /// A connection for `key`: an idle one that passes its test, or a new one configured from `msgFile`. Null
    /// when a limit was reached or creating one failed; `*pCreateFailed` (may be null) tells which. Thread-safe.
    KvConn* GetConnFromCache(const std::string& key, KvMessageFile* msgFile, bool* pCreateFailed);

    /// Takes a connection back: idle from now on, or deleted when it is not valid. False for null. Thread-safe.
    bool ReleaseConnToCache(KvConn* conn);

    /// Takes back the connection of a delegate that is deleted without having run to its end. As ReleaseConnToCache, but
    /// for delegates that CleanupExt deletes: their connections are closed when the workers are gone. To wait for the
    /// cache before would be to wait for a worker that makes a connection, for as long as its server likes.
    void ReleaseConnOfDeleted(KvConn* conn);

    /// `conn` while it passes its test, else another one for `key`; null when there is none. Thread-safe.
    ///
    /// Compatibility: after a failed test it sleeps 200 ms while it holds the cache lock, which delays every
    /// other user of the cache.
    /// Relied on by: servers that cut a connection and need a moment before they accept the next.
    /// Held by: KvConnectionCacheTest.AFailedValidationDelaysEveryOtherUserOfTheCache.
    KvConn* GetValidatedConnFromCache(KvConn* conn, const std::string& key, KvMessageFile* msgFile);

    // REQUIRES, for the four below: the caller holds the cache lock, or is CleanupExt.
    KvConn* GetConnFromCacheImpl(const std::string& key, KvMessageFile* msgFile, bool* pCreateFailed);
    bool ReleaseConnToCacheImpl(KvConn* conn);
    /// Deletes the idle connection that was handed out longest ago; false when none is idle.
    bool DeleteOldestUsedConnection();
    bool DeleteConnection(KvConn* conn);

protected:
    class ConnInHand;
    class ConnsOfDeleted;
    class ConnGivenBack;

    void KeepIdle(KvConn* conn);
    KvConn* TakeIdleConnection(ConnCacheLine& line);
    bool MakeRoomForKey(const std::string& key);
    KvConn* CreateCachedConnection(const std::string& key, KvMessageFile* msgFile, bool* pCreateFailed);
    KvConn* TakeOrCreateConnection(const std::string& key, KvMessageFile* msgFile, bool* pCreateFailed);
    bool TryCreateConnection(KvConn& conn, const KvMessageFile* msgFile);
    KvConn* ValidateOrReplace(KvConn* conn, const std::string& key, KvMessageFile* msgFile);
    bool DispatchSession(KvCarrierSess& session, std::string& errText);
    bool ReportNoConnection(KvCarrierSess& session, bool createFailed, std::string& errText);
    bool ReportInternalError(const char* logText, std::string& errText);
    void AddToPool(KvSmartProtocolDriverDelegateIface* delegate);

    unsigned int m_nThreadPoolSize = 0;
    unsigned int m_nMaxConnections = 0;
    unsigned int m_nMaxSameCarrierConnections = 0;
    unsigned int m_nMaxPinsPerTransaction = 10;
    KvconThreadPool* m_pThreadPool = nullptr;
    std::map<std::string, ConnCacheLine> m_mapConnCache;  ///< guarded by m_pCacheLock
    unsigned int m_nTotalConnections = 0;                 ///< guarded by m_pCacheLock
    KvconLock* m_pCacheLock = nullptr;                    ///< lives from SetupExt to CleanupExt
};
