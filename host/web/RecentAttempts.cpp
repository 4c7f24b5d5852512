#include "RecentAttempts.h"

namespace kvhost {

namespace {

constexpr std::int64_t kMinuteMs = 60000;

StoreTime MinuteOf(StoreTime time) {
    return FromNumber(ToNumber(time) / kMinuteMs * kMinuteMs);
}

std::size_t PlaceOf(StoreTime minute) {
    return static_cast<std::size_t>(ToNumber(minute) / kMinuteMs % RecentAttempts::kMinutes);
}

}  // namespace

void RecentAttempts::AttemptEnded(const AttemptReport& report) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    Count(report);
    if (report.outcome == AttemptOutcome::Delivered) {
        return;
    }
    m_deqFailures.push_front({report.ended, report.job.id, report.job.carrier, report.job.recipient,
                              report.number, report.reason.substr(0, kTextBytes), report.next,
                              report.decision.substr(0, kTextBytes)});
    if (m_deqFailures.size() > kFailures) {
        m_deqFailures.pop_back();
    }
}

void RecentAttempts::Count(const AttemptReport& report) {
    const StoreTime minute = MinuteOf(report.ended);
    MinuteFigures& figures = m_arrMinutes[PlaceOf(minute)];
    if (figures.begin != minute) {
        figures = {};
        figures.begin = minute;
    }
    if (report.next == JobState::Delivered) {
        ++figures.delivered;
    } else if (report.next == JobState::Queued) {
        ++figures.retried;
    } else {
        ++figures.failed;
    }
}

std::vector<RecentFailure> RecentAttempts::Failures() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return {m_deqFailures.begin(), m_deqFailures.end()};
}

std::vector<MinuteFigures> RecentAttempts::LastHour(StoreTime now) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<MinuteFigures> hour;
    for (std::int64_t back = kMinutes - 1; back >= 0; --back) {
        const StoreTime minute = MinuteOf(now) - std::chrono::minutes(back);
        const MinuteFigures& kept = m_arrMinutes[PlaceOf(minute)];
        hour.push_back(kept.begin == minute ? kept : MinuteFigures{minute, 0, 0, 0});
    }
    return hour;
}

}  // namespace kvhost
