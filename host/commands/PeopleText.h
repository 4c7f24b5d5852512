#pragma once

#include <cstdint>
#include <string>

#include "StoreTime.h"

namespace kvhost {

// How moments and sizes are told to people; programs get RFC 3339 in UTC (TimeText.h) and bytes.

/// The moment on the clock of the user's time zone: "2026-03-01 09:30:00".
std::string LocalTime(StoreTime time);

/// How long ago: "5 min 10 s ago", "just now" for less than a second; "in 3 s" for a moment to come.
std::string Ago(StoreTime time, StoreTime now);

/// Both: "in 4 min 10 s, at 2026-03-01 09:30:00", or "2026-03-01 09:30:00, 3 min ago".
std::string MomentText(StoreTime time, StoreTime now);

/// "512 B", "1.5 kB", "12.3 MB", in powers of 1000.
std::string SizeText(std::uint64_t bytes);

/// "1 job", "2 jobs".
std::string Counted(std::int64_t number, const std::string& what);

}  // namespace kvhost
