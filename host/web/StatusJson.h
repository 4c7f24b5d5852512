#pragma once

#include <string>

#include "StatusReport.h"

namespace kvhost {

/// The report as one JSON document (RFC 8259).
std::string StatusJson(const StatusReport& report);

}  // namespace kvhost
