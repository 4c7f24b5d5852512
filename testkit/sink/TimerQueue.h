#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

#include "Clock.h"

namespace kvsink {

/// Which connection to look at, and when. Externally synchronised.
///
/// Entries are never removed before their time: a deadline that moves on costs nothing, as its owner looks at
/// the clock when its old entry falls due and then adds the next one.
class TimerQueue {
public:
    void add(TimePoint when, std::uint64_t id) { m_entries.emplace(when, id); }

    /// Removes and returns the first id that is due; nothing when none is.
    std::optional<std::uint64_t> takeDue(TimePoint now) {
        if (m_entries.empty() || m_entries.top().first > now) {
            return std::nullopt;
        }
        const std::uint64_t id = m_entries.top().second;
        m_entries.pop();
        return id;
    }

    /// When the first entry falls due; the end of time when there is none.
    TimePoint next() const { return m_entries.empty() ? TimePoint::max() : m_entries.top().first; }

private:
    using Entry = std::pair<TimePoint, std::uint64_t>;
    std::priority_queue<Entry, std::vector<Entry>, std::greater<>> m_entries;
};

}  // namespace kvsink
