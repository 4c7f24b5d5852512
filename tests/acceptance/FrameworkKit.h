#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Gate.h"
#include "HostDoubles.h"
#include "KvSmartProtocolDriverDelegateIface.h"
#include "KvconLock.h"
#include "TestMessageFile.h"

/// A driver and a delegate without a protocol: every operation is recorded, every outcome is the test's choice.
namespace kvframework {

using KvConn = KvSmartAsynProtocolDriverMultiThreaded::KvConn;
using ConnCacheLine = KvSmartAsynProtocolDriverMultiThreaded::ConnCacheLine;
using CarrierSess = KvSmartAsynProtocolDriver::KvCarrierSess;
using Groups = std::vector<std::list<KvMessageFile*>>;
using Texts = std::vector<std::string>;

inline constexpr const char* kNoConnection =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";
inline constexpr const char* kInternalError = "Messenger internal error.";

/// What happened, in order. Thread-safe.
class Journal {
public:
    void add(const std::string& event) {
        const std::lock_guard lock(m_mutex);
        m_events.push_back(event);
    }
    Texts events() const {
        const std::lock_guard lock(m_mutex);
        return m_events;
    }
    int count(const std::string& event) const {
        const Texts all = events();
        return static_cast<int>(std::count(all.begin(), all.end(), event));
    }
    void clear() {
        const std::lock_guard lock(m_mutex);
        m_events.clear();
    }

private:
    mutable std::mutex m_mutex;
    Texts m_events;
};

enum class Create { Works, Fails, Throws, ThrowsANumber };

/// Connections are numbered from 1 in the order of their creation; the journal names them by number.
class FakeDriver : public KvSmartAsynProtocolDriverMultiThreaded {
public:
    using KvSmartAsynProtocolDriver::m_mapCarrierSessions;
    using KvSmartAsynProtocolDriver::m_nCycle;
    using KvSmartAsynProtocolDriver::m_pLock;
    using KvSmartAsynProtocolDriverMultiThreaded::m_mapConnCache;
    using KvSmartAsynProtocolDriverMultiThreaded::m_nMaxConnections;
    using KvSmartAsynProtocolDriverMultiThreaded::m_nMaxPinsPerTransaction;
    using KvSmartAsynProtocolDriverMultiThreaded::m_nMaxSameCarrierConnections;
    using KvSmartAsynProtocolDriverMultiThreaded::m_nThreadPoolSize;
    using KvSmartAsynProtocolDriverMultiThreaded::m_nTotalConnections;
    using KvSmartAsynProtocolDriverMultiThreaded::m_pCacheLock;
    using KvSmartAsynProtocolDriverMultiThreaded::m_pThreadPool;

    const char* GetName() override { return "fake"; }
    const char* GetVersion() override { return "1"; }
    const char* GetProtocolName() override { return "fake protocol"; }
    const char* GetCarrierName() override { return "fake carrier"; }

    bool TestConnection(KvConn& conn) override {
        const int number = numberOf(conn);
        journal.add("test " + std::to_string(number));
        return !onTest || onTest(number);
    }
    bool CreateConnection(KvConn& conn, const KvMessageFile* msgFile) override {
        created.push_back({conn.m_strCacheKey, conn.m_pConnection, conn.m_nUseCount, conn.m_tLastUsed,
                           conn.m_bValid, msgFile});
        journal.add("create " + conn.m_strCacheKey);
        const Create outcome = onCreate ? onCreate() : Create::Works;
        if (outcome == Create::Throws) {
            throw std::runtime_error("no way");
        }
        if (outcome == Create::ThrowsANumber) {
            throw 42;
        }
        if (outcome == Create::Fails) {
            return false;
        }
        conn.m_pConnection = new int(++m_lastNumber);
        return true;
    }
    bool CloseConnection(KvConn& conn) override {
        journal.add("close " + std::to_string(numberOf(conn)));
        if (onClose) {
            onClose();
        }
        delete static_cast<int*>(conn.m_pConnection);
        conn.m_pConnection = nullptr;
        return closeResult;
    }
    KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() override {
        journal.add("delegate");
        return makeDelegate ? makeDelegate() : nullptr;
    }

    static int numberOf(const KvConn& conn) {
        return conn.m_pConnection == nullptr ? 0 : *static_cast<int*>(conn.m_pConnection);
    }
    ConnCacheLine& line(const std::string& key) { return m_mapConnCache[key]; }
    bool hasLine(const std::string& key) const { return m_mapConnCache.count(key) != 0; }
    std::vector<int> idleNumbers(const std::string& key) {
        std::vector<int> result;
        if (hasLine(key)) {
            for (const KvConn* conn : line(key).m_lstIdleConns) {
                result.push_back(numberOf(*conn));
            }
        }
        return result;
    }

