#pragma once

#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "StoreFigures.h"

namespace kvhost {

/// Jobs that ended in a second, between two looks at the store. Immutable value.
struct EndRates {
    double delivered = 0;
    double failed = 0;
};

/// The rates of each carrier. Jobs that were purged between the looks do not count as a negative rate. `took` is the
/// time between the looks; none of it gives no rates.
std::map<std::string, EndRates> RatesBetween(const StoreFigures& before, const StoreFigures& after,
                                             std::chrono::duration<double> took);

/// One picture of "kvhost top" as lines of text. `rates` is empty at the first look.
std::string TopFrame(const StoreFigures& figures, const std::map<std::string, EndRates>& rates);

}  // namespace kvhost
