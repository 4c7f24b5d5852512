#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "KvSmartProtocolDriverDelegateIface.h"
#include "KvconCriticalSection.h"

namespace kvbench {

/// A message file of which nothing but its identity matters.
class HollowFile : public KvMessageFile {
public:
    void SetFailureReason(const std::string&) override {}
    void SetStatusText(const std::string&) override {}
};

/// Hands every file back as delivered at once.
class HollowDelegate : public KvSmartProtocolDriverDelegateIface {
public:
    bool SendMessageGroup(std::list<KvMessageFile*> batch) override {
        for (KvMessageFile* const file : batch) {
            SendMessage(file);
        }
        return true;
    }
    bool SendMessage(KvMessageFile* file) override {
        return m_pDriver->PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_COMPLETED, false, "");
    }
    bool Send2WayMessage(KvMessageFile* file) override { return SendMessage(file); }
    bool Query2WayResponse(KvMessageFile* file) override { return SendMessage(file); }
};

/// The framework without a protocol: connections are always there and take no time. What remains is intake, sessions,
/// the cache of connections, the pool, and the return of the files.
class HollowDriver : public KvSmartAsynProtocolDriverMultiThreaded {
public:
    HollowDriver() {
        m_pMsgFileQueue = &m_queue;
        std::map<std::string, std::string> settings{
            {"smart_driver.diff_carrier_connection_count", "1000000"}};
        Configure(settings);
        Setup(&m_instance);
    }
    ~HollowDriver() override { Cleanup(); }

    const char* GetName() override { return "hollow"; }
    const char* GetVersion() override { return "1"; }
    const char* GetProtocolName() override { return "none"; }
    const char* GetCarrierName() override { return ""; }
    bool TestConnection(KvConn&) override { return true; }
    bool CreateConnection(KvConn&, const KvMessageFile*) override { return true; }
    bool CloseConnection(KvConn&) override { return true; }
    KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() override { return new HollowDelegate; }

    using KvSmartAsynProtocolDriver::m_mapCarrierSessions;

    /// Forgets what was filed, so that nothing is dispatched.
    void Forget() {
        for (auto& [key, session] : m_mapCarrierSessions) {
            session.m_vecMsgFileGroups.clear();
            session.m_mapGroupIndex.clear();
        }
    }
    std::size_t Returned() {
        const KvconCriticalSection section(&m_queue.m_lock, true, true, false);
        return m_queue.m_dqMsgFiles.size();
    }

private:
    KvMessageFileQueue m_queue;
    KvMessengerInstConfBasic m_instance;
};

/// `jobs` files for `carriers` carriers in turn, each a group of its own, as a paging host hands them over.
inline std::vector<std::unique_ptr<HollowFile>> HollowFiles(std::size_t jobs, std::size_t carriers) {
    std::vector<std::unique_ptr<HollowFile>> files;
    files.reserve(jobs);
    for (std::size_t i = 0; i < jobs; ++i) {
        auto file = std::make_unique<HollowFile>();
        file->m_strMsgFileID = std::to_string(i) + "_1";
        file->m_ulCarrierID = i % carriers;
        files.push_back(std::move(file));
    }
    return files;
}

}  // namespace kvbench
