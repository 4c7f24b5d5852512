#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "KvSmartAsynProtocolDriverSingleThreaded.h"

namespace kvtest {

/// A whole driver on the single-threaded variant: a carrier is a spool file, and a message becomes one line of
/// it. The connection of a session is the open file; it is replaced when the file was taken away.
///
///     SpoolDriver driver(folder);  // carrier 7 writes to <folder>/7.spool
class SpoolDriver : public KvSmartAsynProtocolDriverSingleThreaded {
public:
    static constexpr const char* kNoSpoolFile = "Spool file cannot be opened.";
    static constexpr const char* kNotWritten = "Spool file cannot be written.";

    explicit SpoolDriver(std::string folder) : m_strFolder(std::move(folder)) {}

    const char* GetName() override { return "Spool"; }
    const char* GetVersion() override { return "1.0"; }
    const char* GetProtocolName() override { return "Spool files"; }
    const char* GetCarrierName() override { return ""; }

    /// The framework's operation: gives the failure its reason, and takes away what was delivered.
    bool ProcessCarrierSession(KvCarrierSess& session, std::string& errText) override {
        m_pSession = &session;
        if (!KvSmartAsynProtocolDriverSingleThreaded::ProcessCarrierSession(session)) {
            errText = kNoSpoolFile;
            return false;
        }
        session.m_vecMsgFileGroups.clear();
        session.m_mapGroupIndex.clear();
        return true;
    }

    bool TestSessionConnection(KvSessionConn conn) override {
        struct stat state = {};
        return fstat(DescriptorOf(conn), &state) == 0 && state.st_nlink > 0;
    }

    bool CreateSessionConnection(KvSessionConn& conn) override {
        const std::string path = m_strFolder + "/" + m_pSession->m_strCacheKey + ".spool";
        const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        conn.m_hConnection = static_cast<std::uint32_t>(descriptor);
        conn.m_bOpen = descriptor >= 0;
        return conn.m_bOpen;
    }

    bool CloseSessionConnection(KvSessionConn& conn) override { return close(DescriptorOf(conn)) == 0; }

    bool SendSessionGroup(std::list<KvMessageFile*> group) override {
        bool allWritten = true;
        for (KvMessageFile* const file : group) {
            allWritten = Deliver(file) && allWritten;
        }
        return allWritten;
    }

    /// The framework leaves the connections open.
    bool CleanupExt() override {
        for (auto& [key, session] : m_mapCarrierSessions) {
            if (session.m_sessConn.m_bOpen) {
                CloseSessionConnection(session.m_sessConn);
                session.m_sessConn.m_bOpen = false;
            }
        }
        return true;
    }

private:
    using Reports = KvMessengerReportsMngrInterface;

    static int DescriptorOf(const KvSessionConn& conn) { return static_cast<int>(conn.m_hConnection); }

    bool Deliver(KvMessageFile* file) {
        const std::string line = file->m_strRecipient + ": " + file->m_strMessage + "\n";
        const ssize_t written = write(DescriptorOf(m_pSession->m_sessConn), line.data(), line.size());
        const bool done = written == static_cast<ssize_t>(line.size());
        if (!done) {
            file->SetFailureReason(kNotWritten);
        }
        PushBackMsgFile(file, done ? Reports::REPORT_COMPLETED : Reports::REPORT_FAILED, false, "");
        return done;
    }

    const std::string m_strFolder;
    KvCarrierSess* m_pSession = nullptr;  ///< the one under way; guarded by m_pLock
};

}  // namespace kvtest
