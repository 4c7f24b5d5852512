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
    const auto found = m_mapHasDelivered.find(slice);
    if (found != m_mapHasDelivered.end()) {
        m_mapDelivers[carrier] = found->second;
        m_mapHasDelivered.erase(found);
    }
}

}  // namespace kvhost
