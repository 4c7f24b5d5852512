#include "Runner.h"

#include <SQLiteCpp/Exception.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <utility>

#include "ExpiredJobs.h"

namespace kvhost {

namespace {

/// How often it looks around although nothing happened: the store may have changed without a ring.
constexpr Milliseconds kHeartbeat{500};
/// Between two looks for a file that was announced.
constexpr Milliseconds kMoment{1};
/// Jobs whose deadline has passed are failed so many at a time.
constexpr int kExpiredAtOnce = 500;
/// How long outcomes that cannot be written keep a stop from ending.
constexpr std::chrono::seconds kLastWrites{10};

}  // namespace

Runner::Runner(const Parts& parts, std::shared_ptr<const HostConfig> config, StoreTime started)
    : m_parts(parts),
      m_state({parts.ledger, parts.driver, parts.wakeUp, parts.log, parts.observer, parts.secrets},
              std::move(config)),
      m_returns(m_state, parts.returned),
      m_handOver(m_state, parts.mail,
                 [this] {
                     m_returns.NoteComing();
                     m_parts.wakeUp.Wake();
                 }),
      m_watchdog(parts.notifier.WatchdogInterval()) {
    m_snapshot.started = started;
    Publish();
}

Runner::End Runner::Run() {
    while (IsRunning()) {
        Round();
        Wait();
    }
    WaitForWhatIsUnderWay();
    const bool isReleased = CleanUp();
    WriteLast();
    Publish();
    if (!isReleased) {
        return End::Stuck;
    }
    return m_state.driver.Look().error.empty() ? End::Clean : End::DriverFailed;
}

void Runner::RequestStop() {
    ++m_nStopRequests;
    m_parts.wakeUp.Wake();
}

void Runner::RequestReload() {
    m_bReload = true;
    m_parts.wakeUp.Wake();
}

bool Runner::IsDriverWell() const {
    const DriverLoop::View view = m_state.driver.Look();
    return !view.isDone && view.error.empty();
}

void Runner::Round() {
    if (m_bReload.exchange(false)) {
        AdoptReload();
    }
    m_timeRound = Clock::now();
    const StoreTime now = StoreNow();
    m_returns.Collect(now);
    m_state.carriers.Look(Clock::now());
    UseStore(now);
    Publish();
}

// Outcomes come first: while they cannot be written, nothing more goes out.
void Runner::UseStore(StoreTime now) {
    if (!m_trouble.MayTry(Clock::now())) {
        return;
    }
    try {
        m_state.outcomes.Write(now);
        if (IsRunning()) {
            ExpireOverdue(now);
            m_handOver.HandOver(now);
        }
        if (m_trouble.Clear()) {
            m_parts.log.Warn("the job store can be used again");
        }
    } catch (const SQLite::Exception& error) {
        if (m_trouble.Note(error.what(), Clock::now())) {
            m_parts.log.Warn(std::string("the job store cannot be used: ") + error.what() +
                             "; nothing is handed over until it can, and no outcome is lost");
        }
    }
}

void Runner::ExpireOverdue(StoreTime now) {
    m_timeNextDeadline = m_state.ledger.NextDeadline();
    if (m_timeNextDeadline && *m_timeNextDeadline <= now) {
        TellExpired(m_state.ledger.ExpireOverdue(now, kExpiredAtOnce), m_parts.log, m_parts.observer);
        m_timeNextDeadline = m_state.ledger.NextDeadline();
    }
}

void Runner::AdoptReload() {
    m_parts.notifier.Reloading();
    if (auto config = m_parts.reload(*m_state.config)) {
        m_state.config = std::move(config);
        m_state.slices.SetLimits(SliceLimitsOf(*m_state.config));
        m_state.carriers.Adopt(*m_state.config);
        m_state.driver.SetTick(m_state.config->run.tick);
        m_handOver.ForgetUnknownCarriers();
    }
    m_parts.notifier.Ready("running");
}

void Runner::Publish() {
    const DriverLoop::View view = m_state.driver.Look();
    const Clock::time_point now = Clock::now();
    m_snapshot.phase = m_nStopRequests > 0 || view.isDone ? RunSnapshot::Phase::Stopping
                       : view.isStarted                   ? RunSnapshot::Phase::Running
                                                          : RunSnapshot::Phase::Starting;
    m_snapshot.driver = view.description;
    m_snapshot.lastRound = StoreNow();
    m_snapshot.lastTick = std::chrono::time_point_cast<Milliseconds>(view.lastTick);
    m_snapshot.underWay = m_state.slices.UnderWay();
    m_snapshot.storeTrouble = m_trouble.Text();
    m_snapshot.carriers = m_state.carriers.Status(now);
    for (auto& [name, status] : m_snapshot.carriers) {
        status.underWay = m_state.slices.UnderWay(name);
    }
    for (const auto& [name, why] : m_handOver.UnknownCarriers()) {
        m_snapshot.carriers[name] = {0, true, m_snapshot.lastRound, why};
    }
    m_parts.status.Set(m_snapshot);
    TellManager(view, now);
}

void Runner::TellManager(const DriverLoop::View& view, Clock::time_point now) {
    if (m_snapshot.phase == RunSnapshot::Phase::Running && !m_bReadyTold) {
        m_bReadyTold = true;
        m_parts.notifier.Ready("running");
        m_parts.log.Tell("running");
    }
    if (m_watchdog.IsToBeTold(view.inCallSince, now)) {
        m_parts.notifier.StillAlive();
    }
}

void Runner::Wait() {
    std::array<pollfd, 2> waits{
        {{m_parts.doorbell.Descriptor(), POLLIN, 0}, {m_parts.wakeUp.Descriptor(), POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), static_cast<int>(TimeToWait().count()));
    m_parts.doorbell.Answer();
    m_parts.wakeUp.Answer();
}

/// The time to the next thing that is known to happen.
Milliseconds Runner::TimeToWait() {
    if (m_returns.ExpectsMore()) {
        return kMoment;
    }
    if (!m_state.outcomes.IsEmpty() && m_trouble.Text().empty()) {
        return Milliseconds(0);
    }
    Milliseconds wait = std::min(kHeartbeat, m_parts.notifier.WatchdogInterval().value_or(kHeartbeat) / 2);
    const bool looksAhead = m_trouble.Text().empty() && IsRunning();
    for (const std::optional<StoreTime>& moment : {m_handOver.NextDue(), m_timeNextDeadline}) {
        wait = looksAhead && moment ? std::min(wait, *moment - StoreNow()) : wait;
    }
    // What lies before the last round was looked at in it: if it still stands, it waits for something else.
    for (const std::optional<Clock::time_point>& moment :
         {m_state.slices.NextFree(), m_state.carriers.NextProbe(), m_trouble.Next()}) {
        if (moment && *moment > m_timeRound) {
            wait = std::min(wait, std::chrono::ceil<Milliseconds>(*moment - Clock::now()));
        }
    }
    return std::max(wait, Milliseconds(0));
}

void Runner::WaitForWhatIsUnderWay() {
    m_parts.notifier.Stopping("waiting for " + std::to_string(m_state.slices.UnderWay()) + " jobs");
    m_parts.log.Tell("stopping; " + std::to_string(m_state.slices.UnderWay()) + " jobs are with the driver");
    const Clock::time_point end = Clock::now() + m_state.config->run.stopLimit;
    while (m_state.files.Count() > 0 && m_nStopRequests < 2 && Clock::now() < end && IsDriverWell()) {
        Round();
        Wait();
    }
}

/// False when the driver does not come back from its clean-up in time.
bool Runner::CleanUp() {
    m_returns.BeginCleanUp();
    m_state.driver.Finish();
    const Clock::time_point end = Clock::now() + m_state.config->run.cleanUpLimit;
    bool isReleased = m_state.driver.WaitUntilDone(Milliseconds(0));
    while (!isReleased && Clock::now() < end) {
        Round();
        isReleased = m_state.driver.WaitUntilDone(std::min(kHeartbeat, Milliseconds(100)));
    }
    m_returns.Collect(StoreNow());
    return isReleased;
}

void Runner::WriteLast() {
    const Clock::time_point end = Clock::now() + kLastWrites;
    UseStore(StoreNow());
    while (!m_state.outcomes.IsEmpty() && Clock::now() < end) {
        Wait();
        UseStore(StoreNow());
    }
    if (!m_state.outcomes.IsEmpty()) {
        m_parts.log.Warn(std::to_string(m_state.outcomes.Count()) +
                         " outcomes could not be written; the next start takes these jobs for in doubt");
    }
    if (m_state.files.Count() > 0) {
        m_parts.log.Warn(std::to_string(m_state.files.Count()) +
                         " jobs did not come back; the next start decides about them");
    }
}

}  // namespace kvhost
