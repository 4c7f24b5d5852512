#include "StoreFigures.h"

#include <system_error>

#include "Duration.h"
#include "PeopleText.h"
#include "StoreJson.h"
#include "StoreLock.h"

namespace kvhost {

namespace {

namespace fs = std::filesystem;

std::uint64_t SizeOf(const fs::path& file) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : static_cast<std::uint64_t>(size);
}

std::vector<std::string> CountCells(const std::string& name, const StateCounts& counts) {
    std::vector<std::string> cells{name};
    for (int number = 0; number < kJobStateCount; ++number) {
        cells.push_back(std::to_string(CountOf(counts, static_cast<JobState>(number))));
    }
    return cells;
}

std::string UpperCase(std::string text) {
    for (char& c : text) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return text;
}

}  // namespace

StateCounts StoreFigures::Total() const {
    StateCounts total;
    for (const auto& [carrier, counts] : carriers) {
        for (const auto& [state, jobs] : counts) {
            total[state] += jobs;
        }
    }
    return total;
}

StoreFigures ReadFigures(StoreDatabase& store, StoreTime now) {
    const StoreRead snapshot(store);
    JobViews views(store);
    StoreFigures figures;
    figures.at = now;
    figures.folder = store.Folder();
    figures.isHostRunning = StoreLock::IsTaken(store.Folder());
    figures.oldestQueued = views.OldestQueued();
    figures.carriers = views.CountByCarrier();
    return figures;
}

std::int64_t CountOf(const StateCounts& counts, JobState state) {
    const auto found = counts.find(state);
    return found == counts.end() ? 0 : found->second;
}

StoreSize MeasureStore(const fs::path& folder) {
    StoreSize size;
    for (const char* name : {"jobs.db", "jobs.db-wal", "jobs.db-shm"}) {
        size.database += SizeOf(folder / name);
    }
    std::error_code error;
    for (fs::recursive_directory_iterator entry(folder / "attachments", error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename() == "content" && entry.depth() == 2) {
            size.attachments += SizeOf(entry->path());
        }
    }
    return size;
}

TextTable CountTable(const StoreFigures& figures) {
    std::vector<TextTable::Column> columns{{"CARRIER"}};
    for (int number = 0; number < kJobStateCount; ++number) {
        columns.push_back({UpperCase(JobStateName(static_cast<JobState>(number))), TextTable::Align::Right});
    }
    TextTable table(std::move(columns));
    for (const auto& [carrier, counts] : figures.carriers) {
        table.Add(CountCells(carrier, counts));
    }
    table.Add(CountCells("(all)", figures.Total()));
    return table;
}

std::string OldestQueuedText(const StoreFigures& figures) {
    if (!figures.oldestQueued) {
        return "nothing is queued";
    }
    return DurationText(figures.at - *figures.oldestQueued) + " old, submitted at " +
           LocalTime(*figures.oldestQueued);
}

nlohmann::ordered_json JsonOf(const StoreFigures& figures) {
    nlohmann::ordered_json carriers = nlohmann::ordered_json::object();
    for (const auto& [carrier, counts] : figures.carriers) {
        carriers[carrier] = JsonOf(counts);
    }
    const auto age = figures.oldestQueued
                         ? nlohmann::ordered_json((figures.at - *figures.oldestQueued).count())
                         : nlohmann::ordered_json();
    return {{"at", JsonOf(std::optional(figures.at))},
            {"store", figures.folder.string()},
            {"host_running", figures.isHostRunning},
            {"oldest_queued", JsonOf(figures.oldestQueued)},
            {"oldest_queued_age_ms", age},
            {"states", JsonOf(figures.Total())},
            {"carriers", carriers}};
}

}  // namespace kvhost
