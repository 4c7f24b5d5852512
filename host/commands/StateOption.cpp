#include "StateOption.h"

#include <algorithm>

namespace kvhost {

namespace {

std::string WhyNotAState(const std::string& name) {
    return ParseStateName(name)
               ? ""
               : "expected queued, handed-over, delivered, failed, in-doubt, held or cancelled";
}

}  // namespace

void StateOption::Register(CLI::App& command, const std::string& description) {
    command.add_option("--state", m_strName, description)->check(WhyNotAState);
}

std::optional<JobState> StateOption::State() const {
    return m_strName.empty() ? std::nullopt : ParseStateName(m_strName);
}

std::optional<JobState> ParseStateName(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '-' || c == '_'; }, ' ');
    return ParseJobState(name);
}

}  // namespace kvhost
