#include "HandOverDesk.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

namespace kvhost {

namespace {

/// When a job is tried again whose content could not be read.
constexpr Milliseconds kUntilNextLook{60000};

}  // namespace

void HandOverDesk::HandOver(StoreTime now) {
    m_timeNextDue.reset();
    PutBackOrphans(now);
    if (!m_state.driver.Look().isReady || !m_state.slices.HasRoom(RunState::Clock::now())) {
        return;
    }
    std::vector<CarrierDemand> demands = Demands(now);
    if (demands.empty()) {
        return;
    }
    const auto due = [this, now](const std::string& carrier, int limit) {
        return m_state.ledger.Due(carrier, now, limit);
    };
    const Loads loads = m_state.slices.Plan(std::move(demands), due, RunState::Clock::now());
    if (!loads.empty()) {
        BeginSlices(loads, now);
    }
}

std::vector<CarrierDemand> HandOverDesk::Demands(StoreTime now) {
    std::vector<CarrierDemand> demands;
    for (const CarrierQueue& queue : m_state.ledger.Queues()) {
        if (m_state.config->carriers.count(queue.carrier) == 0) {
            NoteUnknown(queue);
        } else if (auto demand = DemandOf(queue, now)) {
            demands.push_back(std::move(*demand));
        }
    }
    return demands;
}

std::optional<CarrierDemand> HandOverDesk::DemandOf(const CarrierQueue& queue, StoreTime now) {
    NoteDue(queue.urgentDue, now);
    NoteDue(queue.ordinaryDue, now);
    const bool isUrgent = queue.urgentDue && *queue.urgentDue <= now;
    if (!isUrgent && !(queue.ordinaryDue && *queue.ordinaryDue <= now)) {
        return std::nullopt;
    }
    const auto permit = m_state.carriers.Ask(queue.carrier, RunState::Clock::now());
    if (permit == CarrierHealth::Permit::None) {
        return std::nullopt;
    }
    return CarrierDemand{queue.carrier, isUrgent,
                         permit == CarrierHealth::Permit::One ? std::optional<int>(1) : std::nullopt};
}

void HandOverDesk::NoteUnknown(const CarrierQueue& queue) {
    const auto refused = m_state.config->refusedCarriers.find(queue.carrier);
    const std::string why = refused == m_state.config->refusedCarriers.end()
                                ? "the configuration has no carrier of this name"
                                : "the configuration of this carrier is refused: " + refused->second;
    if (m_mapUnknown.try_emplace(queue.carrier, why).second) {
        m_state.log.Warn(std::to_string(queue.jobs) + " queued jobs wait for the carrier " + queue.carrier +
                         ": " + why);
    }
}

// What is due already waits for something else: a place, the driver, a carrier that answers. Those wake us themselves.
void HandOverDesk::NoteDue(const std::optional<StoreTime>& due, StoreTime now) {
    if (due && *due > now && (!m_timeNextDue || *due < *m_timeNextDue)) {
        m_timeNextDue = due;
    }
}

void HandOverDesk::BeginSlices(const Loads& loads, StoreTime now) {
    const BegunJobs begun = BeginAttempts(loads, now);
    std::vector<DriverLoop::TickLoad> files;
    for (const SliceScheduler::TickLoad& load : loads) {
        if (DriverLoop::TickLoad made = MakeLoad(load, begun, now); !made.empty()) {
            files.push_back(std::move(made));
        }
    }
    m_vecOrphans.clear();
    std::vector<const StoredJob*> jobs;
    for (const DriverLoop::TickLoad& load : files) {
        std::transform(load.begin(), load.end(), std::back_inserter(jobs),
                       [this](const KvMessageFile* file) { return &m_state.files.Find(file)->Job(); });
    }
    if (!files.empty()) {
        m_state.driver.HandOver(std::move(files));
    }
    // A file that is back already is kept a while, so its job can still be told about.
    for (const StoredJob* job : jobs) {
        m_state.observer.JobHandedOver(*job, std::max(now - job->due, Milliseconds(0)));
    }
}

HandOverDesk::BegunJobs HandOverDesk::BeginAttempts(const Loads& loads, StoreTime now) {
    for (const SliceScheduler::TickLoad& load : loads) {
        for (const Slice& slice : load) {
            m_vecOrphans.insert(m_vecOrphans.end(), slice.jobs.begin(), slice.jobs.end());
        }
    }
    const auto before = RunState::Clock::now();
    BegunJobs begun;
    for (StoredJob& job : m_state.ledger.BeginAttempts(m_vecOrphans, now)) {
        const std::int64_t key = job.key;
        begun.emplace(key, std::move(job));
    }
    m_state.observer.StoreWritten(
        std::chrono::duration_cast<std::chrono::microseconds>(RunState::Clock::now() - before));
    return begun;
}

DriverLoop::TickLoad HandOverDesk::MakeLoad(const SliceScheduler::TickLoad& load, const BegunJobs& begun,
                                            StoreTime now) {
    DriverLoop::TickLoad all;
    for (const Slice& slice : load) {
        const DriverLoop::TickLoad files = MakeFiles(slice, begun, now);
        if (!files.empty()) {
            m_state.slices.Begin(slice, static_cast<int>(files.size()), RunState::Clock::now());
            m_state.carriers.HandedOver(slice.carrier);
            all.insert(all.end(), files.begin(), files.end());
        }
    }
    return all;
}

DriverLoop::TickLoad HandOverDesk::MakeFiles(const Slice& slice, const BegunJobs& begun, StoreTime now) {
    DriverLoop::TickLoad files;
    for (const std::int64_t key : slice.jobs) {
        const auto found = begun.find(key);
        if (found == begun.end()) {
            continue;
        }
        if (JobFile* file = MakeFile(found->second, slice.id, now)) {
            files.push_back(file);
        }
    }
    return files;
}

/// Null when the job cannot be handed over; its attempt has ended then.
JobFile* HandOverDesk::MakeFile(const StoredJob& job, std::int64_t slice, StoreTime now) {
    auto file = std::make_unique<JobFile>(job, m_state.config->carriers.at(job.carrier), slice, m_onComing);
    try {
        m_mail.Fill(*file, m_state.ledger.Content(job.key));
        return &m_state.files.Add(std::move(file));
    } catch (const AttachmentError& error) {
        m_state.log.Warn("job " + job.id + " cannot be handed over: " + error.what());
        m_state.outcomes.Add(AttemptJudge::GiveUp(job, error.what(), now));
    } catch (const std::exception& error) {
        m_state.log.Warn("job " + job.id + " cannot be read: " + error.what());
        m_state.outcomes.Add(AttemptJudge::PutBack(job, error.what(), now, now + kUntilNextLook));
    }
    return nullptr;
}

/// A commit that failed may be on disk all the same: then the jobs are handed over by the book, and nobody has them.
void HandOverDesk::PutBackOrphans(StoreTime now) {
    if (m_vecOrphans.empty()) {
        return;
    }
    std::vector<AttemptEnd> ends;
    for (const std::int64_t key : m_vecOrphans) {
        ends.push_back({key, AttemptOutcome::Failed, "the store could not be written", JobState::Queued, now,
                        "queued again: it never was with the driver"});
    }
    m_state.ledger.EndAttempts(ends, now);
    m_vecOrphans.clear();
}

}  // namespace kvhost
