#include "CarrierHealth.h"

#include <algorithm>

namespace kvhost {

namespace {

/// How long a sign of life counts.
constexpr std::chrono::seconds kFresh{30};
constexpr int kMostDoublings = 6;

/// 1 s after the first failure, then twice as long each time, up to 60 s.
std::chrono::seconds PauseAfter(int failures) {
    return std::min(std::chrono::seconds(60),
                    std::chrono::seconds(1 << std::clamp(failures - 1, 0, kMostDoublings)));
}

}  // namespace

CarrierHealth::Permit CarrierHealth::Ask(Time now) const {
    if (!IsFresh(now)) {
        return Permit::None;
    }
    if (m_bTrouble) {
        return m_bTrial ? Permit::None : Permit::One;
    }
    return Permit::All;
}

bool CarrierHealth::WantsProbe(bool hasJobs, Time now) const {
    if (m_bProbing || m_bTrial || IsFresh(now)) {
        return false;
    }
    return m_bTrouble && !m_timeSign ? now >= m_timeProbe : hasJobs;
}

std::optional<CarrierHealth::Time> CarrierHealth::NextProbe() const {
    const bool isSet = m_bTrouble && !m_bProbing && !m_bTrial && !m_timeSign;
    return isSet ? std::optional<Time>(m_timeProbe) : std::nullopt;
}

// A refusal is no reason to keep a job back: the driver would meet it without delay, and its words go into the history.
// But one job is enough to find that out.
void CarrierHealth::ProbeEnded(const ProbeResult& result, Time now) {
    m_bProbing = false;
    if (result.kind == ProbeResult::Kind::Answers) {
        m_timeSign = now;
        return;
    }
    const bool isFirstRefusal = !m_bTrouble && result.kind == ProbeResult::Kind::Refuses;
    if (!m_bTrouble) {
        BeginTrouble(result.text, now);
    }
    m_strTrouble = result.text;
    if (isFirstRefusal) {
        m_timeSign = now;
        return;
    }
    m_timeSign.reset();
    ++m_nFailures;
    m_timeProbe = now + PauseAfter(m_nFailures);
}

void CarrierHealth::HandedOver() {
    m_bTrial = m_bTrouble;
}

void CarrierHealth::Reached(Time handedOver, Time now) {
    if (m_bTrouble && handedOver < m_timeTrouble) {
        return;
    }
    m_timeSign = now;
    m_bTrouble = false;
    m_bTrial = false;
    m_nFailures = 0;
    m_strTrouble.clear();
}

// What was handed over before the trouble began tells nothing new. After the first failure the probe comes at once: a
// connection that broke off once may be all there was.
void CarrierHealth::Failed(Time handedOver, const std::string& reason, Time now) {
    if (m_bTrouble && handedOver < m_timeTrouble) {
        return;
    }
    if (!m_bTrouble) {
        BeginTrouble(reason, now);
    }
    m_strTrouble = reason;
    m_timeSign.reset();
    m_timeProbe = m_nFailures == 0 ? now : now + PauseAfter(m_nFailures);
    ++m_nFailures;
}

bool CarrierHealth::IsFresh(Time now) const {
    return m_timeSign && now - *m_timeSign < kFresh;
}

void CarrierHealth::BeginTrouble(const std::string& why, Time now) {
    m_bTrouble = true;
    m_timeTrouble = now;
    m_strTrouble = why;
}

}  // namespace kvhost
