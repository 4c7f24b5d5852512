#include "SliceScheduler.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "HostConfig.h"

namespace kvhost {

namespace {

/// What the driver needs after the last file of a slice to give the connection back.
constexpr std::chrono::milliseconds kSettling{2};
/// How long a slice should take: the longest that an urgent job of the carrier waits for the place.
constexpr double kSliceMs = 250;
/// Jobs of a slice while nothing is known of the carrier's pace.
constexpr int kJobsAtFirst = 20;
/// The weight of the newest slice in the pace of its carrier.
constexpr double kNewest = 0.3;

/// The driver's defaults, for settings that are not configured.
constexpr int kWorkers = 1;
constexpr int kConnections = 10;
constexpr int kConnectionsPerCarrier = 3;

/// So many jobs has the largest of `slices` slices at least.
int Share(std::size_t jobs, int slices) {
    return (static_cast<int>(jobs) + slices - 1) / slices;
}

int SettingOf(const HostConfig& config, const char* name, int standard) {
    const auto found = config.driverSettings.find(std::string("smart_driver.") + name);
    return found == config.driverSettings.end() ? standard : std::atoi(found->second.c_str());
}

}  // namespace

SliceLimits SliceLimitsOf(const HostConfig& config) {
    const int workers = SettingOf(config, "threadpool_size", kWorkers);
    const int connections = SettingOf(config, "diff_carrier_connection_count", kConnections);
    const int ofOneCarrier = SettingOf(config, "same_carrier_connection_count", kConnectionsPerCarrier);
    const int others = config.carriers.size() > 1 ? std::max(1, workers - 1) : ofOneCarrier;
    SliceLimits limits;
    limits.perCarrier = std::min(ofOneCarrier, others);
    limits.inAll = std::min(connections, workers + (workers + 1) / 2);
    limits.jobsPerSlice = config.run.slice;
    limits.jobsInAll = config.run.maxUnderWay;
    return limits;
}

/// A carrier while slices are given out.
struct SliceScheduler::Place {
    CarrierDemand demand;
    int turn = 0;      ///< its position after the carrier whose turn was last
    int underWay = 0;  ///< slices, the ones of this plan included
    int most = 0;      ///< slices that it may have
    int given = 0;     ///< slices of this plan
    int share = 0;     ///< jobs of a slice, when few are shared out
    bool isLookedUp = false;
    std::vector<std::int64_t> jobs;  ///< due and not given yet

