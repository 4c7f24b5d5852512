#include "CarrierTrials.h"

namespace kvhost {

std::optional<int> CarrierTrials::Size(const std::string& carrier) const {
    const auto found = m_mapDelivers.find(carrier);
    if (found == m_mapDelivers.end()) {
        return kAtFirst;
    }
    return found->second ? std::nullopt : std::optional<int>(kEverything);
}

void CarrierTrials::NoteBack(std::int64_t slice, const std::string& carrier, bool isDelivered) {
    if (isDelivered) {
        m_mapHasDelivered[slice] = true;
        m_mapDelivers[carrier] = true;
    }
}

void CarrierTrials::End(std::int64_t slice, const std::string& carrier) {
    const auto node = m_mapHasDelivered.extract(slice);
    if (node.empty() || node.mapped()) {
        return;
    }
    const auto [known, isNew] = m_mapDelivers.try_emplace(carrier, false);
    if (!isNew && known->second) {
        m_mapDelivers.erase(known);
    }
}

}  // namespace kvhost
