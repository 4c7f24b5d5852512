#pragma once

#include <prometheus/metric_family.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ConnectionCounter.h"
#include "RunStatus.h"
#include "StoreWatch.h"

namespace kvhost {

/// What is read at the moment somebody asks for metrics. Immutable value.
struct MomentaryFigures {
    const RunSnapshot& run;
    const StoreFigures& store;
    ConnectionFigures connections;
    std::uint64_t lostDeliveryLines = 0;
    StoreTime now;
    double processStarted = 0;  ///< seconds since 1970
};

/// Those figures as metrics. Jobs of carriers that the board does not know are summed up under kUnknownCarrier.
std::vector<prometheus::MetricFamily> FamiliesOf(const MomentaryFigures& figures);

/// The name with underscores for blanks, as label values have it: "in_doubt".
std::string LabelText(std::string name);

}  // namespace kvhost
