#pragma once

#include <prometheus/counter.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ConnectionCounter.h"
#include "RunObserver.h"
#include "RunStatus.h"
#include "StoreWatch.h"

namespace kvhost {

/// The label of jobs whose carrier the configuration does not have (any more).
inline constexpr const char* kUnknownCarrier = "(not configured)";

/// Counts what the daemon does, and writes it and the state of board and store in the text format of Prometheus. Only
/// carriers of the configuration become labels, whatever the store holds. Thread-safe.
class Metrics : public RunObserver {
public:
    /// Where the figures come from that are looked up when somebody asks. All outlive the metrics.
    struct Sources {
        const RunStatus& status;
        StoreWatch& store;
        const ConnectionCounter& connections;
        std::function<std::uint64_t()> lostDeliveryLines;  ///< may be empty; called on any thread
    };

    explicit Metrics(const Sources& sources);

    void JobHandedOver(const StoredJob& job, Milliseconds waited) override;
    void AttemptEnded(const AttemptReport& report) override;
    void JobExpired(const std::string& carrier) override;
    void StoreWritten(std::chrono::microseconds took) override;

    /// All metrics (text/plain; version=0.0.4).
    std::string Text();

private:
    std::string LabelOf(const std::string& carrier);
    void KnowCarriers(const RunSnapshot& run);

    const Sources m_sources;
    const double m_dStarted;  ///< seconds since 1970
    prometheus::Registry m_registry;
    prometheus::Family<prometheus::Counter>& m_attempts;
    prometheus::Family<prometheus::Counter>& m_retries;
    prometheus::Family<prometheus::Counter>& m_expired;
    prometheus::Family<prometheus::Histogram>& m_queueTime;
    prometheus::Family<prometheus::Histogram>& m_deliveryTime;
    prometheus::Histogram& m_storeWrite;

    std::mutex m_mutex;
    std::set<std::string> m_setCarriers;  ///< that have been configured so far; guarded by m_mutex
};

}  // namespace kvhost
