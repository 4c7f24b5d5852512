#pragma once

#include <string>
#include <string_view>

#include "StatusReport.h"

namespace kvhost {

/// The report as an HTML page that is complete by itself; its script only keeps it fresh.
std::string StatusPage(const StatusReport& report);

/// `text` as it may stand in the text of an element and between the quotes of an attribute.
std::string EscapeHtml(std::string_view text);

}  // namespace kvhost
