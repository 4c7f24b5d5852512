#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "HostDoubles.h"
#include "KvSmartAsynProtocolDriverMultiThreaded.h"
#include "KvSmartProtocolDriverDelegateIface.h"
#include "TestMessageFile.h"
#include "src/ThreadDoubles.h"

// What the tests of the driver framework share: a driver and a dispatcher whose answers a test writes down
// beforehand and whose calls it reads afterwards.

namespace kvtest {

using KvConn = KvSmartAsynProtocolDriverMultiThreaded::KvConn;
using KvCarrierSess = KvSmartAsynProtocolDriver::KvCarrierSess;
using ReportsStatus = KvMessengerReportsMngrInterface::ReportsStatus;
using Strings = std::vector<std::string>;
using Files = std::list<KvMessageFile*>;
using Groups = std::vector<Files>;

constexpr const char* kNoConnection =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";
constexpr const char* kInternalError = "Messenger internal error.";

constexpr const char* kSessionSource = "KvSmartAsynProtocolDriver.cpp";
constexpr const char* kPoolSource = "KvSmartAsynProtocolDriverMultiThreaded.cpp";
constexpr const char* kDelegateSource = "KvSmartProtocolDriverDelegateIface.cpp";

/// The slot that a virtual operation has in the table of its class, counted from 0.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
    std::ptrdiff_t words[2];
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words, &operation, sizeof(words));
    return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);  // 1 plus the offset in the table
}

inline std::string LineOf(const LogEntry& entry) {
    constexpr const char* names[] = {"trace: ", "debug: ", "info: ", "warning: ", "error: "};
    return names[static_cast<int>(entry.severity)] + entry.text;
}

/// What the log holds, in order, as "severity: text". Every entry must name a line of a source file.
inline Strings LinesOf(const RecordingLog& log) {
    Strings lines;
    for (const LogEntry& entry : log.entries()) {
        EXPECT_GT(entry.line, 0) << entry.text;
        EXPECT_NE(entry.file, "") << entry.text;
        lines.push_back(LineOf(entry));
    }
    return lines;
}

/// The same for the lines of one source file only.
inline Strings LinesFrom(const RecordingLog& log, const std::string& file) {
    Strings lines;
    for (const LogEntry& entry : log.entries()) {
        if (entry.file == file) {
            EXPECT_GT(entry.line, 0) << entry.text;
            lines.push_back(LineOf(entry));
        }
    }
    return lines;
}

/// The same without the trace lines.
inline Strings NotesFrom(const RecordingLog& log, const std::string& file) {
    Strings lines = LinesFrom(log, file);
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("trace: "); });
    return lines;
}

/// Makes files and keeps them for the length of the test.
class FileShelf {
public:
    TestMessageFile* add(const MessageBuilder& builder) {
        m_files.push_back(builder.build());
        return m_files.back().get();
    }
    TestMessageFile* add(const std::string& id) { return add(MessageBuilder().id(id).jobId("job-" + id)); }
    /// `count` files PREFIX_1, PREFIX_2 and so on.
    Files addGroup(const std::string& prefix, int count) {
        Files group;
        for (int number = 1; number <= count; ++number) {
            group.push_back(add(prefix + "_" + std::to_string(number)));
        }
        return group;
    }

private:
    std::vector<std::unique_ptr<TestMessageFile>> m_files;
};

inline Strings IdsOf(const Files& files) {
    Strings ids;
    for (const KvMessageFile* file : files) {
        ids.push_back(file->m_strMsgFileID);
    }
    return ids;
}

inline const TestMessageFile& AsTestFile(const KvMessageFile* file) {
    return dynamic_cast<const TestMessageFile&>(*file);
}

/// What came back to the host, in order, as "id:status" and, for a failed file, " reason".
inline Strings ReturnsOf(ReturnQueue& queue) {
    Strings returns;
    for (const KvMessageFile* file : queue.drain()) {
        const std::string reason = AsTestFile(file).failureReason();
        returns.push_back(file->m_strMsgFileID + ":" + std::to_string(file->m_eStatus) +
                          (reason.empty() ? "" : " " + reason));
    }
    return returns;
}

