#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "KvMessengerReportsMngrInterface.h"

namespace kvtest {

struct ReportEntry {
    KvMessageFile* file = nullptr;
    KvMessengerReportsMngrInterface::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
    std::string text;
};

/// A report writer that keeps every entry. Thread-safe.
///
///     RecordingReports reports;
///     driver->m_pReportsMngr = &reports;
class RecordingReports : public KvMessengerReportsMngrInterface {
public:
    static constexpr std::chrono::milliseconds DefaultBound{10000};

    // KvMessengerReportsMngrInterface
    bool WriteReport(KvMessageFile* msgFile, ReportsStatus status, const std::string& text) override;

    /// What WriteReport answers from now on; true at first.
    void answerWith(bool result);

    std::vector<ReportEntry> entries() const;
    std::vector<ReportEntry> entriesOf(const KvMessageFile* file) const;
    int count() const;
    bool waitFor(int n, std::chrono::milliseconds bound = DefaultBound) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_added;
    // Guarded by m_mutex.
    std::vector<ReportEntry> m_entries;
    bool m_result = true;
};

}  // namespace kvtest
