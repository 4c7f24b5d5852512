#include "StoreWatch.h"

#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "StoreRows.h"

namespace kvhost {

namespace {

void AppendFirst(StoreDatabase& store, JobState state, std::vector<StoredJob>& jobs) {
    SQLite::Statement rows(store.Connection(),
                           std::string("SELECT ") + kJobColumns +
                               " FROM job JOIN submission ON submission.key = job.submission "
                               "WHERE job.state = ? ORDER BY job.key LIMIT ?");
    rows.bind(1, static_cast<int>(state));
    rows.bind(2, StoreWatch::kWaitingShown);
    while (rows.executeStep()) {
        jobs.push_back(ReadJob(rows));
    }
}

// One query for each state: only then the index gives the first ones without a look at all the others.
std::vector<StoredJob> FirstWaiting(StoreDatabase& store) {
    std::vector<StoredJob> jobs;
    for (const JobState state : {JobState::Queued, JobState::Held, JobState::InDoubt}) {
        AppendFirst(store, state, jobs);
    }
    std::sort(jobs.begin(), jobs.end(),
              [](const StoredJob& left, const StoredJob& right) { return left.key < right.key; });
    jobs.resize(std::min<std::size_t>(jobs.size(), StoreWatch::kWaitingShown));
    return jobs;
}

}  // namespace

StoreWatch::StoreWatch(std::filesystem::path folder, std::chrono::milliseconds maxAge)
    : m_pathFolder(std::move(folder)), m_msMaxAge(maxAge) {}

std::shared_ptr<const StoreFigures> StoreWatch::Get() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto now = std::chrono::steady_clock::now();
    if (m_pFigures == nullptr || now - m_timeRead >= m_msMaxAge) {
        m_pFigures = std::make_shared<const StoreFigures>(ReadOrTell());
        m_timeRead = now;
    }
    return m_pFigures;
}

StoreFigures StoreWatch::ReadOrTell() {
    try {
        return Read();
    } catch (const std::exception& error) {
        m_pStore.reset();
        StoreFigures figures;
        figures.trouble = error.what();
        return figures;
    }
}

StoreFigures StoreWatch::Read() {
    if (m_pStore == nullptr) {
        m_pStore = std::make_unique<StoreDatabase>(m_pathFolder, StoreDatabase::Access::Existing);
    }
    const StoreRead snapshot(*m_pStore);
    JobViews views(*m_pStore);
    StoreFigures figures;
    figures.jobs = views.CountByCarrier();
    figures.oldestQueued = views.OldestQueued();
    figures.waiting = FirstWaiting(*m_pStore);
    return figures;
}

}  // namespace kvhost
