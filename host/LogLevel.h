#pragma once

#include <spdlog/common.h>

#include <optional>
#include <string_view>

namespace kvhost {

/// The names that ParseLogLevel knows, for messages.
inline constexpr const char* kLogLevelNames = "trace, debug, info, warning, error or off";

/// The level of that name; nothing for any other text. The trace level shows the mail traffic.
std::optional<spdlog::level::level_enum> ParseLogLevel(std::string_view name);

}  // namespace kvhost
