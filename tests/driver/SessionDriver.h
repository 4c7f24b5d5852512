#pragma once

#include <functional>
#include <map>
#include <string>

#include "KvSmartAsynProtocolDriver.h"
#include "driver/FrameworkDoubles.h"

namespace kvtest {

/// The session layer alone: a driver whose processing of a session is written down by the test. Unless told
/// otherwise it takes every group of the session, as a hand-off to a worker does.
class SessionDriver : public KvSmartAsynProtocolDriver {
public:
    ~SessionDriver() override { delete m_pLock; }

    using KvSmartAsynProtocolDriver::m_mapCarrierSessions;
    using KvSmartAsynProtocolDriver::m_nCycle;
    using KvSmartAsynProtocolDriver::m_pLock;

    std::function<bool(std::map<std::string, std::string>& settings)> onConfigure;
    std::function<bool(KvMessengerInstConfBasic* instConf)> onSetup;
    std::function<bool()> onCleanup;
    std::function<std::string(KvMessageFile* msgFile)> onCacheKey;
    std::function<bool(KvCarrierSess& session, KvMessageFile* msgFile)> onStore;
    std::function<bool(KvCarrierSess& session, std::string& errText)> onProcess = [](KvCarrierSess& session,
                                                                                     std::string&) {
        Empty(session);
        return true;
    };
    /// Keys of the sessions that were processed, in order.
    Strings processed;

    static void Empty(KvCarrierSess& session) {
        session.m_vecMsgFileGroups.clear();
        session.m_mapGroupIndex.clear();
    }

    const char* GetName() override { return "Session"; }
    const char* GetVersion() override { return "1"; }
    const char* GetProtocolName() override { return "none"; }
    const char* GetCarrierName() override { return "none"; }

    bool ConfigureExt(std::map<std::string, std::string>& settings) override {
        return onConfigure ? onConfigure(settings) : KvSmartAsynProtocolDriver::ConfigureExt(settings);
    }
    bool SetupExt(KvMessengerInstConfBasic* instConf) override {
        return onSetup ? onSetup(instConf) : KvSmartAsynProtocolDriver::SetupExt(instConf);
    }
    bool CleanupExt() override { return onCleanup ? onCleanup() : KvSmartAsynProtocolDriver::CleanupExt(); }
    std::string GetCacheKey(KvMessageFile* msgFile) override {
        return onCacheKey ? onCacheKey(msgFile) : KvSmartAsynProtocolDriver::GetCacheKey(msgFile);
    }
    bool StoreMsgFileInCarrierSession(KvCarrierSess& session, KvMessageFile* msgFile) override {
        return onStore ? onStore(session, msgFile)
                       : KvSmartAsynProtocolDriver::StoreMsgFileInCarrierSession(session, msgFile);
    }
    bool ProcessCarrierSession(KvCarrierSess& session, std::string& errText) override {
        processed.push_back(session.m_strCacheKey);
        return onProcess(session, errText);
    }
};

/// A set-up session driver with a host; the log is empty when the test begins.
class KvSmartAsynProtocolDriverTest : public testing::Test {
protected:
    KvSmartAsynProtocolDriverTest() {
        m_host.lendTo(m_driver);
        m_driver.Setup(&m_host.instanceConf);
        m_host.log.clear();
    }

    /// Files one message and answers whether it was accepted.
    bool Send(KvMessageFile* file) { return m_driver.SendAMessage(file, m_status); }
    /// Files a new message with this identifier for carrier `carrier`, named "mail-<carrier>".
    TestMessageFile* Send(const std::string& id, unsigned long carrier = 1) {
        TestMessageFile* const file = m_files.add(
            MessageBuilder().id(id).jobId("job-" + id).carrier(carrier, "mail-" + std::to_string(carrier)));
        EXPECT_TRUE(Send(file));
        return file;
    }
    KvCarrierSess& Session(const std::string& key = "1") { return m_driver.m_mapCarrierSessions[key]; }
    /// The identifiers of the files of each waiting group.
    std::vector<Strings> Waiting(const std::string& key = "1") {
        std::vector<Strings> groups;
        for (const Files& group : Session(key).m_vecMsgFileGroups) {
            groups.push_back(IdsOf(group));
        }
        return groups;
    }

    HostDoubles m_host;
    FileShelf m_files;
    SessionDriver m_driver;
    ReportsStatus m_status = KvMessengerReportsMngrInterface::REPORT_NONE;
};

}  // namespace kvtest
