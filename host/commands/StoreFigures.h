#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "JobViews.h"
#include "TextTable.h"

namespace kvhost {

/// How the store stands at one moment. Immutable value.
struct StoreFigures {
    StoreTime at;
    std::filesystem::path folder;
    bool isHostRunning = false;
    std::optional<StoreTime> oldestQueued;
    std::map<std::string, StateCounts> carriers;

    StateCounts Total() const;
};

/// Takes the same time however many jobs there are.
StoreFigures ReadFigures(StoreDatabase& store, StoreTime now);

/// Number of jobs in that state; 0 for none.
std::int64_t CountOf(const StateCounts& counts, JobState state);

/// How much disk a store takes, in bytes.
struct StoreSize {
    std::uint64_t database = 0;     ///< with its log of writes
    std::uint64_t attachments = 0;  ///< each content once
};

/// Looks at every stored attachment. What vanishes meanwhile is left out.
StoreSize MeasureStore(const std::filesystem::path& folder);

/// The number of jobs by carrier and state, with a last row for all of them.
TextTable CountTable(const StoreFigures& figures);

/// "4 min 10 s" since the oldest queued job was submitted; "nothing is queued".
std::string OldestQueuedText(const StoreFigures& figures);

/// The figures in the form that docs/commands.md describes.
nlohmann::ordered_json JsonOf(const StoreFigures& figures);

}  // namespace kvhost
