#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace kvtest {

/// Threads of this process.
inline int ThreadCount() {
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
