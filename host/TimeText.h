#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "StoreTime.h"

namespace kvhost {

/// The moment as RFC 3339 writes it, in UTC with milliseconds: "2026-03-01T09:30:00.250Z".
std::string TimeText(StoreTime time);

/// The moment of an RFC 3339 text: "2026-03-01T09:30:00Z", with up to three decimals of a second, and with "Z" or an
/// offset such as "+02:00". Nothing for any other text.
std::optional<StoreTime> ParseTime(std::string_view text);

}  // namespace kvhost
