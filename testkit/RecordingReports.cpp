#include "RecordingReports.h"

#include <algorithm>
#include <iterator>

namespace kvtest {

bool RecordingReports::WriteReport(KvMessageFile* msgFile, ReportsStatus status, const std::string& text) {
    const std::lock_guard lock(m_mutex);
    m_entries.push_back({msgFile, status, text});
    m_added.notify_all();
    return m_result;
}

void RecordingReports::answerWith(bool result) {
    const std::lock_guard lock(m_mutex);
    m_result = result;
}

std::vector<ReportEntry> RecordingReports::entries() const {
    const std::lock_guard lock(m_mutex);
    return m_entries;
}

std::vector<ReportEntry> RecordingReports::entriesOf(const KvMessageFile* file) const {
    std::vector<ReportEntry> result;
    std::ranges::copy_if(entries(), std::back_inserter(result),
                         [&](const ReportEntry& entry) { return entry.file == file; });
    return result;
}

int RecordingReports::count() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_entries.size());
}

bool RecordingReports::waitFor(int n, std::chrono::milliseconds bound) const {
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, bound, [&] { return static_cast<int>(m_entries.size()) >= n; });
}

}  // namespace kvtest
