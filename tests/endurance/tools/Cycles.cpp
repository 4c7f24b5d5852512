// Starts and stops a driver again and again, with a mail in each cycle, and says what is left.
//
//   kvendurance_cycles [COUNT]
//
// COUNT cycles (10000). Ends with 0 when nothing is left and every mail was delivered.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "Descriptors.h"
#include "endurance/Cycles.h"
#include "endurance/ProcessFigures.h"

int main(int argc, char** argv) {
    using Clock = std::chrono::steady_clock;
    const int count = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 10000;
    const Clock::time_point begun = Clock::now();
    const auto tell = [&](int cycle) {
        if (cycle == 1 || cycle % (count < 10 ? 1 : count / 10) == 0) {
            const std::chrono::duration<double> seconds = Clock::now() - begun;
            std::fprintf(stderr, "%6d cycles  %6.1f s  %7ld KiB  %3d descriptors  %2d threads\n", cycle,
                         seconds.count(), kvtest::ResidentKiB(), kvtest::OpenDescriptorCount(),
                         kvtest::ThreadCount());
        }
    };
    const kvtest::CyclesReport report = kvtest::RunCycles(count, tell);
    std::fprintf(stderr, "%d of %d mails completed; descriptors %d -> %d, threads %d -> %d\n",
                 report.completed, report.cycles, report.descriptorsBefore, report.descriptorsAfter,
                 report.threadsBefore, report.threadsAfter);
    const bool held = report.completed == count && report.descriptorsAfter == report.descriptorsBefore &&
                      report.threadsAfter == report.threadsBefore;
    return held ? 0 : 1;
}
