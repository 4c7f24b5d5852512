#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "ConfigFindings.h"

namespace kvhost {

/// What the configuration has the host use, as lines of text; empty when the file could not be read. No password and no
/// token is in it.
std::string SummaryText(const ConfigFindings& findings);
/// The same as the JSON document that docs/commands.md describes, with the faults and notes.
nlohmann::ordered_json SummaryJson(const ConfigFindings& findings);

}  // namespace kvhost
