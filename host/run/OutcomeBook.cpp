#include "OutcomeBook.h"

#include <chrono>
#include <utility>

namespace kvhost {

void OutcomeBook::Write(StoreTime now) {
    if (m_vecEnded.empty()) {
        return;
    }
    std::vector<AttemptEnd> ends;
    for (const AttemptReport& report : m_vecEnded) {
        ends.push_back(
            {report.job.key, report.outcome, report.reason, report.next, report.due, report.decision});
    }
    const auto begun = std::chrono::steady_clock::now();
    m_ledger.EndAttempts(ends, now);
    m_observer.StoreWritten(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begun));
    for (AttemptReport& report : std::exchange(m_vecEnded, {})) {
        report.ended = now;
        m_observer.AttemptEnded(report);
    }
}

}  // namespace kvhost
