#pragma once

#include <chrono>

namespace kvsink {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

}  // namespace kvsink
