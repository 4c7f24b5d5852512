#pragma once

#include <list>
#include <string>
#include <vector>

#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "KvconDelegate.h"

/// Dispatches the message groups of one carrier session on a worker of the pool. The concrete dispatcher supplies
/// the four operations that send.
///
/// One thread at a time: the host's thread until it is queued, then the worker that runs it. The pool owns it
/// from AddWork on. It holds its files until they are pushed back: one that ends early (its worker is ended, it is
/// deleted while it waits, or an exception leaves its walk) hands back every file that it still holds, with
/// kInternalErrorReason, and gives up its connection.
///
/// It is shielded work: a worker that runs it can be ended only where it waits for a peer.
class KvSmartProtocolDriverDelegateIface : public KvconDelegate, public KvconShieldedWork {
public:
    using KvConn = KvSmartAsynProtocolDriverMultiThreaded::KvConn;

    /// Reason of files for which no connection could be had.
    static constexpr const char* kNoConnectionReason =
        "Failed to create connection. Bad carrier configuration or carrier unreachable.";
    /// Reason of files that the messenger itself could not process.
    static constexpr const char* kInternalErrorReason = "Messenger internal error.";

    KvSmartProtocolDriverDelegateIface() = default;
    ~KvSmartProtocolDriverDelegateIface() override;

    /// Dispatches everything, fails what could not be sent for want of a connection, and returns the connection
    /// to the cache. The argument is ignored; always null.
    void* DoWork(void* userData) override;
    void StopWork() override {}
    void PauseWork() override {}
    void ResumeWork() override {}
    virtual bool InitializeSpecial() { return true; }
    virtual bool FinalizeSpecial() { return true; }

    // Each of the four owns the files that it is given and must push every one of them back: status 3 on success,
    // 2 on failure. The result is only logged.
    virtual bool SendMessageGroup(std::list<KvMessageFile*> batch) = 0;
    virtual bool SendMessage(KvMessageFile* file) = 0;
    virtual bool Send2WayMessage(KvMessageFile* file) = 0;
    virtual bool Query2WayResponse(KvMessageFile* file) = 0;

    /// Walks the groups: single files one by one, larger groups in transactions of at most the configured number
    /// of files, each over a validated connection. False when no connection could be had; what was not sent then
    /// stays in the groups.
    ///
    /// Compatibility: a largest number of 0 never empties a group of two or more files: the walk sends empty
    /// batches without end.
    /// Relied on by: nobody; settings have no range check.
    /// Held by: KvSmartProtocolDriverDelegateIfaceTest.ALimitOfZeroSendsEmptyBatchesWithoutEnd.
    virtual bool ProcessMessageFileGroups();

    /// Makes the delegate ready: `groups` are copied, the pointers stay their owners'. The result of
    /// InitializeSpecial.
    bool Initialize(KvSmartAsynProtocolDriverMultiThreaded* driver, const std::string& cacheKey, KvConn* conn,
                    const std::vector<std::list<KvMessageFile*>>& groups, int maxPinsPerTransaction,
                    KvLogInterface* log);
    /// Calls FinalizeSpecial. Always true.
    bool Finalize();

protected:
    class EarlyEnd;
    class Dispatch;

    bool DispatchAll();
    bool HasFiles() const;
    bool DispatchGroupAt(std::size_t index);
    bool DispatchSingle(std::list<KvMessageFile*>& group);
    void SendSingle(KvMessageFile* file);
    bool DispatchInBatches(std::list<KvMessageFile*>& group);
    std::list<KvMessageFile*> FirstFilesOf(const std::list<KvMessageFile*>& group) const;
    bool ValidateConnection(KvMessageFile* file);
    void FailRemaining(const char* reason);
    void FailFile(KvMessageFile* file, const char* reason);
    void FailQuietly(KvMessageFile* file);
    void AbandonAll();
    void GiveUpConnection();

    KvSmartAsynProtocolDriverMultiThreaded* m_pDriver = nullptr;
    KvConn* m_pConn = nullptr;  ///< the connection held; replaced by every validation
    KvLogInterface* m_pLog = nullptr;
    std::string m_strCacheKey;
    std::vector<std::list<KvMessageFile*>> m_vecMsgFileGroups;  ///< not yet sent
    int m_nMaxPinsPerTransaction = 0;
};
