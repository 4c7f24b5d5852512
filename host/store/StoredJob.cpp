#include "StoredJob.h"

#include <array>

namespace kvhost {

namespace {

constexpr std::array<const char*, kJobStateCount> kStateNames = {
    "queued", "handed over", "delivered", "failed", "in doubt", "held", "cancelled"};

}  // namespace

const char* JobStateName(JobState state) {
    return kStateNames.at(static_cast<std::size_t>(state));
}

std::optional<JobState> ParseJobState(const std::string& name) {
    for (std::size_t number = 0; number < kStateNames.size(); ++number) {
        if (name == kStateNames[number]) {
            return static_cast<JobState>(number);
        }
    }
    return std::nullopt;
}

const char* AttemptOutcomeName(AttemptOutcome outcome) {
    switch (outcome) {
        case AttemptOutcome::Delivered:
            return "delivered";
        case AttemptOutcome::Failed:
            return "failed";
        case AttemptOutcome::InDoubt:
            return "in doubt";
    }
    return "unknown";
}

bool IsFinal(JobState state) {
    return state == JobState::Delivered || state == JobState::Failed || state == JobState::Cancelled;
}

}  // namespace kvhost
