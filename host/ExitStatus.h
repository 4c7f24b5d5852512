#pragma once

namespace kvhost {

// The exit statuses of every command.
inline constexpr int kExitSuccess = 0;     ///< everything was done
inline constexpr int kExitSomeFailed = 1;  ///< something was tried and did not succeed
inline constexpr int kExitBadInput = 2;    ///< bad usage, refused input, or a driver that cannot be used

}  // namespace kvhost