class ScriptedDelegate;

/// What the delegates of one test do, and what was done with them. The hooks are set before the first
/// dispatch; the rest is thread-safe. Outlives the delegates.
class DispatchScript {
public:
    /// Runs instead of a dispatch; it pushes the files back, or not, as the test wants it.
    std::function<bool(ScriptedDelegate& delegate, const Files& files)> onDispatch;
    std::function<bool()> onInitialize = [] { return true; };
    std::function<bool(ScriptedDelegate& delegate)> onFinalize = [](ScriptedDelegate&) { return true; };

    std::atomic<int> initialized{0};
    std::atomic<int> finalized{0};
    std::atomic<int> deleted{0};

    /// Every dispatch in order, as "operation: id id ..."
    Strings dispatches() const {
        const std::lock_guard<std::mutex> hold(m_mutex);
        return m_dispatches;
    }
    void note(const std::string& operation, const Files& files) {
        std::string line = operation + ":";
        for (const KvMessageFile* file : files) {
            line += " " + file->m_strMsgFileID;
        }
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_dispatches.push_back(line);
    }

private:
    mutable std::mutex m_mutex;
    Strings m_dispatches;  ///< guarded by m_mutex
};

/// A dispatcher that does what its script says: unless told otherwise it completes every file.
class ScriptedDelegate : public KvSmartProtocolDriverDelegateIface {
public:
    explicit ScriptedDelegate(DispatchScript& script) : m_script(script) {}
    ~ScriptedDelegate() override { ++m_script.deleted; }

    using KvSmartProtocolDriverDelegateIface::m_nMaxPinsPerTransaction;
    using KvSmartProtocolDriverDelegateIface::m_pConn;
    using KvSmartProtocolDriverDelegateIface::m_pDriver;
    using KvSmartProtocolDriverDelegateIface::m_pLog;
    using KvSmartProtocolDriverDelegateIface::m_strCacheKey;
    using KvSmartProtocolDriverDelegateIface::m_vecMsgFileGroups;

    bool InitializeSpecial() override {
        ++m_script.initialized;
        return m_script.onInitialize();
    }
    bool FinalizeSpecial() override {
        ++m_script.finalized;
        return m_script.onFinalize(*this);
    }
    bool SendMessageGroup(Files batch) override { return run("SendMessageGroup", batch); }
    bool SendMessage(KvMessageFile* file) override { return run("SendMessage", {file}); }
    bool Send2WayMessage(KvMessageFile* file) override { return run("Send2WayMessage", {file}); }
    bool Query2WayResponse(KvMessageFile* file) override { return run("Query2WayResponse", {file}); }

    void complete(KvMessageFile* file) {
        m_pDriver->PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_COMPLETED, false, "");
    }
    void completeAll(const Files& files) {
        for (KvMessageFile* file : files) {
            complete(file);
        }
    }

private:
    bool run(const char* operation, const Files& files) {
        m_script.note(operation, files);
        if (m_script.onDispatch) {
            return m_script.onDispatch(*this, files);
        }
        completeAll(files);
        return true;
    }

    DispatchScript& m_script;
};

/// A multi-threaded driver whose connections are numbers, counted from 1 in the order in which they were
/// asked for. The hooks are set before use; the rest is thread-safe. It leaves no idle connection, lock or
/// worker behind.
class ScriptedDriver : public KvSmartAsynProtocolDriverMultiThreaded {
public:
    struct Connection {
        int number = 0;
    };

    explicit ScriptedDriver(DispatchScript& script)
        : onDelegate([&script] { return new ScriptedDelegate(script); }) {}
    ~ScriptedDriver() override {
        ResetPool(nullptr);
        CloseIdleConnections();
        delete m_pCacheLock;
        delete m_pLock;
    }

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

