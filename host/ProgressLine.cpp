#include "ProgressLine.h"

namespace kvhost {

namespace {

constexpr const char* kWipe = "\r\033[K";

}  // namespace

void ProgressLine::Show(const Tally& tally) {
    if (m_bEnabled) {
        m_stream << kWipe << ProgressText(tally) << std::flush;
        m_bShown = true;
    }
}

void ProgressLine::Wipe() {
    if (m_bShown) {
        m_stream << kWipe << std::flush;
        m_bShown = false;
    }
}

std::string ProgressText(const Tally& tally) {
    const std::size_t open = tally.Of(OutcomeStatus::Waiting) + tally.Of(OutcomeStatus::UnderWay);
    return std::to_string(tally.Total() - open) + " of " + std::to_string(tally.Total()) +
           " done: " + Summarise(tally);
}

}  // namespace kvhost
