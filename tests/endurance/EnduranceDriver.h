#pragma once

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <utility>

#include "Eventually.h"
#include "HostDoubles.h"
#include "KvSmtpDriver.h"
#include "KvconCriticalSection.h"
#include "KvconThreadPool.h"
#include "SmtpServerOptions.h"
#include "TestCertificates.h"
#include "TestMessageFile.h"

// The real driver as the tests and tools of this folder use it.

namespace kvtest {

using Reports = KvMessengerReportsMngrInterface;
using Settings = std::map<std::string, std::string>;

constexpr const char* kNoConnection =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";
constexpr const char* kInternalError = "Messenger internal error.";

enum class Wire { Clear, Tls };

inline std::ostream& operator<<(std::ostream& out, Wire wire) {
    return out << (wire == Wire::Tls ? "InsideTls" : "InClear");
}

/// Options of a server that offers STARTTLS, and AUTH to "ann" with the password "secret" in clear and inside TLS.
inline SmtpServerOptions ServerWithEverything() {
    SmtpServerOptions options;
    options.accounts = {{"ann", "secret"}};
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

/// A mail with an account, in clear or inside TLS.
inline MessageBuilder MailOver(Wire wire, const std::string& server) {
    MessageBuilder message;
    message.server(server).account("ann", "secret");
    if (wire == Wire::Tls) {
        message.security(SMTP_SECURITY_REQUIRED).caFile(TestCertificates::Shared().caFile());
    }
    return message;
}

/// The real driver, set up, with an eye on its cache. One thread at a time, beside its own.
class WatchedDriver : public KvSMTPDriver {
public:
    explicit WatchedDriver(HostDoubles& host, KvLogInterface* log = nullptr, Settings settings = {}) {
        Configure(settings);
        Start(host, log);
    }
    ~WatchedDriver() override { CleanUpOnce(); }

    /// Sets up, also again after a clean-up.
    void Start(HostDoubles& host, KvLogInterface* log = nullptr) {
        host.lendTo(*this);
        m_pLog = log;
        Setup(&host.instanceConf);
    }

    /// Does nothing when the driver was cleaned up already.
    void CleanUpOnce() {
        if (m_pThreadPool != nullptr) {
            Cleanup();
        }
    }

    /// Looks at the locks when a clean-up has ended the workers and comes to the first connection that is left.
    bool CloseConnection(KvConn& conn) override {
        if (m_pThreadPool == nullptr) {
            ++m_lockChecks;
            m_lockIsLeft = m_lockIsLeft || !LocksAreFree();
        }
        return KvSMTPDriver::CloseConnection(conn);
    }
    /// How often the locks were looked at, and whether one was not free then.
    unsigned long LockChecks() const { return m_lockChecks; }
    bool LockIsLeft() const { return m_lockIsLeft; }

    bool HandOver(KvMessageFile& file) {
        Reports::ReportsStatus status{};
        return SendAMessage(&file, status) && status == Reports::REPORT_ACCEPTED;
    }

    /// Waits until no worker holds a connection.
    bool WaitUntilConnectionsRest() {
        return Eventually([this] {
            const KvconCriticalSection section(m_pCacheLock, true, true, false);
            std::size_t idle = 0;
            for (const auto& [key, line] : m_mapConnCache) {
                idle += line.m_lstIdleConns.size();
            }
            return idle == m_nTotalConnections;
        });
    }

private:
    bool LocksAreFree() {
        return IsFree(*m_pLock) && IsFree(*m_pCacheLock) && IsFree(m_pMsgFileQueue->m_lock);
    }
    static bool IsFree(KvconLock& lock) {
        return lock.TryLock() == KvconLock::LOCK_ACQUIRED && lock.Unlock() == 0;
    }

    unsigned long m_lockChecks = 0;
    bool m_lockIsLeft = false;
};

}  // namespace kvtest
