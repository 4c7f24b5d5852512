#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>

namespace kvhost {

/// What a run has seen of its carriers, and what they may therefore get. One that has not delivered yet, or whose last
/// slice brought no delivery, is tried with a few jobs in one slice, so that a server which does not answer is not waited for
/// by several at a time. If the trial brings no delivery either, the carrier gets everything that waits for it at once: a
/// driver that cannot connect fails all of it after a single try. One thread at a time.
class CarrierTrials {
public:
    static constexpr int kAtFirst = 20;
    static constexpr int kEverything = std::numeric_limits<int>::max();

    /// How many jobs the carrier is to be tried with; nothing when it needs no trial.
    std::optional<int> Size(const std::string& carrier) const;

    void Begin(std::int64_t slice) { m_mapHasDelivered[slice] = false; }
    /// A file of the slice came back.
    void NoteBack(std::int64_t slice, const std::string& carrier, bool isDelivered);
    /// All of the slice is back.
    void End(std::int64_t slice, const std::string& carrier);

private:
    std::map<std::int64_t, bool> m_mapHasDelivered;  ///< by slice under way
    std::map<std::string, bool> m_mapDelivers;       ///< by carrier that something came back of
};

}  // namespace kvhost
