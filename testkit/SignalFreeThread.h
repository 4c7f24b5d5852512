#pragma once

#include <functional>
#include <thread>

namespace kvtest {

/// Starts a thread that never takes a signal sent to the process: all are blocked but the ones that report a
/// fault of the thread's own code. The caller joins it.
std::thread StartSignalFreeThread(std::function<void()> body);

}  // namespace kvtest
