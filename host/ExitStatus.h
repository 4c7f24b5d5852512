#pragma once

namespace kvhost {

// The exit statuses of every command.
inline constexpr int kExitSuccess = 0;     ///< everything was done
inline constexpr int kExitSomeFailed = 1;  ///< something was tried and did not succeed
inline constexpr int kExitBadInput = 2;    ///< bad usage, refused input, or a driver that cannot be used
inline constexpr int kExitNoStore = 3;     ///< the job store cannot be used, or another host has it

}  // namespace kvhost