    /// Does connection `number` pass its test?
    std::function<bool(int number)> onTest = [](int) { return true; };
    std::function<bool(int number, const KvMessageFile* msgFile)> onCreate = [](int, const KvMessageFile*) {
        return true;
    };
    std::function<void(int number)> onClose = [](int) {};
    std::function<KvSmartProtocolDriverDelegateIface*()> onDelegate;

    const char* GetName() override { return "Scripted"; }
    const char* GetVersion() override { return "1"; }
    const char* GetProtocolName() override { return "none"; }
    const char* GetCarrierName() override { return "none"; }

    bool TestConnection(KvConn& conn) override {
        note("test", NumberOf(conn));
        return onTest(NumberOf(conn));
    }
    bool CreateConnection(KvConn& conn, const KvMessageFile* msgFile) override {
        const int number = noteCreation(msgFile);
        if (!onCreate(number, msgFile)) {
            return false;
        }
        conn.m_pConnection = new Connection{number};
        return true;
    }
    bool CloseConnection(KvConn& conn) override {
        note("close", NumberOf(conn));
        onClose(NumberOf(conn));
        delete static_cast<Connection*>(conn.m_pConnection);
        conn.m_pConnection = nullptr;
        return true;
    }
    KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() override { return onDelegate(); }

    static int NumberOf(const KvConn& conn) { return static_cast<Connection*>(conn.m_pConnection)->number; }

    /// Every call in order, as "create 1", "test 1", "close 1".
    Strings calls() const {
        const std::lock_guard<std::mutex> hold(m_mutex);
        return m_calls;
    }
    void forgetCalls() {
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_calls.clear();
    }
    /// The files from which connections were to be configured.
    std::vector<const KvMessageFile*> templates() const {
        const std::lock_guard<std::mutex> hold(m_mutex);
        return m_templates;
    }

    /// The four defaults, and the two locks; no pool.
    void MakeLocks() {
        std::map<std::string, std::string> settings;
        ConfigureExt(settings);
        m_pLock = new KvconLock;
        m_pCacheLock = new KvconLock;
    }
    /// Replaces the pool by one that ends its workers at once, and not by a pause.
    TidyPool& MakePool(unsigned int workers) {
        auto* const pool = new TidyPool(workers);
        ResetPool(pool);
        return *pool;
    }
    void ResetPool(KvconThreadPool* pool) { delete std::exchange(m_pThreadPool, pool); }

    /// A fresh connection for `key`; null when the cache has none to give.
    KvConn* Take(const std::string& key, KvMessageFile* msgFile = nullptr) {
        return GetConnFromCache(key, msgFile, nullptr);
    }
    std::size_t IdleCount(const std::string& key) { return m_mapConnCache[key].m_lstIdleConns.size(); }

private:
    void note(const char* call, int number) {
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_calls.push_back(call + (" " + std::to_string(number)));
    }
    int noteCreation(const KvMessageFile* msgFile) {
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_calls.push_back("create " + std::to_string(++m_creations));
        m_templates.push_back(msgFile);
        return m_creations;
    }
    void CloseIdleConnections() {
        for (auto& [key, line] : m_mapConnCache) {
            for (KvConn* conn : line.m_lstIdleConns) {
                CloseConnection(*conn);
                delete conn;
            }
        }
    }

    mutable std::mutex m_mutex;
    // Guarded by m_mutex.
    Strings m_calls;
    std::vector<const KvMessageFile*> m_templates;
    int m_creations = 0;
};

/// A driver with its locks, its host and a log, all at rest.
class FrameworkTest : public testing::Test {
protected:
    FrameworkTest() {
        m_driver.MakeLocks();
        m_host.lendTo(m_driver);  // last, so that the log is empty when the test begins
    }

    HostDoubles m_host;
    FileShelf m_files;
    DispatchScript m_script;
    ScriptedDriver m_driver{m_script};
};

}  // namespace kvtest