    /// The record as CreateConnection was given it.
    struct Birth {
        std::string key;
        void* connection = nullptr;
        unsigned int useCount = 0;
        time_t lastUsed = 0;
        bool valid = false;
        const KvMessageFile* file = nullptr;
    };
    std::vector<Birth> created;
    Journal journal;
    std::function<bool(int number)> onTest;
    std::function<Create()> onCreate;
    std::function<void()> onClose;
    bool closeResult = true;
    std::function<KvSmartProtocolDriverDelegateIface*()> makeDelegate;

private:
    int m_lastNumber = 0;
};

/// A delegate that hands every file back: as completed, or as failed where the operation is to fail.
class FakeDelegate : public KvSmartProtocolDriverDelegateIface {
public:
    using KvSmartProtocolDriverDelegateIface::m_nMaxPinsPerTransaction;
    using KvSmartProtocolDriverDelegateIface::m_pConn;
    using KvSmartProtocolDriverDelegateIface::m_pDriver;
    using KvSmartProtocolDriverDelegateIface::m_pLog;
    using KvSmartProtocolDriverDelegateIface::m_strCacheKey;
    using KvSmartProtocolDriverDelegateIface::m_vecMsgFileGroups;

    explicit FakeDelegate(Journal& journal) : m_journal(journal) {}
    ~FakeDelegate() override { m_journal.add("delegate deleted"); }

    bool InitializeSpecial() override {
        m_journal.add("initialize");
        return initializeResult;
    }
    bool FinalizeSpecial() override {
        m_journal.add("finalize");
        return finalizeResult;
    }
    bool SendMessageGroup(std::list<KvMessageFile*> batch) override {
        std::string names;
        for (const KvMessageFile* file : batch) {
            names += " " + file->m_strMsgFileID;
        }
        const bool ok = dispatch("group" + names);
        for (KvMessageFile* file : batch) {
            giveBack(file, ok);
        }
        batch.clear();
        return ok;
    }
    bool SendMessage(KvMessageFile* file) override { return one("single ", file); }
    bool Send2WayMessage(KvMessageFile* file) override { return one("2way ", file); }
    bool Query2WayResponse(KvMessageFile* file) override { return one("query ", file); }

    bool initializeResult = true;
    bool finalizeResult = true;
    /// Called with the journal's line before the files go back; its result is the operation's.
    std::function<bool(const std::string& event)> onDispatch;

protected:
    bool one(const std::string& kind, KvMessageFile* file) {
        const bool ok = dispatch(kind + file->m_strMsgFileID);
        giveBack(file, ok);
        return ok;
    }
    bool dispatch(const std::string& event) {
        m_journal.add(event);
        return !onDispatch || onDispatch(event);
    }
    void giveBack(KvMessageFile* file, bool ok) {
        m_pDriver->PushBackMsgFile(file,
                                   ok ? KvMessengerReportsMngrInterface::REPORT_COMPLETED
                                      : KvMessengerReportsMngrInterface::REPORT_FAILED,
                                   false, "");
    }

    Journal& m_journal;
};

/// A driver with the table's defaults and a cache lock, but without a pool.
class FrameworkTest : public testing::Test {
protected:
    FrameworkTest() {
        host.lendTo(driver);
        std::map<std::string, std::string> settings;
        driver.ConfigureExt(settings);
        driver.m_pCacheLock = new KvconLock;
        host.log.clear();
    }
    ~FrameworkTest() override {
        closeAllInUse();
        driver.onClose = nullptr;
        driver.CleanupExt();
    }

    /// A connection that the test holds; closed at the end of the test unless it went back.
    KvConn* take(const std::string& key) {
        KvConn* conn = driver.GetConnFromCacheImpl(key, nullptr, nullptr);
        if (conn != nullptr) {
            m_taken.push_back(conn);
        }
        return conn;
    }
    void giveBack(KvConn* conn) {
        forget(conn);
        driver.ReleaseConnToCacheImpl(conn);
    }
    /// The connection belongs to somebody else from now on.
    KvConn* forget(KvConn* conn) {
        std::erase(m_taken, conn);
        return conn;
    }
    void keep(KvConn* conn) {
        if (conn != nullptr && std::find(m_taken.begin(), m_taken.end(), conn) == m_taken.end()) {
            m_taken.push_back(conn);
        }
    }
    void closeAllInUse() {
        for (KvConn* conn : std::exchange(m_taken, {})) {
            driver.DeleteConnection(conn);
        }
    }

    KvMessageFile* file(const std::string& id) {
        return file(kvtest::MessageBuilder().id(id).jobId("job " + id));
    }
    KvMessageFile* file(const kvtest::MessageBuilder& builder) {
        m_files.push_back(builder.build());
        return m_files.back().get();
    }
    static kvtest::TestMessageFile& testFile(KvMessageFile* each) {
        return *static_cast<kvtest::TestMessageFile*>(each);
    }
    std::list<KvMessageFile*> files(const std::string& prefix, int count) {
        std::list<KvMessageFile*> result;
        for (int n = 1; n <= count; ++n) {
            result.push_back(file(prefix + "_" + std::to_string(n)));
        }
        return result;
    }
    /// The identifiers of what came back, each with its status.
    Texts returned() {
        Texts result;
        for (const KvMessageFile* each : host.queue.drain()) {
            result.push_back(each->m_strMsgFileID + ":" + std::to_string(each->m_eStatus));
        }
        return result;
    }
    Texts logged(kvtest::Severity severity) const { return host.log.texts(severity); }

    kvtest::HostDoubles host;
    FakeDriver driver;

private:
    std::vector<std::unique_ptr<kvtest::TestMessageFile>> m_files;
    std::vector<KvConn*> m_taken;
};

}  // namespace kvframework