    bool MayHaveMore() const { return underWay < most && !(isLookedUp && jobs.empty()); }
    auto Rank() const { return std::make_tuple(!(demand.isUrgent && given == 0), underWay, turn); }
};

bool SliceScheduler::HasRoom(Time now) {
    Settle(now);
    return static_cast<int>(m_mapRunning.size()) < m_limits.inAll && m_nJobs < m_limits.jobsInAll;
}

std::vector<SliceScheduler::TickLoad> SliceScheduler::Plan(std::vector<CarrierDemand> demands,
                                                           const DueJobs& due, Time now) {
    std::vector<TickLoad> loads;
    Settle(now);
    std::sort(demands.begin(), demands.end(), [](const CarrierDemand& left, const CarrierDemand& right) {
        return left.carrier < right.carrier;
    });
    std::vector<Place> places = PlacesFor(demands);
    int slices = m_limits.inAll - static_cast<int>(m_mapRunning.size());
    int jobs = m_limits.jobsInAll - m_nJobs;
    while (slices > 0 && jobs > 0) {
        const auto next =
            std::min_element(places.begin(), places.end(), [](const Place& left, const Place& right) {
                return std::make_tuple(!left.MayHaveMore(), left.Rank()) <
                       std::make_tuple(!right.MayHaveMore(), right.Rank());
            });
        if (next == places.end() || !next->MayHaveMore()) {
            break;
        }
        if (Fill(*next, due, jobs, loads)) {
            jobs -= static_cast<int>(loads[static_cast<std::size_t>(next->given) - 1].back().jobs.size());
            --slices;
        }
    }
    return loads;
}

std::vector<SliceScheduler::Place> SliceScheduler::PlacesFor(
    const std::vector<CarrierDemand>& demands) const {
    const auto count = static_cast<int>(demands.size());
    const auto isAfterLast = [this](const CarrierDemand& demand) { return demand.carrier > m_strLast; };
    const auto first =
        static_cast<int>(std::find_if(demands.begin(), demands.end(), isAfterLast) - demands.begin());
    std::vector<Place> places;
    for (int i = 0; i < count; ++i) {
        Place place;
        place.demand = demands[static_cast<std::size_t>(i)];
        place.turn = (i - first + count) % count;
        place.underWay = SlicesOf(place.demand.carrier);
        place.most =
            place.demand.trial ? std::min(place.underWay + 1, m_limits.perCarrier) : m_limits.perCarrier;
        places.push_back(std::move(place));
    }
    return places;
}

/// Gives the carrier one slice. False when it has nothing due after all.
bool SliceScheduler::Fill(Place& place, const DueJobs& due, int room, std::vector<TickLoad>& loads) {
    const int size = place.demand.trial.value_or(SliceSize(place.demand.carrier));
    if (!place.isLookedUp) {
        place.isLookedUp = true;
        place.jobs = due(place.demand.carrier, std::min(room, size * (place.most - place.underWay)));
        if (place.jobs.empty()) {
            return false;
        }
        place.share = std::max(Share(place.jobs.size(), place.most - place.underWay), kJobsAtFirst);
    }
    const auto end =
        place.jobs.begin() + std::min(static_cast<std::ptrdiff_t>(std::min({size, place.share, room})),
                                      static_cast<std::ptrdiff_t>(place.jobs.size()));
    if (loads.size() <= static_cast<std::size_t>(place.given)) {
        loads.emplace_back();
    }
    loads[static_cast<std::size_t>(place.given)].push_back(
        {m_nNextId++, place.demand.carrier, {place.jobs.begin(), end}});
    place.jobs.erase(place.jobs.begin(), end);
    ++place.given;
    ++place.underWay;
    m_strLast = place.demand.carrier;
    return true;
}

void SliceScheduler::Begin(const Slice& slice, int files, Time now) {
    m_mapRunning[slice.id] = {slice.carrier, static_cast<int>(slice.jobs.size()), files, now, {}};
    m_nJobs += files;
}

std::optional<std::string> SliceScheduler::NoteBack(std::int64_t slice, Time now) {
    const auto found = m_mapRunning.find(slice);
    if (found == m_mapRunning.end() || found->second.missing == 0) {
        return std::nullopt;
    }
    --m_nJobs;
    if (--found->second.missing > 0) {
        return std::nullopt;
    }
    found->second.freeAt = now + kSettling;
    NotePace(found->second, now);
    return found->second.carrier;
}

int SliceScheduler::UnderWay(const std::string& carrier) const {
    int jobs = 0;
    for (const auto& [id, slice] : m_mapRunning) {
        jobs += slice.carrier == carrier ? slice.missing : 0;
    }
    return jobs;
}

std::optional<SliceScheduler::Time> SliceScheduler::NextFree() const {
    std::optional<Time> next;
    for (const auto& [id, slice] : m_mapRunning) {
        if (slice.missing == 0 && (!next || slice.freeAt < *next)) {
            next = slice.freeAt;
        }
    }
    return next;
}

void SliceScheduler::Settle(Time now) {
    std::erase_if(m_mapRunning, [now](const auto& entry) {
        return entry.second.missing == 0 && entry.second.freeAt <= now;
    });
}

int SliceScheduler::SlicesOf(const std::string& carrier) const {
    return static_cast<int>(std::count_if(m_mapRunning.begin(), m_mapRunning.end(), [&](const auto& entry) {
        return entry.second.carrier == carrier;
    }));
}

int SliceScheduler::SliceSize(const std::string& carrier) const {
    const auto pace = m_mapPace.find(carrier);
    if (pace == m_mapPace.end()) {
        return std::min(kJobsAtFirst, m_limits.jobsPerSlice);
    }
    if (pace->second * m_limits.jobsPerSlice <= kSliceMs) {
        return m_limits.jobsPerSlice;
    }
    return std::max(1, static_cast<int>(kSliceMs / pace->second));
}

void SliceScheduler::NotePace(const Running& slice, Time now) {
    const double took = std::chrono::duration<double, std::milli>(now - slice.begun).count();
    const double pace = took / slice.jobs;
    const auto [entry, isNew] = m_mapPace.try_emplace(slice.carrier, pace);
    if (!isNew) {
        entry->second += kNewest * (pace - entry->second);
    }
}

}  // namespace kvhost
