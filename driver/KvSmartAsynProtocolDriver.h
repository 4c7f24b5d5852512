#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "KvProtocolDriverInterface.h"

class KvconLock;

/// Turns the host's one-message-at-a-time intake into batched, asynchronous delivery. SendAMessage files each
/// message into the carrier session of its cache key; PeriodicEvent, the host's tick, has every session processed.
/// How a session is processed is the threading variant's business.
///
/// Thread-safe between Setup and Cleanup; Configure, Setup and Cleanup are externally synchronised. The driver
/// lock is held by SendAMessage and for the whole of PeriodicEvent, its pauses included.
class KvSmartAsynProtocolDriver : public KvProtocolDriverInterface {
public:
    /// A session's own connection, used by the single-threaded variant only.
    struct KvSessionConn {
        bool m_bOpen = false;
        std::uint32_t m_hConnection = 0;  ///< the concrete driver's
        std::uint32_t m_hContext = 0;     ///< the concrete driver's
    };

    /// What waits for one cache key. A value type; sessions lie in the map by value and stay there.
    struct KvCarrierSess {
        std::string m_strCacheKey;
        /// From the first file filed; for log lines.
        std::string m_strCarrierName;
        KvSessionConn m_sessConn;
        /// The file most recently filed, successfully or not: the template for new connections. Not owned, never
        /// cleared; may name a file that is back with the host.
        KvMessageFile* m_pLastMsgFile = nullptr;
        /// True when creating a connection failed, false when it was only postponed.
        bool m_bConnFailed = false;
        /// Waiting groups in order of creation, each in order of arrival.
        std::vector<std::list<KvMessageFile*>> m_vecMsgFileGroups;
        /// Group key to index into m_vecMsgFileGroups, for groupable files.
        std::map<std::string, unsigned int> m_mapGroupIndex;
    };

    KvSmartAsynProtocolDriver() = default;
    ~KvSmartAsynProtocolDriver() override = default;

    bool Configure(std::map<std::string, std::string>& settings) override;
    bool Setup(KvMessengerInstConfBasic* instConf) override;

    /// One bulk dispatch cycle: processes every session with waiting groups, in key order, and goes over the
    /// sessions again every 200 ms until none has anything left. The files of a session whose processing fails
    /// are pushed back as failed. Always true.
    ///
    /// Compatibility: the cycle number advances only with a log sink, and the " >> Successfully processed ..."
    /// line is written for failed sessions too.
    /// Relied on by: log readers that count sessions and cycles.
    /// Held by: KvSmartAsynProtocolDriverTest.WithoutALogTheCycleNumberDoesNotAdvance,
    /// KvSmartAsynProtocolDriverTest.AFailedSessionIsLoggedAsProcessedToo.
    bool PeriodicEvent() override;

    /// As SendAMessage; a query is told apart at dispatch.
    bool Send2WayRespQuery(KvMessageFile* msgFile,
                           KvMessengerReportsMngrInterface::ReportsStatus& status) override;
    /// Files the message; nothing is sent yet. REPORT_ACCEPTED and true, or REPORT_FAILED and false.
    bool SendAMessage(KvMessageFile* msgFile,
                      KvMessengerReportsMngrInterface::ReportsStatus& status) override;
    /// Destroys the driver lock. Files that still wait are not touched. Always true.
    bool Cleanup() override;

    // Hooks of the threading variant and the concrete driver; true unless overridden.
    virtual bool ConfigureExt(std::map<std::string, std::string>& settings);
    virtual bool SetupExt(KvMessengerInstConfBasic* instConf);
    virtual bool CleanupExt();

    /// The key under which files share a session and its connections: the carrier id, unless overridden. Empty
    /// for a null file.
    virtual std::string GetCacheKey(KvMessageFile* msgFile);

    /// Files the message into a group of its session: files whose identifiers agree up to the last underscore
    /// travel together, unless the file inhibits grouping or is two-way. Called under the driver lock.
    virtual bool StoreMsgFileInCarrierSession(KvCarrierSess& session, KvMessageFile* msgFile);

    /// Processes what waits in `session`, under the driver lock. True leaves in place what is to be tried again;
    /// false has everything in the session failed with the reason `errText`.
    virtual bool ProcessCarrierSession(KvCarrierSess& session, std::string& errText) = 0;

protected:
    bool TrySetupExt(KvMessengerInstConfBasic* instConf);
    bool FileIntoSession(KvMessageFile* msgFile);
    bool FileIntoGroup(KvCarrierSess& session, KvMessageFile* msgFile);
    static void BeginGroup(KvCarrierSess& session, const std::string& key, KvMessageFile* msgFile);
    bool ProcessAllSessions();
    void ProcessSession(KvCarrierSess& session);
    void FailSession(KvCarrierSess& session, std::size_t groups, const std::string& reason);
    void FailFirst(KvCarrierSess& session, std::list<KvMessageFile*>& group, const std::string& reason);

    std::map<std::string, KvCarrierSess> m_mapCarrierSessions;  ///< by cache key; guarded by m_pLock
    KvconLock* m_pLock = nullptr;  ///< the driver lock; lives from Setup to Cleanup
    unsigned int m_nCycle = 0;     ///< guarded by m_pLock
};
