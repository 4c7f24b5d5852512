#pragma once

#include <functional>

namespace kvtest {

/// What a run of starts and stops has left.
struct CyclesReport {
    int cycles = 0;
    int completed = 0;  ///< cycles whose mail came back completed, once
    int descriptorsBefore = 0;
    int descriptorsAfter = 0;
    int threadsBefore = 0;
    int threadsAfter = 0;
};

/// Makes, starts, stops and deletes a driver `cycles` times, and sends one mail in each cycle, by turns in clear and
/// inside TLS. The pauses of the stops are short. `afterEach` is told the number of each cycle that is over.
CyclesReport RunCycles(int cycles, const std::function<void(int)>& afterEach = {});

}  // namespace kvtest
