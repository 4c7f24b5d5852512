#pragma once

#include <string>
#include <vector>

#include "Outcomes.h"
#include "Problem.h"

namespace kvhost {

/// What a run has to say at its end. Immutable value.
struct RunReport {
    std::vector<Outcome> outcomes;
    Tally tally;
    std::vector<Problem> carrierProblems;
    std::string driver;  ///< what the driver says it is
    std::string error;   ///< what went wrong with the driver itself
    int exitStatus = 0;
};

/// The outcomes as aligned columns, and a summary line. Aligned by code points.
std::string FormatTable(const RunReport& report);

/// The whole report as one JSON document (RFC 8259), ended by a line feed.
std::string FormatJson(const RunReport& report);

}  // namespace kvhost
