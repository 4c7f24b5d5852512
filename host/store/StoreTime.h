#pragma once

#include <chrono>
#include <cstdint>

namespace kvhost {

/// A moment as the store keeps it: milliseconds since 1970-01-01 00:00 UTC, on the wall clock, because it has to
/// mean the same after a restart.
using StoreTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

inline StoreTime StoreNow() {
    return std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

inline std::int64_t ToNumber(StoreTime time) {
    return time.time_since_epoch().count();
}

inline StoreTime FromNumber(std::int64_t milliseconds) {
    return StoreTime(std::chrono::milliseconds(milliseconds));
}

}  // namespace kvhost
