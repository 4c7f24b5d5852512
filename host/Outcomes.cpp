#include "Outcomes.h"

#include <numeric>
#include <utility>

#include "ExitStatus.h"

namespace kvhost {

namespace {

bool IsOpen(OutcomeStatus status) {
    return status == OutcomeStatus::Waiting || status == OutcomeStatus::UnderWay;
}

}  // namespace

const char* StatusName(OutcomeStatus status) {
    static constexpr std::array<const char*, kOutcomeStatusCount> kNames{
        "waiting", "under way", "delivered", "failed", "refused", "rejected", "not returned", "not sent"};
    return kNames[static_cast<std::size_t>(status)];
}

std::size_t Tally::Total() const {
    return std::accumulate(m_arrCounts.begin(), m_arrCounts.end(), std::size_t{0});
}

std::size_t Outcomes::Add(Outcome outcome) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    ++m_tally.Of(outcome.status);
    m_vecOutcomes.push_back(std::move(outcome));
    return m_vecOutcomes.size() - 1;
}

void Outcomes::NoteAccepted(std::size_t index) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    Outcome& outcome = m_vecOutcomes[index];
    if (outcome.status == OutcomeStatus::Waiting) {
        --m_tally.Of(OutcomeStatus::Waiting);
        ++m_tally.Of(OutcomeStatus::UnderWay);
        outcome.status = OutcomeStatus::UnderWay;
    }
}

bool Outcomes::NoteEnded(std::size_t index, OutcomeStatus status, const std::string& reason) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    Outcome& outcome = m_vecOutcomes[index];
    if (!IsOpen(outcome.status)) {
        return false;
    }
    End(outcome, status, reason);
    return true;
}

void Outcomes::Close() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (Outcome& outcome : m_vecOutcomes) {
        if (outcome.status == OutcomeStatus::Waiting) {
            End(outcome, OutcomeStatus::NotSent, kNotHandedOver);
        } else if (outcome.status == OutcomeStatus::UnderWay) {
            End(outcome, OutcomeStatus::NotReturned, "the driver did not hand it back");
        }
    }
}

void Outcomes::End(Outcome& outcome, OutcomeStatus status, const std::string& reason) {
    --m_tally.Of(outcome.status);
    ++m_tally.Of(status);
    outcome.status = status;
    outcome.reason = reason;
}

Tally Outcomes::Count() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_tally;
}

std::vector<Outcome> Outcomes::All() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_vecOutcomes;
}

std::vector<Outcome> Outcomes::TakeAll() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::exchange(m_vecOutcomes, {});
}

int ExitStatus(const Tally& tally, bool isInputRefused) {
    if (isInputRefused || tally.Of(OutcomeStatus::Refused) != 0) {
        return kExitBadInput;
    }
    return tally.Of(OutcomeStatus::Delivered) == tally.Total() ? kExitSuccess : kExitSomeFailed;
}

std::string Summarise(const Tally& tally) {
    std::string text;
    for (std::size_t i = 0; i < kOutcomeStatusCount; ++i) {
        const auto status = static_cast<OutcomeStatus>(i);
        if (tally.Of(status) != 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(tally.Of(status)) + " " + StatusName(status);
        }
    }
    return text.empty() ? "no jobs" : text;
}

}  // namespace kvhost
