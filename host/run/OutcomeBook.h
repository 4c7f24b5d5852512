#pragma once

#include <vector>

#include "JobLedger.h"
#include "RunObserver.h"

namespace kvhost {

/// The attempts that have ended and are not on disk yet. Nothing leaves it unwritten. One thread at a time.
class OutcomeBook {
public:
    OutcomeBook(JobLedger& ledger, RunObserver& observer) : m_ledger(ledger), m_observer(observer) {}

    void Add(AttemptReport report) { m_vecEnded.push_back(std::move(report)); }
    bool IsEmpty() const { return m_vecEnded.empty(); }
    std::size_t Count() const { return m_vecEnded.size(); }

    /// Writes everything in one transaction and then tells the observer. Throws SQLite::Exception when the store cannot
    /// be written; everything stays then.
    void Write(StoreTime now);

private:
    JobLedger& m_ledger;
    RunObserver& m_observer;
    std::vector<AttemptReport> m_vecEnded;
};

}  // namespace kvhost
