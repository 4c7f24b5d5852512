// Intake and tick for a number of jobs over a number of sessions: one line of JSON.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "HollowDriver.h"

namespace {

using Clock = std::chrono::steady_clock;
using kvbench::HollowDriver;

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::size_t BytesInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: kvbench_growth JOBS SESSIONS\n");
        return 2;
    }
    const std::size_t jobs = std::strtoul(argv[1], nullptr, 10);
    const std::size_t sessions = std::min(jobs, static_cast<std::size_t>(std::strtoul(argv[2], nullptr, 10)));
    const auto files = kvbench::HollowFiles(jobs, sessions);
    HollowDriver driver;

    const std::size_t before = BytesInUse();
    const auto begin = Clock::now();
    KvMessengerReportsMngrInterface::ReportsStatus status{};
    for (const auto& file : files) {
        driver.SendAMessage(file.get(), status);
    }
    const double intake = SecondsSince(begin);
    const std::size_t bytes = BytesInUse() - before;

    const auto tickBegin = Clock::now();
    driver.PeriodicEvent();
    const double tick = SecondsSince(tickBegin);
    while (driver.Returned() < jobs) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const double back = SecondsSince(tickBegin);

    const auto idleBegin = Clock::now();
    driver.PeriodicEvent();
    const double idle = SecondsSince(idleBegin);
    std::printf(
        "{\"jobs\": %zu, \"sessions\": %zu, \"intake\": %.6f, \"bytes\": %zu, \"tick\": %.6f, \"back\": "
        "%.6f, "
        "\"idle_tick\": %.6f}\n",
        jobs, sessions, intake, bytes, tick, back, idle);
}
