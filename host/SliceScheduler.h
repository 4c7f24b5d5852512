#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kvhost {

struct HostConfig;

/// How much may be with the driver at the same time. Immutable value.
struct SliceLimits {
    int perCarrier = 3;      ///< slices of one carrier
    int inAll = 2;           ///< slices of all carriers
    int jobsPerSlice = 100;  ///< of a carrier that is known to be fast enough for it
    int jobsInAll = 1000;
};

/// The limits that follow from the driver's own: a slice takes a connection and a worker. A few slices more than workers
/// go out, so that a worker finds the next one waiting; one carrier never takes all workers when there is another.
SliceLimits SliceLimitsOf(const HostConfig& config);

/// A carrier that has jobs due. Immutable value.
struct CarrierDemand {
    std::string carrier = {};
    bool isUrgent = false;  ///< one of them is urgent
    /// The carrier is to be tried first: with one slice of so many jobs at most, whatever its pace.
    std::optional<int> trial = {};
};

/// Jobs of one carrier that go over one connection.
struct Slice {
    std::int64_t id = 0;
    std::string carrier;
    std::vector<std::int64_t> jobs;  ///< keys
};

/// Decides which jobs go to the driver next. It knows no clock and no store: the caller passes the moment and looks the
/// jobs up. One thread at a time.
///
/// Carriers with an urgent job come first, then those with the fewest slices under way, then in turn. A slice begins
/// small and is as large as the carrier is fast, so that what comes after it does not wait long. A slice that is back
/// occupies its place a moment longer: the driver gives its connection back after the last file.
class SliceScheduler {
public:
    using Time = std::chrono::steady_clock::time_point;
    /// Keys of jobs of the carrier that are due, at most so many, the urgent ones first.
    using DueJobs = std::function<std::vector<std::int64_t>(const std::string& carrier, int limit)>;
    /// Slices that the driver may get between two ticks: no carrier twice.
    using TickLoad = std::vector<Slice>;

    explicit SliceScheduler(const SliceLimits& limits) : m_limits(limits) {}
    void SetLimits(const SliceLimits& limits) { m_limits = limits; }

    /// True when a further slice may go.
    bool HasRoom(Time now);
    /// The slices that may go now, tick by tick. None of them is under way before Begin.
    std::vector<TickLoad> Plan(std::vector<CarrierDemand> demands, const DueJobs& due, Time now);

    /// So many files of the slice's jobs are with the driver from now on, at least one.
    void Begin(const Slice& slice, int files, Time now);
    /// One file of the slice is back. Answers the carrier of the slice when that was the last one.
    std::optional<std::string> NoteBack(std::int64_t slice, Time now);

    int UnderWay() const { return m_nJobs; }
    int UnderWay(const std::string& carrier) const;
    /// When the next place of a slice that is back becomes free; nothing when none waits for that.
    std::optional<Time> NextFree() const;

private:
    struct Running {
        std::string carrier;
        int jobs = 0;     ///< in all
        int missing = 0;  ///< files
        Time begun;
        Time freeAt;  ///< meaningful once nothing is missing
    };
    struct Place;

    void Settle(Time now);
    int SlicesOf(const std::string& carrier) const;
    int SliceSize(const std::string& carrier) const;
    void NotePace(const Running& slice, Time now);
    std::vector<Place> PlacesFor(const std::vector<CarrierDemand>& demands) const;
    bool Fill(Place& place, const DueJobs& due, int room, std::vector<TickLoad>& loads);

    SliceLimits m_limits;
    std::map<std::int64_t, Running> m_mapRunning;
    std::map<std::string, double> m_mapPace;  ///< milliseconds for a job, smoothed
    std::string m_strLast;                    ///< the carrier whose turn was last
    std::int64_t m_nNextId = 1;
    int m_nJobs = 0;
};

}  // namespace kvhost
