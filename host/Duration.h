#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kvhost {

using Milliseconds = std::chrono::milliseconds;

/// What a duration looks like, for messages.
inline constexpr const char* kDurationForm =
    "a duration such as \"250ms\", \"30s\", \"5m\", \"2h\" or \"7d\"";

/// The duration of a whole number and a unit (ms, s, m, h or d) without a blank between them; nothing for any other
/// text and for more than 3,650 days.
std::optional<Milliseconds> ParseDuration(std::string_view text);

/// The duration for people, in its two largest units: "250 ms", "1.5 s", "45 s", "5 min 10 s", "2 h 5 min", "3 d 4 h".
/// A negative one has a minus sign in front.
std::string DurationText(Milliseconds duration);

}  // namespace kvhost
