#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "JobViews.h"
#include "StoredJob.h"

namespace kvhost {

// The forms in which commands answer in JSON; docs/commands.md describes them.

/// RFC 3339 in UTC, or null.
nlohmann::ordered_json JsonOf(const std::optional<StoreTime>& time);
nlohmann::ordered_json JsonOf(const StoredJob& job);
/// The job with its attempts, events and attachments, and with the text when that is wanted.
nlohmann::ordered_json JsonOf(const JobHistory& history, bool withText);
/// Every state with its number, in the order of JobState.
nlohmann::ordered_json JsonOf(const StateCounts& counts);

/// The document as text that ends with a line feed. All but ASCII is escaped, so that nothing in it steers a terminal;
/// bytes that are no UTF-8 become U+FFFD.
std::string DumpJson(const nlohmann::ordered_json& document);

}  // namespace kvhost
