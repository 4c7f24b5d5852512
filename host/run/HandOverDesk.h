#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "OutgoingMail.h"
#include "RunState.h"

namespace kvhost {

/// Hands due jobs to the driver: as many as may go now, each with its attempt on disk before. One thread at a time.
///
/// What the store throws (SQLite::Exception) passes through. Nothing has been handed over then, and what may have been
/// begun nevertheless is put back the next time.
class HandOverDesk {
public:
    /// `onComing`: as for JobFile.
    HandOverDesk(RunState& state, OutgoingMail& mail, std::function<void()> onComing)
        : m_state(state), m_mail(mail), m_onComing(std::move(onComing)) {}

    /// One go. Does nothing while the driver is busy.
    void HandOver(StoreTime now);
    /// The next moment at which a job becomes due, as the last go found it; nothing when none is known of.
    std::optional<StoreTime> NextDue() const { return m_timeNextDue; }

    /// Queued jobs by carriers that the configuration does not have, with what is wrong.
    const std::map<std::string, std::string>& UnknownCarriers() const { return m_mapUnknown; }
    /// Says again which carriers are unknown: the configuration is another one.
    void ForgetUnknownCarriers() { m_mapUnknown.clear(); }

private:
    using Loads = std::vector<SliceScheduler::TickLoad>;
    using BegunJobs = std::map<std::int64_t, StoredJob>;

    std::vector<CarrierDemand> Demands(StoreTime now);
    std::optional<CarrierDemand> DemandOf(const CarrierQueue& queue, StoreTime now);
    void NoteUnknown(const CarrierQueue& queue);
    void NoteDue(const std::optional<StoreTime>& due, StoreTime now);
    void BeginSlices(const Loads& loads, StoreTime now);
    BegunJobs BeginAttempts(const Loads& loads, StoreTime now);
    DriverLoop::TickLoad MakeLoad(const SliceScheduler::TickLoad& load, const BegunJobs& begun,
                                  StoreTime now);
    DriverLoop::TickLoad MakeFiles(const Slice& slice, const BegunJobs& begun, StoreTime now);
    JobFile* MakeFile(const StoredJob& job, std::int64_t slice, StoreTime now);
    void PutBackOrphans(StoreTime now);

    RunState& m_state;
    OutgoingMail& m_mail;
    const std::function<void()> m_onComing;
    std::optional<StoreTime> m_timeNextDue;
    std::map<std::string, std::string> m_mapUnknown;
    std::vector<std::int64_t> m_vecOrphans;  ///< begun perhaps, and surely not handed over
};

}  // namespace kvhost
