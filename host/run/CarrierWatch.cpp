#include "CarrierWatch.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace kvhost {

namespace {

/// A server may take its time to greet; as long as the driver itself waits, and no longer.
constexpr Milliseconds kLongestGreeting{60000};
constexpr int kMostDoublings = 10;

}  // namespace

CarrierWatch::CarrierWatch(LogSink& log, std::function<void()> onFinding)
    : m_log(log), m_probe(std::move(onFinding)) {}

void CarrierWatch::Adopt(const HostConfig& config) {
    m_probeLimit = config.run.probeLimit;
    std::erase_if(m_mapCarriers, [&config](const auto& entry) {
        const auto found = config.carriers.find(entry.first);
        return found == config.carriers.end() || found->second.server != entry.second.server;
    });
    for (const auto& [name, carrier] : config.carriers) {
        m_mapCarriers.try_emplace(name, Watched{carrier.server, {}}).first->second.health.ProbeSoon();
    }
}

CarrierHealth::Permit CarrierWatch::Ask(const std::string& carrier, Time now) {
    const auto found = m_mapCarriers.find(carrier);
    if (found == m_mapCarriers.end()) {
        return CarrierHealth::Permit::None;
    }
    ProbeIfWanted(carrier, found->second, true, now);
    return found->second.health.Ask(now);
}

void CarrierWatch::Look(Time now) {
    for (const CarrierProbe::Finding& finding : m_probe.TakeFindings()) {
        Apply(finding.carrier, [&](CarrierHealth& health) { health.ProbeEnded(finding.result, now); });
    }
    for (auto& [name, watched] : m_mapCarriers) {
        ProbeIfWanted(name, watched, false, now);
    }
}

std::optional<CarrierWatch::Time> CarrierWatch::NextProbe() const {
    std::optional<Time> next;
    for (const auto& [name, watched] : m_mapCarriers) {
        if (const auto probe = watched.health.NextProbe(); probe && (!next || *probe < *next)) {
            next = probe;
        }
    }
    return next;
}

void CarrierWatch::HandedOver(const std::string& carrier) {
    if (CarrierHealth* health = Find(carrier)) {
        health->HandedOver();
    }
}

void CarrierWatch::Reached(const std::string& carrier, Time handedOver, Time now) {
    Apply(carrier, [&](CarrierHealth& health) { health.Reached(handedOver, now); });
}

void CarrierWatch::Failed(const std::string& carrier, Time handedOver, const std::string& reason, Time now) {
    Apply(carrier, [&](CarrierHealth& health) { health.Failed(handedOver, reason, now); });
}

void CarrierWatch::SliceBack(const std::string& carrier) {
    if (CarrierHealth* health = Find(carrier)) {
        health->SliceBack();
    }
}

std::map<std::string, CarrierStatus> CarrierWatch::Status(Time now) const {
    std::map<std::string, CarrierStatus> all;
    for (const auto& [name, watched] : m_mapCarriers) {
        CarrierStatus status;
        status.isInTrouble = watched.health.IsInTrouble();
        status.trouble = watched.health.Trouble();
        const Time next = std::max(watched.health.NextProbe().value_or(now), now);
        status.nextProbe = StoreNow() + std::chrono::duration_cast<Milliseconds>(next - now);
        all.emplace(name, std::move(status));
    }
    return all;
}

CarrierHealth* CarrierWatch::Find(const std::string& carrier) {
    const auto found = m_mapCarriers.find(carrier);
    return found == m_mapCarriers.end() ? nullptr : &found->second.health;
}

void CarrierWatch::ProbeIfWanted(const std::string& carrier, Watched& watched, bool hasJobs, Time now) {
    if (!watched.health.WantsProbe(hasJobs, now)) {
        return;
    }
    const Milliseconds greeting = m_probeLimit * (1 << std::min(watched.health.Failures(), kMostDoublings));
    watched.health.ProbeBegun();
    try {
        m_probe.Begin(carrier, watched.server,
                      {m_probeLimit, std::max(m_probeLimit, std::min(greeting, kLongestGreeting))});
    } catch (const std::system_error& error) {
        watched.health.ProbeEnded({ProbeResult::Kind::Silent, std::string("no probe: ") + error.what()}, now);
    }
}

template <typename Change>
void CarrierWatch::Apply(const std::string& carrier, const Change& change) {
    CarrierHealth* health = Find(carrier);
    if (health == nullptr) {
        return;
    }
    const bool wasInTrouble = health->IsInTrouble();
    change(*health);
    if (health->IsInTrouble() && !wasInTrouble) {
        m_log.Warn("carrier " + carrier + " is in trouble: " + health->Trouble() + "; `kvhost carrier test " +
                   carrier + "` tells more");
    } else if (wasInTrouble && !health->IsInTrouble()) {
        m_log.Warn("carrier " + carrier + " works again");
    }
}

}  // namespace kvhost
