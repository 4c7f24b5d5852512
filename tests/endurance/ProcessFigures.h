#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "Eventually.h"

namespace kvtest {

/// Starts a thread and waits until the system has forgotten it: with the first one, a sanitizer may start its own.
inline bool HaveHadAThread() {
    pid_t id = 0;
    std::thread([&id] { id = gettid(); }).join();
    return Eventually([id] { return !std::filesystem::exists("/proc/self/task/" + std::to_string(id)); });
}

/// Threads of this process.
inline int ThreadCount() {
    [[maybe_unused]] static const bool isReady = HaveHadAThread();
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                          std::filesystem::directory_iterator()));
}

/// Memory of this process that lies in RAM, in KiB.
inline long ResidentKiB() {
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace kvtest
