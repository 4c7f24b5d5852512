#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "CarrierHealth.h"
#include "CarrierProbe.h"
#include "HostConfig.h"
#include "LogSink.h"
#include "RunStatus.h"

namespace kvhost {

/// The health of all carriers of the configuration, with the probes that it takes. One thread at a time.
class CarrierWatch {
public:
    using Time = CarrierHealth::Time;

    /// `onFinding`: as for CarrierProbe.
    CarrierWatch(LogSink& log, std::function<void()> onFinding);

    /// Forgets carriers that are gone, and what is known of those that go to another server now.
    void Adopt(const HostConfig& config);

    /// What may be handed over to the carrier now. A probe that this takes is begun.
    CarrierHealth::Permit Ask(const std::string& carrier, Time now);
    /// Collects what probes have found, and begins those of carriers in trouble.
    void Look(Time now);
    /// When the next probe of a carrier in trouble is due.
    std::optional<Time> NextProbe() const;

    void HandedOver(const std::string& carrier);
    void Reached(const std::string& carrier, Time handedOver, Time now);
    void Failed(const std::string& carrier, Time handedOver, const std::string& reason, Time now);
    void SliceBack(const std::string& carrier);

    /// Every carrier of the configuration, without the number of its jobs.
    std::map<std::string, CarrierStatus> Status(Time now) const;

private:
    struct Watched {
        std::string server;
        CarrierHealth health;
    };

    CarrierHealth* Find(const std::string& carrier);
    void ProbeIfWanted(const std::string& carrier, Watched& watched, bool hasJobs, Time now);
    /// Makes the change and tells when the carrier came into trouble by it, or out.
    template <typename Change>
    void Apply(const std::string& carrier, const Change& change);

    LogSink& m_log;
    CarrierProbe m_probe;
    Milliseconds m_probeLimit{0};
    std::map<std::string, Watched> m_mapCarriers;
};

}  // namespace kvhost
