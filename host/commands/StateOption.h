#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "StoredJob.h"

namespace kvhost {

/// The option --state of a command. One thread at a time.
class StateOption {
public:
    /// Adds the option; a text that names no state is refused when the command line is parsed.
    void Register(CLI::App& command, const std::string& description);
    std::optional<JobState> State() const;

private:
    std::string m_strName;
};

/// The state of that name, as JobStateName writes it or with "-" or "_" for the blank, such as "in-doubt"; nothing for
/// any other text.
std::optional<JobState> ParseStateName(std::string name);

}  // namespace kvhost
